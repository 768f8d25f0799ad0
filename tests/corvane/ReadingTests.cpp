// The INI text format as the enumerator reads it.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "ReadingSupport.h"

namespace {

struct ReadCase {
  const char* name;
  std::string text;
  std::vector<std::string> elements;
  std::vector<std::string> log;
  bool lfOnly = false;  // a CR is ordinary text there, so CR LF reads differently
};

std::vector<std::string> enumerate(const std::string& text) {
  auto enumerator =
      YIniDocumentEnumerator::enumeratorWithStringFactory(YString(text), YIniStandardElementFactory::standardFactory());
  return describeAll(enumerator->allObjects(), false);
}

// Each case is read once with LF line ends and once with CR LF.
const std::vector<ReadCase> kFormat = {
    {"empty", "", {}, {}},
    {"comment line and its line end", "# note\n", {"C:# note", "C:\\n"}, {}},
    {"header then option", "[a]\nk=v\n", {"S:a", "C:\\n", "O:k=v"}, {}},
    {"header name trimmed", "[ a ]\n", {"S:a", "C:\\n"}, {}},
    {"last bracket closes the name", "[a]]\n", {"S:a]", "C:\\n"}, {}},
    {"empty brackets are unknown", "[]\n", {"C:", "C:\\n"}, {"Unrecognized text sequence []"}, true},
    {"options before the first section dropped", "k=v\nx=1\n[a]\n", {"S:a", "C:\\n"}, {}},
    {"stray continuation ends the sequence", "k=v\n  more\n[a]\n", {}, {}},
    {"value keeps later equals signs", "[a]\nk = v = w\n", {"S:a", "C:\\n", "O:k=v = w"}, {}},
    {"empty name", "[a]\n=v\n", {"S:a", "C:\\n", "O:=v"}, {}},
    {"continuation lines joined", "[a]\nk=v\n  x\n    y\nz=1\n", {"S:a", "C:\\n", "O:k=v\\n x\\n y", "O:z=1"}, {}},
    {"indented header continues a value", "[a]\nk=v\n  [t]\n", {"S:a", "C:\\n", "O:k=v\\n [t]"}, {}},
    {"text after a header is a stray continuation", "[a] x\nk=v\n", {"S:a"}, {}},
    {"line without equals is unknown", "[a]\nk v\n", {"S:a", "C:\\n", "C:", "C:\\n"}, {"Unrecognized text sequence k v"}, true},
    {"one space is not a continuation", "[a]\nk=v\n \nz=1\n", {"S:a", "C:\\n", "O:k=v", "C:", "C:\\n", "O:z=1"},
     {"Unrecognized text sequence  "}, true},
    {"two spaces continue with empty content", "[a]\nk=v\n  \nz=1\n", {"S:a", "C:\\n", "O:k=v\\n ", "O:z=1"}, {}},
    {"tab at line start is an option", "[a]\n\tk=v\n", {"S:a", "C:\\n", "O:k=v"}, {}},
    {"blank lines are comments", "[a]\n\n\nk=v\n", {"S:a", "C:\\n", "C:\\n", "C:\\n", "O:k=v"}, {}},
};

std::string withCRLF(std::string text) {
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) text.insert(at, 1, '\r');
  return text;
}

TEST(ReadingFormat, EachLineKindWithLFAndCRLF) {
  for (const auto& c : kFormat) {
    for (bool crlf : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (crlf ? " (CR LF)" : " (LF)"));
      if (crlf && c.lfOnly) continue;
      LogCapture log;
      std::vector<std::string> expected = c.elements;
      for (auto& e : expected)  // comments hold the line end as read; names and values are trimmed of it
        if (crlf && e == "C:\\n") e = "C:\\r\\n";
      EXPECT_EQ(enumerate(crlf ? withCRLF(c.text) : c.text), expected);
      EXPECT_EQ(log.lines, c.log);
    }
  }
}

// What the eight rules make of lines that only they tell apart: which rule
// wins, where `^` and `\z` hold, what `.` takes, code units outside the BMP,
// a text ending without a line end. Names are trimmed of spaces only, values
// of line ends as well: a form feed, U+0085 or U+2028 stays in a name and
// leaves a value.
TEST(ReadingFormat, RulePriorityAnchorsCodeUnitsAndTrimming) {
  const std::vector<ReadCase> cases = {
      {"comment beats option", "#k=v\n", {"C:#k=v", "C:\\n"}, {}},
      {"section beats option", "[a=b]\n", {"S:a=b", "C:\\n"}, {}},
      {"section beats a longer option", "[a]=b\n", {"S:a", "O:=b"}, {}},
      {"blank lines of both kinds", "\n\r\n\n", {"C:\\n", "C:\\r\\n", "C:\\n"}, {}},
      {"option before more text", "[a]\nk=v\nx", {"S:a", "C:\\n", "O:k=v", "C:"}, {"Unrecognized text sequence x"}},
      {"leading space makes no option", "[a]\n k=v\n[b]\n", {"S:a", "C:\\n"}, {}},
      {"empty value before CR LF", "[a]\nk=\r\n", {"S:a", "C:\\n", "O:k="}, {}},
      {"lone CR inside a value", "[a]\nk=a\rb\n", {"S:a", "C:\\n", "O:k=a\\rb"}, {}},
      {"unknown text keeps its CR", "x\r\n", {"C:", "C:\\n"}, {"Unrecognized text sequence x\r"}},
      {"code units outside the BMP", "[\U0001F600]\nk=\U0001F600\n# \U0001F600\n",
       {"S:\U0001F600", "C:\\n", "O:k=\U0001F600", "C:# \U0001F600", "C:\\n"}, {}},
      {"no line end after an option", "[a]\nk=v", {"S:a", "C:\\n", "O:k=v"}, {}},
      {"no line end after an empty value", "[a]\nkey=", {"S:a", "C:\\n", "O:key="}, {}},  // not a null one
      {"no line end after a continuation", "[a]\nk=v\n  x", {"S:a", "C:\\n", "O:k=v\\n x"}, {}},
      {"a continuation, then a line end", "[a]\nk=v\n  x\n", {"S:a", "C:\\n", "O:k=v\\n x"}, {}},
      {"no line end after a header", "[a]", {"S:a"}, {}},
      {"no line end after a comment", "# c", {"C:# c"}, {}},
      {"form feed in a section name", "[a\f]\nk=v\n", {"S:a\f", "C:\\n", "O:k=v"}, {}},
      {"U+2028 in a section name", "[ a\u2028 ]\nk=v\n", {"S:a\u2028", "C:\\n", "O:k=v"}, {}},
      {"form feed in an option name", "[\u00a0a\t]\nk\f=v\f\n", {"S:a", "C:\\n", "O:k\f=v"}, {}},
      {"U+0085 in an option name", "[a]\nk\u0085=\u0085v \u2028\n", {"S:a", "C:\\n", "O:k\u0085=v"}, {}},
      {"U+2029 around an option name", "[a]\n\u2029k\u2029= v\u2029\n", {"S:a", "C:\\n", "O:\u2029k\u2029=v"}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    EXPECT_EQ(enumerate(c.text), c.elements);
    EXPECT_EQ(log.lines, c.log);
  }
}

TEST(ReadingEnumerator, EarlyEndResumesAfterTheStrayLineEndIsFinalNullTextYieldsNothingAndFactoryIsRequired) {
  const auto factory = YIniStandardElementFactory::standardFactory();
  auto enumerator = YIniDocumentEnumerator::enumeratorWithStringFactory(YString(u"[a]\n  stray\n[b]"), factory);
  EXPECT_EQ(describeAll(enumerator->allObjects(), false), (std::vector<std::string>{"S:a", "C:\\n"}));
  EXPECT_EQ(describeAll(enumerator->allObjects(), false), (std::vector<std::string>{"S:b"}));
  EXPECT_EQ(enumerator->nextObject(), nullptr);
  EXPECT_EQ(enumerator->allObjects()->count(), 0u);
  EXPECT_EQ(YIniDocumentEnumerator::enumeratorWithStringFactory(YString(), factory)->nextObject(), nullptr);
  EXPECT_PRECONDITION(YIniDocumentEnumerator::enumeratorWithStringFactory(YString(u"[a]"), nullptr), "factory != nil");
  EXPECT_THROW(YIniDocumentEnumerator(YString(u"[a]"), nullptr), YInternalInconsistencyException);
}

TEST(ReadingEnumerator, ExtractTrimsSpacesAndTabsButNotLineEnds) {
  YString text(u" \t k \u00a0\n");
  EXPECT_EQ(visible(YIniDocumentEnumerator::extractStringStartLength(text, 0, 6)), "k");
  EXPECT_EQ(visible(YIniDocumentEnumerator::extractStringStartLength(text, 0, 7)), "k \xC2\xA0\\n");
  EXPECT_EQ(visible(YIniDocumentEnumerator::extractStringStartLength(text, 3, 0)), "");
}

TEST(ReadingEnumerator, ElementsComeFromTheFactory) {
  struct CountingFactory : YIniStandardElementFactory {
    int comments = 0, sections = 0, options = 0;
    std::shared_ptr<YIniComment> commentWithString(const YString& s) override {
      ++comments;
      return YIniStandardElementFactory::commentWithString(s);
    }
    std::shared_ptr<YIniSection> sectionWithName(const YString& n) override {
      ++sections;
      return YIniStandardElementFactory::sectionWithName(n);
    }
    std::shared_ptr<YIniOption> optionWithNameValueInSection(const YString& n, const YString& v,
                                                             const std::shared_ptr<YIniSection>& s) override {
      ++options;
      EXPECT_TRUE(s && s->name().isEqualToString(YString(u"a")));
      return YIniStandardElementFactory::optionWithNameValueInSection(n, v, s);
    }
  };
  auto factory = std::make_shared<CountingFactory>();
  auto enumerator = YIniDocumentEnumerator::enumeratorWithStringFactory(YString(u"# c\n[a]\nk=v\nx=1"), factory);
  enumerator->allObjects();
  EXPECT_EQ((std::vector<int>{factory->comments, factory->sections, factory->options}), (std::vector<int>{3, 1, 2}));
}

}  // namespace
