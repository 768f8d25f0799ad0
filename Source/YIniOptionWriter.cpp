#include "YIniOptionWriter.h"

#include <typeinfo>

#include "YLibraryTextWriters.h"

#include "YAssertionHandler.h"

static constexpr const char YUnitName[] = "YIniOptionWriter";
// The line this unit's precondition reports beside YUnitName. A host's
// assertion handler may tell failures apart by unit and line, so it is a
// fixed number, independent of where the check stands in this file.
static constexpr int YTextWriterCheckLine = 78;  // "textWriter != nil"

YIniOptionWriter::YIniOptionWriter(std::shared_ptr<YIniOption> option) : _option(std::move(option)) {}

void YIniOptionWriter::write(const std::shared_ptr<YTextWriter>& textWriter) {
  if (YParameterFailedAtLine(textWriter != nullptr, "textWriter != nil", YTextWriterCheckLine)) return;
  writeOptionTo(_option.get(), *textWriter);
}

namespace {
// The pieces of the line "%@=%@": the name (a null one prints as "(null)"),
// "=", the value (empty when null).
struct OptionPieces {
  std::u16string_view name, equals, value;
  explicit OptionPieces(const YIniOption* option) : equals(u"=") {
    if (!option) {
      name = u"(null)";
      return;
    }
    name = option->name().isNull() ? std::u16string_view(u"(null)") : option->name().view();
    value = option->value().view();
  }
};
}  // namespace

void YIniOptionWriter::writeOptionLineTo(const YIniOption* option, YTextWriter& target) {
  const OptionPieces p(option);
  if (ydetail::isExactly<YUTF8Writer>(target))
    static_cast<YUTF8Writer&>(target).writeOptionLine(p.name, p.value);
  else if (ydetail::isExactly<YStringWriter>(target))
    static_cast<YStringWriter&>(target).writeOptionLine(p.name, p.value);
}

void YIniOptionWriter::writeOptionTo(const YIniOption* option, YTextWriter& target) {
  // Built in one piece. The pieces are read before any writer code runs (a
  // host's writer gets a finished string).
  const OptionPieces p(option);
  if (!ydetail::writePiecesExactly(target, {p.name, p.equals, p.value}))
    target.write(YString::stringByConcatenating({p.name, p.equals, p.value}));
}
