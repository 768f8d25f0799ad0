/// \file YTextWritable.h
/// The base of everything that writes itself into a text writer.
#pragma once

#include <memory>

#include "YArray.h"
#include "YObject.h"
#include "YTextWriter.h"

/// Something that can write itself into a text writer: the element writers
/// and YStringWritable. The base class can be created, but writing it fails.
class YTextWritable : public YObject {
 public:
  /// Writes the receiver into `textWriter`. The base implementation refuses
  /// with YInvalidArgumentException (doesNotRecognizeSelector("write:"));
  /// every concrete writable overrides it.
  virtual void write(const std::shared_ptr<YTextWriter>& textWriter);

  /// Flushes a queue: writes each entry of `list` into `writer`, first to
  /// last, then empties the list. A null list writes nothing; a null writer is
  /// handed to each entry, whose own check reports it. If an entry raises, the
  /// error passes on and the list keeps its entries.
  static void writeToWriter(const std::shared_ptr<YArray<YTextWritable>>& list,
                            const std::shared_ptr<YTextWriter>& writer);
};
