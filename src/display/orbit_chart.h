#pragma once
// The orbit chart of the 3D panel: the orbit planes of the healthy satellites drawn flat,
// right ascension of the node along x (one pixel per degree from x = 80), and each
// satellite placed on its plane by its argument of latitude. The chart shows the state at
// each orbit's reference time: M is the stored mean anomaly, not propagated to any epoch.
//
// The chart is first laid out as segments and markers in canvas pixels (the layout is
// what the tests check), then drawn.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "display/chart_png.h"
#include "orbits/orbit_record.h"

namespace vorel::display {

// The chart's pens. On the chart canvas the axes reach x = 460 and y = 380, and planes of
// nodes near 360 degrees run on to x = 620.
inline constexpr int32_t kOrbitAxisPen = 0x0000FF;
inline constexpr int32_t kOrbitGridPen = 0xFF0000;
inline constexpr int32_t kOrbitPlanePen = 0x000080;
inline constexpr int32_t kOrbitMarkerFill = 0x00FFFF;
inline constexpr int32_t kOrbitMarkerFrame = 0x000080;

struct ChartSegment {
  double x0 = 0.0, y0 = 0.0, x1 = 0.0, y1 = 0.0;
  int32_t colour = 0;
};

// A satellite's mark: a 40 x 10 tag at top py + 5, left px - 10, a 20 x 20 oval at top py,
// left px, and the PRN centred at (px + 10, py + 10).
struct OrbitMarker {
  int prn = 0;
  double px = 0.0;
  double py = 0.0;
};

struct OrbitChart {
  std::vector<ChartSegment> axes;
  std::vector<ChartSegment> grid;
  std::vector<ChartSegment> planes;  // one per marker, in the same order
  std::vector<OrbitMarker> markers;
};

// E = M + e sin E, from E = M, until two values differ by less than 1e-08.
double SolveKeplerForChart(double M, double e);

// The layout for PRN 1 to 32, each from its true record 0 when that record is usable.
OrbitChart LayOutOrbitChart(const orbits::ConstellationTable& table);

void DrawOrbitChart(const OrbitChart& chart, ChartCanvas& canvas);

// Lays out, draws and writes the chart. Returns false with `error` naming the file.
bool WriteOrbitChartPng(const orbits::ConstellationTable& table, const std::filesystem::path& path,
                        std::string& error);

}  // namespace vorel::display
