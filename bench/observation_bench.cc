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

namespace {

using namespace vorel;

// 32 healthy satellites in six planes of a GPS-like shell.
std::unique_ptr<orbits::ConstellationTable> FullSky() {
  auto table = std::make_unique<orbits::ConstellationTable>();
  for (int s = 0; s < 32; ++s) {
    auto& row = table->rows[s];
    row.recordCount = 1;
    orbits::OrbitRecord& o = row.trueRecords[0];
    o.prn = s + 1;
    o.status = orbits::kStatusUsable;
    o.sqrtA = 5153.6;
    o.e = 0.01;
    o.i0 = 0.96;
    o.toe = 345600.0 + 3600.0;
    o.toc = o.toe;
    o.af0 = 1e-5 * (s % 7);
    o.af1 = 1e-12;
    o.Omega0 = (s % 6) * (M_PI / 3);
    o.M0 = (s / 6) * (2 * M_PI / 6) + (s % 6) * 0.3;
    o.omega = 0.5;
    o.OmegaDot = -8e-9;
    o.Cuc = 2e-6;
    o.Cus = 6e-6;
    o.Crc = 250.0;
    o.Crs = 40.0;
  }
  return table;
}

observation::TrajectoryRunArgs StaticArgs() {
  observation::TrajectoryRunArgs args;
  args.latitude = 45.0;
  args.longitude = 10.0;
  args.altitude = 100.0;
  args.elevationMask = 5.0 * observation::kDegToRad;
  args.startMs = 345600000;
  args.satelliteCount = 32;
  return args;
}

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
  for (auto _ : st) {
    observation::EpochState state;
    platform::RandState rand;
    observation::EpochEnvironment env{*table, state, rand};
    platform::OutputFile out;
    out.Open(path);
    auto args = StaticArgs();
    args.intervalMs = 1;
    args.durationArg = 60;
    args.recordType = observation::kRecordScn;
    auto record = observation::MakeRecordSink(args.recordType, out);
    env.sinks.push_back(record.get());
    observation::EpochResult result;
    std::atomic<uint8_t> runActive{1};
    observation::SimulateTrajectory(env, args, result, runActive, platform::Messages::Silent());
    out.Close();
  }
  st.counters["epochs"] = 60001;
  std::filesystem::remove(path);
}
BENCHMARK(BM_StaticScnRun60sAt1ms)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
