// An INI file as the command-line tool sees it: the library's document, the
// bytes and text it came from, and the options before the first section
// header (crudini's section ""), which the library's reading skips and the
// tool reaches through the document's source.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <unordered_map>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "TextFile.h"
#include "YIniDocument.h"

namespace corvane::cli {

/// Writes "corvane: LABEL: MESSAGE" to standard error.
void warn(const std::string& label, const std::string& message);
/// Routes the library's "Unrecognized text sequence" log lines to standard
/// error, each naming the file being read, when `verbose`; else drops them.
void installLogSink(bool verbose);
/// `string` as UTF-8; a failure (exit 2) for an argument that is not UTF-8.
YString argumentString(const std::string& argument);

/// An option as the tool shows it: the first of its name in its section.
struct OptionEntry {
  YString name, value;
  std::size_t line = 0;  ///< 1-based line of its first line
};

/// A section as the tool shows it: the first section of its name, with the
/// first option of each name, in text order. The options before the first
/// header form the section "" (`head`).
struct SectionEntry {
  YString name;
  bool head = false;
  std::size_t line = 0;  ///< the header's line; 0 for the head
  std::vector<OptionEntry> options;
};

/// A loaded INI file.
class IniFile {
 public:
  /// Loads `bytes`, named `label` in messages (throws Failure, exit 3, when
  /// they are not text). Warns when reading stopped early and when invalid
  /// UTF-8 was read as U+FFFD.
  IniFile(std::string label, std::string bytes);
  ~IniFile();
  IniFile(const IniFile&) = delete;
  IniFile& operator=(const IniFile&) = delete;

  const std::string& label() const noexcept { return _label; }
  YIniDocument& document() noexcept { return *_document; }
  const TextFile& file() const noexcept { return _file; }

  /// The first section named `name` (not ""), or null; warns, naming their
  /// lines, when other sections share the name.
  std::shared_ptr<YIniSection> section(const YString& name);
  /// Appends a new section named `name` to the document.
  std::shared_ptr<YIniSection> addSection(const YString& name);
  /// Throws Failure (exit 4, which --force does not change) when reading
  /// stopped early and `what` might stand in the unread text: in a section
  /// not found (null), the last section read, or, for the head, a document
  /// whose reading stopped before any section.
  void refuseUnread(const std::shared_ptr<YIniSection>& section, bool head, const std::string& what) const;
  /// When reading stopped, throws Failure (exit 4) saying so and `consequence`.
  void refuseStopped(const std::string& consequence) const;

  /// Every section to show: the head first when it has options, then the
  /// first section of each name (warning about the others).
  std::vector<SectionEntry> sections();
  /// The section named `name` ("" is the head, which always exists).
  std::optional<SectionEntry> sectionEntry(const YString& name);

  /// 1-based lines [first, last] of the text that belongs to `section` when
  /// it is shown or removed: its header to its last line, less the blank
  /// lines and comments that stand directly above the header that follows it.
  std::pair<std::size_t, std::size_t> sectionLines(YIniSection& section);
  /// The lines of the head that belong to it in the same sense: from the first
  /// line to the line before the first header (or the end of what was read).
  std::pair<std::size_t, std::size_t> headLines();
  /// The text of lines [first, last] as read, line ends included.
  std::u16string_view textOfLines(std::size_t first, std::size_t last);

  /// Moves the blank lines and comments that stand directly above the header
  /// after `section` out of it (the reading puts them at its end), to stand
  /// after it in the document, so that removing the section keeps them.
  void detachCommentsAboveNextHeader(YIniSection& section);
  /// The index in `section` where a new option `name` goes: right after the
  /// first comment line "#NAME=" (a commented-out default, with optional
  /// blanks around the name) when there is one, else after the last option.
  std::size_t indexForNewOption(YIniSection& section, const YString& name);

  // ---- the head: options before the first section header ----

  /// The head option named `name`, or nothing.
  std::optional<OptionEntry> headOption(const YString& name);
  /// Sets the first head option named `name` to `value` (only the value text
  /// of its line changes), or adds a line for it: after a commented-out
  /// default of that name, else after the last head option, else right
  /// before the first header (or at the end). Throws Failure for a value
  /// with a line break, which would not read back there.
  void setHeadOption(const YString& name, const YString& value);
  /// Removes the line of the first head option named `name`; false when
  /// there is none.
  bool removeHeadOption(const YString& name);
  /// Removes the lines of all head options at once.
  void removeHeadOptions();
  bool headChanged() const noexcept { return _headChanged; }
  /// Whether any head option is left after the edit's removals.
  bool hasHeadOptions() const;
  /// `bytes`, written by the preserving save in `encoding`, with the head's
  /// lines as edited. The save leaves those lines as they were read, so they
  /// are the first lines of `bytes`.
  std::string withHeadEdits(std::string bytes, const TextEncoding& encoding) const;

 private:
  struct Line;
  void warnAboutInvalidBytes() const;
  SectionEntry entryOf(YIniSection& section);
  const std::vector<std::size_t>& textLineStarts();
  std::size_t lineCount();
  bool isBlankLine(std::size_t line);
  // The first line of the run of blank lines and comments directly above
  // the header after line `end`, looking no further up than `floor`.
  std::size_t firstLineOfRunAbove(std::size_t floor, std::size_t end);
  std::vector<Line>& headModel();
  std::size_t headEnd();  // the number of lines before the first header
  std::u16string lineEndOfFile() const;  // the file's first line end, else LF
  std::string stopPlace() const;          // "reading stopped at line N (\"TEXT\")"

  std::string _label;
  TextFile _file;
  std::shared_ptr<YIniDocument> _document;
  std::vector<YIniHeadOption> _headOptions;
  std::vector<std::size_t> _textLineStarts;  // computed when first asked
  std::unique_ptr<std::vector<Line>> _head;  // built at the first head edit
  std::size_t _headLineCount = 0;            // the lines read that it stands for
  bool _headChanged = false;
  // The first section of each name and the lines of the others, made when
  // first asked (lookups stay O(1) however many sections there are).
  struct NamedSections {
    std::shared_ptr<YIniSection> first;
    std::vector<std::size_t> repeatedAt;
    bool warned = false;
  };
  std::unique_ptr<std::unordered_map<std::u16string, NamedSections>> _sectionIndex;
};

}  // namespace corvane::cli
