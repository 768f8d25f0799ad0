/// \file YError.h
/// Error objects returned (never thrown) by operations that can fail in ordinary use.
#pragma once

#include <cstdint>
#include <memory>

#include "YObject.h"

/// Errors of file and encoding operations.
extern const YString YFoundationErrorDomain;  // "YFoundationErrorDomain"

/// Codes in YFoundationErrorDomain.
enum YFoundationErrorCode : std::int64_t {
  YFileNoSuchFileError = 4,
  YFileReadUnknownError = 256,
  YFileReadNoPermissionError = 257,
  YFileReadInapplicableStringEncodingError = 261,
  YFileReadTooLargeError = 263,
  YFileWriteUnknownError = 512,
  YFileWriteNoPermissionError = 513,
  YFileWriteInapplicableStringEncodingError = 517,
  YFileWriteNotARegularFileError = 520,  ///< the target is a folder, FIFO, device, socket or link loop
  YFileWriteNotFlushedError = 521,       ///< replaced, but the folder could not be flushed to disk
  YFileWriteOutOfSpaceError = 640,
  YFileWriteTooLargeError = 641,         ///< beyond the process's file size limit (EFBIG)
  YFileWriteVolumeReadOnlyError = 642,
};

/// What went wrong: a domain, a code, a sentence for people and, for system
/// failures, the underlying errno (0 when there is none).
class YError : public YObject {
 public:
  /// An error of `domain` and `code` described by `localizedDescription`,
  /// with the errno behind it (0 for none). Nothing is validated.
  YError(YString domain, std::int64_t code, YString localizedDescription, int underlyingErrno = 0);
  /// A new shared error, as the constructor makes it.
  static std::shared_ptr<YError> errorWithDomainCodeDescription(YString domain, std::int64_t code,
                                                                 YString localizedDescription,
                                                                 int underlyingErrno = 0);

  /// The domain, such as YFoundationErrorDomain or YIniErrorDomain.
  const YString& domain() const noexcept { return _domain; }
  /// The code within the domain (YFoundationErrorCode, YIniErrorCode).
  std::int64_t code() const noexcept { return _code; }
  /// One sentence for people, naming what failed (a path, an element).
  const YString& localizedDescription() const noexcept { return _description; }
  /// The system's errno behind the failure, or 0.
  int underlyingErrno() const noexcept { return _errno; }
  /// "Error Domain=<domain> Code=<code> \"<description>\"".
  YString description() const override;

 private:
  YString _domain;
  std::int64_t _code;
  YString _description;
  int _errno;
};
