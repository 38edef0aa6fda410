#include "display/tec_grid.h"

#include <omp.h>

#include <memory>

#include "atmosphere/klobuchar.h"
#include "density_model/slant_tec.h"

namespace vorel::display {
namespace {

constexpr double kHalfPi = 1.5707963267948966;
constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kRadToDeg = 57.32484;  // the map's own degree factor

double KlobucharCell(const atmosphere::AtmosphereState& state, double latR, double lonR,
                     double timeOfWeek) {
  double delay = 0.0;
  atmosphere::KlobucharDelay(state, latR, lonR, kHalfPi, 0.6, timeOfWeek, delay);
  return delay / 0.162;
}

double NequickCell(density_model::ModelState& model, const TecMapRequest& r, double latR,
                   double lonR) {
  double lat = latR * kRadToDeg;
  lat = lat < -89.9 ? -89.9 : (lat > 90.0 ? 90.0 : lat);
  double lon = lonR * kRadToDeg;
  if (lon < -179.9) lon = -179.9;
  double flux = r.solarFlux, ut = r.hour;
  return 0.1 *
         density_model::SlantTec(model, lat, lon, 100.0, lat, lon, 20000.0, r.month, flux, ut);
}

double CellLatitude(int row) { return row * kTecStep - kHalfPi; }
double CellLongitude(int column) { return column * kTecStep; }

bool ComputeNequickGrid(const TecMapRequest& r, density_model::ModelState& model, TecGrid& grid,
                        std::string& error) {
  // One request on the shared model reads the month's files and mixes its maps; the copies
  // start from there and only ever compare against what they were made for.
  NequickCell(model, r, CellLatitude(0), CellLongitude(0));
  if (!model.error.empty()) {
    error = model.error;
    return false;
  }
  bool failed = false;
#pragma omp parallel
  {
    auto own = std::make_unique<density_model::ModelState>(model);
#pragma omp for schedule(static)
    for (int i = 0; i < kTecRows; ++i)
      for (int j = 0; j < kTecColumns; ++j)
        grid.tec[i * kTecColumns + j] = NequickCell(*own, r, CellLatitude(i), CellLongitude(j));
    if (!own->error.empty()) {
#pragma omp critical
      failed = true;
    }
  }
  if (failed) error = "the electron density model failed while the map was drawn";
  return !failed;
}

}  // namespace

bool ComputeTecGrid(const TecMapRequest& request, const atmosphere::AtmosphereState& atmosphere,
                    density_model::ModelState& model, TecGrid& grid, std::string& error) {
  grid.model = request.model;
  grid.tec.assign(static_cast<size_t>(kTecRows) * kTecColumns, 0.0);
  if (request.model == kTecMapNequick) return ComputeNequickGrid(request, model, grid, error);
  if (request.model == kTecMapKlobuchar) {
    for (int i = 0; i < kTecRows; ++i)
      for (int j = 0; j < kTecColumns; ++j)
        grid.tec[i * kTecColumns + j] =
            KlobucharCell(atmosphere, CellLatitude(i), CellLongitude(j), request.timeOfWeek);
  }
  return true;
}

uint32_t TecColour(double tec) {
  double red = 2.6 * tec;
  double blue = 255.0 - 2.7 * tec;
  // Cut to whole numbers and held to a byte; a TEC below 0 or far above 100 would
  // otherwise spill into the next colour.
  const auto byte = [](double v) {
    if (!(v > 0.0)) return 0u;
    if (v >= 255.0) return 255u;
    return static_cast<uint32_t>(v);
  };
  return byte(red) << 16 | 1u << 8 | byte(blue);
}

int TecCellTop(int row) {
  return static_cast<int>((1.0 - (kHalfPi + CellLatitude(row)) / kPi) * 475.0 - 3.0);
}

int TecCellLeft(int column) {
  double left = (CellLongitude(column) / kTwoPi + 0.5) * 646.0 - 3.0;
  if (left > 646.0) left = left - 646.0;
  return static_cast<int>(left);
}

}  // namespace vorel::display
