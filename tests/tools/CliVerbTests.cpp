// The verbs, options, formats and exit codes of the corvane binary.
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "CliTestSupport.h"

using namespace clitest;
using Args = std::vector<std::string>;

namespace {

// A head option, a repeated option, a value on two lines, a section name
// and an option name that are no shell names, a value with a quote.
const std::string kApp =
    "# Application settings\nmode = fast\n\n[main]\nname = Corvane demo\npaths = /usr/share\n    /opt/share\n"
    "name = second\n\n[net-work]\nhost=example.org\nit's=o'k\n";

class CliVerbs : public CliTest {
 protected:
  const std::string app = folder.file("app.ini", kApp);
};

TEST_F(CliVerbs, GetPrintsNamesAndValuesInEveryFormat) {
  expectRuns({"get"}, {
      {{app}, "main\nnet-work\n", ""},
      {{app, "main"}, "name\npaths\n", ""},
      {{app, "main", "name"}, "Corvane demo\n", ""},
      {{app, "main", "paths"}, "/usr/share\n /opt/share\n", ""},
      {{app, ""}, "mode\n", ""},
      {{app, "", "mode"}, "fast\n", ""},
      {{"--format=sh", app, "main"}, "name='Corvane demo'\npaths='/usr/share\n /opt/share'\n", ""},
      {{"--format=sh", app},
       "mode='fast'\nmain_name='Corvane demo'\nmain_paths='/usr/share\n /opt/share'\n",
       "'net-work_host' is not a shell variable name"},
      {{"--format", "sh", app, "net-work", "it's"}, "", "'it's' is not a shell variable name"},
      // A prefix keeps a file's names off the shell's own (PATH, IFS).
      {{"--format=sh", "--prefix", "cfg_", app},
       "cfg_mode='fast'\ncfg_main_name='Corvane demo'\ncfg_main_paths='/usr/share\n /opt/share'\n",
       "'cfg_net-work_host' is not a shell variable name"},
      {{"--format=sh", "--prefix=c", app, "main", "name"}, "cname='Corvane demo'\n", ""},
      {{"--format=sh", "--prefix=c_", folder.file("digit.ini", "[s]\n1st=a\n"), "s"}, "c_1st='a'\n", ""},
      // Two options that make one whole-file name are reported.
      {{"--format=sh", folder.file("alike.ini", "[a]\nb_c=1\n[a_b]\nc=2\n")},
       "a_b_c='1'\na_b_c='2'\n",
       "'a_b_c' stands for both [a] b_c and [a_b] c; the shell keeps the latter"},
      {{"--format=lines", app, "main"}, "[main] name = Corvane demo\n[main] paths = /usr/share\\n /opt/share\n", ""},
      {{"--format=lines", app, "net-work", "it's"}, "[net-work] it's = o'k\n", ""},
      // A backslash shows as \\, so that it cannot pass for a line break.
      {{"--format=lines", folder.file("slash.ini", "[s]\nk = a\\n b\n"), "s"}, "[s] k = a\\\\n b\n", ""},
      {{"--format=json", app, "main", "paths"}, "\"/usr/share\\n /opt/share\"\n", ""},
      {{"--format=ini", app}, kApp, ""},
      {{"--format=ini", app, ""}, "# Application settings\nmode = fast\n", ""},
      {{"--format=ini", app, "main"}, "[main]\nname = Corvane demo\npaths = /usr/share\n    /opt/share\nname = second\n",
       ""},
      {{"--format=ini", app, "main", "paths"}, "paths = /usr/share\n    /opt/share\n", ""},
  });
  EXPECT_EQ(nlohmann::json::parse(runTool({"get", app, "--format=json"}).out), nlohmann::json::parse(R"({
    "": {"mode": "fast"}, "main": {"name": "Corvane demo", "paths": "/usr/share\n /opt/share"},
    "net-work": {"host": "example.org", "it's": "o'k"}})"));
  auto lines = runTool({"get", app, "--format=lines"}).out;
  EXPECT_EQ(lines.substr(0, 17), "[] mode = fast\n[m");
  // What sh prints, the shell reads back.
  const std::string quoted = folder.file("quoted.ini", "[s]\nq = it's \"$HOME\" `x` \\n\n");
  const std::string script = folder.file("eval.sh", "eval \"$(\"$1\" get --format=sh \"$2\" s)\"; printf %s \"$q\"");
  EXPECT_EQ(shellOutput("/bin/sh " + script + " " + CORVANE_TOOL + " " + quoted), "it's \"$HOME\" `x` \\n");
}

TEST_F(CliVerbs, MissingAndBrokenInputsExitWithTheirCodes) {
  const std::string linkToNothing = folder.path("dangling.ini"), loop = folder.path("loop.ini");
  ASSERT_EQ(::symlink(folder.path("nothing.ini").c_str(), linkToNothing.c_str()), 0);
  ASSERT_EQ(::symlink(loop.c_str(), loop.c_str()), 0);
  expectRuns({}, {
      {{"get", app, "nowhere"}, "", "app.ini: no section [nowhere]", 1},
      {{"get", app, "main", "missing"}, "", "app.ini: section [main] has no option 'missing'", 1},
      {{"get", app, "", "missing"}, "", "has no option 'missing'", 1},
      {{"get", folder.file("empty.ini", ""), "main"}, "", "no section [main]", 1},
      {{"get", folder.file("mac.ini", "top=1\r[a]\rk=v\r"), "a"}, "", "CR alone", 1},
      {{"get", folder.path("absent.ini"), "main"}, "", "absent.ini: no such file", 3},
      {{"get", folder.path(""), "main"}, "", "cannot read", 3},  // a folder
      {{"get", linkToNothing}, "", "which does not exist", 3},
      {{"set", linkToNothing, "a", "k", "v"}, "", "which does not exist", 3},
      {{"get", loop}, "", "loop", 3},
      // Not text: a UTF-16 mark and an odd byte count; NUL bytes.
      {{"get", folder.file("broken.ini", std::string("\xFF\xFE[\0a\0]", 7)), "a"}, "", "broken.ini: not text", 3},
      {{"get", folder.file("binary.ini", std::string("[a]\nk=\0\x01\x02\n", 10)), "a"}, "", "binary data", 3},
      {{"set", app, "main", "name", "x", "--output", folder.path("no/such/dir/out.ini")}, "", "out.ini", 3},
      {{"set", app, "main", "name", "\xE2\x82\xAC", "--encoding", "latin1"}, "",
       "app.ini: cannot write the text in", 3},
      {{"set", folder.path("no/such/dir/new.ini"), "a", "k", "v"}, "", "new.ini: cannot open its folder", 3},
      // Names the library's file functions cannot take.
      {{"get", folder.file("\xFF.ini", kApp), "main"}, "", ".ini: the file name is not valid UTF-8", 3},
      {{"set", app, "main", "name", "x", "--output", folder.path("\xFE.ini")}, "", "not valid UTF-8", 3},
  });
  EXPECT_EQ(readBytes(app), kApp);
  EXPECT_FALSE(std::filesystem::exists(folder.path("nothing.ini")));
}

TEST_F(CliVerbs, SetAddsWhatIsMissingUnlessExistingIsGiven) {
  const std::string fresh = folder.path("fresh.ini");
  const mode_t mask = ::umask(027);
  const std::string created = editAndRead({"set", fresh, "a", "k", "v"}, fresh);
  ::umask(mask);
  EXPECT_EQ(created, "0 [a]\nk=v\n");
  EXPECT_EQ(std::filesystem::status(fresh).permissions(), std::filesystem::perms(0640));
  // A section alone; then an option in it; a value starting with "-".
  ASSERT_EQ(runTool({"set", fresh, "b"}).exitCode, 0);
  ASSERT_EQ(runTool({"set", fresh, "b", "n", "-1"}).exitCode, 0);
  EXPECT_EQ(editAndRead({"set", fresh, "b", "m", "--", "--verbose"}, fresh),
            "0 [a]\nk=v\n[b]\nn=-1\nm=--verbose\n");

  // --existing: a missing file, section or option fails, writing nothing.
  const std::string refused = "(--existing); nothing was written";
  expectRuns({"set"}, {{{"--existing", folder.path("none.ini"), "a", "k", "v"}, "", refused, 1},
                       {{"--existing", fresh, "c", "k", "v"}, "", refused, 1},
                       {{"--existing", fresh, "c"}, "", refused, 1},
                       {{fresh, "--existing", "a", "x", "v"}, "", refused, 1},
                       {{"--existing", fresh, "", "x", "v"}, "", refused, 1}});
  EXPECT_FALSE(std::filesystem::exists(folder.path("none.ini")));
  EXPECT_EQ(readBytes(fresh), "[a]\nk=v\n[b]\nn=-1\nm=--verbose\n");
  EXPECT_EQ(runTool({"set", "--existing", fresh, "a", "k", "w"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", fresh, "a", "k"}).out, "w\n");
}

TEST_F(CliVerbs, DelOfAMissingItemIsDoneUnlessExistingIsGiven) {
  const auto before = std::filesystem::last_write_time(app);
  expectRuns({"del"}, {{{app, "nowhere"}, "", ""}, {{app, "main", "missing"}, "", ""}, {{app, "", "x"}, "", ""},
                       {{"--existing", app, "nowhere"}, "", "", 1}, {{"--existing", app, "main", "missing"}, "", "", 1},
                       {{"--existing", app, "", "x"}, "", "", 1}});
  EXPECT_EQ(std::filesystem::last_write_time(app), before);
  EXPECT_EQ(runTool({"del", folder.path("absent.ini"), "a"}).exitCode, 3);
  // Removing every head option, a section, an option.
  ASSERT_EQ(runTool({"del", app, ""}).exitCode, 0);
  ASSERT_EQ(runTool({"del", app, "main", "paths"}).exitCode, 0);
  EXPECT_EQ(editAndRead({"del", app, "net-work"}, app),
            "0 # Application settings\n\n[main]\nname = Corvane demo\nname = second\n\n");
}

TEST_F(CliVerbs, MergeSetsEverySectionAndOptionOfTheSource) {
  const std::string source = folder.file("source.ini", "top = 1\n[main]\nname = merged\nextra = yes\n[new]\n[more]\nk=v\n");
  EXPECT_EQ(editAndRead({"merge", app, source}, app),
            "0 # Application settings\nmode = fast\ntop = 1\n\n[main]\nname = merged\npaths = /usr/share\n"
            "    /opt/share\nname = second\nextra = yes\n\n[net-work]\nhost=example.org\nit's=o'k\n\n[new]\n\n"
            "[more]\nk = v\n");
  // From standard input, with or without "-"; a second merge changes nothing.
  const std::string target = folder.file("target.ini", "[a]\nx = 1\n");
  for (const Args& args : {Args{"merge", target, "-"}, Args{"merge", target}})
    EXPECT_EQ(editAndRead(args, target, "[a]\nx = 2\ny = 3\n"), "0 [a]\nx = 2\ny = 3\n") << args.back();
  EXPECT_EQ(editAndRead({"merge", "--existing", target}, target, "[a]\nz = 1\n"), "1 [a]\nx = 2\ny = 3\n");
  EXPECT_EQ(runTool({"merge", target, folder.path("absent.ini")}).exitCode, 3);
}

TEST_F(CliVerbs, TemplatePutsValuesIntoTheLibrarysTemplates) {
  const std::string values = folder.file("values.ini", "[a]\nk=1\nx=2\n[b]\ny=3\n");
  const std::string refused = "the template holds comments, blank lines or line ends";
  expectRuns({"template"}, {
      {{folder.file("a.tmpl", "[a]"), values}, "[a]\nk=1\nx=2", ""},
      {{folder.file("option.tmpl", "[a]\nk=0\n"), values}, "", refused, 4},
      {{folder.file("comment.tmpl", "# note\n"), values}, "", refused, 4},
      {{folder.file("head.tmpl", "k=v"), values}, "", "an option before its first section header", 4},
      {{folder.file("head2.tmpl", "k=v\n[a]\n"), values}, "", "an option before its first section header", 4},
      // What follows a stop in either text was not read.
      {{folder.file("stop.tmpl", " [a]"), values}, "", "the template after it was not read", 4},
      {{folder.file("b.tmpl", "[b]"), folder.file("stop.ini", "[a]\n  x\n[b]\nk=1")}, "",
       "its values after that line were not read", 4},
  });
  EXPECT_TRUE(has(runTool({"help", "template"}).out, "'[main]' alone"));
}

TEST_F(CliVerbs, DiffListsWhatWasAddedRemovedAndChanged) {
  const std::string older = folder.file("old.ini", "root = 1\n[a]\nk = 1\nx = 2\n[gone]\nq = 1\n");
  const std::string newer = folder.file("new.ini", "[a]\r\nk = 5\r\ny = 3\r\n[b]\r\nz = line\r\n  two\r\n");
  // The same reading in another form is no difference.
  const std::string same = folder.file("same.ini", "\xEF\xBB\xBF[a]\nk=1\nx=2\nk=9\n[gone]\nq=1\n# note\n[a]\nk=7\n");
  expectRuns({"diff"},
             {{{older, newer},
               "- [] root = 1\n~ [a] k = 1 -> 5\n- [a] x = 2\n+ [a] y = 3\n- [gone]\n+ [b]\n+ [b] z = line\\n two\n",
               "", 1},
              {{folder.file("o2.ini", "[a]\nk = 1\nx = 2\n[gone]\nq = 1\n"), same}, "", ""},
              {{older, folder.path("absent.ini")}, "", "", 3},
              {{older}, "", "", 2}});
  auto json = runTool({"diff", "--format=json", older, newer});
  EXPECT_EQ(json.exitCode, 1);
  const auto changes = nlohmann::json::parse(json.out);
  ASSERT_EQ(changes.size(), 7u);
  EXPECT_EQ(changes[1], nlohmann::json::parse(R"({"change": "changed", "section": "a", "option": "k",
                                                  "old": "1", "new": "5"})"));
  EXPECT_EQ(changes[4], nlohmann::json::parse(R"({"change": "removed", "section": "gone"})"));
}

TEST_F(CliVerbs, DumpGivesTheElementTreeAsJson) {
  // Comment, blank line, header, option, continuation, unrecognised text,
  // CR LF blank lines, a last line without line end.
  const std::string path =
      folder.file("kinds.ini", "# head\n\n[s]\nk = v\n  more\nbad line\n[t]\r\n\r\nq=\"x\\y\"\n# tail");
  auto run = runTool({"dump", path});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(nlohmann::json::parse(run.out), nlohmann::json::parse(R"({"elements": [
    {"type": "comment", "text": "# head"}, {"type": "comment", "text": "\n"}, {"type": "comment", "text": "\n"},
    {"type": "section", "name": "s", "elements": [
      {"type": "comment", "text": "\n"}, {"type": "option", "name": "k", "value": "v\n more"},
      {"type": "comment", "text": ""}, {"type": "comment", "text": "\n"}]},
    {"type": "section", "name": "t", "elements": [
      {"type": "comment", "text": "\r\n"}, {"type": "comment", "text": "\r\n"},
      {"type": "option", "name": "q", "value": "\"x\\y\""}]},
    {"type": "comment", "text": "# tail"}]})"));
  EXPECT_EQ(run.err, "") << "the unrecognised-text log stays quiet without --verbose";
  auto verbose = runTool({"--verbose", "dump", path});
  EXPECT_TRUE(has(verbose.err, "corvane: " + path + ": Unrecognized text sequence bad line"));
  EXPECT_EQ(runTool({"fmt", path}).out, "# head\n\n[s]\nk=v\n more\n\n[t]\r\n\r\nq=\"x\\y\"\n# tail");
}

TEST_F(CliVerbs, HelpVersionAndOptionsOnEitherSideOfTheVerb) {
  auto version = runTool({"--version"});
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out.substr(0, version.out.find('\n')), "corvane " CORVANE_PROJECT_VERSION);
  EXPECT_EQ(runTool({"get", "--version"}).out, version.out);

  auto help = runTool({"help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_EQ(runTool({"--help"}).out, help.out);
  for (std::string verb : {"get", "set", "del", "merge", "template", "diff", "fmt", "dump", "help"}) {
    auto run = runTool({"help", verb});
    EXPECT_EQ(run.exitCode, 0) << verb;
    EXPECT_EQ(run.out.rfind("Usage: corvane " + verb, 0), 0u) << run.out;
    EXPECT_TRUE(has(run.out, "Exit codes"));
    EXPECT_EQ(runTool({verb, "--help"}).out, run.out);
    EXPECT_TRUE(has(help.out, "\n  " + verb + " ")) << verb << ": one line per verb";
  }
  EXPECT_TRUE(has(help.out, "Examples:"));
  EXPECT_TRUE(has(runTool({"set", "-h"}).out, "--reformat"));

  // Global options before the verb, after it, or between operands.
  for (const Args& args : {Args{"--format=json", "get", app, "main", "name"},
                           Args{"get", "--format", "json", app, "main", "name"},
                           Args{"get", app, "main", "--format=json", "name"}})
    EXPECT_EQ(runTool(args).out, "\"Corvane demo\"\n");
  EXPECT_TRUE(has(runTool({"--verbose", "set", app, "main", "name", "Corvane demo"}).err, "app.ini: unchanged"));
}

TEST_F(CliVerbs, BashCompletesVerbsSectionsAndOptions) {
  const std::string tools = std::filesystem::path(CORVANE_TOOL).parent_path().string();
  const std::string script = folder.file(
      "complete.sh", "PATH=\"$1:$PATH\"; . \"$2\"; shift 2\n"
                     "COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _corvane; printf '%s|' \"${COMPREPLY[@]}\"");
  auto complete = [&](const std::string& words) {
    return shellOutput("bash " + script + " " + tools + " " + CORVANE_COMPLETION + " " + words);
  };
  EXPECT_EQ(complete("corvane d"), "del|diff|dump|");
  EXPECT_EQ(complete("corvane --verbose set " + app + " ''"), "main|net-work|");
  EXPECT_EQ(complete("corvane get " + app + " main p"), "paths|");
  EXPECT_EQ(complete("corvane get --format l"), "lines|");
}

TEST_F(CliVerbs, UsageErrorsExitWithTwo) {
  const Args cases[] = {
      // No verb or an unknown one; operands missing or too many.
      {}, {"frobnicate", app}, {"help", "frobnicate"}, {"get"}, {"get", app, "a", "b", "c"}, {"fmt"},
      {"set", app, "main", "name"}, {"set", app}, {"template", app},
      // Options the verb does not take; option values missing or unknown.
      {"get", app, "main", "--force"}, {"get", app, "--format=yaml"}, {"diff", app, app, "--format=sh"},
      {"set", app, "main", "name", "x", "--output"}, {"set", app, "main", "name", "x", "--encoding", "klingon"},
      {"del", app, "main", "--verbose=yes"}, {"--reformat", "set", app, "", "mode", "slow"},
      // A prefix goes with sh, and must begin a shell name.
      {"get", app, "--prefix=x_"}, {"get", "--format=sh", "--prefix=9x", app}, {"get", "--format=sh", "--prefix=", app},
      {"set", app, "main", "name", "x", "--prefix=x"},
      // The library's own text would leave out the options before the first section.
      {"--reformat", "set", folder.file("head.ini", "r=1\n[a]\nk=v\n"), "a", "k", "2"},
  };
  // Names and values the library could not read back.
  const std::string path = folder.file("a.ini", "[a]\nk=v\n");
  const Args unreadable[] = {{"a", "k", "one\n\ntwo"}, {"a", "k=x", "1"}, {"a\nb", "k", "1"}, {"a", "", "1"},
                             {"a", "k\nx", "1"},       {" a", "k", "1"},  {"a", "#k", "1"},  {"", "k", "1\n2"},
                             {"", "k=x", "1"},         {"", "#k", "1"},   {"", "[s]", "1"}, {"", "k\rx", "1"}};
  std::vector<Expected> rows;
  for (const Args& args : cases) rows.push_back({args, "", "corvane: ", 2});
  for (const Args& c : unreadable)
    rows.push_back({{"set", path, c[0], c[1], c[2]}, "", "corvane: " + path + ": cannot", 2});
  expectRuns({}, rows);
  EXPECT_EQ(readBytes(app), kApp);
  EXPECT_EQ(readBytes(path), "[a]\nk=v\n");
}

}  // namespace
