// The assertion handler (text, per-thread handlers, a returning handler) and the log.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "YFoundation.h"

namespace {

static constexpr const char YUnitName[] = "YTestUnit";

// Records each failure as "method unit:line description" and the object it names.
class RecordingHandler : public YAssertionHandler {
 public:
  std::vector<std::string> failures;
  std::vector<const YObject*> objects;
  void handleFailureInMethod(const char* method, const YObject* object, const char* unit, int line,
                             const YString& description) override {
    failures.push_back(std::string(method) + " " + unit + ":" + std::to_string(line) + " " +
                       description.UTF8String());
    objects.push_back(object);
  }
  void handleFailureInFunction(const char* function, const char* unit, int line,
                               const YString& description) override {
    handleFailureInMethod(function, nullptr, unit, line, description);
  }
};

class Checker : public YObject {
 public:
  int reached = 0;
  int checkedLine = 0;
  void take(const YObject* element) {
    checkedLine = __LINE__ + 1;
    if (YParameterFailed(element != nullptr, "element != nil")) return;
    ++reached;
  }
  void takeAtFixedLine(const YObject* element) {
    if (YParameterFailedAtLine(element != nullptr, "textWriter != nil", 75)) return;
    ++reached;
  }
};

int freeCheckLine = 0;
bool freeCheck(const YObject* element) {
  freeCheckLine = __LINE__ + 1;
  if (YCParameterFailed(element != nullptr, "element != nil")) return false;
  return true;
}

TEST(YAssertionHandlerTest, DefaultHandlerThrowsWithTheConditionText) {
  auto checker = std::make_shared<Checker>();
  try {
    checker->take(nullptr);
    FAIL() << "no exception";
  } catch (const YInternalInconsistencyException& e) {
    EXPECT_EQ(e.reason(), YString(u"Invalid parameter not satisfying: element != nil"));
    EXPECT_EQ(e.name(), YString(u"YInternalInconsistencyException"));
    EXPECT_STREQ(e.what(), "Invalid parameter not satisfying: element != nil");
  }
  EXPECT_THROW(freeCheck(nullptr), YInternalInconsistencyException);
  checker->take(checker.get());
  EXPECT_EQ(checker->reached, 1);
}

TEST(YAssertionHandlerTest, ReturningHandlerRecordsAndIsPerThread) {
  auto recorder = std::make_shared<RecordingHandler>();
  auto previous = YAssertionHandler::setCurrentHandler(recorder);
  auto checker = std::make_shared<Checker>();
  checker->take(nullptr);
  checker->takeAtFixedLine(nullptr);
  EXPECT_FALSE(freeCheck(nullptr));
  YReportAssertionFailure("save", checker.get(), YUnitName, 12, YString(u"Options must belong to a Section"));
  EXPECT_EQ(checker->reached, 0);  // each operation bailed out
  bool otherThreadThrew = false;   // the other thread still has the default handler
  std::thread([&] {
    try {
      freeCheck(nullptr);
    } catch (const YInternalInconsistencyException&) {
      otherThreadThrew = true;
    }
  }).join();
  EXPECT_EQ(YAssertionHandler::setCurrentHandler(nullptr), recorder);  // back to the default
  EXPECT_THROW(freeCheck(nullptr), YInternalInconsistencyException);
  YAssertionHandler::setCurrentHandler(previous);
  EXPECT_TRUE(otherThreadThrew);

  const std::string unmet = " Invalid parameter not satisfying: ";
  const std::vector<std::string> expected = {
      "take YTestUnit:" + std::to_string(checker->checkedLine) + unmet + "element != nil",
      "takeAtFixedLine YTestUnit:75" + unmet + "textWriter != nil",
      "freeCheck YTestUnit:" + std::to_string(freeCheckLine) + unmet + "element != nil",
      "save YTestUnit:12 Options must belong to a Section"};
  EXPECT_EQ(recorder->failures, expected);
  EXPECT_EQ(recorder->objects, (std::vector<const YObject*>{checker.get(), checker.get(), nullptr, checker.get()}));
}

// Counts its live copies, so that a test sees whether a sink was destroyed.
struct Counted {
  static inline int live = 0;
  Counted() { ++live; }
  Counted(const Counted&) { ++live; }
  ~Counted() { --live; }
};

TEST(YLogTest, SinkAndDefaultLine) {
  std::vector<YString> lines;
  YLogSink previous = YSetLogSink([&](const YString& message) { lines.push_back(message); });
  YLog("Unrecognized text sequence %@", YString(u"k v"));
  YLog("%d of %@", 3, YString());
  // A sink that replaces itself lives on until its call returns.
  static int liveDuringCall = -1;  // static: the sink reads none of its own captures after replacing itself
  YSetLogSink([counted = Counted()](const YString&) {
    const int before = Counted::live;
    YSetLogSink(nullptr);
    liveDuringCall = Counted::live - before;
  });
  YLog("replaced");
  EXPECT_EQ(liveDuringCall, 0);
  EXPECT_EQ(Counted::live, 0);
  testing::internal::CaptureStderr();
  YLog("Unrecognized text sequence %@", YString(u"k v"));
  std::string line = testing::internal::GetCapturedStderr();
  YSetLogSink(previous);

  EXPECT_EQ(lines, (std::vector<YString>{YString(u"Unrecognized text sequence k v"), YString(u"3 of (null)")}));
  // "2026-11-22 10:15:02.118 name[pid:tid] message\n"
  const std::string ids = std::to_string(getpid()) + ":" + std::to_string(static_cast<long>(syscall(SYS_gettid)));
  EXPECT_TRUE(std::regex_match(line, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [^\[ ]+\[)" + ids +
                                                R"(\] Unrecognized text sequence k v\n)")))
      << line;
}

}  // namespace
