// Every notification a host observer receives over a scripted sequence of
// edits, with the parent's and the document's flags as they stand inside each
// callback: whatever the library does to make notification cheaper must leave
// all of this exactly as it is.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <sstream>

#include "ElementTestSupport.h"
#include "FileFaultSupport.h"
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
  std::string text;  // one line per notification or step
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
  void step(const std::string& what) { text += "-- " + what + "\n"; }

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
    text += line.str() + "\n";
  }
};

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

  const std::pair<const char*, std::function<void()>> steps[] = {
      {"commit", [&] { document->commit(); }},
      {"set", [&] { s->setValueForOptionWithName(S("10"), S("k")); }},
      {"set back", [&] { k->setValue(S("1")); }},
      {"rename", [&] { s->setName(S("renamed")); }},
      {"remove", [&] { s->removeOptionWithName(S("x")); }},
      {"insert", [&] { s->insertObjectInElementsAtIndex(opt("n", "v"), 1); }},
      {"other section", [&] { t->setValueForOptionWithName(S("4"), S("y")); }},
      {"revert", [&] { document->revert(); }},
      {"commit", [&] { document->commit(); }},
      {"write", [&] { (void)document->stringValue(); }},
      {"preserved write", [&] { std::shared_ptr<YError> e; (void)document->preservedStringValueWithError(&e); }},
  };
  for (const auto& [what, act] : steps) {
    journal.step(what);
    act();
  }
  journal.unwatchAll();

  // The expected journal is kept as a text file: one line per notification
  // or step, so a change in delivery shows as a line-by-line difference.
  EXPECT_EQ(journal.text, filefault::readBytes(CORVANE_GOLDEN_DIR "/host-notifications.txt"));
}

// Writing renames each option to its own name; whether anyone hears that is
// found once per section and kept while only the library's code runs. A host
// comment whose text is asked for mid-write can register an observer on the
// document: the options written after it must then be announced to it.
// Makes "#" comments that, once armed, register an observer on the document.
struct JoiningFactory : YIniStandardElementFactory {
  YObject* document = nullptr;
  std::optional<KeyObserver> observer;
  bool armed = false;  // set once loading is over: the text is asked for then too
  std::shared_ptr<YIniComment> commentWithString(const YString& string) override;
};

struct JoiningComment : YIniComment {
  JoiningComment(const YString& text, JoiningFactory* joining) : YIniComment(text), joining(joining) {}
  YString stringValue() override {
    if (joining->armed) {
      joining->observer.emplace(*joining->document, YModifiedKey);
      joining->armed = false;
    }
    return YIniComment::stringValue();
  }
  JoiningFactory* joining;
};

std::shared_ptr<YIniComment> JoiningFactory::commentWithString(const YString& string) {
  if (string.hasPrefix(YString("#"))) return std::make_shared<JoiningComment>(string, this);
  return YIniStandardElementFactory::commentWithString(string);
}

TEST(HostNotifications, AnObserverJoiningWhileASectionIsWrittenHearsTheRenamesAfterIt) {
  // The counts are what the library announces when it keeps nothing between
  // options: each option written after the comment adds one.
  const struct {
    const char* text;
    std::size_t heard;
  } cases[] = {{"[s]\na = 0\nb = 0\n# joins\nk = 1\n", 1}, {"[s]\na = 0\n# joins\nk = 1\nx = 2\n", 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    auto factory = std::make_shared<JoiningFactory>();
    auto document = YIniDocument::documentWithFactory(factory);
    factory->document = document.get();
    document->initWithStringFactory(YString(c.text), factory);
    factory->armed = true;
    (void)document->stringValue();
    ASSERT_TRUE(factory->observer);
    EXPECT_EQ(factory->observer->count(), c.heard);
    factory->observer.reset();
  }
}

// What `journal` records of `removal` (a refusal included), then how many of
// `children` `parent` still observes.
template <class Child>
std::string removing(Journal& journal, const YArray<Child>& children, const YIniCompositeElement& parent,
                     const std::function<void()>& removal) {
  try {
    removal();
  } catch (const YInvalidArgumentException& e) {
    journal.step("refused: " + utf8(e.reason()));
  }
  journal.unwatchAll();
  std::size_t observed = 0;
  for (const auto& child : children.vector()) observed += child->observationCountForObserver(&parent, YModifiedKey);
  return journal.text + "observed=" + std::to_string(observed) + "\n";
}

// removeAllElements removes from index 0, one announced removal at a time.
// Removals it makes at once, where nobody would hear of them, must leave all a
// host can see, then and after, as one removal at a time leaves it.
TEST(HostNotifications, RemovingAllLeavesWhatRemovingOneAtATimeLeaves) {
  using Step = std::function<void(YIniDocument&, YIniSection&)>;
  auto option = [](YIniSection& s, std::size_t i) { return s.options()->objectAtIndex(i); };
  auto fresh = [] { return YIniOption::optionWithNameAndValue(S("n"), S("v")); };
  const Step commit = [](YIniDocument& d, YIniSection&) { d.commit(); };
  const std::vector<std::tuple<const char*, Step, std::string>> cases = {
      {"loaded, never committed", [](YIniDocument&, YIniSection&) {}, ""},
      {"committed", commit, ""},
      {"committed, a child changed", [&](YIniDocument& d, YIniSection& s) { d.commit(), option(s, 3)->setValue(S("w")); }, ""},
      {"grown at the end", [&](YIniDocument& d, YIniSection& s) { d.commit(); for (int i = 0; i < 20; ++i) s.addElement(fresh()); }, ""},
      {"grown at the front, back to the commit midway",
       [&](YIniDocument& d, YIniSection& s) { d.commit(); for (int i = 0; i < 20; ++i) s.insertObjectInElementsAtIndex(fresh(), 0); }, ""},
      {"shrunk", [](YIniDocument& d, YIniSection& s) { d.commit(); for (int i = 0; i < 10; ++i) s.removeObjectFromElementsAtIndex(5); }, ""},
      {"reverted: the list is immutable", [](YIniDocument& d, YIniSection&) { d.commit(), d.revert(); }, ""},
      {"reverted, then a child changed",
       [&](YIniDocument& d, YIniSection& s) { d.commit(), d.revert(), option(s, 3)->setValue(S("w")); }, ""},
      {"the host hears the section's list", commit, "section elements"},
      {"the host hears the section", commit, "section modified"},
      {"the host hears the document", commit, "document modified"},
  };
  std::string text = "[s]\n";
  for (int i = 0; i < 30; ++i) text += "k" + std::to_string(i) + " = " + std::to_string(i) + "\n";
  for (const auto& [name, prepare, heard] : cases) {
    SCOPED_TRACE(name);
    auto run = [&, &prepare = prepare, &heard = heard](bool atOnce) {
      auto document = load(text);
      auto section = document->sectionForName(S("s"));
      prepare(*document, *section);
      auto first = option(*section, 0);
      auto initial = section->elements()->copy();
      Journal journal;
      journal.document = document.get();
      journal.section = section.get();
      const unsigned options = YKeyValueObservingOptionNew | YKeyValueObservingOptionOld;
      if (heard == "section elements") journal.watch(*section, "section", YElementsKey, YKeyValueObservingOptionNew);
      if (heard == "section modified") journal.watch(*section, "section", YModifiedKey, options);
      if (heard == "document modified") journal.watch(*document, "document", YModifiedKey, options);
      std::string seen = removing(journal, *initial, *section, [&] {
        if (atOnce) section->removeAllElements();
        else while (section->elements()->count()) section->removeObjectFromElementsAtIndex(0);
      });
      auto state = [&](const char* when) {
        return std::string(when) + ": count=" + std::to_string(section->elements()->count()) + " section=" +
               std::to_string(section->isModified()) + "/" + std::to_string(section->hasModifiedElements()) +
               " document=" + std::to_string(document->isModified()) + "\n";
      };
      first->setValue(S("changed after"));  // no longer the section's: tells it nothing
      seen += state("after") + state("removed child changed");
      try {
        section->addElement(fresh());
        seen += state("added");
      } catch (const YInvalidArgumentException&) {
        seen += "adding refused\n";
      }
      document->revert();
      seen += state("reverted");
      return seen;
    };
    const std::string oneAtATime = run(false);
    EXPECT_EQ(run(true), oneAtATime);
    // The flags the removals leave, for a list that held anything at the commit.
    if (std::string(name) == "committed") {
      EXPECT_NE(oneAtATime.find("after: count=0 section=1/1 document=1"), std::string::npos) << oneAtATime;
    }
  }
}

// removeAllSections removes each section through removeElement, in list
// order; made at once where nobody would hear, the removals must leave all a
// host can see as one removal after another leaves it.
TEST(HostNotifications, RemovingAllSectionsLeavesWhatRemovingEachLeaves) {
  using Step = std::function<void(YIniDocument&)>;
  const Step commit = [](YIniDocument& d) { d.commit(); };
  const std::vector<std::tuple<const char*, Step, bool>> cases = {
      {"loaded, never committed", [](YIniDocument&) {}, false},
      {"committed", commit, false},
      {"committed, then grown", [](YIniDocument& d) { d.commit(), d.addElement(sec("n", {opt("k")})); }, false},
      {"committed, a section held twice", [](YIniDocument& d) { d.commit(), d.addElement(d.sectionForName(S("b"))); }, false},
      {"reverted: the list is immutable", [](YIniDocument& d) { d.commit(), d.revert(); }, false},
      {"the host hears the document", commit, true},
  };
  const std::string text = "# top\n[a]\nk=1\n# between\n[b]\nx=2\n[a]\ny=3\n[c]\n# end\n";
  for (const auto& [name, prepare, heard] : cases) {
    SCOPED_TRACE(name);
    auto run = [&, &prepare = prepare, &heard = heard](bool atOnce) {
      auto document = load(text);
      prepare(*document);
      auto sections = document->sections();
      Journal journal;
      journal.document = document.get();
      if (heard) journal.watch(*document, "document", YElementsKey, YKeyValueObservingOptionNew);
      std::string seen = removing(journal, *sections, *document, [&] {
        if (atOnce) document->removeAllSections();
        else for (const auto& s : sections->vector()) document->removeElement(s);
      });
      auto state = [&] { return visible(document->stringValue()) + " " + std::to_string(document->isModified()) + "\n"; };
      seen += state();
      document->revert();
      return seen + state();
    };
    EXPECT_EQ(run(true), run(false));
  }
}

}  // namespace
