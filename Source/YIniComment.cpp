#include "YIniComment.h"

YIniComment::YIniComment(const YString& string) : _string(string), _initialString(string.copy()) {}

std::shared_ptr<YIniComment> YIniComment::commentWithString(const YString& string) {
  return YMakeShared<YIniComment>(string);
}

std::shared_ptr<YIniComment> YIniComment::commentWithNewLine() { return commentWithString(YString(u"\n")); }

YString YIniComment::stringValue() { return _string; }

void YIniComment::setStringValue(const YString& string) {
  ChangeScope scope(*this, YModifiedKey);
  _string = string;
}

bool YIniComment::isModified() const { return !YIniStringsEqual(_string, _initialString); }

void YIniComment::revert() {
  ChangeScope scope(*this, YModifiedKey);
  _string = _initialString.copy();
}

void YIniComment::commit() {
  ChangeScope scope(*this, YModifiedKey);
  _initialString = _string.copy();
}

std::shared_ptr<YIniElement> YIniComment::copyWithZone(void*) const { return YMakeShared<YIniComment>(_string); }

bool YIniComment::mayChangeUnannounced() const noexcept { return _string.isMutable(); }
