/// \file YString.h
/// The shared UTF-16 string handle.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

class YCharacterSet;
class YObject;
class YError;
class YString;

/// Numeric identifier of a text encoding (see YStringEncoding.h).
using YStringEncoding = std::uint64_t;

namespace ydetail {
// The shared string. Immutable strings keep their code units right after the
// header (one allocation); mutable strings keep a separate growable buffer.
// The header is 8 bytes: lengths stay below 2^31 code units. Defined here so
// that the most used reads (length, characters) are inline.
struct YStringRep {
  std::atomic<std::uint32_t> refs;
  std::uint32_t length : 31;
  std::uint32_t isMutable : 1;
};

struct YMutableStringRep : YStringRep {
  std::size_t capacity;
  char16_t* buffer;
};

// While the process has one thread (as the C library reports; it never
// becomes true again once a second thread started, and starting one orders
// memory), counts change without locked instructions, as the standard
// library's shared pointers do.
inline bool stringsSingleThreaded() noexcept {
#if __has_include(<sys/single_threaded.h>)
  return __libc_single_threaded;
#else
  return false;
#endif
}

inline void retainRep(YStringRep* rep) noexcept {
  if (!rep) return;
  if (stringsSingleThreaded())
    rep->refs.store(rep->refs.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  else
    rep->refs.fetch_add(1, std::memory_order_relaxed);
}

// Drops one count of a string other handles share, inline, while the process
// has one thread; false otherwise (the caller releases out of line).
inline bool releaseSharedRep(YStringRep* rep) noexcept {
  const std::uint32_t refs = rep->refs.load(std::memory_order_relaxed);
  if (refs == 1 || !stringsSingleThreaded()) return false;
  rep->refs.store(refs - 1, std::memory_order_relaxed);
  return true;
}

// Copies `n` code units between buffers that do not overlap. The short
// pieces a line is made of (brackets, "=", names, values) take two fixed-size
// copies of the first and last units, which may overlap each other, instead
// of a call or a loop.
inline void copyUnits(char16_t* out, const char16_t* in, std::size_t n) noexcept {
  if (n >= 8) {
    if (n > 16) {
      std::memcpy(out, in, n * sizeof(char16_t));
      return;
    }
    std::memcpy(out, in, 16);
    std::memcpy(out + n - 8, in + n - 8, 16);
  } else if (n >= 4) {
    std::memcpy(out, in, 8);
    std::memcpy(out + n - 4, in + n - 4, 8);
  } else if (n >= 2) {
    std::memcpy(out, in, 4);
    std::memcpy(out + n - 2, in + n - 2, 4);
  } else if (n == 1) {
    *out = *in;
  }
}

// The pieces of YString::appendEach(): a view of code units, or one unit.
inline std::size_t unitsIn(std::u16string_view units) noexcept { return units.size(); }
inline std::size_t unitsIn(char16_t) noexcept { return 1; }
inline char16_t* putUnits(char16_t* out, std::u16string_view units) noexcept {
  copyUnits(out, units.data(), units.size());
  return out + units.size();
}
inline char16_t* putUnits(char16_t* out, char16_t unit) noexcept {
  *out = unit;
  return out + 1;
}
inline std::u16string_view viewOf(std::u16string_view units) noexcept { return units; }
inline std::u16string_view viewOf(const char16_t& unit) noexcept { return {&unit, 1}; }

/// Appends code point `cp` (at most U+10FFFF, no surrogate) as UTF-16.
inline void appendUTF16(std::u16string& out, char32_t cp) {
  if (cp >= 0x10000) {
    cp -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  } else {
    out.push_back(static_cast<char16_t>(cp));
  }
}
// Widens the `n` Latin-1 characters at `in` to the code units at `out`
// (room for n, not overlapping), each to the unit of the same value.
void widenLatin1(char16_t* out, const char* in, std::size_t n) noexcept;

}  // namespace ydetail

/// One argument of YString::stringWithFormat. Built implicitly from strings,
/// objects, C strings and numbers. It refers to the argument without owning
/// or copying it, so it lives only as long as the call it is made for.
class YFormatArg {
 public:
  /// What the argument holds; each kind has its own accessor below.
  enum class Kind { String, Object, CString, Signed, Unsigned, Double, Pointer };

  /// A string (for `%@`).
  YFormatArg(const YString& s) noexcept : _kind(Kind::String), _string(&s) {}
  YFormatArg(const char16_t* s) = delete;  // wrap UTF-16 literals in YString
  /// A C string in UTF-8 (for `%s`).
  YFormatArg(const char* s) noexcept : _kind(Kind::CString), _cstring(s) {}
  /// A std::string's text in UTF-8 (for `%s`).
  YFormatArg(const std::string& s) noexcept : _kind(Kind::CString), _cstring(s.c_str()) {}
  /// An object, printed through its description() (for `%@`).
  YFormatArg(const YObject* o) noexcept : _kind(Kind::Object), _object(o) {}
  /// A shared object, printed through its description() (for `%@`).
  template <class T>
    requires std::is_base_of_v<YObject, T>
  YFormatArg(const std::shared_ptr<T>& o) noexcept : _kind(Kind::Object), _object(o.get()) {}
  /// A signed integer (for any integer directive), with its type's size.
  template <class T>
    requires(std::is_integral_v<T> && std::is_signed_v<T>)
  YFormatArg(T v) noexcept : _kind(Kind::Signed), _size(sizeof(T)), _signed(v) {}
  /// An unsigned integer (for any integer directive), with its type's size.
  template <class T>
    requires(std::is_integral_v<T> && !std::is_signed_v<T>)
  YFormatArg(T v) noexcept : _kind(Kind::Unsigned), _size(sizeof(T)), _unsigned(v) {}
  /// An enumerator of an unscoped enumeration: its value in the underlying
  /// integer type, as an integer of that type.
  template <class T>
    requires(std::is_enum_v<T> && std::is_convertible_v<T, std::underlying_type_t<T>>)
  YFormatArg(T v) noexcept : YFormatArg(static_cast<std::underlying_type_t<T>>(v)) {}
  /// A number (for `%f %g %e`).
  YFormatArg(double v) noexcept : _kind(Kind::Double), _double(v) {}
  /// A pointer (for `%p`).
  YFormatArg(const void* p) noexcept : _kind(Kind::Pointer), _pointer(p) {}

  /// What the argument holds.
  Kind kind() const noexcept { return _kind; }
  /// The string; only for Kind::String.
  const YString& string() const noexcept { return *_string; }
  /// The object (may be null); only for Kind::Object.
  const YObject* object() const noexcept { return _object; }
  /// The C string (may be null); only for Kind::CString.
  const char* cstring() const noexcept { return _cstring; }
  /// The value; only for Kind::Signed.
  long long signedValue() const noexcept { return _signed; }
  /// The value; only for Kind::Unsigned.
  unsigned long long unsignedValue() const noexcept { return _unsigned; }
  /// The size in bytes of the integer's own type (before C's promotion to
  /// int); only for Kind::Signed and Kind::Unsigned.
  std::size_t integerSize() const noexcept { return _size; }
  /// The value; only for Kind::Double.
  double doubleValue() const noexcept { return _double; }
  /// The pointer; only for Kind::Pointer.
  const void* pointer() const noexcept { return _pointer; }

 private:
  Kind _kind;
  std::uint8_t _size = 0;
  union {
    const YString* _string;
    const YObject* _object;
    const char* _cstring;
    long long _signed;
    unsigned long long _unsigned;
    double _double;
    const void* _pointer;
  };
};

/// A handle to a shared string of UTF-16 code units.
///
/// The handle has reference semantics, like a pointer to a string object:
/// copying it shares the string, so a change through one mutable handle shows
/// through every copy. A default-constructed handle is null: an absent string,
/// distinct from the empty string in every comparison. Positions and lengths
/// count UTF-16 code units (a character outside the BMP counts two).
///
/// A string is mutable or immutable for life. Mutating an immutable string,
/// or mutating through a null handle, throws YInvalidArgumentException; an
/// index beyond the string throws YRangeException. Mutating members are
/// const: they change the shared string, not the handle. Reference counts are
/// atomic; the text itself is not locked.
class YString {
 public:
  /// Index returned when nothing is found.
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);
  /// The widest width or precision a directive of stringWithFormat() may have.
  static constexpr std::size_t formatFieldLimit = 4096;

  /// A null (absent) string.
  YString() noexcept = default;
  /// A null (absent) string, as `YString s = nullptr;` reads.
  YString(std::nullptr_t) noexcept {}
  /// An immutable string of the given UTF-16 code units; a null pointer gives a null string.
  YString(const char16_t* utf16);
  /// An immutable string holding a copy of `utf16` (an empty view gives "", not null).
  YString(std::u16string_view utf16);
  /// An immutable string holding a copy of `utf16`.
  YString(const std::u16string& utf16) : YString(std::u16string_view(utf16)) {}
  /// An immutable string from UTF-8; a null pointer gives a null string.
  /// Invalid UTF-8 throws YInvalidArgumentException.
  YString(const char* utf8);
  /// An immutable string from UTF-8; invalid UTF-8 throws YInvalidArgumentException.
  YString(const std::string& utf8) : YString(fromUTF8(utf8)) {}

  /// Another handle to the same string (shared, not copied).
  YString(const YString& other) noexcept : _rep(other._rep) { ydetail::retainRep(_rep); }
  /// Takes `other`'s string; `other` becomes null.
  YString(YString&& other) noexcept : _rep(other._rep) { other._rep = nullptr; }
  /// Makes this handle share `other`'s string.
  YString& operator=(const YString& other) noexcept {
    if (_rep != other._rep) {  // the same string again changes no count
      const YString old(std::move(*this));  // let go of when it ends
      _rep = other._rep;
      ydetail::retainRep(_rep);
    }
    return *this;
  }
  /// Takes `other`'s string; `other` becomes null.
  YString& operator=(YString&& other) noexcept {
    if (this != &other) {
      if (_rep && !ydetail::releaseSharedRep(_rep)) releaseRep();
      _rep = other._rep;
      other._rep = nullptr;
    }
    return *this;
  }
  /// Lets go of the string; the last handle frees it.
  ~YString() {
    if (_rep && !ydetail::releaseSharedRep(_rep)) releaseRep();
  }

  /// An immutable string from UTF-8; invalid UTF-8 throws YInvalidArgumentException.
  static YString fromUTF8(std::string_view utf8);
  /// An immutable string of `length` code units copied from `characters`.
  static YString stringWithCharacters(const char16_t* characters, std::size_t length);
  /// An immutable string of `length` Latin-1 (ISO 8859-1) characters from
  /// `characters`, each widened to the code unit of the same value; ASCII
  /// text is Latin-1.
  static YString stringWithLatin1Characters(const char* characters, std::size_t length);
  /// A new immutable string of the pieces one after another (one allocation).
  static YString stringByConcatenating(std::initializer_list<std::u16string_view> pieces);
  /// A new, empty mutable string.
  static YString mutableString(std::size_t capacity = 0);
  /// A new mutable string holding a copy of `string`'s text (empty for null).
  static YString mutableStringWithString(const YString& string);

  /// Formats `format` with printf-like directives, each
  /// `%[flags][width][.precision][length]conversion`; the output is whole,
  /// however long.
  /// - `%@` takes a string's text or an object's description(), `%s` a C
  ///   string in UTF-8 (or a string); a null prints as "(null)". A precision
  ///   keeps at most that many UTF-16 code units (a cut that would split a
  ///   surrogate pair comes before it); a width pads with spaces to that many
  ///   code units, on the left, or on the right with the '-' flag.
  /// - `%d %i %u %x %X %o` take integers and print what printf prints for the
  ///   argument's own type, after C's promotion of narrower types to int: `%x`
  ///   of the int -1 gives "ffffffff", of the long -1 "ffffffffffffffff", and
  ///   an unsigned argument prints unsigned even for `%d`. A length modifier
  ///   (`hh h l ll L q j z t`) is accepted and changes nothing. An enumerator
  ///   of an unscoped enumeration is an integer of its underlying type.
  /// - `%c` takes a code point and gives its one or two UTF-16 code units; a
  ///   negative char is a Latin-1 byte, as in C. Width and '-' apply as for
  ///   `%s`. Any other negative value, a surrogate or a value above U+10FFFF
  ///   throws YInvalidArgumentException.
  /// - `%f %F %e %E %g %G` take numbers (integers too); `%p` a pointer or an
  ///   object's address (width and '-' as for `%s`); `%%` gives a percent sign.
  ///
  /// A directive without an argument or with one of the wrong kind, an
  /// unknown or malformed directive (parts out of order, as in `%1.2.3d`, or
  /// cut off by the end), and a width or precision above formatFieldLimit
  /// (4096) throw YInvalidArgumentException; the message of the last three
  /// quotes the directive.
  template <class... Args>
  static YString stringWithFormat(const char* format, const Args&... args) {
    const std::array<YFormatArg, sizeof...(Args)> list{YFormatArg(args)...};
    return formatWithArguments(format, list.data(), list.size());
  }
  /// stringWithFormat() with the arguments as an array of `count` entries.
  static YString formatWithArguments(const char* format, const YFormatArg* args, std::size_t count);

  /// Reads a whole file, detecting its encoding: a byte-order mark first, then
  /// strict UTF-8, then a statistical guess above a confidence floor. Returns
  /// null when the file cannot be read or decoded, with `*error` set when
  /// `error` is not null. `*usedEncoding` receives the encoding when not null.
  static YString stringWithContentsOfFileUsedEncodingError(const YString& path, YStringEncoding* usedEncoding,
                                                           std::shared_ptr<YError>* error);
  /// Reads a whole file in the given encoding; null and `*error` on failure.
  static YString stringWithContentsOfFileEncodingError(const YString& path, YStringEncoding encoding,
                                                       std::shared_ptr<YError>* error);
  /// Writes the text to `path` in `encoding`. A text the encoding cannot
  /// represent fails before the file is touched; nothing is substituted.
  /// With `atomically` the text goes to a new file in the same folder, is
  /// flushed to disk, takes the target's permission bits (and owner where
  /// permitted), and replaces the target by a rename, so the target is never
  /// half-written; without it the target is truncated and written in place,
  /// with no flush. A symbolic link is followed; a target that is not a
  /// regular file (a folder, FIFO, device, link loop) is refused. The details,
  /// the risks of the in-place mode and the error codes are those of
  /// YWriteFileChunks (YFile.h). Returns false and sets `*error` (when not
  /// null) on any failure; never throws for I/O or encoding failures.
  [[nodiscard]] bool writeToFileAtomicallyEncodingError(const YString& path, bool atomically, YStringEncoding encoding,
                                          std::shared_ptr<YError>* error) const;

  /// True for the absent string.
  bool isNull() const noexcept { return _rep == nullptr; }
  /// True for a string made mutable (mutableString(), mutableCopy()); false for null.
  bool isMutable() const noexcept { return _rep && _rep->isMutable; }
  /// Number of UTF-16 code units; 0 for null.
  std::size_t length() const noexcept { return _rep ? _rep->length : 0; }
  /// The code unit at `index`; YRangeException when out of bounds or null.
  char16_t characterAtIndex(std::size_t index) const;
  /// Direct access to the code units (valid until the next mutation).
  const char16_t* characters() const noexcept {
    if (!_rep) return u"";
    return _rep->isMutable ? static_cast<const ydetail::YMutableStringRep*>(_rep)->buffer
                           : reinterpret_cast<const char16_t*>(_rep + 1);
  }
  /// The code units as a view (empty for null; valid until the next mutation).
  std::u16string_view view() const noexcept { return {characters(), length()}; }

  /// Code unit for code unit equality. False when either string is null.
  bool isEqualToString(const YString& other) const noexcept;
  /// The same string object (both null counts as identical).
  bool isIdenticalTo(const YString& other) const noexcept { return _rep == other._rep; }
  /// Null-aware equality: both null, or both present and equal.
  friend bool operator==(const YString& a, const YString& b) noexcept {
    return a._rep == b._rep || (a._rep != nullptr && b._rep != nullptr && a.isEqualToString(b));
  }
  /// A hash of the code units, equal for equal strings (null hashes as "").
  std::size_t hash() const noexcept;

  /// Whether the string begins with `prefix`; false when either is null.
  bool hasPrefix(const YString& prefix) const noexcept;
  /// Whether the string ends with `suffix`; false when either is null.
  bool hasSuffix(const YString& suffix) const noexcept;
  /// Position of the first occurrence of `string`, or npos.
  std::size_t indexOfString(const YString& string, std::size_t from = 0) const noexcept;

  /// A new immutable string of [location, location + length); YRangeException when out of bounds.
  YString substringWithRange(std::size_t location, std::size_t length) const;
  /// A new immutable string from `index` to the end; YRangeException past the end.
  YString substringFromIndex(std::size_t index) const;
  /// A new immutable string of the first `index` code units; YRangeException past the end.
  YString substringToIndex(std::size_t index) const;
  /// A new immutable string without leading and trailing members of `set`.
  /// A null set removes nothing. A null receiver yields null.
  YString stringByTrimmingCharactersInSet(const YCharacterSet& set) const;

  /// The text in UTF-8 (lone surrogates become U+FFFD); "" for null.
  std::string UTF8String() const;
  /// A copy of the code units; "" for null.
  std::u16string u16string() const { return std::u16string(view()); }

  /// A snapshot: later changes to this string cannot change the copy. An
  /// immutable string returns itself. Null stays null.
  YString copy() const { return isMutable() ? snapshotOfMutable() : *this; }
  /// A new mutable string with the same text; null stays null.
  YString mutableCopy() const;

  /// Inserts `string` at `index`. A null `string` throws
  /// YInvalidArgumentException, an index beyond the length YRangeException;
  /// in both cases nothing changes.
  void insertStringAtIndex(const YString& string, std::size_t index) const;
  /// Appends `string`; fails as insertStringAtIndex() does.
  void appendString(const YString& string) const;
  /// Appends `length` code units from `characters` (which may point into this
  /// string). A length that would take the string past 2^31 - 1 code units
  /// throws std::bad_alloc and changes nothing.
  void appendCharacters(const char16_t* characters, std::size_t length) const;
  /// Appends one code unit.
  void appendCharacter(char16_t character) const { appendCharacters(&character, 1); }
  /// Appends each of `pieces` in turn, growing the buffer at most once (the
  /// pieces may point into this string).
  void appendPieces(std::initializer_list<std::u16string_view> pieces) const {
    std::size_t total = 0;
    for (auto piece : pieces) total += piece.size();
    if (char16_t* out = roomAtEnd(total)) {
      for (auto piece : pieces) {
        ydetail::copyUnits(out, piece.data(), piece.size());
        out += piece.size();
      }
      return;
    }
    appendPiecesSlowly(pieces);
  }
  /// The same as appendPieces() for pieces known when compiling: each a view
  /// of code units or a single code unit, copied without a loop over them.
  template <class... Pieces>
  void appendEach(Pieces... pieces) const {
    if (char16_t* out = roomAtEnd((ydetail::unitsIn(pieces) + ...))) {
      ((out = ydetail::putUnits(out, pieces)), ...);
      return;
    }
    appendPiecesSlowly({ydetail::viewOf(pieces)...});
  }
  /// Removes [location, location + length); a range beyond the string throws
  /// YRangeException and changes nothing.
  void deleteCharactersInRange(std::size_t location, std::size_t length) const;
  /// Replaces the whole text with a copy of `string`'s (null empties it).
  void setString(const YString& string) const;

 private:
  explicit YString(ydetail::YStringRep* rep) noexcept : _rep(rep) {}
  void releaseRep() noexcept;  // a count ~YString() could not drop inline
  void appendPiecesSlowly(std::initializer_list<std::u16string_view> pieces) const;
  // For appending `total` units without growing: where they go, with the
  // length already counting them; null when the string is not mutable or
  // has no room for them (nothing changes then). Nothing moves, so pieces
  // of this string's own text lie before where they go.
  char16_t* roomAtEnd(std::size_t total) const noexcept {
    if (!_rep || !_rep->isMutable) return nullptr;
    auto* rep = static_cast<ydetail::YMutableStringRep*>(_rep);
    if (total > rep->capacity - rep->length) return nullptr;
    char16_t* const out = rep->buffer + rep->length;
    rep->length = static_cast<std::uint32_t>(rep->length + total);
    return out;
  }
  YString snapshotOfMutable() const;
  void requireMutable(const char* operation) const {
    if (!isMutable()) throwNotMutable(operation);
  }
  [[noreturn]] void throwNotMutable(const char* operation) const;
  ydetail::YStringRep* _rep = nullptr;
};

/// Writes the text in UTF-8 between double quotes, or (null), for diagnostics and test output.
std::ostream& operator<<(std::ostream& os, const YString& s);

/// Hashing for unordered containers, by text (YString::hash()).
template <>
struct std::hash<YString> {
  /// The string's hash().
  std::size_t operator()(const YString& s) const noexcept { return s.hash(); }
};
