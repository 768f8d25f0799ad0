#include "YIniDocumentWriter.h"

#include "YAssertionHandler.h"
#include "YIniSectionWriter.h"
#include "YStringWritable.h"

static constexpr const char YUnitName[] = "YIniDocumentWriter";
// The line this unit's precondition reports beside YUnitName. A host's
// assertion handler may tell failures apart by unit and line, so it is a
// fixed number, independent of where the check stands in this file.
static constexpr int YTextWriterCheckLine = 82;  // "textWriter != nil"

YIniDocumentWriter::YIniDocumentWriter(std::shared_ptr<YIniDocument> document) : _document(std::move(document)) {}

void YIniDocumentWriter::write(const std::shared_ptr<YTextWriter>& textWriter) {
  if (YParameterFailedAtLine(textWriter != nullptr, "textWriter != nil", YTextWriterCheckLine)) return;
  if (!_document) return;
  auto elements = _document->elements();
  for (const auto& element : *elements) writeChildTo(element, textWriter);
}

void YIniDocumentWriter::writeChildTo(const std::shared_ptr<YIniElement>& element,
                                      const std::shared_ptr<YTextWriter>& textWriter) {
  if (auto section = YCast<YIniSection>(element)) {
    YIniSectionWriter(section, true).write(textWriter);
  } else if (auto* comment = YCast<YIniComment>(element.get())) {
    YStringWritable(comment->stringValue()).write(textWriter);
  }
}
