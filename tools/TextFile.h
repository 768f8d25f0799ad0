// Reading and writing whole text files for the command-line tool, keeping the
// exact encoding a file was read in (byte-order mark and byte order included).
#pragma once

#include <optional>
#include <string>

#include "YFoundation.h"

namespace corvane::cli {

/// An encoding as bytes on disk: the converter to use and the byte-order mark
/// written before its output (empty when there is none or the converter
/// writes its own).
struct TextEncoding {
  YStringEncoding encoding = YUTF8StringEncoding;
  std::string byteOrderMark;

  /// "UTF-8", "UTF-8 with BOM", "UTF-16LE with BOM", …
  std::string name() const;
};

/// A file's text and the encoding it was read in.
struct TextFile {
  YString text;
  TextEncoding encoding;
};

/// A failure of reading, decoding, encoding or writing, for people: the
/// message names the file and says what went wrong.
struct FileProblem {
  std::string message;
};

/// Reads and decodes the file at `path`, detecting its encoding (byte-order
/// mark, then UTF-8, then a statistical guess). On failure returns nothing
/// and fills `problem`.
std::optional<TextFile> readTextFile(const std::string& path, FileProblem& problem);

/// The encoding named `name` ("utf-8", "utf-16", "latin1", …), as the
/// platform writes it; nothing for a name it does not know or cannot write.
std::optional<TextEncoding> textEncodingNamed(const std::string& name);

/// `text` as bytes in `encoding`, byte-order mark first. A character the
/// encoding cannot represent fails: nothing, and `problem` names `path`.
std::optional<std::string> encodeText(const YString& text, const TextEncoding& encoding, const std::string& path,
                                      FileProblem& problem);

/// Replaces the file at `path` with `bytes` atomically (a temporary file in
/// the same folder renamed over it), keeping its permission bits and
/// following a symbolic link. False and `problem` on failure.
bool writeFileAtomically(const std::string& path, const std::string& bytes, FileProblem& problem);

}  // namespace corvane::cli
