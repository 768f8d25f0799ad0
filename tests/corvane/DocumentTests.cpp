// Documents, the document writer and the element factory.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "YIniDocument.h"
#include "YIniDocumentWriter.h"
#include "YIniStandardElementFactory.h"
#include "YStringWriter.h"

namespace {

YString S(const char* s) { return YString(s); }

class DocumentTest : public ::testing::Test {
 protected:
  std::shared_ptr<YIniElementFactory> factory = YIniStandardElementFactory::standardFactory();
  std::shared_ptr<YIniDocument> document = YIniDocument::documentWithFactory(factory);

  std::shared_ptr<YIniComment> comment(const char* text) { return factory->commentWithString(S(text)); }
  std::shared_ptr<YIniSection> addSection(const char* name, std::vector<std::shared_ptr<YIniElement>> children = {}) {
    auto section = factory->sectionWithName(S(name));
    for (auto& child : children) section->addElement(child);
    document->addElement(section);
    return section;
  }
  std::shared_ptr<YIniOption> option(const char* name, const char* value) {
    return factory->optionWithNameValueInSection(S(name), S(value), YIniSection::sectionWithName(S("any")));
  }
  std::vector<std::string> texts(const std::shared_ptr<YArray<YIniComment>>& list) {
    std::vector<std::string> result;
    for (const auto& c : *list) result.push_back(utf8(c->stringValue()));
    return result;
  }
};

TEST_F(DocumentTest, BuiltInMemoryWritesExactText) {
  document->addElement(comment("; settings"));
  document->addElement(YIniComment::commentWithNewLine());
  addSection("main", {YIniComment::commentWithNewLine(), option("path", "/usr\n /opt"), comment("# user"),
                      YIniComment::commentWithNewLine(), option("user", "me")});
  document->addElement(YIniComment::commentWithNewLine());
  addSection("extra", {option("a", "1"), comment("; tail")});
  document->addElement(YIniComment::commentWithNewLine());
  EXPECT_EQ(utf8(document->stringValue()),
            "; settings\n"
            "[main]\n"
            "path=/usr\n /opt\n"
            "# user\n"
            "user=me\n"
            "\n"
            "[extra]\n"
            "a=1\n"
            "; tail\n");
}

TEST_F(DocumentTest, WriterEdgeCases) {
  EXPECT_EQ(utf8(document->stringValue()), "");
  addSection("a");
  addSection("b");
  EXPECT_EQ(utf8(document->stringValue()), "[a][b]");

  document->setElements(YIniDocument::ElementList::mutableArray());
  document->addElement(comment("# top"));
  document->addElement(YIniComment::commentWithNewLine());
  addSection("a", {YIniComment::commentWithNewLine(), option("k", "v")});
  addSection("b", {YIniComment::commentWithNewLine(), option("x", "1")});
  document->addElement(YIniOption::optionWithNameAndValue(S("stray"), S("1")));  // neither section nor comment
  document->addElement(YIniComment::commentWithNewLine());
  document->addElement(YIniComment::commentWithNewLine());
  EXPECT_EQ(utf8(document->stringValue()), "# top\n[a]\nk=v\n[b]\nx=1\n\n\n");

  YString target = YString::mutableString();
  YIniDocumentWriter(nullptr).write(YStringWriter::writerWithString(target));
  EXPECT_EQ(utf8(target), "");

  RecordingScope recording;
  YIniDocumentWriter::writerWithDocument(document)->write(nullptr);
  ASSERT_EQ(recording.handler->failures.size(), 1u);
  EXPECT_EQ(recording.handler->failures[0].unit, "YIniDocumentWriter");
  EXPECT_EQ(recording.handler->failures[0].line, 82);
  EXPECT_EQ(recording.handler->failures[0].description, "Invalid parameter not satisfying: textWriter != nil");
}

// A comment that changes the document while the document is being written.
class IntrusiveComment : public YIniComment {
 public:
  explicit IntrusiveComment(std::weak_ptr<YIniDocument> document) : YIniComment(YString("# x")), _document(document) {}
  YString stringValue() override {
    if (auto document = _document.lock()) document->addElement(YIniComment::commentWithNewLine());
    return YIniComment::stringValue();
  }

 private:
  std::weak_ptr<YIniDocument> _document;
};

TEST_F(DocumentTest, ChangingTheListWhileWritingFails) {
  document->addElement(std::make_shared<IntrusiveComment>(document));
  document->addElement(comment("# y"));
  YString target = YString::mutableString();
  EXPECT_THROW(YIniDocumentWriter(document).write(YStringWriter::writerWithString(target)),
               YMutationDuringEnumerationException);
  EXPECT_EQ(utf8(target), "# x");
}

TEST_F(DocumentTest, OptionEditPropagatesToSectionAndDocument) {
  addSection("a", {YIniComment::commentWithNewLine(), option("k", "1")});
  auto b = addSection("b", {YIniComment::commentWithNewLine(), option("x", "2")});
  document->commit();
  EXPECT_FALSE(document->isModified());
  KeyObserver host(*document, YModifiedKey);

  auto x = b->optionWithName(S("x"));
  x->setValue(S("3"));
  EXPECT_TRUE(x->isModified());
  EXPECT_TRUE(b->isModified());
  EXPECT_TRUE(document->isModified());
  EXPECT_FALSE(document->sectionForName(S("a"))->isModified());
  EXPECT_EQ(host.count(), 1u);
  EXPECT_TRUE(host.lastBool());

  x->setValue(S("2"));
  EXPECT_FALSE(b->isModified());
  EXPECT_FALSE(document->isModified());
  EXPECT_EQ(host.count(), 2u);
  EXPECT_FALSE(host.lastBool());

  b->setName(S("renamed"));  // a section's own name change reaches the document too
  EXPECT_TRUE(document->isModified());
  EXPECT_EQ(host.count(), 3u);
  document->revert();
  EXPECT_EQ(utf8(b->name()), "b");
  EXPECT_FALSE(document->isModified());
  EXPECT_EQ(host.count(), 4u);
}

TEST_F(DocumentTest, SectionLookup) {
  auto first = addSection("General");
  auto second = addSection("General");
  addSection("other");
  EXPECT_EQ(document->sectionForName(S("General")).get(), first.get());
  EXPECT_EQ(document->sections()->objectAtIndex(1).get(), second.get());
  EXPECT_EQ(document->sections()->count(), 3u);
  for (const char* miss : {"general", " General", "missing", ""}) {
    SCOPED_TRACE(miss);
    EXPECT_FALSE(document->sectionForName(S(miss)));
    EXPECT_FALSE(document->hasSectionWithName(S(miss)));
  }
  EXPECT_TRUE(document->hasSectionWithName(S("other")));
  EXPECT_EQ(document->elements()->count(), 3u);
  EXPECT_PRECONDITION(document->sectionForName(YString()), "name != nil");
  EXPECT_PRECONDITION(document->hasSectionWithName(YString()), "name != nil");
}

TEST_F(DocumentTest, RemoveAllSectionsKeepsComments) {
  document->addElement(comment("# 1"));
  addSection("a");
  document->addElement(comment("# 2"));
  addSection("b");
  document->addElement(comment("# 3"));
  EXPECT_EQ(texts(document->comments()), (std::vector<std::string>{"# 1", "# 2", "# 3"}));
  KeyObserver elements(*document, YElementsKey);
  document->removeAllSections();
  EXPECT_EQ(elements.count(), 2u);
  EXPECT_EQ(document->sections()->count(), 0u);
  EXPECT_EQ(texts(document->comments()), (std::vector<std::string>{"# 1", "# 2", "# 3"}));

  addSection("c");
  document->commit();
  document->revert();
  EXPECT_THROW(document->removeAllSections(), YInvalidArgumentException);
}

TEST_F(DocumentTest, CopySharesTheFactory) {
  document->addElement(comment("# top"));
  auto a = addSection("a", {option("k", "v")});
  document->commit();
  a->setName(S("b"));
  auto copy = YCast<YIniDocument>(document->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->factory().get(), factory.get());
  EXPECT_FALSE(copy->isModified());
  EXPECT_TRUE(document->isModified());
  ASSERT_EQ(copy->elements()->count(), 2u);
  for (std::size_t i = 0; i < 2; ++i)
    EXPECT_NE(copy->elements()->objectAtIndex(i).get(), document->elements()->objectAtIndex(i).get());
  EXPECT_TRUE(copy->hasSectionWithName(S("a")));  // the committed name
  EXPECT_EQ(utf8(copy->stringValue()), "# top[a]\nk=v\n");
}

TEST(DocumentCreation, FactoryPreconditions) {
  EXPECT_PRECONDITION(YIniDocument::documentWithFactory(nullptr), "factory != nil");
  EXPECT_PRECONDITION(std::make_shared<YIniDocument>(nullptr), "theFactory != nil");
  RecordingScope recording;
  EXPECT_FALSE(YIniDocument::documentWithFactory(nullptr));
  ASSERT_EQ(recording.handler->failures.size(), 1u);
  EXPECT_EQ(recording.handler->failures[0].unit, "YIniDocument");
}

// ---- element factory -------------------------------------------------------

class HostFactory : public YIniStandardElementFactory {};

TEST(ElementFactory, StandardFactoryCreatesPlainElements) {
  auto f1 = YIniStandardElementFactory::standardFactory();
  auto f2 = YIniStandardElementFactory::standardFactory();
  EXPECT_NE(f1.get(), f2.get());
  EXPECT_TRUE(YIniStandardElementFactory::standardFactory<HostFactory>()->isKindOfClass<HostFactory>());

  auto section = YIniSection::sectionWithName(S("s"));
  for (const auto& f : {f1, f2}) {
    auto option = f->optionWithNameValueInSection(S("k"), S("v"), section);
    EXPECT_EQ(typeid(*option), typeid(YIniOption));
    EXPECT_EQ(utf8(option->stringValue()), "k=v");
    EXPECT_FALSE(option->isModified());
    EXPECT_EQ(utf8(f->sectionWithName(S("n"))->name()), "n");
    EXPECT_EQ(typeid(*f->commentWithString(S("# c"))), typeid(YIniComment));
  }
  EXPECT_EQ(section->elements()->count(), 0u);
  EXPECT_EQ(utf8(f1->commentWithString(S(""))->stringValue()), "");
  EXPECT_EQ(utf8(f1->sectionWithName(S(""))->name()), "");
  EXPECT_EQ(utf8(f1->optionWithNameValueInSection(S(""), S(""), section)->stringValue()), "=");
}

TEST(ElementFactory, PreconditionsInOrder) {
  auto f = YIniStandardElementFactory::standardFactory();
  auto section = YIniSection::sectionWithName(S("s"));
  EXPECT_PRECONDITION(f->commentWithString(YString()), "string != nil");
  EXPECT_PRECONDITION(f->sectionWithName(YString()), "name != nil");
  EXPECT_PRECONDITION(f->optionWithNameValueInSection(YString(), YString(), nullptr), "name != nil");
  EXPECT_PRECONDITION(f->optionWithNameValueInSection(S("k"), YString(), nullptr), "value != nil");
  EXPECT_PRECONDITION(f->optionWithNameValueInSection(S("k"), S("v"), nullptr), "section != nil");
  RecordingScope recording;
  EXPECT_FALSE(f->optionWithNameValueInSection(S("k"), S("v"), nullptr));
  ASSERT_EQ(recording.handler->failures.size(), 1u);
  EXPECT_EQ(recording.handler->failures[0].unit, "YIniStandardElementFactory");
}

}  // namespace
