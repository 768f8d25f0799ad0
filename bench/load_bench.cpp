// Loading an 8 MB INI text, setting one value and writing the text back.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include "IniCorpus.h"
#include "YIniDocument+Extensions.h"
#include "YIniStandardElementFactory.h"

namespace {

const YString& corpus() {
  static const YString text = YString::fromUTF8(makeIniCorpus(8u << 20));
  return text;
}

void setAllRoundTripCounters(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_rss_MB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void BM_Load(benchmark::State& state) {
  auto factory = YIniStandardElementFactory::standardFactory();
  for (auto _ : state) {
    auto document = YIniDocument::documentFromStringFactory(corpus(), factory);
    benchmark::DoNotOptimize(document.get());
  }
  setAllRoundTripCounters(state, corpus().length() * 2);
}
BENCHMARK(BM_Load)->Unit(benchmark::kMillisecond);

void BM_LoadSetWrite(benchmark::State& state) {
  auto factory = YIniStandardElementFactory::standardFactory();
  for (auto _ : state) {
    auto document = YIniDocument::documentFromStringFactory(corpus(), factory);
    auto section = document->sections()->objectAtIndex(document->sections()->count() / 2);
    section->setValueForOptionWithName(YString(u"changed"), section->optionNames().front());
    YString text = document->stringValue();
    benchmark::DoNotOptimize(text.length());
  }
  setAllRoundTripCounters(state, corpus().length() * 2);
}
BENCHMARK(BM_LoadSetWrite)->Unit(benchmark::kMillisecond);

void BM_Write(benchmark::State& state) {
  auto document = YIniDocument::documentFromStringFactory(corpus(), YIniStandardElementFactory::standardFactory());
  for (auto _ : state) {
    YString text = document->stringValue();
    benchmark::DoNotOptimize(text.length());
  }
  setAllRoundTripCounters(state, corpus().length() * 2);
}
BENCHMARK(BM_Write)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
