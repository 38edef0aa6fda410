// The displays' rules: the 3D meshes against their formula, the orbit chart's layout, the
// colour map's cell rule and patterns, and the fit graph's colours. Expected values are
// worked out by hand from the rules (the colour map's entries with t rounded to single
// precision first, as the map has them).
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "display/chart_png.h"
#include "display/colour_map.h"
#include "display/earth_mesh.h"
#include "display/orbit_chart.h"
#include "display/scint_plots.h"

namespace vorel::display {
namespace {

constexpr double kPi = 3.141592653589793;

size_t At(int i, int j) { return static_cast<size_t>(i) * kMeshSteps + j; }

TEST(EarthMesh, CornersFollowTheFormulaAndTheMeshDoesNotClose) {
  const SurfaceMesh earth = EarthMesh();
  ASSERT_EQ(earth.X.size(), 1600u);
  // (0, 0): a = b = -pi, the south pole of the flattened sphere.
  EXPECT_NEAR(earth.X[At(0, 0)], 0.0, 1e-9);
  EXPECT_NEAR(earth.Y[At(0, 0)], 0.0, 1e-9);
  EXPECT_DOUBLE_EQ(earth.Z[At(0, 0)], -6356.0);
  // (39, 39): a = b = 0.95 pi = 171 degrees; cos = -0.98768834, sin = 0.15643447.
  EXPECT_NEAR(earth.X[At(39, 39)], -985.455, 1e-3);
  EXPECT_NEAR(earth.Y[At(39, 39)], 156.080, 1e-3);
  EXPECT_NEAR(earth.Z[At(39, 39)], -6277.747, 1e-3);
  // j = 20 is b = 0: the pole at the Z radius.
  EXPECT_NEAR(earth.X[At(7, 20)], 0.0, 1e-9);
  EXPECT_DOUBLE_EQ(earth.Z[At(7, 20)], 6356.0);
  // On the equator (b = pi / 2 at j = 30) the last row stops a whole step short of the
  // first: the gap is the chord of pi / 20 (2 R sin(pi / 40) = 1000.82 km), as wide as a
  // step between neighbours, where a closed mesh would repeat its first row.
  const auto distance = [&](size_t p, size_t q) {
    return std::hypot(earth.X[p] - earth.X[q], earth.Y[p] - earth.Y[q], earth.Z[p] - earth.Z[q]);
  };
  EXPECT_NEAR(distance(At(39, 30), At(0, 30)), 1000.82, 0.01);
  EXPECT_NEAR(distance(At(0, 30), At(1, 30)), 1000.82, 0.01);
  EXPECT_DOUBLE_EQ(MeshParameter(39), 0.95 * kPi);

  // The shell is a sphere of 6878 km: (10, 30) is a = -pi / 2, b = pi / 2.
  const SurfaceMesh shell = IonosphereMesh();
  EXPECT_NEAR(shell.X[At(10, 30)], 0.0, 1e-9);
  EXPECT_NEAR(shell.Y[At(10, 30)], -6878.0, 1e-9);
  EXPECT_NEAR(shell.Z[At(10, 30)], 0.0, 1e-9);
}

TEST(EarthMesh, SceneJsonHoldsBothMeshesAndTheSatellites) {
  SatellitePoint p;
  p.prn = 7;
  p.position = {26560.0, -1.25, 0.5};
  const std::string json = SceneJson(EarthMesh(), IonosphereMesh(), {p});
  EXPECT_EQ(json.rfind("{\"units\":\"km\",\"steps\":40,\"earth\":{\"x\":[", 0), 0u);
  EXPECT_NE(json.find("\"ionosphere\":{\"x\":["), std::string::npos);
  EXPECT_NE(json.find("\"satellites\":[{\"prn\":7,\"x\":26560.000,\"y\":-1.250,\"z\":0.500}]"),
            std::string::npos);
  // Six arrays of 1600 values: 1599 commas inside each.
  size_t commas = 0;
  for (char ch : json) commas += ch == ',' ? 1 : 0;
  EXPECT_EQ(commas, 6u * 1599u + 2 + 2 + 1 + 2 + 1 + 3);
}

std::unique_ptr<orbits::ConstellationTable> TableWith(int prn, double Omega0, double i0,
                                                      double M0, double e, double omega) {
  auto table = std::make_unique<orbits::ConstellationTable>();
  orbits::OrbitRecord& o = table->rows[prn - 1].trueRecords[0];
  o.status = orbits::kStatusUsable;
  o.Omega0 = Omega0;
  o.i0 = i0;
  o.M0 = M0;
  o.e = e;
  o.omega = omega;
  return table;
}

TEST(OrbitChart, AxesAndGridAloneWithoutAHealthySatellite) {
  auto table = TableWith(3, 1.0, 0.9, 0.0, 0.0, 0.0);
  table->rows[2].trueRecords[0].status = 6;
  const OrbitChart chart = LayOutOrbitChart(*table);
  EXPECT_TRUE(chart.markers.empty());
  EXPECT_TRUE(chart.planes.empty());
  ASSERT_EQ(chart.axes.size(), 2u);
  ASSERT_EQ(chart.grid.size(), 16u);
  EXPECT_EQ(chart.grid.back().x0, 440.0);  // k = 7: the line y = 335
  EXPECT_EQ(chart.grid.back().y0, 335.0);

  // The grid line y = 200 (k = 4) is drawn over the x axis from x = 80 to 440; the axis
  // shows beyond it.
  ChartCanvas canvas(kChartWidth, kChartHeight);
  DrawOrbitChart(chart, canvas);
  EXPECT_EQ(canvas.Pixel(450, 200), 0x0000FF);
  EXPECT_EQ(canvas.Pixel(300, 200), 0xFF0000);
  EXPECT_EQ(canvas.Pixel(80, 370), 0x0000FF);
  EXPECT_EQ(canvas.Pixel(500, 300), 0xFFFFFF);
}

TEST(OrbitChart, PlacesASatelliteOfKnownElements) {
  // e = 0, M = pi / 4, omega = 0: u = pi / 4. i = 30 degrees. Omega = -pi / 2 is taken as
  // 3 pi / 2, so X0 = 270 + 80 = 350.
  auto table = TableWith(5, -kPi / 2.0, kPi / 6.0, kPi / 4.0, 0.0, 0.0);
  OrbitChart chart = LayOutOrbitChart(*table);
  ASSERT_EQ(chart.markers.size(), 1u);
  EXPECT_EQ(chart.markers[0].prn, 5);
  EXPECT_NEAR(chart.markers[0].px, 350.0 + 45.0 * 0.8660254, 1e-6);
  EXPECT_NEAR(chart.markers[0].py, 200.0 - 45.0 * 0.5, 1e-9);
  const ChartSegment& plane = chart.planes[0];
  EXPECT_EQ(plane.colour, 0x000080);
  EXPECT_NEAR(plane.x0, 350.0 - 180.0 * 0.8660254, 1e-5);
  EXPECT_NEAR(plane.y0, 360.0 * 0.5 + 80.0, 1e-9);
  EXPECT_NEAR(plane.x1, 350.0 + 180.0 * 0.8660254, 1e-5);
  EXPECT_NEAR(plane.y1, 80.0 * 0.5, 1e-9);

  // e = 0.5 and M = pi / 2 - 0.5 solve to E = pi / 2: nu = atan2(0.866, -0.5) = 2 pi / 3.
  // With omega = pi / 2, u = 7 pi / 6 is brought back one turn to -5 pi / 6.
  table = TableWith(9, 0.0, kPi / 6.0, kPi / 2.0 - 0.5, 0.5, kPi / 2.0);
  EXPECT_NEAR(SolveKeplerForChart(kPi / 2.0 - 0.5, 0.5), kPi / 2.0, 1e-8);
  chart = LayOutOrbitChart(*table);
  ASSERT_EQ(chart.markers.size(), 1u);
  EXPECT_NEAR(chart.markers[0].px, 80.0 - 150.0 * 0.8660254, 1e-5);
  EXPECT_NEAR(chart.markers[0].py, 200.0 + 150.0 * 0.5, 1e-6);
}

TEST(OrbitChart, InclinationZero) {
  // cos 0 = 1, sin 0 = 0: the plane's first point lies at y = 80 and its second at
  // 80 sin 0 = 0; the satellite sits on y = 200 at X0 + 180 u / pi.
  auto table = TableWith(1, kPi / 2.0, 0.0, kPi / 2.0, 0.0, 0.0);
  const OrbitChart chart = LayOutOrbitChart(*table);
  ASSERT_EQ(chart.planes.size(), 1u);
  EXPECT_DOUBLE_EQ(chart.planes[0].x0, 170.0 - 180.0);
  EXPECT_DOUBLE_EQ(chart.planes[0].y0, 80.0);
  EXPECT_DOUBLE_EQ(chart.planes[0].x1, 170.0 + 180.0);
  EXPECT_DOUBLE_EQ(chart.planes[0].y1, 0.0);
  EXPECT_NEAR(chart.markers[0].px, 260.0, 1e-9);
  EXPECT_DOUBLE_EQ(chart.markers[0].py, 200.0);
}

TEST(ColourMap, InitialEntriesRunFromBlueToRed) {
  const ColourMap map = InitialColourMap();
  EXPECT_EQ(map.entries[0].dataValue, -1.0);
  EXPECT_EQ(map.entries[0].color, 0x0000FF);
  EXPECT_EQ(map.entries[19].dataValue, 1.0);
  EXPECT_EQ(map.entries[19].color, 0xFF0000);
  // i = 9: red 255 9 / 19 = 120.79, blue 255 - 255 t = 134.21; t = 9 / 19 in single
  // precision (0.47368422) gives dataValue -0.0526315570 rather than -1 / 19.
  EXPECT_EQ(map.entries[9].color, 0x780086);
  EXPECT_NEAR(map.entries[9].dataValue, -0.0526315570, 1e-10);
  EXPECT_NE(map.entries[9].dataValue, 2.0 * 9.0 / 19.0 - 1.0);
  // The grid starts at 0: s = -1.4, the first entry's colour everywhere.
  EXPECT_EQ(map.cellColours[4][9], 0x0000FF);
}

TEST(ColourMap, CellColourRule) {
  const ColourMap map = InitialColourMap();
  // 0.7 is s = 0, between entries 9 (-0.05263156) and 10 (0.05263162): f = 0.4999997, so
  // red 120 + 14 f falls just short of 127 and blue 134 - 14 f just beyond it.
  EXPECT_EQ(CellColour(map, 0.7), 0x7E007F);
  // Below 0.2, s is below -1: the first entry. 0.2 itself gives s a hair above -1 in double
  // arithmetic and blends towards entry 1 by 1e-15: blue 254.99999 cuts to 254.
  EXPECT_EQ(CellColour(map, 0.1), 0x0000FF);
  EXPECT_EQ(CellColour(map, -3.0), 0x0000FF);
  EXPECT_EQ(CellColour(map, 0.2), 0x0000FE);
  // 0.85 is s = 0.3, between entries 12 (0.26316: 161, 93) and 13 (0.36842: 174, 80):
  // f = 0.35, red 165.55 and blue 88.45.
  EXPECT_EQ(CellColour(map, 0.85), 0xA50058);
  // s = 0.9 lies between entries 18 and 19, but the last entry is taken whole.
  EXPECT_EQ(CellColour(map, 1.15), 0xFF0000);
  EXPECT_EQ(CellColour(map, 5.0), 0xFF0000);
  // An entry's own value takes its colour: s = dataValue of entry 19.
  EXPECT_EQ(CellColour(map, 1.2), 0xFF0000);

  // The plot maps the value itself and shows white above the last entry.
  EXPECT_EQ(IntensityColour(map, 0.0), 0x7E007F);
  EXPECT_EQ(IntensityColour(map, 1.0), 0xFF0000);
  EXPECT_EQ(IntensityColour(map, 1.01), 0xFFFFFF);
  EXPECT_EQ(IntensityColour(map, -7.0), 0x0000FF);
}

TEST(ColourMap, PatternsAndEdits) {
  ColourMap map = InitialColourMap();
  // Pattern 1: 1.0 is s = 0.6, between entries 15 (0.57895: 201, 53) and 16 (0.68421: 214,
  // 40): f = 0.2, red 203.6, blue 50.4.
  GenerateColourMapData(map, 1);
  EXPECT_EQ(map.dataGrid[8][17], 1.0);
  EXPECT_EQ(map.cellColours[0][0], 0xCB0032);
  EXPECT_EQ(map.cellColours[8][17], 0xCB0032);
  // Pattern 2: row 3 is 0.79, s = 0.18 between entries 11 (0.15789: 147, 107) and 12
  // (0.26316: 161, 93), f = 0.21: red 149.94, blue 104.06. Row 8 is 0.44, s = -0.52
  // between entries 4 (-0.57895: 53, 201) and 5 (-0.47368: 67, 187), f = 0.56.
  GenerateColourMapData(map, 2);
  EXPECT_DOUBLE_EQ(map.dataGrid[3][5], 0.79);
  EXPECT_EQ(map.cellColours[3][5], 0x950068);
  EXPECT_EQ(map.cellColours[8][0], 0x3C00C1);
  EXPECT_EQ(map.cellColours[0][11], 0xCB0032);
  // Any other pattern leaves the grid as it stands.
  GenerateColourMapData(map, 3);
  EXPECT_DOUBLE_EQ(map.dataGrid[3][5], 0.79);

  // A new entry colour reaches the plot at once, the cells only when they are recoloured;
  // one changed cell is recoloured alone.
  ASSERT_TRUE(SetEntryColour(map, 20, 0x00FF00));
  EXPECT_FALSE(SetEntryColour(map, 21, 0x00FF00));
  EXPECT_FALSE(SetEntryColour(map, 0, 0x00FF00));
  EXPECT_EQ(IntensityColour(map, 1.0), 0x00FF00);
  SetGridValue(map, 2, 4, 1.5);
  EXPECT_EQ(map.cellColours[2][4], 0x00FF00);
  EXPECT_EQ(map.cellColours[2][5], CellColour(InitialColourMap(), map.dataGrid[2][5]));
  EXPECT_FALSE(ColourPickerOpensAt(0, 1));
  EXPECT_FALSE(ColourPickerOpensAt(3, 0));
  EXPECT_TRUE(ColourPickerOpensAt(1, 1));
}

TEST(ScintPlots, FitGraphColoursPileUpUntilCleared) {
  PlotGraph graph = EmptyFitGraph();
  PlotLoadedTarget(graph, {10.0, 100.0}, {1.0, 2.0});
  PlotFit(graph, {0.0, 0.5}, {1.0, 1.5}, {1.1, 1.4}, 0xFF0000 + 0xFA);
  ASSERT_EQ(graph.traces.size(), 4u);
  EXPECT_EQ(graph.traces[0].colour, 0xFFFF00);
  EXPECT_DOUBLE_EQ(graph.traces[0].x[1], 2.0);  // log10 of the frequency
  EXPECT_EQ(graph.traces[1].colour, 0xFF0000);
  EXPECT_EQ(graph.traces[2].colour, 0x00FF00);
  EXPECT_EQ(graph.traces[3].colour, 0xFF00FA);
  EXPECT_EQ(graph.traces[3].y, graph.traces[1].y);
  ClearGraph(graph);
  EXPECT_TRUE(graph.traces.empty());

  const PlotGraph strip = ScintStripChart({1.0, 1.2, 0.9}, {0.0, -0.1, 0.2}, 20.0);
  ASSERT_EQ(strip.traces.size(), 2u);
  EXPECT_EQ(strip.traces[0].name, "Amplitude");
  EXPECT_EQ(strip.traces[1].name, "Phase");
  EXPECT_DOUBLE_EQ(strip.traces[1].x[2], 0.1);  // sample 2 at 20 per second
}

}  // namespace
}  // namespace vorel::display
