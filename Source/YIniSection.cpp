#include "YIniSection.h"

#include <typeinfo>

#include "NSString+Extensions.h"
#include "YAssertionHandler.h"
#include "YException.h"
#include "YIniSectionWriter.h"
#include "YStringWriter.h"

static constexpr const char YUnitName[] = "YIniSection";

namespace {
// The first option in `list` whose current name equals `name` (null never matches).
std::shared_ptr<YIniOption> firstOptionNamed(const std::shared_ptr<YArray<YIniElement>>& list, const YString& name) {
  for (const auto& element : *list) {
    auto* option = YCast<YIniOption>(element.get());
    if (option && option->name().isEqualToString(name))
      return std::static_pointer_cast<YIniOption>(element);
  }
  return nullptr;
}
}  // namespace

YIniSection::YIniSection(const YString& name) : _initialName(name.copy()), _name(name) {}

void YIniSection::setName(const YString& string) {
  if (YParameterFailed(!string.isNull(), "string != nil")) return;
  ChangeScope scope(*this, YModifiedKey);
  _name = string;
}

YString YIniSection::description() const {
  return YString::stringWithFormat("{ %@, name: \"%@\" }", defaultDescription(), _name);
}

std::shared_ptr<YIniSection::OptionList> YIniSection::options() const {
  return arrayWithObjectsOfClass<YIniOption>(elements());
}

std::vector<YString> YIniSection::optionNames() const {
  auto list = options();
  std::vector<YString> names;
  names.reserve(list->count());
  for (const auto& option : *list) {
    if (option->name().isNull())
      throw YInvalidArgumentException(YString(u"-[YIniSection optionNames]: attempt to insert nil object"));
    names.push_back(option->name());
  }
  return names;
}

std::shared_ptr<YIniOption> YIniSection::optionWithName(const YString& optionName) const {
  if (YParameterFailed(!optionName.isNull(), "optionName != nil")) return nullptr;
  return firstOptionNamed(elements(), optionName);
}

bool YIniSection::hasOptionWithName(const YString& optionName) const { return optionWithName(optionName) != nullptr; }

YString YIniSection::valueForOptionWithName(const YString& optionName) const {
  if (YParameterFailed(!optionName.isNull(), "optionName != nil")) return YString();
  auto option = optionWithName(optionName);
  return option ? option->value() : YString();
}

void YIniSection::setValueForOptionWithName(const YString& value, const YString& optionName) {
  if (YParameterFailed(!optionName.isNull(), "optionName != nil")) return;
  if (auto option = optionWithName(optionName)) {
    if (value.isNull() && !initialOptionWithName(optionName)) {
      // New since the last commit: nothing to revert to, so drop it.
      removeElement(option);
      return;
    }
    option->setValue(value);
    return;
  }
  if (value.isNull()) return;
  addElement(YIniOption::optionWithNameAndValue(optionName, value));
}

void YIniSection::removeOptionWithName(const YString& optionName) {
  if (YParameterFailed(!optionName.isNull(), "optionName != nil")) return;
  if (auto option = optionWithName(optionName)) removeElement(option);
}

void YIniSection::removeAllOptions() {
  auto list = options();
  for (const auto& option : *list) removeElement(option);
}

std::shared_ptr<YIniSection::OptionList> YIniSection::initialOptions() const {
  return arrayWithObjectsOfClass<YIniOption>(initialElements());
}

std::shared_ptr<YIniOption> YIniSection::initialOptionWithName(const YString& optionName) const {
  if (YParameterFailed(!optionName.isNull(), "optionName != nil")) return nullptr;
  return firstOptionNamed(initialElements(), optionName);
}

std::shared_ptr<YIniSection::CommentList> YIniSection::comments() const {
  return arrayWithObjectsOfClass<YIniComment>(elements());
}

void YIniSection::addComment(const std::shared_ptr<YIniComment>& comment) {
  if (YParameterFailed(comment != nullptr, "comment != nil")) return;
  addElement(comment);
}

void YIniSection::removeComment(const std::shared_ptr<YIniComment>& comment) {
  if (YParameterFailed(comment != nullptr, "comment != nil")) return;
  removeElement(comment);
}

void YIniSection::removeCommentsStartingAtIndex(const YString& string, std::int32_t index) {
  // Widened with its sign and read as unsigned: a negative index lies beyond any list.
  const auto position = static_cast<std::size_t>(static_cast<std::int64_t>(index));
  while (position < elements()->count()) {
    auto* comment = YCast<YIniComment>(elements()->objectAtIndex(position).get());
    if (!comment || !comment->stringValue().isEqualToString(string)) break;
    removeObjectFromElementsAtIndex(position);
  }
}

YString YIniSection::stringValue() {
  YString string = YString::mutableString();
  YIniSectionWriter::writerWithSectionWriteOptions(std::static_pointer_cast<YIniSection>(shared_from_this()), true)
      ->write(YStringWriter::writerWithString(string));
  return string;
}

bool YIniSection::isModified() const {
  if (!YIniStringsEqual(_name, _initialName)) return true;
  return YIniCompositeElement::isModified();
}

void YIniSection::revert() {
  _name = _initialName.copy();
  YIniCompositeElement::revert();
}

void YIniSection::commit() {
  _initialName = _name.copy();
  YIniCompositeElement::commit();
}

std::shared_ptr<YIniElement> YIniSection::copyWithZone(void* zone) const {
  auto element = YIniCompositeElement::copyWithZone(zone);
  auto copy = YCast<YIniSection>(element);
  if (!copy) return element;
  // Deliberately the committed name, not the current one.
  copy->_initialName = YString();
  copy->_name = _initialName.copy();
  copy->commit();
  return copy;
}

std::shared_ptr<YIniCompositeElement> YIniSection::makeEmptyCopy() const {
  return YMakeShared<YIniSection>(YString());
}

// Exactly this class: any of the library's own composites that is a YIniSection is one.
bool YIniSection::ignoresChangeValues() const noexcept { return isLibraryClass(); }

bool YIniSection::mayChangeUnannounced() const noexcept { return _name.isMutable(); }
