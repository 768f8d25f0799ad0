// Writing files: the flushes an atomic save makes (and a failed one), the umask it leaves alone,
// what a killed save leaves behind, the stale files a later save removes, and
// writing through into FIFOs and devices.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "FileFaultSupport.h"
#include "YFile.h"

// This program's own fsync, renameat and umask stand in for the C library's,
// for the library as well (it calls them through the dynamic linker): they
// record the order of flushes and renames, can make flushing a folder fail,
// and count changes of the umask.
namespace {
std::mutex gEventsMutex;
std::vector<std::string> gEvents;
std::atomic<bool> gRecording{false}, gFailFolderFlush{false};
std::atomic<int> gUmaskCalls{0};

void record(const char* event) {
  if (!gRecording) return;
  std::lock_guard<std::mutex> lock(gEventsMutex);
  gEvents.push_back(event);
}
}  // namespace

extern "C" int fsync(int fd) {
  struct stat status{};
  const bool folder = ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
  record(folder ? "flush folder" : "flush file");
  if (folder && gFailFolderFlush) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_fsync, fd));
}

extern "C" int renameat(int fromFolder, const char* from, int toFolder, const char* to) {
  record("rename");
  return static_cast<int>(::syscall(SYS_renameat2, fromFolder, from, toFolder, to, 0));
}

// Refused, copy_file_range fails as it does between some file systems.
std::atomic<bool> gRefuseKernelCopies{false};
extern "C" ssize_t copy_file_range(int from, off64_t* fromOffset, int to, off64_t* toOffset, size_t length,
                                   unsigned flags) {
  if (gRefuseKernelCopies) {
    errno = EXDEV;
    return -1;
  }
  return static_cast<ssize_t>(::syscall(SYS_copy_file_range, from, fromOffset, to, toOffset, length, flags));
}

extern "C" mode_t umask(mode_t mask) {
  ++gUmaskCalls;
  return static_cast<mode_t>(::syscall(SYS_umask, mask));
}

namespace {

using namespace filefault;

struct Recording {
  Recording() {
    gEvents.clear();
    gRecording = true;
  }
  ~Recording() { gRecording = gFailFolderFlush = false; }
  std::string events() const {
    std::string out;
    for (const auto& event : gEvents) out += event + "; ";
    return out;
  }
};

std::string describe(const std::shared_ptr<YError>& error) {
  return error ? error->localizedDescription().UTF8String() : "(no error)";
}
using Lines = std::vector<std::string>;
/// The error's code, errno and description on one line.
std::string summary(const std::shared_ptr<YError>& error) {
  if (!error) return "(no error)";
  return std::to_string(error->code()) + " " + std::to_string(error->underlyingErrno()) + " " + describe(error);
}

mode_t umaskFromProc() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("Umask:", 0) == 0) return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
  return static_cast<mode_t>(-1);
}

TEST(YFileWriteTest, AtomicSaveFlushesTheFileBeforeTheRenameAndTheFolderAfter) {
  for (bool unnamed : {true, false}) {
    for (bool exists : {true, false}) {
      SCOPED_TRACE(std::string(unnamed ? "unnamed" : "named") + (exists ? ", existing target" : ", new target"));
      TempDir dir;
      if (exists) writeBytes(dir / "t.ini", "old", 0644);
      auto report = inChild([&]() -> std::vector<std::string> {
        if (!unnamed)
          if (std::string why = refuseUnnamedFiles(); !why.empty()) return {why};
        Recording recording;
        std::shared_ptr<YError> error;
        const bool saved = YWriteFile(YString(dir / "t.ini"), "new", true, &error);
        return {saved ? "saved" : describe(error), recording.events()};
      });
      EXPECT_EQ(report, (Lines{"saved", "flush file; rename; flush folder; "}));
      EXPECT_EQ(readBytes(dir / "t.ini"), "new");
      EXPECT_EQ(listing(dir.path), "t.ini ");
    }
  }
  // Writing in place makes no flush at all (documented).
  TempDir dir;
  Recording recording;
  ASSERT_TRUE(YWriteFile(YString(dir / "t.ini"), "old", false, nullptr));
  EXPECT_EQ(recording.events(), "");
  // A failed flush of the folder is reported.
  gFailFolderFlush = true;
  std::shared_ptr<YError> error;
  EXPECT_FALSE(YWriteFile(YString(dir / "t.ini"), "new", true, &error));
  EXPECT_EQ(summary(error), std::to_string(YFileWriteNotFlushedError) + " " + std::to_string(EIO) + " File '" +
                                dir / "t.ini" + "' was replaced, but its folder could not be flushed to disk: " +
                                "Input/output error");
  EXPECT_EQ(readBytes(dir / "t.ini"), "new");  // the rename happened; only its durability is in doubt
  EXPECT_EQ(listing(dir.path), "t.ini ");
}

TEST(YFileWriteTest, ParallelSavesUnderAStrictUmaskCreateNoFileOpenToOthers) {
  // Saves on several threads, each making new files (checked and removed at
  // once, so that the folder stays small and the saves quick) and replacing
  // one file of its own, while another thread watches the process's umask.
  // In memory where there is a tmpfs, so that many saves overlap.
  constexpr int kThreads = 4, kSaves = 2000;
  std::error_code ec;
  TempDir dir(fs::is_directory("/dev/shm", ec) && ::access("/dev/shm", W_OK) == 0 ? fs::path("/dev/shm")
                                                                                   : fs::temp_directory_path());
  for (int t = 0; t < kThreads; ++t) writeBytes(dir / ("kept-" + std::to_string(t)), "old", 0640);
  const mode_t previous = ::umask(077);
  gUmaskCalls = 0;
  std::atomic<bool> done{false};
  std::atomic<int> umaskChanges{0}, failures{0}, newFiles{0}, tooOpen{0};
  std::mutex examplesMutex;
  std::string examples;
  std::thread watcher([&] {
    while (!done)
      if (umaskFromProc() != 077) ++umaskChanges;
  });
  std::vector<std::thread> savers;
  for (int t = 0; t < kThreads; ++t) {
    savers.emplace_back([&, t] {
      for (int i = 0; i < kSaves; ++i) {
        const bool kept = i % 4 == 3;
        const std::string name = dir / (kept ? "kept-" + std::to_string(t) : std::to_string(t) + "-" + std::to_string(i));
        if (!YWriteFile(YString(name), "secret", true, nullptr)) ++failures;
        struct stat status{};
        ::stat(name.c_str(), &status);
        if ((status.st_mode & 07777) != (kept ? 0640u : 0600u) && ++tooOpen <= 3) {
          std::lock_guard<std::mutex> lock(examplesMutex);
          examples += name + " " + std::to_string(status.st_mode & 07777) + "; ";
        }
        if (!kept) newFiles += ::unlink(name.c_str()) == 0;
      }
    });
  }
  for (auto& saver : savers) saver.join();
  done = true;
  watcher.join();
  EXPECT_EQ(gUmaskCalls, 0) << "reading the umask through umask() changes it for every thread";
  EXPECT_EQ(::umask(previous), 077);
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(umaskChanges, 0);
  EXPECT_EQ(newFiles, kThreads * (kSaves - kSaves / 4));
  EXPECT_EQ(tooOpen, 0) << "such as " << examples;
  EXPECT_EQ(listing(dir.path), "kept-0 kept-1 kept-2 kept-3 ");
}

TEST(YFileWriteTest, KilledSaveLeavesTheTargetAndAtMostAStaleFileTheNextSaveRemoves) {
  // Killed while writing: by SIGKILL, or by SIGXFSZ at its default action
  // when a write crosses the file size limit. Unnamed new files vanish with
  // the process; a named one stays until a later save finds it stale.
  struct Case {
    const char* name;
    int signal;
  } cases[] = {{"SIGKILL", SIGKILL}, {"file size limit, SIGXFSZ at its default", SIGXFSZ}};
  const std::string piece(64 * 1024, 'x');
  for (const Case& c : cases) {
    for (bool unnamed : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + (unnamed ? ", unnamed" : ", named"));
      TempDir dir;
      const std::string target = dir / "t.ini";
      writeBytes(target, "old", 0644);
      auto report = inChild([&]() -> std::vector<std::string> {
        if (!unnamed)
          if (std::string why = refuseUnnamedFiles(); !why.empty()) return {why};
        const rlimit noCore{0, 0}, small{256 * 1024, 256 * 1024};
        ::setrlimit(RLIMIT_CORE, &noCore);
        if (c.signal == SIGXFSZ) {
          std::signal(SIGXFSZ, SIG_DFL);
          ::setrlimit(RLIMIT_FSIZE, &small);
        }
        int pieces = 0;
        const bool saved = YWriteFileChunks(
            YString(target),
            [&]() -> std::string_view {
              if (++pieces == 3 && c.signal == SIGKILL) ::raise(SIGKILL);
              return pieces <= 16 ? std::string_view(piece) : std::string_view();
            },
            true, nullptr);
        return {saved ? "saved" : "failed"};
      });
      ASSERT_FALSE(report.empty());
      EXPECT_EQ(report.back(), "signal " + std::to_string(c.signal));
      EXPECT_EQ(readBytes(target), "old");
      const std::string left = listing(dir.path);
      if (unnamed) {
        EXPECT_EQ(left, "t.ini ");
        continue;
      }
      ASSERT_EQ(left.size(), std::string(".t.ini.corvane-XXXXXX t.ini ").size()) << left;
      ASSERT_EQ(left.rfind(".t.ini.corvane-", 0), 0u) << left;
      const std::string stale = dir / left.substr(0, left.find(' '));
      // Fresh, it may belong to a save still running: kept.
      ASSERT_TRUE(YWriteFile(YString(target), "new", true, nullptr));
      EXPECT_EQ(listing(dir.path), left);
      const timespec twoHoursAgo[2] = {{std::time(nullptr) - 7200, 0}, {std::time(nullptr) - 7200, 0}};
      ASSERT_EQ(::utimensat(AT_FDCWD, stale.c_str(), twoHoursAgo, 0), 0);
      ASSERT_TRUE(YWriteFile(YString(target), "newer", true, nullptr));
      EXPECT_EQ(listing(dir.path), "t.ini ");
      EXPECT_EQ(readBytes(target), "newer");
    }
  }
}

TEST(YFileWriteTest, OnlyStaleFilesOfOurPatternForTheTargetAreRemoved) {
  enum Kind { kFile, kLink, kFolder, kTwoLinks, kOtherOwner };
  struct Case {
    const char* name;
    Kind kind;
    bool old, removed;
  } cases[] = {
      {".t.ini.corvane-Ab3dE9", kFile, true, true},
      {".t.ini.corvane-Zz0000", kFile, false, false},   // recent
      {".t.ini.corvane-Ab3dE", kFile, true, false},     // five letters
      {".t.ini.corvane-Ab3dE9x", kFile, true, false},   // seven
      {".t.ini.corvane-Ab-dE9", kFile, true, false},    // not a letter or digit
      {".u.ini.corvane-Ab3dE9", kFile, true, false},    // another target's
      {".t.ini.Ab3dE9", kFile, true, false},            // the pattern of other programs
      {"t.ini.corvane-Ab3dE9", kFile, true, false},     // not hidden
      {".t.ini.corvane-Lnk000", kLink, true, false},
      {".t.ini.corvane-Dir000", kFolder, true, false},
      {".t.ini.corvane-Two000", kTwoLinks, true, false},
      {".t.ini.corvane-Oth000", kOtherOwner, true, false},
  };
  TempDir dir;
  writeBytes(dir / "t.ini", "old", 0644);
  const timespec old[2] = {{std::time(nullptr) - 7200, 0}, {std::time(nullptr) - 7200, 0}};
  std::set<std::string> expected = {"t.ini", "other-link"};
  for (const Case& c : cases) {
    const std::string path = dir / c.name;
    if (c.kind == kOtherOwner && ::geteuid() != 0) continue;
    int bad = 0;  // -1 once a call that sets the entry up failed
    if (c.kind == kLink) bad |= ::symlink("t.ini", path.c_str());
    else if (c.kind == kFolder) bad |= ::mkdir(path.c_str(), 0700);
    else writeBytes(path, "litter", 0600);
    if (c.kind == kTwoLinks) bad |= ::link(path.c_str(), (dir / "other-link").c_str());
    if (c.kind == kOtherOwner) bad |= ::chown(path.c_str(), 65534, 65534);
    if (c.old) bad |= ::utimensat(AT_FDCWD, path.c_str(), old, AT_SYMLINK_NOFOLLOW);
    ASSERT_EQ(bad, 0) << c.name;
    if (!c.removed) expected.insert(c.name);
  }
  ASSERT_TRUE(YWriteFile(YString(dir / "t.ini"), "new", true, nullptr));
  std::string listed;
  for (const std::string& name : expected) listed += name + " ";
  EXPECT_EQ(listing(dir.path), listed);
}

// Staged, a save in place touches the target only once the last piece is
// known, copied in by the kernel or, where it refuses, read and written; without
// unnamed files the pieces wait in memory. Either way the target keeps its
// identity, and an exception from the pieces leaves it and its folder alone.
TEST(YFileWriteTest, StagedSaveInPlaceTouchesTheTargetOnlyOnceComplete) {
  struct Case {
    const char* name;
    bool refuseKernelCopies, unnamed;
  } cases[] = {{"copied by the kernel", false, true},
               {"read and written", true, true},
               {"in memory", false, false}};
  std::string bytes;
  for (int i = 0; bytes.size() < 700 * 1024; ++i) bytes += "line " + std::to_string(i) + "\n";  // several copies
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const std::string target = dir / "t.ini";
    writeBytes(target, "old", 0640);
    const auto report = inChild([&]() -> Lines {
      if (!c.unnamed)
        if (std::string why = refuseUnnamedFiles(); !why.empty()) return {why};
      gRefuseKernelCopies = c.refuseKernelCopies;
      const std::string before = identity(target);
      Lines report;
      for (std::size_t throwAt : {std::size_t(3), std::size_t(8), std::size_t(0)}) {  // 8: instead of the end
        std::size_t at = 0, pieces = 0;
        auto next = [&]() -> std::string_view {
          if (++pieces == throwAt) throw std::runtime_error("piece " + std::to_string(pieces));
          const std::size_t length = std::min<std::size_t>(100 * 1024, bytes.size() - at);
          at += length;
          return std::string_view(bytes).substr(at - length, length);
        };
        std::shared_ptr<YError> error;
        const YFileWriteOptions staged{.atomically = false, .staged = true};
        try {
          report.push_back(YWriteFileChunks(YString(target), next, staged, &error) ? "saved" : summary(error));
        } catch (const std::runtime_error& e) {
          report.push_back(e.what());
        }
        report.push_back(readBytes(target) == bytes ? "new" : readBytes(target));
      }
      report.push_back(identity(target) == before ? "same file" : "another file");
      report.push_back(listing(dir.path));
      return report;
    });
    EXPECT_EQ(report, Lines({"piece 3", "old", "piece 8", "old", "saved", "new", "same file", "t.ini "}));
  }
}

TEST(YFileWriteTest, WritingThroughFillsFifosAndDevicesAndNeverReplacesThem) {
  const std::string bytes(200 * 1024, 'b');  // more than a pipe holds
  for (bool atomically : {true, false}) {
    SCOPED_TRACE(atomically ? "atomic" : "in place");
    const YFileWriteOptions through{.atomically = atomically, .writeThrough = true};
    TempDir dir;
    const std::string fifo = dir / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] {
      std::ifstream in(fifo, std::ios::binary);
      received.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    });
    std::shared_ptr<YError> error;
    EXPECT_TRUE(YWriteFile(YString(fifo), bytes, through, &error)) << describe(error);
    reader.join();
    EXPECT_EQ(received.size(), bytes.size());
    EXPECT_TRUE(fs::is_fifo(fifo));

    EXPECT_TRUE(YWriteFile(YString("/dev/null"), bytes, through, &error)) << describe(error);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    if (::access("/dev/full", W_OK) == 0) {
      EXPECT_FALSE(YWriteFile(YString("/dev/full"), bytes, through, &error));
      EXPECT_EQ(summary(error), std::to_string(YFileWriteOutOfSpaceError) + " " + std::to_string(ENOSPC) +
                                    " Cannot write file '/dev/full': No space left on device");
    }

    // A regular file is still replaced as usual.
    writeBytes(dir / "t.ini", "old", 0644);
    const std::string before = identity(dir / "t.ini");
    EXPECT_TRUE(YWriteFile(YString(dir / "t.ini"), "new", through, &error)) << describe(error);
    EXPECT_EQ(readBytes(dir / "t.ini"), "new");
    EXPECT_EQ(identity(dir / "t.ini") != before, atomically);
  }
}

TEST(YFileWriteTest, WritingThroughStandardOutputWritesIntoWhatItIs) {
  // Behind /dev/stdout: a pipe, or a file a shell opened with "> file" or
  // ">> file", whose text is added to, never replaced.
  TempDir dir;
  const std::string file = dir / "out.txt";
  const YFileWriteOptions through{.atomically = true, .writeThrough = true};
  auto report = inChild([&]() -> std::vector<std::string> {
    int fds[2];
    if (::pipe(fds) != 0 || ::dup2(fds[1], STDOUT_FILENO) < 0) return {failed("pipe")};
    std::shared_ptr<YError> error;
    std::vector<std::string> lines;
    lines.push_back(YWriteFile(YString("/dev/stdout"), "piped", through, &error) ? "saved" : describe(error));
    char buffer[64] = {};
    lines.emplace_back(buffer, static_cast<std::size_t>(std::max<ssize_t>(0, ::read(fds[0], buffer, sizeof buffer))));
    lines.push_back(YWriteFile(YString("/dev/stdout"), "piped", true, &error) ? "saved" : describe(error));

    writeBytes(file, "log\n", 0644);
    const int out = ::open(file.c_str(), O_WRONLY | O_APPEND);
    if (out < 0 || ::dup2(out, STDOUT_FILENO) < 0) return {failed("open")};
    const std::string before = identity(file);
    lines.push_back(YWriteFile(YString("/dev/fd/1"), "added\n", through, &error) ? "saved" : describe(error));
    lines.push_back(identity(file) == before ? "same file" : "replaced");
    return lines;
  });
  EXPECT_EQ(report, (Lines{"saved", "piped",
                           "Cannot write file '/dev/stdout': it is a FIFO (named pipe), not a regular file", "saved",
                           "same file"}));
  EXPECT_EQ(readBytes(file), "log\nadded\n");
  // A descriptor of a deleted file links to a name that is no path: no file
  // is ever made after that name, whether the save writes into the open file
  // or fails.
  auto deleted = inChild([&]() -> std::vector<std::string> {
    const std::string gone = dir / "gone.txt";
    writeBytes(gone, "", 0644);
    const int out = ::open(gone.c_str(), O_WRONLY | O_TRUNC);  // as a shell opens "> file"
    if (out < 0 || ::dup2(out, STDOUT_FILENO) < 0 || ::unlink(gone.c_str()) != 0) return {failed("open")};
    std::vector<std::string> lines;
    for (bool writeThrough : {false, true}) {
      std::shared_ptr<YError> error;
      static_cast<void>(YWriteFile(YString("/dev/stdout"), "text\n",
                                   YFileWriteOptions{.atomically = true, .writeThrough = writeThrough}, &error));
      lines.push_back(std::filesystem::exists(gone + " (deleted)") ? "named after it" : "none");
    }
    return lines;
  });
  EXPECT_EQ(deleted, (Lines{"none", "none"}));
}

TEST(YFileWriteTest, AReaderThatGoesAwayFailsTheWriteWithoutSignal) {
  TempDir dir;
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  auto report = inChild([&]() -> std::vector<std::string> {
    std::thread reader([&] { ::close(::open(fifo.c_str(), O_RDONLY)); });
    std::shared_ptr<YError> error;
    const bool saved = YWriteFile(YString(fifo), std::string(1 << 20, 'b'),
                                  YFileWriteOptions{.atomically = false, .writeThrough = true}, &error);
    reader.join();
    sigset_t pending, blocked;
    ::sigpending(&pending);
    ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return {saved ? "saved" : std::to_string(error->underlyingErrno()),
            sigismember(&pending, SIGPIPE) ? "pending" : "none", sigismember(&blocked, SIGPIPE) ? "blocked" : "open"};
  });
  EXPECT_EQ(report, (Lines{std::to_string(EPIPE), "none", "open"}));
}

TEST(YFileWriteTest, LinkCountFollowsSymbolicLinks) {
  TempDir dir;
  writeBytes(dir / "a", "x", 0644);
  EXPECT_EQ(YFileLinkCount(YString(dir / "a"), nullptr), 1u);
  ASSERT_EQ(::link((dir / "a").c_str(), (dir / "b").c_str()), 0);
  ASSERT_EQ(::symlink("a", (dir / "link").c_str()), 0);
  EXPECT_EQ(YFileLinkCount(YString(dir / "link"), nullptr), 2u);
  std::shared_ptr<YError> error;
  EXPECT_EQ(YFileLinkCount(YString(dir / "missing"), &error), std::nullopt);
  EXPECT_EQ(summary(error), std::to_string(YFileNoSuchFileError) + " " + std::to_string(ENOENT) +
                                " Cannot examine file '" + dir / "missing" + "': No such file or directory");
}

// Both readers give every byte: files of sizes around the first buffer's and
// the mapped buffers' thresholds, and a FIFO, whose size is unknown, so the
// buffer grows (and keeps what it read) as the bytes come.
TEST(YFileReadTest, BothReadersGiveEveryByteWhateverTheSize) {
  TempDir dir;
  auto content = [](std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 131 + i / 977) & 0xFF);
    return bytes;
  };
  auto both = [](const std::string& path) {
    std::optional<std::string> plain = YReadFile(YString(path), nullptr);
    std::optional<YFileBytes> buffer = YReadFileBytes(YString(path), nullptr);
    EXPECT_EQ(plain.has_value(), buffer.has_value());
    return std::make_pair(plain.value_or("(none)"), buffer ? std::string(buffer->view()) : "(none)");
  };
  for (std::size_t size : {std::size_t(0), std::size_t(1), std::size_t(4095), std::size_t(65536), std::size_t(65537),
                           (std::size_t(1) << 20) - 1, (std::size_t(1) << 20) + 3}) {
    SCOPED_TRACE(size);
    writeBytes(dir / "f", content(size), 0644);
    EXPECT_EQ(both(dir / "f"), std::make_pair(content(size), content(size)));
  }
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (int reader = 0; reader < 2; ++reader) {
    std::thread writer([&] { writeBytes(fifo, content(300000), 0600); });
    const std::string got = reader == 0 ? YReadFile(YString(fifo), nullptr).value_or("(none)")
                                        : std::string(YReadFileBytes(YString(fifo), nullptr).value().view());
    writer.join();
    EXPECT_EQ(got, content(300000)) << "reader " << reader;
  }
  std::shared_ptr<YError> error;
  EXPECT_FALSE(YReadFileBytes(YString(dir / "missing"), &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), YFileNoSuchFileError);
  EXPECT_FALSE(YReadFileBytes(YString(dir.path), nullptr));  // a folder

  writeBytes(dir / "f", "abc", 0644);
  YFileBytes first = YReadFileBytes(YString(dir / "f"), nullptr).value();
  YFileBytes second = std::move(first);
  EXPECT_EQ(first.size(), 0u);
  EXPECT_EQ(second.view(), "abc");
  first = std::move(second);
  EXPECT_EQ(first.view(), "abc");
}

}  // namespace
