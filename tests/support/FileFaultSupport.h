// Helpers for tests that save files under faults: scratch folders, what a
// folder and a file hold, forked children that report back, and a seccomp
// filter that takes O_TMPFILE away as some file systems do.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "NoUnnamedFiles.h"

namespace filefault {

namespace fs = std::filesystem;

/// A fresh folder, searchable by every user, removed with its contents; in
/// the system's temporary folder or in `base`.
struct TempDir {
  std::string path;
  explicit TempDir(const fs::path& base = fs::temp_directory_path()) {
    std::string templ = (base / "corvane-save-XXXXXX").string();
    EXPECT_NE(::mkdtemp(templ.data()), nullptr);
    ::chmod(templ.c_str(), 0755);  // searchable by an unprivileged child
    path = templ;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    ::chmod(path.c_str(), 0755);
    std::error_code ec;
    fs::remove_all(path, ec);
  }
  std::string operator/(const std::string& name) const { return path + "/" + name; }
};

inline void writeBytes(const std::string& path, const std::string& bytes, mode_t mode) {
  std::ofstream(path, std::ios::binary) << bytes;
  ::chmod(path.c_str(), mode);
}

/// The bytes of a regular file (through links), or "(none)".
inline std::string readBytes(const std::string& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return "(none)";
  std::ostringstream buffer;
  buffer << std::ifstream(path, std::ios::binary).rdbuf();
  return buffer.str();
}

/// The folder's entries, sorted, each followed by a space.
inline std::string listing(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(dir, ec)) names.push_back(entry.path().filename().string() + " ");
  std::sort(names.begin(), names.end());
  std::string out;
  for (const auto& n : names) out += n;
  return out;
}

/// The file's bytes and permission bits.
inline std::string state(const std::string& path) {
  struct stat st{};
  return readBytes(path) + " mode " + std::to_string(::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0);
}

/// The entry's inode and mode, not following a last symbolic link; "(none)" when there is none.
inline std::string identity(const std::string& path) {
  struct stat st{};
  return ::lstat(path.c_str(), &st) == 0 ? std::to_string(st.st_ino) + " " + std::to_string(st.st_mode) : "(none)";
}

using ::failed;

/// Runs `body` in a forked child that is ended after `seconds` (a save that
/// hangs fails the test instead of blocking it) and returns the text lines it
/// reported; a child ended by a signal adds the line "signal N".
inline std::vector<std::string> inChild(const std::function<std::vector<std::string>()>& body,
                                        unsigned seconds = 60) {
  int fds[2];
  if (::pipe(fds) != 0) return {"pipe failed"};
  std::fflush(nullptr);
  pid_t child = ::fork();
  if (child == 0) {
    ::close(fds[0]);
    ::alarm(seconds);
    std::string out;
    for (const std::string& line : body()) out += line + '\0';
    for (std::size_t done = 0; done < out.size();) {
      ssize_t n = ::write(fds[1], out.data() + done, out.size() - done);
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string in;
  char buffer[4096];
  for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) in.append(buffer, static_cast<std::size_t>(n));
  ::close(fds[0]);
  int status = 0;
  if (child > 0) ::waitpid(child, &status, 0);
  std::vector<std::string> lines;
  for (std::size_t pos = 0, end; (end = in.find('\0', pos)) != std::string::npos; pos = end + 1)
    lines.push_back(in.substr(pos, end - pos));
  if (child > 0 && WIFSIGNALED(status)) lines.push_back("signal " + std::to_string(WTERMSIG(status)));
  return lines;
}

}  // namespace filefault
