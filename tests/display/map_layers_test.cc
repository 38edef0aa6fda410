// Pixel rules of the map: the projection and its wrap, TEC cells, the sky plot's marks,
// the bubble and its wall crossings, and the opacity of layers. Expected pixels are worked
// out by hand from the drawing rules, in the comments beside them.

#include "display/map_layers.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "atmosphere/atmosphere_state.h"
#include "density_model/model_state.h"
#include "display/map_display.h"
#include "display/map_settings.h"
#include "observation/epoch_sink.h"

namespace vorel::display {
namespace {

constexpr uint32_t kOpaque = 0xFF000000;
constexpr double kOrbitRadius = 26560000.0;

uint32_t Opaque(uint32_t rgb) { return kOpaque | rgb; }

observation::DisplayRow SatelliteAt(double x, double y, bool visible) {
  observation::DisplayRow row;
  row.status = 7;
  row.visible = visible ? 1 : 0;
  row.position = {x, y, 0.0};
  return row;
}

TEST(MapProjection, KnownPointsAndTheWrapPastTheRightEdge) {
  EXPECT_DOUBLE_EQ(MapX(0.0), 323.0);
  EXPECT_DOUBLE_EQ(MapX(-180.0), 0.0);
  EXPECT_DOUBLE_EQ(MapX(180.0), 646.0);  // on the edge: not above it, so kept
  EXPECT_DOUBLE_EQ(MapX(90.0), 484.5);
  // 270 E: (0.75 + 0.5) 646 = 807.5, less 646 once = 161.5, where 90 W lies.
  EXPECT_DOUBLE_EQ(MapX(270.0), 161.5);
  EXPECT_DOUBLE_EQ(MapX(-90.0), 161.5);
  // 600 E: 1399.67 comes round once only and stays off the map.
  EXPECT_NEAR(MapX(600.0), 753.6667, 1e-4);
  EXPECT_DOUBLE_EQ(MapY(90.0), 0.0);
  EXPECT_DOUBLE_EQ(MapY(-90.0), 475.0);
  EXPECT_DOUBLE_EQ(MapY(0.0), 237.5);
  EXPECT_DOUBLE_EQ(MapY(45.0), 118.75);
}

TEST(TecMap, CellColourFromTheTec) {
  EXPECT_EQ(TecColour(0.0), 0x0001FFu);    // red 0, blue 255
  EXPECT_EQ(TecColour(10.5), 0x1B01E2u);   // 27.3 -> 27, 226.65 -> 226
  EXPECT_EQ(TecColour(50.0), 0x820178u);   // 130, 120
  EXPECT_EQ(TecColour(100.0), 0xFF0100u);  // 260 held at 255, -15 held at 0
  EXPECT_EQ(TecColour(-5.0), 0x0001FFu);   // no negative red, no blue past 255
}

TEST(TecMap, CellPlacesOnAndOffTheCanvas) {
  // The step, 0.052359877559829 rad, is a hair under 3 degrees: a cell that would land on
  // a whole pixel lands a hair short of it and is cut down (towards 0 when negative).
  EXPECT_EQ(TecCellTop(30), 234);    // equator: 237.5 - 3
  EXPECT_EQ(TecCellTop(0), 472);     // south pole: 475 - 3, mostly below the canvas
  EXPECT_EQ(TecCellTop(60), -2);     // north pole: -2.99999... cut to -2
  EXPECT_EQ(TecCellTop(61), -10);    // 93 N: -10.9 cut to -10, off the canvas
  EXPECT_EQ(TecCellLeft(0), 320);    // 0 E: 323 - 3, exact
  EXPECT_EQ(TecCellLeft(60), 642);   // 180 E: 642.99999...
  EXPECT_EQ(TecCellLeft(61), 2);     // 183 E: 648.38 comes round to 2.38
  EXPECT_EQ(TecCellLeft(120), 319);  // 360 E: 965.99999... comes round to 319.99999...
  EXPECT_EQ(TecCellLeft(240), 965);  // 720 E comes round once only: off the canvas
}

TEST(TecMap, LaterColumnsOverdrawTheFirstTurnOfTheGlobe) {
  TecGrid grid;
  grid.tec.assign(kTecRows * kTecColumns, 0.0);
  grid.tec[30 * kTecColumns + 0] = 10.5;    // 0 E on the equator, under 360 E
  grid.tec[30 * kTecColumns + 120] = 50.0;  // 360 E: columns 319..324
  grid.tec[30 * kTecColumns + 61] = 100.0;  // 183 E: columns 2..6
  grid.tec[0 * kTecColumns + 121] = 10.5;   // the south pole's row at 363 E: from 325
  Canvas canvas(kMapWidth, kMapHeight);
  DrawTecLayer(canvas, grid);
  EXPECT_EQ(canvas.Pixel(319, 234), Opaque(0x820178));
  EXPECT_EQ(canvas.Pixel(324, 241), Opaque(0x820178));
  EXPECT_EQ(canvas.Pixel(320, 238), Opaque(0x820178));  // none of column 0 is left
  EXPECT_EQ(canvas.Pixel(325, 238), Opaque(0x0001FF));  // 363 E over 3 E
  EXPECT_EQ(canvas.Pixel(319, 242), Opaque(0x0001FF));  // the row below
  EXPECT_EQ(canvas.Pixel(2, 238), Opaque(0xFF0100));
  EXPECT_EQ(canvas.Pixel(6, 241), Opaque(0xFF0100));
  EXPECT_EQ(canvas.Pixel(7, 238), Opaque(0x0001FF));    // 186 E from 7.76
  EXPECT_EQ(canvas.Pixel(325, 474), Opaque(0x1B01E2));  // rows 472..479, cut at 474
}

TEST(TecMap, BroadcastModelWithoutCoefficientsIsTheNightTimeFloorAndModelOneIsEmpty) {
  // With every coefficient 0 the delay is the floor of 5 ns times the obliquity at
  // 0.6 rad: E = 0.6 / pi = 0.19099 semicircles, F = 1 + 16 (0.53 - E)^3 = 1.62339;
  // 1.62339 * 5e-9 * 299792458 = 2.43339 m, over 0.162 m per unit = 15.0209.
  atmosphere::AtmosphereState atmosphere;
  density_model::ModelState model;
  TecGrid grid;
  std::string error;
  TecMapRequest request;
  request.model = kTecMapKlobuchar;
  request.timeOfWeek = 345600.0;
  ASSERT_TRUE(ComputeTecGrid(request, atmosphere, model, grid, error));
  for (int i : {0, 30, 179})
    for (int j : {0, 61, 359}) EXPECT_NEAR(grid.at(i, j), 15.0209, 1e-3) << i << " " << j;
  request.model = 1;
  ASSERT_TRUE(ComputeTecGrid(request, atmosphere, model, grid, error));
  for (double tec : grid.tec) ASSERT_EQ(tec, 0.0);
}

TEST(SkyPlot, HouseForTheReceiverAndSatellitesGreenWhenVisibleYellowWhenNot) {
  Canvas canvas(kMapWidth, kMapHeight);
  // Receiver at 0 N 0 E: x 323, y 237 (237.5 cut); the house's corners are (323, 247),
  // (323, 237), (326, 232), (329, 237), (329, 247).
  // Satellites over 90 E (x 484, y 237) visible, and over 270 E (x 807.5, round to 161) not.
  std::vector<observation::DisplayRow> rows(32);
  rows[0] = SatelliteAt(0.0, kOrbitRadius, true);
  rows[1] = SatelliteAt(0.0, -kOrbitRadius, false);
  rows[2] = SatelliteAt(kOrbitRadius, 0.0, true);
  rows[2].status = 0;  // not usable: not drawn, though it lies under the house
  UpdateMapScene(canvas, 0.0, 0.0, rows, 0);
  EXPECT_EQ(canvas.Pixel(326, 242), Opaque(kHouseFill));
  EXPECT_EQ(canvas.Pixel(325, 239), Opaque(kHouseFill));  // where row 2's oval would be
  EXPECT_EQ(canvas.Pixel(323, 242), Opaque(kHouseFrame));
  EXPECT_EQ(canvas.Pixel(326, 232), Opaque(kHouseFrame));  // the roof's top
  EXPECT_EQ(canvas.Pixel(322, 242), 0u);
  EXPECT_EQ(canvas.Pixel(326, 230), 0u);
  // 5 by 5 ovals at top y, left x: their middle pixel is filled, the top one framed.
  EXPECT_EQ(canvas.Pixel(486, 239), Opaque(kVisibleFill));
  EXPECT_EQ(canvas.Pixel(486, 237), Opaque(kVisibleFrame));
  EXPECT_EQ(canvas.Pixel(163, 239), Opaque(kHiddenFill));
  EXPECT_EQ(canvas.Pixel(163, 237), Opaque(kHiddenFrame));
  EXPECT_EQ(canvas.Pixel(490, 239), 0u);  // past the oval
}

TEST(SkyPlot, LabelledSatellitesAreTagsAndTracksStayUntilCleared) {
  MapDisplay display;
  observation::DisplaySink sink(display);
  std::vector<observation::DisplayRow> rows{SatelliteAt(0.0, kOrbitRadius, true)};
  observation::EpochResult result;
  observation::EpochContext context;
  context.rows = &rows;
  context.lateInRun = 1;
  sink.OnEpoch(result, context);  // no display tick: nothing drawn
  EXPECT_EQ(display.updates(), 0);
  context.displayTick = true;
  sink.OnEpoch(result, context);
  ASSERT_EQ(display.updates(), 1);
  // Tag: rectangle at top 242, left 474, 10 high, 40 wide; oval 20 by 20 at (484, 237).
  // (508, 246) lies in the rectangle right of the oval; (476, 242) is its frame.
  MapScene copy;
  display.Edit(
      [&](MapScene& scene) { copy.layer(MapLayer::kSkyPlot) = scene.layer(MapLayer::kSkyPlot); });
  EXPECT_EQ(copy.layer(MapLayer::kSkyPlot).Pixel(508, 246), Opaque(kVisibleFill));
  EXPECT_EQ(copy.layer(MapLayer::kSkyPlot).Pixel(476, 242), Opaque(kVisibleFrame));
  sink.OnRunStart();
  display.Edit(
      [&](MapScene& scene) { EXPECT_EQ(scene.layer(MapLayer::kSkyPlot).Pixel(508, 246), 0u); });
}

TEST(Bubble, OutlineFromThePanelValues) {
  // 1000 km wide, 2000 km long at 0 N 0 E: halfW = 1000 646 0.008983192 / 360 / 2 = 8.06,
  // halfL = 2000 475 0.008983192 / 180 / 2 = 23.71; corners (314, 213), (314, 261),
  // (331, 261), (331, 213).
  atmosphere::BubblePanelValues b;
  b.bubbleWidth = 1000.0;
  b.bubbleLength = 2000.0;
  Canvas canvas(kMapWidth, kMapHeight);
  canvas.Fill(0x123456);  // the bubble clears its layer first
  DrawBubble(canvas, b);
  EXPECT_EQ(canvas.Pixel(323, 237), Opaque(kBubbleFill));
  EXPECT_EQ(canvas.Pixel(314, 237), Opaque(kBubbleFrame));
  EXPECT_EQ(canvas.Pixel(331, 237), Opaque(kBubbleFrame));
  EXPECT_EQ(canvas.Pixel(323, 213), Opaque(kBubbleFrame));
  EXPECT_EQ(canvas.Pixel(323, 261), Opaque(kBubbleFrame));
  EXPECT_EQ(canvas.Pixel(313, 237), 0u);
  EXPECT_EQ(canvas.Pixel(323, 212), 0u);
  EXPECT_EQ(canvas.Pixel(10, 10), 0u);
}

TEST(Bubble, CornersPastTheRightEdgeComeRoundOnTheirOwn) {
  // At 179 E the east corners (652.27) come round to 6 while the west ones stay at 636:
  // the outline spans the map from 6 to 636 instead of straddling its edge.
  atmosphere::BubblePanelValues b;
  b.bubbleLonNorth = b.bubbleLonSouth = 179.0;
  b.bubbleWidth = 1000.0;
  b.bubbleLength = 2000.0;
  Canvas canvas(kMapWidth, kMapHeight);
  DrawBubble(canvas, b);
  EXPECT_EQ(canvas.Pixel(323, 237), Opaque(kBubbleFill));
  EXPECT_EQ(canvas.Pixel(6, 237), Opaque(kBubbleFrame));
  EXPECT_EQ(canvas.Pixel(636, 237), Opaque(kBubbleFrame));
  EXPECT_EQ(canvas.Pixel(640, 237), 0u);
}

TEST(Bubble, WallCrossingMarks) {
  Canvas canvas(kMapWidth, kMapHeight);
  // 350 E (as the geodetic conversion gives 10 W): (530) 646 / 360 - 2 = 949.06, less 646
  // = 303; top 237.5 - 2 = 235. The 4 by 4 oval's inner pixel (304, 236) is filled.
  MarkBubblePoint(canvas, 0.0, 350.0, 1);
  EXPECT_EQ(canvas.Pixel(304, 236), Opaque(kEntryFill));
  EXPECT_EQ(canvas.Pixel(303, 237), Opaque(kEntryFrame));
  // 20 E: 200 646 / 360 - 2 = 356.89 -> 356; 10 N: 475 80 / 180 - 2 = 209.1 -> 209.
  MarkBubblePoint(canvas, 10.0, 20.0, 2);
  EXPECT_EQ(canvas.Pixel(357, 210), Opaque(kExitFill));
  EXPECT_EQ(canvas.Pixel(356, 211), Opaque(kExitFrame));
}

TEST(Compose, OpacityScalesALayerAndZeroIsTheSameAsNoLayer) {
  MapScene scene;
  scene.layer(MapLayer::kBase).Fill(0x000000);
  scene.layer(MapLayer::kOverlay).FillRect(0, 0, 10, 10, 0xFFFFFF);
  UpdateMapScene(scene.layer(MapLayer::kSkyPlot), 0.0, 0.0, {}, 0);
  MapOpacities opacities{0, 255, 255, 255, 0, 255};  // the base's own entry is ignored
  const Canvas hidden = ComposeMapLayers(scene, opacities);
  EXPECT_EQ(hidden.Pixel(5, 5), Opaque(0xFFFFFF));
  EXPECT_EQ(hidden.Pixel(20, 20), Opaque(0x000000));
  // The sky layer at 0 gives exactly the picture of an empty sky layer.
  MapScene without = scene;
  without.layer(MapLayer::kSkyPlot).Clear();
  opacities[4] = 255;
  EXPECT_EQ(hidden.EncodePng(), ComposeMapLayers(without, opacities).EncodePng());
  // Hidden is not cleared: at full opacity the house is back.
  EXPECT_EQ(ComposeMapLayers(scene, opacities).Pixel(326, 242), Opaque(kHouseFill));
  // White at 128 over black: 128/255 of white, within a rounding step.
  opacities[1] = 128;
  const uint32_t half = ComposeMapLayers(scene, opacities).Pixel(5, 5);
  EXPECT_EQ(half >> 24, 0xFFu);
  EXPECT_NEAR(static_cast<int>(half & 0xFF), 128, 1);
}

TEST(MapLayerNames, RoundTripAndRefuseUnknown) {
  for (int i = 0; i < kMapLayerCount; ++i) {
    const auto layer = static_cast<MapLayer>(i);
    EXPECT_EQ(ParseMapLayer(MapLayerName(layer)), layer);
  }
  EXPECT_FALSE(ParseMapLayer("Sky"));
  EXPECT_FALSE(ParseMapLayer(""));
}

TEST(MapSettings, ColourReadsHexOrDecimalWithinTwentyFourBits) {
  const auto& table = MapSettingTable();
  const auto entry = std::find_if(table.begin(), table.end(),
                                  [](const auto& e) { return e.name == "profileColour"; });
  ASSERT_NE(entry, table.end());
  MapSettings s;
  std::string error;
  ASSERT_TRUE(platform::ReadSetting(*entry, s, "0x00ff80", error)) << error;
  EXPECT_EQ(s.profileColour, 0x00FF80);
  EXPECT_EQ(platform::ShowSetting(*entry, s), "0x00FF80");
  ASSERT_TRUE(platform::ReadSetting(*entry, s, "255", error));
  EXPECT_EQ(s.profileColour, 255);
  for (const char* bad : {"-1", "0x1000000", "red", "0x", "12a"}) {
    EXPECT_FALSE(platform::ReadSetting(*entry, s, bad, error)) << bad;
    EXPECT_EQ(s.profileColour, 255) << bad;
  }
}

}  // namespace
}  // namespace vorel::display
