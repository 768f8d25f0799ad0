#include "YIniDocument+Extensions.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <typeinfo>
#include <utility>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "YAllocator.h"
#include "YAssertionHandler.h"
#include "YFile.h"
#include "YIniOptionWriter.h"
#include "YIniSectionWriter.h"
#include "YIniSourceRecord.h"
#include "YIniDocumentWriter.h"
#include "YIniLineRecognizer.h"
#include "YUTF8Writer.h"
#include "YIniStandardElementFactory.h"
#include "YStringWritable.h"
#include "YStringWriter.h"
#include "YTextWritable.h"

static constexpr const char YUnitName[] = "YIniDocument+Extensions";
// The lines this unit's preconditions report beside YUnitName. A host's
// assertion handler may tell failures apart by unit and line, so they are
// fixed numbers, independent of where the checks stand in this file.
static constexpr int YFilePathCheckLine = 146;  // "filePath != nil"
static constexpr int YActiveSectionCheckLine = 229;  // "activeSectionName != nil"

// ---- loading ----------------------------------------------------------------

bool YIniDocument::checkLoadingFactory(const YIniElementFactory* factory) {
  return !YCParameterFailed(factory != nullptr, "factory != nil");
}

YIniDocument* YIniDocument::initWithStringFactory(const YString& string, std::shared_ptr<YIniElementFactory> factory) {
  if (YParameterFailed(factory != nullptr, "theFactory != nil")) return nullptr;
  return loadTextFactoryRecord(string, std::move(factory),
                               string.isNull() ? nullptr : std::make_shared<YIniSourceRecord>(string));
}

YIniDocument* YIniDocument::loadTextFactoryRecord(const YString& string, std::shared_ptr<YIniElementFactory> factory,
                                                  std::shared_ptr<YIniSourceRecord> record) {
  auto enumerator = YIniDocumentEnumerator::enumeratorWithStringFactory(string, factory);
  _loadedLength = string.length();
  _source = std::move(record);
  enumerator->_record = _source.get();
  if (_source && _source->isASCII()) {
    enumerator->readASCII(_source->asciiText());
    _loadedLength = _source->length();
  }
  // A new document of the library's own class, filled with the standard
  // factory's elements, has no party but itself to hear the announcements
  // placing them: its elements are then placed quietly, and every flag is
  // settled at the end to what the announcements would have left.
  const YIniElementFactory& factoryObject = *factory;  // typeid of a plain reference: no call inside it
  const bool quiet = typeid(*this) == typeid(YIniDocument) &&
                     typeid(factoryObject) == typeid(YIniStandardElementFactory) && observationCount() == 1 &&
                     elementsList()->count() == 0 && initialElements()->count() == 0;
  std::shared_ptr<YIniSection> currentSection;
  // Placed quietly, a section's elements wait here until the section ends
  // and then go to its list at once: the list is made at its exact size
  // instead of doubling as it grows.
  std::vector<std::shared_ptr<YIniElement>, YSmallObjectAllocator<std::shared_ptr<YIniElement>>> sectionElements(
      quiet ? 16 : 0);
  std::size_t sectionCount = 0;  // those waiting in sectionElements
  auto gather = [&](std::shared_ptr<YIniElement>& element) {
    if (sectionCount == sectionElements.size()) sectionElements.resize(2 * sectionCount);
    sectionElements[sectionCount++] = std::move(element);
  };
  // Takes `element` (moved from) to `target`.
  auto place = [&](YIniCompositeElement& target, std::shared_ptr<YIniElement>& element) {
    if (!quiet) return target.addElement(std::move(element));
    if (&target == currentSection.get()) return gather(element);
    target.appendQuietly(std::move(element));
  };
  auto closeSection = [&] {
    // Taken before appending: a failed append is not tried again from the catch below.
    const std::size_t count = std::exchange(sectionCount, 0);
    if (currentSection && count) currentSection->appendQuietly(sectionElements.data(), count);
  };
  // Placed quietly, the list holds only what was loaded, each of exactly the
  // library's classes: its sections are the composites to settle.
  auto settle = [&] {
    for (const auto& element : elementsList()->vector())
      if (ydetail::isExactly<YIniSection>(*element)) static_cast<YIniCompositeElement&>(*element).settleQuietly();
    settleQuietly();
  };
  // Comments wait for the element after them, which tells where they go.
  auto pending = YArray<YIniComment>::mutableArray();
  // The same, placed quietly; from the pool, as most runs of comments are short.
  std::vector<std::shared_ptr<YIniElement>, YSmallObjectAllocator<std::shared_ptr<YIniElement>>> quietPending;
  auto flush = [&](YIniCompositeElement& target) {
    if (!quiet) return addCommentsToObject(pending, target);
    if (quietPending.empty()) return;
    for (auto& comment : quietPending) place(target, comment);
    quietPending.clear();
  };
  auto hold = [&](std::shared_ptr<YIniElement> element, YIniComment* comment) {
    if (quiet) return quietPending.push_back(std::move(element));
    pending->addObject(std::shared_ptr<YIniComment>(std::move(element), comment));
  };
  try {
    while (std::shared_ptr<YIniElement> element = enumerator->nextObject()) {
      // Each element is passed on, not copied: its count changes once. The
      // standard factory's elements are of exactly the library's classes,
      // options the most common: known at once without a kind test.
      if (quiet && currentSection && ydetail::isExactly<YIniOption>(*element)) {
        flush(*currentSection);
        gather(element);
        continue;
      }
      if (quiet && ydetail::isExactly<YIniComment>(*element)) {
        quietPending.push_back(std::move(element));
        continue;
      }
      if (auto* section = YCast<YIniSection>(element.get())) {
        flush(currentSection ? static_cast<YIniCompositeElement&>(*currentSection)
                             : static_cast<YIniCompositeElement&>(*this));
        std::shared_ptr<YIniSection> held(element, section);
        closeSection();
        place(*this, element);
        currentSection = std::move(held);
      } else if (YCast<YIniOption>(element.get())) {
        if (!currentSection) {
          YReportAssertionFailure(__func__, this, YUnitName, __LINE__, YString(u"Options must belong to a Section"));
          continue;  // the handler returned: the option has nowhere to go
        }
        flush(*currentSection);
        place(*currentSection, element);
      } else if (auto* comment = YCast<YIniComment>(element.get())) {
        hold(std::move(element), comment);
      }
    }
    closeSection();
    flush(*this);
  } catch (...) {
    if (quiet) {
      closeSection();
      settle();
    }
    throw;
  }
  if (quiet) settle();
  if (_source) _source->finish();
  return this;
}

namespace {

// Whether `bytes` are read as ASCII: none is NUL or above 0x7F (so that
// they are UTF-8 that every other encoding check passes over, each byte one
// code unit), and the line recogniser, which alone reads bytes, is on.
bool readsAsASCII(std::string_view bytes) noexcept {
  if (!YIniLineRecognizer::isEnabled() || bytes.size() > std::size_t(INT32_MAX)) return false;
  const char* p = bytes.data();
  const std::size_t n = bytes.size();
  std::size_t i = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  __m128i bad = zero;  // the high bit of each byte above 0x7F or NUL
  for (; i + 16 <= n; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    bad = _mm_or_si128(bad, _mm_or_si128(v, _mm_cmpeq_epi8(v, zero)));
  }
  if (_mm_movemask_epi8(bad) != 0) return false;
#endif
  for (; i < n; ++i)
    if (p[i] == 0 || static_cast<unsigned char>(p[i]) >= 0x80) return false;
  return true;
}

// The text `bytes` hold, with its encoding detected, and a source record
// that keeps only what decoding the bytes again would not give back.
std::pair<YString, std::shared_ptr<YIniSourceRecord>> decodeWithRecord(std::string_view bytes) {
  YStringEncoding encoding = YUTF8StringEncoding;
  YString text = YDecodeBytesDetectingEncoding(bytes, &encoding, nullptr);
  if (text.isNull()) return {};
  auto record = std::make_shared<YIniSourceRecord>(text);
  record->attachBytes(bytes, encoding);
  return {text, record};
}

}  // namespace

YIniDocument* YIniDocument::initWithContentsOfFileFactory(const YString& path,
                                                          std::shared_ptr<YIniElementFactory> factory) {
  if (YParameterFailed(factory != nullptr, "theFactory != nil")) return nullptr;
  std::pair<YString, std::shared_ptr<YIniSourceRecord>> decoded;
  if (std::optional<YFileBytes> bytes = YReadFileBytes(path, nullptr)) {
    // ASCII is read as it is, and its record keeps it instead of a UTF-16
    // copy; other bytes are decoded, and gone before the elements are made.
    if (readsAsASCII(bytes->view())) decoded.second = std::make_shared<YIniSourceRecord>(std::move(*bytes));
    else decoded = decodeWithRecord(bytes->view());
  }
  return loadTextFactoryRecord(decoded.first, std::move(factory), std::move(decoded.second));
}

YIniDocument* YIniDocument::initWithDataFactory(std::string_view bytes, std::shared_ptr<YIniElementFactory> factory) {
  if (YParameterFailed(factory != nullptr, "theFactory != nil")) return nullptr;
  if (readsAsASCII(bytes)) {
    YFileBytes copy;
    copy.resize(bytes.size());
    if (!bytes.empty()) std::memcpy(copy.data(), bytes.data(), bytes.size());
    return loadTextFactoryRecord(YString(), std::move(factory), std::make_shared<YIniSourceRecord>(std::move(copy)));
  }
  auto decoded = decodeWithRecord(bytes);
  return loadTextFactoryRecord(decoded.first, std::move(factory), std::move(decoded.second));
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
  if (!enumerator) return {};  // no factory, and the handler returned
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
      if (YParameterFailedAtLine(!activeSectionName.isNull(), "activeSectionName != nil", YActiveSectionCheckLine))
        return {};
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
  if (YParameterFailedAtLine(!filePath.isNull(), "filePath != nil", YFilePathCheckLine)) return false;
  // The library's own document writes UTF-8 straight into the bytes it
  // saves, the same text stringValue() gives, without holding it as UTF-16.
  if (encoding == YUTF8StringEncoding && typeid(*this) == typeid(YIniDocument))
    return writeUTF8ToFileInPieces(filePath, atomically, error);
  return stringValue().writeToFileAtomicallyEncodingError(filePath, atomically, encoding, error);
}

// The text goes a piece at a time, as it is made, to the temporary file of
// an atomic save or the staging file of one in place, instead of whole into
// memory: a lone surrogate, or an exception from code that writing runs,
// removes that file and leaves the target as it was.
bool YIniDocument::writeUTF8ToFileInPieces(const YString& filePath, bool atomically, std::shared_ptr<YError>* error) {
  constexpr std::size_t kPieceBytes = std::size_t(256) << 10;
  struct LoneSurrogate {};
  const auto writer =
      std::make_shared<YUTF8Writer>(std::min<std::size_t>(_loadedLength + _loadedLength / 16, kPieceBytes * 2));
  const auto list = elements();  // walked as YIniDocumentWriter walks it, a changed list failing the walk
  auto child = list->begin();
  const auto end = list->end();
  bool finished = false;
  std::shared_ptr<YError> failure;
  auto nextPiece = [&]() -> std::string_view {
    writer->dropBytes();  // the piece before is in the file
    while (writer->bytes().size() < kPieceBytes && child != end) {
      YIniDocumentWriter::writeChildTo(*child, writer);
      ++child;
    }
    if ((child == end && !std::exchange(finished, true)) || writer->heldLoneSurrogate()) {
      if (!writer->finish(&failure)) throw LoneSurrogate{};
    }
    return writer->bytes();
  };
  try {
    return YWriteFileChunks(filePath, nextPiece, YFileWriteOptions{.atomically = atomically, .staged = true}, error);
  } catch (const LoneSurrogate&) {
    if (error) *error = failure;
    return false;
  }
}
