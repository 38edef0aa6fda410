// Cost of one epoch with a full sky, and of the one-minute .scn run at 1 ms that feeds a
// one-minute DIF recording.
#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <memory>

#include "observation/epoch.h"
#include "observation/record_writers.h"
#include "observation/trajectory.h"
#include "platform/messages.h"
#include "platform/text_file.h"

#include "bench_sky.h"

namespace {

using namespace vorel;

using bench::FullSky;
using bench::StaticArgs;

void BM_ComputeEpoch32Satellites(benchmark::State& st) {
  auto table = FullSky();
  observation::EpochState state;
  platform::RandState rand;
  observation::EpochEnvironment env{*table, state, rand};
  auto args = StaticArgs();
  args.recordType = observation::kRecordNone;
  observation::EpochLoop loop;
  loop.previousCode.assign(32, 0.0);
  loop.cache.assign(32, {});
  loop.wavelength = 299792458.0 / 1575420000.0;
  loop.receiverEcef = {4497783.0, 793089.0, 4487348.0};
  const double phi = 45.0 * observation::kDegToRad, lam = 10.0 * observation::kDegToRad;
  loop.northRow = {-std::sin(phi) * std::cos(lam), -std::sin(phi) * std::sin(lam), std::cos(phi)};
  loop.eastRow = {-std::sin(lam), std::cos(lam), 0.0};
  loop.upRow = {std::cos(phi) * std::cos(lam), std::cos(phi) * std::sin(lam), std::sin(phi)};
  observation::EpochResult result;
  int32_t t = 345600000;
  int channels = 0;
  for (auto _ : st) {
    result.timeMs = ++t;
    observation::ComputeEpoch(env, args, loop, result, phi, lam, 100.0, t);
    channels = result.channelCount;
  }
  st.counters["visible"] = channels;
}
BENCHMARK(BM_ComputeEpoch32Satellites);

void BM_StaticScnRun60sAt1ms(benchmark::State& st) {
  auto table = FullSky();
  const auto path = std::filesystem::temp_directory_path() / "vorel-bench-run.scn";
  for (auto _ : st)
    if (!bench::RunStaticScnMinute(*table, path)) st.SkipWithError("the run did not end whole");
  st.counters["epochs"] = 60001;
  std::filesystem::remove(path);
}
BENCHMARK(BM_StaticScnRun60sAt1ms)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
