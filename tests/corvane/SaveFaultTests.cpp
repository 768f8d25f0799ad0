// Saving when the file system says no, and saving through links and over
// files with their own modes. A failed save returns false with an error naming
// the path and the cause, and leaves the target, its mode and the folder as
// they were. Each fault is set up in a forked child (dropping root, a private
// mount namespace, a file size limit) that reports what it saw through a pipe.
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "YFoundation.h"
#include "YIniDocument+Extensions.h"
#include "YIniSection.h"
#include "YIniStandardElementFactory.h"

namespace {

namespace fs = std::filesystem;
constexpr uid_t kNobody = 65534;
const std::string kOriginal = "[a]\nk=original\n";

struct TempDir {
  std::string path = [] {
    std::string templ = (fs::temp_directory_path() / "corvane-save-XXXXXX").string();
    EXPECT_NE(::mkdtemp(templ.data()), nullptr);
    ::chmod(templ.c_str(), 0755);  // searchable by an unprivileged child
    return templ;
  }();
  ~TempDir() {
    ::chmod(path.c_str(), 0755);
    std::error_code ec;
    fs::remove_all(path, ec);
  }
  std::string operator/(const std::string& name) const { return path + "/" + name; }
};

void writeBytes(const std::string& path, const std::string& bytes, mode_t mode) {
  std::ofstream(path, std::ios::binary) << bytes;
  ::chmod(path.c_str(), mode);
}

/// The bytes of a regular file (through links), or "(none)".
std::string readBytes(const std::string& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return "(none)";
  std::ostringstream buffer;
  buffer << std::ifstream(path, std::ios::binary).rdbuf();
  return buffer.str();
}

/// The folder's entries, sorted, each followed by a space.
std::string listing(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(dir, ec)) names.push_back(entry.path().filename().string() + " ");
  std::sort(names.begin(), names.end());
  std::string out;
  for (const auto& n : names) out += n;
  return out;
}

/// The file's bytes and permission bits.
std::string state(const std::string& path) {
  struct stat st{};
  return readBytes(path) + " mode " + std::to_string(::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0);
}

/// A document whose value for a.k is `size` letters.
std::shared_ptr<YIniDocument> documentOfSize(std::size_t size) {
  auto document = YIniDocument::documentFromStringFactory(YString(u"[a]\nk=v\n"),
                                                          YIniStandardElementFactory::standardFactory());
  document->sectionForName(YString(u"a"))->setValueForOptionWithName(YString(std::string(size, 'x')), YString(u"k"));
  return document;
}

/// Saves and returns the error's description, or "" on success.
std::string save(const std::shared_ptr<YIniDocument>& document, const std::string& target, bool atomically,
                 std::int64_t* code = nullptr, int* err = nullptr) {
  std::shared_ptr<YError> error;
  if (document->writeToFileAtomicallyEncodingError(YString(target), atomically, YUTF8StringEncoding, &error))
    return "";
  if (code) *code = error->code();
  if (err) *err = error->underlyingErrno();
  return error->localizedDescription().UTF8String();
}

/// Runs `body` in a forked child and returns the text lines it reported.
std::vector<std::string> inChild(const std::function<std::vector<std::string>()>& body) {
  int fds[2];
  if (::pipe(fds) != 0) return {"pipe failed"};
  std::fflush(nullptr);
  pid_t child = ::fork();
  if (child == 0) {
    ::close(fds[0]);
    std::string out;
    for (const std::string& line : body()) out += line + '\0';
    for (std::size_t done = 0; done < out.size();) {
      ssize_t n = ::write(fds[1], out.data() + done, out.size() - done);
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string in;
  char buffer[4096];
  for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) in.append(buffer, static_cast<std::size_t>(n));
  ::close(fds[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  std::vector<std::string> lines;
  for (std::size_t pos = 0, end; (end = in.find('\0', pos)) != std::string::npos; pos = end + 1)
    lines.push_back(in.substr(pos, end - pos));
  return lines;
}

std::string failed(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

/// Mounts a 64 KiB tmpfs on `dir` in a private mount namespace, so the mount dies with the child.
std::string mountSmallTmpfs(const std::string& dir) {
  if (::unshare(CLONE_NEWNS) != 0) return failed("unshare");
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return failed("private mounts");
  if (::mount("corvane-test", dir.c_str(), "tmpfs", 0, "size=64k,mode=0755") != 0) return failed("tmpfs");
  return "";
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
      // The atomic save writes its temporary file and fails to rename it: it must go again.
      {"target that is a folder",
       [](const std::string& d) { return fs::create_directory(d + "/t.ini") ? "" : "mkdir"; },
       "t.ini", false, YFileWriteUnknownError, EISDIR},
      {"full volume", mountSmallTmpfs, "settings.ini", true, YFileWriteOutOfSpaceError, ENOSPC},
      {"read-only volume",
       [](const std::string& dir) {
         std::string why = mountSmallTmpfs(dir);
         if (!why.empty()) return why;
         writeBytes(dir + "/settings.ini", kOriginal, 0600);
         return ::mount(nullptr, dir.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) ? failed("remount") : "";
       },
       "settings.ini", true, YFileWriteVolumeReadOnlyError, EROFS},
      // Needs no privileges: writes beyond RLIMIT_FSIZE fail with EFBIG midway.
      {"file size limit",
       [](const std::string&) {
         std::signal(SIGXFSZ, SIG_IGN);
         rlimit limit{64 * 1024, 64 * 1024};
         return ::setrlimit(RLIMIT_FSIZE, &limit) ? failed("setrlimit") : "";
       },
       "settings.ini", true, YFileWriteUnknownError, EFBIG},
  };
  auto document = documentOfSize(1 << 20);  // far more than the small volume holds
  std::string unavailable;
  for (const Case& c : cases) {
    for (bool atomically : {true, false}) {
      if (!atomically && (c.err == ENOSPC || c.err == EFBIG)) continue;  // a plain write fails midway
      SCOPED_TRACE(std::string(c.name) + (atomically ? ", atomic" : ", plain"));
      TempDir dir;
      const std::string target = dir / c.file;
      auto report = inChild([&]() -> std::vector<std::string> {
        if (c.exists) writeBytes(target, kOriginal, 0600);
        if (std::string why = c.setup(dir.path); !why.empty()) return {why};
        const std::string before = listing(dir.path), targetBefore = state(target);
        std::int64_t code = 0;
        int err = 0;
        std::string description = save(document, target, atomically, &code, &err);
        return {"", std::to_string(code), std::to_string(err), description,
                state(target) == targetBefore ? "kept" : targetBefore + " -> " + state(target),
                listing(dir.path) == before ? "kept" : before + " -> " + listing(dir.path)};
      });
      ASSERT_FALSE(report.empty());
      if (!report[0].empty()) {
        unavailable += std::string(c.name) + " (" + report[0] + ") ";
        continue;
      }
      ASSERT_EQ(report.size(), 6u);
      EXPECT_EQ(report[1], std::to_string(c.code)) << report[3];
      EXPECT_EQ(report[2], std::to_string(c.err)) << report[3];
      EXPECT_NE(report[3].find(std::strerror(c.err)), std::string::npos) << report[3];
      EXPECT_NE(report[3].find(target), std::string::npos) << report[3];
      EXPECT_EQ(report[4], "kept");
      EXPECT_EQ(report[5], "kept") << "a temporary file was left behind";
    }
  }
  if (!unavailable.empty()) GTEST_SKIP() << "not set up: " << unavailable;
}

TEST(SaveFaultTest, DeviceWithoutSpaceFailsAPlainWrite) {
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  std::int64_t code = 0;
  EXPECT_EQ(save(documentOfSize(1 << 16), "/dev/full", false, &code),
            "Cannot write file '/dev/full': No space left on device");
  EXPECT_EQ(code, YFileWriteOutOfSpaceError);
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
      SCOPED_TRACE(std::string(c.name) + (atomically ? ", atomic" : ", plain"));
      TempDir dir, other;
      const std::string file = c.absolute ? other / "real.ini" : dir / "real.ini";
      if (c.fileExists) writeBytes(file, kOriginal, 0640);
      const std::string linkText = c.absolute ? file : "real.ini", link = dir / "settings.ini";
      ASSERT_EQ(c.chained ? ::symlink(linkText.c_str(), (dir / "middle.ini").c_str()) : 0, 0);
      ASSERT_EQ(::symlink(c.chained ? "middle.ini" : linkText.c_str(), link.c_str()), 0);
      const std::string dirBefore = listing(dir.path), otherBefore = listing(other.path);
      EXPECT_EQ(save(document, link, atomically), "");
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
  for (mode_t mode : {0600, 0640, 0604, 0755, 0400}) {
    SCOPED_TRACE(mode);
    TempDir dir;
    writeBytes(dir / name, kOriginal, mode);
    const uid_t owner = ::geteuid() == 0 ? kNobody : ::geteuid();
    ASSERT_EQ(::chown((dir / name).c_str(), owner, static_cast<gid_t>(-1)), 0);
    EXPECT_EQ(save(document, dir / name, true), "");
    EXPECT_EQ(state(dir / name), document->stringValue().UTF8String() + " mode " + std::to_string(mode));
    EXPECT_EQ(listing(dir.path), name + " ");
    struct stat st{};
    EXPECT_TRUE(::stat((dir / name).c_str(), &st) == 0 && st.st_uid == owner);
  }
}

}  // namespace
