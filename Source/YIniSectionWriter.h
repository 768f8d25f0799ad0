/// \file YIniSectionWriter.h
/// Writes a section as INI text, deciding every line end.
#pragma once

#include <cstdint>
#include <memory>

#include "YIniSection.h"
#include "YTextWritable.h"

/// Writes "[name]" and then the section's children: options as "name=value",
/// comments exactly as they stand. A comment whose text ends in LF (a
/// line-end comment) supplies the line end of the line before it; the writer
/// adds one after the header and after an option only where no line-end
/// comment follows, and always after the last child if it is an option.
/// Nothing follows a trailing comment, and an empty section ends with "]".
///
/// Writing trims each option's name (whitespace set, not line ends) and
/// stores the result with setName(), so an option whose name had surrounding
/// spaces becomes modified by being written. Options whose name is null or
/// blank, or whose value is null, are left out.
class YIniSectionWriter : public YTextWritable {
 public:
  /// A writer for `section`. Precondition "sectionValue != nil". `writeOptions`
  /// is kept for callers; options are written either way.
  YIniSectionWriter(std::shared_ptr<YIniSection> section, bool writeOptions);
  /// A new shared writer of class T (YIniSectionWriter or a subclass made
  /// from the same arguments); the precondition is the constructor's.
  template <class T = YIniSectionWriter>
  static std::shared_ptr<T> writerWithSectionWriteOptions(std::shared_ptr<YIniSection> section, bool writeOptions) {
    return std::make_shared<T>(std::move(section), writeOptions);
  }

  /// The section written (shared), or null after a failed precondition.
  const std::shared_ptr<YIniSection>& section() const noexcept { return _section; }
  /// The flag given at creation; it changes nothing in the output.
  bool writeOptions() const noexcept { return _writeOptions; }

  /// True when the child at `index` is a comment whose text ends in LF; false
  /// for a negative index, one at or past the end, or any other child.
  bool newLineAtAtIndex(std::int32_t index) const;
  /// Writes the section. A null writer is a failed precondition ("textWriter != nil").
  void write(const std::shared_ptr<YTextWriter>& textWriter) override;

 private:
  bool newLineAtPosition(std::size_t position) const;
  std::shared_ptr<YIniSection> _section;
  bool _writeOptions;
};
