#include "YIniPreservingWriter.h"

#include <algorithm>

#include "YCharacterSet.h"
#include "YIniComment.h"
#include "YIniDocument.h"
#include "YIniOption.h"
#include "YIniSection.h"
#include "YIniSourceRecord.h"

namespace {

using Kind = YIniSourceRecord::Kind;

// Original text is encoded in pieces of about this many code units.
constexpr std::uint32_t kEncodingPiece = 32768;

std::u16string_view trimmed(std::u16string_view text, const YCharacterSet& set) {
  std::size_t begin = 0, end = text.size();
  while (begin < end && set.characterIsMember(text[begin])) ++begin;
  while (end > begin && set.characterIsMember(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

bool holdsLineEnd(std::u16string_view text) {
  return text.find_first_of(u"\r\n") != std::u16string_view::npos;
}

bool isLineEndText(std::u16string_view text) { return text == u"\n" || text == u"\r\n"; }

}  // namespace

// How a new option is written: the spacing around "=", the line end and the
// indentation of continuation lines, taken from the option before it.
struct YIniPreservingWriter::OptionStyle {
  // Ranges of the loaded text: [first, second).
  using Range = std::pair<std::uint32_t, std::uint32_t>;
  Range beforeEquals, afterEquals, lineEnd, indent;
  bool known = false;  // an option of the file came before: beforeEquals and lineEnd are its
  bool hasAfterEquals = false, hasIndent = false;
  // Options of the file written as they were, in order, whose style is not
  // taken yet: most sections never write a new option, and their options'
  // layouts are then never worked out.
  std::vector<std::uint32_t> untaken;

  // Takes the style an option of the file shows in its layout, the rest
  // staying as the options before it showed it.
  void take(const YIniSourceRecord::OptionLayout& layout) {
    beforeEquals = {layout.nameEnd, layout.equals};
    if (layout.valueEnd > layout.valueStart) {
      afterEquals = {layout.equals + 1, layout.valueStart};
      hasAfterEquals = true;
    }
    lineEnd = {layout.lineEnd, layout.eolEnd};
    if (layout.continuations) {
      indent = {layout.firstIndentStart, layout.firstIndentEnd};
      hasIndent = true;
    }
    known = true;
  }
  // Takes the styles not taken yet, in order: before the style is used.
  // There are some only where the document has a record.
  void settle(const YIniSourceRecord* record) {
    for (std::uint32_t index : untaken) take(record->optionLayout(index));
    untaken.clear();
  }
};

YIniPreservingWriter::YIniPreservingWriter(YIniDocument& document, const YIniSourceRecord* record)
    : _document(document), _record(record) {}

// ---- pieces --------------------------------------------------------------------

std::u16string_view YIniPreservingWriter::freshText(const Piece& piece) const {
  return std::u16string_view(_fresh).substr(piece.start, piece.end - piece.start);
}

void YIniPreservingWriter::noteTailUnit(char16_t unit) noexcept {
  _wroteAnything = true;
  if (_tailLength == 3) {
    _tail[0] = _tail[1];
    _tail[1] = _tail[2];
    _tail[2] = unit;
  } else {
    _tail[_tailLength++] = unit;
  }
}

void YIniPreservingWriter::noteTail(std::u16string_view text) {
  for (char16_t unit : text.substr(text.size() > 3 ? text.size() - 3 : 0)) noteTailUnit(unit);
}

void YIniPreservingWriter::original(std::uint32_t start, std::uint32_t end) {
  if (start >= end) return;
  if (!_pieces.empty() && !_pieces.back().fresh && _pieces.back().end == start) _pieces.back().end = end;
  else _pieces.push_back({false, start, end});
  _lastOriginalEnd = end;
  if (end - start >= 3) {  // the whole tail at once
    _wroteAnything = true;
    _tailLength = 3;
    for (std::uint32_t k = 0; k < 3; ++k) _tail[k] = _record->unitAt(end - 3 + k);
    return;
  }
  for (std::uint32_t at = start; at < end; ++at) noteTailUnit(_record->unitAt(at));
}

void YIniPreservingWriter::fresh(std::u16string_view text) {
  if (text.empty()) return;
  const auto start = static_cast<std::uint32_t>(_fresh.size());
  _fresh.append(text);
  const auto end = static_cast<std::uint32_t>(_fresh.size());
  if (!_pieces.empty() && _pieces.back().fresh && _pieces.back().end == start) _pieces.back().end = end;
  else _pieces.push_back({true, start, end});
  _lastOriginalEnd = UINT32_MAX;
  noteTail(text);
}

bool YIniPreservingWriter::atLineStart() const noexcept {
  return !_wroteAnything || _tail[_tailLength - 1] == u'\n';
}

bool YIniPreservingWriter::endsWithBlankLine() const noexcept {
  if (!_wroteAnything) return true;
  const std::u16string_view tail(_tail, _tailLength);
  return tail.ends_with(u"\n\n") || tail.ends_with(u"\n\r\n") || tail == u"\n" || tail == u"\r\n";
}

const YIniSourceRecord::Style& YIniPreservingWriter::fileStyle() const {
  static const YIniSourceRecord::Style kNoFile{u"", u"", u"\n", u" ", false};
  return _record ? _record->fileStyle() : kNoFile;
}

std::u16string_view YIniPreservingWriter::lineEnd() const { return fileStyle().lineEnd; }

std::u16string YIniPreservingWriter::styleText(const std::pair<std::uint32_t, std::uint32_t>& range) const {
  return _record->unitsOfRange(range.first, range.second);
}

std::u16string YIniPreservingWriter::styleLineEnd(const OptionStyle& style) const {
  return style.known && style.lineEnd.first < style.lineEnd.second ? styleText(style.lineEnd)
                                                                    : std::u16string(lineEnd());
}

std::u16string YIniPreservingWriter::styleIndent(const OptionStyle& style) const {
  return style.hasIndent ? styleText(style.indent) : fileStyle().continuationIndent;
}

bool YIniPreservingWriter::startsMidLine(std::uint32_t start) const noexcept {
  return start > 0 && _record->unitAt(start - 1) != u'\n';
}

void YIniPreservingWriter::ensureLineStart() {
  if (atLineStart()) return;
  // A line that ends in the middle of loaded text gets the line end it had
  // there: with mixed line ends another one could change how the next line reads.
  if (const std::uint32_t at = _lastOriginalEnd; at != UINT32_MAX && at < _record->length()) {
    if (_record->unitAt(at) == u'\n') return fresh(u"\n");
    if (_record->unitAt(at) == u'\r' && at + 1 < _record->length() && _record->unitAt(at + 1) == u'\n')
      return fresh(u"\r\n");
  }
  fresh(lineEnd());
}

bool YIniPreservingWriter::fail(const YString& element, const char* reason) {
  if (_error)
    *_error = YError::errorWithDomainCodeDescription(
        YIniErrorDomain, YIniTextWouldNotReadBackError,
        YString::stringWithFormat("%@ would not read back: %s", element, reason));
  return false;
}

// ---- the walk ------------------------------------------------------------------

std::int64_t YIniPreservingWriter::loadedIndex(const void* element, int kind) const {
  if (!_record) return -1;
  const std::int64_t index = _record->indexOfElement(*static_cast<const YIniElement*>(element));
  if (index < 0) return -1;
  const Kind loaded = _record->kind(static_cast<std::size_t>(index));
  const bool matches = static_cast<Kind>(kind) == Kind::Comment ? loaded == Kind::Comment || loaded == Kind::Unknown
                                                                 : loaded == static_cast<Kind>(kind);
  return matches ? index : -1;
}

bool YIniPreservingWriter::render(std::shared_ptr<YError>* error) {
  _error = error;
  std::int64_t previous = -1;
  auto children = _document.elements();
  for (const auto& child : *children) {
    if (auto* section = YCast<YIniSection>(child.get())) {
      std::int64_t index = loadedIndex(static_cast<YIniElement*>(section), static_cast<int>(Kind::Section));
      if (index > previous) {
        flushSkipped(static_cast<std::size_t>(index));
        previous = index;
      } else {
        // Options that stood before the first section must stay before
        // every section, or they would be read as this one's.
        flushSkipped(headEnd());
        index = -1;
      }
      if (!writeSection(*section, index)) return false;
    } else if (auto* comment = YCast<YIniComment>(child.get())) {
      const std::int64_t index = loadedIndex(static_cast<YIniElement*>(comment), static_cast<int>(Kind::Comment));
      const bool inPlace = index > previous;
      if (inPlace) {
        flushSkipped(static_cast<std::size_t>(index));
        previous = index;
      }
      if (!writeComment(*comment, index, inPlace)) return false;
    }
  }
  if (_record) flushSkipped(_record->count());
  return true;
}

std::size_t YIniPreservingWriter::headEnd() {
  if (!_record) return 0;
  if (_headEnd != SIZE_MAX) return _headEnd;
  std::size_t& end = _headEnd;
  end = 0;
  while (end < _record->count() && _record->kind(end) != Kind::Section) ++end;
  // The unread tail stays at the end.
  if (_record->readingStopped() && end == _record->count() && end > 0) --end;
  return end;
}

// Text that no element holds (options before the first section, the unread
// tail) is written in text order between the top-level children in place.
void YIniPreservingWriter::flushSkipped(std::size_t limit) {
  if (!_record) return;
  for (; _nextSkipped < limit && _nextSkipped < _record->count(); ++_nextSkipped) {
    if (_record->kind(_nextSkipped) != Kind::Skipped) continue;
    const std::uint32_t start = _record->start(_nextSkipped), end = _record->end(_nextSkipped);
    if (!adjacent(start)) {
      ensureLineStart();
      // An indented line right after an option would continue it: a blank
      // line keeps it where reading stopped.
      const char16_t first = _record->unitAt(start);
      if (_lastLineIsOption && (first == u' ' || first == u'\t')) fresh(lineEnd());
    }
    original(start, end);
    _lastLineIsOption = false;
  }
}

bool YIniPreservingWriter::writeSection(YIniSection& section, std::int64_t index) {
  const YString& name = section.name();
  _currentSection = &section;
  auto describe = [&] {
    return YString::stringWithFormat("The section \"%@\"", name);
  };
  auto problem = [&]() -> const char* {
    if (name.isNull()) return "it has no name";
    if (trimmed(name.view(), YIniWhitespace()).empty()) return "its name is empty";
    if (holdsLineEnd(name.view())) return "its name holds a line end";
    // The reader trims a header's name.
    if (YIniWhitespace().characterIsMember(name.view().front()) ||
        YIniWhitespace().characterIsMember(name.view().back()))
      return "its name begins or ends with white space";
    return nullptr;
  };
  _lastLineIsOption = false;
  if (index >= 0) {
    const auto i = static_cast<std::size_t>(index);
    const std::uint32_t start = _record->start(i), end = _record->end(i);
    if (!adjacent(start)) ensureLineStart();
    if (_record->sectionNameUnchanged(i, name)) {
      original(start, end);
    } else {
      if (const char* reason = problem()) return fail(describe(), reason);
      auto [nameStart, nameEnd] = _record->sectionNameRange(i);
      original(start, nameStart);
      fresh(name.view());
      original(nameEnd, end);
    }
    return writeChildren(section, true);
  }
  if (const char* reason = problem()) return fail(describe(), reason);
  ensureLineStart();
  if (_record && _record->fileStyle().blankLineBeforeSections && !endsWithBlankLine()) fresh(lineEnd());
  fresh(u"[");
  fresh(name.view());
  fresh(u"]");
  if (!writeChildren(section, false)) return false;
  // A new section's last line ends, as a new option's does: an empty one at
  // the end of the file would otherwise leave the file without a line end.
  ensureLineStart();
  return true;
}

bool YIniPreservingWriter::writeChildren(YIniSection& section, bool sectionInPlace) {
  std::int64_t previous = -1;
  OptionStyle style;
  auto children = section.elements();
  for (const auto& child : *children) {
    if (auto* option = YCast<YIniOption>(child.get())) {
      const std::int64_t index =
          sectionInPlace ? loadedIndex(static_cast<YIniElement*>(option), static_cast<int>(Kind::Option)) : -1;
      const bool inPlace = index >= 0 && index > previous;
      if (inPlace) previous = index;
      if (!writeOption(*option, index, inPlace, style)) return false;
    } else if (auto* comment = YCast<YIniComment>(child.get())) {
      const std::int64_t index = loadedIndex(static_cast<YIniElement*>(comment), static_cast<int>(Kind::Comment));
      const bool inPlace = sectionInPlace && index >= 0 && index > previous;
      if (inPlace) previous = index;
      if (!writeComment(*comment, index, inPlace)) return false;
    }
  }
  return true;
}

bool YIniPreservingWriter::renderValue(const YString& value, const OptionStyle& style, std::u16string& out) {
  const std::u16string_view text = value.view();
  std::size_t lf = text.find(u'\n');
  out.append(text.substr(0, lf));
  if (lf == std::u16string_view::npos) return true;
  const std::u16string eol = styleLineEnd(style), indent = styleIndent(style);
  while (lf != std::u16string_view::npos) {
    const std::size_t next = text.find(u'\n', lf + 1);
    const std::u16string_view line = trimmed(text.substr(lf + 1, next == std::u16string_view::npos ? next : next - lf - 1),
                                             YIniWhitespaceAndNewlines());
    if (line.empty()) return false;
    out.append(eol);
    out.append(indent);
    out.append(line);
    lf = next;
  }
  return true;
}

bool YIniPreservingWriter::writeOption(YIniOption& option, std::int64_t index, bool inPlace, OptionStyle& style) {
  const YString& name = option.name();
  const YString& value = option.value();
  auto describe = [&] {
    return YString::stringWithFormat("The option \"%@\" in section \"%@\"", name,
                                     _currentSection ? _currentSection->name() : YString());
  };
  auto nameProblem = [](std::u16string_view text) -> const char* {
    if (text.find(u'=') != std::u16string_view::npos) return "its name holds \"=\"";
    if (holdsLineEnd(text)) return "its name holds a line end";
    if (!text.empty() && YIniWhitespace().characterIsMember(text.front())) return "its name begins with white space";
    if (text.starts_with(u"#")) return "its name begins with \"#\", which starts a comment";
    if (text.starts_with(u"[")) return "its name begins with \"[\", which may start a section";
    return nullptr;
  };
  if (inPlace) {
    const auto i = static_cast<std::size_t>(index);
    const std::uint32_t start = _record->start(i), end = _record->end(i);
    // This option's style is the one the next new option takes; what it
    // does not show (an empty value's spacing, continuation indentation)
    // stays as the option before it showed it, else comes from the file.
    // An option holding what loading noted is written as it was, its style
    // taken only when a later option needs it.
    if (YIniSourceRecord::holdsNotedStrings(option)) {
      style.untaken.push_back(static_cast<std::uint32_t>(i));
      if (!adjacent(start)) ensureLineStart();
      original(start, end);
      _lastLineIsOption = true;
      return true;
    }
    style.settle(_record);  // the options before this one first
    const YIniSourceRecord::OptionLayout layout = _record->optionLayout(i);
    style.take(layout);

    const bool nameSame = _record->optionNameUnchanged(i, layout, name);
    const bool valueSame = _record->optionValueUnchanged(i, layout, value);
    if (nameSame && valueSame) {
      if (!adjacent(start)) ensureLineStart();
      original(start, end);
      _lastLineIsOption = true;
      return true;
    }
    if (name.isNull() || value.isNull()) return true;  // left out, as the writers leave it out
    if (!nameSame)
      if (const char* reason = nameProblem(name.view())) return fail(describe(), reason);
    std::u16string newValue;
    if (!valueSame && !renderValue(value, style, newValue))
      return fail(describe(), "its value has an empty continuation line");
    // A line that begins with "[" and holds a later "]" reads as a header: an
    // option read from "[k=v" cannot take a value with "]".
    if (!valueSame && _record->unitAt(start) == u'[' &&
        std::u16string_view(newValue).substr(0, newValue.find(u'\n')).find(u']') != std::u16string_view::npos)
      return fail(describe(), "its line begins with \"[\" and would read as a section header");
    // An option read in mid-line (after a header, "[a]k=v") begins a line of
    // its own once it changes: its new text could join the header.
    if (!adjacent(start) || startsMidLine(start)) ensureLineStart();
    original(start, layout.nameStart);
    if (nameSame) original(layout.nameStart, layout.nameEnd);
    else fresh(name.view());
    if (valueSame) {
      original(layout.nameEnd, end);
    } else {
      original(layout.nameEnd, layout.valueStart);
      // An empty value had nothing after "="; it takes one space when the
      // line has one before "=".
      const bool emptyBefore = layout.valueStart == layout.valueEnd && layout.continuations == 0;
      if (emptyBefore && !newValue.empty() && layout.valueStart == layout.equals + 1 && layout.equals > layout.nameEnd)
        fresh(u" ");
      fresh(newValue);
      original(layout.contentEnd, end);
    }
    _lastLineIsOption = true;
    return true;
  }

  // Written anew, as the writers write it: the name trimmed, an option
  // without a name or value left out.
  if (name.isNull() || value.isNull()) return true;
  style.settle(_record);  // the style this new option takes
  const std::u16string_view newName = trimmed(name.view(), YIniWhitespace());
  if (newName.empty()) return true;
  if (const char* reason = nameProblem(newName)) return fail(describe(), reason);
  std::u16string line(newName);
  line.append(style.known ? styleText(style.beforeEquals) : fileStyle().beforeEquals);
  line.append(u"=");
  std::u16string newValue;
  if (!renderValue(value, style, newValue))
    return fail(describe(), "its value has an empty continuation line");
  if (!newValue.empty()) line.append(style.hasAfterEquals ? styleText(style.afterEquals) : fileStyle().afterEquals);
  line.append(newValue);
  line.append(styleLineEnd(style));
  ensureLineStart();
  fresh(line);
  _lastLineIsOption = true;
  return true;
}

// Why comment text written anew would not read back as comments: a line of
// it that is not empty and opens with neither "#" nor ";" would read as an
// option, a section header, or (indented) a line that continues an option
// or stops the reading. Null when it would.
static const char* commentProblem(std::u16string_view text) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t lf = text.find(u'\n', start);
    std::u16string_view line = text.substr(start, lf == std::u16string_view::npos ? lf : lf - start);
    if (line.ends_with(u'\r')) line.remove_suffix(1);
    if (!line.empty() && line[0] != u'#' && line[0] != u';')
      return "a line of it opens with neither \"#\" nor \";\" and would read as other than a comment";
    if (lf == std::u16string_view::npos) break;
    start = lf + 1;
  }
  return nullptr;
}

bool YIniPreservingWriter::writeComment(YIniComment& comment, std::int64_t index, bool inPlace) {
  const YString text = comment.stringValue();
  auto freshComment = [&] {
    if (const char* reason = commentProblem(text.view()))
      return fail(YString::stringWithFormat("The comment \"%@\"", text), reason);
    fresh(text.view());
    _lastLineIsOption = false;
    return true;
  };
  if (index >= 0) {
    const auto i = static_cast<std::size_t>(index);
    const std::uint32_t start = _record->start(i), end = _record->end(i);
    if (_record->commentUnchanged(i, text)) {
      // The line end of a header or comment line: away from that line it
      // ends whatever line is open, and adds no blank line.
      if (_record->isLineEndOfPreviousLine(i) && !(inPlace && adjacent(start))) {
        if (!atLineStart()) original(start, end);
        return true;
      }
      // Away from its neighbour a line begins on a line of its own; so does
      // a blank line, which stays a blank line. An unrecognised line holds
      // no text of its own: moved, it is still the line it was.
      if (inPlace || _record->kind(i) == Kind::Unknown) {
        if (!inPlace || !adjacent(start)) ensureLineStart();
        original(start, end);
        _lastLineIsOption = false;
        return true;
      }
    }
    // A changed comment takes its place on its line.
    if (inPlace && adjacent(start) && !startsMidLine(start) && !text.isNull()) return freshComment();
  }
  if (text.isNull() || text.length() == 0) return true;
  if (!isLineEndText(text.view())) ensureLineStart();
  return freshComment();
}

// ---- output --------------------------------------------------------------------

YString YIniPreservingWriter::text() const {
  std::size_t length = 0;
  for (const Piece& piece : _pieces) length += piece.end - piece.start;
  YString result = YString::mutableString(length);
  for (const Piece& piece : _pieces) {
    if (!piece.fresh) {
      _record->appendUnitsOfRange(piece.start, piece.end, result);
      continue;
    }
    const std::u16string_view text = freshText(piece);
    result.appendCharacters(text.data(), text.size());
  }
  return result;
}

bool YIniPreservingWriter::prepareEncoding(std::shared_ptr<YError>* error) {
  _bodyEncoding = YUTF8StringEncoding;
  if (_record && _record->hasBytes()) _bodyEncoding = _record->bodyEncoding();
  _freshBytes.clear();
  for (const Piece& piece : _pieces) {
    if (!piece.fresh) continue;
    auto bytes = YEncodeString(YString(freshText(piece)), _bodyEncoding, error);
    if (!bytes) return false;
    _freshBytes.push_back(std::move(*bytes));
  }
  _piece = _freshPiece = 0;
  _at = _pieces.empty() ? 0 : _pieces[0].start;
  _markGiven = false;
  return true;
}

std::string_view YIniPreservingWriter::nextEncodedPiece() {
  if (!_markGiven) {
    _markGiven = true;
    if (_record && _record->hasBytes() && !_record->byteOrderMark().empty()) return _record->byteOrderMark();
  }
  while (_piece < _pieces.size()) {
    const Piece& piece = _pieces[_piece];
    if (piece.fresh) {
      ++_piece;
      if (_piece < _pieces.size()) _at = _pieces[_piece].start;
      return _freshBytes[_freshPiece++];
    }
    if (_at >= piece.end) {
      ++_piece;
      if (_piece < _pieces.size()) _at = _pieces[_piece].start;
      continue;
    }
    const std::uint32_t split = _record->splitPoint(_at, piece.end, kEncodingPiece);
    _buffer.clear();
    if (!_record->appendOriginalBytes(_at, split, _buffer, &_failure)) throw EncodingFailed{};
    _at = split;
    if (!_buffer.empty()) return _buffer;
  }
  return {};
}

bool YIniPreservingWriter::encode(const std::function<void(std::string_view)>& sink,
                                  std::shared_ptr<YError>* error) {
  if (!prepareEncoding(error)) return false;
  try {
    for (std::string_view piece = nextEncodedPiece(); !piece.empty(); piece = nextEncodedPiece()) sink(piece);
  } catch (const EncodingFailed&) {
    if (error) *error = _failure;
    return false;
  }
  return true;
}
