// The command line of the corvane tool: verbs, options, help texts, exit codes.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace corvane::cli {

/// The tool's exit codes.
enum ExitCode : int {
  kDone = 0,
  kNotFound = 1,     ///< section or option not found (diff: the files differ)
  kUsageError = 2,   ///< bad verb, option or argument; a name or value that would not read back
  kFileFailure = 3,  ///< a file could not be read, decoded or written, changed meanwhile, or is read-only
  kNotRead = 4,      ///< the target may stand after the line where reading stopped
};

/// A failure that ends the tool: the exit code and the message for standard
/// error (without the "corvane: " prefix and line end).
struct Failure {
  int code;
  std::string message;
};

/// What `get` and `diff` print.
enum class Format { Plain, Sh, Ini, Lines, Json };

/// A parsed command line.
struct CommandLine {
  std::string verb;  ///< "get", "set", …; empty for the tool's own help or version
  std::vector<std::string> operands;
  std::optional<std::string> output;    ///< --output PATH ("-" is standard output)
  std::optional<std::string> encoding;  ///< --encoding NAME
  Format format = Format::Plain;
  std::optional<std::string> prefix;  ///< --prefix PREFIX (get --format sh)
  bool force = false;
  bool verbose = false;
  bool reformat = false;
  bool existing = false;
  bool help = false;     ///< --help, or the verb "help" (its operand in operands)
  bool version = false;  ///< --version
};

/// Parses `arguments` (without the program name). Options may stand before
/// or after the verb. Throws Failure with kUsageError for an unknown verb or
/// option, an option the verb does not take, a missing option value or a
/// wrong number of operands (unless help or the version was asked for).
CommandLine parseCommandLine(const std::vector<std::string>& arguments);

/// The help text of `verb`, or of the tool for an empty verb; nothing for an
/// unknown verb.
std::optional<std::string> helpText(const std::string& verb);

/// "corvane VERSION", and a line saying what the tool is.
std::string versionText();

}  // namespace corvane::cli
