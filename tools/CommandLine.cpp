#include "CommandLine.h"

#include <algorithm>
#include <array>

namespace corvane::cli {

namespace {

struct VerbInfo {
  const char* name;
  const char* synopsis;  // operands, for the usage line
  std::size_t minOperands;
  std::size_t maxOperands;
  bool writes;  // takes --output, --encoding, --force, --reformat
  const char* description;
};

constexpr std::array<VerbInfo, 6> kVerbs{{
    {"get", "FILE SECTION [OPTION]", 2, 3, false,
     "Prints the value of OPTION in SECTION (the first of each name); a value\n"
     "held on several lines prints as those lines joined by a line end and one\n"
     "space. Without OPTION, prints the section's option names, one a line.\n"},
    {"set", "FILE SECTION OPTION VALUE", 4, 4, true,
     "Sets OPTION in SECTION to VALUE: the first option of that name, or a new\n"
     "option at the section's end; a missing section is added at the end of the\n"
     "file. Writes the file back in place, atomically, in the encoding it was\n"
     "read in, changing only the lines the edit needs. A name or value that the\n"
     "library would not read back the same (a line end in a name, '=' in an option\n"
     "name, a further value line that is not indented) is refused.\n"},
    {"del", "FILE SECTION [OPTION]", 2, 3, true,
     "Removes OPTION from SECTION (the first of that name, with its continuation\n"
     "lines), or without OPTION the whole section. Writes the file back as set\n"
     "does.\n"},
    {"fmt", "FILE", 1, 1, false, "Prints the document's text as the library writes it back.\n"},
    {"dump", "FILE", 1, 1, false,
     "Prints the element tree as JSON: {\"elements\": [...]} where each element is\n"
     "{\"type\": \"comment\", \"text\": T}, {\"type\": \"option\", \"name\": N, \"value\": V}\n"
     "or {\"type\": \"section\", \"name\": N, \"elements\": [...]}, in text order.\n"},
    {"merge", "TEMPLATE FILE", 2, 2, false,
     "Prints the text of TEMPLATE with FILE's values put in: TEMPLATE decides the\n"
     "sections, options and order; FILE supplies the values, and the options of a\n"
     "section that TEMPLATE lacks. The library merges templates made of section\n"
     "headers and options only: a template with comments, blank lines or line\n"
     "ends after its headers is refused with exit code 4.\n"},
}};

const VerbInfo* findVerb(const std::string& name) {
  auto it = std::find_if(kVerbs.begin(), kVerbs.end(), [&](const VerbInfo& v) { return name == v.name; });
  return it == kVerbs.end() ? nullptr : &*it;
}

const char kExitCodes[] =
    "Exit codes: 0 done; 1 section or option not found; 2 usage error; 3 a file\n"
    "could not be read, decoded or written; 4 the file would lose text.\n";

Failure usage(const std::string& verb, const std::string& problem) {
  std::string prefix = verb.empty() ? "" : verb + ": ";
  std::string hint = verb.empty() ? "corvane --help" : "corvane " + verb + " --help";
  return Failure{kUsageError, prefix + problem + "\nTry '" + hint + "'."};
}

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& arguments) {
  CommandLine line;
  if (arguments.empty()) throw usage("", "no verb given");
  const std::string& first = arguments.front();
  if (first == "--help" || first == "-h") {
    line.help = true;
    return line;
  }
  const VerbInfo* verb = findVerb(first);
  if (!verb) throw usage("", "unknown verb '" + first + "'");
  line.verb = verb->name;

  bool optionsEnded = false;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (optionsEnded || argument == "-" || argument.size() < 2 || argument[0] != '-') {
      line.operands.push_back(argument);
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
    auto flag = [&](bool& target) {
      if (value) throw usage(line.verb, "option '" + name + "' takes no value");
      target = true;
    };
    auto takeValue = [&](std::optional<std::string>& target) {
      if (!value) {
        if (i + 1 >= arguments.size()) throw usage(line.verb, "option '" + name + "' needs a value");
        value = arguments[++i];
      }
      target = *value;
    };
    if (name == "--help" || name == "-h") flag(line.help);
    else if (name == "--verbose") flag(line.verbose);
    else if (verb->writes && name == "--force") flag(line.force);
    else if (verb->writes && name == "--reformat") flag(line.reformat);
    else if (verb->writes && name == "--output") takeValue(line.output);
    else if (verb->writes && name == "--encoding") takeValue(line.encoding);
    else throw usage(line.verb, "unknown option '" + name + "'");
  }
  if (line.help) return line;
  if (line.operands.size() < verb->minOperands) throw usage(line.verb, "too few arguments");
  if (line.operands.size() > verb->maxOperands) throw usage(line.verb, "too many arguments");
  if (line.output && line.output->empty()) throw usage(line.verb, "--output needs a path, or '-'");
  return line;
}

std::string helpText(const std::string& verbName) {
  const VerbInfo* verb = findVerb(verbName);
  if (!verb) {
    std::string text =
        "Usage: corvane VERB [OPTIONS] ARGUMENTS...\n"
        "\n"
        "Reads and edits INI files through the Corvane library.\n"
        "\n"
        "Verbs:\n";
    for (const VerbInfo& v : kVerbs) {
      std::string entry = std::string("  ") + v.name + " " + v.synopsis;
      text += entry + "\n";
    }
    text +=
        "\n"
        "Run 'corvane VERB --help' for what a verb does and its options.\n"
        "\n";
    return text + kExitCodes;
  }
  std::string text = std::string("Usage: corvane ") + verb->name + " [OPTIONS] " + verb->synopsis + "\n\n" +
                     verb->description + "\nOptions:\n";
  if (verb->writes) {
    text +=
        "  --output PATH    write to PATH instead of the file itself ('-': standard output)\n"
        "  --encoding NAME  write in encoding NAME (utf-8, utf-16, utf-16le, latin1, ...)\n"
        "                   instead of the encoding the file was read in\n"
        "  --reformat       write the whole text as the library writes it, instead of\n"
        "                   changing only the lines the edit needs\n"
        "  --force          write even when text that the library does not read (';'\n"
        "                   comments, unrecognised lines, lines after a stray indented\n"
        "                   line) would be lost; without it such a file is left alone\n";
  }
  text +=
      "  --verbose        report the library's unrecognised-text messages on standard error\n"
      "  --               end of options (for an argument that starts with '-')\n"
      "  -h, --help       show this help\n"
      "\n";
  return text + kExitCodes;
}

}  // namespace corvane::cli
