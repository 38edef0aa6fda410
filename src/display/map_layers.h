#pragma once
// The TEC map as a stack of six layers on 646 by 475 canvases, drawn in this order:
//
//   base       the world: sea, land and coastlines            always fully opaque
//   overlay    a fixed graticule every 30 degrees             overlayOpacity
//   klobuchar  TEC map of the broadcast (Klobuchar) model     klobucharOpacity
//   nequick    TEC map of the electron density model          nequickOpacity
//   sky        the receiver (a small house) and satellites    skyPlotOpacity
//   bubble     the plasma bubble and its rays' wall crossings bubbleOpacity
//
// Each layer keeps what was drawn on it; an opacity of 0 hides a layer without clearing
// it. This is the whole interface a front end needs:
//
//   MapScene scene;                                   // six transparent layers
//   DrawBasePicture(scene.layer(MapLayer::kBase), rings);
//   DrawTecLayer(scene.layer(MapLayer::kNequick), grid);
//   std::vector<uint8_t> png = scene.layer(MapLayer::kNequick).EncodePng();   // one layer
//   std::vector<uint8_t> map = ComposeMapLayers(scene, opacities).EncodePng(); // all
//
// ParseMapLayer turns "/api/map/<name>.png" names into layers. The functions draw; none
// of them locks: a scene shared between threads is guarded by its owner (MapDisplay).

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "atmosphere/bubble_settings.h"
#include "atmosphere/slant_iono.h"
#include "display/canvas.h"
#include "display/coastlines.h"
#include "display/map_projection.h"
#include "display/map_settings.h"
#include "display/tec_grid.h"
#include "observation/epoch.h"

namespace vorel::display {

enum class MapLayer { kBase, kOverlay, kKlobuchar, kNequick, kSkyPlot, kBubble };
inline constexpr int kMapLayerCount = 6;

// "base", "overlay", "klobuchar", "nequick", "sky", "bubble".
std::string_view MapLayerName(MapLayer layer);
std::optional<MapLayer> ParseMapLayer(std::string_view name);

// Opacity of each layer, 0 (hidden) to 255, indexed by MapLayer; the base ignores its own.
using MapOpacities = std::array<int, kMapLayerCount>;

// The opacities the settings give the layers.
MapOpacities OpacitiesOf(const MapSettings& settings);

class MapScene {
 public:
  MapScene();
  Canvas& layer(MapLayer l) { return layers_[static_cast<int>(l)]; }
  const Canvas& layer(MapLayer l) const { return layers_[static_cast<int>(l)]; }

 private:
  std::vector<Canvas> layers_;
};

// Colours of the map, 0xRRGGBB.
inline constexpr uint32_t kHouseFill = 0x008000, kHouseFrame = 0x800000;
inline constexpr uint32_t kVisibleFill = 0x00FF00, kVisibleFrame = 0x008000;
inline constexpr uint32_t kHiddenFill = 0xFFFF00, kHiddenFrame = 0x000080;
inline constexpr uint32_t kBubbleFill = 0xFFFFFF, kBubbleFrame = 0x000080;
inline constexpr uint32_t kEntryFill = 0xFFFF00, kEntryFrame = 0x008000;
inline constexpr uint32_t kExitFill = 0xFF0000, kExitFrame = 0x00FF00;
inline constexpr uint32_t kSeaColour = 0xD6E6F2, kLandColour = 0xEDE6D2;
inline constexpr uint32_t kCoastColour = 0x6B7B8C, kGraticuleColour = 0x9AA8B8;

// Sea, then the land rings filled and outlined. Without rings: the sea alone.
void DrawBasePicture(Canvas& canvas, const std::vector<Ring>& rings);
// Meridians and parallels every 30 degrees, the equator and the prime meridian stronger.
void DrawOverlay(Canvas& canvas);

// The grid's cells as 6 by 8 rectangles in TecColour, in row then column order, so that
// the columns past the first turn of the globe overdraw the first ones.
void DrawTecLayer(Canvas& canvas, const TecGrid& grid);

// The receiver as a house at its place, and each row with status 7 at its satellite's
// ground point: green when visible, yellow when not; with `labelled` 1 as a numbered
// tag. Draws over what is there (a run leaves tracks); the caller clears.
void UpdateMapScene(Canvas& canvas, double latRad, double lonRad,
                    const std::vector<observation::DisplayRow>& rows, int32_t labelled);

// Clears the canvas and draws the bubble's outline from the panel's values (the drift
// is not shown). Nothing more is drawn when the bubble's extents are not numbers.
void DrawBubble(Canvas& canvas, const atmosphere::BubblePanelValues& bubble);
// One wall crossing: kind 1 (entry) yellow, any other kind (exit) red. Longitude in
// degrees from 0 to 360 (or -180 to 180).
void MarkBubblePoint(Canvas& canvas, double lat, double lon, int32_t kind);
// The bubble and every mark kept in `marks`, oldest first.
void DrawBubbleLayer(Canvas& canvas, const atmosphere::BubblePanelValues& bubble,
                     const std::deque<atmosphere::BubbleMark>& marks);

// The layers over one another, each at its opacity (the base always whole).
Canvas ComposeMapLayers(const MapScene& scene, const MapOpacities& opacities);

}  // namespace vorel::display
