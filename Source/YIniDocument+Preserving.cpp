// The preserving save of YIniDocument (see YIniDocument+Preserving.h): the
// text itself is made by YIniPreservingWriter from the YIniSourceRecord that
// loading kept.
#include "YIniDocument+Preserving.h"

#include "YAssertionHandler.h"
#include "YFile.h"
#include "YIniPreservingWriter.h"
#include "YIniSourceRecord.h"

static constexpr const char YUnitName[] = "YIniDocument+Preserving";

const YString YIniErrorDomain(u"YIniErrorDomain");

bool YIniDocument::readingStopped() const noexcept { return _source && _source->readingStopped(); }

std::size_t YIniDocument::readingStopLineNumber() const { return _source ? _source->stopLineNumber() : 0; }

YString YIniDocument::readingStopLineText() const { return _source ? _source->stopLineText() : YString(); }

std::size_t YIniDocument::lineNumberForElement(const YIniElement& element) const {
  if (!_source) return 0;
  const std::int64_t index = _source->indexOfElement(element);
  return index < 0 ? 0 : _source->lineNumberAtPosition(_source->start(static_cast<std::size_t>(index)));
}

std::vector<YIniHeadOption> YIniDocument::headOptions() const {
  std::vector<YIniHeadOption> options;
  if (!_source) return options;
  for (auto [start, end] : _source->headOptionLines()) {
    const YIniSourceRecord::OptionLayout layout = _source->optionLayoutOfRange(start, end);
    options.push_back({_source->stringOfRange(layout.nameStart, layout.nameEnd),
                       _source->stringOfRange(layout.valueStart, layout.valueEnd), _source->lineNumberAtPosition(start)});
  }
  return options;
}

YString YIniDocument::preservedStringValueWithError(std::shared_ptr<YError>* error) {
  YIniPreservingWriter writer(*this, _source.get());
  if (!writer.render(error)) return {};
  return writer.text();
}

std::optional<std::string> YIniDocument::preservedDataWithError(std::shared_ptr<YError>* error) {
  YIniPreservingWriter writer(*this, _source.get());
  if (!writer.render(error)) return std::nullopt;
  std::string bytes;
  if (!writer.encode([&](std::string_view piece) { bytes.append(piece); }, error)) return std::nullopt;
  return bytes;
}

std::optional<std::string> YIniDocument::preservedDataUsingEncodingError(YStringEncoding encoding,
                                                                         std::shared_ptr<YError>* error) {
  YString text = preservedStringValueWithError(error);
  if (text.isNull()) return std::nullopt;
  return YEncodeString(text, encoding, error);
}

bool YIniDocument::writePreservedToFileError(const YString& path, std::shared_ptr<YError>* error) {
  if (YParameterFailed(!path.isNull(), "path != nil")) return false;
  YIniPreservingWriter writer(*this, _source.get());
  if (!writer.render(error) || !writer.prepareEncoding(error)) return false;
  try {
    return YWriteFileChunks(path, [&] { return writer.nextEncodedPiece(); }, true, error);
  } catch (const YIniPreservingWriter::EncodingFailed&) {  // the new file is gone, the target as it was
    if (error) *error = writer.failure();
    return false;
  }
}
