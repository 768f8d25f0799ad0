// The string writer, the writables and the option writer.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "YIniOptionWriter.h"
#include "YIniSectionWriter.h"
#include "YStringWritable.h"
#include "YStringWriter.h"

namespace {

YString mutableWith(const char* text) { return YString::mutableStringWithString(S(text)); }

TEST(StringWriter, InsertsAtItsPositionSeeksAndCountsCodeUnits) {
  YString target = mutableWith("abc");
  auto writer = YStringWriter::writerWithString(target);
  writer->write(S("X"));
  writer->seek(4);
  writer->writeLine(S("Y"));
  writer->seek(1);
  writer->write(YString(u"\U0001F600"));
  EXPECT_EQ(target.u16string(), u"X\U0001F600abcY\n");
  EXPECT_EQ(writer->position(), 3);
}

TEST(StringWriter, FailuresLeaveStringAndPositionAlone) {
  using Act = void (*)(YStringWriter&);
  const std::vector<std::tuple<const char*, std::int64_t, Act, bool>> cases = {  // ..., range error
      {"null string", 1, [](YStringWriter& w) { w.write(YString()); }, false},
      {"null string in writeLine:", 1, [](YStringWriter& w) { w.writeLine(YString()); }, false},
      {"not a string", 1, [](YStringWriter& w) { w.writeValue(cmt("# c")); }, false},
      {"past the end", 4, [](YStringWriter& w) { w.write(S("x")); }, true},
      {"negative position", -1, [](YStringWriter& w) { w.writeLine(); }, true},
  };
  for (const auto& [name, position, act, rangeError] : cases) {
    SCOPED_TRACE(name);
    YString target = mutableWith("abc");
    YStringWriter writer(target);
    writer.seek(position);
    if (rangeError) EXPECT_THROW(act(writer), YRangeException);
    else EXPECT_THROW(act(writer), YInvalidArgumentException);
    EXPECT_EQ(utf8(target), "abc");
    EXPECT_EQ(writer.position(), position);
  }
}

TEST(TextWritable, BaseWriteRefuses) {
  try {
    std::make_shared<YTextWritable>()->write(YStringWriter::writerWithString(YString::mutableString()));
    FAIL() << "write: accepted";
  } catch (const YInvalidArgumentException& e) {
    EXPECT_NE(std::string(e.what()).find("write:"), std::string::npos);
  }
}

TEST(TextWritable, WriteToWriterFlushesInOrderAndEmptiesTheQueue) {
  YString target = mutableWith("ab");
  auto writer = YStringWriter::writerWithString(target);
  auto queue = YArray<YTextWritable>::mutableArray();
  queue->addObject(YStringWritable::writableWithString(S("A")));
  queue->addObject(YStringWritable::writableWithString(S("B")));
  YTextWritable::writeToWriter(queue, writer);
  EXPECT_EQ(utf8(target), "ABab");
  EXPECT_EQ(queue->count(), 0u);

  // A writable holding an element is not a string: the flush stops there and keeps its entries.
  queue->addObject(YStringWritable::writableWithString(S("# c\n")));
  queue->addObject(YStringWritable::writableWithValue(lf()));
  EXPECT_THROW(YTextWritable::writeToWriter(queue, writer), YInvalidArgumentException);
  EXPECT_EQ(utf8(target), "AB# c\nab");
  EXPECT_EQ(writer->position(), 6);
  EXPECT_EQ(queue->count(), 2u);
}

TEST(Writers, NullWriterFailsAtTheirLines) {
  EXPECT_PRECONDITION(YStringWritable(S("x")).write(nullptr), "textWriter != nil");
  RecordingScope recording;
  YStringWritable(S("x")).write(nullptr);
  YIniOptionWriter(YIniOption::option()).write(nullptr);
  EXPECT_EQ(recording.handler->texts(),
            (std::vector<std::string>{"YStringWritable:75:Invalid parameter not satisfying: textWriter != nil",
                                      "YIniOptionWriter:78:Invalid parameter not satisfying: textWriter != nil"}));
}

TEST(OptionWriter, FormatsNameEqualsValue) {
  const std::vector<std::tuple<const char*, const char*, const char*>> cases = {
      {"key", nullptr, "key="}, {"a b", " x = y ", "a b= x = y "}, {"k", "v\n w", "k=v\n w"}, {nullptr, "v", "(null)=v"}};
  for (const auto& [name, value, expected] : cases) {
    YString target = YString::mutableString();
    YIniOptionWriter::writerWithOption(opt(name, value))->write(YStringWriter::writerWithString(target));
    EXPECT_EQ(utf8(target), expected);
    EXPECT_EQ(utf8(opt(name, value)->stringValue()), expected);
  }
  YString target = YString::mutableString();
  YIniOptionWriter(nullptr).write(YStringWriter::writerWithString(target));
  EXPECT_EQ(utf8(target), "(null)=");

  // Into the middle of a text: the line goes in at the position as one piece.
  target = mutableWith("[a]\n\n");
  auto writer = YStringWriter::writerWithString(target);
  writer->seek(4);
  YIniOptionWriter(opt("k", "v")).write(writer);
  EXPECT_EQ(utf8(target), "[a]\nk=v\n");
  EXPECT_EQ(writer->position(), 7);
  // A writer of another class gets one write: of the whole line.
  struct Recorder : YStringWriter {
    std::vector<std::string> writes;
    Recorder() : YStringWriter(YString::mutableString()) {}
    void write(const YString& s) override { writes.push_back(s.UTF8String()); }
  };
  auto recorder = std::make_shared<Recorder>();
  YIniOptionWriter(opt("k", "v")).write(recorder);
  EXPECT_EQ(recorder->writes, std::vector<std::string>{"k=v"});
}

// A section written into the middle of a text goes in at the position, each
// option's line with its line end, and the position follows it.
TEST(SectionWriter, WritesIntoTheMiddleOfATextAtThePosition) {
  YString target = mutableWith("#head\n#tail\n");
  auto writer = YStringWriter::writerWithString(target);
  writer->seek(6);
  YIniSectionWriter(sec("s", {opt("k", "v"), opt("name", "a longer value")}), true).write(writer);
  EXPECT_EQ(utf8(target), "#head\n[s]\nk=v\nname=a longer value\n#tail\n");
  EXPECT_EQ(writer->position(), 34);
}

}  // namespace
