// Cost of one atmosphere update along the rays: twelve satellites seen from Singapore at
// 20:00 local time in March, flux 150, a bubble across two of the rays. The goal with
// AtmosphereUpdateInterval: under 15 ms an update.

#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "atmosphere/slant_iono.h"
#include "density_model/model_state.h"
#include "gnss/time_coords.h"

namespace {

using namespace vorel;

struct Ray {
  double sat[3];
  double los[3];
  double range;
};

std::vector<Ray> TwelveRays(double latDeg, double lonDeg) {
  gnss::Ecef r;
  gnss::GeodeticToEcef(latDeg, lonDeg, 20.0, r);
  std::vector<Ray> rays;
  for (int k = 0; k < 12; ++k) {
    // Sub-satellite points on two rings around the receiver.
    const double spread = k % 2 ? 25.0 : 50.0;
    const double a = k * 30.0 * M_PI / 180.0;
    gnss::Ecef s;
    gnss::GeodeticToEcef(latDeg + spread * std::cos(a), lonDeg + spread * std::sin(a), 20200e3, s);
    Ray ray;
    ray.sat[0] = s.x, ray.sat[1] = s.y, ray.sat[2] = s.z;
    const double d[3] = {s.x - r.x, s.y - r.y, s.z - r.z};
    ray.range = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    for (int i = 0; i < 3; ++i) ray.los[i] = d[i] / ray.range;
    rays.push_back(ray);
  }
  return rays;
}

void BM_AtmosphereUpdateTwelveRays(benchmark::State& bs) {
  density_model::ModelState model;
  model.searchDirs = {std::filesystem::path(VOREL_SOURCE_DATA_DIR) / "nequick"};
  atmosphere::SlantIonoState state;
  atmosphere::BubbleSettings bubble;
  bubble.bubbleEnabled = 1;
  bubble.bubbleApplyDelay = 1;
  bubble.bubbleClassify = 1;
  bubble.bubbleLatitude = 1.3;
  bubble.bubbleLonNorth = bubble.bubbleLonSouth = 108.2;
  bubble.bubbleWidth = 200.0;
  bubble.bubbleLength = 1000.0;
  bubble.bubbleDrift = 0.1;
  const auto rays = TwelveRays(1.3, 103.8);
  int32_t timeMs = 561600000;
  int crossed = 0;
  for (auto _ : bs) {
    crossed = 0;
    for (int k = 0; k < 12; ++k) {
      atmosphere::SlantIonoInput in;
      in.latRad = 1.3 * M_PI / 180.0, in.lonRad = 103.8 * M_PI / 180.0, in.satIndex = k;
      in.lineOfSight = rays[k].los, in.range = rays[k].range, in.satPosition = rays[k].sat;
      in.month = 3, in.ut = 12.0, in.flux = 150.0, in.bubble = &bubble, in.timeMs = timeMs;
      double delay = 0.0;
      int32_t cls = 0;
      atmosphere::SlantIonoDetail detail;
      atmosphere::SlantIonoDelay(model, state, in, delay, cls, &detail);
      if (!model.error.empty()) std::abort();
      crossed += detail.crossed ? 1 : 0;
      benchmark::DoNotOptimize(delay);
    }
    timeMs += 1000;
  }
  bs.counters["rays_crossing_the_bubble"] = crossed;
}
BENCHMARK(BM_AtmosphereUpdateTwelveRays)->Unit(benchmark::kMillisecond);

}  // namespace
