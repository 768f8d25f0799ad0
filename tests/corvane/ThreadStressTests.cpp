// Documents on several threads at once. Each producer thread loads, edits,
// writes and (every few rounds) saves and reloads documents of its own, then
// hands each one with some of its strings to a consumer thread, which reads,
// reverts and releases them: objects, strings and their memory end on other
// threads than the ones that made them. CI runs this under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FileFaultSupport.h"
#include "YFoundation.h"
#include "YIniDocument+Extensions.h"
#include "YIniSection.h"
#include "YIniStandardElementFactory.h"

namespace {

/// A text of 12 sections of 6 options, with a continuation line and a line
/// the reader drops with a log line.
std::string textFor(int producer, int round) {
  std::string text = "# document " + std::to_string(producer) + "/" + std::to_string(round) + "\n";
  for (int s = 0; s < 12; ++s) {
    text += "[s" + std::to_string(s) + "]\n";
    for (int o = 0; o < 6; ++o) text += "k" + std::to_string(o) + "=value " + std::to_string(round * 100 + s * 10 + o) + "\n";
    if (s == 5) text += "long=first\n  second\n; dropped\n\n";
  }
  return text;
}

struct Parcel {
  std::shared_ptr<YIniDocument> document;
  std::vector<YString> strings;  // made on the producer's thread
  std::string text;              // the document's text when handed over
  std::string value;             // s3.k0 as set by the producer
};

/// A queue from producers to consumers; closed when every producer is done.
class Channel {
 public:
  explicit Channel(int producers) : _open(producers) {}
  void push(Parcel parcel) {
    std::lock_guard<std::mutex> lock(_mutex);
    _parcels.push_back(std::move(parcel));
    _ready.notify_one();
  }
  void close() {
    std::lock_guard<std::mutex> lock(_mutex);
    --_open;
    _ready.notify_all();
  }
  /// The next parcel, or false once the channel is closed and empty.
  bool pop(Parcel& parcel) {
    std::unique_lock<std::mutex> lock(_mutex);
    _ready.wait(lock, [&] { return !_parcels.empty() || _open == 0; });
    if (_parcels.empty()) return false;
    parcel = std::move(_parcels.front());
    _parcels.pop_front();
    return true;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _ready;
  std::deque<Parcel> _parcels;
  int _open;
};

TEST(ThreadStress, DocumentsAndStringsMoveBetweenThreads) {
  constexpr int kProducers = 3, kConsumers = 2, kRounds = 300, kSaveEvery = 10;
  filefault::TempDir dir;
  std::atomic<int> logLines{0};
  const YLogSink previous = YSetLogSink([&](const YString&) { ++logLines; });
  Channel channel(kProducers);
  std::atomic<int> consumed{0};

  std::vector<std::thread> threads;
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([&, p] {
      const YString file(dir / ("p" + std::to_string(p) + ".ini"));
      for (int round = 0; round < kRounds; ++round) {
        auto document = YIniDocument::documentFromStringFactory(YString(textFor(p, round)),
                                                                YIniStandardElementFactory::standardFactory());
        if (!document) {
          ADD_FAILURE() << "no document";
          break;
        }
        document->commit();
        const std::string value = "set by " + std::to_string(p) + " in " + std::to_string(round);
        document->sectionForName(YString(u"s3"))->setValueForOptionWithName(YString(value), YString(u"k0"));
        document->sectionForName(YString(u"s7"))->removeOptionWithName(YString(u"k2"));
        document->sectionForName(YString(u"s9"))->setValueForOptionWithName(YString(u"new"), YString(u"added"));
        EXPECT_TRUE(document->isModified());
        if (round % kSaveEvery == 0) {
          std::shared_ptr<YError> error;
          EXPECT_TRUE(document->writeToFileAtomicallyEncodingError(file, true, YUTF8StringEncoding, &error))
              << error->localizedDescription().UTF8String();
          auto reloaded = YIniDocument::documentWithContentsOfFileFactory(
              file, YIniStandardElementFactory::standardFactory());
          EXPECT_EQ(YReadFile(file, nullptr), document->stringValue().UTF8String());
          EXPECT_EQ(reloaded->sectionForName(YString(u"s3"))->valueForOptionWithName(YString(u"k0")).UTF8String(),
                    value);
        }
        auto strings = document->sectionForName(YString(u"s9"))->optionNames();
        strings.push_back(YString::stringWithFormat("%d:%d", p, round));
        const std::string text = document->stringValue().UTF8String();
        channel.push({std::move(document), std::move(strings), text, value});
      }
      channel.close();
    });
  }
  for (int c = 0; c < kConsumers; ++c) {
    threads.emplace_back([&] {
      for (Parcel parcel; channel.pop(parcel); parcel = Parcel()) {
        EXPECT_EQ(parcel.document->stringValue().UTF8String(), parcel.text);
        EXPECT_EQ(parcel.document->sectionForName(YString(u"s3"))->valueForOptionWithName(YString(u"k0")).UTF8String(),
                  parcel.value);
        EXPECT_EQ(parcel.strings.size(), 8u);
        parcel.document->revert();
        EXPECT_FALSE(parcel.document->isModified());
        EXPECT_FALSE(parcel.document->sectionForName(YString(u"s9"))->hasOptionWithName(YString(u"added")));
        ++consumed;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  YSetLogSink(previous);
  EXPECT_EQ(consumed, kProducers * kRounds);
  EXPECT_EQ(logLines, kProducers * kRounds);  // the dropped line of each text (not saved, so not reloaded)
}

}  // namespace
