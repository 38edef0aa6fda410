#pragma once
// The scintillation panel's plots: the strip chart of a generated series (traces
// "Amplitude" and "Phase") and the graph of the filter fit, on which a loaded target, the
// fit's target and curve, and the target once more in the shifted FitPlotColour pile up
// until the graph is cleared.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "display/chart_png.h"

namespace vorel::display {

inline constexpr int32_t kLoadedTargetColour = 0xFFFF00;
inline constexpr int32_t kFitTargetColour = 0xFF0000;
inline constexpr int32_t kFitCurveColour = 0x00FF00;
inline constexpr int32_t kAmplitudeTraceColour = 0xFFFF00;
inline constexpr int32_t kPhaseTraceColour = 0x00FFFF;

// One plot: points joined by line segments, in one colour.
struct PlotTrace {
  std::string name;
  int32_t colour = 0;
  std::vector<double> x;
  std::vector<double> y;
};

struct PlotGraph {
  std::string title;
  std::string xName;
  std::string yName;
  std::vector<PlotTrace> traces;
};

// The two series against time in seconds at `sampleRate` samples per second.
PlotGraph ScintStripChart(const std::vector<double>& amplitude, const std::vector<double>& phase,
                          double sampleRate);

// The fit's graph as it stands at program start: empty, with its axis names.
PlotGraph EmptyFitGraph();
// A loaded target: (log10 x, y) in kLoadedTargetColour.
void PlotLoadedTarget(PlotGraph& graph, const std::vector<double>& x, const std::vector<double>& y);
// A fit: the densified target (f = log10 of the frequencies) in kFitTargetColour, the curve
// in kFitCurveColour, then the target again in `FitPlotColour` (already stepped for this fit).
void PlotFit(PlotGraph& graph, const std::vector<double>& f, const std::vector<double>& y,
             const std::vector<double>& fit, int32_t FitPlotColour);
// Deletes every plot of the graph.
void ClearGraph(PlotGraph& graph);

// Draws the graph, scaled to the finite values of all its traces, with a legend.
void DrawGraph(const PlotGraph& graph, ChartCanvas& canvas);
bool WriteGraphPng(const PlotGraph& graph, const std::filesystem::path& path, std::string& error);

}  // namespace vorel::display
