/// \file YIniDocument.h
/// The root of the element tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "YIniComment.h"
#include "YIniCompositeElement.h"
#include "YIniElementFactory.h"
#include "YError.h"
#include "YIniSection.h"
#include "YTextWriter.h"

class YIniSourceRecord;

/// Errors of the document's own making (file and encoding failures keep
/// YFoundationErrorDomain).
extern const YString YIniErrorDomain;  // "YIniErrorDomain"

/// Codes in YIniErrorDomain.
enum YIniErrorCode : std::int64_t {
  /// Text the preserving save would write anew would not read back as the
  /// tree holds it: an option name with leading white space, a section name
  /// with leading or trailing white space, a name with "=" or a line end, an
  /// option name starting with "#" or "[", a section without a name, a value
  /// with an empty continuation line, a comment with a line that is not empty
  /// and opens with neither "#" nor ";".
  YIniTextWouldNotReadBackError = 1,
};

/// An option that stands before the first section header, as the reader
/// would read it there (see YIniDocument::headOptions).
struct YIniHeadOption {
  YString name;            ///< the text before the first "=", trimmed of white space
  YString value;           ///< the text after it, trimmed of white space and line ends
  std::size_t lineNumber;  ///< 1-based, LF and CR LF each ending a line
};

/// An ordered list of top-level sections and comments, plus the element
/// factory the document was created with (shared, never null after a
/// successful construction). Change tracking is the composite's: the document
/// is modified when its list differs from the committed one or any top-level
/// child is modified. Add children with the composite's list operations.
///
/// Example:
/// @code
/// auto document = YIniDocument::documentFromStringFactory(YString("[server]\nport=80\n"),
///                                                         YIniStandardElementFactory::standardFactory());
/// document->commit();  // a loaded document is modified until committed
/// document->sectionForName(YString("server"))->setValueForOptionWithName(YString("8080"), YString("port"));
/// bool modified = document->isModified();  // true
/// YString text = document->stringValue();  // "[server]\nport=8080\n"
/// @endcode
///
/// Precondition failures go through the assertion handler (unit "YIniDocument").
class YIniDocument : public YIniCompositeElement {
 public:
  using SectionList = YArray<YIniSection>;  ///< a list of sections
  using CommentList = YArray<YIniComment>;  ///< a list of comments

  /// An empty document using `theFactory`. Precondition "theFactory != nil".
  explicit YIniDocument(std::shared_ptr<YIniElementFactory> theFactory);
  /// A new T made with `factory`; precondition "factory != nil" (then null is returned).
  template <class T = YIniDocument>
  static std::shared_ptr<T> documentWithFactory(std::shared_ptr<YIniElementFactory> factory) {
    if (!checkFactory(factory)) return nullptr;
    return std::make_shared<T>(std::move(factory));
  }

  /// The factory the document was created with (shared with its copies).
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
  [[nodiscard]] std::shared_ptr<YIniSection> sectionForName(const YString& name) const;
  /// Whether sectionForName() finds one. Precondition "name != nil".
  [[nodiscard]] bool hasSectionWithName(const YString& name) const;

  /// The document's text (YIniDocumentWriter).
  YString stringValue() override;
  /// True for this very class (its observer callbacks read no change record).
  bool ignoresChangeValues() const noexcept override;

  /// @name Loading, merging and saving
  /// The YExtensions group: members declared here and defined in
  /// YIniDocument+Extensions.cpp (see YIniDocument+Extensions.h).
  ///
  /// Loading never commits. A freshly loaded document reports itself
  /// modified (isModified() is true, and so it is for each section that holds
  /// children) until the host calls commit(); only a text that yields no
  /// element leaves it unmodified.
  ///@{

  /// Second phase of construction: reads INI `string` with an enumerator over
  /// `factory` and places each element into this new, empty document:
  /// sections into the document, options into the section read last, comments
  /// into the element that the next section or option (or the end of the text)
  /// shows them to belong to. Does not commit: the loaded document reports
  /// itself modified until the host commits it. A null text loads nothing.
  /// Returns this document, or null when the factory is null ("theFactory != nil").
  YIniDocument* initWithStringFactory(const YString& string, std::shared_ptr<YIniElementFactory> factory);
  /// Reads the file at `path` with its encoding detected, then loads its text
  /// as initWithStringFactory does (so the document reports itself modified
  /// until committed). A file that cannot be read or decoded loads as a null
  /// text: the document stays empty and unmodified.
  YIniDocument* initWithContentsOfFileFactory(const YString& path, std::shared_ptr<YIniElementFactory> factory);
  /// A new document of class T loaded from `string` (initWithStringFactory):
  /// modified until committed. A null factory is a failed precondition
  /// ("factory != nil"). Failures inside pass to the caller.
  template <class T = YIniDocument>
  static std::shared_ptr<T> documentFromStringFactory(const YString& string,
                                                      std::shared_ptr<YIniElementFactory> factory) {
    if (!checkLoadingFactory(factory.get())) return nullptr;
    auto document = std::make_shared<T>(factory);
    if (!document->initWithStringFactory(string, std::move(factory))) return nullptr;
    return document;
  }
  /// A new document of class T loaded from the file at `path`
  /// (initWithContentsOfFileFactory): modified until committed, empty when
  /// the file cannot be read. A null factory is a failed precondition ("factory != nil").
  template <class T = YIniDocument>
  static std::shared_ptr<T> documentWithContentsOfFileFactory(const YString& path,
                                                              std::shared_ptr<YIniElementFactory> factory) {
    if (!checkLoadingFactory(factory.get())) return nullptr;
    auto document = std::make_shared<T>(factory);
    if (!document->initWithContentsOfFileFactory(path, std::move(factory))) return nullptr;
    return document;
  }
  /// Loads the text that `bytes` hold, with its encoding detected as for a
  /// file (a byte-order mark, UTF-16 without one, UTF-8, then a statistical
  /// guess); the preserving save gives back these bytes. Like every loading
  /// operation it does not commit: the document reports itself modified until
  /// committed. Bytes that cannot be decoded load as a null text: the document
  /// stays empty and unmodified, and has no source. Returns this document, or
  /// null when the factory is null ("theFactory != nil").
  YIniDocument* initWithDataFactory(std::string_view bytes, std::shared_ptr<YIniElementFactory> factory);
  /// A new document of class T loaded from `bytes` (initWithDataFactory):
  /// modified until committed. A null factory is a failed precondition ("factory != nil").
  template <class T = YIniDocument>
  static std::shared_ptr<T> documentWithDataFactory(std::string_view bytes,
                                                    std::shared_ptr<YIniElementFactory> factory) {
    if (!checkLoadingFactory(factory.get())) return nullptr;
    auto document = std::make_shared<T>(factory);
    if (!document->initWithDataFactory(bytes, std::move(factory))) return nullptr;
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
  /// asked (the target is never left half-written; it becomes a new file, so
  /// other hard links keep the old text), following a symbolic link and
  /// refusing a target that is not a regular file (see YWriteFileChunks in
  /// YFile.h for the details and the risks of not saving atomically). Saved
  /// in place, the whole text is made before the target is touched: the
  /// library's own document in UTF-8 stages it in an unnamed file beside the
  /// target where the folder allows, instead of holding it in memory. Either
  /// way a character the encoding lacks, or an exception while the text is
  /// made, leaves the target as it was. Returns false and sets `*error` (when
  /// not null) on any I/O or encoding failure; a null path is a failed
  /// precondition ("filePath != nil").
  [[nodiscard]] bool writeToFileAtomicallyEncodingError(const YString& filePath, bool atomically, YStringEncoding encoding,
                                          std::shared_ptr<YError>* error);

  ///@}

  /// @name Preserving save
  /// Members declared here and defined in YIniDocument+Preserving.cpp (see
  /// YIniDocument+Preserving.h).
  ///
  /// Loading keeps the text the document was read from. These operations
  /// write the document back keeping every byte no edit touched: unchanged
  /// elements come out as their original text (line ends, spacing, trailing
  /// blanks, encoding and invalid bytes as they were), and so do lines the
  /// reader could not understand, options before the first section and the
  /// text after the point where reading stopped. A changed value replaces
  /// only the value text of its line; a renamed option or section only the
  /// name; a removed element takes its lines with it; new options and
  /// sections are written in the style of their neighbours or of the file.
  /// They only read the tree: no setter runs, nothing is announced. After a
  /// stop (readingStopped()), new sections come before the unread text,
  /// whose options the next reading then takes as theirs: a host that adds
  /// sections should check for a stop first.
  ///
  /// Example (writePreservedToFileError() saves the same text to a file):
  /// @code
  /// auto document = YIniDocument::documentFromStringFactory(YString("# web\n[server]\nport = 80\n"),
  ///                                                         YIniStandardElementFactory::standardFactory());
  /// document->sectionForName(YString("server"))->setValueForOptionWithName(YString("8080"), YString("port"));
  /// std::shared_ptr<YError> error;
  /// YString kept = document->preservedStringValueWithError(&error);  // "# web\n[server]\nport = 8080\n"
  /// YString plain = document->stringValue();                         // "# web\n[server]\nport=8080\n"
  /// @endcode
  ///@{

  /// Whether the document was loaded from text (a string, or a file that
  /// could be read). Copies and documents built in code have no source; for
  /// them the preserving operations write every element anew.
  [[nodiscard]] bool hasSource() const noexcept { return _source != nullptr; }
  /// Whether reading stopped before the end of the text (at an indented line
  /// that follows no option, text no rule matches, or a line the factory
  /// made no element for); nothing after that point was loaded, and the
  /// preserving operations keep it as it was.
  [[nodiscard]] bool readingStopped() const noexcept;
  /// The 1-based number of the line where reading stopped, or 0.
  [[nodiscard]] std::size_t readingStopLineNumber() const;
  /// The text of that line without its line end, or null.
  [[nodiscard]] YString readingStopLineText() const;
  /// The 1-based number of the line `element` was loaded from (LF and CR LF
  /// each end a line), or 0 when it was not loaded into this document.
  [[nodiscard]] std::size_t lineNumberForElement(const YIniElement& element) const;

  /// The options that stand before the first section header (such as
  /// .editorconfig's "root = true"), in text order. Reading drops them, since
  /// no section holds them, and the preserving operations keep their lines;
  /// this reads those lines with the reader's own option rule. None past the
  /// point where reading stopped, and none for a document without a source.
  [[nodiscard]] std::vector<YIniHeadOption> headOptions() const;

  /// The preserved text. Null, with `*error` (when not null) naming the
  /// element, when text written anew would not read back
  /// (YIniTextWouldNotReadBackError).
  [[nodiscard]] YString preservedStringValueWithError(std::shared_ptr<YError>* error);
  /// The preserved text as bytes in the encoding the file was read in, with
  /// its byte-order mark; UTF-8 for a document loaded from a string or built
  /// in code. Untouched lines are their original bytes; new text that the
  /// encoding cannot represent fails (YFileWriteInapplicableStringEncodingError).
  [[nodiscard]] std::optional<std::string> preservedDataWithError(std::shared_ptr<YError>* error);
  /// The preserved text encoded anew, all of it, in `encoding`.
  [[nodiscard]] std::optional<std::string> preservedDataUsingEncodingError(YStringEncoding encoding,
                                                                           std::shared_ptr<YError>* error);
  /// Saves preservedDataWithError()'s bytes to `path` atomically and
  /// durably: a temporary file in the same folder, flushed to disk, takes the
  /// target's mode (and owner where permitted) and replaces it by a rename;
  /// the folder is flushed after. A symbolic link is followed. Returns false
  /// with `*error` on any failure, and then nothing was written. A null path
  /// is a failed precondition ("path != nil").
  [[nodiscard]] bool writePreservedToFileError(const YString& path, std::shared_ptr<YError>* error);
  ///@}

 protected:
  /// A new empty document sharing this document's factory; host subclasses
  /// override it to return their own class. Copies thus share the factory.
  std::shared_ptr<YIniCompositeElement> makeEmptyCopy() const override;

 private:
  static bool checkLoadingFactory(const YIniElementFactory* factory);
  static bool checkFactory(const std::shared_ptr<YIniElementFactory>& factory);
  // Loads `string`, noting in `record` (when not null) where each element came from.
  YIniDocument* loadTextFactoryRecord(const YString& string, std::shared_ptr<YIniElementFactory> factory,
                                      std::shared_ptr<YIniSourceRecord> record);
  // The library's own document saved in UTF-8, made and written a piece at a time.
  bool writeUTF8ToFileInPieces(const YString& filePath, bool atomically, std::shared_ptr<YError>* error);
  std::shared_ptr<YIniElementFactory> _factory;
  // The text the document was loaded from; null for copies and documents built in code.
  std::shared_ptr<YIniSourceRecord> _source;
  // Length of the text the document was loaded from: the room the text it
  // writes back is first given.
  std::size_t _loadedLength = 0;
};
