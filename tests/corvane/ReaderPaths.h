// Reading one text both ways the reader can cut it into tokens, the line
// recogniser and the scanner's regular expressions alone, and comparing
// everything a host could observe; shared by a test suite and a fuzz target.
#pragma once

#include <cstddef>
#include <exception>
#include <string>
#include <vector>

#include "ReadingSupport.h"
#include "YIniDocumentEnumerator.h"
#include "YIniLineRecognizer.h"
#include "YRuleBasedScanner.h"

namespace readerpaths {

/// Sets the way readers made while it lives cut their text; restores the
/// previous way on destruction.
class RecognizerSwitch {
 public:
  explicit RecognizerSwitch(bool enabled) : _previous(YIniLineRecognizer::isEnabled()) {
    YIniLineRecognizer::setEnabled(enabled);
  }
  ~RecognizerSwitch() { YIniLineRecognizer::setEnabled(_previous); }
  RecognizerSwitch(const RecognizerSwitch&) = delete;
  RecognizerSwitch& operator=(const RecognizerSwitch&) = delete;

 private:
  bool _previous;
};

/// What reading a text gives a host.
struct Reading {
  std::vector<std::string> sequence;  // the reader's elements, "END" for each null, past early ends
  std::vector<std::string> tree;      // the loaded document, sections with their children
  std::vector<std::size_t> lines;     // the line of each loaded element, in tree order
  bool stopped = false;               // the document's readingStopped()
  std::u16string plain;               // stringValue()
  std::string preserved;              // the preserving save's bytes, or its error
  std::vector<std::string> log;       // "Unrecognized text sequence" lines
  std::string failure;                // an exception's message, if one ended the reading

  bool operator==(const Reading&) const = default;
};

/// Whether loading the text's UTF-8 bytes reads them as they are (no unit is
/// NUL or above 0x7F) rather than decoding them.
inline bool isPlainASCII(const YString& text) {
  for (char16_t c : text.view())
    if (c == 0 || c >= 0x80) return false;
  return true;
}

namespace detail {

inline void lineNumbers(YIniDocument& document, const std::shared_ptr<YArray<YIniElement>>& elements,
                        std::vector<std::size_t>& out) {
  for (const auto& element : elements->vector()) {
    out.push_back(document.lineNumberForElement(*element));
    if (auto section = std::dynamic_pointer_cast<YIniSection>(element))
      lineNumbers(document, section->elements(), out);
  }
}

inline std::string firstDifference(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  for (std::size_t i = 0; i < a.size() || i < b.size(); ++i) {
    const std::string x = i < a.size() ? a[i] : "(none)", y = i < b.size() ? b[i] : "(none)";
    if (x != y) return "at " + std::to_string(i) + ": " + x.substr(0, 200) + " | " + y.substr(0, 200);
  }
  return "";
}

inline std::string describe(const YTokenMatch& token) {
  auto name = [](const YTokenClass* c) { return c ? c->name().UTF8String() : std::string("?"); };
  std::string out = name(token.tokenClass) + "@" + std::to_string(token.position) + "+" + std::to_string(token.length);
  for (const auto& sub : token.subtokens)
    out += " " + name(sub.tokenClass) + "@" + std::to_string(sub.position) + "+" + std::to_string(sub.length);
  return out;
}

}  // namespace detail

/// Empty when the recogniser describes every token of `text` as the reader's
/// own rules make it (class, range and subtokens); otherwise the first
/// difference. Where the recogniser declines, the reader asks the rules, so
/// that is no difference.
inline std::string tokenDifference(const YString& text) {
  YIniReaderClasses classes;
  const std::pair<std::shared_ptr<YTokenClass>*, const char16_t*> named[] = {
      {&classes.comment, u"comment"}, {&classes.newLine, u"newLine"},
      {&classes.section, u"section"}, {&classes.option, u"option"},
      {&classes.fragment, u"fragment"}, {&classes.fragmentTerminating, u"fragmentTerminating"},
      {&classes.optionTerminating, u"optionTerminating"}, {&classes.unknown, u"unknown"},
      {&classes.key, u"key"}, {&classes.value, u"value"}};
  for (const auto& [field, name] : named) *field = YTokenClass::tokenClass(YString(name));
  auto scanner = YRuleBasedScanner::scannerForStreamWithRules(
      YUnicharStream::streamWithBuffer(YStringBuffer::bufferFromString(text)), YIniReaderRules(classes));
  const YIniLineRecognizer::Classes recognized = classes.classes();
  YTokenMatch expected, actual;
  // ASCII text loaded from bytes is read as bytes: the recogniser must cut
  // them as it cuts the same text in UTF-16.
  const std::string bytes = isPlainASCII(text) ? text.UTF8String() : std::string();
  try {
    while (scanner->nextMatch(expected)) {
      const auto position = static_cast<std::size_t>(expected.position);
      if (!bytes.empty()) {
        YIniLineRecognizer::Line wide{}, narrow{};
        const bool a = YIniLineRecognizer::lineAtPosition(text.view(), position, wide);
        const bool b = YIniLineRecognizer::lineAtPosition(std::string_view(bytes), position, narrow);
        auto fields = [](const YIniLineRecognizer::Line& l) {
          return std::to_string(static_cast<int>(l.kind)) + "@" + std::to_string(l.start) + "-" +
                 std::to_string(l.end) + " " + std::to_string(l.keyStart) + "-" + std::to_string(l.keyEnd) + " " +
                 std::to_string(l.valueStart) + "-" + std::to_string(l.valueEnd);
        };
        if (a != b || (a && fields(wide) != fields(narrow)))
          return "bytes cut as " + fields(narrow) + " where UTF-16 is cut as " + fields(wide);
      }
      if (!YIniLineRecognizer::tokenAtPosition(text.view(), position, recognized, actual)) continue;
      // Every class has a name of its own, so the descriptions differ exactly where the tokens do.
      const std::string made = detail::describe(actual), ruled = detail::describe(expected);
      if (made != ruled) return "token " + made + " where the rules make " + ruled;
    }
  } catch (const std::exception& e) {
    return std::string("the rules failed: ") + e.what();
  }
  return "";
}

/// What the document `load` gives loads into, read as `read` does (the
/// enumerator's sequence left out).
template <class Load>
inline Reading readDocument(Load load) {
  Reading reading;
  LogCapture log;
  try {
    auto document = load();
    reading.tree = describeAll(document->elements(), true);
    detail::lineNumbers(*document, document->elements(), reading.lines);
    reading.stopped = document->readingStopped();
    reading.plain = document->stringValue().u16string();
    reading.preserved = preservedBytes(*document);
  } catch (const std::exception& e) {
    reading.failure = e.what();
  }
  reading.log = log.lines;
  return reading;
}

/// Reads `text` with the recogniser (true) or the regular expressions alone.
inline Reading read(const YString& text, bool recognizer) {
  RecognizerSwitch way(recognizer);
  const auto factory = YIniStandardElementFactory::standardFactory();
  std::vector<std::string> sequence;
  std::vector<std::string> sequenceLog;
  {
    LogCapture log;
    try {
      auto enumerator = YIniDocumentEnumerator::enumeratorWithStringFactory(text, factory);
      // After an early end (a stray continuation line) the reader goes on;
      // at the end of the text it yields null for ever.
      for (int nulls = 0; nulls < 8;) {
        auto element = enumerator->nextObject();
        if (!element) {
          sequence.push_back("END");
          ++nulls;
          continue;
        }
        nulls = 0;
        describeElement(element, sequence, false);
      }
    } catch (const std::exception& e) {
      Reading failed;
      failed.sequence = std::move(sequence);
      failed.failure = e.what();
      failed.log = log.lines;
      return failed;
    }
    sequenceLog = log.lines;
  }
  Reading reading = readDocument([&] { return YIniDocument::documentFromStringFactory(text, factory); });
  reading.sequence = std::move(sequence);
  reading.log.insert(reading.log.begin(), sequenceLog.begin(), sequenceLog.end());
  return reading;
}

/// Empty when two readings are alike; otherwise the first field that differs.
inline std::string difference(const Reading& a, const Reading& b) {
  if (a == b) return "";
  if (a.failure != b.failure) return "failure: " + a.failure + " | " + b.failure;
  if (a.sequence != b.sequence) return "element sequence " + detail::firstDifference(a.sequence, b.sequence);
  if (a.tree != b.tree) return "tree " + detail::firstDifference(a.tree, b.tree);
  if (a.lines != b.lines) return "line numbers differ";
  if (a.stopped != b.stopped) return "readingStopped differs";
  if (a.plain != b.plain) return "stringValue differs";
  if (a.preserved != b.preserved) return "preserved bytes differ";
  return "log " + detail::firstDifference(a.log, b.log);
}

/// Empty when ASCII `text` loads from its bytes as from itself; otherwise
/// what differs first.
inline std::string bytesDifference(const YString& text) {
  const auto factory = YIniStandardElementFactory::standardFactory();
  const Reading fromText = readDocument([&] { return YIniDocument::documentFromStringFactory(text, factory); });
  const Reading fromBytes = readDocument([&] { return YIniDocument::documentWithDataFactory(text.UTF8String(), factory); });
  const std::string found = difference(fromBytes, fromText);
  return found.empty() ? found : "bytes: " + found;
}

/// Empty when both ways cut `text` into the same tokens and read it alike,
/// and ASCII text loads from its bytes as from itself; otherwise what
/// differs first.
inline std::string compare(const YString& text) {
  if (std::string tokens = tokenDifference(text); !tokens.empty()) return tokens;
  if (isPlainASCII(text))
    if (std::string bytes = bytesDifference(text); !bytes.empty()) return bytes;
  return difference(read(text, true), read(text, false));
}

}  // namespace readerpaths
