// Loading the example orbit files into the constellation table.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "orbits/orbit_files.h"

namespace {

std::string Example(const char* name) {
  return std::string(VOREL_SOURCE_DATA_DIR) + "/examples/" + name;
}

void BM_ReadRinexNavigation(benchmark::State& state) {
  auto table = std::make_unique<vorel::orbits::ConstellationTable>();
  const auto messages = vorel::platform::Messages::Silent();
  const std::string path = Example("brdc1820.10n");
  for (auto _ : state)
    benchmark::DoNotOptimize(vorel::orbits::ReadRinexNavigation(*table, path, messages));
}
BENCHMARK(BM_ReadRinexNavigation)->Unit(benchmark::kMillisecond);

void BM_ReadYumaAlmanac(benchmark::State& state) {
  auto table = std::make_unique<vorel::orbits::ConstellationTable>();
  const auto messages = vorel::platform::Messages::Silent();
  const std::string path = Example("yuma147.txt");
  for (auto _ : state) {
    vorel::platform::LineReader file(path);
    benchmark::DoNotOptimize(vorel::orbits::ReadYumaAlmanac(file, *table, messages));
  }
}
BENCHMARK(BM_ReadYumaAlmanac)->Unit(benchmark::kMicrosecond);

}  // namespace
