// Merging into a template, and saving to files.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "FileFaultSupport.h"
#include "ReadingSupport.h"
#include "YStringWriter.h"

namespace {

using filefault::readBytes;

std::shared_ptr<YIniDocument> documentWith(const std::vector<std::pair<const char*, std::vector<std::pair<const char*, const char*>>>>& sections) {
  auto document = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
  for (const auto& [name, options] : sections) {
    auto section = YIniSection::sectionWithName(YString(name));
    for (const auto& [k, v] : options) section->addElement(YIniOption::optionWithNameAndValue(YString(k), YString(v)));
    document->addElement(section);
  }
  return document;
}

TEST(Merge, TemplateDecidesSectionsAndOrderDocumentSuppliesValues) {
  auto document = documentWith({{"a", {{"k", "1"}, {"x", "2"}}}, {"b", {{"y", "3"}}}});
  // Templates without any line end: the only ones whose merge completes; any
  // comment element in the template (null: the merge throws) fails it.
  const std::vector<std::pair<std::string, const char*>> cases = {
      {"[a]", "[a]\nk=1\nx=2"},         // this document's options are appended
      {"[c]", "[c]"},                     // a section this document lacks
      {"[a]k=0", "[a]k=1\nx=2"},         // a template option takes this document's value
      {"[a]q=0", "[a]q=0\nk=1\nx=2"},   // one this document lacks keeps the template's value
      {"[b]y=0", "[b]y=3"},
      {"[b][a]", "[b][a]"},               // one header: the name runs to the last bracket
      {"k=v", ""},                        // the standard reader drops options before the first section
      {"[a]\nk=0\n", nullptr}, {"# c", nullptr}, {"\n[a]", nullptr}, {"[a]\n", nullptr},
  };
  for (const auto& [templ, expected] : cases) {
    SCOPED_TRACE(templ);
    if (!expected) EXPECT_THROW(document->stringValueMergedWith(YString(templ)), YInvalidArgumentException);
    else EXPECT_EQ(visible(document->stringValueMergedWith(YString(templ))), visible(YString(expected)));
  }
}

TEST(Merge, OptionWithoutAnActiveSectionName) {
  // A host factory whose sections have no name leaves the merge without an
  // active section name when an option arrives.
  struct NamelessSections : YIniStandardElementFactory {
    std::shared_ptr<YIniSection> sectionWithName(const YString&) override {
      return std::make_shared<YIniSection>(YString());
    }
  };
  auto hosted = YIniDocument::documentWithFactory(std::make_shared<NamelessSections>());
  // The lookup of the nameless section fails first...
  EXPECT_THROW(hosted->stringValueMergedWith(YString(u"[a]k=v")), YInternalInconsistencyException);
  // ...and with a handler that returns, the option then meets no active name.
  RecordingScope recording;
  EXPECT_TRUE(hosted->stringValueMergedWith(YString(u"[a]k=v")).isNull());
  ASSERT_FALSE(recording.handler->failures.empty());
  EXPECT_EQ(recording.handler->texts().back(),
            "YIniDocument+Extensions:229:Invalid parameter not satisfying: activeSectionName != nil");
  // A document made without a factory has none to read the template with.
  auto factoryless = std::make_shared<YIniDocument>(nullptr);
  EXPECT_TRUE(factoryless->stringValueMergedWith(YString(u"[a]k=v")).isNull());
  EXPECT_NE(recording.handler->texts().back().find("factory != nil"), std::string::npos);
}

// Duplicate names each write the first option of the name.
TEST(Merge, WriteOptionsWithNamesAndDuplicateNames) {
  auto document = documentWith({{"a", {{"k", "1"}, {"x", "2"}, {"k", "dup"}}}});
  EXPECT_EQ(visible(document->stringValueMergedWith(YString(u"[a]"))), "[a]\\nk=1\\nx=2\\nk=1");
  const std::vector<std::tuple<std::vector<YString>, YString, std::string>> cases = {
      {{YString(u"k"), YString(u"x")}, YString(u"a"), "\\nk=1\\nx=2"},
      {{YString(u"k"), YString(u"k")}, YString(u"a"), "\\nk=1\\nk=1"},
      {{YString(u"k")}, YString(), ""},
      {{YString(u"k")}, YString(u"missing"), ""},
      {{}, YString(u"a"), ""},
  };
  for (const auto& [names, section, expected] : cases) {
    YString out = YString::mutableString();
    document->writeOptionsWithNamesForSectionNameToWriter(names, section, YStringWriter::writerWithString(out));
    EXPECT_EQ(visible(out), expected);
  }
}

class Saving : public ::testing::Test {
 protected:
  /// Saves `document` atomically to `path` in `encoding`.
  bool save(YIniDocument& document, const std::string& path, YStringEncoding encoding = YUTF8StringEncoding,
            std::shared_ptr<YError>* error = nullptr) {
    return document.writeToFileAtomicallyEncodingError(YString(path), true, encoding, error);
  }
  filefault::TempDir dir;
};

TEST_F(Saving, WritesExactlyTheStringValueInTheEncoding) {
  auto document = load("[caf\xC3\xA9]\nk=v\n");
  const std::string path = dir / "out.ini";
  ASSERT_TRUE(save(*document, path));
  EXPECT_EQ(readBytes(path), document->stringValue().UTF8String());
  ASSERT_TRUE(document->writeToFileAtomicallyEncodingError(YString(path), false, YUTF16LittleEndianStringEncoding,
                                                           nullptr));
  EXPECT_EQ(readBytes(path), std::string("[\0c\0a\0f\0\xE9\0]\0\n\0k\0=\0v\0\n\0", 22));
  ASSERT_TRUE(save(*document, path, YISOLatin1StringEncoding));
  EXPECT_EQ(readBytes(path), "[caf\xE9]\nk=v\n");
}

TEST_F(Saving, UnrepresentableTextFailsAndLeavesTheTargetAlone) {
  const std::string path = dir / "keep.ini";
  filefault::writeBytes(path, "old", 0644);
  std::shared_ptr<YError> error;
  EXPECT_FALSE(save(*load("[\xE2\x82\xAC]\n"), path, YISOLatin1StringEncoding, &error));  // no euro sign in Latin-1
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileWriteInapplicableStringEncodingError);
  EXPECT_EQ(filefault::listing(dir.path), "keep.ini ");
  EXPECT_EQ(readBytes(path), "old");
}

// A pair of surrogates is one character wherever the writers split the text;
// a lone one cannot be written in UTF-8, and the save names its place.
TEST_F(Saving, UTF8TakesSurrogatePairsAndRefusesLoneOnes) {
  const std::string path = dir / "pairs.ini";
  // One comment ends in the first half of a pair whose second half begins the next.
  auto section = sec("s", {opt("j", "w"), opt("k", "v")});
  auto document = withChildren(YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory()),
                               {YIniComment::commentWithString(YString(u"a\xD83D")),
                                YIniComment::commentWithString(YString(u"\xDE00" u"b")), section});
  std::shared_ptr<YError> error;
  ASSERT_TRUE(save(*document, path, YUTF8StringEncoding, &error)) << utf8(error->localizedDescription());
  EXPECT_EQ(readBytes(path), document->stringValue().UTF8String());
  // Saving `refused` fails naming the lone surrogate's `position`, and leaves the file alone.
  auto expectRefused = [&](YIniDocument& refused, std::size_t position) {
    filefault::writeBytes(path, "old", 0644);
    error.reset();
    EXPECT_FALSE(save(refused, path, YUTF8StringEncoding, &error));
    ASSERT_TRUE(error);
    const std::string description = utf8(error->localizedDescription());
    EXPECT_NE(description.find("position " + std::to_string(position)), std::string::npos) << description;
    EXPECT_EQ(readBytes(path), "old");
  };
  // "a😀b[s]\nj=w\nk=" is fourteen code units.
  const std::pair<std::u16string, std::size_t> lone[] = {{u"\xD83D", 14}, {u"x\xDE00", 15}, {u"\xD83Dx", 14}};
  for (const auto& [value, position] : lone) {
    section->optionWithName(S("k"))->setValue(YString(value));
    expectRefused(*document, position);
  }
  // A first half before an option's line is lone, even when a second half
  // follows the line ("[t]\nx" before it).
  auto split = sec("t", {YIniComment::commentWithString(YString(u"x\xD83D")), opt("k", "v"),
                         YIniComment::commentWithString(YString(u"\xDE00"))});
  expectRefused(
      *withChildren(YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory()), {split}), 5);
}

// A text of many pieces is written as it is made, atomically to the new
// file, in place to a staging file (or, where the folder has none, to
// memory): the file holds exactly the text; a lone surrogate late in it, or
// an exception from a host's element, fails the save after pieces before it
// were made, and leaves the target (its bytes and, in place, its identity)
// and the folder as they were.
TEST_F(Saving, SavesOfLongTextsAreExactOrLeaveEverythingAsItWas) {
  struct ThrowingComment : YIniComment {
    ThrowingComment() : YIniComment(YString(u"")) {}
    YString stringValue() override { throw std::runtime_error("no text"); }
  };
  auto build = [](std::size_t sections) {
    auto document = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
    for (std::size_t i = 0; i < sections; ++i) {
      auto section = YIniSection::sectionWithName(YString("s" + std::to_string(i)));
      for (int k = 0; k < 20; ++k)
        section->addElement(YIniOption::optionWithNameAndValue(YString("key" + std::to_string(k)),
                                                               YString("a value of some length " + std::to_string(i))));
      document->addElement(section);
      document->addElement(YIniComment::commentWithString(YString(u"# between\n")));
    }
    return document;
  };
  const std::string path = dir / "long.ini";
  // A second half alone, and a first half last of all.
  std::shared_ptr<YIniDocument> lones[] = {build(2000), build(2000)}, throwing = build(2000);
  const std::size_t position = lones[0]->stringValue().length() + 1;
  lones[0]->addElement(YIniComment::commentWithString(YString(u"x\xDC00")));
  lones[1]->addElement(YIniComment::commentWithString(YString(u"x\xD800")));
  throwing->addElement(std::make_shared<ThrowingComment>());
  struct Mode {
    const char* name;
    bool atomically, unnamed;
  } modes[] = {{"atomically", true, true}, {"in place", false, true}, {"in place, no unnamed files", false, false}};
  for (const Mode& mode : modes) {
    SCOPED_TRACE(mode.name);
    const auto report = filefault::inChild([&]() -> std::vector<std::string> {
      if (!mode.unnamed)
        if (std::string why = refuseUnnamedFiles(); !why.empty()) return {"unavailable: " + why};
      std::vector<std::string> report;
      auto saved = [&](YIniDocument& document, std::shared_ptr<YError>* error) {
        return document.writeToFileAtomicallyEncodingError(YString(path), mode.atomically, YUTF8StringEncoding, error);
      };
      for (std::size_t sections : {0, 1, 700, 2000}) {  // nothing, one piece, about two pieces, several
        auto document = build(sections);
        const bool ok = saved(*document, nullptr);
        report.push_back(ok && readBytes(path) == document->stringValue().UTF8String() ? "exact" : "wrong");
      }
      const std::string before = filefault::identity(path) + " " + readBytes(path);
      for (const auto& lone : lones) {
        std::shared_ptr<YError> error;
        const bool ok = saved(*lone, &error);
        report.push_back(ok ? "saved" : utf8(error->localizedDescription()));
      }
      try {
        report.push_back(saved(*throwing, nullptr) ? "saved" : "failed");
      } catch (const std::runtime_error& e) {
        report.push_back(e.what());
      }
      const std::string after = filefault::identity(path) + " " + readBytes(path);
      report.push_back(after == before ? "kept" : "changed");
      report.push_back(filefault::listing(dir.path));
      return report;
    });
    ASSERT_FALSE(report.empty());
    if (report[0].rfind("unavailable", 0) == 0) {
      std::printf("%s: %s\n", mode.name, report[0].c_str());
      continue;
    }
    ASSERT_EQ(report.size(), 9u) << ::testing::PrintToString(report);
    EXPECT_EQ(std::vector<std::string>(report.begin(), report.begin() + 4), std::vector<std::string>(4, "exact"));
    for (int i : {4, 5})
      EXPECT_NE(report[i].find("position " + std::to_string(position)), std::string::npos) << report[i];
    EXPECT_EQ(std::vector<std::string>(report.begin() + 6, report.end()),
              (std::vector<std::string>{"no text", "kept", "long.ini "}));
  }
}

// ASCII is copied several units at a time: a character beyond it, at any
// place of a value, a name or a comment of any length, must still come out
// as its UTF-8 sequence, and every ASCII unit around it as one byte.
TEST_F(Saving, UTF8IsExactWhereverAWideCharacterStands) {
  const std::u16string wides[] = {u"\x7F", u"\x80", u"\xE9", u"\xFF", u"\x100", u"\x7FF", u"\x800", u"\xFFFD",
                                  u"\xD83D\xDE00"};
  auto document = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
  for (const std::u16string& wide : wides) {
    auto section = YIniSection::sectionWithName(YString(u"s" + wide + u"abcdefghij"));
    for (std::size_t n = 0; n <= 24; ++n) {
      const std::u16string plain(n, u'a');
      section->addElement(YIniOption::optionWithNameAndValue(YString(u"plain" + plain), YString(plain)));
      for (std::size_t p = 0; p <= n; ++p) {
        const std::u16string text = plain.substr(0, p) + wide + plain.substr(p);
        section->addElement(YIniOption::optionWithNameAndValue(YString(u"k" + text), YString(text)));
        section->addElement(YIniOption::optionWithNameAndValue(YString(u"k" + text), YString(plain)));
        section->addElement(YIniOption::optionWithNameAndValue(YString(u"k" + plain), YString(text)));
        section->addElement(YIniComment::commentWithString(YString(u"#" + text + u"\n")));
      }
    }
    document->addElement(section);
  }
  const std::string path = dir / "wide.ini";
  std::shared_ptr<YError> error;
  ASSERT_TRUE(save(*document, path, YUTF8StringEncoding, &error)) << utf8(error->localizedDescription());
  EXPECT_EQ(readBytes(path), document->stringValue().UTF8String());
}

TEST_F(Saving, NullPathIsAFailedPrecondition) {
  EXPECT_PRECONDITION(load("[a]")->writeToFileAtomicallyEncodingError(YString(), true, YUTF8StringEncoding, nullptr),
                      "filePath != nil");
  RecordingScope recording;
  EXPECT_FALSE(load("[a]")->writeToFileAtomicallyEncodingError(YString(), true, YUTF8StringEncoding, nullptr));
  EXPECT_EQ(recording.handler->texts(),
            std::vector<std::string>{"YIniDocument+Extensions:146:Invalid parameter not satisfying: filePath != nil"});
}

}  // namespace
