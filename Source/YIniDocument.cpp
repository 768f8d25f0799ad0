#include "YIniDocument.h"

#include <typeinfo>

#include "NSString+Extensions.h"
#include "YAssertionHandler.h"
#include "YIniDocumentWriter.h"
#include "YStringWriter.h"

static constexpr const char YUnitName[] = "YIniDocument";

YIniDocument::YIniDocument(std::shared_ptr<YIniElementFactory> theFactory) {
  if (YParameterFailed(theFactory != nullptr, "theFactory != nil")) return;
  _factory = std::move(theFactory);
}

bool YIniDocument::checkFactory(const std::shared_ptr<YIniElementFactory>& factory) {
  return !YCParameterFailed(factory != nullptr, "factory != nil");
}

std::shared_ptr<YIniDocument::SectionList> YIniDocument::sections() const {
  return arrayWithObjectsOfClass<YIniSection>(elements());
}

std::shared_ptr<YIniDocument::CommentList> YIniDocument::comments() const {
  return arrayWithObjectsOfClass<YIniComment>(elements());
}

void YIniDocument::removeAllSections() {
  auto list = sections();
  // Removals nobody could hear of are made at once (see removeAllElements());
  // the list taken first keeps every section alive until the end.
  const auto& all = list->vector();
  std::vector<std::shared_ptr<YIniElement>> batch;
  for (std::size_t next = 0; next < all.size();) {
    const std::size_t quiet = std::min(quietlyRemovable(), all.size() - next);
    if (quiet == 0) {
      removeElement(all[next++]);
      continue;
    }
    batch.assign(all.begin() + static_cast<std::ptrdiff_t>(next), all.begin() + static_cast<std::ptrdiff_t>(next + quiet));
    removeQuietly(batch.data(), quiet);
    next += quiet;
  }
}

std::shared_ptr<YIniSection> YIniDocument::sectionForName(const YString& name) const {
  if (YParameterFailed(!name.isNull(), "name != nil")) return nullptr;
  auto list = elements();
  for (const auto& element : *list) {
    auto* section = YCast<YIniSection>(element.get());
    if (section && section->name().isEqualToString(name)) return std::static_pointer_cast<YIniSection>(element);
  }
  return nullptr;
}

bool YIniDocument::hasSectionWithName(const YString& name) const {
  if (YParameterFailed(!name.isNull(), "name != nil")) return false;
  return sectionForName(name) != nullptr;
}

YString YIniDocument::stringValue() {
  YString string = YString::mutableString(_loadedLength + _loadedLength / 64);
  YIniDocumentWriter::writerWithDocument(std::static_pointer_cast<YIniDocument>(shared_from_this()))
      ->write(YStringWriter::writerWithString(string));
  return string;
}

std::shared_ptr<YIniCompositeElement> YIniDocument::makeEmptyCopy() const {
  return std::make_shared<YIniDocument>(_factory);
}

// Exactly this class: any of the library's own composites that is a YIniDocument is one.
bool YIniDocument::ignoresChangeValues() const noexcept { return isLibraryClass(); }
