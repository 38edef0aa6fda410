// The complex form's inner loop on one channel: a block of 1 ms at 2.6, 4 and 16.368 MHz,
// a satellite at +3 kHz and one at -4.5 kHz Doppler (both directions of the carrier), and
// the same at a 1.2 MHz offset, where the carrier moves too fast between samples for the
// table window and the loop gathers. Counter: chsamples = channel-samples per second.
//
//   build/release/vorel_bench --benchmark_filter=IqChannel

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "dif/iq_kernel.h"

namespace {

void BM_IqChannel(benchmark::State& st) {
  const auto rate = static_cast<double>(st.range(0));
  const double doppler = static_cast<double>(st.range(1));
  const double offset = static_cast<double>(st.range(2));
  static vorel::dif::IqCodeTable code;
  vorel::dif::MakeIqCodeTable(6, code);
  vorel::dif::IqChannelPlan plan;
  plan.codePhase = uint64_t{517} << 32;
  plan.codeStep = static_cast<uint64_t>(
      std::llround(1.023e6 * (1.0 + doppler / 1575.42e6) / rate * 4294967296.0));
  plan.carrierPhase = 0x12345678u;
  plan.carrierStep = static_cast<uint32_t>(
      static_cast<int64_t>(std::llround((doppler + offset) / rate * 4294967296.0)));
  plan.gain = {0.01f, -0.01f, 0.01f};
  plan.code = &code;
  const auto count = static_cast<int32_t>(rate / 1000.0);
  vorel::dif::SetIqPeriodStarts(plan, count);
  // I and Q half a page apart, as the generator keeps them.
  const int32_t apart = (count + 16 + 1023) / 1024 * 1024 + 512;
  std::vector<float> sums(2 * apart);
  float* i = sums.data();
  float* q = i + apart;
  const auto chunk = static_cast<int32_t>(st.range(4));
  for (auto _ : st) {
    for (int32_t c0 = 0; c0 < count; c0 += chunk)
      vorel::dif::AddIqChannelFast(plan, c0, std::min(count, c0 + chunk), i, q, st.range(3) != 0);
    benchmark::DoNotOptimize(i);
    benchmark::DoNotOptimize(q);
  }
  st.counters["chsamples"] =
      benchmark::Counter(static_cast<double>(count) * static_cast<double>(st.iterations()),
                         benchmark::Counter::kIsRate);
}

BENCHMARK(BM_IqChannel)
    ->ArgNames({"fs", "doppler", "offset", "wide", "chunk"})
    ->ArgsProduct({{2600000, 4000000, 16368000}, {3000, -4500}, {0, 1200000}, {1, 0}, {1024, 2048, 4096, 65536}});

}  // namespace
