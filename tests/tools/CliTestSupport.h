// Running the built corvane binary on files in a temporary folder.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
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

/// A test with a fresh temporary folder.
struct CliTest : ::testing::Test {
  TempFolder folder;
};

/// A corvane process started with a pipe on its standard input.
struct Started {
  pid_t pid = -1;
  int input = -1;  ///< the pipe's writing end
  std::unique_ptr<TempFolder> captures;
};

/// Starts corvane with `arguments`; standard input is a pipe (an empty file
/// when `pipe` is false, holding `input`).
inline Started startTool(std::vector<std::string> argv, bool pipe = true, const std::string& input = "") {
  Started started;
  started.captures = std::make_unique<TempFolder>();
  const std::string outPath = started.captures->path("out"), errPath = started.captures->path("err");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  int fds[2] = {-1, -1};
  if (pipe && ::pipe(fds) == 0) {
    posix_spawn_file_actions_adddup2(&actions, fds[0], 0);
    posix_spawn_file_actions_addclose(&actions, fds[1]);
    started.input = fds[1];
  } else {
    const std::string inPath = started.captures->file("in", input);
    posix_spawn_file_actions_addopen(&actions, 0, inPath.c_str(), O_RDONLY, 0);
  }
  posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  argv.insert(argv.begin(), CORVANE_TOOL);
  std::vector<char*> raw;
  for (auto& a : argv) raw.push_back(a.data());
  raw.push_back(nullptr);
  if (posix_spawn(&started.pid, CORVANE_TOOL, &actions, nullptr, raw.data(), environ) != 0) started.pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  if (fds[0] >= 0) ::close(fds[0]);
  return started;
}

/// Waits for a started corvane and gathers what it wrote.
inline Run finish(Started& started) {
  if (started.input >= 0) ::close(started.input);
  started.input = -1;
  Run run;
  int status = 0;
  if (started.pid > 0 && ::waitpid(started.pid, &status, 0) == started.pid)
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  run.out = readBytes(started.captures->path("out"));
  run.err = readBytes(started.captures->path("err"));
  return run;
}

/// Runs corvane with `arguments`; standard input holds `input`.
inline Run runTool(std::vector<std::string> argv, const std::string& input = "") {
  Started started = startTool(std::move(argv), false, input);
  return finish(started);
}

/// Runs corvane with `argv` (standard input holds `input`); gives its exit
/// code, a space and the bytes of `path` after it: "0 [a]\nk=v\n".
inline std::string editAndRead(std::vector<std::string> argv, const std::string& path,
                               const std::string& input = "") {
  const int exitCode = runTool(std::move(argv), input).exitCode;
  return std::to_string(exitCode) + " " + readBytes(path);
}

/// What the shell command `command` prints.
inline std::string shellOutput(const std::string& command) {
  std::string out;
  FILE* shell = ::popen(command.c_str(), "r");
  char buffer[512];
  for (std::size_t n; shell && (n = std::fread(buffer, 1, sizeof buffer, shell)) > 0;) out.append(buffer, n);
  if (shell) ::pclose(shell);
  return out;
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

/// A run of corvane and what it gives: standard output, a part of standard
/// error ("" for any) and the exit code.
struct Expected {
  std::vector<std::string> args;
  std::string out, errHas;
  int exitCode = 0;
};

/// Runs each row with `prefix` before its arguments (standard input holds
/// `input`) and checks what it gives; whatever it writes to standard error
/// starts with "corvane: ".
inline void expectRuns(const std::vector<std::string>& prefix, const std::vector<Expected>& rows,
                       const std::string& input = "") {
  for (const Expected& row : rows) {
    std::vector<std::string> args = prefix;
    args.insert(args.end(), row.args.begin(), row.args.end());
    SCOPED_TRACE(::testing::PrintToString(args));
    auto run = runTool(args, input);
    EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
    EXPECT_EQ(run.out, row.out);
    EXPECT_TRUE(has(run.err, row.errHas));
    EXPECT_TRUE(run.err.empty() || run.err.rfind("corvane: ", 0) == 0) << run.err;
  }
}

}  // namespace clitest
