// The preserving save's property, shared by a test suite and a fuzz target:
// load a text, apply random edits through the public interface, save
// preserved and load the result. Then
// - the sections and options read back (names, values, order) are those of
//   the edited tree, as the reader normalises names and values;
// - every line of the original that no edit touched is in the result, byte
//   for byte, in order.
// Text that would not read back may instead fail the save with
// YIniTextWouldNotReadBackError; nothing else may go wrong.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "YFoundation.h"
#include "YIniComment.h"
#include "YIniDocument.h"
#include "YIniOption.h"
#include "YIniSection.h"
#include "YIniStandardElementFactory.h"

namespace preservingproperty {

/// A number below `bound` (bound > 0), from a seed or from fuzz input.
using Choice = std::function<unsigned(unsigned bound)>;

inline std::u16string trimmedText(std::u16string_view text, bool newlines) {
  const YCharacterSet set =
      newlines ? YCharacterSet::whitespaceAndNewlineCharacterSet() : YCharacterSet::whitespaceCharacterSet();
  std::size_t b = 0, e = text.size();
  while (b < e && set.characterIsMember(text[b])) ++b;
  while (e > b && set.characterIsMember(text[e - 1])) --e;
  return std::u16string(text.substr(b, e - b));
}

/// A value as the reader gives it back: lines trimmed, joined by LF and one space.
inline std::u16string readValue(std::u16string_view value) {
  std::u16string out;
  for (std::size_t start = 0;;) {
    const std::size_t lf = value.find(u'\n', start);
    out += trimmedText(value.substr(start, lf == std::u16string_view::npos ? lf : lf - start), true);
    if (lf == std::u16string_view::npos) return out;
    out += u"\n ";
    start = lf + 1;
  }
}

/// Sections and options, one line each, as the reader would give them back.
inline std::vector<std::u16string> outline(YIniDocument& document) {
  std::vector<std::u16string> out;
  auto sections = document.sections();
  for (const auto& section : *sections) {
    out.push_back(std::u16string(u"[").append(trimmedText(section->name().view(), false)).append(u"]"));
    auto options = section->options();
    for (const auto& option : *options) {
      if (option->name().isNull() || option->value().isNull()) continue;
      const std::u16string name = trimmedText(option->name().view(), false);
      if (name.empty()) continue;  // the writers leave such options out
      out.push_back(name + u"=" + readValue(option->value().view()));
    }
  }
  return out;
}

inline std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t lf = text.find('\n', start);
    std::size_t end = lf == std::string::npos ? text.size() : lf + 1;
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

struct Outcome {
  bool ok = true;
  std::string failure;  // what went wrong, when not ok
  bool refused = false;  // the save refused text that would not read back
};

class Checker {
 public:
  Checker(const YString& text, Choice choice) : _text(text), _choice(std::move(choice)) {}

  Outcome run(unsigned edits) {
    auto factory = YIniStandardElementFactory::standardFactory();
    _document = YIniDocument::documentFromStringFactory(_text, factory);
    rememberLoaded();
    for (unsigned i = 0; i < edits; ++i) edit();
    std::shared_ptr<YError> error;
    const YString saved = _document->preservedStringValueWithError(&error);
    if (Outcome twin = checkBytesTwin(edits, saved); !twin.ok) return twin;
    if (saved.isNull()) {
      if (error && error->code() == YIniTextWouldNotReadBackError) return {true, "", true};
      return {false, std::string("the preserving save failed: ").append(error ? error->description().UTF8String() : "no error")};
    }
    auto reloaded = YIniDocument::documentFromStringFactory(saved, factory);
    if (outline(*reloaded) != outline(*_document)) return {false, std::string("read back differs:\n").append(saved.UTF8String())};
    return checkUntouchedLines(saved.UTF8String());
  }

 private:
  // Loaded elements are held, so that no new element can take an address
  // that one of them had.
  struct Loaded {
    std::shared_ptr<YIniElement> element;
    std::shared_ptr<YIniElement> parentHeld;
    std::size_t line;
    std::size_t lines;  // how many lines the element spans
    YIniCompositeElement* parent;
    YString a, b;  // name or text, value
  };

  unsigned pick(unsigned bound) {
    if (!bound) return 0;
    if (_replay) return _next < _picks.size() ? _picks[_next++] % bound : 0;
    _picks.push_back(_choice(bound));
    return _picks.back();
  }

  // Whether loading the text's UTF-8 bytes reads them as ASCII, not decoded:
  // no unit is NUL or above 0x7F.
  bool isPlainASCII() const {
    for (char16_t c : _text.view())
      if (c == 0 || c >= 0x80) return false;
    return true;
  }

  // The document's queries of its source, for comparing two loads.
  static std::string sourceAnswers(YIniDocument& document) {
    std::string out = std::to_string(document.readingStopLineNumber()) + "|" +
                      document.readingStopLineText().UTF8String() + "|";
    for (const auto& head : document.headOptions())
      out += head.name.UTF8String() + "=" + head.value.UTF8String() + "@" + std::to_string(head.lineNumber) + "|";
    for (const auto& child : document.elements()->vector()) {
      out += std::to_string(document.lineNumberForElement(*child)) + ",";
      if (auto section = YCast<YIniSection>(child))
        for (const auto& grandchild : section->elements()->vector())
          out += std::to_string(document.lineNumberForElement(*grandchild)) + ",";
    }
    return out;
  }

  // ASCII text loaded from bytes is kept as bytes, not decoded to UTF-16:
  // the same edits on the bytes' document must answer and save exactly as
  // on the string's.
  Outcome checkBytesTwin(unsigned edits, const YString& saved) {
    if (_replay || !isPlainASCII()) return {};
    Checker twin(_text, nullptr);
    twin._replay = true;
    twin._picks = _picks;
    auto factory = YIniStandardElementFactory::standardFactory();
    twin._document = YIniDocument::documentWithDataFactory(_text.UTF8String(), factory);
    auto fresh = YIniDocument::documentFromStringFactory(_text, factory);
    if (sourceAnswers(*twin._document) != sourceAnswers(*fresh))
      return {false, "the bytes' document answers otherwise after loading"};
    for (unsigned i = 0; i < edits; ++i) twin.edit();
    if (sourceAnswers(*twin._document) != sourceAnswers(*_document))
      return {false, "the bytes' document answers otherwise after the edits"};
    std::shared_ptr<YError> error;
    const YString twinSaved = twin._document->preservedStringValueWithError(&error);
    if (twinSaved.isNull() != saved.isNull() || (!saved.isNull() && twinSaved != saved))
      return {false, std::string("the bytes' document saves otherwise:\n").append(twinSaved.isNull() ? "(refused)" : twinSaved.UTF8String())};
    if (saved.isNull()) return {};
    const auto bytes = twin._document->preservedDataWithError(&error);
    if (!bytes || *bytes != saved.UTF8String()) return {false, "the bytes' document encodes otherwise"};
    return {};
  }

  std::shared_ptr<YIniElement> parentHeld(YIniCompositeElement* parent) {
    return std::static_pointer_cast<YIniElement>(parent->shared_from_this());
  }

  // Calls `visit` with each child of the document and of its sections, and its parent.
  template <class Visit>
  void eachElement(Visit visit) {
    for (const auto& child : _document->elements()->vector()) {
      visit(child, _document.get());
      if (auto section = YCast<YIniSection>(child))
        for (const auto& grandchild : section->elements()->vector()) visit(grandchild, section.get());
    }
  }

  void rememberLoaded() {
    auto note = [&](const std::shared_ptr<YIniElement>& element, YIniCompositeElement* parent) {
      Loaded loaded{element, parentHeld(parent), _document->lineNumberForElement(*element), 1, parent, {}, {}};
      if (auto* section = YCast<YIniSection>(element.get())) loaded.a = section->name();
      else if (auto* option = YCast<YIniOption>(element.get())) {
        loaded.a = option->name();
        loaded.b = option->value();
        for (char16_t c : option->value().view()) loaded.lines += c == u'\n';
      } else if (auto* comment = YCast<YIniComment>(element.get())) {
        loaded.a = comment->stringValue();
      }
      if (loaded.line) _loaded.emplace(element.get(), loaded);
    };
    eachElement(note);
  }

  YString pickText(bool name) {
    static const char16_t* const names[] = {u"k", u"key", u"a b", u"x", u"long_name", u"\u00E9t\u00E9", u" padded "};
    static const char16_t* const values[] = {u"v", u"", u"1", u"with = sign", u"two\n lines", u"a\n b\n c",
                                             u" spaced ", u"#hash", u"[x]"};
    if (pick(16) == 0) {  // now and then something that cannot be written back
      static const char16_t* const odd[] = {u"k=v", u"#c", u"[s]", u"a\n", u" lead"};
      return YString(odd[pick(5)]);
    }
    return name ? YString(names[pick(7)]) : YString(values[pick(9)]);
  }

  void touch(YIniElement* element) { _touched.insert(element); }

  // Marks the element before `index` in `parent` (or the parent itself):
  // a change right after a line may give that line another line end.
  void touchBefore(YIniCompositeElement& parent, std::size_t index) {
    if (index == 0) touch(&parent);
    else touch(parent.elementsList()->objectAtIndex(index - 1).get());
  }

  void edit() {
    const auto sections = _document->sections();
    const auto count = static_cast<unsigned>(sections->count());
    auto section = count ? sections->objectAtIndex(pick(count)) : nullptr;
    try {
      switch (pick(10)) {
        case 0:
        case 1: {  // set a value, new or existing
          if (!section) return;
          auto names = section->optionNames();
          YString name = !names.empty() && pick(3) ? names[pick(static_cast<unsigned>(names.size()))] : pickText(true);
          if (auto option = section->optionWithName(name)) touch(option.get());
          else touchBefore(*section, section->elements()->count());
          section->setValueForOptionWithName(pickText(false), name);
          break;
        }
        case 2: {  // rename an option or a section
          if (!section) return;
          auto options = section->options();
          if (options->count() && pick(2)) {
            auto option = options->objectAtIndex(pick(static_cast<unsigned>(options->count())));
            touch(option.get());
            option->setName(pickText(true));
          } else {
            touch(section.get());
            section->setName(pickText(true));
          }
          break;
        }
        case 3:
        case 4: {  // remove a child of a section
          if (!section || section->elements()->count() == 0) return;
          const std::size_t index = pick(static_cast<unsigned>(section->elements()->count()));
          touch(section->elementsList()->objectAtIndex(index).get());
          touchBefore(*section, index);
          section->removeObjectFromElementsAtIndex(index);
          break;
        }
        case 5: {  // insert an option or a comment anywhere in a section
          if (!section) return;
          const std::size_t index = pick(static_cast<unsigned>(section->elements()->count() + 1));
          touchBefore(*section, index);
          std::shared_ptr<YIniElement> element;
          switch (pick(3)) {
            case 0: element = YIniComment::commentWithNewLine(); break;
            case 1: element = YIniComment::commentWithString(YString(u"# added")); break;
            default: element = YIniOption::optionWithNameAndValue(pickText(true), pickText(false));
          }
          section->insertObjectInElementsAtIndex(element, index);
          break;
        }
        case 6: {  // remove a section, or add one after the first
          auto children = _document->elements();
          if (section && pick(2)) {
            const std::size_t index = children->indexOfObject(section);
            touch(section.get());
            touchBefore(*_document, index);
            _document->removeObjectFromElementsAtIndex(index);
          } else if (section) {
            const std::size_t index = children->indexOfObject(section) + 1;
            touchBefore(*_document, index);
            auto added = YIniSection::sectionWithName(pickText(true));
            added->setValueForOptionWithName(pickText(false), pickText(true));
            _document->insertObjectInElementsAtIndex(added, index);
          }
          break;
        }
        case 7: _document->commit(); break;
        case 8: _document->revert(); break;
        default:
          if (section) {
            touch(section.get());
            section->revert();
          }
      }
    } catch (const YException&) {
      // Lists are immutable after a revert until setElements: such an edit
      // is refused by the model itself and changes nothing.
    }
  }

  bool unchanged(YIniElement* element, const Loaded& loaded) const {
    if (auto* section = dynamic_cast<YIniSection*>(element)) return section->name() == loaded.a;
    if (auto* option = dynamic_cast<YIniOption*>(element))
      return option->name() == loaded.a && option->value() == loaded.b;
    if (auto* comment = dynamic_cast<YIniComment*>(element)) return comment->stringValue() == loaded.a;
    return false;
  }

  Outcome checkUntouchedLines(const std::string& saved) {
    const std::vector<std::string> original = splitLines(_text.UTF8String());
    std::vector<bool> untouched(original.size(), true);
    // Lines of elements that are gone, moved to another parent, changed or
    // touched, and lines after which something was inserted.
    std::map<YIniElement*, YIniCompositeElement*> parentNow;
    eachElement(
        [&](const std::shared_ptr<YIniElement>& e, YIniCompositeElement* parent) { parentNow[e.get()] = parent; });
    for (const auto& [element, loaded] : _loaded) {
      const auto now = parentNow.find(element);
      const bool kept = now != parentNow.end() && now->second == loaded.parent && !_touched.count(element) &&
                        unchanged(element, loaded);
      if (kept) continue;
      for (std::size_t line = loaded.line; line < loaded.line + loaded.lines && line <= original.size(); ++line)
        untouched[line - 1] = false;
    }
    const std::vector<std::string> result = splitLines(saved);
    std::size_t at = 0;
    for (std::size_t i = 0; i < original.size(); ++i) {
      if (!untouched[i]) continue;
      // The last line may gain a line end when something follows it.
      const std::string& line = original[i];
      while (at < result.size() && result[at] != line &&
             !(i + 1 == original.size() && result[at].rfind(line, 0) == 0 && line.find('\n') == std::string::npos))
        ++at;
      if (at == result.size())
        return {false, std::string("untouched line ").append(std::to_string(i + 1)).append(" \"").append(line).append("\" is missing:\n").append(saved)};
      ++at;
    }
    return {};
  }

  YString _text;
  Choice _choice;
  std::vector<unsigned> _picks;  // every choice made, for a twin to replay
  bool _replay = false;
  std::size_t _next = 0;
  std::shared_ptr<YIniDocument> _document;
  std::map<YIniElement*, Loaded> _loaded;
  std::set<YIniElement*> _touched;
};

}  // namespace preservingproperty
