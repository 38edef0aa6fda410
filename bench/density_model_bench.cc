// Speed of the electron density model: one full request, one slant ray to a satellite
// at 30 degrees elevation, and the TEC map's work of 64,800 vertical columns from 100 to
// 20,000 km. Goals: the grid under 1 s on one core, a slant ray under 2 ms.

#include <cmath>
#include <cstdlib>
#include <memory>

#include <benchmark/benchmark.h>

#include "density_model/electron_density.h"
#include "density_model/model_data.h"
#include "density_model/slant_tec.h"

namespace dm = vorel::density_model;

namespace {

std::unique_ptr<dm::ModelState> PreparedState() {
  auto state = std::make_unique<dm::ModelState>();
  state->searchDirs = {std::filesystem::path(VOREL_SOURCE_DATA_DIR) / "nequick"};
  double lon = 10.0, flux = 150.0, ut = 12.0;
  dm::ElectronDensity(*state, 300.0, 45.0, lon, 4, flux, ut);
  if (!state->error.empty()) std::abort();
  return state;
}

// A new request at a new place each time, same month, flux and hour.
void BM_ElectronDensity(benchmark::State& bs) {
  auto state = PreparedState();
  int k = 0;
  for (auto _ : bs) {
    double lat = -80.0 + (k % 161), lon = -179.0 + (k * 7 % 359), flux = 150.0, ut = 12.0;
    benchmark::DoNotOptimize(dm::ElectronDensity(*state, 300.0, lat, lon, 4, flux, ut));
    ++k;
  }
}
BENCHMARK(BM_ElectronDensity);

// Receiver at 45N 10E on the ground; satellite due south at 20,200 km, seen at exactly
// 30 degrees elevation on the model's sphere.
void BM_SlantTec30Degrees(benchmark::State& bs) {
  auto state = PreparedState();
  const double re = dm::kEarthRadius, hs = 20200.0, el = 30.0 * dm::kDeg;
  const double psi = 90.0 - 30.0 - std::asin(re * std::cos(el) / (re + hs)) / dm::kDeg;
  for (auto _ : bs) {
    double lon1 = 10.0, flux = 150.0, ut = 12.0;
    benchmark::DoNotOptimize(
        dm::SlantTec(*state, 45.0, lon1, 0.0, 45.0 - psi, 10.0, hs, 4, flux, ut));
  }
}
BENCHMARK(BM_SlantTec30Degrees)->Unit(benchmark::kMicrosecond);

// 180 x 360 columns on a one-degree grid, each from 100 to 20,000 km.
void BM_VerticalTecGrid(benchmark::State& bs) {
  auto state = PreparedState();
  for (auto _ : bs) {
    double total = 0.0;
    for (int i = 0; i < 180; ++i) {
      for (int j = 0; j < 360; ++j) {
        double lat = -89.5 + i, lon = -179.5 + j, flux = 150.0, ut = 12.0;
        total += dm::SlantTec(*state, lat, lon, 100.0, lat, lon, 20000.0, 4, flux, ut);
      }
    }
    benchmark::DoNotOptimize(total);
  }
}
BENCHMARK(BM_VerticalTecGrid)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace
