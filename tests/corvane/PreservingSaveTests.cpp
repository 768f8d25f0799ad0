// The preserving save: untouched text comes back byte for byte, edits change
// only what they touch.
#include <gtest/gtest.h>

#include <functional>

#include "FileFaultSupport.h"
#include "ElementTestSupport.h"
#include "ReadingSupport.h"

namespace {

using Edit = std::function<void(YIniDocument&)>;

std::shared_ptr<YIniSection> section(YIniDocument& document, const char* name) {
  auto found = document.sectionForName(S(name));
  if (!found) throw std::runtime_error(std::string("no section ") + name);
  return found;
}

std::string preserved(YIniDocument& document) {
  std::shared_ptr<YError> error;
  YString text = document.preservedStringValueWithError(&error);
  return text.isNull() ? std::string("ERROR: ").append(utf8(error->localizedDescription())) : text.UTF8String();
}

using filefault::readBytes;
using filefault::TempDir;

void writeBytes(const std::string& path, const std::string& bytes) { filefault::writeBytes(path, bytes, 0644); }

void setValue(YIniDocument& d, const char* s, const char* k, const char* v) {
  section(d, s)->setValueForOptionWithName(S(v), S(k));
}
/// The edit that sets option `k` of section `s` to `v`.
Edit setting(const char* s, const char* k, const char* v) {
  return [=](YIniDocument& d) { setValue(d, s, k, v); };
}
/// The edit that removes option `k` of section `s`.
Edit removingOption(const char* s, const char* k) {
  return [=](YIniDocument& d) { section(d, s)->removeOptionWithName(S(k)); };
}
/// The edit that adds a section `name` holding option `k` = `v` at the document's end.
Edit addingSection(const char* name, const char* k, const char* v) {
  return [=](YIniDocument& d) { d.addElement(sec(name, {opt(k, v)})); };
}
/// The edit that inserts option `k` = `v` at `index` into section `s`.
Edit inserting(const char* s, const char* k, const char* v, std::size_t index) {
  return [=](YIniDocument& d) { section(d, s)->insertObjectInElementsAtIndex(opt(k, v), index); };
}
/// The edit that renames option `k` of section `s` to `name`.
Edit renaming(const char* s, const char* k, const char* name) {
  return [=](YIniDocument& d) { section(d, s)->optionWithName(S(k))->setName(S(name)); };
}
/// The edit that takes option `k` of section `s`, or without `k` the section, out and puts it back last.
Edit moving(const char* s, const char* k = nullptr) {
  return [=](YIniDocument& d) {
    YIniCompositeElement& parent = k ? *section(d, s) : static_cast<YIniCompositeElement&>(d);
    std::shared_ptr<YIniElement> child = section(d, s);
    if (k) child = section(d, s)->optionWithName(S(k));
    parent.removeElement(child);
    parent.addElement(child);
  };
}
/// The edits one after the other.
Edit all(const std::vector<Edit>& edits) {
  return [=](YIniDocument& d) {
    for (const Edit& edit : edits) edit(d);
  };
}
const Edit committing = [](YIniDocument& d) { d.commit(); };

TEST(PreservingSave, UneditedTextComesBackByteForByte) {
  LogCapture quiet;
  const std::vector<std::string> texts = {
      "",
      "\n\n",
      "# only a comment",
      "[a]\nk = v\n\n[b]\nx=1\n",
      "[a]\r\nk = v \r\n\r\n[b]\r\nx =  1\r\n",         // CR LF, trailing blanks
      "[a]\nk = v",                                      // no final line end
      "[a]\nk = first\n    second\n\tthird\n  fourth\n",  // continuation lines, odd indents
      "; semicolon comment\n[a]\nno equals sign\nk=v\n",  // unrecognised lines
      "root = true\n\n[*]\nindent_style = space\n",     // options before the first section
      "# c\nroot=1\nother = 2\n# d\n[a]\n",
      "[a]k=v\n[b]# c\n",                                 // elements in mid-line
      "[a]\n\n  stray\nafter = stop\n[b]\n",              // reading stops: the tail stays
      "[ spaced ]\n\tk\t=\tv\t\n=empty name\nk=\n",
      "[a]\n \n  \n",                                     // a one-space line is unrecognised
      "[a]\nk=v\r",
      "[a]\nk=v\n[a]\nk=w\n",                             // a repeated section
  };
  for (const std::string& text : texts) {
    SCOPED_TRACE(visible(YString(text)));
    auto document = load(text);
    EXPECT_EQ(visible(YString(preserved(*document))), visible(YString(text)));
  }
}

struct EditCase {
  const char* name;
  std::string input;
  Edit edit;
  std::string expected;
};

std::string caseName(const ::testing::TestParamInfo<EditCase>& info) { return info.param.name; }
void PrintTo(const EditCase& c, std::ostream* os) { *os << c.name; }

class PreservingEdits : public ::testing::TestWithParam<EditCase> {};

TEST_P(PreservingEdits, ChangeOnlyWhatTheyTouch) {
  LogCapture quiet;
  const EditCase& c = GetParam();
  auto document = load(c.input);
  c.edit(*document);
  EXPECT_EQ(visible(YString(preserved(*document))), visible(YString(c.expected)));
}

const EditCase kEdits[] = {
    // Values
    {"ValueKeepsSpacingAndTrailingBlanks", "[s]\nwidth = 800  \nh=1\n", setting("s", "width", "1024"),
     "[s]\nwidth = 1024  \nh=1\n"},
    {"ValueKeepsCrLf", "[s]\r\nk = v\r\n", setting("s", "k", "w"), "[s]\r\nk = w\r\n"},
    {"EmptyValueTakesASpaceWhenTheLineHasOneBeforeEquals", "[s]\nk =\nx=\ny = \n",
     all({setting("s", "k", "1"), setting("s", "x", "2"), setting("s", "y", "3")}),
     "[s]\nk = 1\nx=2\ny = 3\n"},
    {"ValueEmptied", "[s]\nk = v\n", setting("s", "k", ""), "[s]\nk = \n"},
    {"MultiLineValueKeepsItsIndentation", "[s]\nk = a\n    b\nx=1\n", setting("s", "k", "c\n d\n e"),
     "[s]\nk = c\n    d\n    e\nx=1\n"},
    {"MultiLineValueBecomesOneLine", "[s]\nk = a\n  b  \nx=1\n", setting("s", "k", "z"),
     "[s]\nk = z  \nx=1\n"},
    {"NewContinuationTakesTheFilesIndent", "[s]\nk = a\nm = b\n    c\n", setting("s", "k", "1\n 2"),
     "[s]\nk = 1\n    2\nm = b\n    c\n"},
    {"NewContinuationDefaultsToOneSpace", "[s]\r\nk=a\r\n", setting("s", "k", "1\n 2"),
     "[s]\r\nk=1\r\n 2\r\n"},
    {"ChangedOptionReadInMidLineTakesALineOfItsOwn", "[a]k=v\n", setting("a", "k", "x]"), "[a]\nk=x]\n"},
    {"SameValueAgainChangesNothing", "[s]\nk =  v \n", setting("s", "k", "v"), "[s]\nk =  v \n"},
    {"MultiLineValueGainsALine", "[s]\nk = a\n  b\nx=1\n", setting("s", "k", "a\n b\n c"),
     "[s]\nk = a\n  b\n  c\nx=1\n"},
    {"ContinuationLineChangedAtItsStart", "[s]\nk = a\n  b\nx=1\n", setting("s", "k", "a\nXb"),
     "[s]\nk = a\n  Xb\nx=1\n"},
    // Names
    {"OptionRenamed", "[s]\n#\nhost = x # y\n", renaming("s", "host", "hostname"),
     "[s]\n#\nhostname = x # y\n"},
    {"OptionRenamedAndChanged", "[s]\nhost\t= x\n",
     all({renaming("s", "host", "h"), setting("s", "h", "y")}), "[s]\nh\t= y\n"},
    {"CommentTextChangedInPlace", "[s]\n# old\nk=1\n",
     [](YIniDocument& d) { section(d, "s")->comments()->objectAtIndex(1)->setStringValue(S("# new")); },
     "[s]\n# new\nk=1\n"},
    {"SectionRenamed", "[ old ]  \nk=v\n", [](YIniDocument& d) { section(d, "old")->setName(S("new")); },
     "[ new ]  \nk=v\n"},
    // Removals
    {"OptionWithItsContinuationLines", "[s]\na=1\nk = x\n  y\n  z\nb=2\n", removingOption("s", "k"),
     "[s]\na=1\nb=2\n"},
    {"OptionBeforeABlankLineLeavesTheBlankLine", "[s]\nk=1\n\n[t]\n", removingOption("s", "k"),
     "[s]\n\n[t]\n"},
    {"CommentLineVanishesWholly", "[s]\n# note\nk=1\n",
     [](YIniDocument& d) {
       auto s = section(d, "s");
       s->removeComment(s->comments()->objectAtIndex(1));
     },
     "[s]\nk=1\n"},
    {"SectionWithEverythingItHolds", "[a]\nk=1\n# about b\n[b]\nx=2\n[c]\n",
     [](YIniDocument& d) { d.removeElement(section(d, "b")); }, "[a]\nk=1\n# about b\n[c]\n"},
    {"CommittedOptionSetToNullIsLeftOut", "[s]\nk=1\nx=2\n",
     all({committing, setting("s", "k", nullptr)}), "[s]\nx=2\n"},
    // Additions
    {"OptionTakesTheStyleOfTheOptionBeforeIt", "[s]\na = 1\r\n# end\r\n", inserting("s", "b", "2", 2),
     "[s]\na = 1\r\nb = 2\r\n# end\r\n"},
    {"OptionRightAfterTheHeaderKeepsTheHeadersLine", "[s]\nk=v\n", inserting("s", "first", "0", 0),
     "[s]\nfirst=0\nk=v\n"},
    {"OptionInAnEmptySectionTakesTheFilesStyle", "[a]\nk : 1 = 2\nx = 1\ny = 2\n[e]\n",
     setting("e", "n", "v"), "[a]\nk : 1 = 2\nx = 1\ny = 2\n[e]\nn = v\n"},
    {"OpenLineEndsAsItDidWithMixedLineEnds", "[b]\r\nx=0\r\n \nk = v\n", inserting("b", "n", "1", 3),
     "[b]\r\nx=0\r\n \nn=1\r\nk = v\n"},
    {"OpenCommentLineEndsWithItsOwnCrLf", "[b]\nx=0\n#c\r\nk = v\n", inserting("b", "n", "1", 3),
     "[b]\nx=0\n#c\r\nn=1\nk = v\n"},
    {"OpenLineEndsWithItsOwnLfInACrLfFile", "[b]\r\nx=0\r\n \ny=2\r\n", inserting("b", "n", "1", 3),
     "[b]\r\nx=0\r\n \nn=1\r\ny=2\r\n"},
    {"OptionAfterALastLineWithoutLineEnd", "[s]\nk=v", setting("s", "x", "1"), "[s]\nk=v\nx=1\n"},
    {"NullOrBlankNamesAreLeftOutAsTheWritersDo", "[s]\n",
     [](YIniDocument& d) {
       withChildren(section(d, "s"),
                    {opt(nullptr, "1"), opt("  ", "1"), opt("k", nullptr), opt("  t ", "2")});
     },
     "[s]\nt=2\n"},
    {"SectionSeparatedAsTheFileSeparatesThem", "[a]\nk=1\n\n[b]\nx=2\n",
     addingSection("c", "y", "3"), "[a]\nk=1\n\n[b]\nx=2\n\n[c]\ny=3\n"},
    {"SectionTakesTheFilesCrLf", "[a]\r\nk=1\r\n", addingSection("c", "y", "3"),
     "[a]\r\nk=1\r\n[c]\r\ny=3\r\n"},
    {"SectionWithoutBlankLineWhenTheFileHasNone", "[a]\nk = 1\n[b]\n",
     [](YIniDocument& d) { d.addElement(sec("c", {lf()})); }, "[a]\nk = 1\n[b]\n[c]\n"},
    {"EmptySectionEndsItsLine", "[a]\r\nk=1\r\n", [](YIniDocument& d) { d.addElement(sec("b", {})); },
     "[a]\r\nk=1\r\n[b]\r\n"},
    {"CommentEndsTheOpenLine", "[a]", [](YIniDocument& d) { section(d, "a")->addComment(cmt("# new")); },
     "[a]\n# new"},
    {"OptionsBeforeTheFirstSectionStayBeforeEverySection", "root = 1\n# c\n[a]\nk=v\n",
     [](YIniDocument& d) {
       d.removeElement(section(d, "a"));
       d.insertObjectInElementsAtIndex(sec("b", {opt("x", "1")}), 0);
     },
     "root = 1\n[b]\nx=1\n# c\n"},
    {"OptionsRightBeforeTheStopStayBeforeANewSection", "root = true\n  stray\n[a]\nk=1\n",
     [](YIniDocument& d) { d.addElement(sec("new", {})); }, "root = true\n[new]\n  stray\n[a]\nk=1\n"},
    {"IndentedTailStaysUnreadAfterANewOption", "[a]\n  stray\n", setting("a", "k", "v"),
     "[a]\nk=v\n\n  stray\n"},
    // Order
    {"MovedSectionIsWrittenAnew", "[a]\nk = 1\n\n[b]\nx = 2\n", moving("a"),
     "[b]\nx = 2\n\n[a]\nk = 1\n\n"},
    {"MovedSectionKeepsItsUnrecognisedLines", "[a]\nk=1\nno equals\n\tjunk\n[b]\nx=2\n", moving("a"),
     "[b]\nx=2\n[a]\nk=1\nno equals\n\tjunk\n"},
    {"SwappedOptionsKeepTheFirstInPlace", "[s]\na = 1\nb = 2\n", moving("s", "a"), "[s]\nb = 2\na = 1\n"},
    {"MovedOptionIsWrittenAnewInItsNeighboursStyle", "[s]\na  =  1 \nb = 2\n", moving("s", "a"),
     "[s]\nb = 2\na = 1\n"},
    {"RevertGivesTheOriginalBack", "[s]\nk = 1 \n# c\n",
     all({committing, setting("s", "k", "2"), addingSection("t", "x", "1"),
          [](YIniDocument& d) { section(d, "s")->addComment(cmt("# more")), d.revert(); }}),
     "[s]\nk = 1 \n# c\n"},
    {"TextsChangedInPlaceCount", "[s]\nk = v\n",
     [](YIniDocument& d) {
       YString m = YString::mutableStringWithString(S("v"));
       section(d, "s")->optionWithName(S("k"))->setValue(m);
       m.appendString(S("!"));
     },
     "[s]\nk = v!\n"},
};
INSTANTIATE_TEST_SUITE_P(Edits, PreservingEdits, ::testing::ValuesIn(kEdits), caseName);

// A name or value changed to another of the same length is written anew,
// wherever the change stands in it and whatever its length: read from
// bytes or from a string, the text is compared unit by unit, not only in
// part. So is an empty value's place before a CR that ends no line.
TEST(PreservingSave, EditsThatKeepTheLengthAreSeenAnywhereInTheText) {
  const std::string letters = "abcdefghijklmnopqrstuvwxyz";
  for (std::size_t n = 1; n <= 20; ++n) {
    const std::string original = letters.substr(0, n);
    for (std::size_t at = 0; at < n; ++at) {
      std::string changed = original;
      changed[at] = 'Z';
      const std::string text = "[s]\n" + original + " = " + original + "\nnext=1\n";
      for (bool fromBytes : {true, false}) {
        SCOPED_TRACE(std::to_string(n) + " units, changed at " + std::to_string(at) +
                     (fromBytes ? ", from bytes" : ", from a string"));
        auto load = [&] { return fromBytes ? loadBytes(text) : ::load(text); };
        auto valueChanged = load();
        setValue(*valueChanged, "s", original.c_str(), changed.c_str());
        EXPECT_EQ(preservedBytes(*valueChanged), "[s]\n" + original + " = " + changed + "\nnext=1\n");
        auto nameChanged = load();
        section(*nameChanged, "s")->optionWithName(S(original.c_str()))->setName(S(changed.c_str()));
        EXPECT_EQ(preservedBytes(*nameChanged), "[s]\n" + changed + " = " + original + "\nnext=1\n");
      }
    }
  }
  for (bool fromBytes : {true, false}) {
    const std::string text = "[s]\nk=\r \n";
    auto document = fromBytes ? loadBytes(text) : load(text);
    setValue(*document, "s", "k", "v");
    EXPECT_EQ(visible(YString(preservedBytes(*document))), visible(YString("[s]\nk=v\r \n"))) << fromBytes;
  }
}

TEST(PreservingSave, TextThatWouldNotReadBackFailsNamingTheElement) {
  const std::vector<std::pair<Edit, std::string>> cases = {
      {renaming("s", "k", " k"), "begins with white space"},
      {renaming("s", "k", "a=b"), "holds \"=\""},
      {setting("s", "new=1", "x"), "holds \"=\""},
      {setting("s", "#k", "x"), "starts a comment"},
      {setting("s", "[k]", "x"), "may start a section"},
      {setting("s", "k", "a\n"), "empty continuation line"},
      {setting("s", "[k", "x]"), "would read as a section header"},
      {setting("s", "k", "a\n  \n b"), "empty continuation line"},
      {[](YIniDocument& d) { section(d, "s")->setName(S(" ")); }, "name is empty"},
      {[](YIniDocument& d) { section(d, "s")->setName(S("a\nb")); }, "holds a line end"},
      {[](YIniDocument& d) { section(d, "s")->setName(S(" s")); }, "begins or ends with white space"},
      {[](YIniDocument& d) { d.addElement(YIniSection::sectionWithName(S("t\t"))); }, "begins or ends with white space"},
      {[](YIniDocument& d) { d.addElement(YIniSection::sectionWithName(YString())); }, "has no name"},
      // Comments added or changed ("z=9" would read as an option, "[c]" as a
      // section, "  note" as a stray line).
      {[](YIniDocument& d) { section(d, "s")->addElement(YIniComment::commentWithString(S("# a\nz=9\n"))); },
       "neither \"#\" nor \";\""},
      {[](YIniDocument& d) { d.addElement(YIniComment::commentWithString(S("[c]"))); }, "neither \"#\" nor \";\""},
      {[](YIniDocument& d) { section(d, "s")->comments()->objectAtIndex(0)->setStringValue(S("\n  note")); },
       "neither \"#\" nor \";\""},
  };
  TempDir folder;
  const std::string path = folder / "f.ini";
  for (const auto& [edit, reason] : cases) {
    SCOPED_TRACE(reason);
    writeBytes(path, "[s]\nk=v\n[k=1\n");
    auto document = loadFile(path);
    edit(*document);
    std::shared_ptr<YError> error;
    EXPECT_TRUE(document->preservedStringValueWithError(&error).isNull());
    ASSERT_TRUE(error);
    EXPECT_EQ(utf8(error->domain()), "YIniErrorDomain");
    EXPECT_EQ(error->code(), YIniTextWouldNotReadBackError);
    const std::string description = utf8(error->localizedDescription());
    EXPECT_NE(description.find(reason), std::string::npos) << description;
    EXPECT_NE(description.find("would not read back"), std::string::npos);
    error.reset();
    EXPECT_FALSE(document->writePreservedToFileError(YString(path), &error));
    EXPECT_TRUE(error);
    EXPECT_EQ(readBytes(path), "[s]\nk=v\n[k=1\n");
  }
}

TEST(PreservingSave, BytesKeepTheFilesEncodingMarkAndLineEnds) {
  auto utf16 = [](const std::u16string& s, bool bigEndian) {
    std::string out;
    for (char16_t c : s) {
      const char high = static_cast<char>(c >> 8), low = static_cast<char>(c & 0xFF);
      out += bigEndian ? std::string{high, low} : std::string{low, high};
    }
    return out;
  };
  const std::vector<std::tuple<const char*, std::string, std::string>> cases = {  // name, file, after s.k = "é"
      {"UTF-8", "[s]\nk = v\n# caf\xC3\xA9\n", "[s]\nk = \xC3\xA9\n# caf\xC3\xA9\n"},
      {"UTF-8 with mark", "\xEF\xBB\xBF[s]\r\nk=v\r\n", "\xEF\xBB\xBF[s]\r\nk=\xC3\xA9\r\n"},
      {"UTF-16LE with mark", std::string("\xFF\xFE").append(utf16(u"[s]\r\nk=v\r\n", false)),
       std::string("\xFF\xFE").append(utf16(u"[s]\r\nk=\u00E9\r\n", false))},
      {"UTF-16BE with mark", std::string("\xFE\xFF").append(utf16(u"[s]\nk=v\n", true)),
       std::string("\xFE\xFF").append(utf16(u"[s]\nk=\u00E9\n", true))},
      {"UTF-16LE without mark", utf16(u"[s]\nk=v\n", false), utf16(u"[s]\nk=\u00E9\n", false)},
      {"UTF-16BE without mark", utf16(u"[s]\r\nk=v\r\n", true), utf16(u"[s]\r\nk=\u00E9\r\n", true)},
  };
  TempDir folder;
  const std::string path = folder / "f.ini";
  for (const auto& [name, bytes, edited] : cases) {
    SCOPED_TRACE(name);
    writeBytes(path, bytes);
    auto document = loadFile(path);
    EXPECT_EQ(preservedBytes(*document), bytes);
    setValue(*document, "s", "k", "\xC3\xA9");
    std::shared_ptr<YError> error;
    ASSERT_TRUE(document->writePreservedToFileError(YString(path), &error)) << utf8(error->description());
    EXPECT_EQ(readBytes(path), edited);
  }
}

TEST(PreservingSave, LegacyEncodingKeepsItsBytesAndRefusesWhatItCannotHold) {
  // windows-1252 is detected from the accented words; "€" is 0x80 there.
  TempDir folder;
  const std::string path = folder / "latin.ini";
  const std::string original =
      "[s]\nk=v\n# caf\xE9 cr\xE8me br\xFBl\xE9\x65 \x80 na\xEFve d\xE9j\xE0 \xE0 la fa\xE7on de cort\xE8ge\n";
  writeBytes(path, original);
  auto document = loadFile(path);
  std::shared_ptr<YError> error;
  setValue(*document, "s", "k", "\xC3\xA9");  // é
  auto bytes = document->preservedDataWithError(&error);
  ASSERT_TRUE(bytes) << utf8(error->description());
  // "k=v" became "k=é", one byte in windows-1252.
  EXPECT_EQ(bytes->substr(0, 8), "[s]\nk=\xE9\n");
  EXPECT_EQ(bytes->substr(8), original.substr(8));
  setValue(*document, "s", "k", "\xE2\x98\x83");  // a snowman: no windows-1252 byte for it
  EXPECT_FALSE(document->writePreservedToFileError(YString(path), &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileWriteInapplicableStringEncodingError);
  EXPECT_EQ(readBytes(path), original);
  // Everything encoded anew in a named encoding.
  auto utf8Bytes = document->preservedDataUsingEncodingError(YUTF8StringEncoding, &error);
  ASSERT_TRUE(utf8Bytes);
  EXPECT_EQ(utf8Bytes->substr(0, 10), "[s]\nk=\xE2\x98\x83\n");
}

TEST(PreservingSave, LegacyLinesThatWouldEncodeOtherwiseKeepTheirBytes) {
  // Shift_JIS has two byte pairs for "\u2170" (NEC's and IBM's): whichever
  // encoding the text again picks, the line holding both would change.
  const std::string comment = "\x23\x20\x82\xB1\x82\xEA\x82\xCD\x93\xFA\x96\x7B\x8C\xEA\x82\xCC\x90\xDD\x92\xE8\x83\x74\x83\x40\x83\x43\x83\x8B\x82\xC5\x82\xB7\x81\x42\x83\x54\x81\x5B\x83\x6F\x81\x5B\x82\xCC\x90\xDD\x92\xE8\x82\xF0\x82\xB1\x82\xB1\x82\xC9\x8F\x91\x82\xAB\x82\xDC\x82\xB7\x81\x42\x0A";
  std::string original = "[s]\nk=v\n";
  for (int i = 0; i < 4; ++i) original += comment;
  original += "# \xEE\xEF \xFA\x40\n";
  auto document = loadBytes(original);
  ASSERT_EQ(utf8(section(*document, "s")->valueForOptionWithName(S("k"))), "v");
  EXPECT_EQ(preservedBytes(*document), original);
  setValue(*document, "s", "k", "w");
  std::string expected = original;
  expected.replace(expected.find("k=v"), 3, "k=w");
  EXPECT_EQ(preservedBytes(*document), expected);
  // EUC-JP reads 8E E0 as U+00A2 but writes that back otherwise: the kept
  // rest of a renamed option's line cannot be written, and the save fails
  // instead of leaving it out, the file as it was.
  const auto eucComment = YEncodeString(YDecodeBytes(comment, YShiftJISStringEncoding, nullptr),
                                        YJapaneseEUCStringEncoding, nullptr);
  ASSERT_TRUE(eucComment);
  std::string euc = "[s]\n";
  for (int i = 0; i < 4; ++i) euc += *eucComment;
  euc += "k = \x8E\xE0 x\nj = 1\n";
  TempDir folder;
  const std::string path = folder / "euc.ini";
  writeBytes(path, euc);
  auto eucDocument = loadFile(path);
  ASSERT_EQ(utf8(section(*eucDocument, "s")->valueForOptionWithName(S("j"))), "1");
  section(*eucDocument, "s")->optionWithName(S("k"))->setName(S("z"));
  std::shared_ptr<YError> error;
  EXPECT_FALSE(eucDocument->preservedDataWithError(&error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileWriteInapplicableStringEncodingError);
  error.reset();
  EXPECT_FALSE(eucDocument->writePreservedToFileError(YString(path), &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileWriteInapplicableStringEncodingError);
  EXPECT_EQ(readBytes(path), euc);
  EXPECT_EQ(filefault::listing(folder.path), "euc.ini ");
}

TEST(PreservingSave, InvalidUTF8BytesComeBackAsTheyWere) {
  // Stray Latin-1 bytes in a UTF-8 file read as U+FFFD: every line no edit
  // touches keeps its bytes; an edited line is written anew, in UTF-8.
  const std::string original = std::string(500, '#') +
                               "\n[s]\nname = M\xFCller\nk = caf\xC3\xA9\n# \xE9t\xE9\nj = \xFF\n";
  auto document = loadBytes(original);
  EXPECT_EQ(utf8(section(*document, "s")->valueForOptionWithName(S("name"))), "M\xEF\xBF\xBDller");
  EXPECT_EQ(preservedBytes(*document), original);
  setValue(*document, "s", "k", "tea");
  setValue(*document, "s", "j", "\xC3\xBF");
  std::string expected = original;
  expected.replace(expected.find("caf"), 5, "tea");
  expected.replace(expected.find("j = \xFF"), 5, "j = \xC3\xBF");
  EXPECT_EQ(preservedBytes(*document), expected);
  // A line an edit touches in part keeps the bytes of the rest (a long
  // comment first, so that the few invalid bytes leave the text UTF-8).
  const std::string comment = std::string(500, '#') + "\n";
  struct Case {
    std::string before;
    Edit edit;
    std::string after;
  } const cases[] = {
      {"[s]\nk=1 \xFF\n", renaming("s", "k", "z"), "[s]\nz=1 \xFF\n"},
      {"[s]\n\xFFk = 1\n", setting("s", "\xEF\xBF\xBDk", "2"), "[s]\n\xFFk = 2\n"},
      {"[a]\xFF\nk=1\n", [](YIniDocument& d) { section(d, "a")->setName(S("b")); }, "[b]\xFF\nk=1\n"},
      {"[s]\nk = \xFF\xFE x\xFF\n", renaming("s", "k", "\xC3\xA9"), "[s]\n\xC3\xA9 = \xFF\xFE x\xFF\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.before);
    auto edited = loadBytes(comment + c.before);
    c.edit(*edited);
    EXPECT_EQ(preservedBytes(*edited), comment + c.after);
  }
  // Behind a UTF-8 byte-order mark, however many bytes are invalid.
  const std::string marked = "\xEF\xBB\xBF[s]\nname = M\xFCller\n";
  auto markedDocument = loadBytes(marked);
  EXPECT_EQ(utf8(section(*markedDocument, "s")->valueForOptionWithName(S("name"))), "M\xEF\xBF\xBDller");
  EXPECT_EQ(preservedBytes(*markedDocument), marked);
}

// The text is searched for U+FFFD many units at a time: an invalid byte at
// any place, in the first line or after one that has one, must still be found
// and its line kept as it was.
TEST(PreservingSave, AnInvalidByteAnywhereKeepsItsLine) {
  for (std::size_t k = 0; k < 70; ++k) {
    SCOPED_TRACE(k);
    // Enough ASCII that the bytes still read as UTF-8 with a few stray ones.
    const std::string original = "#" + std::string(k, 'x') + "\xFF\n[s]\nk = v\n#" + std::string(k % 37, 'y') +
                                 "\xFE\n" + std::string(300, '#') + "\n";
    auto document = loadBytes(original);
    setValue(*document, "s", "k", "w");
    std::string expected = original;
    expected.replace(expected.find("k = v"), 5, "k = w");
    EXPECT_EQ(preservedBytes(*document), expected);
  }
}

TEST(PreservingSave, OptionsBeforeTheFirstSectionAreReadFromTheSource) {
  LogCapture quiet;
  struct Case {
    std::string text;
    std::vector<std::tuple<std::string, std::string, std::size_t>> options;
  } cases[] = {
      {"root = true\n\n[*]\nk=v\n", {{"root", "true", 1}}},
      {"# c\r\n\tk\t= a = b \r\n=\nno equals\nx=\n[a]\ny=1\n", {{"k", "a = b", 2}, {"", "", 3}, {"x", "", 5}}},
      {"k=v", {{"k", "v", 1}}},                        // no section at all, no line end
      {"a=1\nb=2\n  stray\nc=3\n[s]\n", {{"a", "1", 1}, {"b", "2", 2}}},  // none past the stop
      {"[s]\nk=v\n", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(visible(YString(c.text)));
    std::vector<std::tuple<std::string, std::string, std::size_t>> read;
    for (const YIniHeadOption& option : load(c.text)->headOptions())
      read.emplace_back(utf8(option.name), utf8(option.value), option.lineNumber);
    EXPECT_EQ(read, c.options);
  }
  EXPECT_TRUE(YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory())->headOptions().empty());
}

// A host factory that makes no element for a comment: the reading ends
// there, and the rest of the text is skipped, headers and comments too.
class CommentRefusingFactory : public YIniStandardElementFactory {
 public:
  std::shared_ptr<YIniComment> commentWithString(const YString& string) override {
    return string.hasPrefix(S("#")) ? nullptr : YIniStandardElementFactory::commentWithString(string);
  }
};

TEST(PreservingSave, OnlyOptionLinesOfTheSkippedHeadAreHeadOptions) {
  LogCapture quiet;
  auto document = YIniDocument::documentFromStringFactory(YString("r=1\n# skip = no\n[a]\nk=1\n  x=2\n"),
                                                          std::make_shared<CommentRefusingFactory>());
  std::vector<std::pair<std::string, std::string>> read;
  for (const YIniHeadOption& option : document->headOptions()) read.emplace_back(utf8(option.name), utf8(option.value));
  EXPECT_EQ(read, (std::vector<std::pair<std::string, std::string>>{{"r", "1"}}));
  EXPECT_EQ(preserved(*document), "r=1\n# skip = no\n[a]\nk=1\n  x=2\n");
}

TEST(PreservingSave, SourceLinesAndTheStopAreReported) {
  LogCapture quiet;
  auto document = load("# c\r\n[a]\r\nk = v\r\n  more\r\nx=1\r\n\r\n  stray\r\nlost = 1\r\n");
  ASSERT_TRUE(document->hasSource());
  EXPECT_TRUE(document->readingStopped());
  EXPECT_EQ(document->readingStopLineNumber(), 7u);
  EXPECT_EQ(utf8(document->readingStopLineText()), "  stray");
  auto a = section(*document, "a");
  EXPECT_EQ(document->lineNumberForElement(*document->elements()->objectAtIndex(0)), 1u);
  EXPECT_EQ(document->lineNumberForElement(*a), 2u);
  EXPECT_EQ(document->lineNumberForElement(*a->optionWithName(S("k"))), 3u);
  EXPECT_EQ(document->lineNumberForElement(*a->optionWithName(S("x"))), 5u);
  EXPECT_EQ(document->lineNumberForElement(*opt("new")), 0u);
  EXPECT_EQ(document->lineNumberForElement(*a->copyWithZone()), 0u);  // a copy has no source

  auto complete = load("[a]\nk=v\n");
  EXPECT_FALSE(complete->readingStopped());
  EXPECT_EQ(complete->readingStopLineNumber(), 0u);
  EXPECT_TRUE(complete->readingStopLineText().isNull());
  // An element of another loaded document is not one of this document's.
  EXPECT_EQ(complete->lineNumberForElement(*a), 0u);
}

// The stop line's text leaves out its LF or CR LF only: a CR without LF
// ends no line, at the end of the text too. Read from a string and from the
// bytes of the same text.
TEST(PreservingSave, TheStopLineLeavesOutItsLineEndOnly) {
  LogCapture quiet;
  const struct Case {
    std::string text;
    std::size_t line;
    std::string stopText;
  } cases[] = {
      {"[a]\n  stray\r\n", 2, "  stray"},
      {"[a]\n  stray\n", 2, "  stray"},
      {"[a]\n  stray", 2, "  stray"},
      {"[a]\n  stray\r", 2, "  stray\r"},
      {"[a]\n  stray\rmore\r\n", 2, "  stray\rmore"},
      {"[a]\nk=v\n\n \r", 4, " \r"},
      {"  x\r\n[a]\n", 1, "  x"},
      {"[a]\r\n\r\n  s\r\r\nk=v\r\n", 3, "  s\r"},
  };
  const auto factory = YIniStandardElementFactory::standardFactory();
  for (const Case& c : cases) {
    SCOPED_TRACE(visible(YString(c.text)));
    for (const auto& document : {YIniDocument::documentFromStringFactory(YString(c.text), factory),
                                 YIniDocument::documentWithDataFactory(c.text, factory)}) {
      EXPECT_TRUE(document->readingStopped());
      EXPECT_EQ(document->readingStopLineNumber(), c.line);
      EXPECT_EQ(utf8(document->readingStopLineText()), c.stopText);
    }
  }
}

// A factory that makes no element for a line ends the reading there, as
// text no rule reads does: the stop is reported, and the text from that line
// on is kept as it was.
TEST(PreservingSave, ALineTheFactoryMakesNoElementForStopsTheReading) {
  class Refusing : public CommentRefusingFactory {
   public:
    std::shared_ptr<YIniSection> sectionWithName(const YString& name) override {
      return name.isEqualToString(S("b")) ? nullptr : YIniStandardElementFactory::sectionWithName(name);
    }
    std::shared_ptr<YIniOption> optionWithNameValueInSection(const YString& name, const YString& value,
                                                             const std::shared_ptr<YIniSection>& section) override {
      return value.length() ? YIniStandardElementFactory::optionWithNameValueInSection(name, value, section) : nullptr;
    }
  };
  const std::pair<std::string, std::size_t> cases[] = {
      {"[a]\nk=1\n# c\nx=2\n", 3}, {"[a]\nk=1\n[b]\nz=2\n", 3}, {"[a]\nx=\ny=1\n[c]\nz=2\n", 2}};
  for (const auto& [text, line] : cases) {
    SCOPED_TRACE(visible(YString(text)));
    auto document = YIniDocument::documentFromStringFactory(YString(text), std::make_shared<Refusing>());
    EXPECT_TRUE(document->readingStopped());
    EXPECT_EQ(document->readingStopLineNumber(), line);
    section(*document, "a")->setValueForOptionWithName(S("9"), S("k"));
    std::string expected = text;
    if (expected.find("k=1") == std::string::npos) expected.insert(4, "k=9\n");
    else expected.replace(expected.find("k=1"), 3, "k=9");
    EXPECT_EQ(preserved(*document), expected);
  }
}

TEST(PreservingSave, DocumentsWithoutSourceAreWrittenAnew) {
  auto loaded = load("[a]\nk = 1\n\n[b]\nx = 2\n");
  auto copy = std::static_pointer_cast<YIniDocument>(loaded->copyWithZone());
  EXPECT_FALSE(copy->hasSource());
  EXPECT_EQ(preserved(*copy), "[a]\nk=1\n\n[b]\nx=2\n");
  auto built = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
  EXPECT_FALSE(built->hasSource());
  built->addElement(sec("s", {opt("k", "v")}));
  EXPECT_EQ(preserved(*built), "[s]\nk=v\n");
  EXPECT_EQ(preservedBytes(*built), "[s]\nk=v\n");
  // Undecodable bytes in memory load nothing and leave no source.
  auto broken = YIniDocument::documentWithDataFactory(std::string("\xFF\xFE[", 3), built->factory());
  EXPECT_FALSE(broken->hasSource());
  EXPECT_EQ(broken->elements()->count(), 0u);
}

TEST(PreservingSave, ElementsFromAnotherDocumentAreWrittenAnewWhereverTheyLive) {
  // The section taken out of `into` is destroyed; the pool then gives its
  // memory to the next document's section, which carries the same entry
  // number there and comes into `into` in its place.
  for (int round = 0; round < 4; ++round) {
    auto into = load("[s]\nk = 1\n");
    into->removeElement(section(*into, "s"));
    auto from = load("[s]\nk = 2\n");
    auto moved = section(*from, "s");
    from->removeElement(moved);
    into->addElement(moved);
    EXPECT_EQ(preserved(*into), "[s]\nk = 2\n");  // anew, in the style of the text it joins
    EXPECT_EQ(into->lineNumberForElement(*moved), 0u);
    EXPECT_EQ(from->lineNumberForElement(*moved), 1u);
  }
}

// A factory that changes what it is given: the snapshot is what it made.
class UppercasingFactory : public YIniStandardElementFactory {
 public:
  std::shared_ptr<YIniOption> optionWithNameValueInSection(const YString& name, const YString& value,
                                                           const std::shared_ptr<YIniSection>& section) override {
    return YIniStandardElementFactory::optionWithNameValueInSection(YString(utf8(name) + "_"), value, section);
  }
  std::shared_ptr<YIniComment> commentWithString(const YString& string) override {
    return YIniStandardElementFactory::commentWithString(string.length() > 1 ? YString(u"#!") : string);
  }
};

TEST(PreservingSave, HostFactoriesSnapshotWhatTheyMade) {
  auto document = YIniDocument::documentFromStringFactory(YString("# c\n[s]\nk = v\n"),
                                                          std::make_shared<UppercasingFactory>());
  EXPECT_EQ(preserved(*document), "# c\n[s]\nk = v\n");
  section(*document, "s")->setValueForOptionWithName(S("w"), S("k_"));
  EXPECT_EQ(preserved(*document), "# c\n[s]\nk = w\n");
  section(*document, "s")->optionWithName(S("k_"))->setName(S("k"));
  EXPECT_EQ(preserved(*document), "# c\n[s]\nk = w\n");
}

// Options a host factory made otherwise: one whose first value is not the
// one it holds at the end of loading, one holding a mutable string. What
// they hold when saved is what is written, however it came to change.
class ChangingFactory : public YIniStandardElementFactory {
 public:
  std::shared_ptr<YIniOption> optionWithNameValueInSection(const YString& name, const YString& value,
                                                           const std::shared_ptr<YIniSection>& section) override {
    if (name.isEqualToString(S("first"))) {
      auto option = YIniStandardElementFactory::optionWithNameValueInSection(name, S("made"), section);
      option->setValue(value);
      return option;
    }
    return YIniStandardElementFactory::optionWithNameValueInSection(
        name, name.isEqualToString(S("held")) ? YString::mutableStringWithString(value) : value, section);
  }
};

TEST(PreservingSave, WhatAnOptionHoldsWhenSavedIsWrittenHoweverItChanged) {
  auto document =
      YIniDocument::documentFromStringFactory(YString("[s]\nfirst = v\nheld = w\n"), std::make_shared<ChangingFactory>());
  EXPECT_EQ(preserved(*document), "[s]\nfirst = v\nheld = w\n");
  section(*document, "s")->optionWithName(S("first"))->revert();
  section(*document, "s")->optionWithName(S("held"))->value().appendString(S("!"));
  EXPECT_EQ(preserved(*document), "[s]\nfirst = made\nheld = w!\n");
}

// A changed option's continuation lines take the indentation of the last
// option before it that showed one, also past options written as they were.
TEST(PreservingSave, AChangedOptionTakesTheIndentationOfTheOptionsBeforeIt) {
  auto document = load("[s]\na = 1\n  x\nb = 2\n    y\nc = 3\nd = 4\n");
  setValue(*document, "s", "d", "5\nz");
  EXPECT_EQ(visible(YString(preserved(*document))), visible(YString("[s]\na = 1\n  x\nb = 2\n    y\nc = 3\nd = 5\n    z\n")));
}

TEST(PreservingSave, OnlyReadsTheTree) {
  auto document = load("[s]\n\tname  = v\n");  // the writers would trim the name through setName
  document->commit();
  KeyObserver observer(*document, YModifiedKey);
  auto s = section(*document, "s");
  s->addElement(opt(" padded ", "1"));
  const std::size_t before = observer.count();
  EXPECT_EQ(preserved(*document), "[s]\n\tname  = v\npadded  = 1\n");
  EXPECT_EQ(preservedBytes(*document), "[s]\n\tname  = v\npadded  = 1\n");
  EXPECT_EQ(observer.count(), before);
  EXPECT_EQ(utf8(s->options()->objectAtIndex(1)->name()), " padded ");
}

}  // namespace
