#include "YIniDocument+Extensions.h"

#include <algorithm>

#include "YAssertionHandler.h"
#include "YIniOptionWriter.h"
#include "YIniSectionWriter.h"
#include "YStringWritable.h"
#include "YStringWriter.h"
#include "YTextWritable.h"

static constexpr const char YUnitName[] = "YIniDocument+Extensions";

// ---- loading ----------------------------------------------------------------

bool YIniDocument::checkLoadingFactory(const YIniElementFactory* factory) {
  return !YCParameterFailed(factory != nullptr, "factory != nil");
}

YIniDocument* YIniDocument::initWithStringFactory(const YString& string, std::shared_ptr<YIniElementFactory> factory) {
  if (YParameterFailed(factory != nullptr, "theFactory != nil")) return nullptr;
  auto enumerator = YIniDocumentEnumerator::enumeratorWithStringFactory(string, factory);
  _loadedLength = string.length();
  auto pending = YArray<YIniComment>::mutableArray();
  std::shared_ptr<YIniSection> currentSection;
  while (std::shared_ptr<YIniElement> element = enumerator->nextObject()) {
    if (auto section = YCast<YIniSection>(element)) {
      addCommentsToObject(pending, currentSection ? static_cast<YIniCompositeElement&>(*currentSection)
                                                  : static_cast<YIniCompositeElement&>(*this));
      addElement(section);
      currentSection = std::move(section);
    } else if (auto option = YCast<YIniOption>(element)) {
      if (!currentSection) {
        YReportAssertionFailure(__func__, this, YUnitName, __LINE__, YString(u"Options must belong to a Section"));
        continue;  // the handler returned: the option has nowhere to go
      }
      addCommentsToObject(pending, *currentSection);
      currentSection->addElement(option);
    } else if (auto comment = YCast<YIniComment>(element)) {
      pending->addObject(std::move(comment));
    }
  }
  addCommentsToObject(pending, *this);
  return this;
}

YIniDocument* YIniDocument::initWithContentsOfFileFactory(const YString& path,
                                                          std::shared_ptr<YIniElementFactory> factory) {
  if (YParameterFailed(factory != nullptr, "theFactory != nil")) return nullptr;
  YString text = YString::stringWithContentsOfFileUsedEncodingError(path, nullptr, nullptr);
  return initWithStringFactory(text, std::move(factory));
}

void YIniDocument::addCommentsToObject(const std::shared_ptr<YArray<YIniComment>>& comments,
                                       YIniCompositeElement& object) {
  for (const auto& comment : comments->vector()) object.addElement(comment);
  comments->removeAllObjects();
}

// ---- merged output ----------------------------------------------------------

void YIniDocument::writeOptionsWithNamesForSectionNameToWriter(const std::vector<YString>& names,
                                                               const YString& sectionName,
                                                               const std::shared_ptr<YTextWriter>& writer) {
  if (sectionName.isNull()) return;
  std::shared_ptr<YIniSection> section = sectionForName(sectionName);
  if (!section) return;
  for (const YString& name : names) {
    writer->writeLine();
    YIniOptionWriter::writerWithOption(section->optionWithName(name))->write(writer);
  }
}

YString YIniDocument::stringValueMergedWith(const YString& templateString) {
  YString result = YString::mutableString();
  auto writer = YStringWriter::writerWithString(result);
  auto enumerator = YIniDocumentEnumerator::enumeratorWithStringFactory(templateString, factory());
  std::vector<YString> pendingNames;
  auto pendingQueue = YArray<YTextWritable>::mutableArray();
  YString activeSectionName;

  while (std::shared_ptr<YIniElement> element = enumerator->nextObject()) {
    if (auto section = YCast<YIniSection>(element)) {
      writeOptionsWithNamesForSectionNameToWriter(pendingNames, activeSectionName, writer);
      YTextWritable::writeToWriter(pendingQueue, writer);
      YIniSectionWriter::writerWithSectionWriteOptions(section, false)->write(writer);
      activeSectionName = section->name();
      std::shared_ptr<YIniSection> ownSection = sectionForName(activeSectionName);
      pendingNames = ownSection ? ownSection->optionNames() : std::vector<YString>{};
    } else if (auto option = YCast<YIniOption>(element)) {
      if (YParameterFailedAtLine(!activeSectionName.isNull(), "activeSectionName != nil", 229)) return {};
      YTextWritable::writeToWriter(pendingQueue, writer);
      std::shared_ptr<YIniOption> optionToWrite = option;
      std::shared_ptr<YIniSection> ownSection = sectionForName(activeSectionName);
      if (ownSection && ownSection->hasOptionWithName(option->name())) {
        optionToWrite = ownSection->optionWithName(option->name());
        const YString& name = optionToWrite->name();
        std::erase_if(pendingNames, [&](const YString& pending) { return pending.isEqualToString(name); });
      }
      YIniOptionWriter::writerWithOption(optionToWrite)->write(writer);
    } else {
      // Comments are queued as elements, not text: flushing hands the element
      // to the string writer, which refuses it. Kept deliberately.
      pendingQueue->addObject(YStringWritable::writableWithValue(element));
    }
  }
  writeOptionsWithNamesForSectionNameToWriter(pendingNames, activeSectionName, writer);
  YTextWritable::writeToWriter(pendingQueue, writer);
  return result;
}

// ---- saving -------------------------------------------------------------------

bool YIniDocument::writeToFileAtomicallyEncodingError(const YString& filePath, bool atomically,
                                                      YStringEncoding encoding, std::shared_ptr<YError>* error) {
  if (YParameterFailedAtLine(!filePath.isNull(), "filePath != nil", 146)) return false;
  return stringValue().writeToFileAtomicallyEncodingError(filePath, atomically, encoding, error);
}
