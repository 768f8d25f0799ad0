// Merges a document into a template, both taken from the input: the bytes
// before the first NUL are the template, the bytes after it the document (an
// input without NUL is used as both).
//
// The merge fails by design in two ways only: a template that yields any
// comment element (comment, blank line, a header's line end, unrecognised
// text) makes the flush raise YInvalidArgumentException, and an option before
// the template's first section fails the precondition
// "activeSectionName != nil". Any other exception, or one of these where it
// cannot arise, is a bug.
#include <cstring>
#include <exception>

#include "FuzzSupport.h"
#include "YIniComment.h"
#include "YIniDocument.h"
#include "YIniDocumentEnumerator.h"
#include "YIniOption.h"
#include "YIniSection.h"
#include "YIniStandardElementFactory.h"

using fuzzsupport::fail;

namespace {

struct TemplateShape {
  bool hasComment = false;           // some comment element anywhere
  bool optionBeforeSection = false;  // an option ahead of the first section
};

// What the merge's own enumeration of the template will meet.
TemplateShape shapeOf(const YString& templateText, const std::shared_ptr<YIniElementFactory>& factory) {
  TemplateShape shape;
  bool sectionSeen = false;
  auto enumerator = YIniDocumentEnumerator::enumeratorWithStringFactory(templateText, factory);
  auto elements = enumerator->allObjects();
  for (const auto& element : elements->vector()) {
    if (std::dynamic_pointer_cast<YIniSection>(element)) {
      sectionSeen = true;
    } else if (std::dynamic_pointer_cast<YIniOption>(element)) {
      if (!sectionSeen && !shape.hasComment) shape.optionBeforeSection = true;
    } else {
      shape.hasComment = true;
    }
  }
  return shape;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::quietLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* separator = static_cast<const std::uint8_t*>(std::memchr(data, 0, size));
  const std::size_t templateSize = separator ? static_cast<std::size_t>(separator - data) : size;
  const YString templateText = fuzzsupport::decodeInput(data, templateSize);
  const YString documentText =
      separator ? fuzzsupport::decodeInput(separator + 1, size - templateSize - 1) : templateText;

  auto factory = YIniStandardElementFactory::standardFactory();
  std::shared_ptr<YIniDocument> document;
  TemplateShape shape;
  try {
    document = YIniDocument::documentFromStringFactory(documentText, factory);
    shape = shapeOf(templateText, factory);
  } catch (const std::exception& e) {
    fail("exception while loading", YString::stringWithFormat("%s", e.what()));
  }
  if (!document) fail("loading returned no document");

  try {
    const YString merged = document->stringValueMergedWith(templateText);
    if (merged.isNull()) fail("the merge returned null");
    if (shape.hasComment || shape.optionBeforeSection) fail("the merge completed over a failing template", merged);
  } catch (const YInvalidArgumentException&) {
    if (!shape.hasComment) fail("YInvalidArgumentException from a template without comment elements");
  } catch (const YInternalInconsistencyException& e) {
    if (e.reason().view().find(u"activeSectionName != nil") == std::u16string_view::npos)
      fail("unexpected YInternalInconsistencyException", e.reason());
    if (!shape.optionBeforeSection) fail("\"activeSectionName != nil\" without an option before the first section");
  } catch (const std::exception& e) {
    fail("unexpected exception from the merge", YString::stringWithFormat("%s", e.what()));
  }
  return 0;
}
