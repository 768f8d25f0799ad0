#include "YStringWriter.h"

#include "YException.h"

YStringWriter::YStringWriter(const YString& string) : _string(string) {}

std::shared_ptr<YStringWriter> YStringWriter::writerWithString(const YString& string) {
  return std::make_shared<YStringWriter>(string);
}

void YStringWriter::seek(std::int64_t position) { _position = position; }

void YStringWriter::write(const YString& string) {
  // The insertion raises before anything changes; advance only after it.
  _string.insertStringAtIndex(string, static_cast<std::size_t>(_position));
  _position += static_cast<std::int64_t>(string.length());
}

void YStringWriter::writePieces(std::initializer_list<std::u16string_view> pieces) {
  if (!appendsAtEnd()) {
    // Not an append: one insertion of the whole, with its checks.
    write(YString::stringByConcatenating(pieces));
    return;
  }
  _string.appendPieces(pieces);
  _position = static_cast<std::int64_t>(_string.length());
}

void YStringWriter::writeOptionLine(std::u16string_view name, std::u16string_view value) {
  if (!appendsAtEnd()) return writePieces({name, u"=", value, u"\n"});
  _string.appendEach(name, u'=', value, u'\n');
  _position += static_cast<std::int64_t>(name.size() + value.size() + 2);
}

void YStringWriter::writeLine(const YString& string) {
  write(string);
  writeLine();
}

void YStringWriter::writeLine() { writePieces({u"\n"}); }

void YStringWriter::writeValue(const std::shared_ptr<YObject>& value) {
  throw YInvalidArgumentException(YString::stringWithFormat(
      "-[%@ insertString:atIndex:]: argument is not a string: %@", className(), value.get()));
}
