// corvane: reads and edits INI files from the command line through the
// Corvane library. The library does all reading and writing of INI text; the
// tool adds files, encodings, the check against losing text, and the line
// merge that keeps a file's own formatting when one value changes.
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "DocumentJson.h"
#include "LineMerge.h"
#include "LostText.h"
#include "TextFile.h"
#include "YFoundation.h"
#include "YIniDocument+Extensions.h"
#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"

namespace corvane::cli {

namespace {

// The library's "Unrecognized text sequence" lines: shown only with
// --verbose, prefixed with the file being read.
struct LogRoute {
  bool verbose = false;
  std::string file;
};
LogRoute gLog;

void installLogSink(bool verbose) {
  gLog.verbose = verbose;
  YSetLogSink([](const YString& message) {
    if (gLog.verbose) std::cerr << "corvane: " << gLog.file << ": " << message.UTF8String() << '\n';
  });
}

YString argumentString(const std::string& argument) {
  try {
    return YString::fromUTF8(argument);
  } catch (const YException&) {
    throw Failure{kUsageError, "argument '" + argument + "' is not valid UTF-8"};
  }
}

void writeOut(std::string_view bytes) {
  std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  std::cout.flush();
}

struct LoadedFile {
  std::string path;
  TextFile file;
  std::shared_ptr<YIniDocument> document;
};

TextFile readOrFail(const std::string& path) {
  FileProblem problem;
  std::optional<TextFile> file = readTextFile(path, problem);
  if (!file) throw Failure{kFileFailure, problem.message};
  return *file;
}

LoadedFile load(const std::string& path) {
  LoadedFile loaded{path, readOrFail(path), nullptr};
  gLog.file = path;
  try {
    loaded.document = YIniDocument::documentFromStringFactory(loaded.file.text,
                                                              YIniStandardElementFactory::standardFactory());
  } catch (const YException& e) {
    throw Failure{kFileFailure, path + ": the library cannot load the text: " + e.what()};
  }
  if (!loaded.document) throw Failure{kFileFailure, path + ": the library cannot load the text"};
  return loaded;
}

std::shared_ptr<YIniSection> sectionOrFail(const LoadedFile& loaded, const std::string& name) {
  auto section = loaded.document->sectionForName(argumentString(name));
  if (!section) throw Failure{kNotFound, loaded.path + ": no section [" + name + "]"};
  return section;
}

std::shared_ptr<YIniOption> optionOrFail(const LoadedFile& loaded, YIniSection& section, const std::string& sectionName,
                                         const std::string& name) {
  auto option = section.optionWithName(argumentString(name));
  if (!option) throw Failure{kNotFound, loaded.path + ": section [" + sectionName + "] has no option '" + name + "'"};
  return option;
}

// ---- verbs that read ----------------------------------------------------------

int runGet(const CommandLine& line) {
  LoadedFile loaded = load(line.operands[0]);
  auto section = sectionOrFail(loaded, line.operands[1]);
  std::string out;
  if (line.operands.size() == 3) {
    auto option = optionOrFail(loaded, *section, line.operands[1], line.operands[2]);
    out = option->value().UTF8String() + "\n";
  } else {
    for (const YString& name : section->optionNames()) out += name.UTF8String() + "\n";
  }
  writeOut(out);
  return kDone;
}

int runFmt(const CommandLine& line) {
  LoadedFile loaded = load(line.operands[0]);
  writeOut(loaded.document->stringValue().UTF8String());
  return kDone;
}

int runDump(const CommandLine& line) {
  LoadedFile loaded = load(line.operands[0]);
  writeOut(documentJson(*loaded.document).dump(2) + "\n");
  return kDone;
}

int runMerge(const CommandLine& line) {
  const std::string& templatePath = line.operands[0];
  TextFile templateFile = readOrFail(templatePath);
  LoadedFile loaded = load(line.operands[1]);
  gLog.file = templatePath;
  YString merged;
  try {
    merged = loaded.document->stringValueMergedWith(templateFile.text);
  } catch (const YInvalidArgumentException&) {
    throw Failure{kWouldLoseText, templatePath +
                                      ": the template holds comments, blank lines or line ends after its section "
                                      "headers, which the merge cannot carry (it takes templates of section headers "
                                      "and options only); nothing was printed"};
  } catch (const YInternalInconsistencyException&) {
    throw Failure{kWouldLoseText,
                  templatePath + ": the template has an option before its first section header, which the merge "
                                 "cannot place; nothing was printed"};
  } catch (const YException& e) {
    throw Failure{kFileFailure, templatePath + ": the library cannot merge into this template: " + e.what()};
  }
  writeOut(merged.UTF8String());
  return kDone;
}

// ---- verbs that write ---------------------------------------------------------

// Writes the edited document back. `base` is the library's text of the
// document before the edit.
int writeBack(const CommandLine& line, LoadedFile& loaded, const YString& base, bool removesSection) {
  const Lines ours = splitLines(loaded.file.text.view());
  const Lines baseLines = splitLines(base.view());

  // Nothing is written when the library's view of the file is incomplete:
  // its text would lose lines, and an edit could duplicate a section that
  // it did not see.
  if (std::vector<std::size_t> lost = lostLines(ours, baseLines); !lost.empty() && !line.force)
    throw Failure{kWouldLoseText, describeLostLines(loaded.path, ours, lost)};

  YString theirs = loaded.document->stringValue();
  YString result;
  if (line.reformat) {
    result = theirs;
  } else {
    MergeOptions options;
    options.lineEnd = dominantLineEnd(ours);
    options.dropHiddenLinesAfterRemovals = removesSection;
    result = YString(joinLines(mergeEdit(baseLines, ours, splitLines(theirs.view()), options)));
  }

  TextEncoding encoding = loaded.file.encoding;
  if (line.encoding) {
    std::optional<TextEncoding> named = textEncodingNamed(*line.encoding);
    if (!named) throw Failure{kUsageError, "unknown or unsupported encoding '" + *line.encoding + "'"};
    encoding = *named;
  }
  const bool toStandardOutput = line.output && *line.output == "-";
  const std::string target = line.output && !toStandardOutput ? *line.output : loaded.path;
  FileProblem problem;
  std::optional<std::string> bytes = encodeText(result, encoding, toStandardOutput ? loaded.path : target, problem);
  if (!bytes) throw Failure{kFileFailure, problem.message};
  if (toStandardOutput) {
    writeOut(*bytes);
  } else if (!writeFileAtomically(target, *bytes, problem)) {
    throw Failure{kFileFailure, problem.message};
  }
  return kDone;
}

// A name or value that the library would write but not read back the same
// (a line end in a name, "=" in an option name, a value line that is no
// continuation) would damage the file: it is a usage error.
void refuseUnreadableEdit(YIniDocument& edited, const YString& sectionName, const YString& optionName,
                          const YString& value) {
  const YString expected = value.stringByTrimmingCharactersInSet(YCharacterSet::whitespaceAndNewlineCharacterSet());
  YString readBack;
  auto reread = YIniDocument::documentFromStringFactory(edited.stringValue(), edited.factory());
  if (auto section = reread ? reread->sectionForName(sectionName) : nullptr)
    if (auto option = section->optionWithName(optionName)) readBack = option->value();
  if (readBack == expected) return;
  std::string what = readBack.isNull() ? "the library would not find the option again"
                                       : "the library would read the value back as '" + readBack.UTF8String() + "'";
  throw Failure{kUsageError, "cannot set [" + sectionName.UTF8String() + "] " + optionName.UTF8String() +
                                 " to this value: " + what +
                                 " (names may not hold line ends, an option name no '=', and each further "
                                 "line of a value must be indented)"};
}

// The file an editing verb works on, after checking its --encoding.
LoadedFile loadForEdit(const CommandLine& line) {
  if (line.encoding && !textEncodingNamed(*line.encoding))
    throw Failure{kUsageError, "unknown or unsupported encoding '" + *line.encoding + "'"};
  return load(line.operands[0]);
}

int runSet(const CommandLine& line) {
  LoadedFile loaded = loadForEdit(line);
  YIniDocument& document = *loaded.document;
  const YString base = document.stringValue();
  const YString sectionName = argumentString(line.operands[1]);
  const YString optionName = argumentString(line.operands[2]);
  const YString value = argumentString(line.operands[3]);

  auto section = document.sectionForName(sectionName);
  if (!section) {
    // A new section starts on a line of its own: the library adds no line
    // end between the text before it and its header.
    if (base.length() > 0 && !base.hasSuffix(YString(u"\n"))) {
      std::u16string lineEnd = dominantLineEnd(splitLines(loaded.file.text.view()));
      document.addElement(document.factory()->commentWithString(YString(lineEnd)));
    }
    section = document.factory()->sectionWithName(sectionName);
    document.addElement(section);
  }
  section->setValueForOptionWithName(value, optionName);
  refuseUnreadableEdit(document, sectionName, optionName, value);
  return writeBack(line, loaded, base, false);
}

int runDel(const CommandLine& line) {
  LoadedFile loaded = loadForEdit(line);
  YIniDocument& document = *loaded.document;
  const YString base = document.stringValue();
  auto section = sectionOrFail(loaded, line.operands[1]);
  if (line.operands.size() == 3) {
    optionOrFail(loaded, *section, line.operands[1], line.operands[2]);
    section->removeOptionWithName(argumentString(line.operands[2]));
    return writeBack(line, loaded, base, false);
  }
  // A last section without options leaves its header's line end to the
  // document, as the comment right after it; it goes with the header.
  auto elements = document.elements();
  std::size_t index = elements->indexOfObject(section);
  if (section->elements()->count() == 0 && index + 1 < elements->count()) {
    auto next = std::dynamic_pointer_cast<YIniComment>(elements->objectAtIndex(index + 1));
    if (next && (next->stringValue() == YString(u"\n") || next->stringValue() == YString(u"\r\n")))
      document.removeElement(next);
  }
  document.removeElement(section);
  return writeBack(line, loaded, base, true);
}

int run(const std::vector<std::string>& arguments) {
  CommandLine line = parseCommandLine(arguments);
  if (line.help) {
    writeOut(helpText(line.verb));
    return kDone;
  }
  installLogSink(line.verbose);
  if (line.verb == "get") return runGet(line);
  if (line.verb == "set") return runSet(line);
  if (line.verb == "del") return runDel(line);
  if (line.verb == "fmt") return runFmt(line);
  if (line.verb == "dump") return runDump(line);
  return runMerge(line);
}

}  // namespace

}  // namespace corvane::cli

int main(int argc, char** argv) {
  using namespace corvane::cli;
  installLogSink(false);
  try {
    return run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const Failure& failure) {
    std::cerr << "corvane: " << failure.message << '\n';
    return failure.code;
  } catch (const YException& e) {
    std::cerr << "corvane: the library failed: " << e.what() << '\n';
    return kFileFailure;
  } catch (const std::exception& e) {
    std::cerr << "corvane: " << e.what() << '\n';
    return kFileFailure;
  }
}
