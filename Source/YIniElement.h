/// \file YIniElement.h
/// The interface every INI element shares.
#pragma once

#include <cstdint>
#include <memory>

#include "YAllocator.h"
#include "YObject.h"
#include "YString.h"

/// The key under which every element announces its modified state
/// ("modified"), interned so that registrations for it stay small.
extern const YString& YModifiedKey;

/// One piece of an INI document: a comment, an option, a section or the
/// document. Each element keeps its current state beside its initial state
/// (at creation or at the last commit).
///
/// Elements are shared objects: create them with std::make_shared (or the
/// classes' convenience constructors); operations that hand the element to a
/// writer need shared ownership. An element equals only itself.
///
/// Every element is observable for the key "modified" (YModifiedKey); the
/// value delivered is isModified(). Leaves announce every setter, revert and
/// commit, also when nothing changes.
class YIniElement : public YObject {
 public:
  /// The element's text as it is written out.
  virtual YString stringValue() = 0;
  /// Whether the current state differs from the initial state.
  virtual bool isModified() const = 0;
  /// Makes the current state equal to the initial state.
  virtual void revert() = 0;
  /// Makes the initial state equal to the current state.
  virtual void commit() = 0;
  /// A new element holding the receiver's current state, not modified. The
  /// zone is accepted for symmetry with allocation-zone APIs and ignored.
  virtual std::shared_ptr<YIniElement> copyWithZone(void* zone = nullptr) const = 0;

  /// isModified() for "modified"; nothing for other keys.
  YValue valueForKey(const YString& key) const override;

  /// Whether isModified() can change without an announcement: the element
  /// holds a mutable string (setters keep the caller's object), which its
  /// owner may change in place. A composite asks such children again at each
  /// recomputation instead of relying on what they last announced.
  virtual bool mayChangeUnannounced() const noexcept { return false; }

 private:
  // Where loading found the element: its entry in the source record, plus
  // one (0: none, as for every element made otherwise, copies included),
  // kept in the object's spare word. Only the source record uses it, and
  // its top bit (see YIniSourceRecord::kStringsAsNoted).
  friend class YIniSourceRecord;
};

/// Null-aware string equality used by change tracking: both null, or both
/// present with the same code units. A null string never equals "".
inline bool YIniStringsEqual(const YString& a, const YString& b) noexcept {
  if (a.isIdenticalTo(b)) return true;  // also both null; the common case after a commit
  if (a.isNull() || b.isNull()) return false;
  return a.isEqualToString(b);
}
