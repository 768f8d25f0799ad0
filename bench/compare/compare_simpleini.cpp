// Round trip through SimpleIni (bytes kept as UTF-8 without conversion,
// single keys, no multi-line values).
#define SI_NO_CONVERSION
#define SI_IMPLEMENTATION  // the Debian header keeps the template bodies behind this
#include <SimpleIni.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s input output section key value\n", argv[0]);
    return 2;
  }
  CSimpleIniA ini(true, false, false);
  if (ini.LoadFile(argv[1]) < 0) {
    std::fprintf(stderr, "cannot load %s\n", argv[1]);
    return 1;
  }
  ini.SetValue(argv[3], argv[4], argv[5]);
  if (ini.SaveFile(argv[2], false) < 0) {
    std::fprintf(stderr, "cannot save %s\n", argv[2]);
    return 1;
  }
  return 0;
}
