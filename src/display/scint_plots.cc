#include "display/scint_plots.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace vorel::display {
namespace {

// The plot area on the canvas, and its colours: a dark area as on the panel's graphs, so
// that the yellow and green traces read.
constexpr double kLeft = 70.0, kTop = 34.0, kRight = 620.0, kBottom = 350.0;
constexpr int32_t kAreaColour = 0x000000;
constexpr int32_t kGridColour = 0x404040;
constexpr int32_t kInk = 0x000000;
constexpr int kWantedTicks = 6;

struct Range {
  double low = HUGE_VAL;
  double high = -HUGE_VAL;
  bool Empty() const { return !(low <= high); }
};

void Widen(Range& r, double v) {
  if (!std::isfinite(v)) return;
  r.low = std::min(r.low, v);
  r.high = std::max(r.high, v);
}

// An empty or flat range is opened to a unit around its value.
Range Settle(Range r) {
  if (r.Empty()) return {0.0, 1.0};
  if (!std::isfinite(r.high - r.low)) return {-1e307, 1e307};
  if (r.high - r.low < 1e-12 * std::max(1.0, std::fabs(r.low))) return {r.low - 0.5, r.high + 0.5};
  return r;
}

// A tick step of 1, 2 or 5 times a power of ten that gives about kWantedTicks intervals.
double TickStep(const Range& r) {
  const double raw = (r.high - r.low) / kWantedTicks;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  for (double m : {1.0, 2.0, 5.0})
    if (raw <= m * power) return m * power;
  return 10.0 * power;
}

// Widens the range out to whole ticks.
Range ToTicks(const Range& r, double step) {
  return {std::floor(r.low / step) * step, std::ceil(r.high / step) * step};
}

struct Scale {
  Range x, y;
  double stepX = 1.0, stepY = 1.0;
  double PixelX(double v) const {
    return kLeft + (v - x.low) / (x.high - x.low) * (kRight - kLeft);
  }
  double PixelY(double v) const {
    return kBottom - (v - y.low) / (y.high - y.low) * (kBottom - kTop);
  }
};

Scale ScaleFor(const PlotGraph& graph) {
  Range x, y;
  for (const PlotTrace& t : graph.traces) {
    for (double v : t.x) Widen(x, v);
    for (double v : t.y) Widen(y, v);
  }
  Scale s;
  x = Settle(x);
  y = Settle(y);
  s.stepX = TickStep(x);
  s.stepY = TickStep(y);
  s.x = ToTicks(x, s.stepX);
  s.y = ToTicks(y, s.stepY);
  return s;
}

// Counted rather than stepped, so that a step lost in the rounding of large values cannot
// hold the loop.
int TickCount(const Range& r, double step) {
  const double n = std::round((r.high - r.low) / step);
  return n >= 0.0 && n <= 50.0 ? static_cast<int>(n) : 0;
}

std::string TickText(double v, double step) {
  if (std::fabs(v) < step * 1e-9) v = 0.0;
  return fmt::format("{:g}", v);
}

void DrawAxes(const PlotGraph& graph, const Scale& s, ChartCanvas& canvas) {
  canvas.FillRect(kLeft, kTop, kRight - kLeft, kBottom - kTop, kAreaColour);
  for (int k = 0; k <= TickCount(s.x, s.stepX); ++k) {
    const double v = s.x.low + k * s.stepX;
    const double px = s.PixelX(v);
    canvas.Line(px, kTop, px, kBottom, kGridColour);
    canvas.Text(TickText(v, s.stepX), px, kBottom + 10.0, kInk, 10.0);
  }
  for (int k = 0; k <= TickCount(s.y, s.stepY); ++k) {
    const double v = s.y.low + k * s.stepY;
    const double py = s.PixelY(v);
    canvas.Line(kLeft, py, kRight, py, kGridColour);
    canvas.Text(TickText(v, s.stepY), kLeft - 5.0, py, kInk, 10.0, 2);
  }
  canvas.Text(graph.title, (kLeft + kRight) / 2.0, 14.0, kInk, 13.0);
  canvas.Text(graph.xName, (kLeft + kRight) / 2.0, kBottom + 30.0, kInk, 11.0);
  cairo_t* cr = canvas.cr();
  cairo_save(cr);
  cairo_translate(cr, 16.0, (kTop + kBottom) / 2.0);
  cairo_rotate(cr, -M_PI / 2.0);
  canvas.Text(graph.yName, 0.0, 0.0, kInk, 11.0);
  cairo_restore(cr);
}

// Joins the points of a trace, breaking the line where a value is not finite.
void DrawTrace(const PlotTrace& t, const Scale& s, ChartCanvas& canvas) {
  const size_t n = std::min(t.x.size(), t.y.size());
  std::vector<double> px, py;
  auto flush = [&] {
    if (px.size() > 1) canvas.Polyline(px.data(), py.data(), px.size(), t.colour);
    px.clear();
    py.clear();
  };
  for (size_t k = 0; k < n; ++k) {
    if (!std::isfinite(t.x[k]) || !std::isfinite(t.y[k])) {
      flush();
      continue;
    }
    px.push_back(s.PixelX(t.x[k]));
    py.push_back(s.PixelY(t.y[k]));
  }
  flush();
}

void DrawLegend(const PlotGraph& graph, ChartCanvas& canvas) {
  double y = kTop + 12.0;
  for (const PlotTrace& t : graph.traces) {
    if (t.name.empty()) continue;
    canvas.Line(kRight - 150.0, y, kRight - 126.0, y, t.colour, 3.0);
    canvas.Text(t.name, kRight - 120.0, y, t.colour, 10.0, 0);
    y += 15.0;
  }
}

PlotTrace Trace(std::string name, int32_t colour, std::vector<double> x, std::vector<double> y) {
  PlotTrace t;
  t.name = std::move(name);
  t.colour = colour;
  t.x = std::move(x);
  t.y = std::move(y);
  return t;
}

}  // namespace

PlotGraph ScintStripChart(const std::vector<double>& amplitude, const std::vector<double>& phase,
                          double sampleRate) {
  PlotGraph graph;
  graph.title = "Scintillation series";
  graph.xName = "time (s)";
  graph.yName = "amplitude, phase";
  auto times = [sampleRate](size_t n) {
    std::vector<double> t(n);
    for (size_t k = 0; k < n; ++k) t[k] = static_cast<double>(k) / sampleRate;
    return t;
  };
  graph.traces.push_back(
      Trace("Amplitude", kAmplitudeTraceColour, times(amplitude.size()), amplitude));
  graph.traces.push_back(Trace("Phase", kPhaseTraceColour, times(phase.size()), phase));
  return graph;
}

PlotGraph EmptyFitGraph() {
  PlotGraph graph;
  graph.title = "Shaping filter fit";
  graph.xName = "log10 frequency";
  graph.yName = "response";
  return graph;
}

void PlotLoadedTarget(PlotGraph& graph, const std::vector<double>& x,
                      const std::vector<double>& y) {
  std::vector<double> logX(x.size());
  for (size_t k = 0; k < x.size(); ++k) logX[k] = std::log10(x[k]);
  graph.traces.push_back(Trace("Loaded target", kLoadedTargetColour, std::move(logX), y));
}

void PlotFit(PlotGraph& graph, const std::vector<double>& f, const std::vector<double>& y,
             const std::vector<double>& fit, int32_t FitPlotColour) {
  graph.traces.push_back(Trace("Target", kFitTargetColour, f, y));
  graph.traces.push_back(Trace("Fit", kFitCurveColour, f, fit));
  graph.traces.push_back(Trace(fmt::format("Target 0x{:06X}", FitPlotColour & 0xFFFFFF),
                               FitPlotColour & 0xFFFFFF, f, y));
}

void ClearGraph(PlotGraph& graph) { graph.traces.clear(); }

void DrawGraph(const PlotGraph& graph, ChartCanvas& canvas) {
  const Scale s = ScaleFor(graph);
  DrawAxes(graph, s, canvas);
  cairo_t* cr = canvas.cr();
  cairo_save(cr);
  cairo_rectangle(cr, kLeft, kTop, kRight - kLeft, kBottom - kTop);
  cairo_clip(cr);
  for (const PlotTrace& t : graph.traces) DrawTrace(t, s, canvas);
  cairo_restore(cr);
  DrawLegend(graph, canvas);
}

bool WriteGraphPng(const PlotGraph& graph, const std::filesystem::path& path, std::string& error) {
  ChartCanvas canvas(kChartWidth, kChartHeight);
  DrawGraph(graph, canvas);
  return canvas.WritePng(path, error);
}

}  // namespace vorel::display
