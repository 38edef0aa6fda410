// Time of the navigation message commands: one satellite's 59 frames, and nav-all, the
// files of PRN 1 to 32 written into a scratch data directory.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "navmsg/nav_message.h"

namespace {

using vorel::navmsg::NavMessageSettings;
using vorel::navmsg::NavMessageState;

vorel::orbits::ConstellationTable BenchTable() {
  vorel::orbits::ConstellationTable table;
  for (int i = 0; i < 32; ++i) {
    auto& row = table.rows[i];
    row.recordCount = 1;
    auto& r = row.trueRecords[0];
    r.week = 2190;
    r.status = 7;
    r.iode = static_cast<int16_t>(i);
    r.toe = r.toc = 7200.0;
    r.sqrtA = 5153.6;
    r.e = 0.01;
    r.M0 = -1.0 + 0.05 * i;
    r.Omega0 = 0.1 * i;
    r.i0 = 0.96;
    row.broadcastRecords[0] = r;
  }
  return table;
}

void BM_GnssNavMessageOneSatellite(benchmark::State& st) {
  auto table = BenchTable();
  NavMessageState state;
  std::FILE* bin = std::fopen("/dev/null", "wb");
  std::FILE* txt = std::fopen("/dev/null", "wb");
  for (auto _ : st) {
    benchmark::DoNotOptimize(vorel::navmsg::GnssNavMessage(1, table, 1e-8, 0, 0, 0, 90000, 0, 0, 0,
                                                           1200.0, bin, txt, state));
  }
  std::fclose(bin);
  std::fclose(txt);
}
BENCHMARK(BM_GnssNavMessageOneSatellite)->Unit(benchmark::kMillisecond);

void BM_GenNavMulti32(benchmark::State& st) {
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("vorel-navmsg-bench-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir / "NAV");
  auto table = BenchTable();
  NavMessageState state;
  NavMessageSettings settings;
  settings.OrbitsValid = 1;
  settings.KeepOrbitEpochs = 1;
  settings.ScenarioYear = 2022;
  settings.ScenarioMonth = 1;
  settings.ScenarioDay = 2;
  settings.ScenarioMinute = 20;
  const auto messages = vorel::platform::Messages::Silent();
  for (auto _ : st) {
    benchmark::DoNotOptimize(vorel::navmsg::WriteAllNavigationFiles(settings, table, dir, state, messages));
  }
  std::filesystem::remove_all(dir);
}
BENCHMARK(BM_GenNavMulti32)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
