#pragma once
// The benchmarks' sky: a full GPS-like constellation and a static receiver under it.

#include <atomic>
#include <cmath>
#include <filesystem>
#include <memory>
#include <vector>

#include "observation/epoch.h"
#include "observation/epoch_sink.h"
#include "observation/record_writers.h"
#include "observation/trajectory.h"
#include "orbits/orbit_record.h"
#include "platform/messages.h"
#include "platform/text_file.h"

namespace vorel::bench {

// 32 healthy satellites in six planes of a GPS-like shell.
inline std::unique_ptr<orbits::ConstellationTable> FullSky() {
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

// The receiver at 45 N 10 E, 100 m, mask 5 degrees, starting at the sky's epoch.
inline observation::TrajectoryRunArgs StaticArgs() {
  observation::TrajectoryRunArgs args;
  args.latitude = 45.0;
  args.longitude = 10.0;
  args.altitude = 100.0;
  args.elevationMask = 5.0 * observation::kDegToRad;
  args.startMs = 345600000;
  args.satelliteCount = 32;
  return args;
}

// One minute of the static receiver at 1 ms into a .scn record at `path`, with `extra`
// sinks beside the record's; false when the run or the record did not end whole.
inline bool RunStaticScnMinute(orbits::ConstellationTable& table,
                               const std::filesystem::path& path,
                               const std::vector<observation::EpochSink*>& extra = {}) {
  observation::EpochState state;
  platform::RandState rand;
  observation::EpochEnvironment env{table, state, rand};
  platform::OutputFile out;
  if (!out.Open(path)) return false;
  observation::TrajectoryRunArgs args = StaticArgs();
  args.intervalMs = 1;
  args.durationArg = 60;
  args.recordType = observation::kRecordScn;
  auto record = observation::MakeRecordSink(args.recordType, out);
  env.sinks.push_back(record.get());
  env.sinks.insert(env.sinks.end(), extra.begin(), extra.end());
  observation::EpochResult result;
  std::atomic<uint8_t> runActive{1};
  const platform::Status status =
      observation::SimulateTrajectory(env, args, result, runActive, platform::Messages::Silent());
  return out.Close() && status.ok();
}

}  // namespace vorel::bench
