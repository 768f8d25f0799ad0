// Loads an INI file, edits one value, shows what changed, reverts, and prints
// the text. Usage: example [file.ini]
#include <cstdio>

#include "YIniDocument+Extensions.h"
#include "YIniStandardElementFactory.h"

namespace {

void printModified(const std::shared_ptr<YIniDocument>& document) {
  std::printf("document modified: %s\n", document->isModified() ? "yes" : "no");
  auto sections = document->sections();  // views are new lists: keep them while walking
  for (const auto& section : *sections) {
    auto options = section->options();
    for (const auto& option : *options) {
      if (option->isModified())
        std::printf("  [%s] %s: \"%s\" -> \"%s\"\n", section->name().UTF8String().c_str(),
                    option->name().UTF8String().c_str(), option->initialValue().UTF8String().c_str(),
                    option->value().UTF8String().c_str());
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* path = argc > 1 ? argv[1] : "examples/app.ini";
  auto document = YIniDocument::documentWithContentsOfFileFactory(YString(path),
                                                                  YIniStandardElementFactory::standardFactory());
  document->commit();  // the loaded state becomes the initial state

  auto window = document->sectionForName(YString("window"));
  if (!window) {
    window = YIniSection::sectionWithName(YString("window"));
    document->addElement(window);
  }
  window->setValueForOptionWithName(YString("1024"), YString("width"));
  printModified(document);

  std::printf("--- edited text ---\n%s", document->stringValue().UTF8String().c_str());
  document->revert();
  printModified(document);
  std::printf("--- after revert ---\n%s", document->stringValue().UTF8String().c_str());
  return 0;
}
