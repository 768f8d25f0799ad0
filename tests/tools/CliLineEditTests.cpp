// set and del change only the lines their edit needs.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "CliTestSupport.h"

using namespace clitest;
using Args = std::vector<std::string>;

namespace {

// A hand-written unit file: a header comment, blank lines between sections,
// spaces around "=", continuation lines, and a comment inside a section.
const std::string kUnit =
    "# Nightly backup, edited by hand\n\n"
    "[Unit]\nDescription = Nightly backup\nDocumentation = man:backup(8)\n    https://example.org/backup\n"
    "After = network.target\n\n"
    "[Service]\nType = oneshot\n# run as the backup user\nUser = backup\nEnvironment = LANG=C\n        TZ=UTC\n\n"
    "[Install]\nWantedBy = multi-user.target\n";

/// kUnit with `erase` lines from the line `at` replaced by `insert`; with no
/// `at`, `insert` appended.
std::string unitWith(const std::string& at, std::size_t erase, const std::string& insert) {
  if (at.empty()) return kUnit + insert;
  std::size_t start = kUnit.find("\n" + at) + 1, end = start;
  for (std::size_t i = 0; i < erase; ++i) end = kUnit.find('\n', end) + 1;
  return kUnit.substr(0, start) + insert + kUnit.substr(end);
}

// The same file in the forms the tool must keep: line ends, encodings, marks.
struct Form {
  const char* name;
  bool crlf;
  std::string (*bytes)(const std::string&);
};
const Form kForms[] = {
    {"LF", false, [](const std::string& t) { return t; }},
    {"CRLF", true, [](const std::string& t) { return t; }},
    {"UTF16", false, [](const std::string& t) { return utf16(t); }},
    {"UTF16_CRLF", true, [](const std::string& t) { return utf16(t); }},
    {"UTF8_BOM", false, [](const std::string& t) { return "\xEF\xBB\xBF" + t; }},
};

class CliLineEdits : public ::testing::TestWithParam<Form> {
 protected:
  /// `text` (written with LF) in this form.
  std::string encode(const std::string& text) const { return GetParam().bytes(GetParam().crlf ? crlf(text) : text); }
  TempFolder folder;
};

TEST_P(CliLineEdits, EditsChangeOnlyTheirLines) {
  struct Row {
    std::vector<Args> edits;
    std::string at;
    std::size_t erase;
    std::string insert;
  } rows[] = {
      // "Type = oneshot" becomes "Type=simple"; every other byte stays.
      {{{"set", "Service", "Type", "simple"}}, "Type = oneshot", 1, "Type=simple\n"},
      {{{"set", "Service", "Environment", "LANG=C.UTF-8"}}, "Environment = LANG=C", 2, "Environment=LANG=C.UTF-8\n"},
      // Continuation lines go with their option; the blank line after "After" stays.
      {{{"del", "Unit", "Documentation"}}, "Documentation", 2, ""},
      {{{"del", "Unit", "Documentation"}, {"del", "Unit", "After"}}, "Documentation", 3, ""},
      {{{"del", "Service"}}, "[Service]", 7, ""},
      // A new option goes after the section's last option; removing it gives the file back.
      {{{"set", "Unit", "Wants", "network-online.target"}}, "After", 1,
       "After = network.target\nWants=network-online.target\n"},
      {{{"set", "Unit", "Wants", "x"}, {"del", "Unit", "Wants"}}, "", 0, ""},
      {{{"set", "Timer", "OnCalendar", "daily"}}, "", 0, "[Timer]\nOnCalendar=daily\n"},
      {{{"set", "Timer", "OnCalendar", "daily"}, {"del", "Timer", "OnCalendar"}, {"del", "Timer"}}, "", 0, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.edits.back()[0] + " " + row.edits.back()[1] + " " + row.edits.back().back());
    const std::string path = folder.file("backup.service", encode(kUnit));
    for (Args edit : row.edits) {
      edit.insert(edit.begin() + 1, path);
      ASSERT_EQ(runTool(edit).exitCode, 0);
    }
    EXPECT_EQ(readBytes(path), encode(unitWith(row.at, row.erase, row.insert)));
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, CliLineEdits, ::testing::ValuesIn(kForms),
                         [](const ::testing::TestParamInfo<Form>& info) { return std::string(info.param.name); });

class CliLineEditRules : public ::testing::Test {
 protected:
  TempFolder folder;
};

TEST_F(CliLineEditRules, NewSectionStartsOnALineOfItsOwn) {
  const std::pair<std::string, std::string> cases[] = {
      {"[a]\nk=v", "[a]\nk=v\n[b]\nx=1"},
      {"[a]\nk=v\n# last words", "[a]\nk=v\n# last words\n[b]\nx=1"},
      {"[a]", "[a]\n[b]\nx=1"},
      {"", "[b]\nx=1\n"},
      {"[a]\r\nk=v\r\n# end", "[a]\r\nk=v\r\n# end\r\n[b]\r\nx=1"},
  };
  for (const auto& [original, expected] : cases) {
    SCOPED_TRACE(original);
    const std::string path = folder.file("a.ini", original);
    ASSERT_EQ(runTool({"set", path, "b", "x", "1"}).exitCode, 0);
    EXPECT_EQ(readBytes(path), expected);
    ASSERT_EQ(runTool({"del", path, "b"}).exitCode, 0);
    EXPECT_EQ(readBytes(path), original) << "and removing it again gives the file back";
  }
}

TEST_F(CliLineEditRules, PermissionsAndSymbolicLinksAreKept) {
  const std::string path = folder.file("a.ini", "[a]\nk = v\n"), link = folder.path("link.ini");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  ASSERT_EQ(::symlink(path.c_str(), link.c_str()), 0);
  ASSERT_EQ(runTool({"set", link, "a", "k", "w"}).exitCode, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(readBytes(path), "[a]\nk=w\n");
  auto entries = std::distance(std::filesystem::directory_iterator(folder.path("")), {});
  EXPECT_EQ(entries, 2) << "no temporary file is left";
}

TEST_F(CliLineEditRules, IncompleteViewIsStillRefused) {
  // Reading stops at the stray line, so [b] is unseen: setting b.y would add a second [b].
  struct Case {
    std::string original;
    Args edit;
    std::string message;
  } cases[] = {
      {"[a]\nk=v\n\n  stray\n[b]\ny=1\n", {"set", "b", "y", "2"},
       "line 4: \"  stray\" - an indented line that continues no option: reading stopped here"},
      {"top=1\n[a]\nk=v\n", {"del", "a", "k"}, "line 1: \"top=1\" - an option before the first section header"},
  };
  for (Case& c : cases) {
    const std::string path = folder.file("a.ini", c.original);
    c.edit.insert(c.edit.begin() + 1, path);
    auto run = runTool(c.edit);
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_TRUE(has(run.err, c.message));
    EXPECT_EQ(readBytes(path), c.original);
  }
}

}  // namespace
