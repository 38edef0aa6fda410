#include "display/orbit_chart.h"

#include <fmt/format.h>

#include <cmath>

namespace vorel::display {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kKeplerTolerance = 1e-08;
// Converges for any e below 1; the cap keeps a corrupt record from holding the chart.
constexpr int kKeplerIterationCap = 100000;
constexpr int kChartRows = 32;
constexpr int kGridLines = 8;
constexpr double kMarkerTextSize = 11.0;

void AddAxesAndGrid(OrbitChart& chart) {
  chart.axes.push_back({460.0, 200.0, 75.0, 200.0, kOrbitAxisPen});
  chart.axes.push_back({80.0, 380.0, 80.0, 20.0, kOrbitAxisPen});
  for (int k = 0; k < kGridLines; ++k) {
    const double x = 125.0 + 45.0 * k;
    const double y = 20.0 + 45.0 * k;
    chart.grid.push_back({x, 380.0, x, 20.0, kOrbitGridPen});
    chart.grid.push_back({440.0, y, 80.0, y, kOrbitGridPen});
  }
}

// Argument of latitude at the reference time, brought into -pi..pi by one turn at most.
double ArgumentOfLatitude(const orbits::OrbitRecord& o) {
  const double E = SolveKeplerForChart(o.M0, o.e);
  const double d = 1.0 - o.e * std::cos(E);
  const double nu =
      std::atan2(std::sqrt(1.0 - o.e * o.e) * std::sin(E) / d, (std::cos(E) - o.e) / d);
  double u = nu + o.omega;
  if (u > kPi) {
    u -= kTwoPi;
  } else if (u < -kPi) {
    u += kTwoPi;
  }
  return u;
}

void AddSatellite(OrbitChart& chart, int prn, const orbits::OrbitRecord& o) {
  double Omega = o.Omega0;
  if (Omega < 0.0) Omega += kTwoPi;
  const double i = o.i0;
  const double X0 = Omega * 180.0 / kPi + 80.0;
  chart.planes.push_back({X0 - 180.0 * std::cos(i), 360.0 * std::sin(i) + 80.0,
                          X0 + 180.0 * std::cos(i), 80.0 * std::sin(i), kOrbitPlanePen});
  const double u = ArgumentOfLatitude(o);
  OrbitMarker m;
  m.prn = prn;
  m.px = X0 + 180.0 * u * std::cos(i) / kPi;
  m.py = 200.0 - 180.0 * u * std::sin(i) / kPi;
  chart.markers.push_back(m);
}

void DrawSegments(const std::vector<ChartSegment>& segments, ChartCanvas& canvas) {
  for (const ChartSegment& s : segments) canvas.Line(s.x0, s.y0, s.x1, s.y1, s.colour);
}

}  // namespace

double SolveKeplerForChart(double M, double e) {
  double E = M;
  for (int iteration = 0; iteration < kKeplerIterationCap; ++iteration) {
    const double next = M + e * std::sin(E);
    const double change = std::fabs(next - E);
    E = next;
    if (change < kKeplerTolerance || std::isnan(change)) break;
  }
  return E;
}

OrbitChart LayOutOrbitChart(const orbits::ConstellationTable& table) {
  OrbitChart chart;
  AddAxesAndGrid(chart);
  for (int index = 0; index < kChartRows; ++index) {
    const orbits::OrbitRecord& o = table.rows[index].trueRecords[0];
    if (o.status == orbits::kStatusUsable) AddSatellite(chart, index + 1, o);
  }
  return chart;
}

void DrawOrbitChart(const OrbitChart& chart, ChartCanvas& canvas) {
  DrawSegments(chart.axes, canvas);
  DrawSegments(chart.grid, canvas);
  for (size_t k = 0; k < chart.markers.size(); ++k) {
    const ChartSegment& plane = chart.planes[k];
    canvas.Line(plane.x0, plane.y0, plane.x1, plane.y1, plane.colour);
    const OrbitMarker& m = chart.markers[k];
    canvas.FramedRect(m.px - 10.0, m.py + 5.0, 40.0, 10.0, kOrbitMarkerFill, kOrbitMarkerFrame);
    canvas.FramedOval(m.px, m.py, 20.0, 20.0, kOrbitMarkerFill, kOrbitMarkerFrame);
    canvas.Text(fmt::format("{}", m.prn), m.px + 10.0, m.py + 10.0, kOrbitMarkerFrame,
                kMarkerTextSize);
  }
}

bool WriteOrbitChartPng(const orbits::ConstellationTable& table, const std::filesystem::path& path,
                        std::string& error) {
  ChartCanvas canvas(kChartWidth, kChartHeight);
  DrawOrbitChart(LayOutOrbitChart(table), canvas);
  return canvas.WritePng(path, error);
}

}  // namespace vorel::display
