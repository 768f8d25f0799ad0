// Every notification a host observer receives over a scripted sequence of
// edits, with the parent's and the document's flags as they stand inside each
// callback: whatever the library does to make notification cheaper must leave
// all of this exactly as it is.
#include <gtest/gtest.h>

#include <sstream>

#include "ElementTestSupport.h"
#include "ReadingSupport.h"
#include "YIniDocument.h"

namespace {

class Journal : public YObject {
 public:
  struct Watch {
    YObject* object;
    std::string name;
    YString key;
  };
  std::vector<Watch> watches;
  std::vector<std::string> lines;
  YIniDocument* document = nullptr;
  YIniSection* section = nullptr;

  void watch(YObject& object, const std::string& name, const YString& key, unsigned options) {
    object.addObserver(this, key, options, nullptr);
    watches.push_back({&object, name, key});
  }
  void unwatchAll() {
    for (const Watch& w : watches) w.object->removeObserver(this, w.key);
    watches.clear();
  }
  void step(const std::string& what) { lines.push_back(std::string("-- ").append(what)); }

  void observeValueForKeyPath(const YString& keyPath, YObject* object, const YKeyValueChange& change,
                              void*) override {
    std::ostringstream line;
    for (const Watch& w : watches)
      if (w.object == object && w.key == keyPath) line << w.name;
    line << " " << utf8(keyPath) << " kind=" << static_cast<unsigned>(change.kind);
    if (change.isPrior) line << " prior";
    if (auto* b = std::get_if<bool>(&change.newValue)) line << " new=" << *b;
    if (auto* o = std::get_if<std::shared_ptr<YObject>>(&change.newValue))
      line << " new=[" << (*o ? std::static_pointer_cast<YArray<YObject>>(*o)->count() : 0) << "]";
    if (auto* b = std::get_if<bool>(&change.oldValue)) line << " old=" << *b;
    if (change.indexes.count()) line << " at=" << change.indexes.firstIndex();
    line << " | section=" << (section ? section->isModified() : -1) << " document=" << document->isModified();
    lines.push_back(line.str());
  }
};

std::string joined(const std::vector<std::string>& lines) {
  std::string out;
  for (const auto& l : lines) out += l + "\n";
  return out;
}

TEST(HostNotifications, ScriptedSequenceDeliversExactlyThis) {
  auto document = YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory());
  Journal journal;
  journal.document = document.get();
  const unsigned all = YKeyValueObservingOptionNew | YKeyValueObservingOptionOld | YKeyValueObservingOptionPrior;
  journal.watch(*document, "document", YModifiedKey, all);
  journal.watch(*document, "document", YElementsKey, YKeyValueObservingOptionNew);

  journal.step("load");
  document->initWithStringFactory(YString("# top\n[s]\nk = 1\nx = 2\n[t]\ny = 3\n"),
                                  YIniStandardElementFactory::standardFactory());
  auto s = document->sectionForName(S("s"));
  auto t = document->sectionForName(S("t"));
  auto k = s->optionWithName(S("k"));
  journal.section = s.get();
  journal.watch(*s, "section", YModifiedKey, YKeyValueObservingOptionNew);
  journal.watch(*s, "section", YElementsKey, YKeyValueObservingOptionNew);
  journal.watch(*k, "option", YModifiedKey, YKeyValueObservingOptionNew | YKeyValueObservingOptionOld);

  journal.step("commit");
  document->commit();
  journal.step("set");
  s->setValueForOptionWithName(S("10"), S("k"));
  journal.step("set back");
  k->setValue(S("1"));
  journal.step("rename");
  s->setName(S("renamed"));
  journal.step("remove");
  s->removeOptionWithName(S("x"));
  journal.step("insert");
  s->insertObjectInElementsAtIndex(opt("n", "v"), 1);
  journal.step("other section");
  t->setValueForOptionWithName(S("4"), S("y"));
  journal.step("revert");
  document->revert();
  journal.step("commit");
  document->commit();
  journal.step("write");
  (void)document->stringValue();
  journal.step("preserved write");
  std::shared_ptr<YError> error;
  (void)document->preservedStringValueWithError(&error);
  journal.unwatchAll();

  EXPECT_EQ(joined(journal.lines), R"(-- load
document modified kind=1 prior old=0 | section=-1 document=0
document modified kind=1 new=1 old=0 | section=-1 document=1
document elements kind=2 new=[1] at=0 | section=-1 document=1
document modified kind=1 prior old=1 | section=-1 document=1
document modified kind=1 new=1 old=1 | section=-1 document=1
document elements kind=2 new=[1] at=1 | section=-1 document=1
document modified kind=1 prior old=1 | section=-1 document=1
document modified kind=1 new=1 old=1 | section=-1 document=1
document elements kind=2 new=[1] at=2 | section=-1 document=1
document modified kind=1 prior old=1 | section=-1 document=1
document modified kind=1 new=1 old=1 | section=-1 document=1
document modified kind=1 prior old=1 | section=-1 document=1
document modified kind=1 new=1 old=1 | section=-1 document=1
document modified kind=1 prior old=1 | section=-1 document=1
document modified kind=1 new=1 old=1 | section=-1 document=1
document modified kind=1 prior old=1 | section=-1 document=1
document modified kind=1 new=1 old=1 | section=-1 document=1
document elements kind=2 new=[1] at=3 | section=-1 document=1
document modified kind=1 prior old=1 | section=-1 document=1
document modified kind=1 new=1 old=1 | section=-1 document=1
document modified kind=1 prior old=1 | section=-1 document=1
document modified kind=1 new=1 old=1 | section=-1 document=1
-- commit
option modified kind=1 new=0 old=0 | section=1 document=1
section modified kind=1 new=0 | section=0 document=1
document modified kind=1 prior old=1 | section=0 document=1
document modified kind=1 new=0 old=1 | section=0 document=0
-- set
document modified kind=1 prior old=0 | section=1 document=0
document modified kind=1 new=1 old=0 | section=1 document=1
section modified kind=1 new=1 | section=1 document=1
option modified kind=1 new=1 old=0 | section=1 document=1
-- set back
document modified kind=1 prior old=1 | section=0 document=1
document modified kind=1 new=0 old=1 | section=0 document=0
section modified kind=1 new=0 | section=0 document=0
option modified kind=1 new=0 old=1 | section=0 document=0
-- rename
document modified kind=1 prior old=0 | section=1 document=0
document modified kind=1 new=1 old=0 | section=1 document=1
section modified kind=1 new=1 | section=1 document=1
-- remove
document modified kind=1 prior old=1 | section=1 document=1
document modified kind=1 new=1 old=1 | section=1 document=1
section modified kind=1 new=1 | section=1 document=1
section elements kind=3 at=2 | section=1 document=1
-- insert
document modified kind=1 prior old=1 | section=1 document=1
document modified kind=1 new=1 old=1 | section=1 document=1
section modified kind=1 new=1 | section=1 document=1
section elements kind=2 new=[1] at=1 | section=1 document=1
-- other section
document modified kind=1 prior old=1 | section=1 document=1
document modified kind=1 new=1 old=1 | section=1 document=1
-- revert
option modified kind=1 new=0 old=0 | section=1 document=1
section modified kind=1 new=0 | section=0 document=1
document modified kind=1 prior old=1 | section=0 document=1
document modified kind=1 new=0 old=1 | section=0 document=0
-- commit
option modified kind=1 new=0 old=0 | section=0 document=0
section modified kind=1 new=0 | section=0 document=0
document modified kind=1 prior old=0 | section=0 document=0
document modified kind=1 new=0 old=0 | section=0 document=0
-- write
option modified kind=1 new=0 old=0 | section=0 document=0
section modified kind=1 new=0 | section=0 document=0
document modified kind=1 prior old=0 | section=0 document=0
document modified kind=1 new=0 old=0 | section=0 document=0
section modified kind=1 new=0 | section=0 document=0
document modified kind=1 prior old=0 | section=0 document=0
document modified kind=1 new=0 old=0 | section=0 document=0
document modified kind=1 prior old=0 | section=0 document=0
document modified kind=1 new=0 old=0 | section=0 document=0
-- preserved write
)");
}

}  // namespace
