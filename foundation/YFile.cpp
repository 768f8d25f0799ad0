#include "YFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>
#include <utility>

#include "YAllocator.h"

namespace {

void setError(std::shared_ptr<YError>* error, std::int64_t code, YString description, int err = 0) {
  if (error) *error = YError::errorWithDomainCodeDescription(YFoundationErrorDomain, code, std::move(description), err);
}

YString describeErrno(const char* what, const YString& path, int err) {
  return YString::stringWithFormat("%s '%@': %s", what, path, std::strerror(err));
}

std::int64_t readCode(int err) {
  switch (err) {
    case ENOENT: case ENOTDIR: return YFileNoSuchFileError;
    case EACCES: case EPERM: return YFileReadNoPermissionError;
    default: return YFileReadUnknownError;
  }
}

std::int64_t writeCode(int err) {
  switch (err) {
    case EACCES: case EPERM: return YFileWriteNoPermissionError;
    case ENOSPC: case EDQUOT: return YFileWriteOutOfSpaceError;
    case EFBIG: return YFileWriteTooLargeError;
    case EROFS: return YFileWriteVolumeReadOnlyError;
    case ENOENT: case ENOTDIR: return YFileNoSuchFileError;
    default: return YFileWriteUnknownError;
  }
}

bool writeFailed(std::shared_ptr<YError>* error, const char* what, const YString& path, int err) {
  setError(error, writeCode(err), describeErrno(what, path, err), err);
  return false;
}

// "it is a FIFO, not a regular file": the one error for every target a save
// refuses, with the errno that names it where there is one.
bool notARegularFile(std::shared_ptr<YError>* error, const YString& path, const char* kind, int err) {
  setError(error, YFileWriteNotARegularFileError,
           YString::stringWithFormat("Cannot write file '%@': it is %s, not a regular file", path, kind), err);
  return false;
}

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO (named pipe)";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  return "a special file";
}

bool canWriteThrough(mode_t mode) { return S_ISFIFO(mode) || S_ISCHR(mode) || S_ISBLK(mode); }

// A file descriptor closed when it goes out of scope (errors of that close
// are not seen; close() reports them where they matter).
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : _fd(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (_fd >= 0) ::close(_fd);
  }
  int get() const noexcept { return _fd; }
  explicit operator bool() const noexcept { return _fd >= 0; }
  void reset(int fd) noexcept {
    if (_fd >= 0) ::close(_fd);
    _fd = fd;
  }
  /// Closes now; false with errno set when the close failed.
  bool close() noexcept {
    const int fd = _fd;
    _fd = -1;
    return ::close(fd) == 0;
  }

 private:
  int _fd;
};

// A name in a folder removed when it goes out of scope, unless kept.
class NameGuard {
 public:
  NameGuard(int dirfd) noexcept : _dirfd(dirfd) {}
  NameGuard(const NameGuard&) = delete;
  NameGuard& operator=(const NameGuard&) = delete;
  ~NameGuard() {
    if (!_name.empty()) ::unlinkat(_dirfd, _name.c_str(), 0);
  }
  void set(std::string name) { _name = std::move(name); }
  const std::string& name() const noexcept { return _name; }
  void keep() noexcept { _name.clear(); }

 private:
  int _dirfd;
  std::string _name;
};

// Blocks SIGPIPE on this thread while a FIFO or device is written, so that a
// reader that goes away fails the write with EPIPE instead of ending the
// process. A SIGPIPE the write raised is taken off the thread again; one that
// was pending before stays pending.
class SigpipeBlock {
 public:
  SigpipeBlock() noexcept {
    sigemptyset(&_pipe);
    sigaddset(&_pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &_pipe, &_previous);
    sigset_t pending;
    _wasPending = ::sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
  }
  SigpipeBlock(const SigpipeBlock&) = delete;
  SigpipeBlock& operator=(const SigpipeBlock&) = delete;
  ~SigpipeBlock() {
    sigset_t pending;
    if (!_wasPending && ::sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1) {
      const timespec now{};
      while (::sigtimedwait(&_pipe, nullptr, &now) < 0 && errno == EINTR) {
      }
    }
    ::pthread_sigmask(SIG_SETMASK, &_previous, nullptr);
  }

 private:
  sigset_t _pipe;
  sigset_t _previous;
  bool _wasPending;
};

// The most one write() call is given. The kernel sizes the file cache's
// blocks by the write: a 32 MB text written at once took 35 to 80 ms on the
// build machine (its 2 MiB blocks come from memory the virtual machine's host
// backs only when touched), in 256 KiB writes 7 to 8 ms, and 1 MiB writes
// were already 36 ms. The extra calls cost microseconds.
constexpr std::size_t kWritePiece = std::size_t(256) << 10;

// Writes all of `bytes`; false with errno set on a failed write.
bool writeBytes(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(fd, bytes.data(), std::min(bytes.size(), kWritePiece));
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// Writes every piece `next` gives; false with errno set on a failed write.
// An exception from `next` passes on.
bool writeAll(int fd, const std::function<std::string_view()>& next) {
  for (std::string_view bytes = next(); !bytes.empty(); bytes = next())
    if (!writeBytes(fd, bytes)) return false;
  return true;
}

// A link to an open file's descriptor, /proc/<pid>/fd/N or /dev/fd/N (what
// /dev/stdout leads to): it names an open file, not a place in a folder.
bool isDescriptorLink(const std::string& path) {
  const std::size_t fd = path.rfind("/fd/");
  if (fd == std::string::npos || fd + 4 == path.size()) return false;
  if (path.find_first_not_of("0123456789", fd + 4) != std::string::npos) return false;
  return path.compare(0, 6, "/proc/") == 0 || path.compare(0, fd + 4, "/dev/fd/") == 0;
}

// What a save is about to write.
struct Target {
  std::string path;            // symbolic links resolved (textually)
  bool exists = false;         // a regular file is there
  bool special = false;        // something other than a regular file is there
  bool throughDescriptor = false;  // a descriptor link was followed on the way
  struct stat status{};        // of what is there
};

// Follows symbolic links by their text so that saving replaces the file a
// link points to (and a dangling link gets its file). The kernel has already
// refused loops (ELOOP), so the hop limit only guards against a link changed
// meanwhile.
std::string resolveLinks(std::string path, bool& throughDescriptor) {
  for (int hops = 0; hops < 40; ++hops) {
    char text[4096];
    ssize_t n = ::readlink(path.c_str(), text, sizeof text - 1);
    if (n < 0) break;
    const bool descriptor = isDescriptorLink(path);
    if (descriptor) throughDescriptor = true;
    std::string next(text, static_cast<std::size_t>(n));
    // A descriptor of a deleted file, a pipe or a socket links to a name,
    // not a path ("/x (deleted)", "pipe:[7]"): it is written through.
    if (descriptor && (next.empty() || next[0] != '/' || next.ends_with(" (deleted)"))) break;
    if (next.empty() || next[0] != '/') {
      auto slash = path.rfind('/');
      next = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + next;
    }
    path = next;
  }
  return path;
}

// Checks what the path names; false (with the error set) for a target that
// cannot be written at all.
bool examine(const YString& path, Target& target, std::shared_ptr<YError>* error) {
  const std::string given = path.UTF8String();
  if (::stat(given.c_str(), &target.status) == 0) {
    target.exists = S_ISREG(target.status.st_mode);
    target.special = !target.exists;
  } else if (errno == ELOOP) {
    return notARegularFile(error, path, "a loop of symbolic links", ELOOP);
  } else if (errno != ENOENT) {
    return writeFailed(error, "Cannot write file", path, errno);
  }
  target.path = resolveLinks(given, target.throughDescriptor);
  return true;
}

// Writes into a FIFO or device, or at the end of a regular file behind a
// descriptor link, without creating or truncating anything.
bool writeThrough(const YString& path, const Target& target, const std::function<std::string_view()>& next,
                  std::shared_ptr<YError>* error) {
  const std::string given = path.UTF8String();
  const int flags = O_WRONLY | O_NOCTTY | O_CLOEXEC | (target.exists ? O_APPEND : 0);
  Descriptor fd;
  for (;;) {
    fd.reset(::open(given.c_str(), flags));  // a FIFO waits here for its reader
    if (fd || errno != EINTR) break;
  }
  if (!fd) return writeFailed(error, "Cannot open file", path, errno);
  struct stat status{};
  if (::fstat(fd.get(), &status) != 0) return writeFailed(error, "Cannot write file", path, errno);
  if (S_ISREG(status.st_mode) != target.exists)
    return writeFailed(error, "Cannot write file (it changed while being saved)", path, EAGAIN);
  bool written;
  {
    SigpipeBlock quiet;
    written = writeAll(fd.get(), next);
  }
  if (!written) return writeFailed(error, "Cannot write file", path, errno);
  if (!fd.close()) return writeFailed(error, "Cannot write file", path, errno);
  return true;
}

// The folder a (resolved) target path lies in.
std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// Opens the target to be written in place (creating it where it is missing)
// and, when asked, truncates it. Opened without waiting, so that a FIFO put
// there meanwhile is refused instead of blocking the save.
bool openInPlace(const YString& path, const Target& target, Descriptor& fd, std::shared_ptr<YError>* error,
                 bool truncate = true) {
  fd.reset(::open(target.path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666));
  if (!fd) {
    if (errno == ENXIO) return notARegularFile(error, path, "a FIFO without a reader or a device", ENXIO);
    if (errno == ELOOP) return notARegularFile(error, path, "a loop of symbolic links", ELOOP);
    if (errno == EISDIR) return notARegularFile(error, path, "a folder", EISDIR);
    return writeFailed(error, "Cannot write file", path, errno);
  }
  struct stat status{};
  if (::fstat(fd.get(), &status) != 0) return writeFailed(error, "Cannot write file", path, errno);
  if (!S_ISREG(status.st_mode)) return notARegularFile(error, path, kindOf(status.st_mode), 0);
  const int flags = ::fcntl(fd.get(), F_GETFL);
  if (flags < 0 || ::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0 || (truncate && ::ftruncate(fd.get(), 0) != 0))
    return writeFailed(error, "Cannot write file", path, errno);
  return true;
}

// Truncates the target and writes it in place.
bool writeInPlace(const YString& path, const Target& target, const std::function<std::string_view()>& next,
                  std::shared_ptr<YError>* error) {
  Descriptor fd;
  if (!openInPlace(path, target, fd, error)) return false;
  if (!writeAll(fd.get(), next)) return writeFailed(error, "Cannot write file", path, errno);
  if (!fd.close()) return writeFailed(error, "Cannot write file", path, errno);
  return true;
}

// Reads `length` bytes of `from` from `offset` on into `to` at `offset` on
// (which holds that many); false with errno set when it cannot.
bool readAt(int from, char* to, std::size_t length, off_t offset) {
  for (std::size_t done = 0; done < length;) {
    const ssize_t n = ::pread(from, to + done, length - done, offset + static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;  // shorter than written
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// Copies the first `length` bytes of `from` to `to` at its position, in the
// kernel where it can, else through `buffer` (kWritePiece bytes); false with
// errno set.
bool copyAll(int from, int to, off_t length, char* buffer) {
  off_t offset = 0;
  while (offset < length) {
    const ssize_t n = ::copy_file_range(from, &offset, to, nullptr, kWritePiece, 0);
    if (n > 0) continue;
    if (n == 0) break;
    if (errno == EINTR) continue;
    // Not between these files (older kernels across file systems): read and write.
    if (offset == 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) break;
    return false;
  }
  for (; offset < length; offset += static_cast<off_t>(kWritePiece)) {
    const std::size_t n = static_cast<std::size_t>(std::min<off_t>(length - offset, kWritePiece));
    if (!readAt(from, buffer, n, offset) || !writeBytes(to, {buffer, n})) return false;
  }
  return true;
}

// Whether `length` bytes fit on the target's volume once it is truncated,
// as far as the volume tells: its blocks free to this process and the
// target's own (open at `fd`; -1 for a target not there yet, to be made in
// its folder). An estimate: quotas, metadata and shared extents are not
// counted. True where the volume tells nothing.
bool fitsOnceTruncated(const Target& target, int fd, off_t length) {
  struct statvfs volume{};
  struct stat status{};
  const bool told = fd >= 0 ? ::fstatvfs(fd, &volume) == 0 && ::fstat(fd, &status) == 0
                            : ::statvfs(folderOf(target.path).c_str(), &volume) == 0;
  if (!told || volume.f_frsize == 0 || volume.f_blocks == 0) return true;
  const unsigned long long unit = volume.f_frsize, free = ::geteuid() == 0 ? volume.f_bfree : volume.f_bavail;
  const unsigned long long needed = (static_cast<unsigned long long>(length) + unit - 1) / unit;
  return needed <= free + static_cast<unsigned long long>(status.st_blocks) * 512 / unit;
}

// Writes the pieces to an unnamed file beside the target, then truncates the
// target and copies them in: the target is touched only once all of them
// are known. Where the folder has no such file, or its volume no room, they
// are gathered in memory instead, and so are they where the target's volume
// has no room for them while the staged copy stands. The target is
// truncated only where its volume has room for them once it is.
bool writeInPlaceStaged(const YString& path, const Target& target, const std::function<std::string_view()>& next,
                        std::shared_ptr<YError>* error) {
  Descriptor stage(::open(folderOf(target.path).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  std::string gathered;
  off_t staged = 0;
  // The staged bytes to memory, the staging file closed; false with errno set.
  auto unstage = [&] {
    gathered.resize(static_cast<std::size_t>(staged));
    const bool read = readAt(stage.get(), gathered.data(), gathered.size(), 0);
    stage.reset(-1);
    return read;
  };
  for (std::string_view piece = next(); !piece.empty(); piece = next()) {
    if (stage) {
      if (writeBytes(stage.get(), piece)) {
        staged += static_cast<off_t>(piece.size());
        continue;
      }
      if ((errno != ENOSPC && errno != EDQUOT) || !unstage()) return writeFailed(error, "Cannot write file", path, errno);
    }
    gathered.append(piece);
  }
  // Taken before the target is truncated: nothing may fail for want of memory after that.
  const std::unique_ptr<char[]> buffer(stage ? new char[kWritePiece] : nullptr);
  // An existing target is opened first, so that one the process may not
  // write says so; a new one is made only where it has room.
  Descriptor fd;
  if (target.exists && !openInPlace(path, target, fd, error, false)) return false;
  const int opened = fd ? fd.get() : -1;
  if (stage && !fitsOnceTruncated(target, opened, staged) && !unstage())
    return writeFailed(error, "Cannot write file", path, errno);
  if (!fitsOnceTruncated(target, opened, stage ? staged : static_cast<off_t>(gathered.size()))) {
    if (!fd && ::faccessat(AT_FDCWD, folderOf(target.path).c_str(), W_OK | X_OK, AT_EACCESS) != 0)
      return writeFailed(error, "Cannot write file", path, errno);
    return writeFailed(error, "Cannot write file", path, ENOSPC);
  }
  if (!fd && !openInPlace(path, target, fd, error, false)) return false;
  if (::ftruncate(fd.get(), 0) != 0) return writeFailed(error, "Cannot write file", path, errno);
  const bool written = stage ? copyAll(stage.get(), fd.get(), staged, buffer.get()) : writeBytes(fd.get(), gathered);
  if (!written || !fd.close()) return writeFailed(error, "Cannot write file", path, errno);
  return true;
}

// Six letters or digits for a temporary name, from the kernel's random
// source, or else from the clock, the process and a counter.
std::string randomSuffix() {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  constexpr std::size_t kLetters = sizeof kAlphabet - 1;
  unsigned char bytes[6];
  if (::getrandom(bytes, sizeof bytes, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bytes)) {
    static std::atomic<std::uint64_t> counter{0};
    std::uint64_t mix = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
                        (static_cast<std::uint64_t>(::getpid()) << 40) ^
                        (counter.fetch_add(1, std::memory_order_relaxed) * 0x9E3779B97F4A7C15ull);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(mix >> 8), mix *= 0x9E3779B97F4A7C15ull;
  }
  std::string suffix;
  for (unsigned char byte : bytes) suffix.push_back(kAlphabet[byte % kLetters]);
  return suffix;
}

// A temporary file of a save that was killed before it put the file in place
// is removed by a later save to the same target, when it is clearly ours and
// clearly abandoned: named by our pattern for this target (".<name>.corvane-"
// and six letters or digits), a regular file with no other link, owned by
// this user or by the target's owner, and not modified for an hour. A live
// save modifies its file as it writes and puts it in place seconds after the
// last write; one stopped for longer than this loses its file and fails.
constexpr std::time_t kStaleAfterSeconds = 3600;

bool isTemporaryName(std::string_view name, std::string_view prefix) {
  return name.size() == prefix.size() + 6 && name.substr(0, prefix.size()) == prefix &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                     [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; });
}

void removeStaleTemporaries(int dirfd, const std::string& prefix, const Target& target) {
  DIR* folder = ::fdopendir(::openat(dirfd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return;
  const std::time_t now = std::time(nullptr);
  while (const dirent* entry = ::readdir(folder)) {
    if (!isTemporaryName(entry->d_name, prefix)) continue;
    struct stat status{};
    if (::fstatat(dirfd, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    const bool ours = status.st_uid == ::geteuid() || (target.exists && status.st_uid == target.status.st_uid);
    if (S_ISREG(status.st_mode) && status.st_nlink == 1 && ours && status.st_mtime < now - kStaleAfterSeconds)
      ::unlinkat(dirfd, entry->d_name, 0);
  }
  ::closedir(folder);
}

// The new file of an atomic save: unnamed (O_TMPFILE) until complete where
// the file system offers that, so that a killed save leaves nothing behind;
// else created under a temporary name. Created with 0666 for a new target,
// so that the kernel applies the umask (and a folder's default ACL), and
// 0600 for an existing one, whose mode is set before anything is written.
bool createNewFile(int dirfd, const std::string& prefix, bool targetExists, Descriptor& fd, std::string& procLink,
                   NameGuard& name) {
  const mode_t mode = targetExists ? 0600 : 0666;
  fd.reset(::openat(dirfd, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
  if (fd) {
    // Linking it into the folder goes through its /proc link (linkat with
    // AT_EMPTY_PATH needs a privilege): without /proc, use a named file.
    procLink = "/proc/self/fd/" + std::to_string(fd.get());
    if (::access(procLink.c_str(), F_OK) == 0) return true;
    procLink.clear();
    fd.reset(-1);
  } else if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
    return false;
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string candidate = prefix + randomSuffix();
    fd.reset(::openat(dirfd, candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (fd) {
      name.set(std::move(candidate));
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

bool writeAtomically(const YString& path, const Target& target, const std::function<std::string_view()>& next,
                     std::shared_ptr<YError>* error) {
  const auto slash = target.path.rfind('/');
  const std::string folder = folderOf(target.path);
  const std::string base = slash == std::string::npos ? target.path : target.path.substr(slash + 1);
  // A folder the caller may search but not read is used without being
  // flushed or cleaned.
  bool readable = true;
  Descriptor dirfd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dirfd && errno == EACCES) {
    readable = false;
    dirfd.reset(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  if (!dirfd) return writeFailed(error, "Cannot open the folder of", path, errno);

  // The temporary name must fit wherever the target's does (NAME_MAX): keep
  // at most 200 bytes of the target's name in it.
  const std::string prefix = "." + base.substr(0, 200) + ".corvane-";
  if (readable) removeStaleTemporaries(dirfd.get(), prefix, target);

  Descriptor fd;
  std::string procLink;
  NameGuard name(dirfd.get());
  if (!createNewFile(dirfd.get(), prefix, target.exists, fd, procLink, name))
    return writeFailed(error, "Cannot create a temporary file beside", path, errno);
  if (target.exists) {
    // Owner and group where permitted, else the group alone where permitted;
    // then the mode, which a change of owner may have cut.
    if (::fchown(fd.get(), target.status.st_uid, target.status.st_gid) != 0 &&
        ::fchown(fd.get(), static_cast<uid_t>(-1), target.status.st_gid) != 0) {
      // Not permitted: the new file keeps this process's owner and group.
    }
    if (::fchmod(fd.get(), target.status.st_mode & 07777) != 0)
      return writeFailed(error, "Cannot set permissions for", path, errno);
  }
  if (!writeAll(fd.get(), next)) return writeFailed(error, "Cannot write file", path, errno);
  if (::fsync(fd.get()) != 0) return writeFailed(error, "Cannot flush file", path, errno);
  if (!procLink.empty()) {
    // Complete and on disk: now it gets a name, to be renamed over the target.
    for (int attempt = 0; name.name().empty(); ++attempt) {
      std::string candidate = prefix + randomSuffix();
      if (::linkat(AT_FDCWD, procLink.c_str(), dirfd.get(), candidate.c_str(), AT_SYMLINK_FOLLOW) == 0)
        name.set(std::move(candidate));
      else if (errno != EEXIST || attempt == 100)
        return writeFailed(error, "Cannot create a temporary file beside", path, errno);
    }
  }
  if (!fd.close()) return writeFailed(error, "Cannot write file", path, errno);
  if (::renameat(dirfd.get(), name.name().c_str(), dirfd.get(), base.c_str()) != 0)
    return writeFailed(error, "Cannot replace file", path, errno);
  name.keep();
  // The rename is durable only once the folder is on disk.
  if (readable && ::fsync(dirfd.get()) != 0) {
    const int err = errno;
    setError(error, YFileWriteNotFlushedError,
             YString::stringWithFormat("File '%@' was replaced, but its folder could not be flushed to disk: %s", path,
                                       std::strerror(err)),
             err);
    return false;
  }
  return true;
}

}  // namespace

namespace {

// Reads the whole file at `path` into `bytes` (a std::string or YFileBytes:
// resize() keeps the bytes before the new size). False, with `*error`, when
// it cannot.
template <class Buffer>
bool readWholeFile(const YString& path, std::shared_ptr<YError>* error, Buffer& bytes) {
  if (path.isNull()) {
    setError(error, YFileReadUnknownError, YString(u"No file path given"));
    return false;
  }
  std::string p = path.UTF8String();
  Descriptor fd(::open(p.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) {
    int err = errno;
    setError(error, readCode(err), describeErrno("Cannot open file", path, err), err);
    return false;
  }
  struct stat st{};
  if (::fstat(fd.get(), &st) == 0 && S_ISDIR(st.st_mode)) {
    setError(error, YFileReadUnknownError, describeErrno("Cannot read file", path, EISDIR), EISDIR);
    return false;
  }
  // Positions are 32-bit downstream: refuse what could not be addressed.
  constexpr std::size_t kLimit = std::numeric_limits<int32_t>::max();
  auto tooLarge = [&]() {
    setError(error, YFileReadTooLargeError, YString::stringWithFormat("The file '%@' is too large", path), EFBIG);
    return false;
  };
  // A regular file's size says at once whether it can be read at all.
  if (S_ISREG(st.st_mode) && static_cast<std::uint64_t>(st.st_size) > kLimit) return tooLarge();
  // Read straight into the result; a file that grows meanwhile is read on
  // until its end.
  std::size_t used = 0;
  if (st.st_size > 0) bytes.resize(std::min<std::size_t>(static_cast<std::size_t>(st.st_size), kLimit) + 1);
  for (;;) {
    if (used == bytes.size()) {
      if (bytes.size() > kLimit) return tooLarge();
      bytes.resize(std::min<std::size_t>(std::max<std::size_t>(bytes.size() * 2, 65536), kLimit + 1));
    }
    ssize_t n = ::read(fd.get(), bytes.data() + used, bytes.size() - used);
    if (n < 0) {
      if (errno == EINTR) continue;
      int err = errno;
      setError(error, readCode(err), describeErrno("Cannot read file", path, err), err);
      return false;
    }
    if (n == 0) break;
    used += static_cast<std::size_t>(n);
  }
  if (used > kLimit) return tooLarge();
  bytes.resize(used);
  return true;
}

}  // namespace

std::optional<std::string> YReadFile(const YString& path, std::shared_ptr<YError>* error) {
  std::string bytes;
  if (!readWholeFile(path, error, bytes)) return std::nullopt;
  return bytes;
}

YFileBytes::~YFileBytes() { ydetail::largeDeallocate(_data, _capacity); }

YFileBytes& YFileBytes::operator=(YFileBytes&& other) noexcept {
  if (this != &other) {
    ydetail::largeDeallocate(_data, _capacity);
    _data = std::exchange(other._data, nullptr);
    _size = std::exchange(other._size, 0);
    _capacity = std::exchange(other._capacity, 0);
  }
  return *this;
}

void YFileBytes::resize(std::size_t size) {
  if (size > _capacity) {
    char* data = static_cast<char*>(ydetail::largeAllocate(size));
    if (_size) std::memcpy(data, _data, _size);
    ydetail::largeDeallocate(_data, _capacity);
    _data = data;
    _capacity = size;
  }
  _size = size;
}

std::optional<YFileBytes> YReadFileBytes(const YString& path, std::shared_ptr<YError>* error) {
  YFileBytes bytes;
  if (!readWholeFile(path, error, bytes)) return std::nullopt;
  return bytes;
}

bool YWriteFile(const YString& path, std::string_view bytes, const YFileWriteOptions& options,
                std::shared_ptr<YError>* error) {
  bool given = false;
  return YWriteFileChunks(
      path,
      [&]() -> std::string_view {
        if (given) return {};
        given = true;
        return bytes;
      },
      options, error);
}

bool YWriteFile(const YString& path, std::string_view bytes, bool atomically, std::shared_ptr<YError>* error) {
  return YWriteFile(path, bytes, YFileWriteOptions{.atomically = atomically}, error);
}

bool YWriteFileChunks(const YString& path, const std::function<std::string_view()>& next,
                      const YFileWriteOptions& options, std::shared_ptr<YError>* error) {
  if (path.isNull() || path.length() == 0) {
    setError(error, YFileWriteUnknownError, YString(u"No file path given"));
    return false;
  }
  Target target;
  if (!examine(path, target, error)) return false;
  if (target.special) {
    if (options.writeThrough && canWriteThrough(target.status.st_mode)) return writeThrough(path, target, next, error);
    return notARegularFile(error, path, kindOf(target.status.st_mode), S_ISDIR(target.status.st_mode) ? EISDIR : 0);
  }
  if (options.writeThrough && target.exists && target.throughDescriptor)
    return writeThrough(path, target, next, error);
  if (options.atomically) return writeAtomically(path, target, next, error);
  return options.staged ? writeInPlaceStaged(path, target, next, error) : writeInPlace(path, target, next, error);
}

bool YWriteFileChunks(const YString& path, const std::function<std::string_view()>& next, bool atomically,
                      std::shared_ptr<YError>* error) {
  return YWriteFileChunks(path, next, YFileWriteOptions{.atomically = atomically}, error);
}

std::optional<std::uint64_t> YFileLinkCount(const YString& path, std::shared_ptr<YError>* error) {
  struct stat status{};
  if (path.isNull() || ::stat(path.UTF8String().c_str(), &status) != 0) {
    const int err = path.isNull() ? ENOENT : errno;
    setError(error, readCode(err), describeErrno("Cannot examine file", path, err), err);
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(status.st_nlink);
}
