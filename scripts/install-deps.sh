#!/usr/bin/env bash
# Installs the Debian packages the build needs, when any is missing.
# Extra package names given as arguments are installed too.
set -euo pipefail
packages=(cmake ninja-build g++ pkg-config libpcre2-dev libicu-dev libgtest-dev libgmock-dev
          libbenchmark-dev nlohmann-json3-dev "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
