// Saving when the file system says no, and saving through links and over
// files with their own modes. A failed save returns false with an error naming
// the path and the cause, and leaves the target, its mode and the folder as
// they were. Each fault is set up in a forked child (dropping root, a private
// mount namespace, a file size limit, no unnamed files) that reports what it
// saw through a pipe. Every save runs twice: with unnamed new files
// (O_TMPFILE) and, as on file systems without them, with named ones.
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "FileFaultSupport.h"
#include "YFoundation.h"
#include "YIniDocument+Extensions.h"
#include "YIniSection.h"
#include "YIniStandardElementFactory.h"

namespace {

using namespace filefault;
constexpr uid_t kNobody = 65534;
const std::string kOriginal = "[a]\nk=original\n";

/// A document whose value for a.k is `size` letters, or with `sections`,
/// that many sections each holding an option of `size` letters (so that its
/// text is written in pieces).
std::shared_ptr<YIniDocument> documentOfSize(std::size_t size, int sections = 0) {
  std::string text = "[a]\nk=v\n";
  for (int i = 0; i < sections; ++i) text += "[s" + std::to_string(i) + "]\nk=" + std::string(size, 'x') + "\n";
  auto document = YIniDocument::documentFromStringFactory(YString(text), YIniStandardElementFactory::standardFactory());
  if (!sections)
    document->sectionForName(YString(u"a"))->setValueForOptionWithName(YString(std::string(size, 'x')), YString(u"k"));
  return document;
}

/// Saves; nothing on success, else the error's code, errno and description.
std::vector<std::string> save(const std::shared_ptr<YIniDocument>& document, const std::string& target,
                              bool atomically) {
  std::shared_ptr<YError> error;
  if (document->writeToFileAtomicallyEncodingError(YString(target), atomically, YUTF8StringEncoding, &error))
    return {};
  return {std::to_string(error->code()), std::to_string(error->underlyingErrno()),
          error->localizedDescription().UTF8String()};
}
using Report = std::vector<std::string>;

/// Mounts a tmpfs of `size` on `dir` in a private mount namespace, so the mount dies with the child.
std::string mountTmpfs(const std::string& dir, const std::string& size) {
  if (::unshare(CLONE_NEWNS) != 0) return failed("unshare");
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return failed("private mounts");
  if (::mount("corvane-test", dir.c_str(), "tmpfs", 0, ("size=" + size + ",mode=0755").c_str()) != 0)
    return failed("tmpfs");
  return "";
}
std::string mountSmallTmpfs(const std::string& dir) { return mountTmpfs(dir, "64k"); }

/// Runs `body` in a child, first taking O_TMPFILE away when `unnamed` is false.
std::vector<std::string> saveInChild(bool unnamed, const std::function<std::vector<std::string>()>& body) {
  return inChild([&]() -> std::vector<std::string> {
    if (!unnamed)
      if (std::string why = refuseUnnamedFiles(); !why.empty()) return {why};
    return body();
  });
}

const char* how(bool atomically, bool unnamed) {
  if (!atomically) return unnamed ? ", in place, staged" : ", in place, in memory";
  return unnamed ? ", atomic, unnamed" : ", atomic, named";
}

TEST(SaveFaultTest, FailedSaveLeavesEverythingAsItWas) {
  using Setup = std::function<std::string(const std::string& dir)>;  // "" or why the fault is unavailable
  const Setup none = [](const std::string&) { return ""; };
  const Setup readOnlyFolder = [](const std::string& dir) {
    ::chmod(dir.c_str(), 0555);  // and root ignores permission bits: save as nobody
    ::chmod((dir + "/settings.ini").c_str(), 0644);
    if (::geteuid() == 0 && (::setgroups(0, nullptr) != 0 || ::setresgid(kNobody, kNobody, kNobody) != 0 ||
                             ::setresuid(kNobody, kNobody, kNobody) != 0))
      return failed("dropping privileges");
    return std::string();
  };
  struct Case {
    const char* name;
    Setup setup;
    const char* file;
    bool exists;
    std::int64_t code;
    int err;
  } cases[] = {
      {"folder without write permission", readOnlyFolder, "settings.ini", true, YFileWriteNoPermissionError, EACCES},
      {"new file in such a folder", readOnlyFolder, "settings.ini", false, YFileWriteNoPermissionError, EACCES},
      {"missing folder", none, "missing/settings.ini", false, YFileNoSuchFileError, ENOENT},
      {"full volume", mountSmallTmpfs, "settings.ini", true, YFileWriteOutOfSpaceError, ENOSPC},
      {"read-only volume",
       [](const std::string& dir) {
         std::string why = mountSmallTmpfs(dir);
         if (!why.empty()) return why;
         writeBytes(dir + "/settings.ini", kOriginal, 0600);
         return ::mount(nullptr, dir.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) ? failed("remount") : "";
       },
       "settings.ini", true, YFileWriteVolumeReadOnlyError, EROFS},
      // Needs no privileges: writes beyond RLIMIT_FSIZE fail with EFBIG midway
      // once SIGXFSZ no longer ends the process.
      {"file size limit",
       [](const std::string&) {
         std::signal(SIGXFSZ, SIG_IGN);
         rlimit limit{64 * 1024, 64 * 1024};
         return ::setrlimit(RLIMIT_FSIZE, &limit) ? failed("setrlimit") : "";
       },
       "settings.ini", true, YFileWriteTooLargeError, EFBIG},
  };
  auto document = documentOfSize(1 << 20);  // far more than the small volume holds
  std::string unavailable;
  for (const Case& c : cases) {
    for (bool atomically : {true, false}) {
      for (bool unnamed : {true, false}) {
        // In place without a staging file, a full disk or a size limit fails the write midway.
        if (!atomically && !unnamed && (c.err == ENOSPC || c.err == EFBIG)) continue;
        SCOPED_TRACE(std::string(c.name) + how(atomically, unnamed));
        TempDir dir;
        const std::string target = dir / c.file;
        auto report = saveInChild(unnamed, [&]() -> std::vector<std::string> {
          if (c.exists) writeBytes(target, kOriginal, 0600);
          if (std::string why = c.setup(dir.path); !why.empty()) return {why};
          const std::string before = listing(dir.path), targetBefore = state(target);
          Report report = save(document, target, atomically);
          report.push_back(state(target) == targetBefore ? "kept" : targetBefore + " -> " + state(target));
          report.push_back(listing(dir.path) == before ? "kept" : before + " -> " + listing(dir.path));
          return report;
        });
        if (report.size() == 1) {  // why the fault could not be set up
          unavailable += std::string(c.name) + " (" + report[0] + ") ";
          continue;
        }
        ASSERT_EQ(report.size(), 5u);
        EXPECT_EQ(Report({report[0], report[1], report[3], report[4]}),
                  Report({std::to_string(c.code), std::to_string(c.err), "kept", "kept"})) << report[2];
        EXPECT_NE(report[2].find(std::strerror(c.err)), std::string::npos) << report[2];
        EXPECT_NE(report[2].find(target), std::string::npos) << report[2];
      }
    }
  }
  if (!unavailable.empty()) GTEST_SKIP() << "not set up: " << unavailable;
}

// Saved in place on a volume of 1 MiB without room for two copies of the
// text, the text is written where the truncated target leaves room for it,
// else the save fails before touching the target: whether the staged copy
// runs out of room (in its second piece) or would leave none for the copy
// into the target, and reckoned on the target's own volume (a file bound
// in from a larger one). A target the process may not write says so first.
TEST(SaveFaultTest, InPlaceSaveOnAFullVolumeWritesOnlyWhatFitsOnceTruncated) {
  enum Setup { kPlain, kBoundFromLarger, kReadOnlyAsNobody };
  struct Case {
    const char* name;
    int oldKiB, newKiB;
    Setup setup;
    Report report;
  } cases[] = {
      {"staged copy runs out of room", 600, 500, kPlain, {"new"}},
      {"no room for the copy beside the staged one", 100, 600, kPlain, {"new"}},
      {"too large", 600, 1100, kPlain, {std::to_string(YFileWriteOutOfSpaceError), std::to_string(ENOSPC), "kept"}},
      {"bound in from a larger volume", 600, 1100, kBoundFromLarger, {"new"}},
      {"read-only target", 600, 1100, kReadOnlyAsNobody,
       {std::to_string(YFileWriteNoPermissionError), std::to_string(EACCES), "kept"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto document = documentOfSize(1020, c.newKiB);  // sections of about 1 KiB
    const std::string old(static_cast<std::size_t>(c.oldKiB) * 1024, 'o');
    TempDir dir;
    const std::string target = dir / "t.ini", large = dir / "large";
    auto report = inChild([&]() -> std::vector<std::string> {
      if (std::string why = mountTmpfs(dir.path, "1m"); !why.empty()) return {"unavailable: " + why};
      ::chmod(dir.path.c_str(), 0777);
      writeBytes(target, old, c.setup == kReadOnlyAsNobody ? 0444 : 0600);
      if (c.setup == kBoundFromLarger) {
        ::mkdir(large.c_str(), 0755);
        if (std::string why = mountTmpfs(large, "4m"); !why.empty()) return {"unavailable: " + why};
        writeBytes(large + "/t.ini", old, 0600);
        if (::mount((large + "/t.ini").c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0)
          return {"unavailable: " + failed("bind")};
      }
      if (c.setup == kReadOnlyAsNobody && (::geteuid() != 0 || ::setgroups(0, nullptr) != 0 ||
                                           ::setresgid(kNobody, kNobody, kNobody) != 0 ||
                                           ::setresuid(kNobody, kNobody, kNobody) != 0))
        return {"unavailable: " + failed("becoming nobody")};
      Report report = save(document, target, false);
      if (report.size() == 3) report.pop_back();  // the description
      const std::string now = readBytes(target);
      report.push_back(now == old ? "kept" : now == document->stringValue().UTF8String() ? "new" : "other");
      return report;
    });
    ASSERT_FALSE(report.empty());
    if (report[0].rfind("unavailable", 0) == 0) {
      std::printf("%s: %s\n", c.name, report[0].c_str());
      continue;
    }
    EXPECT_EQ(report, c.report);
  }
}

TEST(SaveFaultTest, TargetsThatAreNoRegularFileAreRefusedAndLeftAlone) {
  // Neither mode replaces them, and neither waits for a FIFO's reader: a
  // save that hangs ends the child after a few seconds and fails the case.
  using Make = std::function<bool(const std::string& target)>;
  const std::tuple<const char*, Make, const char*, int> cases[] = {  // name, making it, what it is, errno
      {"FIFO", [](const std::string& t) { return ::mkfifo(t.c_str(), 0644) == 0; }, "a FIFO (named pipe)", 0},
      {"link to a FIFO",
       [](const std::string& t) { return ::mkfifo((t + ".fifo").c_str(), 0644) == 0 && ::symlink((t + ".fifo").c_str(), t.c_str()) == 0; },
       "a FIFO (named pipe)", 0},
      {"link to a character device", [](const std::string& t) { return ::symlink("/dev/full", t.c_str()) == 0; },
       "a character device", 0},
      {"folder", [](const std::string& t) { return ::mkdir(t.c_str(), 0755) == 0; }, "a folder", EISDIR},
      {"link to itself", [](const std::string& t) { return ::symlink(t.c_str(), t.c_str()) == 0; },
       "a loop of symbolic links", ELOOP},
      {"two links to each other",
       [](const std::string& t) { return ::symlink(t.c_str(), (t + ".other").c_str()) == 0 && ::symlink((t + ".other").c_str(), t.c_str()) == 0; },
       "a loop of symbolic links", ELOOP},
      {"socket",
       [](const std::string& t) {
         sockaddr_un address{};
         address.sun_family = AF_UNIX;
         std::strncpy(address.sun_path, t.c_str(), sizeof address.sun_path - 1);
         const int s = ::socket(AF_UNIX, SOCK_STREAM, 0);
         return s >= 0 && t.size() < sizeof address.sun_path &&
                ::bind(s, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
       },
       "a socket", 0},
  };
  auto document = documentOfSize(16);
  for (const auto& [name, make, kind, err] : cases) {
    for (bool atomically : {true, false}) {
      SCOPED_TRACE(std::string(name) + how(atomically, true));
      TempDir dir;
      const std::string target = dir / "t.ini";
      ASSERT_TRUE(make(target)) << std::strerror(errno);
      const std::string before = identity(target), folderBefore = listing(dir.path);
      EXPECT_EQ(inChild([&] { return save(document, target, atomically); }, 5),
                Report({std::to_string(YFileWriteNotARegularFileError), std::to_string(err),
                        "Cannot write file '" + target + "': it is " + kind + ", not a regular file"}));
      EXPECT_EQ(identity(target), before);  // the same inode, of the same kind and mode
      EXPECT_EQ(listing(dir.path), folderBefore);
    }
  }
}

TEST(SaveFaultTest, SymbolicLinkStaysALinkAndItsFileChanges) {
  struct Case {
    const char* name;
    bool absolute, chained, fileExists;  // other folder by absolute path; link to a link; not dangling
  } cases[] = {{"relative", false, false, true},
               {"absolute, other folder", true, false, true},
               {"chain of two links", false, true, true},
               {"dangling", false, false, false}};
  auto document = documentOfSize(16);
  const std::string expected = document->stringValue().UTF8String();
  for (const Case& c : cases) {
    for (bool atomically : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + how(atomically, true));
      TempDir dir, other;
      const std::string file = c.absolute ? other / "real.ini" : dir / "real.ini";
      if (c.fileExists) writeBytes(file, kOriginal, 0640);
      const std::string linkText = c.absolute ? file : "real.ini", link = dir / "settings.ini";
      ASSERT_EQ(c.chained ? ::symlink(linkText.c_str(), (dir / "middle.ini").c_str()) : 0, 0);
      ASSERT_EQ(::symlink(c.chained ? "middle.ini" : linkText.c_str(), link.c_str()), 0);
      const std::string dirBefore = listing(dir.path), otherBefore = listing(other.path);
      EXPECT_EQ(save(document, link, atomically), Report());
      EXPECT_TRUE(fs::is_symlink(link));
      EXPECT_EQ(fs::read_symlink(link).string(), c.chained ? "middle.ini" : linkText);
      EXPECT_EQ(readBytes(file), expected);
      EXPECT_EQ(listing(dir.path) + listing(other.path),
                c.fileExists ? dirBefore + otherBefore : "real.ini settings.ini ");
    }
  }
}

TEST(SaveFaultTest, AtomicSaveKeepsModeAndOwner) {
  // The longest file name: the temporary file's name must fit the folder too.
  const std::string name(255, 'n');
  auto document = documentOfSize(16);
  for (bool unnamed : {true, false}) {
    for (mode_t mode : {0600, 0640, 0604, 0755, 0400, 02755}) {
      SCOPED_TRACE(std::to_string(mode) + how(true, unnamed));
      TempDir dir;
      writeBytes(dir / name, kOriginal, mode);
      const uid_t owner = ::geteuid() == 0 ? kNobody : ::geteuid();
      const gid_t group = ::geteuid() == 0 ? kNobody : ::getegid();
      ASSERT_EQ(::chown((dir / name).c_str(), owner, group), 0);
      ASSERT_EQ(::chmod((dir / name).c_str(), mode), 0);  // chown may clear the set-group-ID bit
      auto report = saveInChild(unnamed, [&] {
        Report report = save(document, dir / name, true);
        struct stat st{};
        ::stat((dir / name).c_str(), &st);
        report.insert(report.end(), {state(dir / name), listing(dir.path), std::to_string(st.st_uid),
                                     std::to_string(st.st_gid)});
        return report;
      });
      EXPECT_EQ(report, Report({document->stringValue().UTF8String() + " mode " + std::to_string(mode), name + " ",
                                std::to_string(owner), std::to_string(group)}));
    }
  }
}

TEST(SaveFaultTest, AtomicSaveByAnotherUserKeepsTheGroupItBelongsTo) {
  // Root's file in a shared folder, saved by a member of its group: the owner
  // cannot be kept, the group and the mode are.
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to set the scene";
  constexpr gid_t kShared = 4242;
  auto document = documentOfSize(16);
  for (bool unnamed : {true, false}) {
    SCOPED_TRACE(how(true, unnamed));
    TempDir dir;
    ::chmod(dir.path.c_str(), 0777);
    writeBytes(dir / "t.ini", kOriginal, 0664);
    ASSERT_EQ(::chown((dir / "t.ini").c_str(), 0, kShared), 0);
    auto report = saveInChild(unnamed, [&]() -> Report {
      if (::setgroups(1, &kShared) != 0 || ::setresgid(kNobody, kNobody, kNobody) != 0 ||
          ::setresuid(kNobody, kNobody, kNobody) != 0)
        return {failed("dropping privileges")};
      Report report = save(document, dir / "t.ini", true);
      struct stat st{};
      ::stat((dir / "t.ini").c_str(), &st);
      report.insert(report.end(), {std::to_string(st.st_uid), std::to_string(st.st_gid),
                                   std::to_string(st.st_mode & 07777)});
      return report;
    });
    EXPECT_EQ(report, Report({std::to_string(kNobody), std::to_string(kShared), std::to_string(0664)}));
  }
}

TEST(SaveFaultTest, AtomicSaveMakesANewFileAndPartsHardLinks) {
  // Documented: the other name keeps the old text; a save in place keeps the link.
  auto document = documentOfSize(16);
  const std::string text = document->stringValue().UTF8String();
  for (bool atomically : {true, false}) {
    SCOPED_TRACE(how(atomically, true));
    TempDir dir;
    writeBytes(dir / "a.ini", kOriginal, 0644);
    ASSERT_EQ(::link((dir / "a.ini").c_str(), (dir / "b.ini").c_str()), 0);
    EXPECT_EQ(YFileLinkCount(YString(dir / "a.ini"), nullptr), 2u);
    EXPECT_EQ(save(document, dir / "a.ini", atomically), Report());
    EXPECT_EQ(readBytes(dir / "a.ini"), text);
    EXPECT_EQ(readBytes(dir / "b.ini"), atomically ? kOriginal : text);
    EXPECT_EQ(YFileLinkCount(YString(dir / "a.ini"), nullptr), atomically ? 1u : 2u);
  }
}

}  // namespace
