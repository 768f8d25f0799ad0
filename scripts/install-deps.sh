#!/usr/bin/env bash
# Installs the Debian packages the build needs, when any is missing, and
# generates the German locale the typed-value tests switch to.
# Extra package names given as arguments are installed too.
set -euo pipefail
packages=(cmake ninja-build g++ pkg-config libpcre2-dev libicu-dev libgtest-dev libgmock-dev
          libbenchmark-dev nlohmann-json3-dev help2man locales "$@")
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
# A locale whose decimal separator is ",": the tests check that numbers are
# read and written the same under it. Listed in /etc/locale.gen, so that a
# later locale-gen (a package upgrade) keeps it.
if ! locale -a 2>/dev/null | grep -qix 'de_DE\.utf-\?8'; then
  echo "Generating locale de_DE.UTF-8"
  if grep -q '^# *de_DE\.UTF-8 UTF-8' /etc/locale.gen 2>/dev/null; then
    $sudo sed -i 's/^# *\(de_DE\.UTF-8 UTF-8\)/\1/' /etc/locale.gen
  elif ! grep -q '^de_DE\.UTF-8 UTF-8' /etc/locale.gen 2>/dev/null; then
    echo 'de_DE.UTF-8 UTF-8' | $sudo tee -a /etc/locale.gen > /dev/null
  fi
  $sudo locale-gen > /dev/null
  locale -a | grep -qix 'de_DE\.utf-\?8' || { echo "could not generate de_DE.UTF-8" >&2; exit 1; }
fi
