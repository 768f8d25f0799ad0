#include "IniFile.h"

#include <algorithm>
#include <iostream>
#include <unordered_map>
#include <unordered_set>

#include "YIniSection+Placement.h"
#include "YIniStandardElementFactory.h"

namespace corvane::cli {

namespace {

// The library's "Unrecognized text sequence" lines: shown only with
// --verbose, prefixed with the file being read.
struct LogRoute {
  bool verbose = false;
  std::string label;
};
LogRoute gLog;

bool isBlank(char16_t c) { return c == u' ' || c == u'\t'; }

// A line's text without its LF or CR LF (a CR alone ends no line).
std::u16string_view withoutLineEnd(std::u16string_view line) {
  if (!line.ends_with(u'\n')) return line;
  line.remove_suffix(1);
  if (line.ends_with(u'\r')) line.remove_suffix(1);
  return line;
}

std::string lineList(const std::vector<std::size_t>& lines) {
  std::string list;
  for (std::size_t i = 0; i < lines.size(); ++i) list += (i ? ", " : "") + std::to_string(lines[i]);
  return list;
}

// "#NAME=" with optional blanks after "#" and around the name: how
// systemd's and many packages' files show an option's default.
bool isCommentedDefault(std::u16string_view text, std::u16string_view name) {
  if (!text.starts_with(u'#')) return false;
  std::size_t at = 1;
  while (at < text.size() && isBlank(text[at])) ++at;
  if (text.substr(at, name.size()) != name) return false;
  at += name.size();
  while (at < text.size() && isBlank(text[at])) ++at;
  return at < text.size() && text[at] == u'=';
}

bool isLineEnd(std::u16string_view text) { return text == u"\n" || text == u"\r\n"; }

// Where the parts of an option line stand: the name ends before the blanks
// that precede the first "=", and the value is what follows the blanks
// after it, up to trailing blanks.
struct OptionLine {
  std::size_t nameEnd, equals, valueStart, valueEnd;
  explicit OptionLine(std::u16string_view text) {
    equals = std::min(text.find(u'='), text.size());
    nameEnd = equals;
    while (nameEnd > 0 && isBlank(text[nameEnd - 1])) --nameEnd;
    valueStart = std::min(equals + 1, text.size());
    while (valueStart < text.size() && isBlank(text[valueStart])) ++valueStart;
    valueEnd = text.size();
    while (valueEnd > valueStart && isBlank(text[valueEnd - 1])) --valueEnd;
  }
};

}  // namespace

void warn(const std::string& label, const std::string& message) {
  std::cerr << "corvane: " << label << ": " << message << '\n';
}

void installLogSink(bool verbose) {
  gLog.verbose = verbose;
  YSetLogSink([](const YString& message) {
    if (gLog.verbose) warn(gLog.label, message.UTF8String());
  });
}

YString argumentString(const std::string& argument) {
  try {
    return YString::fromUTF8(argument);
  } catch (const YException&) {
    throw Failure{kUsageError, "argument '" + argument + "' is not valid UTF-8"};
  }
}

// One line of the head while it is edited.
struct IniFile::Line {
  std::size_t original = 0;  // 1-based line it was read from; 0 for a new line
  std::u16string text;       // without its line end
  std::u16string lineEnd;
  bool option = false, changed = false, removed = false;
  std::u16string name;  // of an option line
  bool endAdded = false;  // unchanged but for the line end it was given
};

IniFile::IniFile(std::string label, std::string bytes) : _label(std::move(label)) {
  FileProblem problem;
  std::optional<TextFile> file = decodeTextFile(std::move(bytes), _label, problem);
  if (!file) throw Failure{kFileFailure, problem.message};
  _file = std::move(*file);
  gLog.label = _label;
  try {
    _document = YIniDocument::documentWithDataFactory(_file.bytes, YIniStandardElementFactory::standardFactory());
  } catch (const YException& e) {
    throw Failure{kFileFailure, _label + ": the library cannot load the text: " + e.what()};
  }
  if (!_document) throw Failure{kFileFailure, _label + ": the library cannot load the text"};
  _headOptions = _document->headOptions();
  if (_document->readingStopped())
    warn(_label, "reading stopped at line " + std::to_string(_document->readingStopLineNumber()) + " (\"" +
                     _document->readingStopLineText().UTF8String() +
                     "\": an indented line that continues no option); the text from there on is kept as it "
                     "is, but not read");
  warnAboutInvalidBytes();
  // Lines that end in CR alone (old Mac files) read as one line: an edit of
  // it would replace all that follows.
  const std::u16string_view text = _file.text.view();
  std::size_t cr = text.find(u'\r');
  while (cr != std::u16string_view::npos && cr + 1 < text.size() && text[cr + 1] == u'\n')
    cr = text.find(u'\r', cr + 1);
  if (cr != std::u16string_view::npos && text.find(u'\n') == std::u16string_view::npos)
    warn(_label, "its lines end in CR alone, which the reader does not take for line ends: the whole text reads as "
                 "one line");
  else if (cr != std::u16string_view::npos)
    warn(_label, "line " + std::to_string(std::count(text.begin(), text.begin() + static_cast<long>(cr), u'\n') + 1) +
                     " holds a CR without LF, which the reader does not take for a line end: the text after it "
                     "reads as part of that line, and an edit of that line replaces it");
}

IniFile::~IniFile() = default;

void IniFile::warnAboutInvalidBytes() const {
  if (_file.invalidBytes.empty()) return;
  const std::vector<std::size_t> starts = lineStarts(_file.bytes, _file.encoding);
  std::vector<std::size_t> lines;
  for (std::size_t offset : _file.invalidBytes) {
    const auto line = static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), offset) - starts.begin());
    if (lines.empty() || lines.back() != line) lines.push_back(line);
  }
  const std::size_t shown = std::min<std::size_t>(lines.size(), 5);
  std::string where = lineList(std::vector<std::size_t>(lines.begin(), lines.begin() + static_cast<long>(shown)));
  if (shown < lines.size()) where += ", …";
  warn(_label, std::to_string(_file.invalidBytes.size()) + " invalid UTF-8 byte sequence" +
                   (_file.invalidBytes.size() == 1 ? "" : "s") + " (line" + (lines.size() == 1 ? " " : "s ") + where +
                   ") shown as U+FFFD; they are written back unchanged");
}

// ---- sections ------------------------------------------------------------------

std::shared_ptr<YIniSection> IniFile::section(const YString& name) {
  if (!_sectionIndex) {
    _sectionIndex = std::make_unique<std::unordered_map<std::u16string, NamedSections>>();
    auto sections = _document->sections();
    for (const auto& section : *sections) {
      auto [it, first] = _sectionIndex->try_emplace(std::u16string(section->name().view()));
      if (first) it->second.first = section;
      else it->second.repeatedAt.push_back(_document->lineNumberForElement(*section));
    }
  }
  auto it = _sectionIndex->find(std::u16string(name.view()));
  if (it == _sectionIndex->end()) return nullptr;
  NamedSections& named = it->second;
  if (!named.repeatedAt.empty() && !named.warned) {
    named.warned = true;
    warn(_label, "section [" + name.UTF8String() + "] is repeated at line" + (named.repeatedAt.size() == 1 ? " " : "s ") +
                     lineList(named.repeatedAt) + "; the first, at line " +
                     std::to_string(_document->lineNumberForElement(*named.first)) + ", is the one used");
  }
  return named.first;
}

std::shared_ptr<YIniSection> IniFile::addSection(const YString& name) {
  auto added = _document->factory()->sectionWithName(name);
  _document->addElement(added);
  if (_sectionIndex) _sectionIndex->try_emplace(std::u16string(name.view())).first->second.first = added;
  return added;
}

void IniFile::refuseUnread(const std::shared_ptr<YIniSection>& section, bool head, const std::string& what) const {
  if (!_document->readingStopped()) return;
  auto sections = _document->sections();
  const bool mayBeUnread = head ? sections->count() == 0 : !section || section == sections->lastObject();
  if (!mayBeUnread) return;
  throw Failure{kNotRead, _label + ": " + stopPlace() + ", and " + what +
                              " is not in the text before it; the text after it was not read"};
}

void IniFile::refuseStopped(const std::string& consequence) const {
  if (!_document->readingStopped()) return;
  throw Failure{kNotRead, _label + ": " + stopPlace() + "; " + consequence};
}

std::string IniFile::stopPlace() const {
  return "reading stopped at line " + std::to_string(_document->readingStopLineNumber()) + " (\"" +
         _document->readingStopLineText().UTF8String() + "\")";
}

bool IniFile::hasHeadOptions() const {
  if (!_head) return !_headOptions.empty();
  for (const Line& line : *_head)
    if (line.option && !line.removed) return true;
  return false;
}

std::vector<SectionEntry> IniFile::sections() {
  std::vector<SectionEntry> entries;
  if (std::optional<SectionEntry> head = sectionEntry(YString(u"")); head && !head->options.empty())
    entries.push_back(std::move(*head));
  std::unordered_set<std::u16string> seen;
  auto sections = _document->sections();
  for (const auto& section : *sections)
    if (seen.insert(std::u16string(section->name().view())).second)
      entries.push_back(entryOf(*this->section(section->name())));
  return entries;
}

SectionEntry IniFile::entryOf(YIniSection& section) {
  SectionEntry entry;
  entry.name = section.name();
  entry.line = _document->lineNumberForElement(section);
  std::unordered_set<std::u16string> seen;
  auto options = section.options();
  for (const auto& option : *options)
    if (!option->name().isNull() && !option->value().isNull() && seen.insert(std::u16string(option->name().view())).second)
      entry.options.push_back({option->name(), option->value(), _document->lineNumberForElement(*option)});
  return entry;
}

std::optional<SectionEntry> IniFile::sectionEntry(const YString& name) {
  if (name.length() > 0) {
    auto found = section(name);
    if (!found) return std::nullopt;
    return entryOf(*found);
  }
  SectionEntry entry;
  entry.name = name;
  entry.head = true;
  std::unordered_set<std::u16string> seen;
  for (const YIniHeadOption& option : _headOptions)
    if (seen.insert(std::u16string(option.name.view())).second)
      entry.options.push_back({option.name, option.value, option.lineNumber});
  return entry;
}

// ---- lines ---------------------------------------------------------------------

const std::vector<std::size_t>& IniFile::textLineStarts() {
  if (_textLineStarts.empty()) {
    const std::u16string_view text = _file.text.view();
    _textLineStarts.push_back(0);
    for (std::size_t i = 0; i < text.size(); ++i)
      if (text[i] == u'\n') _textLineStarts.push_back(i + 1);
    _textLineStarts.push_back(text.size());  // an end mark, when the last line has no line end
  }
  return _textLineStarts;
}

std::size_t IniFile::lineCount() {
  const auto& starts = textLineStarts();
  // The end mark repeats the last start when the text ends with a line end.
  return starts.size() - (starts[starts.size() - 2] == starts.back() ? 2 : 1);
}

std::u16string_view IniFile::textOfLines(std::size_t first, std::size_t last) {
  const auto& starts = textLineStarts();
  last = std::min(last, lineCount());
  if (first == 0 || first > last) return {};
  return _file.text.view().substr(starts[first - 1], starts[last] - starts[first - 1]);
}

bool IniFile::isBlankLine(std::size_t line) {
  for (char16_t c : withoutLineEnd(textOfLines(line, line)))
    if (!isBlank(c) && c != u'\r') return false;
  return true;
}

std::size_t IniFile::firstLineOfRunAbove(std::size_t floor, std::size_t end) {
  std::size_t line = end;
  while (line > floor && !isBlankLine(line)) --line;  // comments right above the header
  while (line > floor && isBlankLine(line)) --line;   // and the blank lines above them
  return line + 1;
}

std::pair<std::size_t, std::size_t> IniFile::sectionLines(YIniSection& section) {
  const std::size_t header = _document->lineNumberForElement(section);
  std::size_t contentEnd = header, elementsEnd = header;
  auto elements = section.elements();
  for (const auto& element : *elements) {
    std::size_t line = _document->lineNumberForElement(*element);
    if (auto* option = YCast<YIniOption>(element.get())) {
      const std::u16string_view value = option->value().view();
      line += static_cast<std::size_t>(std::count(value.begin(), value.end(), u'\n'));
      contentEnd = std::max(contentEnd, line);
    }
    elementsEnd = std::max(elementsEnd, line);
  }
  std::size_t nextHeader = 0;
  auto sections = _document->sections();
  for (const auto& other : *sections) {
    const std::size_t line = _document->lineNumberForElement(*other);
    if (line > header && (nextHeader == 0 || line < nextHeader)) nextHeader = line;
  }
  if (nextHeader == 0) return {header, elementsEnd};
  return {header, firstLineOfRunAbove(contentEnd, nextHeader - 1) - 1};
}

std::size_t IniFile::headEnd() {
  auto sections = _document->sections();
  if (sections->count() > 0) return _document->lineNumberForElement(*sections->objectAtIndex(0)) - 1;
  if (_document->readingStopped()) return _document->readingStopLineNumber() - 1;
  return lineCount();
}

std::pair<std::size_t, std::size_t> IniFile::headLines() {
  const std::size_t end = headEnd();
  std::size_t lastOption = 0;
  for (const YIniHeadOption& option : _headOptions) lastOption = std::max(lastOption, option.lineNumber);
  if (_document->sections()->count() == 0) return {1, end};
  return {1, firstLineOfRunAbove(lastOption, end) - 1};
}

void IniFile::detachCommentsAboveNextHeader(YIniSection& section) {
  const std::size_t keptFrom = sectionLines(section).second + 1;
  std::vector<std::shared_ptr<YIniElement>> moved;
  for (auto elements = section.elementsList(); elements->count() > 0; elements = section.elementsList()) {
    const std::shared_ptr<YIniElement> last = elements->lastObject();
    if (YCast<YIniOption>(last.get()) || _document->lineNumberForElement(*last) < keptFrom) break;
    moved.insert(moved.begin(), last);
    section.removeObjectFromElementsAtIndex(elements->count() - 1);
  }
  std::size_t at = _document->elementsList()->indexOfObject(static_cast<const YIniElement*>(&section)) + 1;
  for (auto& element : moved) _document->insertObjectInElementsAtIndex(std::move(element), at++);
}

std::size_t IniFile::indexForNewOption(YIniSection& section, const YString& name) {
  // The commented-out default, and the end of the comment line (the reader
  // yields its line end apart), in `elements` from `from` on; or nothing.
  auto findDefault = [&](const YIniCompositeElement::ElementList& elements, std::size_t from) -> std::optional<std::size_t> {
    for (std::size_t i = from; i < elements.count(); ++i) {
      auto* comment = YCast<YIniComment>(elements.objectAtIndex(i).get());
      if (!comment || !isCommentedDefault(comment->stringValue().view(), name.view())) continue;
      if (i + 1 < elements.count()) {
        auto* next = YCast<YIniComment>(elements.objectAtIndex(i + 1).get());
        if (next && isLineEnd(next->stringValue().view()) &&
            _document->lineNumberForElement(*next) == _document->lineNumberForElement(*comment))
          return i + 2;
      }
      return i + 1;
    }
    return std::nullopt;
  };
  if (std::optional<std::size_t> at = findDefault(*section.elementsList(), 0)) return *at;
  // The last section's closing comments belong to the document: those up to
  // the default move into the section, to stand before the new option.
  const auto& top = *_document->elementsList();
  std::size_t index = top.count();
  while (index > 0 && !YCast<YIniSection>(top.objectAtIndex(index - 1).get())) --index;
  if (index > 0 && top.objectAtIndex(--index).get() == &section) {
    if (std::optional<std::size_t> end = findDefault(top, index + 1)) {
      for (std::size_t moved = index + 1; moved < *end; ++moved) {
        std::shared_ptr<YIniElement> comment = top.objectAtIndex(index + 1);
        _document->removeObjectFromElementsAtIndex(index + 1);
        section.addElement(std::move(comment));
      }
      return section.elementsList()->count();
    }
  }
  return ::indexForNewOption(section);
}

// ---- the head ------------------------------------------------------------------

std::vector<IniFile::Line>& IniFile::headModel() {
  if (_head) return *_head;
  _head = std::make_unique<std::vector<Line>>();
  _headLineCount = headEnd();
  for (std::size_t number = 1; number <= _headLineCount; ++number) {
    const std::u16string_view line = textOfLines(number, number);
    const std::u16string_view text = withoutLineEnd(line);
    _head->push_back({number, std::u16string(text), std::u16string(line.substr(text.size())), false, false, false, {}});
  }
  for (const YIniHeadOption& option : _headOptions) {
    Line& line = (*_head)[option.lineNumber - 1];
    line.option = true;
    line.name = option.name.view();
  }
  return *_head;
}

std::optional<OptionEntry> IniFile::headOption(const YString& name) {
  if (_head) {
    for (const Line& line : *_head)
      if (line.option && !line.removed && line.name == name.view()) {
        const OptionLine parts(line.text);
        return OptionEntry{name, YString(std::u16string_view(line.text).substr(parts.valueStart, parts.valueEnd - parts.valueStart)),
                           line.original};
      }
    return std::nullopt;
  }
  for (const YIniHeadOption& option : _headOptions)
    if (option.name.isEqualToString(name)) return OptionEntry{option.name, option.value, option.lineNumber};
  return std::nullopt;
}

namespace {
// What in an option name would make its line read otherwise, as the
// preserving save refuses the same names in a section; null for nothing.
const char* nameReadsOtherwise(std::u16string_view name) {
  if (name.find(u'=') != std::u16string_view::npos) return "holds \"=\"";
  if (name.find_first_of(u"\r\n") != std::u16string_view::npos) return "holds a line end";
  if (name.starts_with(u"#")) return "begins with \"#\", which starts a comment";
  if (name.starts_with(u"[")) return "begins with \"[\", which starts a section";
  return nullptr;
}
}  // namespace

std::u16string IniFile::lineEndOfFile() const {
  const std::u16string_view all = _file.text.view();
  if (const std::size_t lf = all.find(u'\n'); lf != std::u16string_view::npos && lf > 0 && all[lf - 1] == u'\r')
    return u"\r\n";
  return u"\n";
}

void IniFile::setHeadOption(const YString& name, const YString& value) {
  if (value.view().find(u'\n') != std::u16string_view::npos)
    throw Failure{kUsageError, _label + ": cannot set: a value before the first section cannot span lines (its "
                                        "further lines would stop the reading)"};
  if (const char* problem = nameReadsOtherwise(name.view()))
    throw Failure{kUsageError, _label + ": cannot set: the option name '" + name.UTF8String() +
                                   "' would not read back: it " + problem};
  std::vector<Line>& lines = headModel();
  _headChanged = true;
  const std::u16string_view newValue = value.view();
  for (Line& line : lines) {
    if (!line.option || line.removed || line.name != name.view()) continue;
    const OptionLine parts(line.text);
    std::u16string text = line.text.substr(0, parts.valueStart);
    // An empty value had nothing after "="; it takes one space when the
    // line has one before "=".
    if (parts.valueStart == line.text.size() && parts.nameEnd < parts.equals && !newValue.empty() &&
        (text.empty() || !isBlank(text.back())))
      text += u' ';
    text.append(newValue);
    text.append(line.text.substr(parts.valueEnd));
    if (text != line.text) line.changed = true;
    line.text = std::move(text);
    return;
  }
  // A new line: in the style of the nearest option line, after a
  // commented-out default of that name, or after the last head option.
  std::size_t at = lines.size();
  const Line* style = nullptr;
  for (std::size_t i = lines.size(); i > 0 && !style; --i)
    if (lines[i - 1].option && !lines[i - 1].removed) style = &lines[i - 1], at = i;
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (!lines[i].option && isCommentedDefault(lines[i].text, name.view())) {
      at = i + 1;
      break;
    }
  std::u16string styleText;
  if (style) {
    styleText = style->text;
  } else {
    // The first option of the file, else "name=value" as the library writes.
    auto sections = _document->sections();
    for (const auto& section : *sections) {
      auto options = section->options();
      if (options->count() == 0) continue;
      const std::size_t line = _document->lineNumberForElement(*options->objectAtIndex(0));
      styleText = withoutLineEnd(textOfLines(line, line));
      break;
    }
  }
  const OptionLine parts(styleText);
  std::u16string text(name.view());
  if (parts.equals < styleText.size()) text.append(std::u16string_view(styleText).substr(parts.nameEnd, parts.equals - parts.nameEnd));
  text += u'=';
  if (!newValue.empty() && parts.equals < styleText.size())
    text.append(std::u16string_view(styleText).substr(parts.equals + 1, parts.valueStart - parts.equals - 1));
  text.append(newValue);
  const std::u16string lineEnd = lineEndOfFile();
  if (at > 0 && lines[at - 1].lineEnd.empty()) {
    lines[at - 1].lineEnd = lineEnd;
    lines[at - 1].endAdded = true;
  }
  lines.insert(lines.begin() + static_cast<long>(at), Line{0, std::move(text), lineEnd, true, true, false, std::u16string(name.view())});
}

bool IniFile::removeHeadOption(const YString& name) {
  for (Line& line : headModel())
    if (line.option && !line.removed && line.name == name.view()) {
      line.removed = _headChanged = true;
      return true;
    }
  return false;
}

void IniFile::removeHeadOptions() {
  for (Line& line : headModel())
    if (line.option && !line.removed) line.removed = _headChanged = true;
}

std::string IniFile::withHeadEdits(std::string bytes, const TextEncoding& encoding) const {
  if (!_headChanged) return bytes;
  const std::vector<std::size_t> starts = lineStarts(bytes, encoding);
  std::string out = bytes.substr(0, starts[0]);
  // The file's last line, read without a line end, takes one when the save
  // put text after it (a new section).
  const bool bodyFollows = starts[std::min(_headLineCount, starts.size() - 1)] < bytes.size();
  auto append = [&](const std::u16string& text) {
    FileProblem problem;
    std::optional<std::string> encoded = encodeText(YString(text), encoding, _label, problem);
    if (!encoded) throw Failure{kFileFailure, problem.message};
    out += *encoded;
  };
  for (const Line& line : *_head) {
    if (line.removed) continue;
    if (!line.changed) {
      // Its own bytes, invalid ones too, and the line end it was given.
      out.append(bytes, starts[line.original - 1], starts[line.original] - starts[line.original - 1]);
      if (line.endAdded) append(line.lineEnd);
      continue;
    }
    append(line.text + (line.lineEnd.empty() && bodyFollows ? lineEndOfFile() : line.lineEnd));
  }
  out.append(bytes, starts[std::min(_headLineCount, starts.size() - 1)]);
  return out;
}

}  // namespace corvane::cli
