#include "CommandLine.h"

#include <algorithm>
#include <array>

#include "CorvaneVersion.h"
#include "Formats.h"

namespace corvane::cli {

namespace {

// The options a verb takes beyond --verbose and --help.
enum OptionSet : unsigned {
  kNoOptions = 0,
  kWriting = 1,  // --output, --encoding, --reformat, --force, --existing
  kFormats = 2,  // --format sh|ini|lines|json
  kJson = 4,     // --format json
};

struct VerbInfo {
  const char* name;
  const char* synopsis;  // operands, for the usage line
  std::size_t minOperands;
  std::size_t maxOperands;
  unsigned options;
  const char* summary;  // one line, for the tool's help
  const char* description;
};

constexpr std::array<VerbInfo, 9> kVerbs{{
    {"get", "FILE [SECTION [OPTION]]", 1, 3, kFormats, "print section names, option names or a value",
     "Without SECTION, prints the names of the file's sections, one a line; with\n"
     "SECTION, the names of its options; with OPTION, its value. The first section\n"
     "and the first option of a name are the ones used, as the library reads them;\n"
     "a section of a name used before is reported on standard error. A value held\n"
     "on several lines prints as those lines joined by a line end and one space.\n"
     "The section \"\" holds the options before the first section header.\n"
     "\n"
     "--format changes what is printed, for all three forms:\n"
     "  sh     NAME=VALUE lines quoted for the shell's eval (for the whole file,\n"
     "         SECTION_NAME=VALUE); a name that is no shell identifier is\n"
     "         skipped with a warning, and two options that make one whole-file\n"
     "         name ([a] b_c, [a_b] c) are reported. eval sets whatever names the\n"
     "         file holds, PATH and IFS among them: for a file you do not trust,\n"
     "         give --prefix PREFIX, and every name begins with PREFIX\n"
     "  ini    the text as it stands in the file: the whole file, the section's\n"
     "         lines (without the comments above the next header) or the option's\n"
     "  lines  one '[SECTION] NAME = VALUE' line per option, line breaks in values\n"
     "         written as \\n and backslashes as \\\\\n"
     "  json   the value as a string, a section as an object of names to values,\n"
     "         the file as an object of sections\n"},
    {"set", "FILE SECTION [OPTION VALUE]", 2, 4, kWriting, "set a value, adding the option, section or file",
     "Sets OPTION in SECTION to VALUE: the first option of that name, else a new\n"
     "option, right after a commented-out default of that name (a line '#OPTION='\n"
     "or '# OPTION = ...') or else after the section's last option, in the style of\n"
     "its neighbours. A missing section is added at the end of the file, set apart\n"
     "as the file sets its sections apart; a missing file is created (UTF-8, mode\n"
     "from the umask). Without OPTION and VALUE, makes sure SECTION exists.\n"
     "After FILE SECTION OPTION, the next argument is the value even when it\n"
     "begins with '-' (write '--' before it to be explicit).\n"
     "\n"
     "A VALUE on several lines (as get prints one) is held as its lines trimmed and\n"
     "joined by a line end and one space, and written in the file's continuation\n"
     "indentation; an empty inner line is refused, as it would not read back.\n"
     "Names that would not read back the same (white space around them, '=' or a\n"
     "line end in an option name, an option name starting with '#' or '[') are\n"
     "refused with exit code 2.\n"
     "\n"
     "The file is written back only when the edit changes it, atomically, in the\n"
     "encoding it was read in, keeping every byte the edit does not touch. Its\n"
     "folder is locked (flock) from reading to writing, so that editors running at\n"
     "the same time take turns; a file changed meanwhile by something that does\n"
     "not take the lock is left alone (exit code 3).\n"},
    {"del", "FILE SECTION [OPTION]", 2, 3, kWriting, "remove an option or a section",
     "Removes OPTION from SECTION (the first of that name, with its continuation\n"
     "lines), or without OPTION the whole section, but not the blank lines and\n"
     "comments that stand directly above the next section's header. A missing\n"
     "section or option is no error (exit code 0) unless --existing is given.\n"
     "Writes the file back as set does.\n"},
    {"merge", "FILE [SOURCE|-]", 1, 2, kWriting, "set every option of SOURCE (or standard input) in FILE",
     "Sets every section and option of SOURCE, or of standard input when SOURCE\n"
     "is '-' or not given, in FILE, as set would one by one, keeping FILE's text\n"
     "otherwise. Empty sections of SOURCE are added too. Writes FILE back as set\n"
     "does. A SOURCE whose reading stopped early is refused (exit code 4).\n"},
    {"template", "TEMPLATE FILE", 2, 2, kNoOptions, "print TEMPLATE's text with FILE's values put in",
     "Prints the text of TEMPLATE with FILE's values put in, through the library's\n"
     "template merge: TEMPLATE decides the sections, options and order; FILE\n"
     "supplies the values, and the options of a section that TEMPLATE lacks.\n"
     "The library takes only templates whose reading yields no comment element:\n"
     "section headers and options, with no comment, no blank line and no line end\n"
     "after a header (such as '[main]' alone). Any other template is refused with\n"
     "exit code 4. This verb was once 'merge TEMPLATE FILE'; merge now sets\n"
     "SOURCE's options into FILE.\n"},
    {"diff", "OLD NEW", 2, 2, kJson, "list the sections and options added, removed or changed",
     "Compares the sections and options of OLD and NEW as the library reads them\n"
     "(the first section and option of each name; the section \"\" holds the options\n"
     "before the first header) and prints one line per difference:\n"
     "  + [SECTION]                a section added (its options follow)\n"
     "  - [SECTION]                a section removed\n"
     "  + [SECTION] NAME = VALUE   an option added\n"
     "  - [SECTION] NAME = VALUE   an option removed\n"
     "  ~ [SECTION] NAME = OLD -> NEW   a value changed\n"
     "Line breaks in values are written as \\n, backslashes as \\\\. With --format\n"
     "json, a list of\n"
     "{\"change\", \"section\", \"option\", \"value\" or \"old\" and \"new\"} objects.\n"
     "The exit code is 0 when they are equal and 1 when they differ.\n"},
    {"fmt", "FILE", 1, 1, kNoOptions, "print the text as the library writes it",
     "Prints the document's text as the library's own writers write it back.\n"},
    {"dump", "FILE", 1, 1, kNoOptions, "print the element tree as JSON",
     "Prints the element tree as JSON: {\"elements\": [...]} where each element is\n"
     "{\"type\": \"comment\", \"text\": T}, {\"type\": \"option\", \"name\": N, \"value\": V}\n"
     "or {\"type\": \"section\", \"name\": N, \"elements\": [...]}, in text order.\n"},
    {"help", "[VERB]", 0, 1, kNoOptions, "show this help, or the help of VERB", "Shows the help of VERB, or of the tool.\n"},
}};

const VerbInfo* findVerb(const std::string& name) {
  auto it = std::find_if(kVerbs.begin(), kVerbs.end(), [&](const VerbInfo& v) { return name == v.name; });
  return it == kVerbs.end() ? nullptr : &*it;
}

const char kExitCodes[] =
    "Exit codes:\n"
    "  0  done (diff: the files are equal)\n"
    "  1  a section or option not found (diff: the files differ)\n"
    "  2  a usage error, or a name or value that would not read back\n"
    "  3  a file could not be read, decoded or written, was changed by another\n"
    "     program while it was edited, or is read-only (mode 0444, or not\n"
    "     writable by this user; see --force)\n"
    "  4  the section or option may stand after the line where reading stopped\n"
    "     (an indented line that continues no option), which was not read; or\n"
    "     the text after it would be lost (--reformat, merge's SOURCE), left out\n"
    "     (get of the whole file or of the last section read, fmt) or might\n"
    "     differ (diff of files equal up to there)\n";

const char kWritingOptions[] =
    "  --output PATH    write to PATH instead of FILE, always ('-': standard output);\n"
    "                   a device, a pipe or /dev/stdout is written into, not replaced\n"
    "  --encoding NAME  write in NAME (utf-8, utf-16, utf-16le, latin1, ...) instead\n"
    "                   of the encoding FILE was read in\n"
    "  --reformat       write the whole text as the library writes it, instead of\n"
    "                   keeping every byte the edit does not touch (refused when\n"
    "                   FILE has options before its first section: exit code 2)\n"
    "  --existing       fail (exit code 1, nothing written) when FILE, the section\n"
    "                   or the option is missing\n"
    "  --force          write a file that has no write permission bit (mode 0444)\n"
    "                   or none for this user\n";
const char kFormatOption[] =
    "  --format FORMAT  get: print as sh, ini, lines or json; diff: json\n"
    "  --prefix PREFIX  get --format sh: begin every name with PREFIX\n";
const char kJsonOption[] = "  --format json    print the differences as JSON\n";
const char kCommonOptions[] =
    "  --verbose        say whether the file changed, and show the library's messages\n"
    "                   about text it does not understand\n"
    "  -h, --help       show the help\n";

Failure usage(const std::string& verb, const std::string& problem) {
  const std::string prefix = verb.empty() ? "" : verb + ": ";
  const std::string hint = verb.empty() ? "corvane help" : "corvane help " + verb;
  return Failure{kUsageError, prefix + problem + "\nTry '" + hint + "'."};
}

std::optional<Format> formatNamed(const std::string& name) {
  if (name == "sh") return Format::Sh;
  if (name == "ini") return Format::Ini;
  if (name == "lines") return Format::Lines;
  if (name == "json") return Format::Json;
  return std::nullopt;
}

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& arguments) {
  CommandLine line;
  const VerbInfo* verb = nullptr;
  // Options as given, checked against the verb once it is known.
  std::vector<std::pair<std::string, std::optional<std::string>>> options;
  bool optionsEnded = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    // Once set has FILE SECTION OPTION, the next argument is the value.
    if (verb && verb->name == std::string("set") && line.operands.size() == 3) {
      if (argument == "--" && !optionsEnded) optionsEnded = true;
      else line.operands.push_back(argument);
      continue;
    }
    if (optionsEnded || argument == "-" || argument.size() < 2 || argument[0] != '-') {
      if (verb) {
        line.operands.push_back(argument);
        continue;
      }
      verb = findVerb(argument);
      if (!verb) throw usage("", "unknown verb '" + argument + "'");
      line.verb = verb->name;
      continue;
    }
    if (argument == "--") {
      optionsEnded = true;
      continue;
    }
    std::string name = argument;
    std::optional<std::string> value;
    if (std::size_t eq = argument.find('='); argument.starts_with("--") && eq != std::string::npos) {
      name = argument.substr(0, eq);
      value = argument.substr(eq + 1);
    }
    const bool takesValue = name == "--output" || name == "--encoding" || name == "--format" || name == "--prefix";
    if (takesValue && !value) {
      if (i + 1 >= arguments.size()) throw usage(line.verb, "option '" + name + "' needs a value");
      value = arguments[++i];
    } else if (!takesValue && value) {
      throw usage(line.verb, "option '" + name + "' takes no value");
    }
    options.emplace_back(name, value);
  }

  const std::string verbName = line.verb;
  const unsigned accepted = verb ? verb->options : kNoOptions;
  for (const auto& [name, value] : options) {
    if (name == "--help" || name == "-h") line.help = true;
    else if (name == "--version") line.version = true;
    else if (name == "--verbose") line.verbose = true;
    else if ((accepted & kWriting) && name == "--force") line.force = true;
    else if ((accepted & kWriting) && name == "--reformat") line.reformat = true;
    else if ((accepted & kWriting) && name == "--existing") line.existing = true;
    else if ((accepted & kWriting) && name == "--output") line.output = value;
    else if ((accepted & kWriting) && name == "--encoding") line.encoding = value;
    else if ((accepted & (kFormats | kJson)) && name == "--format") {
      std::optional<Format> format = formatNamed(*value);
      if (!format || ((accepted & kJson) && *format != Format::Json))
        throw usage(verbName, "unknown format '" + *value + "' (" +
                                  ((accepted & kJson) ? "json" : "sh, ini, lines or json") + ")");
      line.format = *format;
    } else if ((accepted & kFormats) && name == "--prefix") {
      line.prefix = value;
    } else {
      throw usage(verbName, "unknown option '" + name + "'");
    }
  }
  if (line.version) return line;
  if (verbName == "help") {
    if (line.operands.size() > 1) throw usage(verbName, "too many arguments");
    // "help --help" is the help of help itself.
    line.verb = line.operands.empty() ? (line.help ? verbName : "") : line.operands[0];
    line.help = true;
    if (!line.verb.empty() && !findVerb(line.verb)) throw usage("", "unknown verb '" + line.verb + "'");
    return line;
  }
  if (line.help) return line;
  if (!verb) throw usage("", "no verb given");
  if (line.operands.size() < verb->minOperands) throw usage(verbName, "too few arguments");
  if (line.operands.size() > verb->maxOperands) throw usage(verbName, "too many arguments");
  if (verbName == "set" && line.operands.size() == 3)
    throw usage(verbName, "no value given for '" + line.operands[2] +
                              "' (to make sure a section exists, give only FILE SECTION)");
  if (line.output && line.output->empty()) throw usage(verbName, "--output needs a path, or '-'");
  if (line.prefix && line.format != Format::Sh) throw usage(verbName, "--prefix goes with --format sh");
  if (line.prefix && !isShellName(*line.prefix))
    throw usage(verbName, "--prefix '" + *line.prefix + "' does not begin a shell variable name");
  return line;
}

std::optional<std::string> helpText(const std::string& verbName) {
  if (verbName.empty()) {
    std::string text =
        "Usage: corvane [OPTIONS] VERB ARGUMENTS...\n"
        "\n"
        "Reads and edits INI files from shell scripts through the Corvane library.\n"
        "Edits change only the lines they need; everything else stays byte for byte.\n"
        "The section \"\" holds the options before the first section header.\n"
        "\n"
        "Verbs:\n";
    for (const VerbInfo& v : kVerbs) {
      std::string entry = std::string("  ") + v.name + " " + v.synopsis;
      entry.resize(std::max<std::size_t>(entry.size() + 2, 36), ' ');
      text += entry + v.summary + "\n";
    }
    text += std::string("\nOptions (before or after the verb; each verb takes those its help lists):\n") +
            kWritingOptions + kFormatOption + kCommonOptions + "      --version    show the version\n";
    text +=
        "\n"
        "Examples:\n"
        "  corvane get app.ini network port\n"
        "  eval \"$(corvane get --format=sh app.ini network)\"\n"
        "  corvane set app.ini network port 8080\n"
        "  corvane set --existing app.ini network port -1\n"
        "  corvane del .editorconfig \"\" root\n"
        "  printf '[network]\\nport = 80\\n' | corvane merge app.ini\n"
        "  corvane diff app.ini.orig app.ini\n"
        "\n"
        "Run 'corvane help VERB' for what a verb does and its options.\n"
        "\n";
    return text + kExitCodes;
  }
  const VerbInfo* verb = findVerb(verbName);
  if (!verb) return std::nullopt;
  std::string text = std::string("Usage: corvane ") + verb->name + " [OPTIONS] " + verb->synopsis + "\n\n" +
                     verb->description + "\nOptions:\n";
  if (verb->options & kWriting) text += kWritingOptions;
  if (verb->options & kFormats)
    text += "  --format FORMAT  print as sh, ini, lines or json (see above)\n"
            "  --prefix PREFIX  with --format sh: begin every name with PREFIX\n";
  if (verb->options & kJson) text += kJsonOption;
  text += std::string(kCommonOptions) + "\n";
  return text + kExitCodes;
}

std::string versionText() {
  return std::string("corvane ") + CORVANE_VERSION_STRING +
         "\nThe command-line tool of Corvane, a library that reads and edits INI files.\n";
}

}  // namespace corvane::cli
