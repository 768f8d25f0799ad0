#include "YTextWritable.h"

void YTextWritable::write(const std::shared_ptr<YTextWriter>&) { doesNotRecognizeSelector("write:"); }

void YTextWritable::writeToWriter(const std::shared_ptr<YArray<YTextWritable>>& list,
                                  const std::shared_ptr<YTextWriter>& writer) {
  if (!list) return;
  for (const auto& writable : *list) writable->write(writer);
  list->removeAllObjects();
}
