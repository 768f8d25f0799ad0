// The root of the element tree.
#pragma once

#include <memory>
#include <vector>

#include "YIniComment.h"
#include "YIniCompositeElement.h"
#include "YIniElementFactory.h"
#include "YError.h"
#include "YIniSection.h"
#include "YTextWriter.h"

/// An ordered list of top-level sections and comments, plus the element
/// factory the document was created with (shared, never null after a
/// successful construction). Change tracking is the composite's: the document
/// is modified when its list differs from the committed one or any top-level
/// child is modified. Add children with the composite's list operations.
///
/// Precondition failures go through the assertion handler (unit "YIniDocument").
class YIniDocument : public YIniCompositeElement {
 public:
  using SectionList = YArray<YIniSection>;
  using CommentList = YArray<YIniComment>;

  /// An empty document using `theFactory`. Precondition "theFactory != nil".
  explicit YIniDocument(std::shared_ptr<YIniElementFactory> theFactory);
  /// A new T made with `factory`; precondition "factory != nil" (then null is returned).
  template <class T = YIniDocument>
  static std::shared_ptr<T> documentWithFactory(std::shared_ptr<YIniElementFactory> factory) {
    if (!checkFactory(factory)) return nullptr;
    return std::make_shared<T>(std::move(factory));
  }

  const std::shared_ptr<YIniElementFactory>& factory() const noexcept { return _factory; }
  /// The top-level sections, in list order (a new list of the same objects;
  /// keep it in a variable before a range-for walk).
  std::shared_ptr<SectionList> sections() const;
  /// The top-level comments, in list order (not those inside sections).
  std::shared_ptr<CommentList> comments() const;
  /// Removes every section, one at a time; top-level comments stay.
  void removeAllSections();
  /// The first section whose current name equals `name` exactly, or null.
  /// Never creates a section. Precondition "name != nil".
  std::shared_ptr<YIniSection> sectionForName(const YString& name) const;
  /// Whether sectionForName() finds one. Precondition "name != nil".
  bool hasSectionWithName(const YString& name) const;

  /// The document's text (YIniDocumentWriter).
  YString stringValue() override;
  /// True for this very class (its observer callbacks read no change record).
  bool ignoresChangeValues() const noexcept override;

  // ---- Loading, merging and saving (defined in YIniDocument+Extensions.cpp) ----

  /// Second phase of construction: reads INI `string` with an enumerator over
  /// `factory` and places each element into this new, empty document:
  /// sections into the document, options into the section read last, comments
  /// into the element that the next section or option (or the end of the text)
  /// shows them to belong to. Does not commit: a loaded document is modified
  /// until the host commits it. A null text loads nothing. Returns this
  /// document, or null when the factory is null ("theFactory != nil").
  YIniDocument* initWithStringFactory(const YString& string, std::shared_ptr<YIniElementFactory> factory);
  /// Reads the file at `path` with its encoding detected, then loads its text
  /// as initWithStringFactory does. A file that cannot be read or decoded
  /// loads as a null text: the document stays empty.
  YIniDocument* initWithContentsOfFileFactory(const YString& path, std::shared_ptr<YIniElementFactory> factory);
  /// A new document of class T loaded from `string`; a null factory is a
  /// failed precondition ("factory != nil"). Failures inside pass to the caller.
  template <class T = YIniDocument>
  static std::shared_ptr<T> documentFromStringFactory(const YString& string,
                                                      std::shared_ptr<YIniElementFactory> factory) {
    if (!checkLoadingFactory(factory.get())) return nullptr;
    auto document = std::make_shared<T>(factory);
    if (!document->initWithStringFactory(string, std::move(factory))) return nullptr;
    return document;
  }
  /// A new document of class T loaded from the file at `path`.
  template <class T = YIniDocument>
  static std::shared_ptr<T> documentWithContentsOfFileFactory(const YString& path,
                                                              std::shared_ptr<YIniElementFactory> factory) {
    if (!checkLoadingFactory(factory.get())) return nullptr;
    auto document = std::make_shared<T>(factory);
    if (!document->initWithContentsOfFileFactory(path, std::move(factory))) return nullptr;
    return document;
  }
  /// Appends each comment of `comments` to `object` with addElement, in
  /// order, then empties the list.
  static void addCommentsToObject(const std::shared_ptr<YArray<YIniComment>>& comments, YIniCompositeElement& object);

  /// The text of the template `templateString` with this document's values
  /// put in: the template's sections and options in the template's order,
  /// each option with this document's value where this document's section of
  /// that name has it, and this document's options that the template's
  /// section lacks appended after that section's last template option. Fails
  /// with YInvalidArgumentException when the template yields any comment
  /// element (a comment, a blank line, a header's line end), and with the
  /// precondition "activeSectionName != nil" for an option before the
  /// template's first section; nothing is returned then.
  YString stringValueMergedWith(const YString& templateString);
  /// Writes, for each name in `names`, a line end and then the first option of
  /// that name of this document's section `sectionName`. Does nothing for a
  /// null or unknown section name.
  void writeOptionsWithNamesForSectionNameToWriter(const std::vector<YString>& names, const YString& sectionName,
                                                   const std::shared_ptr<YTextWriter>& writer);
  /// Saves exactly stringValue() to `filePath` in `encoding`, atomically when
  /// asked (the target is never left half-written). Returns false and sets
  /// `*error` (when not null) on any I/O or encoding failure; a null path is a
  /// failed precondition ("filePath != nil").
  bool writeToFileAtomicallyEncodingError(const YString& filePath, bool atomically, YStringEncoding encoding,
                                          std::shared_ptr<YError>* error);

 protected:
  /// A new empty document sharing this document's factory; host subclasses
  /// override it to return their own class. Copies thus share the factory.
  std::shared_ptr<YIniCompositeElement> makeEmptyCopy() const override;

 private:
  static bool checkLoadingFactory(const YIniElementFactory* factory);
  static bool checkFactory(const std::shared_ptr<YIniElementFactory>& factory);
  std::shared_ptr<YIniElementFactory> _factory;
  // Length of the text the document was loaded from: the room the text it
  // writes back is first given.
  std::size_t _loadedLength = 0;
};
