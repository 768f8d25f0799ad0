/// \file YFile.h
/// Reading whole files and writing them so that a failure or a crash never
/// leaves a half-written file in place.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "YError.h"
#include "YString.h"

/// Reads a whole file as bytes. Returns nothing and sets `*error` (when not
/// null) when the file cannot be opened or read, is a folder, or holds more
/// than 2^31 - 1 bytes (YFileReadTooLargeError).
[[nodiscard]] std::optional<std::string> YReadFile(const YString& path, std::shared_ptr<YError>* error);

/// The bytes of a whole file, as YReadFileBytes reads them (or as a save
/// builds them): a buffer owned by this object (move-only), from the
/// large-buffer allocator, so a big file's pages are faulted in at once and
/// never zero-filled first.
class YFileBytes {
 public:
  YFileBytes() noexcept = default;
  /// Takes `other`'s buffer; `other` is left empty.
  YFileBytes(YFileBytes&& other) noexcept { *this = std::move(other); }
  /// Frees this buffer and takes `other`'s; `other` is left empty.
  YFileBytes& operator=(YFileBytes&& other) noexcept;
  ~YFileBytes();

  /// The bytes (valid while this object lives and is not resized).
  std::string_view view() const noexcept { return {_data, _size}; }
  /// The bytes' storage, for filling it (null before any is allocated).
  char* data() noexcept { return _data; }
  /// The number of bytes.
  std::size_t size() const noexcept { return _size; }
  /// Makes the size `size`: the bytes before it are kept, new ones are not
  /// initialised. Throws std::bad_alloc when no memory is left.
  void resize(std::size_t size);

 private:
  char* _data = nullptr;
  std::size_t _size = 0;
  std::size_t _capacity = 0;
};

/// YReadFile, into a YFileBytes instead of a std::string: for big files, the
/// faster of the two.
[[nodiscard]] std::optional<YFileBytes> YReadFileBytes(const YString& path, std::shared_ptr<YError>* error);

/// How YWriteFile and YWriteFileChunks write.
///
/// Both modes check the target first. A path that names a regular file, a
/// symbolic link to one or nothing yet is written as described below; a
/// symbolic link is followed, so the file it points to changes and the link
/// stays (a dangling link gets its file created). Any other target fails with
/// YFileWriteNotARegularFileError and is left alone: a folder (EISDIR), a
/// loop of symbolic links (ELOOP), a FIFO, a character or block device or a
/// socket, unless `writeThrough` is set.
struct YFileWriteOptions {
  /// True: the bytes go to a new file in the target's folder that then
  /// replaces the target, so the target holds either its old or its new
  /// bytes, also after a crash or a kill:
  /// - The new file is unnamed until complete where the file system offers
  ///   O_TMPFILE; elsewhere it is named ".<name>.corvane-XXXXXX". A save that
  ///   is killed can leave such a named file behind; the next atomic save to
  ///   the same target removes those of its pattern that are clearly stale:
  ///   regular files with one link, owned by this user (or by the target's
  ///   owner), not modified for an hour.
  /// - The file is flushed to disk (fsync) before it replaces the target, and
  ///   the folder after; a failed flush of the folder is reported
  ///   (YFileWriteNotFlushedError) although the target has been replaced by
  ///   then. A folder the caller may not read cannot be flushed and is not.
  /// - The replacement keeps the target's permission bits, and its owner and
  ///   group where the process may set them (root may; others keep the group
  ///   when they belong to it); access control lists and extended attributes
  ///   are not copied. A new file gets 0666 less the process's umask, which
  ///   is never changed: the kernel applies it.
  /// - The target is a new file afterwards: other hard links to the old file
  ///   keep the old bytes (YFileLinkCount tells whether a target has any).
  ///
  /// False: the target is opened, truncated to nothing and written in place,
  /// with no flush to disk. A failure midway (a full disk, a size limit), a
  /// kill or a crash leaves the target truncated or partly written, possibly
  /// empty, and other processes can read it half-written. Hard links and the
  /// file's identity are kept. Use it only where losing the old bytes does
  /// not matter.
  bool atomically = true;
  /// In place only. True: the pieces are first written to an unnamed file in
  /// the target's folder (O_TMPFILE), and only once `next` has given the last
  /// of them is the target truncated and filled from that file by the kernel.
  /// An exception from `next` then leaves the target as it was, without the
  /// whole text held in memory; the bytes are written twice. The pieces are
  /// gathered in memory instead where the folder offers no such file (a
  /// folder the process may not write, a file system without O_TMPFILE), or
  /// no room for it, or where the target's volume would have no room for the
  /// copy while the staged one stands. Either way the target is truncated
  /// only where its volume says the text fits once it is (an estimate that
  /// knows no quota); else the save fails with YFileWriteOutOfSpaceError
  /// before the target is touched. A failure while the target itself is
  /// filled (a quota, an I/O error) leaves it partly written.
  bool staged = false;
  /// True: a FIFO, a character device or a block device (/dev/null, a
  /// terminal, a pipe behind /dev/stdout) is written into, never replaced,
  /// in both modes. Opening a FIFO waits until it has a reader. A regular
  /// file reached through a process's descriptor link (/dev/stdout,
  /// /dev/fd/N, /proc/PID/fd/N) is written into as well, at its end
  /// (O_APPEND), so that a shell's "> file" or ">> file" behind standard
  /// output is honoured. A reader that goes away fails the write with EPIPE;
  /// no SIGPIPE reaches the process. False: such targets fail as above, and
  /// no mode ever waits on a FIFO.
  bool writeThrough = false;
};

/// Writes `bytes` to `path` as `options` says. Returns true when all bytes
/// were written (and, atomically, flushed and put in place). On failure
/// returns false and sets `*error` (when not null) to an error of
/// YFoundationErrorDomain naming the path and the cause, with the errno:
/// YFileNoSuchFileError (a missing folder), YFileWriteNoPermissionError,
/// YFileWriteOutOfSpaceError, YFileWriteVolumeReadOnlyError,
/// YFileWriteTooLargeError (beyond the process's file size limit; SIGXFSZ
/// must be ignored or handled, or the kernel ends the process first),
/// YFileWriteNotARegularFileError, YFileWriteNotFlushedError, else
/// YFileWriteUnknownError. A failed atomic save leaves the target and the
/// folder as they were, but for stale temporary files it removed (and after
/// YFileWriteNotFlushedError, see above). Never throws for I/O failures.
[[nodiscard]] bool YWriteFile(const YString& path, std::string_view bytes, const YFileWriteOptions& options,
                              std::shared_ptr<YError>* error);
/// The same with the default options but `atomically`.
[[nodiscard]] bool YWriteFile(const YString& path, std::string_view bytes, bool atomically,
                              std::shared_ptr<YError>* error);
/// The same with the bytes handed over piece by piece: `next` returns the
/// next piece, and an empty one at the end. The pieces stay valid until the
/// next call. An exception from `next` removes the new file (when writing
/// atomically) and passes on; the target is then unchanged (atomically or
/// staged) or partly written (in place).
[[nodiscard]] bool YWriteFileChunks(const YString& path, const std::function<std::string_view()>& next,
                                    const YFileWriteOptions& options, std::shared_ptr<YError>* error);
/// The same with the default options but `atomically`.
[[nodiscard]] bool YWriteFileChunks(const YString& path, const std::function<std::string_view()>& next,
                                    bool atomically, std::shared_ptr<YError>* error);

/// The number of hard links of the file at `path` (symbolic links followed):
/// more than one means an atomic save would part this name from the others.
/// Nothing, with `*error` set when not null, when the file cannot be examined
/// (YFileNoSuchFileError when it does not exist).
[[nodiscard]] std::optional<std::uint64_t> YFileLinkCount(const YString& path, std::shared_ptr<YError>* error);
