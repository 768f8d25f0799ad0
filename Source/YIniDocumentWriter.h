/// \file YIniDocumentWriter.h
/// Writes a whole document as INI text.
#pragma once

#include <memory>

#include "YIniDocument.h"
#include "YTextWritable.h"

/// Writes a document's top-level children in list order: each section with a
/// YIniSectionWriter, each comment exactly as it stands, anything else not at
/// all. Adds nothing of its own (no line end between sections or at the end).
class YIniDocumentWriter : public YTextWritable {
 public:
  /// A writer for `document`; null is accepted and writes nothing.
  explicit YIniDocumentWriter(std::shared_ptr<YIniDocument> document);
  /// A new shared writer of class T (YIniDocumentWriter or a subclass made from a document).
  template <class T = YIniDocumentWriter>
  static std::shared_ptr<T> writerWithDocument(std::shared_ptr<YIniDocument> document) {
    return std::make_shared<T>(std::move(document));
  }

  /// The document written (shared; may be null).
  const std::shared_ptr<YIniDocument>& document() const noexcept { return _document; }
  /// Writes the document. A null writer is a failed precondition ("textWriter != nil").
  /// Changing the document's list meanwhile raises YMutationDuringEnumerationException.
  void write(const std::shared_ptr<YTextWriter>& textWriter) override;
  /// Writes `element`, one of the document's top-level children, as write()
  /// does: a section with a YIniSectionWriter, a comment as it stands,
  /// anything else not at all. For writing the document a part at a time.
  static void writeChildTo(const std::shared_ptr<YIniElement>& element, const std::shared_ptr<YTextWriter>& textWriter);

 private:
  std::shared_ptr<YIniDocument> _document;
};
