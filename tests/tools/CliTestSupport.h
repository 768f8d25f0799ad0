// Running the built corvane binary on files in a temporary folder.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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
  std::string out, err;
};

inline std::string readBytes(const std::filesystem::path& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

/// A fresh temporary folder, removed with its content.
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

  std::string path(const std::string& name) const { return (_path / name).string(); }
  /// Writes `bytes` to `name` and returns the file's path.
  std::string file(const std::string& name, const std::string& bytes) const {
    std::ofstream(_path / name, std::ios::binary | std::ios::trunc) << bytes;
    return path(name);
  }

 private:
  std::filesystem::path _path;
};

/// Runs corvane with `arguments`; standard input is empty.
inline Run runTool(std::vector<std::string> argv) {
  TempFolder captures;
  const std::string outPath = captures.path("out"), errPath = captures.path("err");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  argv.insert(argv.begin(), CORVANE_TOOL);
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

/// UTF-8 text (Latin-1 characters) as UTF-16 bytes with a byte-order mark.
inline std::string utf16(const std::string& utf8, bool bigEndian = false) {
  std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    auto c = static_cast<unsigned char>(utf8[i]);
    char unit = static_cast<char>(c < 0x80 ? c : (c & 0x1F) << 6 | (static_cast<unsigned char>(utf8[++i]) & 0x3F));
    out += bigEndian ? std::string{'\0', unit} : std::string{unit, '\0'};
  }
  return out;
}

/// `text` with every LF turned into CR LF.
inline std::string crlf(const std::string& text) {
  std::string out;
  for (char c : text) out += c == '\n' ? "\r\n" : std::string(1, c);
  return out;
}

/// True when `text` contains `part`; gtest prints `text` on failure.
inline ::testing::AssertionResult has(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "\"" << part << "\" not in:\n" << text;
}

}  // namespace clitest
