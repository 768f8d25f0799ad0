// Loading documents from text and files, and the text that comes back.
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "ElementTestSupport.h"
#include "FileFaultSupport.h"
#include "ReadingSupport.h"

namespace {

TEST(Loading, WhereCommentsLand) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"#c\n[a]\nk=v\n", {"C:#c", "C:\\n", "S:a", "  C:\\n", "  O:k=v"}},
      // A blank line above a header belongs to the section before it; a header
      // without options leaves its line end to the document.
      {"[a]\nk=v\n\n[b]\n", {"S:a", "  C:\\n", "  O:k=v", "  C:\\n", "S:b", "C:\\n"}},
      {"[a]\n# between\nk=v\n# after\n", {"S:a", "  C:\\n", "  C:# between", "  C:\\n", "  O:k=v", "C:# after", "C:\\n"}},
      {"# only\n\n# comments\n", {"C:# only", "C:\\n", "C:\\n", "C:# comments", "C:\\n"}},
      {"[a]\nk=v\n# tail\n[b]\nx=1\n", {"S:a", "  C:\\n", "  O:k=v", "  C:# tail", "  C:\\n", "S:b", "  C:\\n", "  O:x=1"}},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(visible(YString(text)));
    EXPECT_EQ(describeAll(load(text)->elements(), true), expected);
  }
}

TEST(Loading, RoundTripGivesTheDocumentedText) {
  LogCapture quiet;
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""},
      {"# c\n\n[a]\nk=v\n\n[b]\nx=1\n", "# c\n\n[a]\nk=v\n[b]\nx=1\n"},  // blank line after an option is not written
      {"[a]\n  k  =  v  \n", "[a]\n"},                                    // an indented first line ends the text
      {"[a]\nk  =  v w  \n", "[a]\nk=v w\n"},
      {"[ a ]\n", "[a]\n"},
      {"[a]\nk=v\n    x\n\ty=1\n", "[a]\nk=v\n x\ny=1\n"},
      {"[a]\nk v\nx=1\n", "[a]\n\nx=1\n"},  // unknown text becomes nothing
      {"[a]\r\nk=v\r\n# c\r\n", "[a]\r\nk=v\n# c\r\n"},
      {"k=v\n[a]\n", "[a]\n"},
      {"[a]\n=v\nk=\n", "[a]\nk=\n"},  // an option without a name is not written
      {"[a]\nk=v", "[a]\nk=v\n"},
      {"[a][b]\n", "[a][b]\n"},  // the name runs to the last bracket
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(visible(YString(text)));
    EXPECT_EQ(visible(load(text)->stringValue()), visible(YString(expected)));
  }
}

// A host's factory, even one that changes nothing, has every element placed
// with its announcements; the library's own is placed quietly. Both must end
// in the same state: flags, observation, and how later edits propagate.
TEST(Loading, QuietPlacementEndsAsAnnouncedPlacementWould) {
  class HostFactory : public YIniStandardElementFactory {};
  const char* text = "# top\n[a]\nk=v\n\n[empty]\n[b]\nx=1\n  more\n; odd\n# end\n";
  auto quiet = YIniDocument::documentFromStringFactory(YString(text), YIniStandardElementFactory::standardFactory());
  auto loud = YIniDocument::documentFromStringFactory(YString(text), std::make_shared<HostFactory>());
  auto state = [](YIniDocument& d) {
    std::vector<std::string> out = describeAll(d.elements(), true);
    out.push_back("document " + std::to_string(d.isModified()) + " " +
                  std::to_string(d.observationCountForObserver(&d, YElementsKey)));
    for (const auto& child : d.elements()->vector()) {
      std::string line = std::to_string(child->isModified()) + " " +
                         std::to_string(child->observationCountForObserver(&d, YModifiedKey));
      if (auto section = YCast<YIniSection>(child))
        for (const auto& grandchild : section->elements()->vector())
          line += " " + std::to_string(grandchild->observationCountForObserver(section.get(), YModifiedKey));
      out.push_back(line);
    }
    return out;
  };
  LogCapture quietLog;
  EXPECT_EQ(state(*quiet), state(*loud));
  for (auto* d : {quiet.get(), loud.get()}) {
    d->commit();
    EXPECT_FALSE(d->isModified());
    d->sectionForName(YString("a"))->setValueForOptionWithName(YString("w"), YString("k"));
    EXPECT_TRUE(d->isModified());
    d->sectionForName(YString("a"))->setValueForOptionWithName(YString("v"), YString("k"));
    EXPECT_FALSE(d->isModified());
  }
  // A document a host observes while loading hears every placement.
  auto observed = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
  KeyObserver observer(*observed, YModifiedKey);
  observed->initWithStringFactory(YString("[a]\nk=v\n"), YIniStandardElementFactory::standardFactory());
  EXPECT_EQ(observer.count(), 3u);  // placing the section, and its line end and its option through the section
  EXPECT_TRUE(observer.lastBool());
}

TEST(Loading, AddCommentsMovesThemAndEmptiesTheList) {
  auto document = std::make_shared<YIniDocument>(YIniStandardElementFactory::standardFactory());
  auto comments = YArray<YIniComment>::mutableArray();
  comments->addObject(YIniComment::commentWithString(YString(u"#")));
  YIniDocument::addCommentsToObject(comments, *document);
  EXPECT_EQ(comments->count(), 0u);
  EXPECT_EQ(document->elements()->count(), 1u);
}

// A long text shares equal option names between options. Thousands of names
// that differ only in a digit, in their middle, their end or their length must
// still each come back exactly, trimmed as ever, and a name repeated in every
// section is one string.
TEST(Loading, LongTextsShareEqualNamesAndKeepEveryNameExact) {
  // Read from a string, and from its bytes, which are ASCII but for one
  // name: without it they are read as they are, not decoded.
  for (const bool fromBytes : {false, true}) {
    SCOPED_TRACE(fromBytes ? "from bytes" : "from a string");
    std::string text = "# " + std::string(40000, 'x') + "\n[many]\n";  // long enough to share names
    std::vector<std::string> expected;
    // An option written with `written` as its name, whose name reads as `read`.
    auto add = [&](const std::string& written, const std::string& read) {
      text += written + "=v\n";
      expected.push_back(read);
    };
    for (int i = 0; i < 3000; ++i) {
      text += "n" + std::to_string(i) + "=" + std::to_string(i) + "\n";
      expected.push_back("n" + std::to_string(i));
    }
    const std::vector<std::pair<std::string, std::string>> odd = {
        {"\tspaced \t", "spaced"}, {"spaced", "spaced"}, {"a", "a"}, {"ab", "ab"},  {"abc", "abc"},
        {"abcdXefgh", "abcdXefgh"}, {"abcdYefgh", "abcdYefgh"}, {"abcdefgh", "abcdefgh"}, {"ff\f", "ff\f"},
        {"", ""}, {"a", "a"},
    };
    // Names of one length that differ in one unit share their first and last
    // units, so they meet in the table, and only their middle tells them apart.
    text += "[lengths]\n";
    for (std::size_t length = 1; length <= 28; ++length)
      for (std::size_t p = 0; p < length; ++p) {
        std::string same(length, 'a'), other(length, 'a');
        other[p] = 'b';
        add(same, same);
        add(other, other);
      }
    // More names than the table has places, so that some must meet there
    // whatever its hash: 5,000 names of eight units that differ only in their
    // last four, and 250 names each read after a hundred longer names that
    // start with it.
    text += "[tails]\n";
    for (int i = 0; i < 5000; ++i) {
      std::string name = "abcd";
      for (int v = i, k = 0; k < 4; ++k, v /= 26) name += static_cast<char>('a' + v % 26);
      add(name, name);
    }
    text += "[prefixes]\n";
    for (int i = 0; i < 250; ++i) {
      const std::string shorter = "p" + std::to_string(1000 + i) + "key";
      for (int j = 0; j < 100; ++j) add(shorter + std::to_string(10 + j), shorter + std::to_string(10 + j));
      add(shorter, shorter);
    }
    text += "[odd]\n";
    for (const auto& [written, read] : odd) add(written, read);
    for (int i = 0; i < 50; ++i) {
      text += "[r" + std::to_string(i) + "]\nport=" + std::to_string(i) + "\n";
      expected.push_back("port");
    }
    if (!fromBytes) add("\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA9");
    auto document = fromBytes ? loadBytes(text) : load(text);
    std::vector<std::string> names;
    std::vector<YString> ports;
    for (const auto& child : document->elements()->vector()) {
      auto* section = YCast<YIniSection>(child.get());
      if (!section) continue;
      for (const auto& grandchild : section->elements()->vector())
        if (auto* option = YCast<YIniOption>(grandchild.get())) {
          names.push_back(option->name().UTF8String());
          if (option->name().isEqualToString(YString(u"port"))) ports.push_back(option->name());
        }
    }
    EXPECT_EQ(names, expected);
    ASSERT_EQ(ports.size(), 50u);
    for (const auto& port : ports) EXPECT_TRUE(port.isIdenticalTo(ports[0]));
  }
}

// A long ASCII text read from its bytes shares strings exactly as the same
// text read from a string: blank lines share one string per line end, and
// options their names. More names than the table has places, of each length
// it hashes its own way, then each again, so that which repeat finds its
// first string depends on where names meet in the table.
TEST(Loading, BytesShareStringsAsAStringDoes) {
  // Each element's string (an option's name, a comment's text) as the index
  // of the first element holding the same string.
  auto sharing = [](const std::shared_ptr<YIniDocument>& document) {
    std::vector<std::size_t> firsts;
    std::map<const char16_t*, std::size_t> seen;
    const auto elements = document->sectionForName(YString("s"))->elements();
    for (const auto& element : elements->vector()) {
      const auto* option = YCast<YIniOption>(element.get());
      const YString text = option ? option->name() : YCast<YIniComment>(element.get())->stringValue();
      firsts.push_back(seen.emplace(text.characters(), firsts.size()).first->second);
    }
    return firsts;
  };
  const std::string alphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  for (const std::size_t length : {std::size_t(3), std::size_t(5), std::size_t(8), std::size_t(12), std::size_t(20)}) {
    SCOPED_TRACE("names of " + std::to_string(length));
    std::vector<std::string> names;
    for (std::size_t i = 0; i < 6000; ++i) {
      std::string name(length, 'n');
      for (std::size_t v = i * 7919, k = 0; k < 3; ++k, v /= alphabet.size())
        name[(k * (length - 1)) / 2] = alphabet[v % alphabet.size()];
      names.push_back(name);
    }
    std::string text = "[s]\n";
    for (std::size_t i = 0; i < names.size(); ++i) text += names[i] + (i % 100 == 1 ? " = v\r\n\r\n" : " = v\n\n");
    for (std::size_t i = 0; i < names.size(); ++i) text += names[(i * 37) % names.size()] + "=w\n";
    const auto factory = YIniStandardElementFactory::standardFactory();
    const auto fromBytes = sharing(YIniDocument::documentWithDataFactory(text, factory));
    const auto fromString = sharing(YIniDocument::documentFromStringFactory(YString(text), factory));
    ASSERT_EQ(fromBytes.size(), 18001u);
    const auto differs = std::mismatch(fromBytes.begin(), fromBytes.end(), fromString.begin()).first;
    EXPECT_EQ(differs, fromBytes.end()) << "element " << (differs - fromBytes.begin()) << " shares otherwise";
    std::size_t shared = 0;
    for (std::size_t i = 0; i < fromString.size(); ++i) shared += fromString[i] < i;
    EXPECT_GT(shared, 7000u);  // the blank lines, and more than a thousand names
  }
}

class FileLoading : public ::testing::Test {
 protected:
  YString write(const std::string& name, const std::string& bytes) {
    filefault::writeBytes(dir / name, bytes, 0644);
    return YString(dir / name);
  }
  filefault::TempDir dir;
};

// Bytes of ASCII text are read as they are, not decoded first: whichever
// way a text comes, as a string, as bytes or in a file, it loads into the
// same tree, and a long text shares its option names all the same. Bytes
// that are not plain ASCII (a NUL, UTF-8 beyond ASCII, a byte-order mark,
// UTF-16 without one) are decoded as ever.
TEST_F(FileLoading, EveryRouteLoadsTheSameTree) {
  std::string many = "# many\n[many]\n";
  for (int i = 0; i < 4000; ++i) many += "name" + std::to_string(i % 40) + " =\tv" + std::to_string(i) + " \r\n";
  many += "last = value\n  continued \n\tand more\n[end]";
  auto widened = [](const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); };
  const struct Case {
    std::string bytes;
    std::u16string text;
  } cases[] = {
      {"", u""},
      {"[a]\nk = v\n  more\r\n#c\n\nx=1", u"[a]\nk = v\n  more\r\n#c\n\nx=1"},
      {"k=v\n[a]\n[b\n=\n  stray\nz = 1\n\x7F\n", u"k=v\n[a]\n[b\n=\n  stray\nz = 1\n\x7F\n"},
      {many, widened(many)},
      {"\xEF\xBB\xBF[a]\nk=v\n", u"[a]\nk=v\n"},
      {std::string("[\0a\0]\0\n\0k\0=\0v\0\n\0", 16), u"[a]\nk=v\n"},
      {std::string("[\0a\0]\0\n\0", 8), u"[a]\n"},
      {"[\xC3\xA9]\nk=\xC3\xA9\n", u"[\u00E9]\nk=\u00E9\n"},
      {std::string("[a]\nk=v\0w\n", 11), std::u16string(u"[a]\nk=v\0w\n", 11)},
  };
  const auto factory = YIniStandardElementFactory::standardFactory();
  for (const Case& c : cases) {
    SCOPED_TRACE(visible(YString(c.text)).substr(0, 60));
    const auto expected = describeAll(YIniDocument::documentFromStringFactory(YString(c.text), factory)->elements(), true);
    auto fromBytes = YIniDocument::documentWithDataFactory(c.bytes, factory);
    auto fromFile = YIniDocument::documentWithContentsOfFileFactory(write("route.ini", c.bytes), factory);
    EXPECT_EQ(describeAll(fromBytes->elements(), true), expected);
    EXPECT_EQ(describeAll(fromFile->elements(), true), expected);
    if (c.bytes != many) continue;
    for (const auto& document : {fromBytes, fromFile}) {
      auto options = document->sectionForName(YString("many"))->options();
      ASSERT_EQ(options->count(), 4001u);
      for (std::size_t i = 40; i < 4000; ++i)
        ASSERT_TRUE(options->objectAtIndex(i)->name().isIdenticalTo(options->objectAtIndex(i % 40)->name())) << i;
    }
  }
}

// Loading never commits, whichever way the text comes: the document and each
// section holding children report themselves modified until the host commits,
// and the host's observer of "modified" hears the commit.
TEST_F(FileLoading, EveryLoadingRouteLeavesTheDocumentModifiedUntilCommitted) {
  const std::string text = "# top\n[a]\nk=v\n[empty]\n";
  const auto factory = YIniStandardElementFactory::standardFactory();
  const std::vector<std::pair<const char*, std::function<std::shared_ptr<YIniDocument>()>>> routes = {
      {"string", [&] { return YIniDocument::documentFromStringFactory(YString(text), factory); }},
      {"file", [&] { return YIniDocument::documentWithContentsOfFileFactory(write("a.ini", text), factory); }},
      {"data", [&] { return YIniDocument::documentWithDataFactory(text, factory); }},
  };
  for (const auto& [route, loadDocument] : routes) {
    SCOPED_TRACE(route);
    auto document = loadDocument();
    ASSERT_TRUE(document);
    EXPECT_TRUE(document->isModified());
    EXPECT_TRUE(document->sectionForName(YString("a"))->isModified());
    EXPECT_FALSE(document->sectionForName(YString("empty"))->isModified());  // holds nothing
    KeyObserver observer(*document, YModifiedKey);
    document->commit();
    EXPECT_FALSE(document->isModified());
    EXPECT_FALSE(document->sectionForName(YString("a"))->isModified());
    ASSERT_GT(observer.count(), 0u);
    EXPECT_FALSE(observer.lastBool());
  }
  // A missing file gives an empty document, not modified.
  auto missing = YIniDocument::documentWithContentsOfFileFactory(YString(dir / "missing.ini"), factory);
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->elements()->count(), 0u);
  EXPECT_FALSE(missing->isModified());
}

}  // namespace
