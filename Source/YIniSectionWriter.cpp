#include "YIniSectionWriter.h"

#include <optional>
#include <typeinfo>

#include "NSString+Extensions.h"
#include "YAssertionHandler.h"
#include "YCharacterSet.h"
#include "YLibraryTextWriters.h"
#include "YIniCompositeElement.h"
#include "YIniOptionWriter.h"

static constexpr const char YUnitName[] = "YIniSectionWriter";
// The lines this unit's preconditions report beside YUnitName. A host's
// assertion handler may tell failures apart by unit and line, so they are
// fixed numbers, independent of where the checks stand in this file.
static constexpr int YSectionCheckLine = 49;  // "sectionValue != nil"
static constexpr int YTextWriterCheckLine = 98;  // "textWriter != nil"

namespace {
// An option or comment of the library's own class: what it does when
// written is the library's code, which announces nothing but renames.
bool isLibraryLeaf(const YIniElement* element) {
  if (!element) return false;
  return ydetail::isExactly<YIniOption>(*element) || ydetail::isExactly<YIniComment>(*element);
}

// Whether trimming white space could change `name`: an immutable name whose
// first and last code units are ASCII other than space and tab (the white
// space set's only ASCII members) is its own trimmed form.
[[gnu::always_inline]] inline bool mayNeedTrimming(const YString& name) {
  const std::size_t length = name.length();
  if (length == 0 || name.isMutable()) return true;
  const char16_t first = name.characters()[0], last = name.characters()[length - 1];
  auto plain = [](char16_t c) { return c < 0x80 && c != u' ' && c != u'\t'; };
  return !plain(first) || !plain(last);
}
}  // namespace

YIniSectionWriter::YIniSectionWriter(std::shared_ptr<YIniSection> section, bool writeOptions)
    : _writeOptions(writeOptions) {
  if (YParameterFailedAtLine(section != nullptr, "sectionValue != nil", YSectionCheckLine)) return;
  _section = std::move(section);
}

bool YIniSectionWriter::newLineAtAtIndex(std::int32_t index) const {
  return newLineAtPosition(static_cast<std::size_t>(static_cast<std::int64_t>(index)));
}

bool YIniSectionWriter::newLineAtPosition(std::size_t position) const {
  if (!_section) return false;
  const auto& elements = _section->elementsList()->vector();
  if (position >= elements.size()) return false;
  // The library's own comment answers from its text, running nobody's code;
  // its own option is no comment.
  if (const YIniElement* raw = elements[position].get(); raw) {
    if (ydetail::isExactly<YIniComment>(*raw))
      return endsWithCharacter(static_cast<const YIniComment*>(raw)->_string, u'\n');
    if (ydetail::isExactly<YIniOption>(*raw)) return false;
  }
  // Held while its text is asked for: stringValue() may run host code.
  std::shared_ptr<YIniElement> element = elements[position];
  auto* comment = YCast<YIniComment>(element.get());
  return comment && endsWithCharacter(comment->stringValue(), u'\n');
}

void YIniSectionWriter::write(const std::shared_ptr<YTextWriter>& textWriter) {
  if (YParameterFailedAtLine(textWriter != nullptr, "textWriter != nil", YTextWriterCheckLine)) return;
  if (!_section) return;
  const YCharacterSet whitespace = YCharacterSet::whitespaceCharacterSet();

  const YString name = _section->name();  // "[%@]", a null name printing as "(null)"
  const std::u16string_view shown = name.isNull() ? std::u16string_view(u"(null)") : name.view();
  YTextWriter& target = *textWriter;
  if (!ydetail::writePiecesExactly(target, {u"[", shown, u"]"}))
    textWriter->write(YString::stringByConcatenating({u"[", shown, u"]"}));
  if (_section->elements()->count() > 0 && !newLineAtPosition(0)) textWriter->writeLine();

  // Renaming each option to its own name is usually heard by nobody, which
  // is found once for the section and kept while only the library's own
  // writers and elements run (see YIniCompositeElement::SilenceScope).
  std::optional<YIniCompositeElement::SilenceScope> silence;
  if (ydetail::isLibraryTextWriter(target)) silence.emplace(*_section);

  // An option line needs its own line end unless a comment ending in one
  // follows it; the last one always does.
  auto lineEndAfter = [this](std::size_t i) {
    const std::size_t count = _section->elementsList()->count();
    return i + 1 == count || (i + 1 < count && !newLineAtPosition(i + 1));
  };
  auto nextIsLibraryLeafOrNone = [this](std::size_t i) {
    const auto& elements = _section->elementsList()->vector();
    return i + 1 >= elements.size() || isLibraryLeaf(elements[i + 1].get());
  };
  // The library's own option, writer and next element run nobody's code: the
  // line end is known before the line is written, and goes with it.
  auto writeWithLineEnd = [&](const YIniOption* option, std::size_t i) {
    if (lineEndAfter(i))
      YIniOptionWriter::writeOptionLineTo(option, target);
    else
      YIniOptionWriter::writeOptionTo(option, target);
  };
  // The list is read again at every step: writing may change it (setName
  // notifies observers, which may edit the section).
  for (std::size_t i = 0; i < _section->elementsList()->count(); ++i) {
    if (silence) {
      // The library's own option whose name is its own trimmed form, renamed
      // to it unheard: setName would keep the very string and tell nobody, and
      // writing it runs nobody's code, so the list is not held meanwhile.
      YIniElement* raw = _section->elementsList()->vector()[i].get();
      auto* quiet = raw && ydetail::isExactly<YIniOption>(*raw) ? static_cast<YIniOption*>(raw) : nullptr;
      if (quiet && !quiet->name().isNull() && !mayNeedTrimming(quiet->name()) &&
          YIniCompositeElement::nobodyHearsUnchanged(*quiet)) {
        if (quiet->value().isNull()) continue;
        if (nextIsLibraryLeafOrNone(i)) {
          writeWithLineEnd(quiet, i);
          continue;
        }
      }
    }
    std::shared_ptr<YIniElement> element = _section->elementsList()->objectAtIndex(i);
    const bool leaf = isLibraryLeaf(element.get());
    if (silence && !leaf) silence->forget();
    // The library's own leaves are told apart without a kind test.
    YIniOption* option = !leaf                                     ? YCast<YIniOption>(element.get())
                         : ydetail::isExactly<YIniOption>(*element) ? static_cast<YIniOption*>(element.get())
                                                                    : nullptr;
    if (option) {
      if (option->name().isNull()) continue;
      if (mayNeedTrimming(option->name())) {
        YString name = option->name().stringByTrimmingCharactersInSet(whitespace);
        if (name.length() == 0) continue;
        option->setName(name);
      } else {
        option->setName(option->name());
      }
      if (option->value().isNull()) continue;
      if (silence && leaf && nextIsLibraryLeafOrNone(i)) {
        writeWithLineEnd(option, i);
        continue;
      }
      YIniOptionWriter::writeOptionTo(option, target);
      if (lineEndAfter(i)) textWriter->writeLine();
    } else if (auto* comment = YCast<YIniComment>(element.get())) {
      if (!(leaf && !comment->_string.isNull() && ydetail::writePiecesExactly(target, {comment->_string.view()})))
        textWriter->write(comment->stringValue());
    }
  }
}
