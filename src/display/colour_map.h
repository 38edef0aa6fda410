#pragma once
// The colour map editor: a grid of 9 rows by 18 columns, an intensity plot of it, and 20
// colour map entries the user can recolour. Every table cell takes its colour from the
// map by the cell rule below; the plot maps the values themselves.
//
// The state lives in the session for the life of a program start; the editor's actions
// are functions over it.

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

#include "display/chart_png.h"

namespace vorel::display {

inline constexpr int kColourMapEntries = 20;
inline constexpr int kGridRows = 9;
inline constexpr int kGridColumns = 18;
// The plot's colour for values above the last entry.
inline constexpr int32_t kAboveMapColour = 0xFFFFFF;

struct ColorMapEntry {
  double dataValue = 0.0;
  int32_t color = 0;  // 0xRRGGBB
};

struct ColourMap {
  std::array<ColorMapEntry, kColourMapEntries> entries{};
  // dataGrid[row][column], and the colour each table cell shows.
  std::array<std::array<double, kGridColumns>, kGridRows> dataGrid{};
  std::array<std::array<int32_t, kGridColumns>, kGridRows> cellColours{};
  // Fixed at 1: the cells are always recoloured after an edit.
  int32_t colorMapInterpolate = 1;
};

// The map at program start: entry i with t = i / 19 in single precision has dataValue
// 2 t - 1 and runs from blue at -1 to red at 1; the grid is 0 and its cells coloured.
ColourMap InitialColourMap();

// The table cell's colour for value v: s = (v - 0.7) 2, looked up between the entries.
int32_t CellColour(const ColourMap& map, double v);
// The intensity plot's colour for v: the value itself between the entries, the first
// entry's colour at or below it, white above the last.
int32_t IntensityColour(const ColourMap& map, double v);

// Pattern 1: every cell 1.0. Pattern 2: row r is 1.0 - 0.07 r. Any other pattern leaves
// the grid as it stands. The cells are recoloured in every case.
void GenerateColourMapData(ColourMap& map, int pattern);
// A changed cell: its value is stored and that cell alone recoloured.
void SetGridValue(ColourMap& map, int row, int column, double value);
// A whole range changed: every cell is recoloured from the grid.
void RecolourAllCells(ColourMap& map);
void RecolourCell(ColourMap& map, int row, int column);

// The colour table's rows and columns count from 1 beneath its headers: a click opens the
// picker only on a cell with a positive row and column.
bool ColourPickerOpensAt(int tableRow, int tableColumn);
// The picker's choice for colour-table row `tableRow` (1..20) goes into that entry; the
// plot is redrawn from it, the table cells keep their colours until the next edit.
// Returns false for a row outside the table.
bool SetEntryColour(ColourMap& map, int tableRow, int32_t colour);

// The editor's page: the intensity plot, the table with its cell colours and values, and
// the swatches of the 20 entries labelled by "%1.2f".
inline constexpr int kColourMapPageWidth = 640;
inline constexpr int kColourMapPageHeight = 500;
void DrawColourMapPage(const ColourMap& map, ChartCanvas& canvas);
bool WriteColourMapPng(const ColourMap& map, const std::filesystem::path& path, std::string& error);

}  // namespace vorel::display
