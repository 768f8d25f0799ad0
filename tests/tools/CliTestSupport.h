// Running the built corvane binary on files in a temporary folder.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#ifndef CORVANE_TOOL
#error "CORVANE_TOOL must name the corvane binary"
#endif

extern char** environ;

namespace clitest {

struct Run {
  int exitCode = -1;
  std::string out;
  std::string err;
};

inline std::string readBytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

inline void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

/// A fresh folder under the system's temporary folder, removed with its content.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "corvane-cli-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    _path = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::filesystem::path path(const std::string& name) const { return _path / name; }
  /// Writes `bytes` to `name` and returns the file's path as a string.
  std::string file(const std::string& name, const std::string& bytes) const {
    writeBytes(path(name), bytes);
    return path(name).string();
  }

 private:
  std::filesystem::path _path;
};

/// Runs corvane with `arguments`; standard input is empty.
inline Run runTool(const std::vector<std::string>& arguments) {
  TempFolder captures;
  const std::string outPath = captures.path("out").string(), errPath = captures.path("err").string();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<std::string> argv{CORVANE_TOOL};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  std::vector<char*> raw;
  for (auto& a : argv) raw.push_back(a.data());
  raw.push_back(nullptr);
  pid_t pid = 0;
  Run run;
  if (posix_spawn(&pid, CORVANE_TOOL, &actions, nullptr, raw.data(), environ) == 0) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  posix_spawn_file_actions_destroy(&actions);
  run.out = readBytes(outPath);
  run.err = readBytes(errPath);
  return run;
}

/// UTF-8 text (BMP characters) as UTF-16 bytes, little-endian with a
/// byte-order mark unless `bigEndian`.
inline std::string utf16(const std::string& utf8, bool bigEndian = false) {
  std::string out = bigEndian ? std::string("\xFE\xFF") : std::string("\xFF\xFE");
  for (std::size_t i = 0; i < utf8.size();) {
    unsigned char c = static_cast<unsigned char>(utf8[i]);
    unsigned unit = c;
    std::size_t length = c < 0x80 ? 1 : c < 0xE0 ? 2 : 3;
    if (length == 2) unit = ((c & 0x1Fu) << 6) | (static_cast<unsigned char>(utf8[i + 1]) & 0x3Fu);
    if (length == 3)
      unit = ((c & 0x0Fu) << 12) | ((static_cast<unsigned char>(utf8[i + 1]) & 0x3Fu) << 6) |
             (static_cast<unsigned char>(utf8[i + 2]) & 0x3Fu);
    char hi = static_cast<char>(unit >> 8), lo = static_cast<char>(unit & 0xFF);
    out += bigEndian ? std::string{hi, lo} : std::string{lo, hi};
    i += length;
  }
  return out;
}

/// `text` with every LF turned into CR LF.
inline std::string crlf(const std::string& text) {
  std::string out;
  for (char c : text) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return out;
}

}  // namespace clitest
