// Files for the command-line tool: finding the file a path names, reading
// it with the encoding it was written in, locking its folder while it is
// edited, noticing a change made meanwhile, and writing bytes back (in
// place atomically, or through into a device, a pipe or standard output).
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "YFoundation.h"

namespace corvane::cli {

/// A failure of reading, decoding, encoding or writing, for people: the
/// message names the file and says what went wrong.
struct FileProblem {
  std::string message;
};

/// An encoding as bytes on disk: the converter to use and the byte-order mark
/// written before its output (empty when there is none).
struct TextEncoding {
  YStringEncoding encoding = YUTF8StringEncoding;
  std::string byteOrderMark;

  /// "UTF-8", "UTF-8 with BOM", "UTF-16LE with BOM", …
  std::string name() const;
  /// Bytes per code unit of a line feed: 1, 2 (UTF-16) or 4 (UTF-32).
  std::size_t unitSize() const;
};

/// The file a path names, following symbolic links (a relative link is read
/// from the link's folder). Fails for a link that loops or leads nowhere; a
/// missing file at the end of no link is `missing`, not a failure.
struct ResolvedPath {
  std::string path;
  bool missing = false;
};
std::optional<ResolvedPath> resolvePath(const std::string& path, FileProblem& problem);

/// What tells a file's content apart from a later one without reading it:
/// device, inode, size and modification time (to the nanosecond). Two
/// identities of a missing file are equal.
struct FileIdentity {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  struct timespec modified {};
  mode_t mode = 0;  ///< type and permissions; not compared
  bool operator==(const FileIdentity& other) const;
};
FileIdentity identityOf(const std::string& path);

/// An exclusive flock() on a folder, held until destruction. Writers of the
/// same folder that take it run one after the other; no lock file is made.
class FolderLock {
 public:
  /// Locks the folder that holds `file`, waiting for it. False and
  /// `problem` when the folder cannot be opened.
  bool lock(const std::string& file, FileProblem& problem);
  ~FolderLock();
  FolderLock() = default;
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int _fd = -1;
};

/// A file's bytes, their text and the encoding they were read in.
struct TextFile {
  std::string bytes;
  YString text;
  TextEncoding encoding;
  /// Byte offsets of the invalid UTF-8 sequences read as U+FFFD (none for
  /// other encodings).
  std::vector<std::size_t> invalidBytes;
};

/// A file name as the library takes it, text decoded from the name's bytes
/// as UTF-8; nothing, with the problem, for a name that is not valid UTF-8.
std::optional<YString> pathString(const std::string& path, FileProblem& problem);

/// Reads the file at `path` (`label` names it in messages).
std::optional<std::string> readBytes(const std::string& path, const std::string& label, FileProblem& problem);
/// Reads standard input to its end.
std::optional<std::string> readStandardInput(FileProblem& problem);

/// Decodes `bytes`, detecting the encoding (byte-order mark, UTF-16
/// without one, UTF-8 with a few invalid sequences at most, then a
/// statistical guess). Empty bytes are empty UTF-8 text.
std::optional<TextFile> decodeTextFile(std::string bytes, const std::string& label, FileProblem& problem);

/// The encoding named `name` ("utf-8", "utf-16", "latin1", …), as the
/// platform writes it; nothing for a name it does not know or cannot write.
std::optional<TextEncoding> textEncodingNamed(const std::string& name);

/// `text` as bytes in `encoding`, without the byte-order mark. A character
/// the encoding cannot represent fails: nothing, and `problem` names `label`.
std::optional<std::string> encodeText(const YString& text, const TextEncoding& encoding, const std::string& label,
                                      FileProblem& problem);

/// Where each line of `bytes` (in `encoding`, the byte-order mark first)
/// begins: after the mark, then after each line feed; the last entry is the
/// end of the bytes, so line i (1-based) is [starts[i - 1], starts[i]).
std::vector<std::size_t> lineStarts(std::string_view bytes, const TextEncoding& encoding);

/// How writeOutput wrote.
enum class WriteMode { Replaced, WrittenThrough };

/// Writes `bytes` to `path`: into standard output or error for "-",
/// "/dev/stdout", "/dev/stderr" and "/dev/fd/N"; through into an existing
/// character device, FIFO or socket, which is never replaced; otherwise by
/// replacing the file atomically and durably (a temporary file in the same
/// folder, flushed, renamed over it), keeping its mode. False and `problem`
/// on failure; a replaced file is then as it was.
bool writeOutput(const std::string& path, std::string_view bytes, FileProblem& problem, WriteMode* mode = nullptr);

/// Why `path`, an existing regular file, is not to be written without
/// --force: "no write permission bit" (none set at all, as with mode 0444),
/// or "no write permission for this user"; null when it may be written.
const char* writeProtection(const std::string& path);

}  // namespace corvane::cli
