// A text writer that encodes straight into UTF-8 bytes, for saving.
// Private to the library: not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "YError.h"
#include "YFile.h"
#include "YTextWriter.h"

/// Appends what it is given to a byte string in UTF-8, so that a document
/// saved as UTF-8 is never held as UTF-16 text as well. It only appends:
/// seek() to anywhere but the end fails. A lone surrogate cannot be encoded;
/// finish() reports the first one, at its position in the UTF-16 text.
class YUTF8Writer : public YTextWriter {
 public:
  explicit YUTF8Writer(std::size_t capacity = 0);

  void seek(std::int64_t position) override;
  void write(const YString& string) override;
  void writeLine(const YString& string) override;
  void writeLine() override;
  /// Appends `pieces` one after another, as one write() of their concatenation.
  void writePieces(std::initializer_list<std::u16string_view> pieces);
  /// Appends `name`, "=", `value` and a line end: writePieces() of the four,
  /// for the line nearly every option is written as.
  void writeOptionLine(std::u16string_view name, std::u16string_view value);

  /// False, with `*error` (when not null), when the text held a lone surrogate.
  bool finish(std::shared_ptr<YError>* error);
  std::string_view bytes() const noexcept { return _bytes.view().substr(0, _size); }
  /// Drops the bytes written so far (taken elsewhere), keeping the room and
  /// the count of units: writing goes on as if they were still there.
  void dropBytes() noexcept { _size = 0; }
  /// Whether the text so far held a lone surrogate (finish() then fails).
  bool heldLoneSurrogate() const noexcept { return _loneSurrogate != UINT64_MAX; }

 private:
  void append(std::u16string_view units);
  // Room for `more` bytes after the end.
  char* reserve(std::size_t more) {
    if (_bytes.size() - _size < more) grow(more);
    return _bytes.data() + _size;
  }
  void grow(std::size_t more);
  // Appends `units` as UTF-8 (a lone surrogate as U+FFFD).
  void encode(std::u16string_view units);

  // The room for the bytes, from the large-buffer allocator (a big save's
  // pages are faulted in at once, not one by one as the text grows), and how
  // much of it is written.
  YFileBytes _bytes;
  std::size_t _size = 0;
  std::uint64_t _units = 0;               // UTF-16 code units written
  std::uint64_t _loneSurrogate = UINT64_MAX;  // position of the first one
  char16_t _high = 0;                     // a high surrogate waiting for its pair
};
