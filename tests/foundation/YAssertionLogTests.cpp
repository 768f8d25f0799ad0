// The assertion handler (text, per-thread handlers, a returning handler) and the log.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cctype>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "YFoundation.h"

namespace {

static constexpr const char YUnitName[] = "YTestUnit";

struct Failure {
  std::string method;
  const YObject* object;
  std::string unit;
  int line;
  YString description;
};

class RecordingHandler : public YAssertionHandler {
 public:
  std::vector<Failure> failures;
  void handleFailureInMethod(const char* method, const YObject* object, const char* unit, int line,
                             const YString& description) override {
    failures.push_back(Failure{method, object, unit, line, description});
  }
  void handleFailureInFunction(const char* function, const char* unit, int line,
                               const YString& description) override {
    failures.push_back(Failure{function, nullptr, unit, line, description});
  }
};

// Installs a handler for the test's duration.
class HandlerScope {
 public:
  explicit HandlerScope(std::shared_ptr<YAssertionHandler> handler)
      : _previous(YAssertionHandler::setCurrentHandler(std::move(handler))) {}
  ~HandlerScope() { YAssertionHandler::setCurrentHandler(_previous); }

 private:
  std::shared_ptr<YAssertionHandler> _previous;
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

TEST(YAssertionHandlerTest, ReturningHandlerRecordsAndTheOperationBailsOut) {
  auto recorder = std::make_shared<RecordingHandler>();
  HandlerScope scope(recorder);
  auto checker = std::make_shared<Checker>();
  checker->take(nullptr);
  checker->takeAtFixedLine(nullptr);
  EXPECT_FALSE(freeCheck(nullptr));
  YReportAssertionFailure("save", checker.get(), YUnitName, 12, YString(u"Options must belong to a Section"));
  EXPECT_EQ(checker->reached, 0);
  EXPECT_TRUE(freeCheck(checker.get()));

  ASSERT_EQ(recorder->failures.size(), 4u);
  const Failure& f = recorder->failures[0];
  EXPECT_EQ(f.method, "take");
  EXPECT_EQ(f.object, checker.get());
  EXPECT_EQ(f.unit, "YTestUnit");
  EXPECT_EQ(f.line, checker->checkedLine);
  EXPECT_EQ(f.description, YString(u"Invalid parameter not satisfying: element != nil"));
  EXPECT_EQ(recorder->failures[1].line, 75);
  EXPECT_EQ(recorder->failures[1].description, YString(u"Invalid parameter not satisfying: textWriter != nil"));
  EXPECT_EQ(recorder->failures[2].method, "freeCheck");
  EXPECT_EQ(recorder->failures[2].object, nullptr);
  EXPECT_EQ(recorder->failures[2].line, freeCheckLine);
  EXPECT_EQ(recorder->failures[3].description, YString(u"Options must belong to a Section"));
}

TEST(YAssertionHandlerTest, HandlersArePerThread) {
  auto recorder = std::make_shared<RecordingHandler>();
  HandlerScope scope(recorder);
  EXPECT_EQ(&YAssertionHandler::currentHandler(), recorder.get());
  bool otherThreadThrew = false;
  std::thread([&] {
    try {
      freeCheck(nullptr);
    } catch (const YInternalInconsistencyException&) {
      otherThreadThrew = true;
    }
  }).join();
  EXPECT_TRUE(otherThreadThrew);  // the other thread still has the default handler
  EXPECT_TRUE(recorder->failures.empty());

  auto previous = YAssertionHandler::setCurrentHandler(nullptr);  // back to the default
  EXPECT_EQ(previous, recorder);
  EXPECT_THROW(freeCheck(nullptr), YInternalInconsistencyException);
  YAssertionHandler::setCurrentHandler(recorder);
  freeCheck(nullptr);
  EXPECT_EQ(recorder->failures.size(), 1u);
}

TEST(YLogTest, SinkReceivesEachFormattedMessage) {
  std::vector<YString> lines;
  YLogSink previous = YSetLogSink([&](const YString& message) { lines.push_back(message); });
  YLog("Unrecognized text sequence %@", YString(u"k v"));
  YLog("%d of %@", 3, YString());
  YSetLogSink(previous);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], YString(u"Unrecognized text sequence k v"));
  EXPECT_EQ(lines[1], YString(u"3 of (null)"));
}

TEST(YLogTest, DefaultLineHasTimestampAndProcessPrefix) {
  YLogSink previous = YSetLogSink(nullptr);
  testing::internal::CaptureStderr();
  YLog("Unrecognized text sequence %@", YString(u"k v"));
  std::string line = testing::internal::GetCapturedStderr();
  YSetLogSink(previous);
  // "2026-11-22 10:15:02.118 name[pid:tid] message\n"; '9' stands for any digit.
  const std::string stamp = "9999-99-99 99:99:99.999 ";
  ASSERT_GT(line.size(), stamp.size()) << line;
  for (std::size_t i = 0; i < stamp.size(); ++i)
    EXPECT_TRUE(stamp[i] == '9' ? std::isdigit(static_cast<unsigned char>(line[i])) != 0 : line[i] == stamp[i])
        << line;
  const std::size_t bracket = line.find('[', stamp.size());
  ASSERT_NE(bracket, std::string::npos) << line;
  EXPECT_GT(bracket, stamp.size());  // a process name
  const std::string ids = std::to_string(getpid()) + ":" + std::to_string(static_cast<long>(syscall(SYS_gettid)));
  EXPECT_EQ(line.substr(bracket), "[" + ids + "] Unrecognized text sequence k v\n");
}

}  // namespace
