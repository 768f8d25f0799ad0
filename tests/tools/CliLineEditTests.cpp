// set and del change only the lines their edit needs.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

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
// Test listings and failures name the form, not its bytes.
void PrintTo(const Form& form, std::ostream* os) { *os << form.name; }

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
      // "Type = oneshot" becomes "Type = simple"; every other byte stays.
      {{{"set", "Service", "Type", "simple"}}, "Type = oneshot", 1, "Type = simple\n"},
      {{{"set", "Service", "Environment", "LANG=C.UTF-8"}}, "Environment = LANG=C", 2, "Environment = LANG=C.UTF-8\n"},
      {{{"set", "Service", "Environment", "A=1\n    B=2\n  C=3"}}, "Environment = LANG=C", 2,
       "Environment = A=1\n        B=2\n        C=3\n"},
      // Continuation lines go with their option; the blank line after "After" stays.
      {{{"del", "Unit", "Documentation"}}, "Documentation", 2, ""},
      {{{"del", "Unit", "Documentation"}, {"del", "Unit", "After"}}, "Documentation", 3, ""},
      // The blank line above [Install] stays with it.
      {{{"del", "Service"}}, "[Service]", 6, ""},
      // A new option goes after the section's last option, in the file's style;
      // removing it gives the file back.
      {{{"set", "Unit", "Wants", "network-online.target"}}, "After", 1,
       "After = network.target\nWants = network-online.target\n"},
      {{{"set", "Unit", "Wants", "x"}, {"del", "Unit", "Wants"}}, "", 0, ""},
      // A new section is set apart as the file sets its sections apart.
      {{{"set", "Timer", "OnCalendar", "daily"}}, "", 0, "\n[Timer]\nOnCalendar = daily\n"},
      // The blank line that set the new section apart now belongs to [Install].
      {{{"set", "Timer", "OnCalendar", "daily"}, {"del", "Timer", "OnCalendar"}, {"del", "Timer"}}, "", 0, "\n"},
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

INSTANTIATE_TEST_SUITE_P(Forms, CliLineEdits, ::testing::ValuesIn(kForms), ::testing::PrintToStringParamName());

class CliLineEditRules : public CliTest {};

TEST_F(CliLineEditRules, NewSectionStartsOnALineOfItsOwn) {
  const std::pair<std::string, std::string> cases[] = {
      {"[a]\nk=v", "[a]\nk=v\n[b]\nx=1\n"},
      {"[a]\nk=v\n# last words", "[a]\nk=v\n# last words\n[b]\nx=1\n"},
      {"[a]", "[a]\n[b]\nx=1\n"},
      {"", "[b]\nx=1\n"},
      {"[a]\r\nk=v\r\n# end", "[a]\r\nk=v\r\n# end\r\n[b]\r\nx=1\r\n"},
  };
  for (const auto& [original, expected] : cases) {
    SCOPED_TRACE(original);
    const std::string path = folder.file("a.ini", original);
    EXPECT_EQ(editAndRead({"set", path, "b", "x", "1"}, path), "0 " + expected);
    // Removing it gives the file back, but for the line end its last line gained.
    std::string back = original;
    if (!back.empty() && back.back() != '\n') back += original.find('\r') == std::string::npos ? "\n" : "\r\n";
    EXPECT_EQ(editAndRead({"del", path, "b"}, path), "0 " + back);
  }
}

// New options go after the last option of their section or after their
// commented-out default; del keeps the comments above the next header; options
// before the first section are those of the section "".
TEST_F(CliLineEditRules, EachEditChangesOnlyWhereTheFileSays) {
  const std::string editorconfig = "# top-most file\nroot = true\n\n[*]\nindent_style = space\n";
  struct Row {
    std::string before;
    Args edit;
    std::string after;
  } rows[] = {
      // After the last option, before the comment that introduces the next section.
      {"[s]\nk = v\n\n# next\n[t]\n", {"set", "s", "n", "1"}, "[s]\nk = v\nn = 1\n\n# next\n[t]\n"},
      {"[s]\nk=v\n# about k\n", {"set", "s", "n", "1"}, "[s]\nk=v\nn=1\n# about k\n"},
      {"[s]\n# nothing yet\n", {"set", "s", "n", "1"}, "[s]\nn=1\n# nothing yet\n"},
      // After a commented-out default of the same name, which stays.
      {"[Journal]\n#Storage=auto\n#SystemMaxUse=\n#SystemKeepFree=\n", {"set", "Journal", "SystemMaxUse", "1G"},
       "[Journal]\n#Storage=auto\n#SystemMaxUse=\nSystemMaxUse=1G\n#SystemKeepFree=\n"},
      {"[ssh]\nk = v\n#  Port  = 22\n# Port = 23\n", {"set", "ssh", "Port", "2222"},
       "[ssh]\nk = v\n#  Port  = 22\nPort = 2222\n# Port = 23\n"},
      {"[s]\r\n# Port=22\r\n", {"set", "s", "Port", "1"}, "[s]\r\n# Port=22\r\nPort=1\r\n"},
      {"[s]\n# Portable = 1\n#Port\n", {"set", "s", "Port", "1"}, "[s]\nPort=1\n# Portable = 1\n#Port\n"},
      {"# top\n#root = true\n\n[*]\nk = v\n", {"set", "", "root", "true"},
       "# top\n#root = true\nroot = true\n\n[*]\nk = v\n"},
      // del of a section.
      {"[a]\nk=v\n\n# Section b\n[b]\nx=1\n", {"del", "a"}, "\n# Section b\n[b]\nx=1\n"},
      {"[a]\nk=v\n# about k\n\n[b]\n", {"del", "a"}, "\n[b]\n"},
      {"# top\n[a]\n# a only\n\n\n# b\n# more b\n[b]\n", {"del", "a"}, "# top\n\n\n# b\n# more b\n[b]\n"},
      {"[z]\n[a]\nk=v\n\n# end\n", {"del", "a"}, "[z]\n\n# end\n"},
      // Options before the first section.
      {editorconfig, {"set", "", "root", "false"}, "# top-most file\nroot = false\n\n[*]\nindent_style = space\n"},
      {editorconfig, {"set", "", "charset", "utf-8"},
       "# top-most file\nroot = true\ncharset = utf-8\n\n[*]\nindent_style = space\n"},
      {editorconfig, {"del", "", "root"}, "# top-most file\n\n[*]\nindent_style = space\n"},
      {"# c\r\n[a]\r\nk=v\r\n", {"set", "", "x", "1"}, "# c\r\nx=1\r\n[a]\r\nk=v\r\n"},
      {"a=\nb = 1", {"set", "", "a", "2"}, "a=2\nb = 1"},
      {"a =\nb = 1", {"set", "", "a", "2"}, "a = 2\nb = 1"},
      {"a = 1", {"set", "", "b", "2"}, "a = 1\nb = 2\n"},
      {"", {"set", "", "k", "v"}, "k=v\n"},
      {"a=1\na=2\n[s]\n", {"del", ""}, "[s]\n"},
      {"k=1\n[s]\nk=2\n", {"set", "s", "k", "3"}, "k=1\n[s]\nk=3\n"},
      // A new section, empty, ends its line; so does the last line before it.
      {"[a]\nk=1\n", {"set", "b"}, "[a]\nk=1\n[b]\n"},
      {"k=1", {"set", "b"}, "k=1\n[b]\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.before);
    const std::string path = folder.file("rows.ini", row.before);
    Args edit = row.edit;
    edit.insert(edit.begin() + 1, path);
    EXPECT_EQ(editAndRead(edit, path), "0 " + row.after);
  }
  // A changed last line without a line end, with a section added after it.
  const std::string merged = folder.file("merged.ini", "k=1");
  EXPECT_EQ(editAndRead({"merge", merged}, merged, "k=2\n[b]\nx=1\n"), "0 k=2\n[b]\nx=1\n");
  // In UTF-16, with a byte-order mark, and read back by get.
  const std::string path = folder.file("wide.ini", utf16("r\u00f6ot = true\r\n[*]\r\n"));
  EXPECT_EQ(editAndRead({"set", path, "", "r\u00f6ot", "f\u00e4lse"}, path),
            "0 " + utf16("r\u00f6ot = f\u00e4lse\r\n[*]\r\n"));
  EXPECT_EQ(runTool({"get", path, "", "r\u00f6ot"}).out, "f\u00e4lse\n");
  EXPECT_EQ(editAndRead({"set", path, "", "x", "1", "--encoding", "utf-8"}, path),
            "0 r\u00f6ot = f\u00e4lse\r\nx = 1\r\n[*]\r\n");
}

TEST_F(CliLineEditRules, MultiLineValuesTakeTheFilesIndentation) {
  const std::string original = "[a]\nlist = one\n      two\nother = x\n";
  const std::string path = folder.file("multi.ini", original);
  const std::string printed = runTool({"get", path, "a", "list"}).out;
  ASSERT_EQ(printed, "one\n two\n");
  const auto before = std::filesystem::last_write_time(path);
  auto same = runTool({"--verbose", "set", path, "a", "list", printed.substr(0, printed.size() - 1)});
  EXPECT_TRUE(has(same.err, "unchanged"));
  EXPECT_EQ(std::filesystem::last_write_time(path), before);
  for (const char* value : {"one\n  two\n three", "  one\t\ntwo  \n\tthree"})
    EXPECT_EQ(editAndRead({"set", path, "a", "list", value}, path),
              "0 [a]\nlist = one\n      two\n      three\nother = x\n");
  EXPECT_EQ(editAndRead({"set", path, "a", "other", "p\nq"}, path),
            "0 [a]\nlist = one\n      two\n      three\nother = p\n      q\n");
}

TEST_F(CliLineEditRules, InvalidUTF8BytesAreShownAsReplacementsAndKept) {
  // One stray Latin-1 byte in a UTF-8 file of 300 bytes stays UTF-8.
  const std::string original = "# " + std::string(280, '-') + "\n[user]\nname = J\xFCrgen\ncity = M\xC3\xBCnchen\n";
  const std::string path = folder.file("user.ini", original);
  auto get = runTool({"get", path, "user", "name"});
  EXPECT_EQ(get.out, "J\xEF\xBF\xBDrgen\n");
  EXPECT_TRUE(has(get.err, "user.ini: 1 invalid UTF-8 byte sequence (line 3) shown as U+FFFD"));
  EXPECT_EQ(runTool({"get", path, "user", "city"}).out, "M\xC3\xBCnchen\n");
  ASSERT_EQ(runTool({"set", path, "user", "city", "K\xC3\xB6ln"}).exitCode, 0);
  std::string expected = original;
  expected.replace(expected.find("M\xC3\xBC"), 8, "K\xC3\xB6ln");
  EXPECT_EQ(readBytes(path), expected);
  // Text written whole would hold U+FFFD instead: refused.
  for (const char* whole : {"--reformat", "--encoding=utf-16"})
    EXPECT_EQ(editAndRead({"set", path, "user", "city", "X", whole}, path), "2 " + expected) << whole;
  // A head option added after a last line without line end: that line keeps
  // its bytes and gains a line end.
  const std::string head = folder.file("head.ini", "# " + std::string(280, '-') + "\nz=caf\xE9");
  EXPECT_EQ(editAndRead({"set", head, "", "new", "1"}, head), "0 # " + std::string(280, '-') + "\nz=caf\xE9\nnew=1\n");
  // A legacy file stays in its encoding: new text is written in it.
  const std::string latin = folder.file("latin.ini", "[s]\n# caf\xE9 cr\xE8me br\xFBl\xE9\x65 na\xEFve d\xE9j\xE0\nk=v\n");
  EXPECT_EQ(editAndRead({"set", latin, "s", "k", "\xC3\xA9t\xC3\xA9"}, latin),
            "0 [s]\n# caf\xE9 cr\xE8me br\xFBl\xE9\x65 na\xEFve d\xE9j\xE0\nk=\xE9t\xE9\n");
}

TEST_F(CliLineEditRules, EditsThatChangeNothingDoNotWrite) {
  const std::string path = folder.file("same.ini", "root = 1\n[a]\nk = v\n[b]\n");
  // The file's inode and modification time.
  auto identity = [&] {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? std::to_string(st.st_ino) + " " + std::to_string(st.st_mtim.tv_sec) +
                                                "." + std::to_string(st.st_mtim.tv_nsec)
                                          : "(none)";
  };
  const std::string before = identity();
  const std::string unchanged = "same.ini: unchanged";
  expectRuns({"--verbose"}, {{{"set", path, "a", "k", "v"}, "", unchanged}, {{"set", path, "a"}, "", unchanged},
                             {{"set", path, "", "root", "1"}, "", unchanged}, {{"del", path, "a", "x"}, "", unchanged},
                             {{"del", path, "c"}, "", unchanged}, {{"merge", path}, "", unchanged}});
  EXPECT_EQ(identity(), before);
  // With --output the file is written all the same.
  const std::string copy = folder.path("copy.ini");
  ASSERT_EQ(runTool({"set", path, "a", "k", "v", "--output", copy}).exitCode, 0);
  EXPECT_EQ(readBytes(copy), readBytes(path));
  EXPECT_TRUE(has(runTool({"set", "--verbose", path, "a", "k", "w"}).err, "same.ini: changed"));
}

TEST_F(CliLineEditRules, PermissionsAndSymbolicLinksAreKept) {
  const std::string path = folder.file("a.ini", "[a]\nk = v\n"), link = folder.path("link.ini");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  ASSERT_EQ(::symlink(path.c_str(), link.c_str()), 0);
  EXPECT_EQ(editAndRead({"set", link, "a", "k", "w"}, path), "0 [a]\nk = w\n");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
  auto entries = std::distance(std::filesystem::directory_iterator(folder.path("")), {});
  EXPECT_EQ(entries, 2) << "no temporary file is left";
  // A hard link keeps the old text, and the tool says so.
  const std::string hard = folder.path("hard.ini");
  ASSERT_EQ(::link(path.c_str(), hard.c_str()), 0);
  auto run = runTool({"set", path, "a", "k", "x"});
  ASSERT_EQ(run.exitCode, 0);
  EXPECT_TRUE(has(run.err, "2 hard links")) << run.err;
  EXPECT_EQ(readBytes(hard), "[a]\nk = w\n");
  EXPECT_FALSE(has(runTool({"set", path, "a", "k", "y"}).err, "hard links"));
}

TEST_F(CliLineEditRules, TextTheLibraryDoesNotReadIsKept) {
  const std::string path =
      folder.file("semi.ini", "; written by the installer\nroot = true\n[a]\nk = v\n; keep me\nno equals here\nx=1\n");
  ASSERT_EQ(runTool({"set", path, "a", "k", "w"}).exitCode, 0);
  EXPECT_EQ(editAndRead({"del", path, "a", "x"}, path),
            "0 ; written by the installer\nroot = true\n[a]\nk = w\n; keep me\nno equals here\n");
  // --reformat writes the library's own text, which has no options before
  // the first section: refused while there is one.
  EXPECT_EQ(editAndRead({"set", path, "a", "k", "v", "--reformat"}, path),
            "2 ; written by the installer\nroot = true\n[a]\nk = w\n; keep me\nno equals here\n");
  EXPECT_EQ(editAndRead({"del", path, "", "root", "--reformat"}, path), "0 \n[a]\nk=w\n\n\n");
  // A CR without LF ends no line: the tool says so, and a line after a last
  // one that ends in it begins after a line end of its own.
  const std::string cr = folder.file("cr.ini", "[a]\nk=v\rm=2\n");
  EXPECT_TRUE(has(runTool({"get", cr, "a", "k"}).err, "cr.ini: line 2 holds a CR without LF"));
  const std::string lastCR = folder.file("last-cr.ini", "h=1\r");
  EXPECT_EQ(editAndRead({"set", lastCR, "", "j", "1"}, lastCR), "0 h=1\r\nj=1\n");
  EXPECT_EQ(runTool({"get", lastCR, "", "j"}).out, "1\n");
}

}  // namespace
