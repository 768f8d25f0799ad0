// Typed values: the texts each type reads and writes, errors, lists, the locale, and writing through the model.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <locale>
#include <optional>
#include <stdexcept>

#include "ElementTestSupport.h"
#include "YIniDocument+TypedValues.h"
#include "YIniSection+TypedValues.h"
#include "YIniStandardElementFactory.h"

namespace {

constexpr auto kInt64Max = std::numeric_limits<std::int64_t>::max();
constexpr auto kInt64Min = std::numeric_limits<std::int64_t>::min();
using Failure = YTypedValueFailure;
using List = std::vector<std::string>;

/// A section holding one option "k" with `text` as its value.
std::shared_ptr<YIniSection> holding(const YString& text) {
  return withChildren(YIniSection::sectionWithName(S("s")), {YIniOption::optionWithNameAndValue(S("k"), text)});
}

std::vector<YString> ystrings(const std::vector<const char*>& list) {
  std::vector<YString> result;
  for (const char* s : list) result.push_back(S(s));
  return result;
}

/// The result's failure, or nullopt when it holds a value.
template <class T>
std::optional<Failure> failureOf(const YTypedValue<T>& result) {
  if (result.hasValue()) return std::nullopt;
  return result.error().failure;
}

/// Reads each text of the tables through `get` on an option "k": `values`
/// must read as their value, the others must fail as listed.
template <class T, class Get>
void expectReadings(Get get, const std::vector<std::pair<const char*, T>>& values,
                    const std::vector<const char*>& outOfRange, const std::vector<const char*>& malformed) {
  for (const auto& [text, value] : values) {
    auto result = get(*holding(S(text)), S("k"));
    ASSERT_TRUE(result.hasValue()) << text << ": " << utf8(result.error().description());
    EXPECT_EQ(result.value(), value) << text;
  }
  for (auto [texts, failure] :
       {std::pair{&outOfRange, Failure::OutOfRange}, std::pair{&malformed, Failure::Malformed}}) {
    for (const char* text : *texts) {
      auto result = get(*holding(S(text)), S("k"));
      ASSERT_EQ(failureOf(result), failure) << text;
      EXPECT_EQ(utf8(result.error().text), text);  // as found, untrimmed
    }
  }
}

TEST(TypedValues, Booleans) {
  expectReadings<bool>(boolValueForOptionWithName,
                       {{"true", true}, {"TRUE", true}, {"Yes", true}, {"oN", true}, {"1", true}, {" yes\t", true},
                        {"false", false}, {"No", false}, {"OFF", false}, {"0", false}, {"\n off \n", false}},
                       {},
                       {"", "y", "2", "truee", "t rue", "01", "-0", "1.0", "on\u00A0x",
                        "ye\u017F",     // long s: "s" only under Unicode case folding
                        "\uFF54rue"});  // fullwidth t
}

TEST(TypedValues, Integers) {
  expectReadings<std::int64_t>(
      integerValueForOptionWithName,
      {{"0", 0}, {"42", 42}, {"+42", 42}, {"-42", -42}, {"007", 7}, {"-007", -7}, {" 12 \n", 12},
       {"00000000000000000000000000001", 1}, {"0x10", 16}, {"0XfF", 255}, {"-0x10", -16}, {"+0x0", 0},
       {"9223372036854775807", kInt64Max}, {"-9223372036854775808", kInt64Min}, {"0x7fffffffffffffff", kInt64Max},
       {"-0x8000000000000000", kInt64Min}},
      {"9223372036854775808", "-9223372036854775809", "0x8000000000000000", "-0x8000000000000001",
       "0xFFFFFFFFFFFFFFFF", "18446744073709551616", "-0x10000000000000000", "99999999999999999999999"},
      {"", " ", "+", "-", "0x", "-0x", "--5", "+-5", "-+5", "0x-5", "0x+5", "1 000", "1_000", "12a", "0x1g", "1.0",
       "1e3", "0b101", "x10", "0x0x5", "\u0663", "0\uFF10",
       "99999999999999999999x"});  // digits past the range, then junk: malformed
}

TEST(TypedValues, Doubles) {
  expectReadings<double>(
      doubleValueForOptionWithName,
      {{"1.5", 1.5}, {"-2.25", -2.25}, {"+0.5", 0.5}, {".5", 0.5}, {"1.", 1.0}, {"1e3", 1000.0}, {"2E-3", 0.002},
       {"00012.5", 12.5}, {" 7 ", 7.0}, {"0.1", 0.1}, {"1.7976931348623157e308", std::numeric_limits<double>::max()},
       {"4.9e-324", std::numeric_limits<double>::denorm_min()}},
      {"1e400", "-1e400", "1e-400"},
      {"nan", "NaN", "-nan", "nan(1)", "inf", "+INF", "-Infinity", "infinity", "1,5", "0x1p3", "", "+", "+-1", "++1",
       "1e", "1.2.3", "1 .5", "\uFF11", "1.5f"});
  EXPECT_TRUE(std::signbit(doubleValueForOptionWithName(*holding(S("-0")), S("k")).value()));
}

TEST(TypedValues, MissingIsNotMalformedAndNeitherReadsAsZero) {
  auto s = sec("s", {opt("bad", "x"), opt("gone", "1")});
  s->commit();
  s->setValueForOptionWithName(YString(), S("gone"));  // committed: stays, with a null value
  for (const char* name : {"absent", "gone"}) {
    auto result = integerValueForOptionWithName(*s, S(name));
    EXPECT_EQ(failureOf(result), Failure::MissingOption) << name;
    EXPECT_TRUE(result.error().text.isNull());
    EXPECT_EQ(utf8(result.error().description()), std::string("option \"") + name + "\" not found (expected integer)");
  }
  auto bad = integerValueForOptionWithName(*s, S("bad"));
  EXPECT_EQ(utf8(bad.error().description()), "option \"bad\": \"x\" is not a valid integer");
  EXPECT_PRECONDITION((void)bad.value(), "hasValue()");
  EXPECT_EQ(bad.valueOr(-1), -1);
  auto huge = doubleValueForOptionWithName(*holding(S("1e999")), S("k"));
  EXPECT_EQ(utf8(huge.error().description()),
            "option \"k\": \"1e999\" is out of range (expected floating-point number)");

  auto good = boolValueForOptionWithName(*holding(S("no")), S("k"));
  EXPECT_FALSE(good.valueOr(true));
  EXPECT_PRECONDITION((void)good.error(), "!hasValue()");
}

TEST(TypedValues, ListsSplitTrimAndKeepInnerEmptyEntries) {
  struct Case {
    const char* text;
    char16_t separator;
    List entries;
  };
  const std::vector<Case> cases = {
      {"a, b ,c", u',', {"a", "b", "c"}}, {"a,,b", u',', {"a", "", "b"}}, {"a, ,b", u',', {"a", "", "b"}},
      {"a,b,", u',', {"a", "b"}},         {"a,b, \n", u',', {"a", "b"}}, {",", u',', {""}},
      {",a", u',', {"", "a"}},            {"a,,", u',', {"a", ""}},      {"", u',', {}},
      {" \t", u',', {}},                  {"a", u',', {"a"}},            {"a;b, c", u';', {"a", "b, c"}},
      {"a  b", u' ', {"a", "", "b"}},     {"x:y", u':', {"x", "y"}},
      {"a,\n b,\n c", u',', {"a", "b", "c"}}};  // over continuation lines
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    auto result = listValueForOptionWithName(*holding(S(c.text)), S("k"), c.separator);
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(strings(result.value()), c.entries);
  }
  EXPECT_EQ(strings(listValueForOptionWithName(*holding(S("a;b,c")), S("k")).value()), (List{"a;b", "c"}));
  EXPECT_EQ(failureOf(listValueForOptionWithName(*holding(S("a")), S("x"))), Failure::MissingOption);
}

TEST(TypedValues, ListsAreWrittenSoThatTheyReadBackTheSame) {
  struct Case {
    std::vector<const char*> entries;
    char16_t separator;
    const char* text;  // null: refused
  };
  const std::vector<Case> cases = {
      {{"a", "b", "c"}, u',', "a, b, c"}, {{}, u',', ""},            {{"a", "", "b"}, u',', "a, , b"},
      {{"a", ""}, u',', "a, ,"},          {{""}, u',', ","},         {{"", ""}, u',', ", ,"},
      {{"a b", "c"}, u';', "a b; c"},     {{"a", "b"}, u' ', "a b"}, {{"a", "b"}, u'\t', "a\tb"},
      {{"a,b"}, u',', nullptr},           {{" a"}, u',', nullptr},   {{"a "}, u',', nullptr},
      {{"a\nb"}, u',', nullptr},          {{"a\u2028b"}, u',', nullptr}, {{nullptr}, u',', nullptr},
      {{"a b"}, u' ', nullptr},           {{"a", "b"}, u'\n', nullptr}, {{"a", "b"}, u'\xD800', nullptr},
      // A blank separator at either end of the text would be trimmed off.
      {{"", "a"}, u' ', nullptr},         {{"a", ""}, u' ', nullptr}, {{""}, u'\t', nullptr},
      {{"a", "", "b"}, u' ', "a  b"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text ? c.text : "refused");
    const auto entries = ystrings(c.entries);
    auto s = holding(S("old"));
    s->commit();
    const bool written = setListValueForOptionWithName(*s, entries, S("k"), c.separator);
    EXPECT_EQ(written, c.text != nullptr);
    EXPECT_EQ(utf8(stringWithListValue(entries, c.separator)), c.text ? c.text : "<null>");
    if (!c.text) {
      EXPECT_FALSE(s->isModified());
      continue;
    }
    EXPECT_EQ(utf8(s->valueForOptionWithName(S("k"))), c.text);
    EXPECT_EQ(strings(listValueForOptionWithName(*s, S("k"), c.separator).value()), strings(entries));
  }
}

TEST(TypedValues, SettersWriteCanonicalTextsThatReadBack) {
  auto s = YIniSection::sectionWithName(S("s"));
  setBoolValueForOptionWithName(*s, true, S("b"));
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("b"))), "true");
  setBoolValueForOptionWithName(*s, false, S("b"));
  EXPECT_EQ(utf8(s->valueForOptionWithName(S("b"))), "false");

  for (std::int64_t value : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1234567}, kInt64Max, kInt64Min}) {
    setIntegerValueForOptionWithName(*s, value, S("i"));
    EXPECT_EQ(utf8(s->valueForOptionWithName(S("i"))), std::to_string(value));
    EXPECT_EQ(integerValueForOptionWithName(*s, S("i")).value(), value);
  }

  const std::vector<std::pair<double, const char*>> texts = {{0.1, "0.1"}, {3.0, "3"},      {1e100, "1e+100"},
                                                             {-0.0, "-0"}, {1e-5, "1e-05"}, {1234567.25, "1234567.25"}};
  for (const auto& [value, text] : texts) {
    ASSERT_TRUE(setDoubleValueForOptionWithName(*s, value, S("d")));
    EXPECT_EQ(utf8(s->valueForOptionWithName(S("d"))), text);
  }
  for (double value :
       {std::numeric_limits<double>::max(), std::numeric_limits<double>::lowest(), std::numeric_limits<double>::min(),
        std::numeric_limits<double>::denorm_min(), 1.0 / 3, -2.5e-300, 123456789012345678.0}) {
    ASSERT_TRUE(setDoubleValueForOptionWithName(*s, value, S("d")));
    EXPECT_EQ(doubleValueForOptionWithName(*s, S("d")).value(), value) << utf8(s->valueForOptionWithName(S("d")));
  }
  s->commit();
  for (double value : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                       -std::numeric_limits<double>::infinity()}) {
    EXPECT_FALSE(setDoubleValueForOptionWithName(*s, value, S("d")));
    EXPECT_FALSE(setDoubleValueForOptionWithName(*s, value, S("new")));
  }
  EXPECT_FALSE(s->isModified());
  EXPECT_FALSE(s->hasOptionWithName(S("new")));
}

// With LC_ALL and LC_NUMERIC, and the C++ global locale, set to German, whose
// decimal separator is ",". Fails when the locale is missing:
// scripts/install-deps.sh generates it.
TEST(TypedValues, NumbersIgnoreTheLocale) {
  const char* name = "de_DE.UTF-8";
  ASSERT_NE(std::setlocale(LC_ALL, name), nullptr) << name << " is not installed (run scripts/install-deps.sh)";
  struct Restore {
    ~Restore() {
      std::setlocale(LC_ALL, "C");
      std::locale::global(std::locale::classic());
    }
  } restore;
  ASSERT_NE(std::setlocale(LC_NUMERIC, name), nullptr);
  try {
    std::locale::global(std::locale(name));
  } catch (const std::runtime_error& e) {
    FAIL() << "std::locale(\"" << name << "\"): " << e.what();
  }
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");  // the locale would change a locale-bound parse
  ASSERT_EQ(std::use_facet<std::numpunct<char>>(std::locale()).decimal_point(), ',');

  EXPECT_EQ(doubleValueForOptionWithName(*holding(S("1.5")), S("k")).value(), 1.5);
  EXPECT_EQ(failureOf(doubleValueForOptionWithName(*holding(S("1,5")), S("k"))), Failure::Malformed);
  EXPECT_EQ(integerValueForOptionWithName(*holding(S("-1234567")), S("k")).value(), -1234567);
  auto s = YIniSection::sectionWithName(S("s"));
  ASSERT_TRUE(setDoubleValueForOptionWithName(*s, 1234567.25, S("d")));
  setIntegerValueForOptionWithName(*s, 1234567, S("i"));
  ASSERT_TRUE(setListValueForOptionWithName(*s, ystrings({"1.5", "2"}), S("l")));
  EXPECT_EQ(utf8(s->stringValue()), "[s]\nd=1234567.25\ni=1234567\nl=1.5, 2\n");
}

TEST(TypedValues, SettersGoThroughTheOptionsOwnChangeTracking) {
  auto first = opt("port", "80"), second = opt("port", "81");
  auto s = sec("s", {lf(), first, second, cmt("# end")});
  auto document = withChildren(YIniDocument::documentWithFactory(YIniStandardElementFactory::standardFactory()), {s});
  document->commit();
  KeyObserver optionModified(*first, YModifiedKey), documentModified(*document, YModifiedKey);
  KeyObserver elements(*s, S("elements"));

  setIntegerValueForOptionWithName(*s, 8080, S("port"));  // the first option of the name, in place
  EXPECT_EQ(optionModified.count(), 1u);
  EXPECT_TRUE(optionModified.lastBool());
  EXPECT_TRUE(documentModified.lastBool());
  EXPECT_EQ(utf8(second->value()), "81");
  EXPECT_EQ(elements.count(), 0u);
  setIntegerValueForOptionWithName(*s, 80, S("port"));  // the same text again: not modified
  EXPECT_EQ(optionModified.count(), 2u);
  EXPECT_FALSE(documentModified.lastBool());

  s->setValueForOptionWithName(YString(), S("port"));  // committed: kept with a null value
  setBoolValueForOptionWithName(*s, true, S("port"));  // written into that option again
  EXPECT_EQ(s->elements()->objectAtIndex(1), first);
  EXPECT_EQ(utf8(first->value()), "true");
  EXPECT_EQ(elements.count(), 0u);

  ASSERT_TRUE(setListValueForOptionWithName(*s, ystrings({"a", "b"}), S("hosts")));  // new: after the last option
  ASSERT_EQ(elements.count(), 1u);
  EXPECT_EQ(elements.changes[0].kind, YKeyValueChangeKind::Insertion);
  EXPECT_EQ(elements.changes[0].indexes, YIndexSet(3));
  EXPECT_EQ(utf8(s->stringValue()), "[s]\nport=true\nport=81\nhosts=a, b\n# end");
  EXPECT_TRUE(documentModified.lastBool());
  document->revert();
  EXPECT_EQ(utf8(document->stringValue()), "[s]\nport=80\nport=81\n# end");
  EXPECT_FALSE(document->isModified());
}

/// A committed document read from `text`.
std::shared_ptr<YIniDocument> load(const char* text) {
  auto document = YIniDocument::documentFromStringFactory(S(text), YIniStandardElementFactory::standardFactory());
  document->commit();
  return document;
}

TEST(TypedDocument, GettersTellAMissingSectionFromAMissingOption) {
  auto document = load("[server]\nport=80x\nhosts=a,,b,\n[server]\nmore=1\n");
  auto port = integerValueForOptionWithNameInSectionWithName(*document, S("port"), S("server"));
  EXPECT_EQ(failureOf(port), Failure::Malformed);
  EXPECT_EQ(utf8(port.error().sectionName) + " " + utf8(port.error().text), "server 80x");
  EXPECT_EQ(utf8(port.error().description()), "option \"port\" in section \"server\": \"80x\" is not a valid integer");

  auto noOption = boolValueForOptionWithNameInSectionWithName(*document, S("more"), S("server"));  // first section only
  EXPECT_EQ(failureOf(noOption), Failure::MissingOption);
  EXPECT_EQ(utf8(noOption.error().sectionName), "server");
  auto noSection = doubleValueForOptionWithNameInSectionWithName(*document, S("port"), S("Server"));
  EXPECT_EQ(failureOf(noSection), Failure::MissingSection);
  EXPECT_EQ(utf8(noSection.error().description()),
            "section \"Server\" not found (expected floating-point number option \"port\")");
  EXPECT_EQ(strings(listValueForOptionWithNameInSectionWithName(*document, S("hosts"), S("server")).value()),
            (List{"a", "", "b"}));
  EXPECT_EQ(failureOf(listValueForOptionWithNameInSectionWithName(*document, S("hosts"), S("x"))),
            Failure::MissingSection);
  EXPECT_FALSE(document->isModified());
}

TEST(TypedDocument, SettersCreateAMissingSectionAtTheEndOnALineOfItsOwn) {
  const std::vector<std::pair<const char*, std::string>> cases = {  // text, what comes before the new section
      {"", ""},           {"[a]\nx=1\n# tail\n", "[a]\nx=1\n# tail\n"}, {"[a]\nx=1", "[a]\nx=1\n"},
      {"[a]", "[a]\n"},  {"[a]\n# no line end", "[a]\n# no line end\n"},  {"# only a comment", "# only a comment\n"},
      {"# comment\n", "# comment\n"},
  };
  for (const auto& [text, before] : cases) {
    SCOPED_TRACE(text);
    auto document = load(text);
    setBoolValueForOptionWithNameInSectionWithName(*document, true, S("k"), S("new"));
    EXPECT_EQ(utf8(document->stringValue()), before + "[new]\nk=true\n");
    EXPECT_TRUE(document->isModified());
    auto reread = load(document->stringValue().UTF8String().c_str());
    EXPECT_TRUE(boolValueForOptionWithNameInSectionWithName(*reread, S("k"), S("new")).value());
  }

  auto document = load("[a]\nx=1\n# end\n[a]\n");
  setIntegerValueForOptionWithNameInSectionWithName(*document, -5, S("y"), S("a"));  // the first [a]
  ASSERT_TRUE(setDoubleValueForOptionWithNameInSectionWithName(*document, 0.25, S("x"), S("a")));
  ASSERT_TRUE(setListValueForOptionWithNameInSectionWithName(*document, ystrings({"p", "q"}), S("l"), S("b"), u';'));
  EXPECT_EQ(utf8(document->stringValue()), "[a]\nx=0.25\ny=-5\n# end\n[a]\n[b]\nl=p; q\n");
  EXPECT_EQ(dynamicType(document->sectionForName(S("b"))), typeid(YIniSection));

  auto untouched = load("[a]\nx=1");
  EXPECT_FALSE(setDoubleValueForOptionWithNameInSectionWithName(*untouched, std::numeric_limits<double>::quiet_NaN(),
                                                                S("k"), S("new")));
  EXPECT_FALSE(setListValueForOptionWithNameInSectionWithName(*untouched, ystrings({"a,b"}), S("k"), S("new")));
  EXPECT_FALSE(untouched->isModified());
  EXPECT_EQ(untouched->elements()->count(), 1u);
}

TEST(TypedDocument, NullNamesArePreconditionFailures) {
  auto document = load("[a]\nx=1\n");
  auto& s = *document->sectionForName(S("a"));
  // Each accessor on a section (option name), and on the document (option and section names).
  using OnSection = std::function<void(const YString&)>;
  using OnDocument = std::function<void(const YString&, const YString&)>;
  const std::vector<std::pair<OnSection, OnDocument>> calls = {
      {[&](auto& o) { (void)boolValueForOptionWithName(s, o); },
       [&](auto& o, auto& n) { (void)boolValueForOptionWithNameInSectionWithName(*document, o, n); }},
      {[&](auto& o) { (void)integerValueForOptionWithName(s, o); },
       [&](auto& o, auto& n) { (void)integerValueForOptionWithNameInSectionWithName(*document, o, n); }},
      {[&](auto& o) { (void)doubleValueForOptionWithName(s, o); },
       [&](auto& o, auto& n) { (void)doubleValueForOptionWithNameInSectionWithName(*document, o, n); }},
      {[&](auto& o) { (void)listValueForOptionWithName(s, o); },
       [&](auto& o, auto& n) { (void)listValueForOptionWithNameInSectionWithName(*document, o, n); }},
      {[&](auto& o) { setBoolValueForOptionWithName(s, true, o); },
       [&](auto& o, auto& n) { setBoolValueForOptionWithNameInSectionWithName(*document, true, o, n); }},
      {[&](auto& o) { setIntegerValueForOptionWithName(s, 1, o); },
       [&](auto& o, auto& n) { setIntegerValueForOptionWithNameInSectionWithName(*document, 1, o, n); }},
      {[&](auto& o) { (void)setDoubleValueForOptionWithName(s, 1, o); },
       [&](auto& o, auto& n) { (void)setDoubleValueForOptionWithNameInSectionWithName(*document, 1, o, n); }},
      {[&](auto& o) { (void)setListValueForOptionWithName(s, {}, o); },
       [&](auto& o, auto& n) { (void)setListValueForOptionWithNameInSectionWithName(*document, {}, o, n); }}};
  for (const auto& call : calls) {
    EXPECT_PRECONDITION(call.first(YString()), "optionName != nil");
    EXPECT_PRECONDITION(call.second(YString(), S("a")), "optionName != nil");
    EXPECT_PRECONDITION(call.second(S("x"), YString()), "sectionName != nil");
  }
  EXPECT_FALSE(document->isModified());

  // With a handler that returns, getters fail and setters change nothing.
  RecordingScope recording;
  EXPECT_EQ(failureOf(integerValueForOptionWithName(s, YString())), Failure::MissingOption);
  EXPECT_FALSE(setDoubleValueForOptionWithName(s, 1, YString()));
  setBoolValueForOptionWithName(s, true, YString());
  EXPECT_EQ(failureOf(integerValueForOptionWithNameInSectionWithName(*document, YString(), S("a"))),
            Failure::MissingOption);
  EXPECT_EQ(failureOf(integerValueForOptionWithNameInSectionWithName(*document, S("x"), YString())),
            Failure::MissingSection);
  setIntegerValueForOptionWithNameInSectionWithName(*document, 1, S("x"), YString());
  EXPECT_FALSE(document->isModified());
  const std::string onSection = "YIniSection+TypedValues", onDocument = "YIniDocument+TypedValues";
  EXPECT_EQ(recording.handler->units(),
            (std::vector<std::string>{onSection, onSection, onSection, onDocument, onDocument, onDocument}));
}

}  // namespace
