#include "display/colour_map.h"

#include <fmt/format.h>

#include <cmath>

namespace vorel::display {
namespace {

constexpr int kLastEntry = kColourMapEntries - 1;
constexpr double kCellCentre = 0.7;
constexpr double kCellScale = 2.0;

// Page layout, in pixels.
constexpr double kPlotLeft = 40.0, kPlotTop = 30.0;
constexpr double kTableLeft = 40.0, kTableTop = 275.0;
constexpr double kCellWidth = 24.0, kCellHeight = 20.0;
constexpr double kSwatchLeft = 560.0, kSwatchTop = 30.0, kSwatchStep = 22.0;
constexpr int32_t kInk = 0x000000;
constexpr int32_t kFrame = 0x808080;

int32_t Channel(int32_t colour, int shift) { return (colour >> shift) & 0xFF; }

// Each of red, green and blue: the lower value plus the difference times f, cut to a
// whole number.
int32_t Blend(int32_t lower, int32_t upper, double f) {
  int32_t result = 0;
  for (int shift : {16, 8, 0}) {
    const double lo = Channel(lower, shift);
    const double hi = Channel(upper, shift);
    const auto c = static_cast<int32_t>(lo + (hi - lo) * f);
    result |= (c & 0xFF) << shift;
  }
  return result;
}

int32_t BlendBetween(const ColourMap& map, int k, double s) {
  const ColorMapEntry& lower = map.entries[k - 1];
  const ColorMapEntry& upper = map.entries[k];
  const double f = std::fabs((s - lower.dataValue) / (upper.dataValue - lower.dataValue));
  return Blend(lower.color, upper.color, f);
}

// Black or white, whichever reads better on `background`.
int32_t TextOn(int32_t background) {
  const int brightness =
      Channel(background, 16) * 3 + Channel(background, 8) * 6 + Channel(background, 0);
  return brightness > 1275 ? 0x000000 : 0xFFFFFF;
}

void DrawIntensityPlot(const ColourMap& map, ChartCanvas& canvas) {
  canvas.Text("Intensity plot", kPlotLeft, kPlotTop - 14.0, kInk, 12.0, 0);
  for (int r = 0; r < kGridRows; ++r) {
    // Row 0 lies at the bottom of the plot, as on a graph.
    const double top = kPlotTop + (kGridRows - 1 - r) * kCellHeight;
    for (int c = 0; c < kGridColumns; ++c)
      canvas.FillRect(kPlotLeft + c * kCellWidth, top, kCellWidth, kCellHeight,
                      IntensityColour(map, map.dataGrid[r][c]));
    canvas.Text(fmt::format("{}", r), kPlotLeft - 6.0, top + kCellHeight / 2.0, kInk, 10.0, 2);
  }
  const double bottom = kPlotTop + kGridRows * kCellHeight;
  for (int c = 0; c < kGridColumns; ++c)
    canvas.Text(fmt::format("{}", c), kPlotLeft + (c + 0.5) * kCellWidth, bottom + 9.0, kInk, 10.0);
  canvas.Line(kPlotLeft, bottom, kPlotLeft + kGridColumns * kCellWidth, bottom, kInk);
  canvas.Line(kPlotLeft, kPlotTop, kPlotLeft, bottom, kInk);
}

void DrawTable(const ColourMap& map, ChartCanvas& canvas) {
  canvas.Text("Data table", kTableLeft, kTableTop - 26.0, kInk, 12.0, 0);
  for (int c = 0; c < kGridColumns; ++c)
    canvas.Text(fmt::format("{}", c + 1), kTableLeft + (c + 0.5) * kCellWidth, kTableTop - 8.0,
                kInk, 9.0);
  for (int r = 0; r < kGridRows; ++r) {
    const double top = kTableTop + r * kCellHeight;
    canvas.Text(fmt::format("{}", r + 1), kTableLeft - 6.0, top + kCellHeight / 2.0, kInk, 9.0, 2);
    for (int c = 0; c < kGridColumns; ++c) {
      const double left = kTableLeft + c * kCellWidth;
      const int32_t colour = map.cellColours[r][c];
      canvas.FramedRect(left, top, kCellWidth + 1.0, kCellHeight + 1.0, colour, kFrame);
      canvas.Text(fmt::format("{:.2f}", map.dataGrid[r][c]), left + kCellWidth / 2.0,
                  top + kCellHeight / 2.0, TextOn(colour), 7.5);
    }
  }
}

void DrawSwatches(const ColourMap& map, ChartCanvas& canvas) {
  canvas.Text("Colour map", kSwatchLeft - 46.0, kSwatchTop - 14.0, kInk, 12.0, 0);
  for (int k = 0; k < kColourMapEntries; ++k) {
    const double top = kSwatchTop + k * kSwatchStep;
    canvas.Text(fmt::format("{:1.2f}", map.entries[k].dataValue), kSwatchLeft - 6.0,
                top + kSwatchStep / 2.0 - 1.0, kInk, 10.0, 2);
    canvas.FramedRect(kSwatchLeft, top, 50.0, kSwatchStep - 2.0, map.entries[k].color, kFrame);
  }
}

}  // namespace

ColourMap InitialColourMap() {
  ColourMap map;
  for (int i = 0; i < kColourMapEntries; ++i) {
    const float t = static_cast<float>(i / 19.0);
    const auto red = static_cast<int32_t>(255 * i / 19.0);
    const auto blue = static_cast<int32_t>(255.0 - 255.0 * t);
    map.entries[i].dataValue = 2.0 * t - 1.0;
    map.entries[i].color = (red << 16) | blue;
  }
  RecolourAllCells(map);
  return map;
}

int32_t CellColour(const ColourMap& map, double v) {
  const double s = (v - kCellCentre) * kCellScale;
  if (s <= map.entries[0].dataValue) return map.entries[0].color;
  int k = kLastEntry;
  for (int j = 1; j < kColourMapEntries; ++j) {
    if (!(map.entries[j].dataValue < s)) {
      k = j;
      break;
    }
  }
  if (s == map.entries[k].dataValue || k == kLastEntry) return map.entries[k].color;
  return BlendBetween(map, k, s);
}

int32_t IntensityColour(const ColourMap& map, double v) {
  if (v <= map.entries[0].dataValue) return map.entries[0].color;
  if (v > map.entries[kLastEntry].dataValue) return kAboveMapColour;
  for (int k = 1; k < kColourMapEntries; ++k)
    if (map.entries[k].dataValue >= v) return BlendBetween(map, k, v);
  return map.entries[kLastEntry].color;  // a NaN
}

void GenerateColourMapData(ColourMap& map, int pattern) {
  for (int r = 0; r < kGridRows; ++r) {
    for (int c = 0; c < kGridColumns; ++c) {
      if (pattern == 1) map.dataGrid[r][c] = 1.0;
      if (pattern == 2) map.dataGrid[r][c] = 1.0 - 0.07 * r;
    }
  }
  RecolourAllCells(map);
}

void SetGridValue(ColourMap& map, int row, int column, double value) {
  if (row < 0 || row >= kGridRows || column < 0 || column >= kGridColumns) return;
  map.dataGrid[row][column] = value;
  RecolourCell(map, row, column);
}

void RecolourAllCells(ColourMap& map) {
  for (int r = 0; r < kGridRows; ++r)
    for (int c = 0; c < kGridColumns; ++c) RecolourCell(map, r, c);
}

void RecolourCell(ColourMap& map, int row, int column) {
  if (map.colorMapInterpolate != 1) return;
  map.cellColours[row][column] = CellColour(map, map.dataGrid[row][column]);
}

bool ColourPickerOpensAt(int tableRow, int tableColumn) { return tableRow > 0 && tableColumn > 0; }

bool SetEntryColour(ColourMap& map, int tableRow, int32_t colour) {
  if (tableRow < 1 || tableRow > kColourMapEntries) return false;
  map.entries[tableRow - 1].color = colour & 0xFFFFFF;
  return true;
}

void DrawColourMapPage(const ColourMap& map, ChartCanvas& canvas) {
  DrawIntensityPlot(map, canvas);
  DrawTable(map, canvas);
  DrawSwatches(map, canvas);
}

bool WriteColourMapPng(const ColourMap& map, const std::filesystem::path& path,
                       std::string& error) {
  ChartCanvas canvas(kColourMapPageWidth, kColourMapPageHeight);
  DrawColourMapPage(map, canvas);
  return canvas.WritePng(path, error);
}

}  // namespace vorel::display
