// Speed of the map: the TEC grid the map draws (64,800 NeQuick columns from 100 to
// 20,000 km, rows shared over the OpenMP threads; goal: on screen within 1.5 s), the
// broadcast-model grid, and drawing and composing the layers into a PNG.
//
//   build/release/vorel_bench --benchmark_filter='Map|Tec'
//   OMP_NUM_THREADS=1 build/release/vorel_bench --benchmark_filter=NequickTecGrid

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>

#include "display/map_layers.h"
#include "display/tec_grid.h"

namespace d = vorel::display;

namespace {

d::TecMapRequest Request(int32_t model) {
  d::TecMapRequest r;
  r.model = model;
  r.month = 4;
  r.hour = 12.0;
  r.solarFlux = 150.0;
  r.timeOfWeek = 388800.0;
  return r;
}

void BM_NequickTecGrid(benchmark::State& bs) {
  vorel::atmosphere::AtmosphereState atmosphere;
  vorel::density_model::ModelState model;
  model.searchDirs = {std::filesystem::path(VOREL_SOURCE_DATA_DIR) / "nequick"};
  d::TecGrid grid;
  std::string error;
  for (auto _ : bs)
    if (!d::ComputeTecGrid(Request(d::kTecMapNequick), atmosphere, model, grid, error))
      std::abort();
}
BENCHMARK(BM_NequickTecGrid)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_KlobucharTecGrid(benchmark::State& bs) {
  vorel::atmosphere::AtmosphereState atmosphere;
  vorel::density_model::ModelState model;
  d::TecGrid grid;
  std::string error;
  for (auto _ : bs) d::ComputeTecGrid(Request(d::kTecMapKlobuchar), atmosphere, model, grid, error);
}
BENCHMARK(BM_KlobucharTecGrid)->Unit(benchmark::kMillisecond);

void BM_MapDrawAndCompose(benchmark::State& bs) {
  std::vector<d::Ring> rings;
  std::string error;
  d::LoadCoastlines({std::filesystem::path(VOREL_SOURCE_DATA_DIR) / "world"}, rings, error);
  d::TecGrid grid;
  grid.tec.assign(d::kTecRows * d::kTecColumns, 30.0);
  for (auto _ : bs) {
    d::MapScene scene;
    d::DrawBasePicture(scene.layer(d::MapLayer::kBase), rings);
    d::DrawOverlay(scene.layer(d::MapLayer::kOverlay));
    d::DrawTecLayer(scene.layer(d::MapLayer::kNequick), grid);
    benchmark::DoNotOptimize(
        d::ComposeMapLayers(scene, {255, 255, 150, 150, 255, 200}).EncodePng());
  }
}
BENCHMARK(BM_MapDrawAndCompose)->Unit(benchmark::kMillisecond);

}  // namespace
