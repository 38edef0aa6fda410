#include "app/chart_commands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "display/colour_map.h"
#include "display/earth_mesh.h"
#include "display/orbit_chart.h"
#include "display/scint_plots.h"
#include "gnss/time_coords.h"
#include "platform/text_file.h"

namespace vorel::app {
namespace {

using Action = std::function<int(CommandContext&)>;

int Wrote(CommandContext& c, const std::string& path) {
  c.session.lastOutputs.push_back(path);
  if (!c.global.quiet) fmt::print("wrote {}\n", path);
  return 0;
}

int Failed(const char* command, const std::string& error) {
  fmt::print(stderr, "{}: {}\n", command, error);
  return 1;
}

// "a,b,c" into numbers; false unless there are exactly `count` of them, all whole.
bool SplitNumbers(const std::string& text, size_t count, std::vector<double>& values) {
  values.clear();
  size_t start = 0;
  while (start <= text.size()) {
    const size_t comma = std::min(text.find(',', start), text.size());
    const std::string word = text.substr(start, comma - start);
    double v = 0.0;
    const bool hex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    const char* first = word.data() + (hex ? 2 : 0);
    const char* last = word.data() + word.size();
    std::from_chars_result r;
    if (hex) {
      long h = 0;
      r = std::from_chars(first, last, h, 16);
      v = static_cast<double>(h);
    } else {
      r = std::from_chars(first, last, v);
    }
    if (word.empty() || r.ec != std::errc() || r.ptr != last) return false;
    values.push_back(v);
    start = comma + 1;
  }
  return values.size() == count;
}

// Applies "--entry ROW,0xRRGGBB" and "--cell ROW,COLUMN,VALUE" edits; rows and columns
// count from 1 as the tables show them.
bool ApplyColourMapEdits(display::ColourMap& map, const std::vector<std::string>& entries,
                         const std::vector<std::string>& cells, std::string& error) {
  std::vector<double> v;
  for (const std::string& e : entries) {
    if (!SplitNumbers(e, 2, v) || v[1] < 0 || v[1] > 0xFFFFFF ||
        !display::SetEntryColour(map, static_cast<int>(v[0]), static_cast<int32_t>(v[1])) ||
        v[0] != static_cast<int>(v[0])) {
      error = fmt::format(
          "--entry {}: expected ROW,COLOUR with ROW 1 to {} and COLOUR 0x000000 "
          "to 0xFFFFFF",
          e, display::kColourMapEntries);
      return false;
    }
  }
  for (const std::string& e : cells) {
    const bool ok = SplitNumbers(e, 3, v) && v[0] >= 1 && v[0] <= display::kGridRows && v[1] >= 1 &&
                    v[1] <= display::kGridColumns && v[0] == static_cast<int>(v[0]) &&
                    v[1] == static_cast<int>(v[1]) && std::isfinite(v[2]);
    if (!ok) {
      error =
          fmt::format("--cell {}: expected ROW,COLUMN,VALUE with ROW 1 to {} and COLUMN 1 to {}", e,
                      display::kGridRows, display::kGridColumns);
      return false;
    }
    display::SetGridValue(map, static_cast<int>(v[0]) - 1, static_cast<int>(v[1]) - 1, v[2]);
  }
  return true;
}

}  // namespace

Action OrbitChartCommand(CLI::App& p) {
  auto output = std::make_shared<std::string>();
  p.add_option("-o,--output", *output, "the PNG to write")->required();
  return [output](CommandContext& c) {
    Session& s = c.session;
    if (!s.orbitState.OrbitsValid)
      fmt::print(stderr, "orbit-chart: no orbits loaded; the chart has axes and grid only\n");
    const std::string path = s.dataDir.Map(*output).string();
    std::string error;
    if (!display::WriteOrbitChartPng(s.constellation, path, error))
      return Failed("orbit-chart", error);
    return Wrote(c, path);
  };
}

Action ColourMapCommand(CLI::App& p) {
  auto output = std::make_shared<std::string>();
  auto pattern = std::make_shared<int>(0);
  auto entries = std::make_shared<std::vector<std::string>>();
  auto cells = std::make_shared<std::vector<std::string>>();
  p.add_option("-o,--output", *output, "the PNG to write")->required();
  p.add_option("--pattern", *pattern, "fill the grid: 1 all 1.0, 2 row r at 1.0 - 0.07 r")
      ->check(CLI::IsMember({1, 2}));
  p.add_option("--entry", *entries, "ROW,0xRRGGBB: recolour colour-map entry ROW (1 to 20)");
  p.add_option("--cell", *cells, "ROW,COLUMN,VALUE: set one grid cell (rows 1-9, columns 1-18)");
  return [=](CommandContext& c) {
    Session& s = c.session;
    // Edits are checked on a copy: a refused command leaves the editor as it was.
    display::ColourMap map = s.colourMap;
    if (*pattern != 0) display::GenerateColourMapData(map, *pattern);
    std::string error;
    if (!ApplyColourMapEdits(map, *entries, *cells, error)) return Failed("colour-map", error);
    s.colourMap = map;
    const std::string path = s.dataDir.Map(*output).string();
    if (!display::WriteColourMapPng(s.colourMap, path, error)) return Failed("colour-map", error);
    return Wrote(c, path);
  };
}

Action Scene3dCommand(CLI::App& p) {
  auto output = std::make_shared<std::string>();
  p.add_option("-o,--output", *output, "the JSON file to write")->required();
  return [output](CommandContext& c) {
    Session& s = c.session;
    const ScenarioSettings& sc = s.settings.scenario;
    gnss::GpsTime t;
    gnss::CalendarToGpsTime(sc.ScenarioYear, sc.ScenarioMonth, sc.ScenarioDay, sc.ScenarioHour,
                            sc.ScenarioMinute, sc.ScenarioSecond, sc.LeapSeconds, t);
    const std::string json =
        display::SceneJson(display::EarthMesh(), display::IonosphereMesh(),
                           display::SatellitePointsAt(s.constellation, t.secondsOfWeek));
    const std::string path = s.dataDir.Map(*output).string();
    std::string error;
    if (!platform::WriteWholeFile(path, json, error)) return Failed("scene-3d", error);
    return Wrote(c, path);
  };
}

Action ScintClearCommand(CLI::App&) {
  return [](CommandContext& c) {
    display::ClearGraph(c.session.scintGraph);
    return 0;
  };
}

int PlotScintSeries(CommandContext& c, const scintillation::ScintCommandResult& r,
                    const std::string& path) {
  if (r.status != 0) return r.status;
  // The strip chart stays on show, as on the panel, for a front end to draw.
  c.session.scintStrip =
      display::ScintStripChart(r.series.ampOut, r.series.phaseOut, scintillation::kScintSampleRate);
  if (path.empty()) return 0;
  const std::string mapped = c.session.dataDir.Map(path).string();
  std::string error;
  if (!display::WriteGraphPng(c.session.scintStrip, mapped, error))
    return Failed("scint-generate", error);
  return Wrote(c, mapped);
}

int PlotLoadedTarget(CommandContext& c, const scintillation::ScintCommandResult& r,
                     const std::string& path) {
  if (r.status != 0) return r.status;
  display::PlotLoadedTarget(c.session.scintGraph, r.target.x, r.target.y);
  if (path.empty()) return 0;
  const std::string mapped = c.session.dataDir.Map(path).string();
  std::string error;
  if (!display::WriteGraphPng(c.session.scintGraph, mapped, error))
    return Failed("scint-load", error);
  return Wrote(c, mapped);
}

int PlotScintFit(CommandContext& c, const scintillation::ScintCommandResult& r,
                 const std::string& path) {
  if (r.status != 0) return r.status;
  display::PlotFit(c.session.scintGraph, r.fit.f, r.fit.y, r.fit.fit, c.session.FitPlotColour);
  if (path.empty()) return 0;
  const std::string mapped = c.session.dataDir.Map(path).string();
  std::string error;
  if (!display::WriteGraphPng(c.session.scintGraph, mapped, error))
    return Failed("scint-fit", error);
  return Wrote(c, mapped);
}

}  // namespace vorel::app
