// A program outside the Corvane tree, built against an installed Corvane
// (through find_package or pkg-config): loads an INI text, changes one value
// and prints the library's version and the edited text. Built with
// CORVANE_CONSUMER_PLUGIN it is a plugin instead, run by loader.c.
#include <cstdio>

#include "CorvaneVersion.h"
#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"

#ifdef CORVANE_CONSUMER_PLUGIN
extern "C" int corvane_consumer_main();
#define main corvane_consumer_main
#endif

int main() {
  auto document = YIniDocument::documentFromStringFactory(
      YString("# settings\n[window]\nwidth=800\nheight=600\n"), YIniStandardElementFactory::standardFactory());
  document->commit();
  auto window = document->sectionForName(YString("window"));
  if (!window) return 1;
  window->setValueForOptionWithName(YString("1024"), YString("width"));
  std::printf("corvane %s\n%s", CORVANE_VERSION_STRING, document->stringValue().UTF8String().c_str());
  return document->isModified() ? 0 : 1;
}
