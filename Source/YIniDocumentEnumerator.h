/// \file YIniDocumentEnumerator.h
/// The INI reader: turns text into a flat sequence of elements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "YArray.h"
#include "YIniElement.h"
#include "YIniElementFactory.h"
#include "YIniSection.h"
#include "YObject.h"
#include "YString.h"

class YIniSourceRecord;

/// Reads INI text and yields its elements one at a time, in text order: a
/// section for each header, an option for each option line with its
/// continuation lines, and a comment for each comment line, blank line,
/// header line end and stretch of unrecognised text (which is logged as
/// "Unrecognized text sequence …" and replaced by an empty comment).
///
/// Example (loading does this, and places the elements in a document):
/// @code
/// auto enumerator = YIniDocumentEnumerator::enumeratorWithStringFactory(
///     YString("[server]\nport=80\n"), YIniStandardElementFactory::standardFactory());
/// while (auto element = enumerator->nextObject())
///   std::printf("%s\n", element->description().UTF8String().c_str());
/// // the section "server", a comment holding the header's LF, the option "port" = "80"
/// @endcode
///
/// Every element is made by the factory. The enumerator holds the text, its
/// scanner and the factory, and keeps the last section it yielded. One thread at a time.
class YIniDocumentEnumerator : public YObject {
 public:
  /// An enumerator over `documentString` (a null text yields nothing).
  /// A null factory is a failed precondition ("theFactory != nil").
  YIniDocumentEnumerator(const YString& documentString, std::shared_ptr<YIniElementFactory> factory);
  ~YIniDocumentEnumerator() override;

  /// A new enumerator of class T; a null factory is a failed precondition ("factory != nil").
  template <class T = YIniDocumentEnumerator>
  static std::shared_ptr<T> enumeratorWithStringFactory(const YString& documentString,
                                                        std::shared_ptr<YIniElementFactory> factory) {
    if (!checkFactory(factory.get())) return nullptr;
    return std::make_shared<T>(documentString, std::move(factory));
  }

  /// The next element, or null when the sequence ends: at the end of the
  /// text, at a continuation line that follows no option, or at a token of
  /// an unknown class. After an early end a later call goes on with the text
  /// after it.
  virtual std::shared_ptr<YIniElement> nextObject();
  /// Every element that nextObject() still yields, up to the first null.
  std::shared_ptr<YArray<YIniElement>> allObjects();

  /// The piece [start, start + length) of `string` without leading and
  /// trailing whitespace (spaces, tabs and other space separators; line ends
  /// stay). Out-of-range pieces throw YRangeException.
  static YString extractStringStartLength(const YString& string, std::int32_t start, std::int32_t length);

  /// The last section yielded, or null before the first.
  const std::shared_ptr<YIniSection>& activeSection() const noexcept { return _activeSection; }
  /// The factory that makes every element (shared).
  const std::shared_ptr<YIniElementFactory>& factory() const noexcept { return _factory; }

 private:
  // The state of a reading: the tokens at hand and, where the line
  // recogniser is switched off, the reader's rules and their scanner.
  struct Reading;

  static bool checkFactory(const YIniElementFactory* factory);
  // Makes the next token the current one: the one read ahead, or else the
  // text's next.
  bool takeToken();
  // The elements made from the current token.
  std::shared_ptr<YIniElement> sectionFromToken();
  std::shared_ptr<YIniElement> optionFromToken();
  // Reads `ascii` (bytes below 0x80, kept alive by the caller) instead of
  // the document string, which is null: each byte is the code unit of the
  // same value, and the line recogniser reads every line.
  void readASCII(std::string_view ascii);
  // Notes in _record the element made from the text [start, end).
  void record(int kind, std::size_t start, std::size_t end, YIniElement& element, const YString& first,
              const YString& second = YString());
  // Notes in _record that reading ends at `position`, with the text from
  // there unread.
  void stopAt(std::size_t position);

  YString _documentString;
  std::unique_ptr<Reading> _reading;
  // Kept alive so that its options can be handed to the factory with it even
  // when the consumer has already let go of the section.
  std::shared_ptr<YIniSection> _activeSection;
  std::shared_ptr<YIniElementFactory> _factory;
  // While a document loads: where each yielded element came from.
  friend class YIniDocument;
  YIniSourceRecord* _record = nullptr;
};
