#pragma once
// The TEC map's grid: 180 rows by 360 columns in steps of 3 degrees, rows from the south
// pole up and columns from 0 east. Rows above 60 and columns above 120 lie past the map;
// they are computed all the same (their rectangles fall off the canvas or overdraw the
// first turn of the globe), since that is what the map has always cost and shown.

#include <cstdint>
#include <string>
#include <vector>

#include "atmosphere/atmosphere_state.h"
#include "density_model/model_state.h"

namespace vorel::display {

inline constexpr int kTecRows = 180;
inline constexpr int kTecColumns = 360;
inline constexpr double kTecStep = 0.052359877559829;  // 3 degrees, radians

// Which model a map shows (the tecMapModel setting); other values draw with no model.
inline constexpr int32_t kTecMapNequick = 0;
inline constexpr int32_t kTecMapKlobuchar = 2;

struct TecGrid {
  int32_t model = kTecMapNequick;
  std::vector<double> tec;  // row-major, kTecRows x kTecColumns, TEC units (1e16 m^-2)
  double at(int row, int column) const { return tec[row * kTecColumns + column]; }
};

// The place and time a map is drawn for.
struct TecMapRequest {
  int32_t model = kTecMapNequick;
  int month = 1;            // NeQuick
  double hour = 0.0;        // NeQuick, universal time in hours
  double solarFlux = 0.0;   // NeQuick
  double timeOfWeek = 0.0;  // Klobuchar, seconds
};

// Klobuchar: the vertical delay of an east-looking ray at elevation 0.6 rad over
// 0.162 m per TEC unit, from the coefficients already in `atmosphere`.
// NeQuick: a tenth of the content of the column from 100 to 20,000 km. The NeQuick
// columns are shared out over threads by row, each with its own copy of the model made
// after one request has loaded the month's maps, so the grid does not depend on the
// thread count. Any other model leaves every cell at 0.
// Returns false when the model's data files failed; `error` says which.
bool ComputeTecGrid(const TecMapRequest& request, const atmosphere::AtmosphereState& atmosphere,
                    density_model::ModelState& model, TecGrid& grid, std::string& error);

// A cell's colour, 0xRRGGBB: red 2.6 tec and blue 255 - 2.7 tec, each cut to a whole
// number and held within 0 to 255; green 1.
uint32_t TecColour(double tec);

// Top row and left column of a cell's 6 by 8 rectangle.
int TecCellTop(int row);
int TecCellLeft(int column);

}  // namespace vorel::display
