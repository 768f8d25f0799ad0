#include "YLog.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

namespace {

// The installed sink, shared: a call in progress holds its own count, so a
// sink that replaces itself lives until it returns.
std::shared_ptr<YLogSink>& sinkSlot() {
  static std::shared_ptr<YLogSink> sink;
  return sink;
}

std::string processName() {
  char name[64] = "process";
  if (FILE* f = std::fopen("/proc/self/comm", "r")) {
    if (std::fgets(name, sizeof name, f)) {
      std::string s(name);
      while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
      std::fclose(f);
      return s;
    }
    std::fclose(f);
  }
  return name;
}

void writeToStandardError(const YString& message) {
  using namespace std::chrono;
  auto now = system_clock::now();
  std::time_t seconds = system_clock::to_time_t(now);
  auto millis = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  static const std::string name = processName();
  std::string line = std::string(stamp) + "." + std::to_string(1000 + millis).substr(1) + " " + name + "[" +
                     std::to_string(getpid()) + ":" + std::to_string(static_cast<long>(syscall(SYS_gettid))) +
                     "] " + message.UTF8String() + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

}  // namespace

YLogSink YSetLogSink(YLogSink sink) {
  std::shared_ptr<YLogSink> previous = std::move(sinkSlot());
  if (sink) sinkSlot() = std::make_shared<YLogSink>(std::move(sink));
  if (!previous) return {};
  // A sink replaced from inside its own call is still running: the caller
  // gets a copy of it. Otherwise nothing else holds it, and it is handed over.
  if (previous.use_count() > 1) return *previous;
  return std::move(*previous);
}

void YLogMessage(const YString& message) {
  if (const std::shared_ptr<YLogSink> sink = sinkSlot()) (*sink)(message);
  else writeToStandardError(message);
}
