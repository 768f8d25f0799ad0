// What loading keeps of a document's source, for the preserving save.
// Private to the library: not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "YFile.h"
#include "YIniElement.h"
#include "YString.h"
#include "YStringEncoding.h"

class YCharacterSet;

/// The reader's white space (spaces and tabs), made once for the record and
/// the preserving writer.
const YCharacterSet& YIniWhitespace();
/// The reader's white space and line ends, made once.
const YCharacterSet& YIniWhitespaceAndNewlines();

/// The text a document was loaded from, cut into the ranges its elements came
/// from, and what is needed to give its bytes back.
///
/// The text is partitioned into entries, in text order: one per element the
/// reader yielded (a section's header, an option with its continuation lines,
/// a comment, a blank line or line end, an unrecognised stretch), and
/// "skipped" entries for what no element holds (options before the first
/// section, and the unread tail once reading stopped). Each loaded element
/// carries its entry's number, so nothing is kept per element here beyond the
/// entry's bounds, kind and a check of the element's identity.
///
/// The snapshot an element is compared with (its name, value or text at the
/// end of loading) is derived from its entry's text with the reader's own
/// rules, which costs no memory; only where a host's factory made an element
/// whose strings differ from what the reader passed is the snapshot kept.
///
/// Bytes: for text read from a file the record keeps the encoding and the
/// byte-order mark, and the original bytes of just those lines that encoding
/// the decoded text again would not reproduce (invalid UTF-8 sequences read
/// as U+FFFD, lossy sequences of legacy encodings).
class YIniSourceRecord {
 public:
  enum class Kind : std::uint8_t { Section, Option, Comment, Unknown, Skipped };

  /// The layout of an option's entry: where its name, "=" and value stand.
  /// Positions are text offsets; a value that is empty in the text has
  /// valueStart == valueEnd right after the blanks that follow "=".
  struct OptionLayout {
    std::uint32_t nameStart = 0, nameEnd = 0;  // the name as the reader trims it
    std::uint32_t equals = 0;                  // the "=" that ends the key
    std::uint32_t valueStart = 0, valueEnd = 0;  // the first line's value, trimmed
    std::uint32_t lineEnd = 0;                 // where the first line's line end begins
    std::uint32_t eolEnd = 0;                  // where the first line (with its line end) ends
    std::uint32_t contentEnd = 0;              // end of the last character of the whole value
    std::uint32_t firstIndentStart = 0, firstIndentEnd = 0;  // the first continuation's indentation
    std::uint32_t continuations = 0;           // number of continuation lines
  };

  /// A record over a snapshot of `text` (a copy, which for an immutable
  /// string is the string itself).
  explicit YIniSourceRecord(const YString& text);
  /// A record of ASCII text (bytes below 0x80, none NUL) read from UTF-8
  /// without a byte-order mark: it keeps the bytes, each the code unit of the
  /// same value, instead of a UTF-16 copy twice their size.
  explicit YIniSourceRecord(YFileBytes ascii);

  // ---- recording, while loading ----

  /// The reader yielded `element` for [start, end), passing `first` (a
  /// section's or option's name, a comment's text) and `second` (an option's
  /// value) to the factory. Text between the previous entry and `start`
  /// becomes a skipped entry.
  void noteElement(Kind kind, std::uint32_t start, std::uint32_t end, YIniElement& element, const YString& first,
                   const YString& second);
  /// Reading stopped early at `position`: the rest is the unread tail.
  void noteStop(std::uint32_t position);
  /// Loading ended: whatever follows the last entry becomes a skipped entry.
  void finish();
  /// Keeps what is needed to give back the bytes the text was decoded from.
  void attachBytes(std::string_view bytes, YStringEncoding encoding);

  // ---- queries ----

  /// Whether the record holds ASCII bytes, and those bytes.
  bool isASCII() const noexcept { return _isASCII; }
  std::string_view asciiText() const noexcept { return _ascii.view(); }
  /// The text's length in code units.
  std::size_t length() const noexcept { return _length; }
  /// The code unit at `position` (< length()).
  char16_t unitAt(std::uint32_t position) const noexcept {
    return _isASCII ? static_cast<char16_t>(_ascii.view()[position]) : _text.view()[position];
  }
  /// The code units of the range [start, end) (in range): a copy, and a new string of them.
  std::u16string unitsOfRange(std::uint32_t start, std::uint32_t end) const;
  YString stringOfRange(std::uint32_t start, std::uint32_t end) const;
  /// Appends the code units of the range [start, end) (in range) to the mutable `out`.
  void appendUnitsOfRange(std::uint32_t start, std::uint32_t end, const YString& out) const;
  std::size_t count() const noexcept { return _kinds.size(); }
  Kind kind(std::size_t index) const noexcept { return _kinds[index]; }
  std::uint32_t start(std::size_t index) const noexcept { return _bounds[index]; }
  std::uint32_t end(std::size_t index) const noexcept { return _bounds[index + 1]; }

  /// The entry `element` was loaded from, or -1 when it was not loaded into
  /// this record (made by the host, a copy, or loaded by another document).
  std::int64_t indexOfElement(const YIniElement& element) const noexcept;
  /// The top bit of a loaded element's word: set for the library's own
  /// option holding immutable strings when loading noted it, cleared by the
  /// option when it takes other strings. While it stands, the option holds
  /// exactly what it held at the end of loading, without comparing.
  static constexpr std::uint32_t kStringsAsNoted = 0x80000000u;
  /// Whether `option` (loaded into this record) holds the strings it held
  /// at the end of loading, as far as it knows without comparing them.
  static bool holdsNotedStrings(const YIniElement& option) noexcept { return option._objectWord & kStringsAsNoted; }
  /// Whether `element` (loaded from `index`) still holds what it held at the
  /// end of loading: names, values and texts compared code unit for code
  /// unit, null unequal to empty.
  bool sectionNameUnchanged(std::size_t index, const YString& name) const;
  bool optionNameUnchanged(std::size_t index, const OptionLayout& layout, const YString& name) const;
  bool optionValueUnchanged(std::size_t index, const OptionLayout& layout, const YString& value) const;
  bool commentUnchanged(std::size_t index, const YString& text) const;

  /// The layout of the option entry at `index`.
  OptionLayout optionLayout(std::size_t index) const;
  /// The layout of an option read from the text range [start, end).
  OptionLayout optionLayoutOfRange(std::uint32_t start, std::uint32_t end) const;
  /// The lines before the first section header that reading dropped as
  /// options, as text ranges with their line ends, in text order; none at or
  /// after the point where reading stopped.
  std::vector<std::pair<std::uint32_t, std::uint32_t>> headOptionLines() const;
  /// The trimmed name of the section entry at `index`: [first, second).
  std::pair<std::uint32_t, std::uint32_t> sectionNameRange(std::size_t index) const;
  /// Whether the comment entry at `index` is the line end of the line before
  /// it (a header's or comment's), not a blank line of its own.
  bool isLineEndOfPreviousLine(std::size_t index) const noexcept;

  /// Whether reading stopped before the end of the text, and where: the
  /// 1-based line and that line's text (without its line end).
  bool readingStopped() const noexcept { return _stop != kNoStop; }
  std::size_t stopLineNumber() const;
  YString stopLineText() const;
  /// The 1-based line that holds text offset `position`; CR LF and LF end a line.
  std::size_t lineNumberAtPosition(std::uint32_t position) const;

  // ---- the file's style, for text written anew (computed when first asked) ----

  struct Style {
    std::u16string beforeEquals;     // blanks between the name and "="
    std::u16string afterEquals;      // blanks between "=" and the value
    std::u16string lineEnd;          // "\n" or "\r\n"
    std::u16string continuationIndent;
    bool blankLineBeforeSections = false;
  };
  const Style& fileStyle() const;

  // ---- bytes ----

  bool hasBytes() const noexcept { return _hasBytes; }
  /// The encoding the text was decoded from (UTF-8 for text given as a
  /// string) and the byte-order mark that preceded it.
  YStringEncoding encoding() const noexcept { return _encoding; }
  const std::string& byteOrderMark() const noexcept { return _byteOrderMark; }
  /// The encoding of the bytes after the byte-order mark (UTF-16BE for a
  /// file read as UTF-16 with a big-endian mark, …).
  YStringEncoding bodyEncoding() const noexcept { return _bodyEncoding; }
  /// A point in (from, limit] near from + wanted at which the bytes of
  /// [from, limit) may be cut in two: a line boundary outside any kept line,
  /// or `limit`.
  std::uint32_t splitPoint(std::uint32_t from, std::uint32_t limit, std::uint32_t wanted) const;
  /// Appends the bytes of the text range [start, end) in the loaded encoding:
  /// the original bytes of every whole line inside it whose bytes were kept,
  /// and, in UTF-8, of the part of such a line inside it where that part
  /// begins and ends next to ASCII; the text encoded again elsewhere. False
  /// (with `*error`) when a piece cannot be encoded, which for text that was
  /// decoded cannot happen.
  bool appendOriginalBytes(std::uint32_t start, std::uint32_t end, std::string& out,
                           std::shared_ptr<YError>* error) const;

 private:
  // A line whose bytes encoding its text again would not reproduce.
  struct KeptLine {
    std::uint32_t start, end;  // text offsets of the line, its line end included
    std::string bytes;
  };
  // Where the text offset `at` of a kept UTF-8 line falls in its bytes; none
  // unless a unit next to it is ASCII.
  std::optional<std::size_t> keptByteOffset(const KeptLine& line, std::uint32_t at) const;
  static constexpr std::uint32_t kNoStop = UINT32_MAX;

  void reserveEntries();
  void appendEntry(Kind kind, std::uint32_t end);
  // Keeps the bytes of the lines of UTF-8 `bytes` that were decoded with U+FFFD.
  void keepLinesWithReplacements(std::string_view bytes);
  const std::vector<std::uint32_t>& lineStarts() const;

  // The forms of the queries over either form of the text.
  template <class Text>
  static OptionLayout optionLayoutOfRangeIn(Text text, std::uint32_t start, std::uint32_t end);
  template <class Text>
  bool valueUnchangedIn(Text text, std::size_t index, const OptionLayout& layout, const YString& value) const;
  template <class Text>
  std::unique_ptr<Style> styleOf(Text text) const;

  // Calls `read` with the text as the record holds it: its ASCII bytes (a
  // std::string_view) or UTF-16 (a std::u16string_view). Either is read
  // unit by unit alike: ASCII bytes are the code units of the same value.
  template <class Read>
  decltype(auto) withText(Read&& read) const {
    if (_isASCII) return read(_ascii.view());
    return read(_text.view());
  }

  // The text: UTF-16, or else ASCII bytes.
  YString _text;
  YFileBytes _ascii;
  std::size_t _length = 0;  // in code units
  bool _isASCII = false;
  std::vector<std::uint32_t> _bounds{0};  // entry i is [_bounds[i], _bounds[i + 1])
  std::vector<Kind> _kinds;
  // Per entry, a check of the element loaded from it (0 for skipped text):
  // an element of another document carrying the same entry number fails it.
  std::vector<std::uint32_t> _checks;
  // An element carries its entry number, plus one, mixed with this record's
  // salt (bit 30 set, so that the mix is never 0): an element noted by
  // another record decodes to no entry here, even where it took over the
  // address of one of this record's elements that has died since.
  std::uint32_t _salt;
  std::uint32_t _stop = kNoStop;
  // Snapshots that the text does not give: entry index to (name or text, value).
  std::unordered_map<std::uint32_t, std::pair<YString, YString>> _snapshots;

  bool _hasBytes = false;
  YStringEncoding _encoding = YUTF8StringEncoding;
  YStringEncoding _bodyEncoding = YUTF8StringEncoding;  // _encoding without its byte-order mark
  std::string _byteOrderMark;
  std::vector<KeptLine> _keptLines;  // in text order

  mutable std::unique_ptr<std::vector<std::uint32_t>> _lineStarts;
  mutable std::unique_ptr<Style> _style;
};
