// The verbs, options and exit codes of the corvane binary.
#include <nlohmann/json.hpp>

#include "CliTestSupport.h"

using namespace clitest;
using Args = std::vector<std::string>;

namespace {

const std::string kApp =
    "# Application settings\n\n[main]\nname = Corvane demo\npaths = /usr/share\n    /opt/share\n\n"
    "[network]\nhost=example.org\nport=8080\n";

class CliVerbs : public ::testing::Test {
 protected:
  TempFolder folder;
  const std::string app = folder.file("app.ini", kApp);
};

TEST_F(CliVerbs, OutputAndExitCodes) {
  const std::string values = folder.file("values.ini", "[a]\nk=1\nx=2\n[b]\ny=3\n");
  const std::string mergeRefused = "the template holds comments, blank lines or line ends";
  struct Case {
    Args args;
    int exitCode;
    std::string out, errHas;
  } cases[] = {
      {{"get", app, "main", "name"}, 0, "Corvane demo\n", ""},
      {{"get", app, "main", "paths"}, 0, "/usr/share\n /opt/share\n", ""},
      {{"get", app, "network"}, 0, "host\nport\n", ""},
      {{"get", app, "nowhere"}, 1, "", "no section [nowhere]"},
      {{"get", app, "main", "missing"}, 1, "", "has no option 'missing'"},
      {{"fmt", app}, 0,
       "# Application settings\n\n[main]\nname=Corvane demo\npaths=/usr/share\n /opt/share\n[network]\n"
       "host=example.org\nport=8080\n", ""},
      {{"merge", folder.file("plain.tmpl", "[a]"), values}, 0, "[a]\nk=1\nx=2", ""},
      {{"merge", folder.file("option.tmpl", "[a]\nk=0\n"), values}, 4, "", "option.tmpl: " + mergeRefused},
      {{"merge", folder.file("comment.tmpl", "# note\n"), values}, 4, "", mergeRefused},
      {{"merge", folder.path("none.tmpl"), values}, 3, "", "none.tmpl"},
      {{"get", folder.path("absent.ini"), "main"}, 3, "", "absent.ini"},
      // Not text in any encoding: a UTF-16 mark and an odd byte count.
      {{"get", folder.file("broken.ini", std::string("\xFF\xFE[\0a\0]", 7)), "a"}, 3, "", "broken.ini"},
      {{"set", app, "main", "name", "x", "--output", folder.path("no/such/dir/out.ini")}, 3, "", "out.ini"},
      {{"set", app, "main", "name", "\xE2\x82\xAC", "--encoding", "latin1"}, 3, "", "app.ini"},  // no Latin-1 euro
      {{"fmt", folder.path("")}, 3, "", ""},  // a folder is no file
  };
  for (const Case& c : cases) {
    auto run = runTool(c.args);
    EXPECT_EQ(run.exitCode, c.exitCode) << c.args[0] << " " << c.args[1] << " " << run.err;
    EXPECT_EQ(run.out, c.out) << c.args[1];
    EXPECT_TRUE(has(run.err, c.errHas));
  }
  EXPECT_EQ(readBytes(app), kApp);
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
  auto verbose = runTool({"dump", "--verbose", path});
  EXPECT_TRUE(has(verbose.err, "Unrecognized text sequence bad line"));
  EXPECT_TRUE(has(verbose.err, "kinds.ini"));
}

TEST_F(CliVerbs, SetAndDelWriteInPlaceOrElsewhere) {
  EXPECT_EQ(runTool({"set", app, "network", "port", "9090"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", app, "network", "port"}).out, "9090\n");
  EXPECT_EQ(runTool({"set", app, "extra", "flag", "--", "-1"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", app, "extra", "flag"}).out, "-1\n");
  EXPECT_EQ(runTool({"del", app, "main", "paths"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", app, "main"}).out, "name\n");
  EXPECT_EQ(runTool({"del", app, "extra"}).exitCode, 0);
  for (const Args& args : {Args{"get", app, "extra"}, Args{"del", app, "extra"}, Args{"del", app, "main", "paths"}})
    EXPECT_EQ(runTool(args).exitCode, 1) << args[0];

  const std::string before = readBytes(app), copy = folder.path("copy.ini");
  EXPECT_EQ(runTool({"set", "--output", copy, app, "main", "name", "other"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", copy, "main", "name"}).out, "other\n");
  auto printed = runTool({"del", app, "network", "--output=-"});
  EXPECT_EQ(printed.exitCode, 0);
  EXPECT_FALSE(has(printed.out, "[network]"));
  EXPECT_TRUE(has(printed.out, "[main]"));
  EXPECT_EQ(readBytes(app), before) << "--output leaves the file alone";
}

TEST_F(CliVerbs, EncodingsAreKeptOrConverted) {
  for (bool bigEndian : {false, true}) {
    const std::string path = folder.file("wide.ini", utf16("[größe]\nbreite = 12\n", bigEndian));
    EXPECT_EQ(runTool({"get", path, "größe", "breite"}).out, "12\n");
    ASSERT_EQ(runTool({"set", path, "größe", "höhe", "5"}).exitCode, 0);
    EXPECT_EQ(readBytes(path), utf16("[größe]\nbreite = 12\nhöhe=5\n", bigEndian));
    ASSERT_EQ(runTool({"set", path, "größe", "breite", "7", "--reformat"}).exitCode, 0);
    EXPECT_EQ(readBytes(path), utf16("[größe]\nbreite=7\nhöhe=5\n", bigEndian));
  }
  const std::string path = folder.file("bom.ini", "\xEF\xBB\xBF[a]\nk=v\n");
  ASSERT_EQ(runTool({"set", path, "a", "k", "w"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), "\xEF\xBB\xBF[a]\nk=w\n");
  struct Case {
    std::string value, encoding, bytes;
  } cases[] = {{"x", "utf-16le", std::string("[\0a\0]\0\n\0k\0=\0x\0\n\0", 16)},
               {"\xC3\xA9", "latin1", "[a]\nk=\xE9\n"},
               {"w", "utf-16", utf16("[a]\nk=w\n")}};
  for (const Case& c : cases) {
    ASSERT_EQ(runTool({"set", path, "a", "k", c.value, "--encoding", c.encoding}).exitCode, 0);
    EXPECT_EQ(readBytes(path), c.bytes) << c.encoding;
  }
}

TEST_F(CliVerbs, RefusesToLoseTextUnlessForced) {
  const std::string original = "; written by the installer\n[a]\nk=v\n; keep me\nx=1\n";
  const std::string path = folder.file("semi.ini", original);
  for (const Args& args : {Args{"set", path, "a", "k", "w"}, Args{"del", path, "a", "x"},
                           Args{"set", path, "a", "k", "w", "--reformat"}}) {
    auto run = runTool(args);
    EXPECT_EQ(run.exitCode, 4);
    for (const char* part :
         {"semi.ini", "line 1: \"; written by the installer\"", "line 4: \"; keep me\"", "\";\" comment"})
      EXPECT_TRUE(has(run.err, part));
    EXPECT_EQ(readBytes(path), original) << "nothing is written";
  }
  // Forced, the line merge still keeps the lines the library drops; with --reformat they go.
  ASSERT_EQ(runTool({"set", path, "a", "k", "w", "--force"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), "; written by the installer\n[a]\nk=w\n; keep me\nx=1\n");
  ASSERT_EQ(runTool({"set", path, "a", "k", "v", "--force", "--reformat"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), "\n[a]\nk=v\n\nx=1\n");

  std::string stray = "[a]\nk=v\n[b]\n  stray\n";
  for (int i = 0; i < 10; ++i) stray += "o" + std::to_string(i) + "=1\n";
  auto run = runTool({"set", folder.file("stray.ini", stray), "a", "k", "w"});
  EXPECT_EQ(run.exitCode, 4);
  EXPECT_TRUE(has(run.err, "would lose 11 lines"));
  EXPECT_TRUE(has(run.err, "line 4: \"  stray\" - an indented line that continues no option: reading stopped here, "
                           "so the 10 lines after it were not loaded"));
  run = runTool({"del", folder.file("many.ini", "[a]\n; 1\n; 2\n; 3\n; 4\n; 5\n; 6\n; 7\nk=v\n"), "a", "k"});
  EXPECT_EQ(run.exitCode, 4);
  EXPECT_TRUE(has(run.err, "line 6: \"; 5\""));
  EXPECT_FALSE(has(run.err, "line 7:")) << "only the first few lines are listed";
  EXPECT_TRUE(has(run.err, "... and 2 more"));
}

TEST_F(CliVerbs, UsageErrorsExitWithTwo) {
  const Args cases[] = {
      {}, {"frobnicate", app}, {"get", app}, {"get", app, "a", "b", "c"}, {"fmt"}, {"set", app, "main", "name"},
      {"get", app, "main", "--force"}, {"set", app, "main", "name", "x", "--output"},
      {"set", app, "main", "name", "x", "--encoding", "klingon"}, {"del", app, "main", "--verbose=yes"}, {"merge", app},
  };
  for (const auto& args : cases) {
    auto run = runTool(args);
    EXPECT_EQ(run.exitCode, 2) << (args.empty() ? "(none)" : args[0]) << " " << run.err;
    EXPECT_TRUE(has(run.err, "corvane"));
  }
  // Names and values the library could not read back.
  const std::string path = folder.file("a.ini", "[a]\nk=v\n");
  const Args unreadable[] = {{"a", "k", "one\ntwo"}, {"a", "k=x", "1"}, {"a\nb", "k", "1"}, {"a", "", "1"},
                             {"", "k", "1"},         {"a", "k\n", "1"}, {" a", "k", "1"}};
  for (const Args& c : unreadable) {
    auto run = runTool({"set", path, c[0], c[1], c[2]});
    EXPECT_EQ(run.exitCode, 2) << c[0] << "/" << c[1] << "/" << c[2];
    EXPECT_TRUE(has(run.err, "cannot set"));
  }
  EXPECT_EQ(readBytes(app), kApp);
  EXPECT_EQ(readBytes(path), "[a]\nk=v\n");
  ASSERT_EQ(runTool({"set", path, "a", "k", "one\n two"}).exitCode, 0) << "a continuation line is fine";
  EXPECT_EQ(runTool({"get", path, "a", "k"}).out, "one\n two\n");
}

TEST_F(CliVerbs, EveryVerbHasHelp) {
  for (std::string verb : {"get", "set", "del", "fmt", "dump", "merge"}) {
    auto run = runTool({verb, "--help"});
    EXPECT_EQ(run.exitCode, 0) << verb;
    EXPECT_EQ(run.out.rfind("Usage: corvane " + verb, 0), 0u) << run.out;
    EXPECT_TRUE(has(run.out, "Exit codes"));
  }
  auto run = runTool({"--help"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(has(run.out, "merge TEMPLATE FILE"));
  EXPECT_TRUE(has(runTool({"set", "-h"}).out, "--reformat"));
}

}  // namespace
