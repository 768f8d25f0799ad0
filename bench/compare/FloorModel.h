// The floor model's elements, reader and writer, shared by compare_floor (a
// file's round trip) and compare_small_floor (a small text's, in process);
// compare_floor.cpp describes what the model does and why.
#pragma once

#include <fcntl.h>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace floormodel {

// ---- memory -----------------------------------------------------------------

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

// Where every element, string and list of a document comes from: a bump
// arena over 64 MiB mappings, faulted in 2 MiB at a time with one
// MADV_POPULATE_WRITE call, in small pages, as Corvane's pool does by
// default. Nothing is freed block by block: a document's memory is taken back
// at once when it ends (rewind()), to be reused by the next.
class Arena {
 public:
  struct Mark {
    std::size_t region;
    char* next;
  };

  Arena() = default;
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;
  ~Arena() {
    for (const Region& r : _regions) ::munmap(r.base, r.size);
  }

  void* allocate(std::size_t bytes) {
    bytes = (bytes + 15) & ~std::size_t(15);
    if (_regions.empty() || bytes > static_cast<std::size_t>(_regions[_current].populated - _next)) grow(bytes);
    void* block = _next;
    _next += bytes;
    return block;
  }

  Mark mark() const { return {_current, _next}; }
  // Takes back everything allocated since `mark`; the memory stays faulted in.
  void rewind(Mark mark) {
    _current = mark.region;
    _next = mark.next ? mark.next : (_regions.empty() ? nullptr : _regions[0].base);
  }

 private:
  static constexpr std::size_t kRegion = std::size_t(64) << 20;
  static constexpr std::size_t kStep = std::size_t(2) << 20;
  struct Region {
    char* base;
    std::size_t size;
    char* populated;
  };

  void grow(std::size_t bytes) {
    // On to a region with room for the block: the next one kept from before
    // a rewind, or a new one.
    while (_regions.empty() || static_cast<std::size_t>(_regions[_current].base + _regions[_current].size - _next) < bytes) {
      if (!_regions.empty() && _current + 1 < _regions.size()) {
        _next = _regions[++_current].base;
        continue;
      }
      const std::size_t size = (std::max(kRegion, bytes) + kStep - 1) & ~(kStep - 1);
      void* base = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
      if (base == MAP_FAILED) throw std::bad_alloc();
      _regions.push_back({static_cast<char*>(base), size, static_cast<char*>(base)});
      _current = _regions.size() - 1;
      _next = static_cast<char*>(base);
    }
    Region& r = _regions[_current];
    while (static_cast<std::size_t>(r.populated - _next) < bytes) {
      const std::size_t step = std::min(kStep, static_cast<std::size_t>(r.base + r.size - r.populated));
      if (::madvise(r.populated, step, MADV_POPULATE_WRITE) != 0)
        for (std::size_t i = 0; i < step; i += 4096) r.populated[i] = 0;
      r.populated += step;
    }
  }

  std::vector<Region> _regions;
  std::size_t _current = 0;
  char* _next = nullptr;
};

inline Arena& arena() {
  static Arena instance;
  return instance;
}

// A standard allocator over the arena: deallocation is a no-op.
template <class T>
struct ArenaAllocator {
  using value_type = T;
  ArenaAllocator() = default;
  template <class U>
  ArenaAllocator(const ArenaAllocator<U>&) {}
  T* allocate(std::size_t n) { return static_cast<T*>(arena().allocate(n * sizeof(T))); }
  void deallocate(T*, std::size_t) {}
  friend bool operator==(ArenaAllocator, ArenaAllocator) { return true; }
};

// An element and its reference counts in one arena block.
template <class T, class... Args>
std::shared_ptr<T> makeElement(Args&&... args) {
  return std::allocate_shared<T>(ArenaAllocator<T>(), std::forward<Args>(args)...);
}

// ---- strings ----------------------------------------------------------------

// A counted, immutable run of UTF-16 code units in one allocation.
struct Rep {
  std::atomic<std::uint32_t> refs;
  std::uint32_t length;
  char16_t* chars() { return reinterpret_cast<char16_t*>(this + 1); }
};

inline Rep* newRep(std::size_t length) {
  void* memory = arena().allocate(sizeof(Rep) + length * sizeof(char16_t));
  return new (memory) Rep{{1}, static_cast<std::uint32_t>(length)};
}

inline Rep* copyRep(const char16_t* chars, std::size_t length) {
  Rep* rep = newRep(length);
  std::memcpy(rep->chars(), chars, length * sizeof(char16_t));
  return rep;
}

// While the process has one thread, counts change without locked
// instructions, as Corvane's strings and the standard shared pointers do.
inline bool singleThreaded() {
#if __has_include(<sys/single_threaded.h>)
  return __libc_single_threaded;
#else
  return false;
#endif
}

inline void retain(Rep* rep) {
  if (!rep) return;
  if (singleThreaded())
    rep->refs.store(rep->refs.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  else
    rep->refs.fetch_add(1, std::memory_order_relaxed);
}

inline void release(Rep* rep) {
  if (!rep) return;
  // The last reference's memory goes back with the arena's.
  if (singleThreaded()) {
    const std::uint32_t refs = rep->refs.load(std::memory_order_relaxed);
    rep->refs.store(refs - 1, std::memory_order_relaxed);
    if (refs == 1) rep->~Rep();
  } else if (rep->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    rep->~Rep();
  }
}

// A string that owns a copy of its characters: one pointer.
class CopiedString {
 public:
  CopiedString() = default;
  CopiedString(const CopiedString& other) : _rep(other._rep) { retain(_rep); }
  CopiedString& operator=(CopiedString other) {
    std::swap(_rep, other._rep);
    return *this;
  }
  ~CopiedString() { release(_rep); }

  // A piece of the loaded text: copied.
  static CopiedString piece(Rep* text, std::size_t offset, std::size_t length) {
    return CopiedString(copyRep(text->chars() + offset, length));
  }
  // A string of its own (taking over a new rep).
  static CopiedString adopt(Rep* rep) { return CopiedString(rep); }
  // A piece of this string: the same string when it is the whole.
  CopiedString sub(std::size_t offset, std::size_t length) const {
    if (offset == 0 && length == size()) return *this;
    return CopiedString(copyRep(data() + offset, length));
  }

  bool isNull() const { return _rep == nullptr; }
  const char16_t* data() const { return _rep->chars(); }
  std::size_t size() const { return _rep->length; }
  std::u16string_view view() const { return isNull() ? std::u16string_view() : std::u16string_view(data(), size()); }

 private:
  explicit CopiedString(Rep* rep) : _rep(rep) {}
  Rep* _rep = nullptr;
};

// A string that refers to a counted run of characters, the loaded text or a
// rep of its own: owner, offset, length.
class SlicedString {
 public:
  SlicedString() = default;
  SlicedString(const SlicedString& other) : _owner(other._owner), _offset(other._offset), _length(other._length) {
    retain(_owner);
  }
  SlicedString& operator=(SlicedString other) {
    std::swap(_owner, other._owner);
    _offset = other._offset;
    _length = other._length;
    return *this;
  }
  ~SlicedString() { release(_owner); }

  static SlicedString piece(Rep* text, std::size_t offset, std::size_t length) {
    retain(text);
    return SlicedString(text, offset, length);
  }
  static SlicedString adopt(Rep* rep) { return SlicedString(rep, 0, rep->length); }
  SlicedString sub(std::size_t offset, std::size_t length) const {
    retain(_owner);
    return SlicedString(_owner, _offset + offset, length);
  }

  bool isNull() const { return _owner == nullptr; }
  const char16_t* data() const { return _owner->chars() + _offset; }
  std::size_t size() const { return _length; }
  std::u16string_view view() const { return isNull() ? std::u16string_view() : std::u16string_view(data(), size()); }

 private:
  SlicedString(Rep* owner, std::size_t offset, std::size_t length)
      : _owner(owner), _offset(static_cast<std::uint32_t>(offset)), _length(static_cast<std::uint32_t>(length)) {}
  Rep* _owner = nullptr;
  std::uint32_t _offset = 0;
  std::uint32_t _length = 0;
};

// Space, tab and the other Unicode space separators.
inline bool isWhitespace(char16_t c) {
  return c == u' ' || c == u'\t' ||
         (c >= 0x80 && (c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x202F || c == 0x205F ||
                        c == 0x3000));
}

// The whitespace set and the line ends.
inline bool isWhitespaceOrNewline(char16_t c) {
  return isWhitespace(c) || (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

template <bool (*In)(char16_t), class Unit>
std::pair<std::size_t, std::size_t> trimmed(const Unit* s, std::size_t begin, std::size_t end) {
  while (begin < end && In(s[begin])) ++begin;
  while (end > begin && In(s[end - 1])) --end;
  return {begin, end};
}

// ---- elements ---------------------------------------------------------------

// Takes a leading "--slices" off the arguments: whether strings slice the text.
inline bool takeSlicesFlag(int& argc, char**& argv) {
  if (argc < 2 || std::strcmp(argv[1], "--slices") != 0) return false;
  --argc;
  ++argv;
  return true;
}

inline constexpr char kModifiedKey[] = "modified";
inline constexpr char kElementsKey[] = "elements";
constexpr std::uint32_t kObserveNew = 1;

enum class Kind : std::uint8_t { Comment, Option, Section, Document };

// The shared part of every element: its one observer registration and the
// announcement through it.
struct Element : std::enable_shared_from_this<Element> {
  explicit Element(Kind k) : kind(k) {}
  Element(const Element&) = delete;
  Element& operator=(const Element&) = delete;
  virtual ~Element() = default;
  virtual bool isModified() const = 0;
  // Delivery of an announcement of `key` by `object`.
  virtual void observe(const char* key, Element* object) {
    (void)key;
    (void)object;
  }

  void announce(const char* key) {
    if (observer && observedKey == key) observer->observe(key, this);
  }

  Element* observer = nullptr;
  const char* observedKey = nullptr;
  std::uint32_t observerOptions = 0;
  Kind kind;
  bool modified = false;  // a composite's cached flag
};

template <class S>
struct Comment final : Element {
  explicit Comment(S s) : Element(Kind::Comment), initialText(s), text(std::move(s)) {}
  bool isModified() const override { return text.view() != initialText.view() || text.isNull() != initialText.isNull(); }
  S initialText;
  S text;
};

template <class S>
struct Option final : Element {
  Option(S n, S v) : Element(Kind::Option), initialName(n), name(std::move(n)), initialValue(v), value(std::move(v)) {}
  bool isModified() const override {
    return name.isNull() != initialName.isNull() || name.view() != initialName.view() ||
           value.isNull() != initialValue.isNull() || value.view() != initialValue.view();
  }
  void setName(S n) {
    name = std::move(n);
    announce(kModifiedKey);
  }
  void setValue(S v) {
    value = std::move(v);
    announce(kModifiedKey);
  }
  S initialName;
  S name;
  S initialValue;
  S value;
};

using List = std::vector<std::shared_ptr<Element>, ArenaAllocator<std::shared_ptr<Element>>>;

// A list of children, its snapshot, and the modified flag kept current from
// the children's announcements.
struct Composite : Element {
  using Element::Element;
  // Unsubscribes from the children, then lets them go.
  ~Composite() override {
    for (auto& child : elements) child->observer = nullptr;
  }
  void addElement(std::shared_ptr<Element> child) {
    child->observer = this;
    child->observedKey = kModifiedKey;
    child->observerOptions = kObserveNew;
    elements.push_back(std::move(child));
    observe(kElementsKey, this);  // the composite observes its own list
  }
  void observe(const char* key, Element* object) override {
    if ((object == this && key == kElementsKey) || (object != this && key == kModifiedKey)) elementsChanged();
  }
  bool hasModifiedElements() const {
    if (elements.size() != initialElements.size()) return true;
    for (std::size_t i = 0; i < elements.size(); ++i)
      if (elements[i] != initialElements[i]) return true;
    for (const auto& child : elements)
      if (child->isModified()) return true;
    return false;
  }
  void elementsChanged() {
    bool now = hasModifiedElements();
    if (now == modified) return;
    modified = now;
    announce(kModifiedKey);
  }
  List initialElements;
  List elements;
};

template <class S>
struct Section final : Composite {
  explicit Section(S n) : Composite(Kind::Section), initialName(n), name(std::move(n)) {}
  bool isModified() const override {
    return name.isNull() != initialName.isNull() || name.view() != initialName.view() || modified;
  }
  S initialName;
  S name;
};

// The document also holds the text it was loaded from, and the arena's mark
// from before it: its elements, strings and lists go back in one step when it
// ends, after their destructors have run.
struct Document final : Composite {
  // `loaded` may be null when the text was read as ASCII bytes, which stay
  // in the arena (as the library keeps them for its preserving save).
  Document(Rep* loaded, std::size_t length, Arena::Mark start)
      : Composite(Kind::Document), text(loaded), loadedLength(length), start(start) {}
  ~Document() override {
    for (auto& child : elements) child->observer = nullptr;
    elements.clear();
    initialElements.clear();
    release(text);
    arena().rewind(start);
  }
  bool isModified() const override { return modified; }
  Rep* text;
  std::size_t loadedLength;
  Arena::Mark start;
};

// ---- reading ----------------------------------------------------------------

constexpr std::size_t kChunk = 65536;

inline void appendCodePoint(char16_t*& out, char32_t cp) {
  if (cp >= 0x10000) {
    cp -= 0x10000;
    *out++ = static_cast<char16_t>(0xD800 + (cp >> 10));
    *out++ = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
  } else {
    *out++ = static_cast<char16_t>(cp);
  }
}

// Decodes the complete sequences of [in, end) into out, invalid bytes as
// U+FFFD; returns where an incomplete sequence at the end starts (unless
// `last`).
inline const unsigned char* decode(const unsigned char* in, const unsigned char* end, char16_t*& out, bool last) {
  while (in < end) {
    if (end - in >= 16) {
      std::uint64_t a, b;
      std::memcpy(&a, in, 8);
      std::memcpy(&b, in + 8, 8);
      if (((a | b) & 0x8080808080808080ull) == 0) {
        for (int k = 0; k < 16; ++k) out[k] = in[k];
        in += 16;
        out += 16;
        continue;
      }
    }
    unsigned char c = *in;
    if (c < 0x80) {
      *out++ = c;
      ++in;
      continue;
    }
    int need = c >= 0xF0 && c <= 0xF4 ? 3 : c >= 0xE0 ? (c <= 0xEF ? 2 : 0) : c >= 0xC2 ? 1 : 0;
    if (need == 0) {
      *out++ = 0xFFFD;
      ++in;
      continue;
    }
    if (end - in <= need && !last) {
      // Possibly cut by the chunk: wait for the rest, unless already invalid.
      bool valid = true;
      for (const unsigned char* p = in + 1; p < end; ++p) valid = valid && (*p & 0xC0) == 0x80;
      if (valid) return in;
    }
    char32_t cp = c & (0x3F >> need);
    int got = 0;
    while (got < need && in + 1 + got < end && (in[1 + got] & 0xC0) == 0x80) cp = (cp << 6) | (in[1 + got++] & 0x3F);
    bool overlong = (need == 2 && cp < 0x800) || (need == 3 && cp < 0x10000);
    if (got < need || overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      *out++ = 0xFFFD;
      in += 1 + got;
      continue;
    }
    appendCodePoint(out, cp);
    in += 1 + need;
  }
  return in;
}

// The file's text as UTF-16, read and decoded a chunk at a time; null when it
// cannot be read.
inline Rep* readText(const char* path) {
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  struct stat st{};
  if (fd < 0 || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > 0x7FFFFFFF) {
    if (fd >= 0) ::close(fd);
    return nullptr;
  }
  // One code unit at most per byte; pages past the decoded end stay untouched.
  Rep* text = newRep(static_cast<std::size_t>(st.st_size));
  std::unique_ptr<unsigned char[]> buffer(new unsigned char[kChunk + 4]);
  char16_t* out = text->chars();
  char16_t* const limit = out + st.st_size;
  std::size_t carried = 0;
  bool first = true;
  for (;;) {
    ssize_t n = ::read(fd, buffer.get() + carried, kChunk);
    if (n < 0) {
      release(text);
      ::close(fd);
      return nullptr;
    }
    const unsigned char* begin = buffer.get();
    const unsigned char* end = begin + carried + static_cast<std::size_t>(n);
    if (first && end - begin >= 3 && begin[0] == 0xEF && begin[1] == 0xBB && begin[2] == 0xBF) begin += 3;
    first = false;
    // A file that grew since fstat is read up to its size then.
    if (out + (end - begin) > limit) end = begin + (limit - out);
    const unsigned char* rest = decode(begin, end, out, n == 0 || out + (end - begin) >= limit);
    carried = static_cast<std::size_t>(end - rest);
    std::memmove(buffer.get(), rest, carried);
    if (n == 0 || out >= limit) break;
  }
  ::close(fd);
  text->length = static_cast<std::uint32_t>(out - text->chars());
  return text;
}

// The file's bytes in the arena (null when it cannot be read); `size` gets
// their number.
inline const char* readBytes(const char* path, std::size_t& size) {
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  struct stat st{};
  if (fd < 0 || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > 0x7FFFFFFF) {
    if (fd >= 0) ::close(fd);
    return nullptr;
  }
  char* bytes = static_cast<char*>(arena().allocate(static_cast<std::size_t>(st.st_size) + 1));
  size = 0;
  for (;;) {
    ssize_t n = ::read(fd, bytes + size, std::min<std::size_t>(kChunk, static_cast<std::size_t>(st.st_size) - size));
    if (n < 0) {
      ::close(fd);
      return nullptr;
    }
    size += static_cast<std::size_t>(n);
    if (n == 0 || size == static_cast<std::size_t>(st.st_size)) break;
  }
  ::close(fd);
  return bytes;
}

// Whether all bytes are below 0x80 (UTF-8 without a byte-order mark that
// reads as the same code units).
inline bool isASCII(const char* bytes, std::size_t size) {
  std::size_t i = 0;
  std::uint64_t any = 0;
  for (; i + 8 <= size; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes + i, 8);
    any |= word;
  }
  for (; i < size; ++i) any |= static_cast<unsigned char>(bytes[i]);
  return (any & 0x8080808080808080ull) == 0;
}

// A UTF-8 string as UTF-16.
inline Rep* fromUTF8(const char* s) {
  std::size_t n = std::strlen(s);
  Rep* rep = newRep(n);
  char16_t* out = rep->chars();
  auto bytes = reinterpret_cast<const unsigned char*>(s);
  decode(bytes, bytes + n, out, true);
  rep->length = static_cast<std::uint32_t>(out - rep->chars());
  return rep;
}

// ---- loading ----------------------------------------------------------------

// Reads UTF-16 text (Unit char16_t), or ASCII bytes (Unit char) without
// widening them first: a copied string is then widened from its piece.
template <class S, class Unit = char16_t>
class Loader {
 public:
  // The loaded UTF-16 text, which slicing strings refer to.
  Loader(Rep* text, Document& document)
    requires std::is_same_v<Unit, char16_t>
      : Loader(text->chars(), text->length, document) {
    _text = text;
  }
  // ASCII bytes.
  Loader(const Unit* units, std::size_t n, Document& document) : _units(units), _n(n), _document(document) {
    char16_t lf = u'\n';
    char16_t crlf[] = {u'\r', u'\n'};
    _lf = S::adopt(copyRep(&lf, 1));
    _crlf = S::adopt(copyRep(crlf, 2));
    _empty = S::adopt(newRep(0));
  }

  // One pass over the text; each step reads one token at `p`, as the reader's
  // rules do in their order.
  void load() {
    const Unit* t = _units;
    const std::size_t n = _n;
    std::size_t p = 0;
    while (p < n) {
      const char16_t c = t[p];
      if (c == u'\n' || (c == u'\r' && p + 1 < n && t[p + 1] == u'\n')) {  // a line end alone
        comment(c == u'\n' ? _lf : _crlf);
        p += c == u'\n' ? 1 : 2;
        continue;
      }
      // The line's end and its first '=' in one scan.
      std::size_t eol = p, equals = n;
      while (eol < n && t[eol] != u'\n') {
        if (t[eol] == u'=' && equals == n) equals = eol;
        ++eol;
      }
      if (c == u'#') {
        comment(piece(p, eol - p));
        p = eol;
        continue;
      }
      if (c == u'[') {
        std::size_t close = eol;
        while (close > p + 2 && t[close - 1] != u']') --close;
        if (close > p + 2) {
          auto [b, e] = trimmed<isWhitespace>(t, p + 1, close - 1);
          section(piece(b, e - b));
          p = close;  // what follows "]" is read as from a line's start
          continue;
        }
      }
      if (c != u' ' && equals < eol) {
        auto [nb, ne] = trimmed<isWhitespace>(t, p, equals);
        auto [vb, ve] = trimmed<isWhitespaceOrNewline>(t, equals + 1, eol);
        p = eol < n ? eol + 1 : n;
        // Continuation lines: one or more spaces and at least one more
        // character. A joined value is a string of its own: its lines'
        // trimmed texts joined by LF and one space.
        std::size_t next = p, nextEol = 0;
        auto continues = [&] {
          if (next + 1 >= n || t[next] != u' ' || t[next + 1] == u'\n') return false;
          nextEol = next;
          while (nextEol < n && t[nextEol] != u'\n') ++nextEol;
          return true;
        };
        auto advance = [&] { next = nextEol < n ? nextEol + 1 : n; };
        S value;
        if (!continues()) {
          value = piece(vb, ve - vb);
        } else {
          std::size_t length = ve - vb;
          for (; continues(); advance()) {
            auto [fb, fe] = trimmed<isWhitespaceOrNewline>(t, next, nextEol);
            length += 2 + (fe - fb);
          }
          Rep* joined = newRep(length);
          char16_t* out = joined->chars();
          std::copy(t + vb, t + ve, out);
          out += ve - vb;
          for (next = p; continues(); advance()) {
            auto [fb, fe] = trimmed<isWhitespaceOrNewline>(t, next, nextEol);
            *out++ = u'\n';
            *out++ = u' ';
            std::copy(t + fb, t + fe, out);
            out += fe - fb;
          }
          value = S::adopt(joined);
        }
        option(name(nb, ne), std::move(value));
        p = next;
        continue;
      }
      if (c == u' ' && p + 1 < n && t[p + 1] != u'\n') break;  // a stray continuation line ends the reading
      comment(_empty);  // unrecognised text; its line end follows as a comment
      p = eol;
    }
    flushPending(_document);
    finishSection();
  }

 private:
  // The text's piece [offset, offset + length): a slice of the UTF-16 text or a copy.
  S piece(std::size_t offset, std::size_t length) {
    if constexpr (std::is_same_v<Unit, char16_t>) {
      return S::piece(_text, offset, length);
    } else {
      Rep* rep = newRep(length);
      std::copy(_units + offset, _units + offset + length, rep->chars());
      return S::adopt(rep);
    }
  }

  // An option's name: copied names equal to one read before share its
  // string (a table of the last name in each of 4096 slots) in texts of
  // 32 Ki units or more, as the library's reader does.
  S name(std::size_t begin, std::size_t end) {
    if constexpr (std::is_same_v<S, SlicedString>) {
      return piece(begin, end - begin);
    } else {
      const std::size_t n = end - begin;
      if (_n < kSharedNamesFrom) return piece(begin, n);
      if (_names.empty()) _names.resize(std::size_t(1) << kNameSlotBits);
      const Unit* u = _units + begin;
      std::uint32_t h = static_cast<std::uint32_t>(n) * 0x9E3779B1u;
      for (std::size_t i = 0; i < n && i < 4; ++i) h = (h ^ static_cast<std::uint16_t>(u[i])) * 0x01000193u;
      for (std::size_t i = n > 4 ? n - 4 : n; i < n; ++i) h = (h ^ static_cast<std::uint16_t>(u[i])) * 0x01000193u;
      S& slot = _names[h >> (32 - kNameSlotBits)];
      if (!slot.isNull() && slot.size() == n && std::equal(u, u + n, slot.data())) return slot;
      slot = piece(begin, n);
      return slot;
    }
  }

  void comment(const S& text) { _pending.push_back(makeElement<Comment<S>>(text)); }

  void section(S name) {
    // Comments since the last option end the section before; those before
    // the first section go to the document.
    if (_current) {
      finishSection();
    } else {
      flushPending(_document);
    }
    auto section = makeElement<Section<S>>(std::move(name));
    _current = section.get();
    _document.addElement(std::move(section));
  }

  void option(S name, S value) {
    if (!_current) return;  // options before the first section are dropped
    for (auto& comment : _pending) _children.push_back(std::move(comment));
    _pending.clear();
    _children.push_back(makeElement<Option<S>>(std::move(name), std::move(value)));
  }

  void flushPending(Composite& target) {
    for (auto& comment : _pending) target.addElement(std::move(comment));
    _pending.clear();
  }

  // The current section's children, gathered while reading it, go in with one
  // allocation of the list.
  void finishSection() {
    if (!_current) return;
    auto& list = _current->elements;
    list.reserve(_children.size() + _pending.size());
    for (auto& child : _children) _current->addElement(std::move(child));
    _children.clear();
    flushPending(*_current);
  }

  static constexpr unsigned kNameSlotBits = 12;
  static constexpr std::size_t kSharedNamesFrom = std::size_t(32) << 10;
  const Unit* _units;
  std::size_t _n;
  Rep* _text = nullptr;
  Document& _document;
  std::vector<S> _names;
  Section<S>* _current = nullptr;
  List _children;
  List _pending;
  S _lf, _crlf, _empty;
};

// ---- writing ----------------------------------------------------------------

// UTF-8 to a file through a 64 KiB buffer.
class Output {
 public:
  explicit Output(int fd) : _fd(fd), _buffer(new char[kChunk]) {}
  bool put(std::u16string_view s) {
    std::size_t i = 0;
    while (i < s.size()) {
      if (kChunk - _used < 8 && !flush()) return false;
      char* out = _buffer.get() + _used;
      char* const stop = _buffer.get() + kChunk - 4;
      while (i < s.size() && out < stop) {
        // Four ASCII code units at a time where they are.
        if (i + 4 <= s.size() && out + 4 <= stop) {
          std::uint64_t four;
          std::memcpy(&four, s.data() + i, 8);
          if ((four & 0xFF80FF80FF80FF80ull) == 0) {
            for (int k = 0; k < 4; ++k) out[k] = static_cast<char>(s[i + k]);
            out += 4;
            i += 4;
            continue;
          }
        }
        char32_t c = s[i++];
        if (c < 0x80) {
          *out++ = static_cast<char>(c);
          continue;
        }
        if (c >= 0xD800 && c <= 0xDBFF && i < s.size() && s[i] >= 0xDC00 && s[i] <= 0xDFFF)
          c = 0x10000 + ((c - 0xD800) << 10) + (s[i++] - 0xDC00);
        else if (c >= 0xD800 && c <= 0xDFFF)
          c = 0xFFFD;
        if (c < 0x800) {
          *out++ = static_cast<char>(0xC0 | (c >> 6));
        } else if (c < 0x10000) {
          *out++ = static_cast<char>(0xE0 | (c >> 12));
          *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        } else {
          *out++ = static_cast<char>(0xF0 | (c >> 18));
          *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
          *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        }
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
      }
      _used = static_cast<std::size_t>(out - _buffer.get());
    }
    return true;
  }
  bool put(char16_t c) { return put(std::u16string_view(&c, 1)); }
  bool flush() {
    for (std::size_t done = 0; done < _used;) {
      ssize_t n = ::write(_fd, _buffer.get() + done, _used - done);
      if (n <= 0) return false;
      done += static_cast<std::size_t>(n);
    }
    _used = 0;
    return true;
  }

 private:
  int _fd;
  std::unique_ptr<char[]> _buffer;
  std::size_t _used = 0;
};

template <class S>
bool isLineEndComment(const List& list, std::size_t i) {
  if (i >= list.size() || list[i]->kind != Kind::Comment) return false;
  const S& text = static_cast<const Comment<S>&>(*list[i]).text;
  return !text.isNull() && text.size() > 0 && text.data()[text.size() - 1] == u'\n';
}

// The whole text as UTF-16 in one string, as the document's stringValue()
// gives it: reserved once for the loaded length and a little more.
class TextOutput {
 public:
  explicit TextOutput(std::size_t expected) { _text.reserve(expected + expected / 64); }
  bool put(std::u16string_view s) {
    _text.append(s);
    return true;
  }
  bool put(char16_t c) {
    _text.push_back(c);
    return true;
  }
  std::u16string& text() { return _text; }

 private:
  std::u16string _text;
};

// The section writer's rules: a comment that ends in LF supplies the line end
// of the line before it; otherwise the header and each option get one.
template <class S, class Out>
bool writeSection(Section<S>& section, Out& out) {
  bool ok = out.put(u'[') && out.put(section.name.view()) && out.put(u']');
  const List& list = section.elements;
  if (!list.empty() && !isLineEndComment<S>(list, 0)) ok = ok && out.put(u'\n');
  for (std::size_t i = 0; i < list.size() && ok; ++i) {
    Element& element = *list[i];
    if (element.kind == Kind::Comment) {
      ok = out.put(static_cast<Comment<S>&>(element).text.view());
    } else if (element.kind == Kind::Option) {
      auto& option = static_cast<Option<S>&>(element);
      if (option.name.isNull()) continue;
      auto [b, e] = trimmed<isWhitespace>(option.name.data(), 0, option.name.size());
      if (b == e) continue;
      option.setName(option.name.sub(b, e - b));
      if (option.value.isNull()) continue;
      ok = out.put(option.name.view()) && out.put(u'=') && out.put(option.value.view());
      if (ok && !isLineEndComment<S>(list, i + 1)) ok = out.put(u'\n');
    }
  }
  return ok;
}

// The document's elements by the writing rules.
template <class S, class Out>
bool writeElements(Document& document, Out& out) {
  bool ok = true;
  for (std::size_t i = 0; i < document.elements.size() && ok; ++i) {
    Element& element = *document.elements[i];
    if (element.kind == Kind::Section)
      ok = writeSection(static_cast<Section<S>&>(element), out);
    else if (element.kind == Kind::Comment)
      ok = out.put(static_cast<Comment<S>&>(element).text.view());
  }
  return ok;
}

// The document written through a 64 KiB buffer to the open file.
template <class S>
bool writeDocument(Document& document, int fd) {
  Output out(fd);
  return writeElements<S>(document, out) && out.flush();
}

// The document's whole text as UTF-16.
template <class S>
std::u16string stringValue(Document& document) {
  TextOutput out(document.loadedLength);
  writeElements<S>(document, out);
  return std::move(out.text());
}

// ---- editing ----------------------------------------------------------------

// Sets the value of the option `key` in the first section named `sectionName`,
// adding the option at the section's end when it has none; false when there
// is no such section.
template <class S>
bool setValueForOptionWithName(Document& document, const S& sectionName, S key, S value) {
  Section<S>* section = nullptr;
  for (auto& element : document.elements)
    if (element->kind == Kind::Section && static_cast<Section<S>&>(*element).name.view() == sectionName.view()) {
      section = static_cast<Section<S>*>(element.get());
      break;
    }
  if (!section) return false;
  Option<S>* option = nullptr;
  for (auto& element : section->elements)
    if (element->kind == Kind::Option && static_cast<Option<S>&>(*element).name.view() == key.view()) {
      option = static_cast<Option<S>*>(element.get());
      break;
    }
  if (option)
    option->setValue(std::move(value));
  else
    section->addElement(makeElement<Option<S>>(std::move(key), std::move(value)));
  return true;
}

}  // namespace floormodel
