// Speed of the DIF generator: 10 s of signal at 16.368 MHz from a .scn record of 12
// satellites, 2 bits, Packed, with the filter off and on; the plain loop (the reference
// for the bytes), the vector form on one thread, and the vector form with the blocks shared
// out over two threads (one per core on the build machine). Counters: realtime = signal
// seconds per wall second; chsamples = channel-samples per second (12 x 16.368 million per
// signal second). In-process: the whole program, start-up included, is timed by
// bench/dif_threads.sh, quiet and beside busy processes.
//
//   build/release/vorel_bench --benchmark_filter=Dif

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "dif/dif_run.h"

namespace {

constexpr int kChannels = 12;
constexpr double kSignalSeconds = 10.0;

// A record of 12 satellites at 20,000 to 26,000 km moving at up to +-800 m/s, 1 ms epochs,
// and navigation files of random bits.
std::filesystem::path BenchData() {
  static const std::filesystem::path dir = [] {
    const auto d =
        std::filesystem::temp_directory_path() / fmt::format("vorel-dif-bench-{}", ::getpid());
    std::filesystem::create_directories(d / "NAV");
    std::mt19937 rng(1);
    std::vector<int32_t> bits(88500);
    for (int prn = 1; prn <= 32; ++prn) {
      for (int32_t& b : bits) b = static_cast<int32_t>(rng() & 1);
      std::FILE* f = std::fopen((d / "NAV" / fmt::format("navbin{}", prn)).c_str(), "wb");
      std::fwrite(bits.data(), 4, bits.size(), f);
      std::fclose(f);
    }
    std::FILE* f = std::fopen((d / "bench.scn").c_str(), "w");
    const int epochs = static_cast<int>(kSignalSeconds * 1000) + 3;
    for (int e = 0; e < epochs; ++e) {
      std::fprintf(f, "%d\n%3d\n", 349200000 + e, kChannels);
      for (int c = 0; c < kChannels; ++c) {
        const double range = 20000000.0 + 500000.0 * c + (-800.0 + 140.0 * c) * e * 0.001;
        std::fprintf(f, "%d  %14.3f  %14.3f  %d  \n", 2 * c + 1, range, range, 0);
      }
    }
    std::fclose(f);
    return d;
  }();
  return dir;
}

void RunTenSeconds(benchmark::State& st, int filterOn, bool vectorised, int threads) {
  const auto dir = BenchData();
  vorel::dif::DifPanelValues panel;
  panel.Duration = kSignalSeconds / 60.0;
  panel.FilterOn = filterOn;
  panel.MaxChannels = kChannels;
  vorel::dif::DifRunPaths paths;
  paths.output = "/dev/null";
  paths.record = dir / "bench.scn";
  paths.dataDir = dir;
  vorel::dif::DifState state;
  std::atomic<uint8_t> active{0};
  const auto messages = vorel::platform::Messages::Silent();
  for (auto _ : st) {
    vorel::platform::RandState rand;
    vorel::dif::DifRunOutcome outcome;
    vorel::dif::RunDifGeneration(panel, paths, state, rand, active, messages, {vectorised, threads},
                                 outcome);
    if (outcome.report.blocks != static_cast<int64_t>(kSignalSeconds * 1000))
      st.SkipWithError("short run");
  }
  st.counters["realtime"] =
      benchmark::Counter(kSignalSeconds * st.iterations(), benchmark::Counter::kIsRate);
  st.counters["chsamples"] = benchmark::Counter(
      kSignalSeconds * 16368000.0 * kChannels * st.iterations(), benchmark::Counter::kIsRate);
}

void BM_DifPlain(benchmark::State& st) {
  RunTenSeconds(st, static_cast<int>(st.range(0)), false, 1);
}
void BM_DifVector(benchmark::State& st) {
  RunTenSeconds(st, static_cast<int>(st.range(0)), true, 1);
}
void BM_DifVectorTwoThreads(benchmark::State& st) {
  RunTenSeconds(st, static_cast<int>(st.range(0)), true, 2);
}

BENCHMARK(BM_DifPlain)
    ->ArgName("filter")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();
BENCHMARK(BM_DifVector)
    ->ArgName("filter")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(2)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();
BENCHMARK(BM_DifVectorTwoThreads)
    ->ArgName("filter")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(2)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

}  // namespace
