/// \file YIniSection.h
/// A section: a name and its options and comments.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "YIniComment.h"
#include "YIniCompositeElement.h"
#include "YIniOption.h"

/// One section block: a name plus options and comments in text order.
///
/// Example:
/// @code
/// auto section = YIniSection::sectionWithName(YString("server"));
/// section->setValueForOptionWithName(YString("8080"), YString("port"));  // a new option, appended
/// YString port = section->valueForOptionWithName(YString("port"));       // "8080"
/// YString text = section->stringValue();                                 // "[server]\nport=8080\n"
/// section->removeOptionWithName(YString("port"));
/// @endcode
///
/// The name has its own change tracking beside the composite's: the section
/// is modified when its name differs from the name at the last commit or when
/// the composite part is modified. Names are compared exactly (case-sensitive,
/// untrimmed); lookups by name take the first match in list order.
///
/// Precondition failures go through the assertion handler (unit "YIniSection").
/// After revert() the child list is immutable (see YIniCompositeElement):
/// operations that add or remove children then raise YInvalidArgumentException
/// until setElements() installs a new list.
class YIniSection : public YIniCompositeElement {
 public:
  using OptionList = YArray<YIniOption>;    ///< a list of options
  using CommentList = YArray<YIniComment>;  ///< a list of comments

  /// A section named `name` (kept as passed; null accepted), empty, not modified.
  explicit YIniSection(const YString& name = YString());
  /// A new instance of T (YIniSection or a subclass constructible from a name).
  template <class T = YIniSection>
  static std::shared_ptr<T> sectionWithName(const YString& name) {
    return YMakeShared<T>(name);
  }

  /// The current name (the string object last set; may be null).
  const YString& name() const noexcept { return _name; }
  /// The name at creation or at the last commit (a copy).
  const YString& initialName() const noexcept { return _initialName; }
  /// Sets the name (kept as passed); announces "modified" on every call.
  /// Precondition "string != nil".
  void setName(const YString& string);
  /// `{ <generic description>, name: "<name>" }`.
  YString description() const override;

  /// The option children, in list order (a new list of the same objects).
  /// Views are new lists: keep the result in a variable before a range-for walk.
  std::shared_ptr<OptionList> options() const;
  /// The options' names in order, duplicates kept. An option with a null
  /// name raises YInvalidArgumentException.
  std::vector<YString> optionNames() const;
  /// The first option whose current name equals `optionName`, or null.
  /// Precondition "optionName != nil" (also for the operations below taking a name).
  [[nodiscard]] std::shared_ptr<YIniOption> optionWithName(const YString& optionName) const;
  /// Whether optionWithName() finds one.
  [[nodiscard]] bool hasOptionWithName(const YString& optionName) const;
  /// The value of the first option of that name; null when none (or its value is null).
  [[nodiscard]] YString valueForOptionWithName(const YString& optionName) const;
  /// Sets the value of the first option of that name. A null value removes an
  /// option that is new since the last commit and keeps a committed one with
  /// a null value; an unknown name with a value appends a new YIniOption at
  /// the end of the list; an unknown name with a null value does nothing.
  void setValueForOptionWithName(const YString& value, const YString& optionName);
  /// Removes the first option of that name, if any.
  void removeOptionWithName(const YString& optionName);
  /// Removes every option, one at a time; comments stay.
  void removeAllOptions();
  /// The options among initialElements, in that list's order.
  std::shared_ptr<OptionList> initialOptions() const;
  /// The first initial option whose current name equals `optionName`, or null.
  [[nodiscard]] std::shared_ptr<YIniOption> initialOptionWithName(const YString& optionName) const;

  /// The comment children, in list order.
  std::shared_ptr<CommentList> comments() const;
  /// Appends `comment`. Precondition "comment != nil".
  void addComment(const std::shared_ptr<YIniComment>& comment);
  /// Removes `comment` (by identity). Precondition "comment != nil"; a
  /// non-child fails on the composite's index check.
  void removeComment(const std::shared_ptr<YIniComment>& comment);
  /// Removes the consecutive run of comments whose text equals `string`
  /// starting exactly at `index`. A negative index, an index at or past the
  /// end, or a null string removes nothing.
  void removeCommentsStartingAtIndex(const YString& string, std::int32_t index);

  /// The header "[name]" followed by the children's text (YIniSectionWriter).
  /// Writing trims option names through setName().
  YString stringValue() override;
  /// Name changed (null-aware) or the composite part modified.
  bool isModified() const override;
  /// True while the current text (or name, or value) is a mutable string.
  bool mayChangeUnannounced() const noexcept override;
  /// Restores a copy of the initial name, then the composite's revert.
  void revert() override;
  /// Takes a copy of the name as initial name, then the composite's commit.
  void commit() override;
  /// A deep copy named with the receiver's committed name (initialName), not
  /// its current one; children are copied in their current state. Not modified.
  std::shared_ptr<YIniElement> copyWithZone(void* zone = nullptr) const override;
  /// True for this very class (its observer callbacks read no change record).
  bool ignoresChangeValues() const noexcept override;

 protected:
  /// A new empty section with a null name; host subclasses override it to
  /// return their own class.
  std::shared_ptr<YIniCompositeElement> makeEmptyCopy() const override;

 private:
  YString _initialName;
  YString _name;
};
