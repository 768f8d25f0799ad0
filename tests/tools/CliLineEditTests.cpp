// set and del change only the lines their edit needs.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "CliTestSupport.h"

using clitest::readBytes;
using clitest::runTool;
using clitest::TempFolder;

namespace {

// A hand-written unit file: a header comment, blank lines between sections,
// spaces around "=", continuation lines, and a comment inside a section.
const std::string kUnit =
    "# Nightly backup, edited by hand\n"
    "\n"
    "[Unit]\n"
    "Description = Nightly backup\n"
    "Documentation = man:backup(8)\n"
    "    https://example.org/backup\n"
    "After = network.target\n"
    "\n"
    "[Service]\n"
    "Type = oneshot\n"
    "# run as the backup user\n"
    "User = backup\n"
    "Environment = LANG=C\n"
    "        TZ=UTC\n"
    "\n"
    "[Install]\n"
    "WantedBy = multi-user.target\n";

std::vector<std::string> lineList(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end + 1;
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += line;
  return text;
}

// kUnit with `edit` applied to its list of lines.
template <class Edit>
std::string unitWith(Edit edit) {
  auto lines = lineList(kUnit);
  edit(lines);
  return joined(lines);
}

std::size_t indexOf(const std::vector<std::string>& lines, const std::string& line) {
  return static_cast<std::size_t>(std::find(lines.begin(), lines.end(), line) - lines.begin());
}

// The same file in the forms the tool must keep: line ends, encodings, marks.
struct Form {
  const char* name;
  bool crlf;
  std::string (*bytes)(const std::string&);  // text to the file's bytes
};
std::string plain(const std::string& t) { return t; }
std::string wide(const std::string& t) { return clitest::utf16(t); }
std::string marked(const std::string& t) { return "\xEF\xBB\xBF" + t; }
const Form kForms[] = {
    {"LF", false, plain}, {"CRLF", true, plain}, {"UTF-16", false, wide}, {"UTF-16 CRLF", true, wide},
    {"UTF-8 BOM", false, marked},
};

class CliLineEdits : public ::testing::TestWithParam<Form> {
 protected:
  /// `text` (written with LF) in this form.
  std::string encode(const std::string& text) const {
    return GetParam().bytes(GetParam().crlf ? clitest::crlf(text) : text);
  }
  TempFolder folder;
};

TEST_P(CliLineEdits, SetChangesExactlyOneLine) {
  const std::string path = folder.file("backup.service", encode(kUnit));
  ASSERT_EQ(runTool({"set", path, "Service", "Type", "simple"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), encode(unitWith([](auto& l) { l[indexOf(l, "Type = oneshot\n")] = "Type=simple\n"; })));
}

TEST_P(CliLineEdits, SetOfAContinuedValueReplacesItsLines) {
  const std::string path = folder.file("backup.service", encode(kUnit));
  ASSERT_EQ(runTool({"set", path, "Service", "Environment", "LANG=C.UTF-8"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), encode(unitWith([](auto& l) {
              auto at = l.begin() + static_cast<std::ptrdiff_t>(indexOf(l, "Environment = LANG=C\n"));
              at = l.erase(at, at + 2);
              l.insert(at, "Environment=LANG=C.UTF-8\n");
            })));
}

TEST_P(CliLineEdits, DelRemovesExactlyTheOptionsLines) {
  const std::string path = folder.file("backup.service", encode(kUnit));
  ASSERT_EQ(runTool({"del", path, "Unit", "Documentation"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), encode(unitWith([](auto& l) {
              auto at = l.begin() + static_cast<std::ptrdiff_t>(indexOf(l, "Documentation = man:backup(8)\n"));
              l.erase(at, at + 2);  // with its continuation line
            })));
  ASSERT_EQ(runTool({"del", path, "Unit", "After"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), encode(unitWith([](auto& l) {
              auto at = l.begin() + static_cast<std::ptrdiff_t>(indexOf(l, "Documentation = man:backup(8)\n"));
              l.erase(at, at + 3);  // the blank line after "After" stays
            })));
}

TEST_P(CliLineEdits, SetThenDelOfANewOptionGivesTheFileBack) {
  const std::string original = encode(kUnit);
  const std::string path = folder.file("backup.service", original);
  ASSERT_EQ(runTool({"set", path, "Unit", "Wants", "network-online.target"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), encode(unitWith([](auto& l) {
              l.insert(l.begin() + static_cast<std::ptrdiff_t>(indexOf(l, "After = network.target\n")) + 1,
                       "Wants=network-online.target\n");
            })))
      << "one new line, after the section's last option";
  ASSERT_EQ(runTool({"del", path, "Unit", "Wants"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), original);

  ASSERT_EQ(runTool({"set", path, "Timer", "OnCalendar", "daily"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), encode(kUnit + "[Timer]\nOnCalendar=daily\n"));
  ASSERT_EQ(runTool({"del", path, "Timer", "OnCalendar"}).exitCode, 0);
  ASSERT_EQ(runTool({"del", path, "Timer"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), original);
}

TEST_P(CliLineEdits, DelOfASectionTakesItsLines) {
  const std::string path = folder.file("backup.service", encode(kUnit));
  ASSERT_EQ(runTool({"del", path, "Service"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), encode(unitWith([](auto& l) {
              auto at = l.begin() + static_cast<std::ptrdiff_t>(indexOf(l, "[Service]\n"));
              l.erase(at, at + 7);
            })));
}

TEST_P(CliLineEdits, ReformatWritesTheLibrarysText) {
  const std::string path = folder.file("backup.service", encode(kUnit));
  const std::string copy = folder.path("copy").string();
  ASSERT_EQ(runTool({"set", path, "Service", "Type", "simple", "--reformat", "--output", copy}).exitCode, 0);
  std::string expected = runTool({"fmt", path}).out;
  expected.replace(expected.find("Type=oneshot"), 12, "Type=simple");
  EXPECT_EQ(readBytes(copy), GetParam().bytes(expected)) << "the library's text in the file's encoding";
}

INSTANTIATE_TEST_SUITE_P(Forms, CliLineEdits, ::testing::ValuesIn(kForms),
                         [](const ::testing::TestParamInfo<Form>& info) {
                           std::string name = info.param.name;
                           std::replace_if(name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
                           return name;
                         });

class CliLineEditRules : public ::testing::Test {
 protected:
  TempFolder folder;
};

TEST_F(CliLineEditRules, SpacedOptionBecomesCompactOnThatLineOnly) {
  const std::string path = folder.file("a.ini", "[a]\nkey = old\nother = 1\n");
  ASSERT_EQ(runTool({"set", path, "a", "key", "new"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), "[a]\nkey=new\nother = 1\n");
}

TEST_F(CliLineEditRules, NewSectionStartsOnALineOfItsOwn) {
  struct Case {
    const char* original;
    const char* expected;
  } cases[] = {
      {"[a]\nk=v", "[a]\nk=v\n[b]\nx=1"},
      {"[a]\nk=v\n# last words", "[a]\nk=v\n# last words\n[b]\nx=1"},
      {"[a]", "[a]\n[b]\nx=1"},
      {"", "[b]\nx=1\n"},
      {"[a]\r\nk=v\r\n# end", "[a]\r\nk=v\r\n# end\r\n[b]\r\nx=1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.original);
    const std::string path = folder.file("a.ini", c.original);
    ASSERT_EQ(runTool({"set", path, "b", "x", "1"}).exitCode, 0);
    EXPECT_EQ(readBytes(path), c.expected);
    ASSERT_EQ(runTool({"del", path, "b"}).exitCode, 0);
    EXPECT_EQ(readBytes(path), c.original) << "and removing it again gives the file back";
  }
}

TEST_F(CliLineEditRules, PermissionsAndSymbolicLinksAreKept) {
  const std::string path = folder.file("a.ini", "[a]\nk = v\n");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  const std::string link = folder.path("link.ini").string();
  ASSERT_EQ(::symlink(path.c_str(), link.c_str()), 0);
  ASSERT_EQ(runTool({"set", link, "a", "k", "w"}).exitCode, 0);
  struct stat st {};
  ASSERT_EQ(::lstat(link.c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link stays a link";
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(readBytes(path), "[a]\nk=w\n");
  // The write is atomic: nothing but the two files is left in the folder.
  std::size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path(""))) ++entries;
  EXPECT_EQ(entries, 2u);
}

TEST_F(CliLineEditRules, IncompleteViewIsStillRefused) {
  // Reading stops at the stray indented line, so [b] is unseen: setting b.y
  // would add a second [b]. The message says why.
  const std::string original = "[a]\nk=v\n\n  stray\n[b]\ny=1\n";
  const std::string path = folder.file("a.ini", original);
  auto run = runTool({"set", path, "b", "y", "2"});
  EXPECT_EQ(run.exitCode, 4);
  EXPECT_NE(run.err.find("line 4: \"  stray\" - an indented line that continues no option: reading stopped here"),
            std::string::npos)
      << run.err;
  EXPECT_EQ(readBytes(path), original);

  const std::string before = folder.file("b.ini", "top=1\n[a]\nk=v\n");
  run = runTool({"del", before, "a", "k"});
  EXPECT_EQ(run.exitCode, 4);
  EXPECT_NE(run.err.find("line 1: \"top=1\" - an option before the first section header"), std::string::npos)
      << run.err;
}

}  // namespace
