// The command line of the corvane tool: verbs, options, help texts, exit codes.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace corvane::cli {

/// The tool's exit codes.
enum ExitCode : int {
  kDone = 0,
  kNotFound = 1,       ///< section or option not found
  kUsageError = 2,     ///< bad verb, option or argument count
  kFileFailure = 3,    ///< a file could not be read, decoded or written
  kWouldLoseText = 4,  ///< writing would lose text the library does not read
};

/// A failure that ends the tool: the exit code and the message for standard
/// error (without the "corvane: " prefix and line end).
struct Failure {
  int code;
  std::string message;
};

/// A parsed command line.
struct CommandLine {
  std::string verb;                 ///< "get", "set", …; empty for the tool's own --help
  std::vector<std::string> operands;
  std::optional<std::string> output;    ///< --output PATH ("-" is standard output)
  std::optional<std::string> encoding;  ///< --encoding NAME
  bool force = false;
  bool verbose = false;
  bool reformat = false;
  bool help = false;
};

/// Parses `arguments` (without the program name). Throws Failure with
/// kUsageError for an unknown verb or option, an option the verb does not
/// take, a missing option value or a wrong number of operands (unless help
/// was asked for).
CommandLine parseCommandLine(const std::vector<std::string>& arguments);

/// The help text of `verb`, or of the tool for an empty verb.
std::string helpText(const std::string& verb);

}  // namespace corvane::cli
