// The two per-satellite atmosphere calls of the first epoch: straight-line arithmetic,
// no allocation. Inputs vary a little from one iteration to the next so that nothing is
// folded away.

#include <benchmark/benchmark.h>

#include "atmosphere/atmosphere_settings.h"
#include "atmosphere/klobuchar.h"
#include "atmosphere/troposphere.h"

namespace {

using namespace vorel::atmosphere;

void BM_TroposphereDelay(benchmark::State& bench) {
  const int model = static_cast<int>(bench.range(0));
  AtmosphereState state;
  double elevation = 5.0;
  for (auto _ : bench) {
    double delay = TroposphereDelay(state, elevation, 15.0, 1013.25, 50.0, 120.0, 47.5, 200, model);
    benchmark::DoNotOptimize(delay);
    elevation = elevation < 85.0 ? elevation + 0.37 : 5.0;
  }
}
BENCHMARK(BM_TroposphereDelay)->Arg(1)->Arg(2)->Arg(3);

void BM_KlobucharDelay(benchmark::State& bench) {
  AtmosphereState state;
  IonoCoefficientTable table{
      {{1.1176e-08, 7.4506e-09, -5.9605e-08, -5.9605e-08}, {90112.0, 0.0, -196608.0, -65536.0}}};
  LoadKlobucharCoefficients(state, table);
  double t = 345600.0;
  for (auto _ : bench) {
    double delay = 0.0;
    KlobucharDelay(state, 0.70, -1.75, 2.1, 0.35, t, delay);
    benchmark::DoNotOptimize(delay);
    t = t < 600000.0 ? t + 997.0 : 345600.0;
  }
}
BENCHMARK(BM_KlobucharDelay);

}  // namespace
