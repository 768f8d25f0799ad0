// Shared helpers for the element-model suites.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "YFoundation.h"
#include "YIniComment.h"
#include "YIniOption.h"
#include "YIniSection.h"

/// Records failed preconditions instead of throwing, while installed.
class RecordingAssertionHandler : public YAssertionHandler {
 public:
  struct Failure {
    std::string unit;
    int line;
    std::string description;
    /// "unit:line:description", for one-line comparisons.
    std::string text() const { return unit + ":" + std::to_string(line) + ":" + description; }
  };
  void handleFailureInMethod(const char* f, const YObject*, const char* unit, int line, const YString& d) override {
    handleFailureInFunction(f, unit, line, d);
  }
  void handleFailureInFunction(const char*, const char* unit, int line, const YString& d) override {
    failures.push_back({unit, line, d.UTF8String()});
  }
  std::vector<Failure> failures;
  /// Each failure's unit, or its whole text, in order.
  std::vector<std::string> units() const { return each([](const Failure& f) { return f.unit; }); }
  std::vector<std::string> texts() const { return each([](const Failure& f) { return f.text(); }); }

 private:
  template <class F>
  std::vector<std::string> each(F field) const {
    std::vector<std::string> out;
    for (const Failure& f : failures) out.push_back(field(f));
    return out;
  }
};

/// Installs a recording handler for the lifetime of the scope.
class RecordingScope {
 public:
  RecordingScope() : handler(std::make_shared<RecordingAssertionHandler>()) {
    YAssertionHandler::setCurrentHandler(handler);
  }
  ~RecordingScope() { YAssertionHandler::setCurrentHandler(nullptr); }
  std::shared_ptr<RecordingAssertionHandler> handler;
};

/// Observes one key on one object and records every notification.
class KeyObserver : public YObject {
 public:
  KeyObserver(YObject& object, const YString& key) : _object(object), _key(key) {
    _object.addObserver(this, _key, YKeyValueObservingOptionNew, nullptr);
  }
  ~KeyObserver() override { _object.removeObserver(this, _key); }
  void observeValueForKeyPath(const YString&, YObject* object, const YKeyValueChange& change, void*) override {
    EXPECT_EQ(object, &_object);
    changes.push_back(change);
  }
  std::size_t count() const { return changes.size(); }
  /// The boolean New value of the last notification.
  bool lastBool() const { return std::get<bool>(changes.back().newValue); }
  std::vector<YKeyValueChange> changes;
  YObject& _object;
  YString _key;
};

inline std::string utf8(const YString& s) { return s.isNull() ? std::string("<null>") : s.UTF8String(); }
inline YString S(const char* s) { return s ? YString(s) : YString(); }
inline std::vector<std::string> strings(const std::vector<YString>& list) {
  std::vector<std::string> result;
  for (const auto& s : list) result.push_back(utf8(s));
  return result;
}
/// An option; a null `value` makes an absent value.
inline std::shared_ptr<YIniOption> opt(const char* name, const char* value = "v") {
  return YIniOption::optionWithNameAndValue(S(name), S(value));
}
inline std::shared_ptr<YIniComment> cmt(const char* text) { return YIniComment::commentWithString(S(text)); }
inline std::shared_ptr<YIniComment> lf() { return YIniComment::commentWithNewLine(); }
/// A host's comment class: the library asks it for its text instead of reading it directly.
class HostComment : public YIniComment {
 public:
  using YIniComment::YIniComment;
};
/// `parent` after adding `children` in order.
template <class T>
std::shared_ptr<T> withChildren(std::shared_ptr<T> parent, const std::vector<std::shared_ptr<YIniElement>>& children) {
  for (const auto& child : children) parent->addElement(child);
  return parent;
}
/// A section `name` holding `children`.
inline std::shared_ptr<YIniSection> sec(const char* name, const std::vector<std::shared_ptr<YIniElement>>& children) {
  return withChildren(YIniSection::sectionWithName(S(name)), children);
}

/// The dynamic type of the object `pointer` points to.
template <class P>
const std::type_info& dynamicType(const P& pointer) {
  const auto& object = *pointer;
  return typeid(object);
}

/// The text of the precondition failure `act` raises through the default handler.
inline std::string preconditionFailure(const std::function<void()>& act) {
  try {
    act();
  } catch (const YInternalInconsistencyException& e) {
    return e.what();
  }
  return "no precondition failure";
}
#define EXPECT_PRECONDITION(statement, text) \
  EXPECT_EQ(preconditionFailure([&] { (void)(statement); }), std::string("Invalid parameter not satisfying: ") + (text))
