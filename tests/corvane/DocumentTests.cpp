// Documents, the document writer and the element factory.
#include <gtest/gtest.h>

#include "ElementTestSupport.h"
#include "YIniDocument.h"
#include "YIniDocumentWriter.h"
#include "YIniStandardElementFactory.h"
#include "YStringWriter.h"

namespace {

class DocumentTest : public ::testing::Test {
 protected:
  std::shared_ptr<YIniElementFactory> factory = YIniStandardElementFactory::standardFactory();
  std::shared_ptr<YIniDocument> document = YIniDocument::documentWithFactory(factory);

  std::shared_ptr<YIniSection> section(const char* name, const std::vector<std::shared_ptr<YIniElement>>& children) {
    return withChildren(factory->sectionWithName(S(name)), children);
  }
  void add(const std::vector<std::shared_ptr<YIniElement>>& elements) { withChildren(document, elements); }
};

TEST_F(DocumentTest, BuiltInMemoryWritesExactTextNothingBetweenSectionsOrAtTheEnd) {
  EXPECT_EQ(utf8(document->stringValue()), "");
  add({cmt("; settings"), lf(), section("main", {lf(), opt("path", "/usr\n /opt"), cmt("# user"), lf(), opt("u")}),
       lf(), section("extra", {opt("a", "1"), cmt("; tail")}), section("empty", {}), section("last", {lf()}),
       opt("stray", "1")});  // neither section nor comment: skipped
  EXPECT_EQ(utf8(document->stringValue()), "; settings\n[main]\npath=/usr\n /opt\n# user\nu=v\n\n[extra]\na=1\n; tail"
                                           "[empty][last]\n");

  YString target = YString::mutableString();
  YIniDocumentWriter(nullptr).write(YStringWriter::writerWithString(target));
  EXPECT_EQ(utf8(target), "");
  RecordingScope recording;
  YIniDocumentWriter::writerWithDocument(document)->write(nullptr);
  EXPECT_EQ(recording.handler->texts(),
            std::vector<std::string>{"YIniDocumentWriter:82:Invalid parameter not satisfying: textWriter != nil"});
}

TEST_F(DocumentTest, OptionEditPropagatesToSectionAndDocument) {
  auto b = section("b", {lf(), opt("x", "2")});
  add({section("a", {lf(), opt("k", "1")}), b});
  document->commit();
  KeyObserver host(*document, YModifiedKey);
  // Whether b, the document and a are modified; the host's notes and the last one's value.
  auto state = [&] {
    return std::to_string(b->isModified()) + std::to_string(document->isModified()) +
           std::to_string(document->sectionForName(S("a"))->isModified()) + " " + std::to_string(host.count()) + " " +
           std::to_string(host.lastBool());
  };
  auto x = b->optionWithName(S("x"));
  x->setValue(S("3"));
  EXPECT_EQ(state(), "110 1 1");
  x->setValue(S("2"));
  EXPECT_EQ(state(), "000 2 0");

  b->setName(S("renamed"));  // a section's own name change reaches the document too
  document->revert();
  EXPECT_EQ(utf8(b->name()), "b");
  EXPECT_EQ(state(), "000 4 0");
}

TEST_F(DocumentTest, ViewsInListOrderLookupAndRemoveAllSections) {
  auto first = section("General", {}), second = section("General", {});
  add({cmt("# 1"), first, cmt("# 2"), second});
  ASSERT_EQ(document->comments()->count(), 2u);
  EXPECT_EQ(utf8(document->comments()->objectAtIndex(1)->stringValue()), "# 2");
  ASSERT_EQ(document->sections()->count(), 2u);
  EXPECT_EQ(document->sections()->objectAtIndex(1), second);
  EXPECT_EQ(document->sectionForName(S("General")), first);
  for (const char* miss : {"general", " General", ""}) EXPECT_FALSE(document->hasSectionWithName(S(miss))) << miss;
  EXPECT_PRECONDITION(document->sectionForName(YString()), "name != nil");
  EXPECT_PRECONDITION(document->hasSectionWithName(YString()), "name != nil");

  KeyObserver elements(*document, YElementsKey);
  document->removeAllSections();
  EXPECT_EQ(elements.count(), 2u);
  EXPECT_EQ(document->sections()->count(), 0u);
  EXPECT_EQ(document->comments()->count(), 2u);
}

TEST_F(DocumentTest, CopySharesTheFactory) {
  auto a = section("a", {opt("k")});
  add({cmt("# top"), a});
  document->commit();
  a->setName(S("b"));
  auto copy = YCast<YIniDocument>(document->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->factory(), factory);
  EXPECT_FALSE(copy->isModified());
  EXPECT_NE(copy->elements()->objectAtIndex(1), document->elements()->objectAtIndex(1));
  EXPECT_EQ(utf8(copy->stringValue()), "# top[a]\nk=v\n");  // the committed name
}

class HostFactory : public YIniStandardElementFactory {};

TEST(ElementFactory, CreatesPlainUnmodifiedElementsAndChecksInOrder) {
  EXPECT_TRUE(YIniStandardElementFactory::standardFactory<HostFactory>()->isKindOfClass<HostFactory>());
  auto f = YIniStandardElementFactory::standardFactory();
  auto section = YIniSection::sectionWithName(S("s"));
  auto option = f->optionWithNameValueInSection(S("k"), S("v"), section);
  EXPECT_EQ(dynamicType(option), typeid(YIniOption));
  EXPECT_EQ(utf8(option->stringValue()), "k=v");
  EXPECT_FALSE(option->isModified());
  EXPECT_EQ(section->elements()->count(), 0u);
  EXPECT_EQ(dynamicType(f->commentWithString(S("# c"))), typeid(YIniComment));

  EXPECT_PRECONDITION(f->commentWithString(YString()), "string != nil");
  EXPECT_PRECONDITION(f->sectionWithName(YString()), "name != nil");
  EXPECT_PRECONDITION(f->optionWithNameValueInSection(YString(), YString(), nullptr), "name != nil");
  EXPECT_PRECONDITION(f->optionWithNameValueInSection(S("k"), YString(), nullptr), "value != nil");
  EXPECT_PRECONDITION(f->optionWithNameValueInSection(S("k"), S("v"), nullptr), "section != nil");
  EXPECT_PRECONDITION(YIniDocument::documentWithFactory(nullptr), "factory != nil");
  EXPECT_PRECONDITION(std::make_shared<YIniDocument>(nullptr), "theFactory != nil");
  EXPECT_PRECONDITION(YIniDocument::documentFromStringFactory(S("[a]"), nullptr), "factory != nil");
  EXPECT_PRECONDITION(std::make_shared<YIniDocument>(f)->initWithStringFactory(S("[a]"), nullptr), "theFactory != nil");
  RecordingScope recording;
  EXPECT_FALSE(f->optionWithNameValueInSection(S("k"), S("v"), nullptr));
  EXPECT_FALSE(YIniDocument::documentWithFactory(nullptr));
  EXPECT_EQ(recording.handler->units(), (std::vector<std::string>{"YIniStandardElementFactory", "YIniDocument"}));
}

}  // namespace
