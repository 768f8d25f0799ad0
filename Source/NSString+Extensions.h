/// \file NSString+Extensions.h
/// The QuenbyExtensions group: small operations on strings and element
/// lists, shared by the library and its hosts.
///
/// Declared as free functions taking the string or the list as their first
/// operand (YString and YArray cannot be reopened) in this header, and
/// defined in NSString+Extensions.cpp; arrayWithObjectsOfClass, a template,
/// is defined here.
#pragma once

#include <memory>

#include "YArray.h"
#include "YCharacterSet.h"
#include "YString.h"

/// The entries of `list` that are a T or of a class derived from T, in list
/// order, as a new mutable list of the same objects. The walk is guarded:
/// changing `list` meanwhile throws YMutationDuringEnumerationException.
/// A null list gives an empty result.
template <class T, class U>
std::shared_ptr<YArray<T>> arrayWithObjectsOfClass(const std::shared_ptr<YArray<U>>& list) {
  auto result = YArray<T>::mutableArray();
  if (!list) return result;
  for (const auto& object : *list) {
    if (auto match = YCast<T>(object)) result->addObject(std::move(match));
  }
  return result;
}

/// True when `string` is not empty and its first code unit is in `set`.
/// A null set is a failed precondition ("set != nil").
bool startsWithCharacterSet(const YString& string, const YCharacterSet& set);
/// True when `string` is not empty and its first code unit is `character`.
bool startsWithCharacter(const YString& string, char16_t character);
/// True when `string` is not empty and its last code unit is `character`.
bool endsWithCharacter(const YString& string, char16_t character);
/// A new mutable string: `string` with each member of `charSet` replaced by
/// `character`, one for one. A null set is a failed precondition ("charSet != nil").
YString stringByReplacingCharactersInSetWithCharacter(const YString& string, const YCharacterSet& charSet,
                                                      char16_t character);
/// A new mutable string: `string` folded onto one line. A line break (CR LF or
/// LF) followed by a space is removed; one followed by anything else becomes
/// one space; one at the very end is removed. A lone CR is kept.
YString singleLineString(const YString& string);
