// Shared helpers for the element-model suites.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "YFoundation.h"

/// Records failed preconditions instead of throwing, while installed.
class RecordingAssertionHandler : public YAssertionHandler {
 public:
  struct Failure {
    std::string unit;
    int line;
    std::string description;
  };
  void handleFailureInMethod(const char*, const YObject*, const char* unit, int line,
                             const YString& description) override {
    failures.push_back({unit, line, description.UTF8String()});
  }
  void handleFailureInFunction(const char*, const char* unit, int line, const YString& description) override {
    failures.push_back({unit, line, description.UTF8String()});
  }
  std::vector<Failure> failures;
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

 private:
  YObject& _object;
  YString _key;
};

inline std::string utf8(const YString& s) { return s.isNull() ? std::string("<null>") : s.UTF8String(); }

/// Expects `statement` to fail the precondition `text` through the default handler.
#define EXPECT_PRECONDITION(statement, text)                                                        \
  do {                                                                                              \
    try {                                                                                           \
      statement;                                                                                    \
      ADD_FAILURE() << "no precondition failure";                                                   \
    } catch (const YInternalInconsistencyException& e) {                                            \
      EXPECT_EQ(std::string(e.what()), std::string("Invalid parameter not satisfying: ") + (text)); \
    }                                                                                               \
  } while (0)
