// What the page's sky plot costs a run: the one-minute .scn run at 1 ms (60,001 epochs)
// with and without the web display attached. The display draws the receiver and the
// satellites on the map's sky layer, keeps the scene for the page and tells it to fetch
// the layers, at every display tick (each 1000th epoch). Goal: under 5 % slower.
//
//   bench/web_display_ratio.sh build/default/vorel_bench 5   # alternating, best of 5

#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>

#include "observation/epoch.h"
#include "observation/epoch_sink.h"
#include "observation/record_writers.h"
#include "observation/trajectory.h"
#include "platform/messages.h"
#include "platform/text_file.h"
#include "web/display_layers.h"
#include "web/event_hub.h"
#include "web/map_layers.h"

#include "bench_sky.h"

namespace {

using namespace vorel;

void RunOneMinute(benchmark::State& st, bool withDisplay) {
  auto table = bench::FullSky();
  const auto path = std::filesystem::temp_directory_path() / "vorel-bench-web-display.scn";
  web::EventHub events;
  std::string warning;
  web::DisplayMapLayers layers(std::filesystem::path(VOREL_SOURCE_DATA_DIR), warning);
  web::WebDisplay display(events, &layers);
  for (auto _ : st) {
    std::optional<observation::DisplaySink> sky;
    std::vector<observation::EpochSink*> extra;
    if (withDisplay) extra.push_back(&sky.emplace(display));
    if (!bench::RunStaticScnMinute(*table, path, extra))
      st.SkipWithError("the run did not end whole");
  }
  st.counters["displayTicks"] = static_cast<double>(events.LastId());
  std::filesystem::remove(path);
}

void BM_ScnRun60sAt1msWithoutWebDisplay(benchmark::State& st) { RunOneMinute(st, false); }
void BM_ScnRun60sAt1msWithWebDisplay(benchmark::State& st) { RunOneMinute(st, true); }
BENCHMARK(BM_ScnRun60sAt1msWithoutWebDisplay)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_ScnRun60sAt1msWithWebDisplay)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
