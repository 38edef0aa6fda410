#include "app/map_commands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "app/scenario_runs.h"
#include "atmosphere/klobuchar.h"
#include "display/map_layers.h"
#include "display/profile_plot.h"
#include "platform/text_file.h"

namespace vorel::app {
namespace {

using display::MapLayer;

struct MapArgs {
  std::string layers;
  std::vector<std::string> opacities;
  std::string output;
};

// The layers the map shows when none are named: all, with the TEC layer of tecMapModel.
std::vector<MapLayer> DefaultLayers(int32_t tecMapModel) {
  std::vector<MapLayer> layers{MapLayer::kBase, MapLayer::kOverlay};
  if (tecMapModel == display::kTecMapKlobuchar) layers.push_back(MapLayer::kKlobuchar);
  if (tecMapModel == display::kTecMapNequick) layers.push_back(MapLayer::kNequick);
  layers.push_back(MapLayer::kSkyPlot);
  layers.push_back(MapLayer::kBubble);
  return layers;
}

bool ParseLayers(const std::string& text, std::vector<MapLayer>& layers, std::string& error) {
  layers.clear();
  for (std::string_view name : platform::SplitSettingList(text)) {
    name = platform::TrimSetting(name);
    const auto layer = display::ParseMapLayer(name);
    if (!layer) {
      error = fmt::format(
          "map: --layers: unknown layer \"{}\" (known: base, overlay, klobuchar, "
          "nequick, sky, bubble)",
          name);
      return false;
    }
    layers.push_back(*layer);
  }
  return true;
}

bool ParseOpacity(const std::string& text, display::MapOpacities& opacities, std::string& error) {
  const size_t eq = text.find('=');
  const auto layer = display::ParseMapLayer(text.substr(0, eq == std::string::npos ? 0 : eq));
  int32_t value = 0;
  std::string why;
  if (eq == std::string::npos || !layer) {
    error = fmt::format(
        "map: --opacity \"{}\": expected LAYER=VALUE with a layer of base, "
        "overlay, klobuchar, nequick, sky, bubble",
        text);
    return false;
  }
  if (!platform::ParseSettingInt(text.substr(eq + 1), value, why) ||
      !platform::CheckSettingRange(value, 0, 255, why)) {
    error = fmt::format("map: --opacity {}: {}", text, why);
    return false;
  }
  opacities[static_cast<int>(*layer)] = value;
  return true;
}

bool DrawTec(Session& s, MapLayer layer, display::MapScene& scene, std::string& error) {
  const Settings& settings = s.settings;
  const display::TecMapRequest request = TecMapRequestOf(
      settings,
      layer == MapLayer::kKlobuchar ? display::kTecMapKlobuchar : display::kTecMapNequick);
  if (request.model == display::kTecMapKlobuchar)
    atmosphere::LoadKlobucharCoefficients(s.atmosphere, settings.atmosphere.ionoTruthTable);
  display::TecGrid grid;
  if (!display::ComputeTecGrid(request, s.atmosphere, s.densityModel, grid, error)) return false;
  display::DrawTecLayer(scene.layer(layer), grid);
  return true;
}

void DrawSky(Session& s, display::MapScene& scene) {
  const ScenarioSettings& sc = s.settings.scenario;
  std::vector<observation::DisplayRow> rows;
  if (!s.orbitState.OrbitsValid) {
    s.messages.Warn("map: no orbits loaded; the sky layer shows the receiver alone");
  } else if (!SkyRowsAtStart(s, rows).ok()) {
    rows.clear();
    s.messages.Warn(
        "map: the satellites of the scenario's start could not be worked out; the "
        "sky layer shows the receiver alone");
  }
  display::UpdateMapScene(scene.layer(MapLayer::kSkyPlot), sc.ReceiverLatitude * gnss::kDegToRad,
                          sc.ReceiverLongitude * gnss::kDegToRad, rows, s.settings.map.mapLabels);
}

int DrawMap(CommandContext& c, const MapArgs& a) {
  Session& s = c.session;
  std::vector<MapLayer> layers = DefaultLayers(s.settings.map.tecMapModel);
  display::MapOpacities opacities = display::OpacitiesOf(s.settings.map);
  std::string error;
  bool ok = a.layers.empty() || ParseLayers(a.layers, layers, error);
  for (size_t i = 0; ok && i < a.opacities.size(); ++i)
    ok = ParseOpacity(a.opacities[i], opacities, error);
  if (!ok) {
    s.messages.Popup("Error message", error);
    return 1;
  }
  display::MapScene scene;
  for (MapLayer layer : layers) {
    switch (layer) {
      case MapLayer::kBase: {
        std::vector<display::Ring> rings;
        std::string why;
        if (!display::LoadCoastlines(display::CoastlineSearchDirs(s.dataDir.root()), rings, why))
          s.messages.Warn(fmt::format("map: {}; the base picture shows no land", why));
        display::DrawBasePicture(scene.layer(layer), rings);
        break;
      }
      case MapLayer::kOverlay:
        display::DrawOverlay(scene.layer(layer));
        break;
      case MapLayer::kKlobuchar:
      case MapLayer::kNequick:
        if (!DrawTec(s, layer, scene, error)) {
          s.messages.Popup("Error message", fmt::format("map: {}", error));
          return 1;
        }
        break;
      case MapLayer::kSkyPlot:
        DrawSky(s, scene);
        break;
      case MapLayer::kBubble: {
        // Without the bubble the layer still shows the crossings this program start saw.
        display::Canvas& canvas = scene.layer(layer);
        if (s.settings.bubble.bubbleEnabled == 1)
          display::DrawBubbleLayer(canvas, s.settings.bubble, s.atmosphere.slant.marks);
        else
          for (const auto& m : s.atmosphere.slant.marks)
            display::MarkBubblePoint(canvas, m.latitude, m.longitude, m.kind);
        break;
      }
    }
  }
  const std::vector<uint8_t> png = display::ComposeMapLayers(scene, opacities).EncodePng();
  if (!WritePng(s.dataDir.Map(a.output), png, error)) {
    s.messages.Popup("Error message", fmt::format("map: {}", error));
    return 1;
  }
  s.lastOutputs.push_back(s.dataDir.Map(a.output).string());
  if (!c.global.quiet) fmt::print("wrote {}\n", s.dataDir.Map(a.output).string());
  return 0;
}

}  // namespace

display::TecMapRequest TecMapRequestOf(const Settings& settings, int32_t model) {
  display::TecMapRequest request;
  request.model = model;
  request.month = settings.scenario.ScenarioMonth;
  request.hour = settings.scenario.ScenarioHour;
  request.solarFlux = settings.atmosphere.solarFlux;
  request.timeOfWeek = ScenarioStartTime(settings.scenario).secondsOfWeek;
  return request;
}

bool WritePng(const std::filesystem::path& path, const std::vector<uint8_t>& png,
              std::string& error) {
  if (png.empty()) {
    error = fmt::format("{}: the picture could not be encoded", path.string());
    return false;
  }
  platform::OutputFile file;
  if (!file.Open(path)) {
    error = fmt::format("{} cannot be created ({})", path.string(), file.error());
    return false;
  }
  file.Write(png.data(), png.size());
  if (!file.Close()) {
    error = fmt::format("{} was not written ({})", path.string(), file.error());
    return false;
  }
  return true;
}

int WriteProfilePlot(Session& session, double lat, double lon, int month, double hour, double flux,
                     const std::string& path) {
  const display::MapSettings& m = session.settings.map;
  display::ProfileRequest request{lat, lon, month, hour, flux};
  std::vector<double> densities;
  std::string error;
  if (!display::ComputeProfile(session.densityModel, request, densities, error)) {
    session.messages.Popup("Error message", fmt::format("profile: {}", error));
    return 1;
  }
  display::ProfilePlot plot;
  plot.Draw(densities, m.profileScale, static_cast<uint32_t>(m.profileColour));
  if (!WritePng(session.dataDir.Map(path), plot.canvas().EncodePng(), error)) {
    session.messages.Popup("Error message", fmt::format("profile: --plot: {}", error));
    return 1;
  }
  return 0;
}

std::function<int(CommandContext&)> MapCommand(CLI::App& p) {
  auto a = std::make_shared<MapArgs>();
  p.add_option("--layers", a->layers,
               "layers to draw, comma-separated: base, overlay, klobuchar, nequick, sky, bubble "
               "(default: all, with the TEC layer of tecMapModel)");
  p.add_option("--opacity", a->opacities, "LAYER=0..255 for this picture (repeatable)");
  p.add_option("-o,--output", a->output, "PNG file to write")->required();
  return [a](CommandContext& c) { return DrawMap(c, *a); };
}

}  // namespace vorel::app
