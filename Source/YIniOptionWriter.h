/// \file YIniOptionWriter.h
/// Writes one option as "name=value".
#pragma once

#include <memory>

#include "YIniOption.h"
#include "YTextWritable.h"

/// Writes an option's line: the name, "=", the value (a null value as ""),
/// with nothing trimmed or escaped and no line end. Holds the option (shared).
class YIniOptionWriter : public YTextWritable {
 public:
  /// A writer for `option`; null is accepted and writes "(null)=".
  explicit YIniOptionWriter(std::shared_ptr<YIniOption> option);
  /// A new shared writer of class T (YIniOptionWriter or a subclass made from an option).
  template <class T = YIniOptionWriter>
  static std::shared_ptr<T> writerWithOption(std::shared_ptr<YIniOption> option) {
    return std::make_shared<T>(std::move(option));
  }

  /// The option written (shared; may be null).
  const std::shared_ptr<YIniOption>& option() const noexcept { return _option; }
  /// Writes the line. A null writer is a failed precondition ("textWriter != nil").
  void write(const std::shared_ptr<YTextWriter>& textWriter) override;
  /// Writes the line of `option` (null writes "(null)=") to `target`, as
  /// write() does, without a writer object.
  static void writeOptionTo(const YIniOption* option, YTextWriter& target);
  /// The line of `option` with a line end after it, into exactly a
  /// YStringWriter or YUTF8Writer (`target`), in one piece.
  static void writeOptionLineTo(const YIniOption* option, YTextWriter& target);

 private:
  std::shared_ptr<YIniOption> _option;
};
