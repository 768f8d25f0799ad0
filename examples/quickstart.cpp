// Quick start: load an INI file, watch the document's "modified" flag while
// a value is edited and reverted, then save the edit twice: plainly, in the
// library's own layout, and with the preserving save, which keeps every byte
// the edit does not touch. Usage: quickstart IN.ini PLAIN.ini PRESERVED.ini
#include <cstdio>
#include <variant>

#include "YIniDocument+Extensions.h"
#include "YIniDocument+Preserving.h"
#include "YIniStandardElementFactory.h"

// Prints the flag each time the document announces it.
class ModifiedPrinter : public YObject {
 public:
  void observeValueForKeyPath(const YString&, YObject*, const YKeyValueChange& change, void*) override {
    std::printf("  modified: %s\n", std::get<bool>(change.newValue) ? "yes" : "no");
  }
};

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: quickstart IN.ini PLAIN.ini PRESERVED.ini\n");
    return 2;
  }
  auto document = YIniDocument::documentWithContentsOfFileFactory(YString(argv[1]),
                                                                  YIniStandardElementFactory::standardFactory());
  std::printf("loaded, modified: %s\n", document->isModified() ? "yes" : "no");  // yes: loading does not commit
  document->commit();  // the loaded state becomes the initial state
  std::printf("committed, modified: %s\n", document->isModified() ? "yes" : "no");

  auto window = document->sectionForName(YString("window"));
  if (!window) {
    std::fprintf(stderr, "quickstart: %s has no [window] section\n", argv[1]);
    return 1;
  }
  ModifiedPrinter printer;
  document->addObserver(&printer, YModifiedKey, YKeyValueObservingOptionNew, nullptr);
  std::printf("set width = 1024\n");
  window->setValueForOptionWithName(YString("1024"), YString("width"));
  std::printf("revert\n");
  document->revert();
  std::printf("set width = 1024 again\n");
  window->setValueForOptionWithName(YString("1024"), YString("width"));
  document->removeObserver(&printer, YModifiedKey);  // before the observer goes away

  std::shared_ptr<YError> error;
  if (!document->writeToFileAtomicallyEncodingError(YString(argv[2]), true, YUTF8StringEncoding, &error) ||
      !document->writePreservedToFileError(YString(argv[3]), &error)) {
    std::fprintf(stderr, "quickstart: %s\n", error->localizedDescription().UTF8String().c_str());
    return 1;
  }
  std::printf("saved %s (plain) and %s (preserving)\n", argv[2], argv[3]);
  return 0;
}
