// The text of a document that keeps every byte its edits do not touch.
// Private to the library: not installed; YIniDocument's preserving
// operations are its interface.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "YError.h"
#include "YIniSourceRecord.h"
#include "YString.h"
#include "YStringEncoding.h"

class YIniComment;
class YIniDocument;
class YIniOption;
class YIniSection;

/// Writes a document as a sequence of pieces: stretches of the loaded text
/// (for what no edit touched) and text written anew (for what changed or was
/// added), then gives that out as a string or as bytes.
///
/// Which children keep their place is decided in one greedy pass per parent:
/// a child loaded from this document's source stays in place when it was
/// loaded after the previous child that stayed. An element in place that
/// still holds what it held after loading is written as its original text;
/// one whose name or value changed is patched (only the name or value text
/// is replaced); anything else is written anew in the file's style.
///
/// The writer only reads the tree: it calls no setter and announces nothing.
class YIniPreservingWriter {
 public:
  /// A writer for `document`, whose source record is `record` (null for a
  /// document that was not loaded from text).
  YIniPreservingWriter(YIniDocument& document, const YIniSourceRecord* record);

  /// Walks the document. False, with `*error` naming the element, when text
  /// written anew would not read back as it stands in the tree.
  bool render(std::shared_ptr<YError>* error);

  /// The rendered text.
  YString text() const;
  /// Hands the rendered text to `sink` as bytes in the loaded encoding (with
  /// its byte-order mark), piece by piece; UTF-8 for a document without a
  /// file behind it. Text written anew that the encoding cannot represent
  /// fails before the first piece is handed over.
  /// Kept text that cannot be encoded again (part of a kept line that its
  /// encoding maps one way) fails the same way, but only when its piece is
  /// reached, after earlier pieces were handed over.
  bool encode(const std::function<void(std::string_view)>& sink, std::shared_ptr<YError>* error);
  /// The same, as a producer for chunked file writing: call `prepare` once,
  /// then `next` until it returns an empty piece. `next` throws
  /// EncodingFailed where kept text cannot be encoded again; failure() then
  /// tells why.
  bool prepareEncoding(std::shared_ptr<YError>* error);
  std::string_view nextEncodedPiece();
  struct EncodingFailed {};
  const std::shared_ptr<YError>& failure() const noexcept { return _failure; }

 private:
  struct Piece {
    bool fresh;  // text written anew: [start, end) of _fresh; else of the record's text
    std::uint32_t start, end;
  };
  struct OptionStyle;

  std::u16string_view freshText(const Piece& piece) const;
  void original(std::uint32_t start, std::uint32_t end);
  void fresh(std::u16string_view text);
  bool atLineStart() const noexcept;
  bool endsWithBlankLine() const noexcept;
  void ensureLineStart();
  // Whether the loaded text at `start` stands after other text on its line.
  bool startsMidLine(std::uint32_t start) const noexcept;
  bool adjacent(std::uint32_t start) const noexcept { return _lastOriginalEnd == start; }
  std::u16string_view lineEnd() const;
  const YIniSourceRecord::Style& fileStyle() const;
  std::u16string styleText(const std::pair<std::uint32_t, std::uint32_t>& range) const;
  std::u16string styleLineEnd(const OptionStyle& style) const;
  std::u16string styleIndent(const OptionStyle& style) const;
  void noteTail(std::u16string_view text);

  std::int64_t loadedIndex(const void* element, int kind) const;
  void flushSkipped(std::size_t limit);
  // The end of the entries before the first section (the unread tail excluded).
  std::size_t headEnd();
  bool writeSection(YIniSection& section, std::int64_t index);
  bool writeChildren(YIniSection& section, bool sectionInPlace);
  bool writeOption(YIniOption& option, std::int64_t index, bool inPlace, OptionStyle& style);
  bool writeComment(YIniComment& comment, std::int64_t index, bool inPlace);
  // The value's text as it is written: its first line, then each further
  // line trimmed, on a continuation line in `style`. False for an empty one.
  bool renderValue(const YString& value, const OptionStyle& style, std::u16string& out);
  bool fail(const YString& element, const char* reason);

  YIniDocument& _document;
  const YIniSourceRecord* _record;
  std::shared_ptr<YError>* _error = nullptr;
  std::vector<Piece> _pieces;
  std::u16string _fresh;
  std::uint32_t _lastOriginalEnd = 0;  // where the last piece ended, when it was original text
  // The last (up to three) units written, oldest first.
  char16_t _tail[3] = {};
  std::uint8_t _tailLength = 0;
  void noteTailUnit(char16_t unit) noexcept;
  bool _wroteAnything = false;
  bool _lastLineIsOption = false;  // an indented line written next would continue an option
  std::size_t _nextSkipped = 0;
  std::size_t _headEnd = SIZE_MAX;  // computed when first asked
  const YIniSection* _currentSection = nullptr;

  // Encoding state.
  YStringEncoding _bodyEncoding = YUTF8StringEncoding;
  std::vector<std::string> _freshBytes;  // per fresh piece, encoded up front
  std::size_t _piece = 0, _freshPiece = 0;
  std::uint32_t _at = 0;
  bool _markGiven = false;
  std::string _buffer;
  std::shared_ptr<YError> _failure;  // why kept text could not be encoded
};
