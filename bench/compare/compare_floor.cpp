// The floor model: the least a program can do that keeps the library's
// element contract through the round trip, written in plain C++ (a bump
// arena faulted in 2 MiB at a time, std::allocate_shared, std::vector), so
// that Corvane's time and memory can be set beside what that contract costs
// by itself.
//
//   compare_floor [--slices] input output section key value|- [load|phases]
//
// The same command line as compare_corvane: load the file, set one option's
// value ("-": none), write the whole text back; with "load" as the last
// argument only load; with "phases" also print the seconds of the whole and
// of destroying the document. What it does, and no more:
// - with copied strings, reads an ASCII file's bytes as they are and keeps
//   them for the document's life (as the library keeps them for its
//   preserving save); otherwise reads the file in pieces and decodes UTF-8
//   straight into one UTF-16 text, which it keeps (a UTF-8 byte-order mark
//   is skipped, and not written back, as compare_corvane's save does not);
// - cuts the text, in one pass, into the elements the library's reader
//   yields: a section per header, the header's line end as a comment, an
//   option per "name = value" line with its continuation lines, a comment
//   per comment line and its line end, a comment per blank line, an empty
//   comment per unrecognised line; comments are placed the way the loader
//   places them;
// - makes each element one arena object through std::allocate_shared, with
//   a vtable, a weak self pointer (enable_shared_from_this) and one observer
//   registration (parent, key, options); a section holds its current and its
//   initial list, the document its list;
// - holds names, values and comment texts as counted, immutable UTF-16
//   strings, each copied out of the text in one arena block (blank lines
//   share one "\n" string, and in texts of 32 Ki units or more equal option
//   names share one string, as the library's reader does); with --slices a
//   string instead refers to the loaded text (a handle of owner, offset and
//   length), which shows what slicing would give. An option's initial name
//   and value share its current strings;
// - announces each added element to its parent with one virtual call, and
//   each option's change of name or value likewise (the writer gives every
//   option its trimmed name as it writes it, as the library's writer does);
// - sets the one value and writes the text as UTF-8 through a 64 KiB buffer,
//   by the library's line-end rules, in place (open, truncate, write, close),
//   as compare_corvane's non-atomic save does, but as it encodes: the library
//   stages the whole text in a file beside the target first, so that a lone
//   surrogate found late cannot leave the file half written;
// - runs every element's and string's destructor before it exits, then takes
//   the arena's memory back at once.
// The model itself (elements, reader, writer) is in FloorModel.h, which
// compare_small_floor shares.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <type_traits>

#include "FloorModel.h"

namespace {

using namespace floormodel;

template <class S>
int roundTrip(int argc, char** argv, bool phases) {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  const Arena::Mark start = arena().mark();
  std::shared_ptr<Document> document;
  if constexpr (std::is_same_v<S, CopiedString>) {
    // Copied strings need no UTF-16 text: ASCII is read as it is.
    std::size_t size = 0;
    const char* bytes = readBytes(argv[1], size);
    if (bytes && isASCII(bytes, size)) {
      document = std::make_shared<Document>(nullptr, size, start);
      Loader<S, char>(bytes, size, *document).load();
    }
  }
  if (!document) {
    Rep* text = readText(argv[1]);
    if (!text) {
      std::perror(argv[1]);
      return 1;
    }
    document = std::make_shared<Document>(text, text->length, start);
    Loader<S>(text, *document).load();
  }
  if (argc == 7 && !phases) return document->elements.empty() ? 1 : 0;

  if (std::strcmp(argv[5], "-") != 0 &&
      !setValueForOptionWithName(*document, S::adopt(fromUTF8(argv[3])), S::adopt(fromUTF8(argv[4])),
                                 S::adopt(fromUTF8(argv[5])))) {
    std::fprintf(stderr, "no section %s\n", argv[3]);
    return 1;
  }

  // Written in place, as compare_corvane's save (not atomic) does.
  int fd = ::open(argv[2], O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  struct stat st{};
  bool ok = fd >= 0 && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && ::ftruncate(fd, 0) == 0 &&
            writeDocument<S>(*document, fd);
  if (fd >= 0 && ::close(fd) != 0) ok = false;
  if (!ok) std::perror(argv[2]);
  if (ok && phases) {
    const auto destroyStart = Clock::now();
    document.reset();
    const auto end = Clock::now();
    std::printf("%.6f %.6f\n", std::chrono::duration<double>(end - begin).count(),
                std::chrono::duration<double>(end - destroyStart).count());
  }
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const bool slices = floormodel::takeSlicesFlag(argc, argv);
  const bool phases = argc == 7 && std::strcmp(argv[6], "phases") == 0;
  if ((argc != 6 && argc != 7) || (argc == 7 && !phases && std::strcmp(argv[6], "load") != 0)) {
    std::fprintf(stderr, "usage: compare_floor [--slices] input output section key value|- [load|phases]\n");
    return 2;
  }
  return slices ? roundTrip<SlicedString>(argc, argv, phases) : roundTrip<CopiedString>(argc, argv, phases);
}
