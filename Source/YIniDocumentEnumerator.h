/// \file YIniDocumentEnumerator.h
/// The INI reader: turns text into a flat sequence of elements.
#pragma once

#include <cstdint>
#include <memory>

#include "YArray.h"
#include "YIniElement.h"
#include "YIniElementFactory.h"
#include "YIniSection.h"
#include "YObject.h"
#include "YString.h"

#include "YToken.h"

class YIniSourceRecord;
class YRuleBasedScanner;
class YUnicharStream;
class YTokenClass;

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
  static bool checkFactory(const YIniElementFactory* factory);
  bool takeToken(YTokenMatch& token);
  // The next token, from the line recogniser or else the scanner.
  bool scan(YTokenMatch& token);
  // The reader's rules and their scanner, needed only where the line
  // recogniser is switched off.
  void makeScanner();
  std::shared_ptr<YIniElement> sectionFromToken(const YTokenMatch& token);
  std::shared_ptr<YIniElement> optionFromToken(const YTokenMatch& token);
  YString tokenText(const YTokenMatch& token) const;
  bool isFragment(const YTokenMatch& token) const noexcept;
  // Notes the element made from the current token, ending at `end`, in _record.
  void record(int kind, std::int32_t end, YIniElement& element, const YString& first,
              const YString& second = YString());

  YString _documentString;
  std::shared_ptr<YTokenClass> _commentLiteral;
  std::shared_ptr<YTokenClass> _sectionLiteral;
  std::shared_ptr<YTokenClass> _optionLiteral;
  std::shared_ptr<YTokenClass> _optionLiteralTerminating;
  std::shared_ptr<YTokenClass> _optionFragmentLiteral;
  std::shared_ptr<YTokenClass> _optionFragmentLiteralTerminating;
  std::shared_ptr<YTokenClass> _keyLiteral;
  std::shared_ptr<YTokenClass> _valueLiteral;
  std::shared_ptr<YTokenClass> _singleNewLineLiteral;
  std::shared_ptr<YTokenClass> _unknownLiteral;
  std::shared_ptr<YUnicharStream> _stream;
  std::shared_ptr<YRuleBasedScanner> _scanner;  // made when first needed
  bool _recognizesLines = false;  // tokens come from YIniLineRecognizer
  // Kept alive so that its options can be handed to the factory with it even
  // when the consumer has already let go of the section.
  std::shared_ptr<YIniSection> _activeSection;
  YTokenMatch _activeToken;  // pushed back when _hasActiveToken
  bool _hasActiveToken = false;
  YTokenMatch _token;  // the token being read
  std::shared_ptr<YIniElementFactory> _factory;
  // While a document loads: where each yielded element came from.
  friend class YIniDocument;
  YIniSourceRecord* _record = nullptr;
};
