/// \file YIniComment.h
/// A comment line, a blank line, or any text kept as it was read.
#pragma once

#include <memory>

#include "YIniElement.h"

/// A leaf holding text exactly as it is written out ("\n" stands for a blank
/// line). The text may be null; null and "" compare as different.
class YIniComment : public YIniElement {
 public:
  /// A comment holding `string` (kept as passed); its initial text is a copy.
  explicit YIniComment(const YString& string);

  /// A new plain YIniComment, whatever class a host derives from it.
  static std::shared_ptr<YIniComment> commentWithString(const YString& string);
  /// A new comment holding "\n" (a blank line).
  static std::shared_ptr<YIniComment> commentWithNewLine();

  /// The current text (the same string object; null if null).
  YString stringValue() override;
  /// Sets the text, keeping the caller's string; announces "modified".
  void setStringValue(const YString& string);
  /// The text at creation or at the last commit.
  const YString& initialString() const noexcept { return _initialString; }

  /// Whether the text differs from the initial text (null-aware, code unit for code unit).
  bool isModified() const override;
  /// True while the current text (or name, or value) is a mutable string.
  bool mayChangeUnannounced() const noexcept override;
  /// Restores a copy of the initial text; announces "modified".
  void revert() override;
  /// Takes a copy of the current text as the initial text; announces "modified".
  void commit() override;
  /// A new plain YIniComment with the current text, not modified.
  std::shared_ptr<YIniElement> copyWithZone(void* zone = nullptr) const override;

 private:
  // Read the text of the library's own comments directly.
  friend class YIniSectionWriter;
  friend class YIniSourceRecord;
  YString _string;
  YString _initialString;
};
