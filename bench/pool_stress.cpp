// Resident memory of the small-object pool under a producer and a consumer.
//
// Each round, the producer thread loads a document (about 200 KB of INI text)
// and makes 10,000 strings of 0 to 120 code units (a tenth of them mutable,
// grown by appending); it hands the round to a consumer thread, which
// releases all of it. At most two rounds are in flight, so the live set stays
// the same from round to round, and resident memory must too. The program
// prints the resident set after 100, 500 and 2,000 rounds (each time after
// the consumer has released everything so far) and the peak.
//
//   pool_stress [cross|same|phases] [rounds]
//
// `cross` (the default) releases on the consumer thread, `same` releases on
// the producer thread right away. `phases` runs on one thread: it fills a
// 48 MB live set with strings of one size class, releases them and goes on to
// the next class, 16 classes in all; a pool that keeps a class's blocks for
// that class alone ends with the sum of all phases resident.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "IniCorpus.h"
#include "YIniDocument.h"
#include "YIniStandardElementFactory.h"

namespace {

double residentMB() {
  long pages = 0;
  if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
    long size = 0;
    if (std::fscanf(statm, "%ld %ld", &size, &pages) != 2) pages = 0;
    std::fclose(statm);
  }
  return static_cast<double>(pages) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

double peakMB() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

bool isCheckpoint(long round) { return round == 100 || round == 500 || round == 2000 || round % 1000 == 0; }

void report(const char* mode, long round) {
  std::printf("%-6s round %5ld  resident %8.1f MB  peak %8.1f MB\n", mode, round, residentMB(), peakMB());
  std::fflush(stdout);
}

struct Round {
  std::shared_ptr<YIniDocument> document;
  std::vector<YString> strings;
};

class Producer {
 public:
  Producer() : _text(YString::fromUTF8(makeIniCorpus(200u << 10))), _factory(YIniStandardElementFactory::standardFactory()) {}

  std::unique_ptr<Round> make() {
    auto round = std::make_unique<Round>();
    round->document = YIniDocument::documentFromStringFactory(_text, _factory);
    round->strings.reserve(kStrings);
    std::u16string units(120, u'a');
    for (int i = 0; i < kStrings; ++i) {
      const std::size_t length = next() % 121;
      if (i % 10 == 0) {
        YString grown = YString::mutableStringWithString(YString(u""));
        for (std::size_t at = 0; at < length; at += 16)
          grown.appendString(YString(std::u16string_view(units).substr(0, std::min<std::size_t>(16, length - at))));
        round->strings.push_back(std::move(grown));
      } else {
        round->strings.emplace_back(std::u16string_view(units).substr(0, length));
      }
    }
    return round;
  }

 private:
  static constexpr int kStrings = 10000;
  std::uint32_t next() {
    _state = _state * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<std::uint32_t>(_state >> 33);
  }
  YString _text;
  std::shared_ptr<YIniElementFactory> _factory;
  std::uint64_t _state = 7;
};

void runCross(long rounds) {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::unique_ptr<Round>> queue;
  long released = 0;
  bool done = false;
  std::thread consumer([&] {
    for (;;) {
      std::unique_ptr<Round> round;
      {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return done || !queue.empty(); });
        if (queue.empty()) return;
        round = std::move(queue.front());
        queue.pop_front();
      }
      round.reset();
      std::lock_guard<std::mutex> lock(mutex);
      ++released;
      changed.notify_all();
    }
  });
  std::thread producer([&] {
    Producer maker;
    for (long i = 1; i <= rounds; ++i) {
      auto round = maker.make();
      std::unique_lock<std::mutex> lock(mutex);
      changed.wait(lock, [&] { return queue.size() < 2; });
      queue.push_back(std::move(round));
      changed.notify_all();
      if (isCheckpoint(i)) {
        changed.wait(lock, [&] { return released == i; });
        report("cross", i);
      }
    }
    std::lock_guard<std::mutex> lock(mutex);
    done = true;
    changed.notify_all();
  });
  producer.join();
  consumer.join();
}

void runSame(long rounds) {
  std::thread producer([&] {
    Producer maker;
    std::unique_ptr<Round> previous;
    for (long i = 1; i <= rounds; ++i) {
      auto round = maker.make();
      previous = std::move(round);  // two rounds live at a time, as in `cross`
      if (isCheckpoint(i)) report("same", i);
    }
  });
  producer.join();
}

void runPhases() {
  constexpr std::size_t kLiveBytes = std::size_t(48) << 20;
  std::printf("phases: 48 MB of strings of one size class at a time\n");
  for (std::size_t units = 3; units <= 123; units += 8) {
    // An immutable string of n code units takes 8 + 2 (n + 1) bytes.
    const std::size_t blockBytes = 8 + 2 * (units + 1);
    std::vector<YString> live;
    live.reserve(kLiveBytes / blockBytes);
    const std::u16string text(units, u'p');
    for (std::size_t bytes = 0; bytes < kLiveBytes; bytes += blockBytes) live.emplace_back(text);
    std::printf("  %3zu-byte blocks: resident %8.1f MB with the live set,", blockBytes, residentMB());
    live.clear();
    live.shrink_to_fit();
    std::printf(" %8.1f MB after releasing it\n", residentMB());
  }
  std::printf("peak %8.1f MB\n", peakMB());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "cross";
  const long rounds = argc > 2 ? std::atol(argv[2]) : 2000;
  if (mode == "cross") runCross(rounds);
  else if (mode == "same") runSame(rounds);
  else if (mode == "phases") runPhases();
  else {
    std::fprintf(stderr, "usage: pool_stress [cross|same|phases] [rounds]\n");
    return 2;
  }
  return 0;
}
