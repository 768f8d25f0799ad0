// The parsing floor: inih reads the file and calls back for every option;
// nothing is kept, edited or written.
#include <ini.h>

#include <cstdio>

namespace {
int count(void* user, const char*, const char*, const char*) {
  ++*static_cast<long*>(user);
  return 1;
}
}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s input output section key value\n", argv[0]);
    return 2;
  }
  long options = 0;
  int result = ini_parse(argv[1], count, &options);
  if (result < 0) {
    std::fprintf(stderr, "cannot read %s\n", argv[1]);
    return 1;
  }
  return options > 0 ? 0 : 1;
}
