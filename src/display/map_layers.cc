#include "display/map_layers.h"

#include <cmath>
#include <string>

#include "gnss/time_coords.h"
#include "orbits/orbit_record.h"

namespace vorel::display {
namespace {

constexpr double kRadToDeg = 57.32484;  // the map's own degree factor
constexpr std::array<std::string_view, kMapLayerCount> kLayerNames = {
    "base", "overlay", "klobuchar", "nequick", "sky", "bubble"};

void SetSource(cairo_t* cr, uint32_t colour) {
  cairo_set_source_rgb(cr, ((colour >> 16) & 0xFF) / 255.0, ((colour >> 8) & 0xFF) / 255.0,
                       (colour & 0xFF) / 255.0);
}

// A ring traced in map pixels, shifted by whole turns of the globe.
void TraceRing(cairo_t* cr, const Ring& ring, double turns) {
  for (size_t i = 0; i < ring.size(); ++i) {
    const double x = ((ring[i].lon + 360.0 * turns) / 360.0 + 0.5) * kMapWidth;
    const double y = MapY(ring[i].lat);
    if (i == 0)
      cairo_move_to(cr, x, y);
    else
      cairo_line_to(cr, x, y);
  }
  cairo_close_path(cr);
}

void SatelliteMark(Canvas& canvas, int x, int y, int32_t number, bool visible, int32_t labelled) {
  const uint32_t fill = visible ? kVisibleFill : kHiddenFill;
  const uint32_t frame = visible ? kVisibleFrame : kHiddenFrame;
  if (labelled != 1) {
    canvas.DrawOval(y, x, 5, 5, frame, fill);
    return;
  }
  canvas.DrawRect(y + 5, x - 10, 10, 40, frame, fill);
  canvas.DrawOval(y, x, 20, 20, frame, fill);
  canvas.DrawTextCentred(std::to_string(number), x + 10, y + 10, 10.0, 0x000000);
}

int Wrapped(double x) { return static_cast<int>(x > 646.0 ? x - 646.0 : x); }

}  // namespace

std::string_view MapLayerName(MapLayer layer) { return kLayerNames[static_cast<int>(layer)]; }

std::optional<MapLayer> ParseMapLayer(std::string_view name) {
  for (int i = 0; i < kMapLayerCount; ++i)
    if (kLayerNames[i] == name) return static_cast<MapLayer>(i);
  return std::nullopt;
}

MapOpacities OpacitiesOf(const MapSettings& s) {
  return {255,
          s.overlayOpacity,
          s.klobucharOpacity,
          s.nequickOpacity,
          s.skyPlotOpacity,
          s.bubbleOpacity};
}

MapScene::MapScene() { layers_.assign(kMapLayerCount, Canvas(kMapWidth, kMapHeight)); }

void DrawBasePicture(Canvas& canvas, const std::vector<Ring>& rings) {
  canvas.Fill(kSeaColour);
  cairo_t* cr = canvas.context();
  cairo_save(cr);
  // The world is smooth: only this picture is antialiased.
  cairo_set_antialias(cr, CAIRO_ANTIALIAS_DEFAULT);
  cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
  cairo_set_line_width(cr, 0.7);
  // Rings that run past 180 degrees are drawn once more a turn to the west or east.
  for (const Ring& ring : rings) {
    for (double turns : {-1.0, 0.0, 1.0}) {
      TraceRing(cr, ring, turns);
      SetSource(cr, kLandColour);
      cairo_fill_preserve(cr);
      SetSource(cr, kCoastColour);
      cairo_stroke(cr);
    }
  }
  cairo_restore(cr);
}

void DrawOverlay(Canvas& canvas) {
  for (int lon = -150; lon <= 150; lon += 30) {
    const double x = std::floor(MapX(lon));
    canvas.DrawLine(x, 0, x, kMapHeight - 1, kGraticuleColour);
  }
  for (int lat = -60; lat <= 60; lat += 30) {
    const double y = std::floor(MapY(lat));
    canvas.DrawLine(0, y, kMapWidth - 1, y, kGraticuleColour);
  }
  for (int lat = -60; lat <= 60; lat += 30)
    canvas.DrawText(lat == 0 ? "0" : std::to_string(std::abs(lat)) + (lat > 0 ? "N" : "S"), 3,
                    std::floor(MapY(lat)) - 2, 9.0, 0x445566);
  for (int lon = -150; lon <= 150; lon += 30)
    canvas.DrawText(lon == 0 ? "0" : std::to_string(std::abs(lon)) + (lon > 0 ? "E" : "W"),
                    std::floor(MapX(lon)) + 2, kMapHeight - 4, 9.0, 0x445566);
}

void DrawTecLayer(Canvas& canvas, const TecGrid& grid) {
  if (grid.tec.size() != static_cast<size_t>(kTecRows) * kTecColumns) return;
  for (int i = 0; i < kTecRows; ++i) {
    const int top = TecCellTop(i);
    for (int j = 0; j < kTecColumns; ++j)
      canvas.FillRect(top, TecCellLeft(j), 8, 6, TecColour(grid.at(i, j)));
  }
}

void UpdateMapScene(Canvas& canvas, double latRad, double lonRad,
                    const std::vector<observation::DisplayRow>& rows, int32_t labelled) {
  const int x = static_cast<int>(MapX(lonRad * kRadToDeg));
  const int y = static_cast<int>(MapY(latRad * kRadToDeg));
  canvas.DrawPoly({{x, y + 10}, {x, y}, {x + 3, y - 5}, {x + 6, y}, {x + 6, y + 10}}, kHouseFrame,
                  kHouseFill);
  for (size_t s = 0; s < rows.size() && s < 32; ++s) {
    const observation::DisplayRow& row = rows[s];
    if (row.status != orbits::kStatusUsable) continue;
    gnss::Geodetic g;
    gnss::EcefToGeodetic(row.position[0], row.position[1], row.position[2], g);
    SatelliteMark(canvas, static_cast<int>(MapX(g.longitude)), static_cast<int>(MapY(g.latitude)),
                  static_cast<int32_t>(s) + 1, row.visible != 0, labelled);
  }
}

void DrawBubble(Canvas& canvas, const atmosphere::BubblePanelValues& b) {
  canvas.Clear();
  const double halfW = b.bubbleWidth * 646.0 * 0.008983192 / 360.0 * 0.5;
  const double halfL = b.bubbleLength * 475.0 * 0.008983192 / 180.0 * 0.5;
  const double yc = MapY(b.bubbleLatitude);
  const double xN = MapX(b.bubbleLonNorth), xS = MapX(b.bubbleLonSouth);
  // Extents far beyond the globe would only give the rasteriser nonsense to chew on.
  if (!(std::fabs(halfW) < 1e6 && std::fabs(halfL) < 1e6 && std::isfinite(yc))) return;
  canvas.DrawPoly({{Wrapped(xN - halfW), static_cast<int>(yc - halfL)},
                   {Wrapped(xS - halfW), static_cast<int>(yc + halfL)},
                   {Wrapped(xS + halfW), static_cast<int>(yc + halfL)},
                   {Wrapped(xN + halfW), static_cast<int>(yc - halfL)}},
                  kBubbleFrame, kBubbleFill);
}

void MarkBubblePoint(Canvas& canvas, double lat, double lon, int32_t kind) {
  double left = (lon + 180.0) * 646.0 / 360.0 - 2.0;
  if (left > 646.0) left = left - 646.0;
  const int top = static_cast<int>(MapY(lat) - 2.0);
  if (kind == 1)
    canvas.DrawOval(top, static_cast<int>(left), 4, 4, kEntryFrame, kEntryFill);
  else
    canvas.DrawOval(top, static_cast<int>(left), 4, 4, kExitFrame, kExitFill);
}

void DrawBubbleLayer(Canvas& canvas, const atmosphere::BubblePanelValues& bubble,
                     const std::deque<atmosphere::BubbleMark>& marks) {
  DrawBubble(canvas, bubble);
  for (const atmosphere::BubbleMark& m : marks)
    MarkBubblePoint(canvas, m.latitude, m.longitude, m.kind);
}

Canvas ComposeMapLayers(const MapScene& scene, const MapOpacities& opacities) {
  Canvas out(kMapWidth, kMapHeight);
  for (int i = 0; i < kMapLayerCount; ++i)
    out.Paint(scene.layer(static_cast<MapLayer>(i)), i == 0 ? 255 : opacities[i]);
  return out;
}

}  // namespace vorel::display
