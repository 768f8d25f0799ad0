// Saves one large file, for bench/save_kill_loop.sh to kill midway.
// Usage: save_loop FILE MEGABYTES atomic|named|inplace [--ignore-sigxfsz]
//   atomic:  the usual atomic save (unnamed new file where the file system offers one)
//   named:   the same with O_TMPFILE taken away, as on file systems without it
//   inplace: truncate and write in place
// The text is MEGABYTES lines of 1 MiB - 1 letters, then "END <pid>" and a
// line end, so a complete file is recognised by its size and its last line.
// Exit codes: 0 saved, 2 usage, 3 the save failed (its error on stderr).
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "NoUnnamedFiles.h"
#include "YFoundation.h"

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: save_loop FILE MEGABYTES atomic|named|inplace [--ignore-sigxfsz]\n");
    return 2;
  }
  const std::string mode = argv[3];
  const long megabytes = std::atol(argv[2]);
  if (argc > 4 && std::strcmp(argv[4], "--ignore-sigxfsz") == 0) std::signal(SIGXFSZ, SIG_IGN);
  if (mode == "named") {
    if (std::string why = refuseUnnamedFiles(); !why.empty()) {
      std::fprintf(stderr, "%s\n", why.c_str());
      return 2;
    }
  } else if (mode != "atomic" && mode != "inplace") {
    return 2;
  }
  std::string line(1 << 20, 'x');
  line.back() = '\n';
  const std::string end = "END " + std::to_string(::getpid()) + "\n";
  long given = 0;
  std::shared_ptr<YError> error;
  const bool saved = YWriteFileChunks(
      YString::fromUTF8(argv[1]),
      [&]() -> std::string_view {
        ++given;
        if (given <= megabytes) return line;
        return given == megabytes + 1 ? std::string_view(end) : std::string_view();
      },
      mode != "inplace", &error);
  if (saved) return 0;
  std::fprintf(stderr, "%s (code %lld)\n", error->localizedDescription().UTF8String().c_str(),
               static_cast<long long>(error->code()));
  return 3;
}
