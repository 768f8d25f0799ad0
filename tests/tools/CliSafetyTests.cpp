// Editing under concurrency, special files, read-only files, text that was
// not read, repeated sections and bad input.
#include <sys/file.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "CliTestSupport.h"

using namespace clitest;
using Args = std::vector<std::string>;

namespace {

class CliSafety : public CliTest {};

TEST_F(CliSafety, ParallelEditsOfOneFileAllLand) {
  const std::string path = folder.file("shared.ini", "[s]\n");
  std::vector<Started> runs;
  for (int i = 0; i < 40; ++i) runs.push_back(startTool({"set", path, "s", "key" + std::to_string(i), "v"}, false));
  for (Started& started : runs) EXPECT_EQ(finish(started).exitCode, 0);
  auto names = runTool({"get", path, "s"}).out;
  EXPECT_EQ(std::count(names.begin(), names.end(), '\n'), 40) << names;
  for (int i = 0; i < 40; ++i) EXPECT_TRUE(has(names, "key" + std::to_string(i) + "\n"));
}

// Whether process `pid` waits in read() on its standard input.
bool readingStandardInput(pid_t pid) {
  std::string call = readBytes("/proc/" + std::to_string(pid) + "/syscall");
  return call.rfind("0 0x0 ", 0) == 0;
}

// Whether another process holds the lock of `folder`, within 30 seconds.
bool lockedWithin30s(const std::string& folder) {
  const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
  bool locked = false;
  for (const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
       !(locked = ::flock(dir, LOCK_EX | LOCK_NB) != 0) && std::chrono::steady_clock::now() < deadline;) {
    ::flock(dir, LOCK_UN);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ::close(dir);
  return locked;
}

TEST_F(CliSafety, AFileChangedWhileBeingEditedIsLeftAlone) {
  // merge reads FILE under the lock, then its source, a FIFO: while it waits
  // there for a writer, the folder is locked and FILE is changed by a
  // program that does not lock. The merge then writes nothing.
  for (bool replace : {false, true}) {
    SCOPED_TRACE(replace ? "replaced" : "appended to");
    const std::string path = folder.file("edited.ini", "[a]\nk = 1\n"), fifo = folder.path("source");
    ::unlink(fifo.c_str());
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    Started merge = startTool({"merge", path, fifo});
    ASSERT_TRUE(lockedWithin30s(folder.path(""))) << "the folder is locked while the file is edited";
    if (replace) {
      folder.file("other.ini", "[a]\nk = 2\n");
      ASSERT_EQ(::rename(folder.path("other.ini").c_str(), path.c_str()), 0);
    } else {
      std::ofstream(path, std::ios::app) << "x = 1\n";
    }
    const std::string changed = readBytes(path);
    std::ofstream(fifo) << "[a]\nk = 3\n";
    auto run = finish(merge);
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_TRUE(has(run.err, "edited.ini: changed while editing"));
    EXPECT_EQ(readBytes(path), changed);
  }
  // A merge waiting for its standard input holds up no edit in the folder.
  const std::string path = folder.file("waiting.ini", "[a]\nk = 1\n");
  Started merge = startTool({"merge", path, "-"});
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!readingStandardInput(merge.pid) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ASSERT_TRUE(readingStandardInput(merge.pid));
  const int dir = ::open(folder.path("").c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(::flock(dir, LOCK_EX | LOCK_NB), 0) << "the folder is not locked while the merge waits";
  ::close(dir);
  const std::string source = "[a]\nj = 3\n";
  ASSERT_EQ(::write(merge.input, source.data(), source.size()), static_cast<ssize_t>(source.size()));
  EXPECT_EQ(finish(merge).exitCode, 0);
  EXPECT_EQ(readBytes(path), "[a]\nk = 1\nj = 3\n");
}

TEST_F(CliSafety, DevicesPipesAndStandardOutputAreWrittenThrough) {
  const std::string path = folder.file("a.ini", "[a]\nk = v\n");
  expectRuns({"set", path, "a", "k", "w", "--output"},
             {{{"/dev/null"}, "", ""},
              {{"/dev/stdout"}, "[a]\nk = w\n", ""},
              {{"/dev/full"}, "", "/dev/full: cannot write: No space left on device", 3}});
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));

  const std::string fifo = folder.path("pipe");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::string received;
  std::thread reader([&] { received = readBytes(fifo); });
  auto toFifo = runTool({"del", path, "a", "k", "--output", fifo});
  reader.join();
  EXPECT_EQ(toFifo.exitCode, 0);
  EXPECT_EQ(received, "[a]\n");
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));
  EXPECT_EQ(readBytes(path), "[a]\nk = v\n");
  // A device is no file to edit in place.
  EXPECT_EQ(runTool({"set", "/dev/null", "a", "k", "v"}).exitCode, 3);
  // What the verbs print goes to standard output, and a failed write there
  // fails the run, full or closed.
  const std::string tool = std::string("'") + CORVANE_TOOL + "' ";
  const std::string other = folder.file("b.ini", "[b]\n");
  for (const std::string& verb : {"get " + path + " a k", "fmt " + path, "dump " + path, "diff " + path + " " + other})
    for (const char* redirect : {" >/dev/full", " >&-"})
      EXPECT_EQ(shellOutput(tool + verb + redirect + " 2>/dev/null; echo $?"), "3\n") << verb << redirect;
}

TEST_F(CliSafety, ReadOnlyFilesNeedForceEvenForRoot) {
  const std::string path = folder.file("locked.ini", "[a]\nk = v\n"), out = folder.file("out.ini", "");
  ASSERT_EQ(::chmod(path.c_str(), 0444), 0);
  ASSERT_EQ(::chmod(out.c_str(), 0444), 0);
  expectRuns({}, {{{"set", path, "a", "k", "w"}, "", "read-only", 3}, {{"del", path, "a"}, "", "read-only", 3},
                  {{"merge", path}, "", "read-only", 3},
                  {{"set", path, "a", "k", "w", "--output", out}, "", "read-only", 3}},
             "[a]\nk = x\n");
  EXPECT_EQ(readBytes(path), "[a]\nk = v\n");
  EXPECT_EQ(readBytes(out), "");
  EXPECT_EQ(editAndRead({"set", "--force", path, "a", "k", "w"}, path), "0 [a]\nk = w\n");
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0444));
  // A file with write bits, but none for this user, in a folder anyone may
  // write: refused, not replaced by a file of this user's.
  if (::geteuid() != 0 || ::access("/usr/bin/setpriv", X_OK) != 0) GTEST_SKIP() << "needs root and setpriv";
  const std::string owned = folder.file("owned.ini", "[a]\nk = v\n");
  ASSERT_EQ(::chmod(folder.path("").c_str(), 0777), 0);
  ASSERT_EQ(::chmod(owned.c_str(), 0644), 0);
  EXPECT_EQ(shellOutput("setpriv --reuid=65534 --regid=65534 --clear-groups '" + std::string(CORVANE_TOOL) +
                        "' set " + owned + " a k w 2>&1; echo $?"),
            "corvane: " + owned + ": read-only (no write permission for this user); not written (--force writes it "
                                  "anyway)\n3\n");
  EXPECT_EQ(readBytes(owned), "[a]\nk = v\n");
}

TEST_F(CliSafety, PipesAreReadAndTheFileSizeLimitIsAnError) {
  const std::string tool = std::string("'") + CORVANE_TOOL + "' ";
  EXPECT_EQ(shellOutput("printf '[a]\\nk=v\\n' | " + tool + "get /dev/stdin a k; echo $?"), "v\n0\n");
  // Beyond the file size limit a write fails, and the file stays as it was.
  const std::string big = folder.file("big.ini", "[a]\nk = v\n" + std::string(4096, '#') + "\n");
  EXPECT_EQ(shellOutput("(ulimit -f 2; " + tool + "set " + big + " a k w 2>/dev/null); echo $?"), "3\n");
  EXPECT_EQ(readBytes(big), "[a]\nk = v\n" + std::string(4096, '#') + "\n");
}

TEST_F(CliSafety, EveryVerbWarnsWhereReadingStopped) {
  const std::string original = "top=1\n[a]\nk=v\n\n  stray\n[b]\nx=1\n";
  const std::string path = folder.file("stopped.ini", original);
  const std::string warning = "stopped.ini: reading stopped at line 5 (\"  stray\"";
  struct Case {
    Args args;
    int exitCode;
  } cases[] = {
      {{"get", path}, 4},           {{"get", path, "a", "k"}, 0}, {{"get", path, "b"}, 4},
      {{"get", path, "a", "x"}, 4}, {{"del", path, "b"}, 4},      {{"del", path, "a", "x"}, 4},
      {{"fmt", path}, 4},           {{"dump", path}, 0},          {{"diff", path, path}, 4},
      {{"get", path, "a"}, 4},      {{"get", path, ""}, 0},
      {{"diff", path, folder.file("other.ini", "[z]\n")}, 1},      {{"merge", path}, 4},
      {{"merge", folder.file("into.ini", "[m]\n"), path}, 4},      {{"set", path, "a", "k", "w", "--reformat"}, 4},
      {{"set", path, "", "top", "2"}, 0},
      {{"set", path, "a", "k", "w"}, 0}, {{"set", path, "a", "x", "1", "--force"}, 4},
      {{"set", path, "b"}, 4},           {{"set", path, "b", "y", "2"}, 4},
  };
  for (const Case& c : cases) {
    auto run = runTool(c.args, "[b]\nx=2\n");
    EXPECT_EQ(run.exitCode, c.exitCode) << c.args[0] << " " << c.args.back() << run.err;
    EXPECT_TRUE(has(run.err, warning));
  }
  EXPECT_EQ(readBytes(path), "top=2\n[a]\nk=w\n\n  stray\n[b]\nx=1\n");
  // Stopped before the first section: the head may go on after the stop.
  const std::string head = folder.file("head.ini", "a=1\n  stray\nb=2\n[s]\n");
  EXPECT_EQ(runTool({"get", head, "", "a"}).out, "1\n");
  for (const Args& args : {Args{"get", head, "", "b"}, Args{"set", head, "", "b", "3"}, Args{"del", head, "", "b"}})
    EXPECT_EQ(runTool(args).exitCode, 4) << args[0];
}

TEST_F(CliSafety, RepeatedSectionsUseTheFirstAndSaySo) {
  const std::string path = folder.file("twice.ini", "[a]\nk=1\n[b]\n[a]\nk=2\n[a]\nk=3\n");
  for (const Args& args : {Args{"get", path, "a", "k"}, Args{"set", path, "a", "k", "5"}, Args{"get", path}}) {
    auto run = runTool(args);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(has(run.err, "twice.ini: section [a] is repeated at lines 4, 6; the first, at line 1, is the one used"))
        << args[0];
  }
  EXPECT_EQ(readBytes(path), "[a]\nk=5\n[b]\n[a]\nk=2\n[a]\nk=3\n");
  EXPECT_EQ(runTool({"get", path, "b"}).err, "");
}

TEST_F(CliSafety, LongLinesAreReadAndKept) {
  // A 50 MB value is read and kept; so is a 50 MB line the reader does not
  // recognise: an edit elsewhere leaves it as it was.
  const std::string longValue(50 << 20, 'x');
  for (const std::string& line : {"k=" + longValue, longValue}) {
    const std::string path = folder.file("long.ini", "[a]\n" + line + "\nj=1\n");
    EXPECT_TRUE(editAndRead({"set", path, "a", "j", "2"}, path) == "0 [a]\n" + line + "\nj=2\n")
        << line.substr(0, 2);  // not the 50 MB
  }
}

}  // namespace
