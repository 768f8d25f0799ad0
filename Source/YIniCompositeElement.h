/// \file YIniCompositeElement.h
/// The base of elements that hold other elements: sections and the document.
#pragma once

#include <cstddef>
#include <memory>

#include "YArray.h"
#include "YIniElement.h"

/// The to-many key of a composite's children ("elements"), interned like YModifiedKey.
extern const YString& YElementsKey;

/// An ordered list of child elements with change tracking.
///
/// The composite keeps its current list (`elements`) and the list as of the
/// last commit (`initialElements`, sharing the same child objects), and a
/// cached modified flag: true when the lists differ (by identity of their
/// entries) or any child is modified. The flag is kept current by
/// observation: the composite observes its own "elements" from construction
/// on and each child in `elements` for "modified" (once per occurrence;
/// children only in `initialElements` are not observed). Every recomputation
/// announces "modified" to the composite's own observers, normally its parent.
///
/// The list accessors (setModified, setElements, insertObjectInElementsAtIndex,
/// removeObjectFromElementsAtIndex, replaceObjectInElementsAtIndexWithObject)
/// announce their change around their whole body; subclasses that override
/// them should call the base implementation. Children hold no reference to
/// their parent; the composite owns them through its lists.
///
/// After revert() the current list is an immutable copy of the initial list:
/// every later insertion, removal or replacement fails with
/// YInvalidArgumentException until setElements() installs a new list.
///
/// Composites nest at most maximumNestingDepth deep, counting the top one
/// (a document's sections are at 2): announcements, commit, revert, copies
/// and writing recurse once per level, and a bounded depth keeps them within
/// a small thread's stack (the deepest, an announcement, takes under 1 KiB a
/// level in an optimised build; destruction stays flat at any depth). Taking
/// in an element that would nest deeper fails the precondition "element
/// keeps the tree within 256 levels". The levels above a composite are the
/// composites observing it for "modified", its parents: a host that stops a
/// parent observing a child (unsubscribeForChangesInElement) takes the
/// parent out of the count.
///
/// The class has no text of its own: stringValue() raises
/// YInvalidArgumentException. Precondition failures are reported through the
/// assertion handler (unit "YIniCompositeElement").
class YIniCompositeElement : public YIniElement {
 public:
  using ElementList = YArray<YIniElement>;  ///< a list of children, any kind of element
  /// The most composites a chain from the top of a tree down may hold.
  static constexpr std::size_t maximumNestingDepth = 256;

  /// An empty composite, not modified, observing its own "elements".
  YIniCompositeElement();
  /// Stops observing itself and every child in `elements`.
  ~YIniCompositeElement() override;

  /// The cached flag; computes nothing.
  bool isModified() const override;
  /// Sets the cached flag. Announces "modified" on every call.
  virtual void setModified(bool modified);

  /// The current list object itself (not a copy). Change it only through the
  /// operations below, so that observation stays right.
  std::shared_ptr<ElementList> elements() const noexcept { return _elements; }
  /// The same list as elements() without taking a reference to it: valid
  /// until the next change of the composite.
  const std::shared_ptr<ElementList>& elementsList() const noexcept { return _elements; }
  /// The list as of the last commit (the object itself).
  std::shared_ptr<ElementList> initialElements() const noexcept { return _initialElements; }

  /// Replaces the children wholesale with a new mutable list of `value`'s
  /// entries; initialElements is left alone. Preconditions "value != nil",
  /// and for each entry "element does not hold the receiver" (this composite,
  /// or one holding it, would make the tree a cycle) and "element keeps the
  /// tree within 256 levels".
  virtual void setElements(const std::shared_ptr<ElementList>& value);
  /// Inserts `element` at `index` (index == count appends) and observes it.
  /// Preconditions "element != nil", "index >= 0 && index <= [elements count]",
  /// "element does not hold the receiver", "element keeps the tree within 256 levels".
  virtual void insertObjectInElementsAtIndex(std::shared_ptr<YIniElement> element, std::size_t index);
  /// Removes the child at `index` after unobserving it.
  /// Precondition "index >= 0 && index < [elements count]".
  virtual void removeObjectFromElementsAtIndex(std::size_t index);
  /// Replaces the child at `index` by `element`. Preconditions "element != nil",
  /// "element does not hold the receiver", "element keeps the tree within 256
  /// levels"; an index out of range raises
  /// YRangeException from the list.
  virtual void replaceObjectInElementsAtIndexWithObject(std::size_t index, std::shared_ptr<YIniElement> element);

  /// Appends `element`, as insertObjectInElementsAtIndex does at the end.
  virtual void addElement(std::shared_ptr<YIniElement> element);
  /// Replaces the first occurrence of `element` by `otherElement`.
  /// Preconditions "element != nil", "otherElement != nil"; a non-child fails in the list's index check.
  virtual void replaceElementWith(const std::shared_ptr<YIniElement>& element, std::shared_ptr<YIniElement> otherElement);
  /// Removes the first occurrence of `element`. Precondition "element != nil";
  /// a non-child fails on "index >= 0 && index < [elements count]".
  virtual void removeElement(const std::shared_ptr<YIniElement>& element);
  /// Removes every child, one announced removal at a time, from index 0.
  /// Removals that nobody could hear of (no observer but the library's own
  /// composites, none of which would find anything changed) are made at
  /// once, so that clearing a large list takes linear time, not quadratic.
  virtual void removeAllElements();

  /// Raises YInvalidArgumentException: subclasses supply the text.
  YString stringValue() override;
  /// Reverts every current child (unobserving it first), installs an
  /// immutable copy of initialElements, observes its children and clears the
  /// flag. Children's announcements during the walk are ignored; on a child's
  /// error the walk stops and the error passes on. Precondition "element does
  /// not hold the receiver" for each child of initialElements (one taken
  /// from this composite and given this composite since the commit).
  void revert() override;
  /// Commits every child, takes an immutable copy of elements as
  /// initialElements and clears the flag. Children's announcements during the
  /// walk are ignored; on a child's error the error passes on.
  void commit() override;
  /// A deep copy of the receiver's class (see makeEmptyCopy()): each current
  /// child copied in order, then committed, so the copy is not modified.
  std::shared_ptr<YIniElement> copyWithZone(void* zone = nullptr) const override;

  /// Observes `element` for "modified". Precondition "element != nil".
  virtual void subscribeForChangesInElement(const std::shared_ptr<YIniElement>& element);
  /// Stops observing `element` for "modified" (one registration; nothing if
  /// none is left). Precondition "element != nil".
  virtual void unsubscribeForChangesInElement(const std::shared_ptr<YIniElement>& element);
  /// Whether `a1` and `a2` hold the same objects in the same order.
  /// Preconditions "a1 != nil", "a2 != nil".
  virtual bool compareArrayAgainst(const std::shared_ptr<ElementList>& a1, const std::shared_ptr<ElementList>& a2) const;
  /// Recomputes: the lists differ, or some direct child is modified. The
  /// answer comes from bookkeeping kept current by the list operations and
  /// the children's notifications, so it costs O(1) after a value change
  /// rather than a walk over every child; when a child may be unobserved (a
  /// list changed behind the operations' back, a removal that failed after
  /// unsubscribing) it walks the children instead.
  virtual bool hasModifiedElements() const;
  /// setModified(hasModifiedElements()).
  virtual void elementsChanged();
  /// The same as elementsChanged(); `element` only updates the bookkeeping.
  virtual void modifiedChangedForElement(YIniElement* element);

  /// Dispatches "elements" from itself to elementsChanged() and "modified"
  /// from a child to modifiedChangedForElement() (unless commit or revert runs).
  void observeValueForKeyPath(const YString& keyPath, YObject* object, const YKeyValueChange& change,
                              void* context) override;
  /// isModified() for "modified", the current list for "elements".
  YValue valueForKey(const YString& key) const override;
  /// The children at `indexes` (those that exist) as a YArray<YObject>, for "elements".
  YValue valuesAtIndexesForKey(const YIndexSet& indexes, const YString& key) const override;
  /// True for this very class, whose observeValueForKeyPath() reads no
  /// change record; a subclass says so for itself.
  bool ignoresChangeValues() const noexcept override;

 protected:
  /// Whether the object is exactly one of the library's own composite
  /// classes (YIniCompositeElement, YIniSection, YIniDocument), not a
  /// subclass: only then may announcements nobody could hear be skipped.
  bool isLibraryClass() const noexcept;

  /// Creates the empty instance that copyWithZone() fills: the receiver's own
  /// class. Subclasses override it (a host subclass returns
  /// std::make_shared<Subclass>(…) with its plain constructor arguments).
  virtual std::shared_ptr<YIniCompositeElement> makeEmptyCopy() const;

 private:
  // Loading fills a composite that nobody but the library observes: the
  // document appends without announcing, then settles the flag once.
  friend class YIniDocument;
  void appendQuietly(std::shared_ptr<YIniElement> element);
  // The same for each of the `count` elements at `elements`, in order,
  // moving them out; the list grows once, to its exact size.
  void appendQuietly(std::shared_ptr<YIniElement>* elements, std::size_t count);
  void settleQuietly();

  struct ModifiedCache;
  bool answersWithoutAsking() const noexcept;
  bool cacheIsCurrent() const noexcept;
  void rebuildCache() const;
  void forgetCache() const;
  void subscribeChild(const std::shared_ptr<YIniElement>& child);
  void noteListChanged(bool wasCurrent, const YIniElement* added, const YIniElement* removed);
  void noteChildState(const YIniElement* child) const;
  bool announcesOnlyToComposites() const noexcept;
  // How many children removeAllElements() or removeAllSections() may remove
  // at once, unannounced, because removing them one at a time would tell
  // nobody anything (0: none).
  std::size_t quietlyRemovable() const noexcept;
  void removeQuietly(std::size_t count);
  // The same for the first occurrence of each of the `count` elements at
  // `elements`, as removeElement() of one after another would remove them.
  void removeQuietly(const std::shared_ptr<YIniElement>* elements, std::size_t count);
  // Whether an announcement by `child` that leaves its modified state as it
  // is would reach nobody: its only observer is a library composite that
  // would find nothing changed and tell nobody in turn. The leaves then skip it.
  friend class YIniOption;
  static bool nobodyHearsUnchanged(const YIniElement& child) noexcept;
  // After an announcement, what was found of the tree above may no longer hold.
  static void forgetSilence() noexcept;

  // While the section writer renames a section's options to their own names,
  // the part of nobodyHearsUnchanged that looks up the tree is the same for
  // every option: once found silent, it is kept until the writer reaches
  // code not of the library, or a rename is announced.
  friend class YIniSectionWriter;
  class SilenceScope {
   public:
    explicit SilenceScope(const YIniCompositeElement& parent) noexcept;
    ~SilenceScope();
    SilenceScope(const SilenceScope&) = delete;
    SilenceScope& operator=(const SilenceScope&) = delete;
    void forget() noexcept { _silent = false; }

   private:
    friend class YIniCompositeElement;
    const YIniCompositeElement* _parent;
    SilenceScope* _outer;
    bool _silent = false;
  };
  static SilenceScope*& currentScope() noexcept;

  std::shared_ptr<ElementList> _initialElements;
  std::shared_ptr<ElementList> _elements;
  mutable struct {
    bool modified : 1;
    bool ignoreChanges : 1;
    bool classKnown : 1;    // libraryClass has been worked out
    bool libraryClass : 1;  // the object is exactly one of the library's composite classes
  } _bits{false, false, false, false};
  bool _walkChildren = false;      // some child may be unobserved: ask every child
  bool _internalSubscribe = false;  // a list operation is subscribing
  bool _observesOthers = false;     // a host subscribed it: notifications may come from a non-child
  bool _delivering = false;         // a child's announcement is being delivered
  mutable std::unique_ptr<ModifiedCache> _cache;
};
