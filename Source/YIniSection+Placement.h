/// \file YIniSection+Placement.h
/// Placement of new options in a YIniSection: right after the section's last
/// option, not after its trailing comments.
///
/// Declared as free functions taking the section as their first operand (a
/// C++ class cannot be reopened, and they need nothing private) in this
/// header, and defined in YIniSection+Placement.cpp. The typed-value setters
/// and the command-line tool share them. setValueForOptionWithName() keeps
/// its own placement (the very end of the list, after trailing comments);
/// these put a new option beside the others.
///
/// Example:
/// @code
/// auto document = YIniDocument::documentFromStringFactory(YString("[server]\nport=80\n# clients\n[client]\n"),
///                                                         YIniStandardElementFactory::standardFactory());
/// insertOptionWithNameAndValue(*document->sectionForName(YString("server")), YString("host"), YString("a.org"));
/// YString text = document->stringValue();  // "[server]\nport=80\nhost=a.org\n# clients\n[client]\n"
/// @endcode
///
/// Precondition failures go through the assertion handler (unit "YIniSection+Placement").
#pragma once

#include <cstddef>
#include <memory>

#include "YIniOption.h"
#include "YIniSection.h"

/// The index in `section`'s child list where a new option goes: right after
/// the last option child, so that comments and blank lines after it stay
/// after the new option. In a section without options: right after the
/// header's line end (index 1 when the first child is a comment whose text
/// ends in LF, the comment that ends the header line), else index 0.
[[nodiscard]] std::size_t indexForNewOption(const YIniSection& section);

/// Creates a YIniOption (always this class; no factory is consulted) named
/// `optionName` with `value`, both kept as passed, inserts it at
/// indexForNewOption() with insertObjectInElementsAtIndex (one announced
/// insertion into "elements"), and returns it. An existing option of that
/// name is not looked for: the section then holds two. Preconditions
/// "optionName != nil" and "value != nil" (null is returned when the handler
/// returns). After revert() the list is immutable and the insertion raises
/// YInvalidArgumentException (see YIniCompositeElement).
std::shared_ptr<YIniOption> insertOptionWithNameAndValue(YIniSection& section, const YString& optionName,
                                                         const YString& value);
