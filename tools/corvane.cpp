// corvane: reads and edits INI files from the command line through the
// Corvane library. The library does all reading and writing of INI text,
// including the preserving save that keeps every byte an edit does not
// touch; the tool adds files, locking, encodings, the options before the
// first section header, and the checks around them.
#include <bit>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "DocumentJson.h"
#include "Formats.h"
#include "IniFile.h"
#include "TextFile.h"
#include "YFoundation.h"
#include "YIniDocument+Extensions.h"
#include "YIniDocument.h"

namespace corvane::cli {

namespace {

// Prints `bytes`; a failed write (a full disk, a closed descriptor) ends the
// tool with exit 3, as --output - does.
void writeOut(std::string_view bytes) {
  errno = 0;
  std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  std::cout.flush();
  if (!std::cout)
    throw Failure{kFileFailure, std::string("standard output: cannot write: ") +
                                    (errno ? std::strerror(errno) : "the stream failed")};
}

std::string quoted(const YString& name) { return "'" + name.UTF8String() + "'"; }
std::string bracketed(const YString& name) { return "[" + name.UTF8String() + "]"; }

// The bytes of the file at `path` (a symbolic link is followed), to read.
std::string readInput(const std::string& path) {
  FileProblem problem;
  std::optional<ResolvedPath> resolved = resolvePath(path, problem);
  if (!resolved) throw Failure{kFileFailure, problem.message};
  if (resolved->missing) throw Failure{kFileFailure, path + ": no such file"};
  std::optional<std::string> bytes = readBytes(resolved->path, path, problem);
  if (!bytes) throw Failure{kFileFailure, problem.message};
  return std::move(*bytes);
}

// A name must read back as it is given: no white space around it (the
// reader trims it); what else would not read back the library refuses.
void refuseUnreadableName(const std::string& label, const char* kind, const YString& name) {
  const YString trimmed = name.stringByTrimmingCharactersInSet(YCharacterSet::whitespaceCharacterSet());
  if (trimmed.length() == 0) throw Failure{kUsageError, label + ": cannot set: the " + kind + " name is empty"};
  if (!trimmed.isEqualToString(name))
    throw Failure{kUsageError, label + ": cannot set: the " + kind + " name " + quoted(name) +
                                   " has white space around it, which the reader would drop"};
}

// A value as the reader holds it: its lines trimmed and joined by a line end
// and one space, which is also how get prints it. An empty line inside it
// would not read back.
YString heldValue(const std::string& label, const YString& given) {
  const YCharacterSet blanks = YCharacterSet::whitespaceAndNewlineCharacterSet();
  std::u16string_view text = given.view();
  std::u16string held;
  for (std::size_t start = 0, index = 0;; ++index) {
    const std::size_t lf = text.find(u'\n', start);
    YString line = YString(text.substr(start, lf == std::u16string_view::npos ? lf : lf - start))
                       .stringByTrimmingCharactersInSet(blanks);
    if (index > 0) {
      if (line.length() == 0)
        throw Failure{kUsageError, label + ": cannot set: the value has an empty line inside it, which would end it"};
      held += u"\n ";
    }
    held.append(line.view());
    if (lf == std::u16string_view::npos) break;
    start = lf + 1;
  }
  return YString(held);
}

// ---- editing ------------------------------------------------------------------

// One file edited in place (or into --output): its folder locked from
// reading to writing, so that editors that lock take turns; loaded; and
// written back when the edit changed it and nothing else changed it meanwhile.
class EditSession {
 public:
  EditSession(const CommandLine& line, bool mayCreate) : _line(line), _label(line.operands[0]) {
    if (line.encoding && !textEncodingNamed(*line.encoding))
      throw Failure{kUsageError, "unknown or unsupported encoding '" + *line.encoding + "'"};
    FileProblem problem;
    std::optional<ResolvedPath> resolved = resolvePath(_label, problem);
    if (!resolved) throw Failure{kFileFailure, problem.message};
    _target = std::move(*resolved);
    if (!line.output && !_lock.lock(_target.path, problem)) throw Failure{kFileFailure, problem.message};
    _identity = identityOf(_target.path);
    std::string bytes;
    if (!_identity.exists) {
      if (line.existing) throw Failure{kNotFound, _label + ": no such file (--existing); nothing was written"};
      if (!mayCreate) throw Failure{kFileFailure, _label + ": no such file"};
    } else {
      if (!line.output && !S_ISREG(_identity.mode))
        throw Failure{kFileFailure, _label + ": not a regular file, which cannot be replaced (--output writes "
                                             "into devices and pipes)"};
      std::optional<std::string> read = readBytes(_target.path, _label, problem);
      if (!read) throw Failure{kFileFailure, problem.message};
      bytes = std::move(*read);
    }
    _file = std::make_unique<IniFile>(_label, std::move(bytes));
  }

  IniFile& file() { return *_file; }
  YIniDocument& document() { return _file->document(); }

  // Whether a missing item is an error (--existing); throws then.
  void missing(const std::string& what) const {
    if (_line.existing) throw Failure{kNotFound, _label + ": no " + what + " (--existing); nothing was written"};
  }

  // Sets `value` of `option` in `section` (the head for ""), adding what is
  // missing; with no option, makes sure the section exists.
  void set(const YString& sectionName, const std::optional<YString>& optionName, const YString& value) {
    if (sectionName.length() == 0) {
      if (!optionName) return;
      if (!_file->headOption(*optionName)) {
        _file->refuseUnread(nullptr, true, quoted(*optionName) + " of the section \"\"");
        missing("option " + quoted(*optionName) + " before the first section");
      }
      _file->setHeadOption(*optionName, value);
      return;
    }
    auto section = _file->section(sectionName);
    if (!section) {
      _file->refuseUnread(nullptr, false, bracketed(sectionName));
      missing("section " + bracketed(sectionName));
      section = _file->addSection(sectionName);
    }
    if (!optionName) return;
    if (auto option = section->optionWithName(*optionName)) {
      option->setValue(value);
      return;
    }
    _file->refuseUnread(section, false, quoted(*optionName) + " of " + bracketed(sectionName));
    missing("option " + quoted(*optionName) + " in " + bracketed(sectionName));
    section->insertObjectInElementsAtIndex(YIniOption::optionWithNameAndValue(*optionName, value),
                                           _file->indexForNewOption(*section, *optionName));
  }

  // The edited file's bytes: the preserving save with the head's edits, or
  // the library's own text (--reformat), in the file's encoding or --encoding.
  std::string render() {
    YIniDocument& doc = document();
    std::shared_ptr<YError> error;
    auto refuse = [&]() -> Failure {
      if (error && error->domain() == YIniErrorDomain)
        return Failure{kUsageError, _label + ": cannot write the edit: " + error->localizedDescription().UTF8String()};
      return Failure{kFileFailure, _label + ": " + (error ? error->localizedDescription().UTF8String()
                                                           : std::string("cannot write the file"))};
    };
    const TextEncoding& loaded = _file->file().encoding;
    if (!_line.reformat && !_line.encoding) {
      std::optional<std::string> bytes = doc.preservedDataWithError(&error);
      if (!bytes) throw refuse();
      return _file->withHeadEdits(std::move(*bytes), loaded);
    }
    TextEncoding encoding = _line.encoding ? *textEncodingNamed(*_line.encoding) : loaded;
    // Text written whole holds U+FFFD where the file has invalid bytes.
    if (!_file->file().invalidBytes.empty())
      throw Failure{kUsageError, _label + ": " + (_line.reformat ? "--reformat" : "--encoding") +
                                     " would write its invalid UTF-8 byte sequences as U+FFFD; nothing was written"};
    YString text;
    if (_line.reformat) {
      // The library's own text holds only what was read, and no options
      // before the first section: a file with either would lose text.
      _file->refuseStopped("--reformat would leave out the text after it; nothing was written");
      if (_file->hasHeadOptions())
        throw Failure{kUsageError, _label + ": --reformat writes the library's own text, which leaves out the "
                                            "options before the first section; nothing was written"};
      text = doc.stringValue();
    } else {
      text = doc.preservedStringValueWithError(&error);
      if (text.isNull()) throw refuse();
      // The head's edits, on the text as UTF-16 in this machine's byte order.
      const TextEncoding units{std::endian::native == std::endian::little ? YUTF16LittleEndianStringEncoding
                                                                          : YUTF16BigEndianStringEncoding,
                               ""};
      std::string raw(reinterpret_cast<const char*>(text.characters()), text.length() * 2);
      raw = _file->withHeadEdits(std::move(raw), units);
      text = YString(std::u16string_view(reinterpret_cast<const char16_t*>(raw.data()), raw.size() / 2));
    }
    FileProblem problem;
    std::optional<std::string> bytes = encodeText(text, encoding, _label, problem);
    if (!bytes) throw Failure{kFileFailure, problem.message};
    return encoding.byteOrderMark + *bytes;
  }

  int finish() {
    const std::string bytes = render();
    const bool changed = !_identity.exists || bytes != _file->file().bytes;
    if (_line.verbose) warn(_label, changed ? "changed" : "unchanged");
    FileProblem problem;
    if (_line.output) {
      if (const char* why = writeProtection(*_line.output); why && !_line.force)
        throw Failure{kFileFailure,
                      *_line.output + ": read-only (" + why + "); not written (--force writes it anyway)"};
      if (!writeOutput(*_line.output, bytes, problem)) throw Failure{kFileFailure, problem.message};
      return kDone;
    }
    if (!changed) return kDone;
    if (const char* why = writeProtection(_target.path); why && !_line.force)
      throw Failure{kFileFailure, _label + ": read-only (" + why + "); not written (--force writes it anyway)"};
    // Under the lock, right before the atomic replace: a program that does
    // not take the lock may have written the file since it was read.
    if (!(identityOf(_target.path) == _identity))
      throw Failure{kFileFailure, _label + ": changed while editing (by a program that does not lock its folder); "
                                           "nothing was written"};
    const std::optional<YString> name = pathString(_target.path, problem);
    if (!name) throw Failure{kFileFailure, problem.message};
    // The replace gives the path a new file: other names of the old one keep the old text.
    if (auto links = YFileLinkCount(*name, nullptr); links && *links > 1)
      warn(_label, "the file has " + std::to_string(*links) +
                       " hard links; the others keep the old text (the save replaces the file)");
    std::shared_ptr<YError> error;
    if (!YWriteFile(*name, bytes, true, &error))
      throw Failure{kFileFailure, _label + ": cannot write: " +
                                      (error ? error->localizedDescription().UTF8String() : std::string("failed"))};
    return kDone;
  }

 private:
  const CommandLine& _line;
  std::string _label;
  ResolvedPath _target;
  FolderLock _lock;
  FileIdentity _identity;
  std::unique_ptr<IniFile> _file;
};

// ---- the verbs -------------------------------------------------------------------

int runGet(const CommandLine& line) {
  IniFile file(line.operands[0], readInput(line.operands[0]));
  const std::string prefix = line.prefix.value_or("");
  if (line.operands.size() == 1) {
    file.refuseStopped("a listing would leave out the text after it; nothing was printed");
    writeOut(formatFile(file, line.format, prefix));
    return kDone;
  }
  const YString sectionName = argumentString(line.operands[1]);
  std::optional<SectionEntry> section = file.sectionEntry(sectionName);
  if (!section) {
    file.refuseUnread(nullptr, false, bracketed(sectionName));
    throw Failure{kNotFound, file.label() + ": no section " + bracketed(sectionName)};
  }
  if (line.operands.size() == 2) {
    file.refuseUnread(section->head ? nullptr : file.section(sectionName), section->head,
                      "all of " + bracketed(sectionName));
    writeOut(formatSection(file, *section, line.format, prefix));
    return kDone;
  }
  const YString optionName = argumentString(line.operands[2]);
  for (const OptionEntry& option : section->options)
    if (option.name.isEqualToString(optionName)) {
      writeOut(formatOption(file, *section, option, line.format, prefix));
      return kDone;
    }
  file.refuseUnread(section->head ? nullptr : file.section(sectionName), section->head,
                    quoted(optionName) + " of " + bracketed(sectionName));
  throw Failure{kNotFound, file.label() + ": section " + bracketed(sectionName) + " has no option " + quoted(optionName)};
}

int runSet(const CommandLine& line) {
  const std::string& label = line.operands[0];
  const YString sectionName = argumentString(line.operands[1]);
  if (sectionName.length() > 0) refuseUnreadableName(label, "section", sectionName);
  std::optional<YString> optionName;
  YString value;
  if (line.operands.size() == 4) {
    optionName = argumentString(line.operands[2]);
    refuseUnreadableName(label, "option", *optionName);
    value = heldValue(label, argumentString(line.operands[3]));
  }
  EditSession session(line, true);
  session.set(sectionName, optionName, value);
  return session.finish();
}

int runDel(const CommandLine& line) {
  EditSession session(line, false);
  IniFile& file = session.file();
  const YString sectionName = argumentString(line.operands[1]);
  const bool hasOption = line.operands.size() == 3;
  const YString optionName = hasOption ? argumentString(line.operands[2]) : YString();
  if (sectionName.length() == 0) {
    if (hasOption && !file.removeHeadOption(optionName)) {
      file.refuseUnread(nullptr, true, quoted(optionName) + " of the section \"\"");
      session.missing("option " + quoted(optionName) + " before the first section");
    }
    if (!hasOption) file.removeHeadOptions();
    return session.finish();
  }
  auto section = file.section(sectionName);
  if (!section) {
    file.refuseUnread(nullptr, false, bracketed(sectionName));
    session.missing("section " + bracketed(sectionName));
  } else if (!hasOption) {
    file.detachCommentsAboveNextHeader(*section);
    session.document().removeElement(section);
  } else if (section->hasOptionWithName(optionName)) {
    section->removeOptionWithName(optionName);
  } else {
    file.refuseUnread(section, false, quoted(optionName) + " of " + bracketed(sectionName));
    session.missing("option " + quoted(optionName) + " in " + bracketed(sectionName));
  }
  return session.finish();
}

int runMerge(const CommandLine& line) {
  // Standard input is read before the file's folder is locked (a writer slow
  // to come must not hold up every edit in that folder); a source file after
  // the file, under its lock.
  const bool fromInput = line.operands.size() == 1 || line.operands[1] == "-";
  std::string bytes;
  if (fromInput) {
    FileProblem problem;
    std::optional<std::string> read = readStandardInput(problem);
    if (!read) throw Failure{kFileFailure, problem.message};
    bytes = std::move(*read);
  }
  EditSession session(line, true);
  if (!fromInput) bytes = readInput(line.operands[1]);
  IniFile source(fromInput ? "standard input" : line.operands[1], std::move(bytes));
  source.refuseStopped("its options after that line were not read; nothing was merged or written");
  for (const SectionEntry& section : source.sections()) {
    session.set(section.name, std::nullopt, YString());
    for (const OptionEntry& option : section.options) session.set(section.name, option.name, option.value);
  }
  return session.finish();
}

int runTemplate(const CommandLine& line) {
  const std::string& templatePath = line.operands[0];
  const std::string templateBytes = readInput(templatePath);
  IniFile file(line.operands[1], readInput(line.operands[1]));
  const IniFile templateFile(templatePath, templateBytes);
  // The merge reads only what reading reached, of either text.
  templateFile.refuseStopped("the template after it was not read; nothing was printed");
  file.refuseStopped("its values after that line were not read; nothing was printed");
  // The reader leaves such options out, so the merge would not see them.
  const Failure headOption{kNotRead, templatePath + ": the template has an option before its first section header, "
                                                    "which the merge cannot place; nothing was printed"};
  if (templateFile.hasHeadOptions()) throw headOption;
  YString merged;
  try {
    merged = file.document().stringValueMergedWith(templateFile.file().text);
  } catch (const YInvalidArgumentException&) {
    throw Failure{kNotRead, templatePath +
                                ": the template holds comments, blank lines or line ends after its section headers, "
                                "which the library's template merge cannot carry (it takes templates of section "
                                "headers and options only); nothing was printed"};
  } catch (const YInternalInconsistencyException&) {
    throw headOption;
  } catch (const YException& e) {
    throw Failure{kFileFailure, templatePath + ": the library cannot merge into this template: " + e.what()};
  }
  writeOut(merged.UTF8String());
  return kDone;
}

int runDiff(const CommandLine& line) {
  IniFile older(line.operands[0], readInput(line.operands[0]));
  IniFile newer(line.operands[1], readInput(line.operands[1]));
  bool differ = false;
  const std::string listed = formatDiff(older, newer, line.format, differ);
  // Equal as far as both were read says nothing of the text after a stop.
  if (!differ) {
    older.refuseStopped("the files may differ after it");
    newer.refuseStopped("the files may differ after it");
  }
  writeOut(listed);
  return differ ? kNotFound : kDone;
}

int runFmt(const CommandLine& line) {
  IniFile file(line.operands[0], readInput(line.operands[0]));
  file.refuseStopped("the text after it would be left out; nothing was printed");
  writeOut(file.document().stringValue().UTF8String());
  return kDone;
}

int runDump(const CommandLine& line) {
  IniFile file(line.operands[0], readInput(line.operands[0]));
  writeOut(documentJson(file.document()).dump(2) + "\n");
  return kDone;
}

int run(const std::vector<std::string>& arguments) {
  CommandLine line = parseCommandLine(arguments);
  if (line.version) {
    writeOut(versionText());
    return kDone;
  }
  if (line.help) {
    writeOut(*helpText(line.verb));
    return kDone;
  }
  installLogSink(line.verbose);
  if (line.verb == "get") return runGet(line);
  if (line.verb == "set") return runSet(line);
  if (line.verb == "del") return runDel(line);
  if (line.verb == "merge") return runMerge(line);
  if (line.verb == "template") return runTemplate(line);
  if (line.verb == "diff") return runDiff(line);
  if (line.verb == "fmt") return runFmt(line);
  return runDump(line);
}

}  // namespace

}  // namespace corvane::cli

int main(int argc, char** argv) {
  using namespace corvane::cli;
  installLogSink(false);
  // A write beyond the file size limit then fails with EFBIG and is reported,
  // instead of ending the process.
  std::signal(SIGXFSZ, SIG_IGN);
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
