// The string writer, the writables and the option writer.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "YIniComment.h"
#include "YIniOption.h"
#include "YIniOptionWriter.h"
#include "YStringWritable.h"
#include "YStringWriter.h"

namespace {

YString mutableWith(const char* text) { return YString::mutableStringWithString(YString(text)); }

TEST(StringWriter, InsertsAtPositionAndSeeks) {
  YString target = mutableWith("abc");
  auto writer = YStringWriter::writerWithString(target);
  EXPECT_EQ(writer->position(), 0);
  writer->write(YString("X"));
  EXPECT_EQ(utf8(target), "Xabc");
  EXPECT_EQ(writer->position(), 1);
  writer->seek(4);
  writer->write(YString("Y"));
  EXPECT_EQ(utf8(target), "XabcY");
  EXPECT_EQ(writer->position(), 5);
}

TEST(StringWriter, LineEndsAndLengthsInCodeUnits) {
  struct Case {
    const char* name;
    void (*act)(YStringWriter&);
    const char16_t* text;
    std::int64_t position;
  };
  const Case cases[] = {
      {"empty write", [](YStringWriter& w) { w.write(YString(u"")); }, u"", 0},
      {"writeLine", [](YStringWriter& w) { w.writeLine(); }, u"\n", 1},
      {"writeLine:", [](YStringWriter& w) { w.writeLine(YString(u"a")); }, u"a\n", 2},
      {"outside the BMP", [](YStringWriter& w) { w.write(YString(u"\U0001F600")); }, u"\U0001F600", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    YString target = YString::mutableString();
    YStringWriter writer(target);
    c.act(writer);
    EXPECT_EQ(target.u16string(), std::u16string(c.text));
    EXPECT_EQ(writer.position(), c.position);
  }
}

TEST(StringWriter, FailuresLeaveStringAndPositionAlone) {
  struct Case {
    const char* name;
    std::int64_t seek;
    void (*act)(YStringWriter&);
    bool rangeError;
  };
  const Case cases[] = {
      {"null string", 1, [](YStringWriter& w) { w.write(YString()); }, false},
      {"null string in writeLine:", 1, [](YStringWriter& w) { w.writeLine(YString()); }, false},
      {"not a string", 1, [](YStringWriter& w) { w.writeValue(YIniComment::commentWithString(YString("# c"))); },
       false},
      {"past the end", 4, [](YStringWriter& w) { w.write(YString("x")); }, true},
      {"negative position", -1, [](YStringWriter& w) { w.write(YString("x")); }, true},
      {"line end past the end", 9, [](YStringWriter& w) { w.writeLine(); }, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    YString target = mutableWith("abc");
    YStringWriter writer(target);
    writer.seek(c.seek);
    if (c.rangeError) EXPECT_THROW(c.act(writer), YRangeException);
    else EXPECT_THROW(c.act(writer), YInvalidArgumentException);
    EXPECT_EQ(utf8(target), "abc");
    EXPECT_EQ(writer.position(), c.seek);
  }
}

TEST(TextWritable, BaseWriteRefuses) {
  auto writable = std::make_shared<YTextWritable>();
  auto writer = YStringWriter::writerWithString(YString::mutableString());
  try {
    writable->write(writer);
    FAIL() << "write: accepted";
  } catch (const YInvalidArgumentException& e) {
    EXPECT_NE(std::string(e.what()).find("write:"), std::string::npos);
  }
}

TEST(TextWritable, WriteToWriterFlushesInOrderAndEmptiesTheQueue) {
  YString target = YString::mutableString();
  auto writer = YStringWriter::writerWithString(target);
  auto queue = YArray<YTextWritable>::mutableArray();
  YTextWritable::writeToWriter(queue, writer);
  EXPECT_EQ(queue->count(), 0u);
  EXPECT_EQ(utf8(target), "");

  queue->addObject(YStringWritable::writableWithString(YString("A")));
  queue->addObject(YStringWritable::writableWithString(YString("B")));
  YTextWritable::writeToWriter(queue, writer);
  EXPECT_EQ(utf8(target), "AB");
  EXPECT_EQ(queue->count(), 0u);

  YTextWritable::writeToWriter(nullptr, writer);  // a null queue writes nothing
  EXPECT_EQ(utf8(target), "AB");
}

TEST(StringWritable, WritesTextOrFailsOnAnElementWithoutAdvancing) {
  YString target = mutableWith("ab");
  auto writer = YStringWriter::writerWithString(target);
  writer->seek(2);
  auto queue = YArray<YTextWritable>::mutableArray();
  queue->addObject(YStringWritable::writableWithString(YString("# c\r\n")));
  queue->addObject(YStringWritable::writableWithValue(YIniComment::commentWithNewLine()));
  EXPECT_THROW(YTextWritable::writeToWriter(queue, writer), YInvalidArgumentException);
  EXPECT_EQ(utf8(target), "ab# c\r\n");
  EXPECT_EQ(writer->position(), 7);
  EXPECT_EQ(queue->count(), 2u);  // a failed flush keeps its entries
}

TEST(Writers, NullWriterFailsAtTheirLines) {
  EXPECT_PRECONDITION(YStringWritable(YString("x")).write(nullptr), "textWriter != nil");
  RecordingScope recording;
  YStringWritable(YString("x")).write(nullptr);
  YIniOptionWriter(YIniOption::option()).write(nullptr);
  const auto& failures = recording.handler->failures;
  ASSERT_EQ(failures.size(), 2u);
  EXPECT_EQ(failures[0].unit + ":" + std::to_string(failures[0].line), "YStringWritable:75");
  EXPECT_EQ(failures[1].unit + ":" + std::to_string(failures[1].line), "YIniOptionWriter:78");
  EXPECT_EQ(failures[1].description, "Invalid parameter not satisfying: textWriter != nil");
}

TEST(OptionWriter, FormatsNameEqualsValue) {
  struct Case {
    YString name, value;
    const char* expected;
  };
  const Case cases[] = {
      {YString("key"), YString("value"), "key=value"},
      {YString("key"), YString(), "key="},
      {YString("key"), YString(""), "key="},
      {YString("a b"), YString(" x = y "), "a b= x = y "},
      {YString("k"), YString("v\n w"), "k=v\n w"},
      {YString(), YString("v"), "(null)=v"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    YString target = YString::mutableString();
    YIniOptionWriter::writerWithOption(YIniOption::optionWithNameAndValue(c.name, c.value))
        ->write(YStringWriter::writerWithString(target));
    EXPECT_EQ(utf8(target), c.expected);
    EXPECT_EQ(utf8(YIniOption::optionWithNameAndValue(c.name, c.value)->stringValue()), c.expected);
  }
  YString target = YString::mutableString();
  YIniOptionWriter(nullptr).write(YStringWriter::writerWithString(target));
  EXPECT_EQ(utf8(target), "(null)=");
}

}  // namespace
