// The verbs, options and exit codes of the corvane binary.
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "CliTestSupport.h"

using clitest::readBytes;
using clitest::runTool;
using clitest::TempFolder;
using Json = nlohmann::json;

namespace {

const std::string kApp =
    "# Application settings\n"
    "\n"
    "[main]\n"
    "name = Corvane demo\n"
    "paths = /usr/share\n"
    "    /opt/share\n"
    "\n"
    "[network]\n"
    "host=example.org\n"
    "port=8080\n";

class CliVerbs : public ::testing::Test {
 protected:
  TempFolder folder;
};

TEST_F(CliVerbs, GetPrintsValuesAndOptionNames) {
  const std::string app = folder.file("app.ini", kApp);
  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string out;
    std::string errHas;
  } cases[] = {
      {{"get", app, "main", "name"}, 0, "Corvane demo\n", ""},
      {{"get", app, "main", "paths"}, 0, "/usr/share\n /opt/share\n", ""},
      {{"get", app, "network"}, 0, "host\nport\n", ""},
      {{"get", app, "nowhere"}, 1, "", "no section [nowhere]"},
      {{"get", app, "main", "missing"}, 1, "", "has no option 'missing'"},
      {{"get", folder.path("absent.ini").string(), "main"}, 3, "", "absent.ini"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.back());
    auto run = runTool(c.args);
    EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
    EXPECT_EQ(run.out, c.out);
    EXPECT_NE(run.err.find(c.errHas), std::string::npos) << run.err;
  }
}

TEST_F(CliVerbs, FmtPrintsTheLibrarysText) {
  auto run = runTool({"fmt", folder.file("app.ini", kApp)});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "# Application settings\n\n[main]\nname=Corvane demo\npaths=/usr/share\n /opt/share\n[network]\n"
            "host=example.org\nport=8080\n");
}

TEST_F(CliVerbs, DumpGivesTheElementTreeAsJson) {
  // Every line kind: comment, blank line, header, option, continuation,
  // unrecognised text, a CR LF blank line, and a last line without line end.
  const std::string path = folder.file("kinds.ini",
                                       "# head\n\n[s]\nk = v\n  more\nbad line\n[t]\r\n\r\nq=\"x\\y\"\n# tail");
  auto run = runTool({"dump", path});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  Json expected = Json::parse(R"({"elements": [
    {"type": "comment", "text": "# head"},
    {"type": "comment", "text": "\n"},
    {"type": "comment", "text": "\n"},
    {"type": "section", "name": "s", "elements": [
      {"type": "comment", "text": "\n"},
      {"type": "option", "name": "k", "value": "v\n more"},
      {"type": "comment", "text": ""},
      {"type": "comment", "text": "\n"}]},
    {"type": "section", "name": "t", "elements": [
      {"type": "comment", "text": "\r\n"},
      {"type": "comment", "text": "\r\n"},
      {"type": "option", "name": "q", "value": "\"x\\y\""}]},
    {"type": "comment", "text": "# tail"}]})");
  EXPECT_EQ(Json::parse(run.out), expected) << run.out;
  EXPECT_EQ(run.err, "") << "the unrecognised-text log stays quiet without --verbose";

  auto verbose = runTool({"dump", "--verbose", path});
  EXPECT_NE(verbose.err.find("Unrecognized text sequence bad line"), std::string::npos) << verbose.err;
  EXPECT_NE(verbose.err.find("kinds.ini"), std::string::npos);
}

TEST_F(CliVerbs, SetAndDelWriteInPlaceOrElsewhere) {
  const std::string app = folder.file("app.ini", kApp);
  EXPECT_EQ(runTool({"set", app, "network", "port", "9090"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", app, "network", "port"}).out, "9090\n");
  EXPECT_EQ(runTool({"set", app, "extra", "flag", "--", "-1"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", app, "extra", "flag"}).out, "-1\n");
  EXPECT_EQ(runTool({"del", app, "main", "paths"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", app, "main"}).out, "name\n");
  EXPECT_EQ(runTool({"del", app, "extra"}).exitCode, 0);
  EXPECT_EQ(runTool({"get", app, "extra"}).exitCode, 1);
  EXPECT_EQ(runTool({"del", app, "extra"}).exitCode, 1);
  EXPECT_EQ(runTool({"del", app, "main", "paths"}).exitCode, 1);

  const std::string before = readBytes(app);
  const std::string copy = folder.path("copy.ini").string();
  EXPECT_EQ(runTool({"set", "--output", copy, app, "main", "name", "other"}).exitCode, 0);
  EXPECT_EQ(readBytes(app), before) << "--output leaves the file alone";
  EXPECT_EQ(runTool({"get", copy, "main", "name"}).out, "other\n");

  auto printed = runTool({"del", app, "network", "--output=-"});
  EXPECT_EQ(printed.exitCode, 0);
  EXPECT_EQ(printed.out.find("[network]"), std::string::npos);
  EXPECT_NE(printed.out.find("[main]"), std::string::npos);
  EXPECT_EQ(readBytes(app), before);
}

TEST_F(CliVerbs, Utf16FilesAreWrittenBackInUtf16) {
  for (bool bigEndian : {false, true}) {
    SCOPED_TRACE(bigEndian ? "big-endian" : "little-endian");
    const std::string path = folder.file("wide.ini", clitest::utf16("[größe]\nbreite = 12\n", bigEndian));
    EXPECT_EQ(runTool({"get", path, "größe", "breite"}).out, "12\n");
    ASSERT_EQ(runTool({"set", path, "größe", "höhe", "5"}).exitCode, 0);
    EXPECT_EQ(readBytes(path), clitest::utf16("[größe]\nbreite = 12\nhöhe=5\n", bigEndian));
    ASSERT_EQ(runTool({"set", path, "größe", "breite", "7", "--reformat"}).exitCode, 0);
    EXPECT_EQ(readBytes(path), clitest::utf16("[größe]\nbreite=7\nhöhe=5\n", bigEndian));
  }
}

TEST_F(CliVerbs, EncodingOptionConvertsAndUtf8ByteOrderMarkIsKept) {
  const std::string path = folder.file("bom.ini", "\xEF\xBB\xBF[a]\nk=v\n");
  ASSERT_EQ(runTool({"set", path, "a", "k", "w"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), "\xEF\xBB\xBF[a]\nk=w\n");
  ASSERT_EQ(runTool({"set", path, "a", "k", "x", "--encoding", "utf-16le"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), std::string("[\0a\0]\0\n\0k\0=\0x\0\n\0", 16));
  const std::string plain = folder.file("plain.ini", "[a]\nk=v\n");
  ASSERT_EQ(runTool({"set", plain, "a", "k", "\xC3\xA9", "--encoding", "latin1"}).exitCode, 0);
  EXPECT_EQ(readBytes(plain), "[a]\nk=\xE9\n");
  ASSERT_EQ(runTool({"set", plain, "a", "k", "w", "--encoding", "utf-16"}).exitCode, 0);
  EXPECT_EQ(readBytes(plain), clitest::utf16("[a]\nk=w\n"));
}

TEST_F(CliVerbs, RefusesToLoseSemicolonCommentsUnlessForced) {
  const std::string original = "; written by the installer\n[a]\nk=v\n; keep me\nx=1\n";
  const std::string path = folder.file("semi.ini", original);
  for (auto args : {std::vector<std::string>{"set", path, "a", "k", "w"},
                    std::vector<std::string>{"del", path, "a", "x"},
                    std::vector<std::string>{"set", path, "a", "k", "w", "--reformat"}}) {
    auto run = runTool(args);
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_NE(run.err.find("semi.ini"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("line 1: \"; written by the installer\""), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("line 4: \"; keep me\""), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("\";\" comment"), std::string::npos) << run.err;
    EXPECT_EQ(readBytes(path), original) << "nothing is written";
  }
  // Forced, the line merge still keeps the lines the library drops.
  ASSERT_EQ(runTool({"set", path, "a", "k", "w", "--force"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), "; written by the installer\n[a]\nk=w\n; keep me\nx=1\n");
  // Forced with --reformat, they are gone.
  ASSERT_EQ(runTool({"set", path, "a", "k", "v", "--force", "--reformat"}).exitCode, 0);
  EXPECT_EQ(readBytes(path), "\n[a]\nk=v\n\nx=1\n");
}

TEST_F(CliVerbs, RefusalSaysWhatWasNotUnderstood) {
  std::string text = "[a]\nk=v\n[b]\n  stray\n";
  for (int i = 0; i < 10; ++i) text += "o" + std::to_string(i) + "=1\n";
  const std::string path = folder.file("stray.ini", text);
  auto run = runTool({"set", path, "a", "k", "w"});
  EXPECT_EQ(run.exitCode, 4);
  EXPECT_NE(run.err.find("would lose 11 lines"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("line 4: \"  stray\" - an indented line that continues no option: reading stopped here, "
                         "so the 10 lines after it were not loaded"),
            std::string::npos)
      << run.err;

  const std::string many = folder.file("many.ini", "[a]\n; 1\n; 2\n; 3\n; 4\n; 5\n; 6\n; 7\nk=v\n");
  run = runTool({"del", many, "a", "k"});
  EXPECT_EQ(run.exitCode, 4);
  EXPECT_NE(run.err.find("line 6: \"; 5\""), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("line 7:"), std::string::npos) << "only the first few lines are listed";
  EXPECT_NE(run.err.find("... and 2 more"), std::string::npos) << run.err;
}

TEST_F(CliVerbs, MergeFillsATemplateOrFailsClearly) {
  const std::string file = folder.file("values.ini", "[a]\nk=1\nx=2\n[b]\ny=3\n");
  auto run = runTool({"merge", folder.file("plain.tmpl", "[a]"), file});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out, "[a]\nk=1\nx=2");

  struct Case {
    std::string templateText;
    int exitCode;
    std::string errHas;
  } failures[] = {
      {"[a]\nk=0\n", 4, "comments, blank lines or line ends"},
      {"# note\n", 4, "comments, blank lines or line ends"},
  };
  for (const Case& c : failures) {
    SCOPED_TRACE(c.templateText);
    run = runTool({"merge", folder.file("bad.tmpl", c.templateText), file});
    EXPECT_EQ(run.exitCode, c.exitCode);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("bad.tmpl"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find(c.errHas), std::string::npos) << run.err;
  }
  EXPECT_EQ(runTool({"merge", folder.path("none.tmpl").string(), file}).exitCode, 3);
}

TEST_F(CliVerbs, UsageErrorsExitWithTwo) {
  const std::string app = folder.file("app.ini", kApp);
  const std::vector<std::string> cases[] = {
      {},
      {"frobnicate", app},
      {"get", app},
      {"get", app, "a", "b", "c"},
      {"fmt"},
      {"set", app, "main", "name"},
      {"get", app, "main", "--force"},
      {"set", app, "main", "name", "x", "--output"},
      {"set", app, "main", "name", "x", "--encoding", "klingon"},
      {"del", app, "main", "--verbose=yes"},
      {"merge", app},
  };
  for (const auto& args : cases) {
    auto run = runTool(args);
    EXPECT_EQ(run.exitCode, 2) << (args.empty() ? "(none)" : args[0]) << " " << run.err;
    EXPECT_NE(run.err.find("corvane"), std::string::npos);
  }
  EXPECT_EQ(readBytes(app), kApp);
}

TEST_F(CliVerbs, SetRefusesWhatCouldNotBeReadBack) {
  const std::string path = folder.file("a.ini", "[a]\nk=v\n");
  struct Case {
    std::string section, option, value;
  } cases[] = {
      {"a", "k", "one\ntwo"}, {"a", "k=x", "1"}, {"a\nb", "k", "1"}, {"a", "", "1"},
      {"", "k", "1"},         {"a", "k\n", "1"}, {" a", "k", "1"},
  };
  for (const Case& c : cases) {
    auto run = runTool({"set", path, c.section, c.option, c.value});
    EXPECT_EQ(run.exitCode, 2) << c.section << "/" << c.option << "/" << c.value;
    EXPECT_NE(run.err.find("cannot set"), std::string::npos) << run.err;
  }
  EXPECT_EQ(readBytes(path), "[a]\nk=v\n");
  ASSERT_EQ(runTool({"set", path, "a", "k", "one\n two"}).exitCode, 0) << "a continuation line is fine";
  EXPECT_EQ(runTool({"get", path, "a", "k"}).out, "one\n two\n");
}

TEST_F(CliVerbs, EveryVerbHasHelp) {
  for (std::string verb : {"get", "set", "del", "fmt", "dump", "merge"}) {
    auto run = runTool({verb, "--help"});
    EXPECT_EQ(run.exitCode, 0) << verb;
    EXPECT_EQ(run.out.rfind("Usage: corvane " + verb, 0), 0u) << run.out;
    EXPECT_NE(run.out.find("Exit codes"), std::string::npos);
  }
  auto run = runTool({"--help"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_NE(run.out.find("merge TEMPLATE FILE"), std::string::npos);
  EXPECT_NE(runTool({"set", "-h"}).out.find("--reformat"), std::string::npos);
}

TEST_F(CliVerbs, FileFailuresExitWithThree) {
  const std::string app = folder.file("app.ini", kApp);
  // A file that is not text in any encoding: a UTF-16 mark and an odd byte count.
  const std::string broken = folder.file("broken.ini", std::string("\xFF\xFE[\0a\0]", 7));
  auto run = runTool({"get", broken, "a"});
  EXPECT_EQ(run.exitCode, 3);
  EXPECT_NE(run.err.find("broken.ini"), std::string::npos) << run.err;

  run = runTool({"set", app, "main", "name", "x", "--output", folder.path("no/such/dir/out.ini").string()});
  EXPECT_EQ(run.exitCode, 3);
  EXPECT_NE(run.err.find("out.ini"), std::string::npos) << run.err;

  run = runTool({"set", app, "main", "name", "\xE2\x82\xAC", "--encoding", "latin1"});
  EXPECT_EQ(run.exitCode, 3) << "the euro sign has no Latin-1 byte";
  EXPECT_NE(run.err.find("app.ini"), std::string::npos) << run.err;
  EXPECT_EQ(readBytes(app), kApp);

  run = runTool({"fmt", folder.path("").string()});
  EXPECT_EQ(run.exitCode, 3) << "a folder is no file";
}

}  // namespace
