#include "YUTF8Writer.h"

#include "YException.h"
#include "YStringEncoding.h"

namespace {
bool isHigh(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLow(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }
}  // namespace

YUTF8Writer::YUTF8Writer(std::size_t capacity) { _bytes.reserve(capacity); }

void YUTF8Writer::seek(std::int64_t position) {
  if (position < 0 || static_cast<std::uint64_t>(position) != _units)
    throw YRangeException(YString(u"YUTF8Writer only appends"));
}

void YUTF8Writer::append(std::u16string_view units) {
  if (units.empty()) return;
  if (!_high) {
    // ASCII, nearly all of an INI file: copied in one pass. The rest, from
    // the first other unit on, takes the general path below.
    const std::size_t start = _bytes.size();
    _bytes.resize(start + units.size());
    char* out = _bytes.data() + start;
    std::size_t i = 0;
    for (; i < units.size() && units[i] < 0x80; ++i) out[i] = static_cast<char>(units[i]);
    _units += i;
    if (i == units.size()) return;
    _bytes.resize(start + i);
    units.remove_prefix(i);
  }
  // A pair split between two pieces is joined; a surrogate without its pair
  // is noted (and encoded as U+FFFD, though finish() then fails).
  if (_high) {
    const char16_t pair[2] = {_high, units[0]};
    _high = 0;
    if (isLow(units[0])) {
      ydetail::appendUTF8(std::u16string_view(pair, 2), _bytes);
      _units += 2;
      units.remove_prefix(1);
    } else {
      if (_loneSurrogate == UINT64_MAX) _loneSurrogate = _units;
      ydetail::appendUTF8(std::u16string_view(pair, 1), _bytes);
      _units += 1;
    }
  }
  char16_t held = 0;
  if (!units.empty() && isHigh(units.back())) {
    held = units.back();
    units.remove_suffix(1);
  }
  if (_loneSurrogate == UINT64_MAX) {
    for (std::size_t i = 0; i < units.size(); ++i) {
      if (isHigh(units[i]) && i + 1 < units.size() && isLow(units[i + 1])) {
        ++i;
      } else if (isHigh(units[i]) || isLow(units[i])) {
        _loneSurrogate = _units + i;
        break;
      }
    }
  }
  ydetail::appendUTF8(units, _bytes);
  _units += units.size();
  _high = held;
}

void YUTF8Writer::write(const YString& string) {
  if (string.isNull()) throw YInvalidArgumentException(YString(u"-[YUTF8Writer write:]: nil argument"));
  append(string.view());
}

void YUTF8Writer::writeLine(const YString& string) {
  write(string);
  writeLine();
}

void YUTF8Writer::writeLine() { append(u"\n"); }

void YUTF8Writer::writePieces(std::initializer_list<std::u16string_view> pieces) {
  for (std::u16string_view piece : pieces) append(piece);
}

bool YUTF8Writer::finish(std::shared_ptr<YError>* error) {
  if (_high) {
    if (_loneSurrogate == UINT64_MAX) _loneSurrogate = _units;
    const char16_t lone[1] = {_high};
    _high = 0;
    ydetail::appendUTF8(std::u16string_view(lone, 1), _bytes);
    _units += 1;
  }
  if (_loneSurrogate == UINT64_MAX) return true;
  if (error)
    *error = YError::errorWithDomainCodeDescription(
        YFoundationErrorDomain, YFileWriteInapplicableStringEncodingError,
        YString::stringWithFormat("The text holds a lone surrogate at position %llu, which UTF-8 cannot represent",
                                  static_cast<unsigned long long>(_loneSurrogate)));
  return false;
}
