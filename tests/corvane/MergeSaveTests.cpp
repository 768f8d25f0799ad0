// Merging into a template, and saving to files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "ElementTestSupport.h"
#include "ReadingSupport.h"
#include "YStringWriter.h"

namespace {

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
  // Templates without any line end: the only ones whose merge completes.
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"[a]", "[a]\nk=1\nx=2"},         // this document's options are appended
      {"[c]", "[c]"},                     // a section this document lacks
      {"[a]k=0", "[a]k=1\nx=2"},         // a template option takes this document's value
      {"[a]q=0", "[a]q=0\nk=1\nx=2"},   // one this document lacks keeps the template's value
      {"[b]y=0", "[b]y=3"},
      {"[b][a]", "[b][a]"},               // one header: the name runs to the last bracket
  };
  for (const auto& [templ, expected] : cases) {
    SCOPED_TRACE(templ);
    EXPECT_EQ(visible(document->stringValueMergedWith(YString(templ))), visible(YString(expected)));
  }
}

TEST(Merge, DuplicateNamesEachWriteTheFirstOptionOfTheName) {
  auto document = documentWith({{"a", {{"k", "1"}, {"x", "2"}, {"k", "dup"}}}});
  EXPECT_EQ(visible(document->stringValueMergedWith(YString(u"[a]"))), "[a]\\nk=1\\nx=2\\nk=1");
}

TEST(Merge, AnyCommentElementInTheTemplateFails) {
  auto document = documentWith({{"a", {{"k", "1"}}}});
  for (const char* templ : {"[a]\nk=0\n", "# c", "\n[a]", "[a]\n"}) {
    SCOPED_TRACE(templ);
    EXPECT_THROW(document->stringValueMergedWith(YString(templ)), YInvalidArgumentException);
  }
}

TEST(Merge, OptionWithoutAnActiveSectionName) {
  auto document = documentWith({{"a", {{"k", "1"}}}});
  // The standard reader drops options before the first section.
  EXPECT_EQ(visible(document->stringValueMergedWith(YString(u"k=v"))), "");
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
  EXPECT_EQ(recording.handler->failures.back().description, "Invalid parameter not satisfying: activeSectionName != nil");
  EXPECT_EQ(recording.handler->failures.back().unit, "YIniDocument+Extensions");
  EXPECT_EQ(recording.handler->failures.back().line, 229);
}

TEST(Merge, WriteOptionsWithNames) {
  auto document = documentWith({{"a", {{"k", "1"}, {"x", "2"}}}});
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
  void SetUp() override {
    dir = std::filesystem::temp_directory_path() / ("corvane-save-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
  }
  void TearDown() override {
    std::filesystem::permissions(dir, std::filesystem::perms::owner_all, std::filesystem::perm_options::add);
    std::filesystem::remove_all(dir);
  }
  std::string read(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  std::filesystem::path dir;
};

TEST_F(Saving, WritesExactlyTheStringValueInTheEncoding) {
  auto document = load("[caf\xC3\xA9]\nk=v\n");
  auto path = dir / "out.ini";
  std::shared_ptr<YError> error;
  ASSERT_TRUE(document->writeToFileAtomicallyEncodingError(YString(path.string()), true, YUTF8StringEncoding, &error));
  EXPECT_EQ(read(path), document->stringValue().UTF8String());
  ASSERT_TRUE(document->writeToFileAtomicallyEncodingError(YString(path.string()), false, YUTF16LittleEndianStringEncoding, &error));
  EXPECT_EQ(read(path), std::string("[\0c\0a\0f\0\xE9\0]\0\n\0k\0=\0v\0\n\0", 22));
  ASSERT_TRUE(document->writeToFileAtomicallyEncodingError(YString(path.string()), true, YISOLatin1StringEncoding, &error));
  EXPECT_EQ(read(path), "[caf\xE9]\nk=v\n");
}

TEST_F(Saving, UnrepresentableTextFailsAndLeavesTheTargetAlone) {
  auto path = dir / "keep.ini";
  std::ofstream(path) << "old";
  auto document = load("[\xE2\x82\xAC]\n");  // the euro sign is not in Latin-1
  std::shared_ptr<YError> error;
  EXPECT_FALSE(document->writeToFileAtomicallyEncodingError(YString(path.string()), true, YISOLatin1StringEncoding, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileWriteInapplicableStringEncodingError);
  EXPECT_EQ(read(path), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);
}

// A pair of surrogates is one character wherever the writers split the text;
// a lone one cannot be written in UTF-8, and the save names its place.
TEST_F(Saving, UTF8TakesSurrogatePairsAndRefusesLoneOnes) {
  auto path = dir / "pairs.ini";
  auto document = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
  // One comment ends in the first half of a pair whose second half begins the next.
  document->addElement(YIniComment::commentWithString(YString(u"a\xD83D")));
  document->addElement(YIniComment::commentWithString(YString(u"\xDE00" u"b")));
  auto section = YIniSection::sectionWithName(YString(u"s"));
  section->addElement(YIniOption::optionWithNameAndValue(YString(u"k"), YString(u"v")));
  document->addElement(section);
  std::shared_ptr<YError> error;
  ASSERT_TRUE(document->writeToFileAtomicallyEncodingError(YString(path.string()), true, YUTF8StringEncoding, &error))
      << error->localizedDescription().UTF8String();
  EXPECT_EQ(read(path), document->stringValue().UTF8String());
  // "a😀b[s]\nk=" is ten code units.
  const std::pair<std::u16string, std::size_t> lone[] = {{u"\xD83D", 10}, {u"x\xDE00", 11}, {u"\xD83Dx", 10}};
  for (const auto& [value, position] : lone) {
    std::ofstream(path) << "old";
    section->optionWithName(YString(u"k"))->setValue(YString(value));
    error.reset();
    EXPECT_FALSE(document->writeToFileAtomicallyEncodingError(YString(path.string()), true, YUTF8StringEncoding, &error));
    ASSERT_TRUE(error);
    EXPECT_NE(error->localizedDescription().UTF8String().find("position " + std::to_string(position)), std::string::npos)
        << error->localizedDescription().UTF8String();
    EXPECT_EQ(read(path), "old");
  }
}

TEST_F(Saving, FailureInAReadOnlyFolderKeepsTheTargetAndLeavesNoTemporary) {
  if (::geteuid() == 0) GTEST_SKIP() << "permissions do not bind root";
  auto path = dir / "locked.ini";
  std::ofstream(path) << "old";
  ::chmod(path.c_str(), 0600);
  std::filesystem::permissions(dir, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  std::shared_ptr<YError> error;
  EXPECT_FALSE(load("[a]\n")->writeToFileAtomicallyEncodingError(YString(path.string()), true, YUTF8StringEncoding, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileWriteNoPermissionError);
  EXPECT_EQ(read(path), "old");
}

TEST_F(Saving, ModeIsKept) {
  auto path = dir / "private.ini";
  std::ofstream(path) << "old";
  ::chmod(path.c_str(), 0600);
  ASSERT_TRUE(load("[a]\n")->writeToFileAtomicallyEncodingError(YString(path.string()), true, YUTF8StringEncoding, nullptr));
  struct stat st{};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(read(path), "[a]\n");
}

TEST_F(Saving, NullPathIsAFailedPrecondition) {
  try {
    (void)load("[a]")->writeToFileAtomicallyEncodingError(YString(), true, YUTF8StringEncoding, nullptr);
    FAIL();
  } catch (const YInternalInconsistencyException& e) {
    EXPECT_STREQ(e.what(), "Invalid parameter not satisfying: filePath != nil");
  }
  RecordingScope recording;
  EXPECT_FALSE(load("[a]")->writeToFileAtomicallyEncodingError(YString(), true, YUTF8StringEncoding, nullptr));
  ASSERT_EQ(recording.handler->failures.size(), 1u);
  EXPECT_EQ(recording.handler->failures[0].unit, "YIniDocument+Extensions");
  EXPECT_EQ(recording.handler->failures[0].line, 146);
}

}  // namespace
