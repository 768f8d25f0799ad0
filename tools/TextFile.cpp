#include "TextFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace corvane::cli {

namespace {

using namespace std::string_view_literals;

// Symbolic links followed before a path counts as a loop, as the kernel's
// own limit (ELOOP after 40).
constexpr int kMaxLinkHops = 40;

bool startsWith(std::string_view bytes, std::string_view prefix) { return bytes.substr(0, prefix.size()) == prefix; }

std::string describe(const std::shared_ptr<YError>& error, const std::string& fallback) {
  if (error && error->underlyingErrno() != 0) return std::strerror(error->underlyingErrno());
  return error ? error->localizedDescription().UTF8String() : fallback;
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The byte-order mark at the start of `bytes` that the decoder took for
// `detected`, with the converter that writes the rest in the same byte order.
TextEncoding encodingAsRead(std::string_view bytes, YStringEncoding detected) {
  switch (detected) {
    case YUTF8StringEncoding:
      if (startsWith(bytes, "\xEF\xBB\xBF")) return {YUTF8StringEncoding, "\xEF\xBB\xBF"};
      break;
    case YUnicodeStringEncoding:
      if (startsWith(bytes, "\xFF\xFE")) return {YUTF16LittleEndianStringEncoding, "\xFF\xFE"};
      if (startsWith(bytes, "\xFE\xFF")) return {YUTF16BigEndianStringEncoding, "\xFE\xFF"};
      return {YUTF16BigEndianStringEncoding, ""};
    case YUTF32StringEncoding:
      if (startsWith(bytes, "\xFF\xFE\x00\x00"sv)) return {YUTF32LittleEndianStringEncoding, std::string(bytes.substr(0, 4))};
      if (startsWith(bytes, "\x00\x00\xFE\xFF"sv)) return {YUTF32BigEndianStringEncoding, std::string(bytes.substr(0, 4))};
      return {YUTF32BigEndianStringEncoding, ""};
    default:
      break;
  }
  return {detected, ""};
}

bool isBigEndian(YStringEncoding encoding) {
  return encoding == YUTF16BigEndianStringEncoding || encoding == YUTF32BigEndianStringEncoding;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// The descriptor a path names that stands for one of this process's own
// open files ("/dev/stdout", "/dev/fd/3", …), or -1.
int ownDescriptor(const std::string& path) {
  if (path == "-" || path == "/dev/stdout") return 1;
  if (path == "/dev/stderr") return 2;
  for (std::string_view prefix : {"/dev/fd/"sv, "/proc/self/fd/"sv}) {
    if (!startsWith(path, prefix) || path.size() == prefix.size()) continue;
    int fd = 0;
    for (char c : std::string_view(path).substr(prefix.size())) {
      if (c < '0' || c > '9' || fd > 100000) return -1;
      fd = fd * 10 + (c - '0');
    }
    return fd;
  }
  return -1;
}

}  // namespace

std::string TextEncoding::name() const {
  std::string result = YStringEncodingName(encoding);
  if (!byteOrderMark.empty()) result += " with BOM";
  return result;
}

std::size_t TextEncoding::unitSize() const {
  switch (encoding) {
    case YUTF16BigEndianStringEncoding:
    case YUTF16LittleEndianStringEncoding:
      return 2;
    case YUTF32BigEndianStringEncoding:
    case YUTF32LittleEndianStringEncoding:
      return 4;
    default:
      return 1;
  }
}

std::optional<ResolvedPath> resolvePath(const std::string& path, FileProblem& problem) {
  std::string current = path;
  for (int hop = 0; hop <= kMaxLinkHops; ++hop) {
    struct stat st {};
    if (::lstat(current.c_str(), &st) != 0) {
      const int err = errno;
      if (err == ENOENT && hop == 0) return ResolvedPath{current, true};
      if (err == ENOENT) {
        problem.message = path + ": a symbolic link to '" + current + "', which does not exist";
        return std::nullopt;
      }
      problem.message = path + ": " + std::strerror(err);
      return std::nullopt;
    }
    if (!S_ISLNK(st.st_mode)) return ResolvedPath{current, false};
    std::string target(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 4096) + 1, '\0');
    const ssize_t n = ::readlink(current.c_str(), target.data(), target.size());
    if (n < 0) {
      problem.message = path + ": " + std::strerror(errno);
      return std::nullopt;
    }
    target.resize(static_cast<std::size_t>(n));
    // A process's descriptor link to a pipe, a socket or a deleted file
    // names no path ("pipe:[7]"): it is read through as it is.
    const bool descriptor = current.rfind("/dev/fd/", 0) == 0 ||
                            (current.rfind("/proc/", 0) == 0 && current.find("/fd/") != std::string::npos);
    if (descriptor && (target.empty() || target[0] != '/' || target.ends_with(" (deleted)")))
      return ResolvedPath{current, false};
    if (target.empty() || target[0] != '/') {
      const std::size_t slash = current.rfind('/');
      if (slash != std::string::npos) target = current.substr(0, slash + 1) + target;
    }
    current = std::move(target);
  }
  problem.message = path + ": symbolic links that loop (" + std::strerror(ELOOP) + ")";
  return std::nullopt;
}

bool FileIdentity::operator==(const FileIdentity& other) const {
  if (exists != other.exists) return false;
  return !exists || (device == other.device && inode == other.inode && size == other.size &&
                     modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec);
}

FileIdentity identityOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return {};
  return {true, st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_mode};
}

bool FolderLock::lock(const std::string& file, FileProblem& problem) {
  const std::string folder = folderOf(file);
  _fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (_fd < 0) {
    problem.message = file + ": cannot open its folder: " + std::strerror(errno);
    return false;
  }
  while (::flock(_fd, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    problem.message = file + ": cannot lock its folder: " + std::strerror(errno);
    return false;
  }
  return true;
}

FolderLock::~FolderLock() {
  if (_fd >= 0) ::close(_fd);  // closing releases the lock
}

std::optional<YString> pathString(const std::string& path, FileProblem& problem) {
  try {
    return YString::fromUTF8(path);
  } catch (const YException&) {
    problem.message = path + ": the file name is not valid UTF-8, which corvane cannot open or write";
    return std::nullopt;
  }
}

std::optional<std::string> readBytes(const std::string& path, const std::string& label, FileProblem& problem) {
  const std::optional<YString> name = pathString(path, problem);
  if (!name) return std::nullopt;
  std::shared_ptr<YError> error;
  std::optional<std::string> bytes = YReadFile(*name, &error);
  if (!bytes) problem.message = label + ": cannot read: " + describe(error, "unknown failure");
  return bytes;
}

std::optional<std::string> readStandardInput(FileProblem& problem) {
  std::string bytes;
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(0, buffer, sizeof buffer);
    if (n == 0) return bytes;
    if (n < 0) {
      if (errno == EINTR) continue;
      problem.message = std::string("standard input: cannot read: ") + std::strerror(errno);
      return std::nullopt;
    }
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
}

std::optional<TextFile> decodeTextFile(std::string bytes, const std::string& label, FileProblem& problem) {
  std::shared_ptr<YError> error;
  YStringEncoding detected = YUTF8StringEncoding;
  YString text = YDecodeBytesDetectingEncoding(bytes, &detected, &error);
  if (text.isNull()) {
    problem.message = label + ": not text in any encoding this tool reads (" + describe(error, "unknown encoding") + ")";
    return std::nullopt;
  }
  if (const std::size_t nul = text.view().find(u'\0'); nul != std::u16string_view::npos) {
    problem.message = label + ": holds a NUL character, which no INI text does: binary data?";
    return std::nullopt;
  }
  TextEncoding encoding = encodingAsRead(bytes, detected);
  TextFile file{std::move(bytes), text, std::move(encoding), {}};
  if (file.encoding.encoding == YUTF8StringEncoding && text.view().find(u'\uFFFD') != std::u16string_view::npos) {
    const std::size_t mark = file.encoding.byteOrderMark.size();
    YDecodeUTF8Replacing(std::string_view(file.bytes).substr(mark), &file.invalidBytes);
    for (std::size_t& offset : file.invalidBytes) offset += mark;
  }
  return file;
}

std::optional<TextEncoding> textEncodingNamed(const std::string& name) {
  std::optional<YStringEncoding> encoding = YStringEncodingFromName(name);
  if (!encoding || !YStringEncodingIsSupported(*encoding)) return std::nullopt;
  return TextEncoding{*encoding, ""};
}

std::optional<std::string> encodeText(const YString& text, const TextEncoding& encoding, const std::string& label,
                                      FileProblem& problem) {
  std::shared_ptr<YError> error;
  std::optional<std::string> bytes = YEncodeString(text, encoding.encoding, &error);
  if (!bytes)
    problem.message = label + ": cannot write the text in " + encoding.name() + ": " +
                      (error ? error->localizedDescription().UTF8String() : "a character has no representation");
  return bytes;
}

std::vector<std::size_t> lineStarts(std::string_view bytes, const TextEncoding& encoding) {
  const std::size_t unit = encoding.unitSize();
  const std::size_t lineFeedAt = isBigEndian(encoding.encoding) ? unit - 1 : 0;
  std::vector<std::size_t> starts{encoding.byteOrderMark.size()};
  for (std::size_t i = starts[0]; i + unit <= bytes.size(); i += unit) {
    if (bytes[i + lineFeedAt] != '\n') continue;
    bool lineFeed = true;
    for (std::size_t k = 0; k < unit; ++k) lineFeed = lineFeed && (k == lineFeedAt || bytes[i + k] == '\0');
    if (lineFeed) starts.push_back(i + unit);
  }
  if (starts.back() != bytes.size()) starts.push_back(bytes.size());
  return starts;
}

bool writeOutput(const std::string& path, std::string_view bytes, FileProblem& problem, WriteMode* mode) {
  auto failed = [&](int err) {
    problem.message = path + ": cannot write: " + std::strerror(err);
    return false;
  };
  if (mode) *mode = WriteMode::WrittenThrough;
  if (const int fd = ownDescriptor(path); fd >= 0) return writeAll(fd, bytes) || failed(errno);
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
    if (S_ISDIR(st.st_mode)) return failed(EISDIR);
    // A device, a pipe or a socket: written into, never replaced.
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return failed(errno);
    const bool written = writeAll(fd, bytes);
    const int err = errno;
    if (::close(fd) != 0 && written) return failed(errno);
    return written || failed(err);
  }
  if (mode) *mode = WriteMode::Replaced;
  const std::optional<YString> name = pathString(path, problem);
  if (!name) return false;
  std::shared_ptr<YError> error;
  if (YWriteFile(*name, bytes, true, &error)) return true;
  problem.message = path + ": cannot write: " + describe(error, "unknown failure");
  return false;
}

const char* writeProtection(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
  if ((st.st_mode & 0222) == 0) return "no write permission bit";
  if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0 && errno == EACCES)
    return "no write permission for this user";
  return nullptr;
}

}  // namespace corvane::cli
