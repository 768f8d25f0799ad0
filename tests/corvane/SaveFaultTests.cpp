// Saving when the file system says no: a folder without write permission, a
// missing folder, a full or read-only volume, a file size limit, a target that
// is a folder; and saving through symbolic links and over files with their
// own modes. A failed save returns false with an error naming the path and the
// cause, leaves the target as it was and no temporary file behind.
//
// Faults that need privileges or change process state (dropping root,
// mounting a small tmpfs in a private mount namespace, a file size limit) run
// in a forked child, which reports what it saw through a pipe.
#include <fcntl.h>
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
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "YFoundation.h"
#include "YIniDocument+Extensions.h"
#include "YIniSection.h"
#include "YIniStandardElementFactory.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kUnprivileged = 65534;

class TempDir {
 public:
  TempDir() {
    std::string templ = (fs::temp_directory_path() / "corvane-save-XXXXXX").string();
    EXPECT_NE(::mkdtemp(templ.data()), nullptr);
    _path = templ;
    ::chmod(_path.c_str(), 0755);  // searchable by an unprivileged child
  }
  ~TempDir() {
    std::error_code ec;
    for (const auto& entry : fs::recursive_directory_iterator(_path, ec))
      if (entry.is_directory(ec)) ::chmod(entry.path().c_str(), 0755);
    ::chmod(_path.c_str(), 0755);
    fs::remove_all(_path, ec);
  }
  const std::string& path() const { return _path; }
  std::string operator/(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};

void writeBytes(const std::string& path, const std::string& bytes, mode_t mode = 0644) {
  std::ofstream(path, std::ios::binary) << bytes;
  ::chmod(path.c_str(), mode);
}

/// The bytes of a regular file (through links), or nothing.
std::optional<std::string> readBytes(const std::string& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

/// The folder's entries, sorted, joined by "/".
std::string listing(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(dir, ec)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  std::string out;
  for (const auto& n : names) out += (out.empty() ? "" : "/") + n;
  return out;
}

mode_t modeOf(const std::string& path) {
  struct stat st{};
  return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

/// A document whose text is "[a]" LF "k=" + `size` letters + LF.
std::shared_ptr<YIniDocument> documentOfSize(std::size_t size) {
  auto document = YIniDocument::documentFromStringFactory(YString(u"[a]\nk=v\n"),
                                                          YIniStandardElementFactory::standardFactory());
  document->sectionForName(YString(u"a"))->setValueForOptionWithName(YString(std::string(size, 'x')), YString(u"k"));
  return document;
}

const std::string kOriginal = "[a]\nk=original\n";

/// What a save returned and what it left behind.
struct Outcome {
  bool result = false;
  std::int64_t code = 0;
  int err = 0;
  std::string description;
  std::optional<std::string> target;  // the target's bytes afterwards
  std::string listing;                // the folder's entries afterwards
  std::string skip;                   // why a child could not set up its fault
};

using Fields = std::vector<std::string>;

Fields encode(const Outcome& o) {
  return {o.result ? "1" : "0", std::to_string(o.code), std::to_string(o.err), o.description,
          o.target ? "1" + *o.target : "0", o.listing, o.skip};
}

Outcome decode(const Fields& f) {
  Outcome o;
  if (f.size() != 7) {
    o.skip = "child reported nothing";
    return o;
  }
  o.result = f[0] == "1";
  o.code = std::stoll(f[1]);
  o.err = std::stoi(f[2]);
  o.description = f[3];
  if (f[4][0] == '1') o.target = f[4].substr(1);
  o.listing = f[5];
  o.skip = f[6];
  return o;
}

Outcome skipped(const std::string& why) {
  Outcome o;
  o.skip = why + ": " + std::strerror(errno);
  return o;
}

Outcome save(const std::shared_ptr<YIniDocument>& document, const std::string& target, bool atomically,
             const std::string& folder) {
  Outcome o;
  std::shared_ptr<YError> error;
  o.result = document->writeToFileAtomicallyEncodingError(YString(target), atomically, YUTF8StringEncoding, &error);
  if (error) {
    o.code = error->code();
    o.err = error->underlyingErrno();
    o.description = error->localizedDescription().UTF8String();
  }
  o.target = readBytes(target);
  o.listing = listing(folder);
  return o;
}

/// Runs `body` in a forked child and returns the outcome it reported.
Outcome inChild(const std::function<Outcome()>& body) {
  int fds[2];
  if (::pipe(fds) != 0) return skipped("pipe");
  std::fflush(nullptr);
  pid_t child = ::fork();
  if (child < 0) return skipped("fork");
  if (child == 0) {
    ::close(fds[0]);
    Outcome o;
    try {
      o = body();
    } catch (const std::exception& e) {
      o.skip = std::string("exception: ") + e.what();
    }
    std::string out;
    for (const std::string& field : encode(o)) out += std::to_string(field.size()) + ":" + field;
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
  int status = 0;
  ::waitpid(child, &status, 0);
  Fields fields;
  for (std::size_t pos = 0; pos < in.size();) {
    std::size_t colon = in.find(':', pos);
    if (colon == std::string::npos) break;
    std::size_t length = std::stoul(in.substr(pos, colon - pos));
    fields.push_back(in.substr(colon + 1, length));
    pos = colon + 1 + length;
  }
  return decode(fields);
}

/// Drops root to an unprivileged user (no capabilities left), so that
/// permission bits apply. Call in a child only.
bool dropPrivileges() {
  return ::setgroups(0, nullptr) == 0 && ::setresgid(kUnprivileged, kUnprivileged, kUnprivileged) == 0 &&
         ::setresuid(kUnprivileged, kUnprivileged, kUnprivileged) == 0 && ::geteuid() == kUnprivileged;
}

/// The checks every failed save must pass.
void expectCleanFailure(const Outcome& o, std::int64_t code, int err, const std::string& target,
                        const std::optional<std::string>& targetBefore, const std::string& listingBefore) {
  EXPECT_FALSE(o.result);
  EXPECT_EQ(o.code, code) << o.description;
  EXPECT_EQ(o.err, err) << o.description;
  EXPECT_NE(o.description.find(std::strerror(err)), std::string::npos) << o.description;
  EXPECT_NE(o.description.find(target), std::string::npos) << o.description;
  EXPECT_EQ(o.target, targetBefore) << "the target changed";
  EXPECT_EQ(o.listing, listingBefore) << "a temporary file was left behind";
}

// ---- failures -------------------------------------------------------------------

TEST(SaveFaultTest, FolderWithoutWritePermission) {
  for (bool atomically : {true, false}) {
    for (bool exists : {true, false}) {
      SCOPED_TRACE(std::string(atomically ? "atomic" : "plain") + (exists ? ", existing target" : ", new target"));
      TempDir dir;
      const std::string target = dir / "settings.ini";
      if (exists) writeBytes(target, kOriginal);
      ::chmod(dir.path().c_str(), 0555);
      const std::string before = listing(dir.path());
      auto document = documentOfSize(16);
      Outcome o;
      if (::geteuid() == 0) {
        // Root ignores permission bits: save as an unprivileged user instead.
        o = inChild([&] {
          if (!dropPrivileges()) return skipped("dropping privileges");
          return save(document, target, atomically, dir.path());
        });
      } else {
        o = save(document, target, atomically, dir.path());
      }
      if (!o.skip.empty()) GTEST_SKIP() << o.skip;
      expectCleanFailure(o, YFileWriteNoPermissionError, EACCES, target,
                         exists ? std::optional<std::string>(kOriginal) : std::nullopt, before);
    }
  }
}

TEST(SaveFaultTest, FolderThatDoesNotExist) {
  for (bool atomically : {true, false}) {
    TempDir dir;
    const std::string target = dir / "missing/settings.ini";
    Outcome o = save(documentOfSize(16), target, atomically, dir.path());
    expectCleanFailure(o, YFileNoSuchFileError, ENOENT, target, std::nullopt, "");
  }
}

TEST(SaveFaultTest, TargetThatIsAFolder) {
  // The atomic save writes its temporary file completely and then fails to
  // rename it over the folder: the temporary file must go again.
  for (bool atomically : {true, false}) {
    TempDir dir;
    const std::string target = dir / "settings.ini";
    fs::create_directory(target);
    Outcome o = save(documentOfSize(16), target, atomically, dir.path());
    expectCleanFailure(o, YFileWriteUnknownError, EISDIR, target, std::nullopt, "settings.ini");
  }
}

/// Runs `body` in a child with a 64 KiB tmpfs mounted on `dir` in a mount
/// namespace of its own, so the mount never outlives the child.
Outcome onSmallTmpfs(const TempDir& dir, const std::function<Outcome()>& body) {
  return inChild([&] {
    if (::unshare(CLONE_NEWNS) != 0) return skipped("unshare");
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return skipped("private mounts");
    if (::mount("corvane-test", dir.path().c_str(), "tmpfs", 0, "size=64k,mode=0755") != 0)
      return skipped("mounting tmpfs");
    return body();
  });
}

TEST(SaveFaultTest, FullFileSystemKeepsTargetAndLeavesNoTemporaryFile) {
  TempDir dir;
  const std::string target = dir / "settings.ini";
  auto document = documentOfSize(1 << 20);  // far more than the volume holds
  Outcome o = onSmallTmpfs(dir, [&] {
    writeBytes(target, kOriginal, 0600);
    Outcome result = save(document, target, true, dir.path());
    if (modeOf(target) != 0600) result.description += " [mode changed]";
    return result;
  });
  if (!o.skip.empty()) GTEST_SKIP() << o.skip;
  expectCleanFailure(o, YFileWriteOutOfSpaceError, ENOSPC, target, kOriginal, "settings.ini");
  EXPECT_EQ(o.description.find("[mode changed]"), std::string::npos);
}

TEST(SaveFaultTest, ReadOnlyVolume) {
  for (bool atomically : {true, false}) {
    TempDir dir;
    const std::string target = dir / "settings.ini";
    auto document = documentOfSize(16);
    Outcome o = onSmallTmpfs(dir, [&] {
      writeBytes(target, kOriginal);
      if (::mount(nullptr, dir.path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        return skipped("remounting read-only");
      return save(document, target, atomically, dir.path());
    });
    if (!o.skip.empty()) GTEST_SKIP() << o.skip;
    expectCleanFailure(o, YFileWriteVolumeReadOnlyError, EROFS, target, kOriginal, "settings.ini");
  }
}

TEST(SaveFaultTest, FileSizeLimitFailsTheTemporaryFileMidway) {
  // Works without mount privileges: writes beyond RLIMIT_FSIZE fail with
  // EFBIG, the same failure path as a full volume.
  TempDir dir;
  const std::string target = dir / "settings.ini";
  writeBytes(target, kOriginal, 0600);
  auto document = documentOfSize(1 << 20);
  Outcome o = inChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{64 * 1024, 64 * 1024};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return skipped("setrlimit");
    return save(document, target, true, dir.path());
  });
  ASSERT_TRUE(o.skip.empty()) << o.skip;
  expectCleanFailure(o, YFileWriteUnknownError, EFBIG, target, kOriginal, "settings.ini");
  EXPECT_EQ(modeOf(target), 0600u);
}

TEST(SaveFaultTest, DeviceWithoutSpaceFailsAPlainWrite) {
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  std::shared_ptr<YError> error;
  EXPECT_FALSE(documentOfSize(1 << 16)->writeToFileAtomicallyEncodingError(YString(u"/dev/full"), false,
                                                                           YUTF8StringEncoding, &error));
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), YFileWriteOutOfSpaceError);
  EXPECT_EQ(error->underlyingErrno(), ENOSPC);
  EXPECT_EQ(error->localizedDescription().UTF8String(), "Cannot write file '/dev/full': No space left on device");
}

// ---- links and modes --------------------------------------------------------------

TEST(SaveFaultTest, SymbolicLinkStaysALinkAndItsFileChanges) {
  struct Case {
    const char* name;
    bool absolute;      // link to a file in another folder by absolute path
    bool chained;       // link to a link to the file
    bool fileExists;    // false: a dangling link, saving creates its file
  };
  const Case cases[] = {
      {"relative", false, false, true},
      {"absolute, other folder", true, false, true},
      {"chain of two links", false, true, true},
      {"dangling", false, false, false},
  };
  auto document = documentOfSize(16);
  const std::string expected = document->stringValue().UTF8String();
  for (const Case& c : cases) {
    for (bool atomically : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + (atomically ? ", atomic" : ", plain"));
      TempDir dir, other;
      const std::string file = c.absolute ? other / "real.ini" : dir / "real.ini";
      if (c.fileExists) writeBytes(file, kOriginal, 0640);
      const std::string linkText = c.absolute ? file : "real.ini";
      const std::string link = dir / "settings.ini";
      if (c.chained) {
        ASSERT_EQ(::symlink(linkText.c_str(), (dir / "middle.ini").c_str()), 0);
        ASSERT_EQ(::symlink("middle.ini", link.c_str()), 0);
      } else {
        ASSERT_EQ(::symlink(linkText.c_str(), link.c_str()), 0);
      }
      const std::string dirAfter = c.fileExists || c.absolute ? listing(dir.path()) : "real.ini/settings.ini";
      const std::string otherAfter = c.absolute ? "real.ini" : "";

      std::shared_ptr<YError> error;
      EXPECT_TRUE(document->writeToFileAtomicallyEncodingError(YString(link), atomically, YUTF8StringEncoding, &error))
          << (error ? error->description().UTF8String() : "");

      struct stat st{};
      ASSERT_EQ(::lstat(link.c_str(), &st), 0);
      EXPECT_TRUE(S_ISLNK(st.st_mode));
      EXPECT_EQ(fs::read_symlink(link).string(), c.chained ? "middle.ini" : linkText);
      EXPECT_EQ(readBytes(file), expected);
      if (c.fileExists) {
        EXPECT_EQ(modeOf(file), 0640u);
      }
      EXPECT_EQ(listing(dir.path()), dirAfter);
      EXPECT_EQ(listing(other.path()), otherAfter);
    }
  }
}

TEST(SaveFaultTest, AtomicSaveKeepsModeAndOwner) {
  auto document = documentOfSize(16);
  const std::string expected = document->stringValue().UTF8String();
  for (mode_t mode : {0600, 0640, 0604, 0755, 0400}) {
    SCOPED_TRACE(mode);
    TempDir dir;
    const std::string target = dir / "settings.ini";
    writeBytes(target, kOriginal, mode);
    const bool root = ::geteuid() == 0;
    if (root) {
      ASSERT_EQ(::chown(target.c_str(), kUnprivileged, kUnprivileged), 0);
    }
    std::shared_ptr<YError> error;
    EXPECT_TRUE(document->writeToFileAtomicallyEncodingError(YString(target), true, YUTF8StringEncoding, &error))
        << (error ? error->description().UTF8String() : "");
    EXPECT_EQ(readBytes(target), expected);
    EXPECT_EQ(modeOf(target), mode);
    struct stat st{};
    ASSERT_EQ(::stat(target.c_str(), &st), 0);
    if (root) {
      EXPECT_EQ(st.st_uid, kUnprivileged);
    }
    EXPECT_EQ(listing(dir.path()), "settings.ini");
  }
}

TEST(SaveFaultTest, AtomicSaveOfTheLongestFileName) {
  // The temporary file's name must fit the folder too.
  TempDir dir;
  const std::string name(255, 'n');
  const std::string target = dir / name;
  writeBytes(target, kOriginal);
  auto document = documentOfSize(16);
  std::shared_ptr<YError> error;
  EXPECT_TRUE(document->writeToFileAtomicallyEncodingError(YString(target), true, YUTF8StringEncoding, &error))
      << (error ? error->description().UTF8String() : "");
  EXPECT_EQ(readBytes(target), document->stringValue().UTF8String());
  EXPECT_EQ(listing(dir.path()), name);
}

}  // namespace
