#include "YIniOptionWriter.h"

#include "YAssertionHandler.h"

static constexpr const char YUnitName[] = "YIniOptionWriter";

YIniOptionWriter::YIniOptionWriter(std::shared_ptr<YIniOption> option) : _option(std::move(option)) {}

void YIniOptionWriter::write(const std::shared_ptr<YTextWriter>& textWriter) {
  if (YParameterFailedAtLine(textWriter != nullptr, "textWriter != nil", 78)) return;
  YString name = _option ? _option->name() : YString();
  YString value = _option ? _option->value() : YString();
  if (value.isNull()) value = YString(u"");
  textWriter->write(YString::stringWithFormat("%@=%@", name, value));
}
