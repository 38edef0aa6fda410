#pragma once
// The benchmarks' sky: a full GPS-like constellation and a static receiver under it.

#include <cmath>
#include <memory>

#include "observation/epoch.h"
#include "orbits/orbit_record.h"

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

}  // namespace vorel::bench
