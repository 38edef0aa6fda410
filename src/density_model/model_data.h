#pragma once
// The model's data files and their evaluation: the dip latitude map (DIPLATS.ASC) and
// the monthly foF2 / M(3000)F2 coefficient files (CCIR11.ASC for January to
// CCIR22.ASC for December). The order of the arithmetic below is that of the published
// model, so that the numbers agree with it to the last bit.
//
// Angles are degrees, time hours. A file that cannot be found or read sets
// ModelState::error and the operation returns -1.

#include <filesystem>
#include <string>
#include <vector>

#include "gnss/constants.h"
#include "density_model/model_state.h"

namespace vorel::density_model {

// The model's own degree factor (not the program-wide one).
inline constexpr double kDeg = gnss::kDegToRadDensity;

// Where the model files are looked for: <dataDir>/NEQUICK first, then the installed
// share/vorel/nequick, then the source tree's data/nequick (for runs from a build tree).
std::vector<std::filesystem::path> ModelSearchDirs(const std::filesystem::path& dataDir);
// The same without a data directory: the installed place and the source tree.
std::vector<std::filesystem::path> DefaultModelSearchDirs();

// Finds `name` in the state's search directories. On failure sets state.error (the
// message names the file and every directory searched) and returns false.
bool FindModelFile(ModelState& state, const std::string& name, std::filesystem::path& found);

// Reads DIPLATS.ASC into PDIP and fills the padding. Returns 0, or -1 with state.error.
int LoadDipLatitudes(ModelState& state);

// Reads CCIR<month + 10>.ASC into F2 and FM3. Returns 0, or -1 with state.error.
int LoadCcirMonth(ModelState& state, int month);

// Third-order interpolation between z[1] (x = 0) and z[2] (x = 1).
double Interpolate4(const double z[4], double x);

// Dip latitude in degrees at a point. Latitudes from -89.9 to 90 and longitudes from
// -180 up to (not including) 540 give the model's values; anything else is kept inside
// the map (see docs/density-model.md).
double DipLatitudeAt(const ModelState& state, double lat, double lon);

// Loads the month and mixes for r12 when either changed, then evaluates both maps.
// Returns 0, or -1 with state.error when the month's file is missing or unreadable.
int CcirMaps(ModelState& state, double modip, int month, double ut, double r12, double lat,
             double lon, double& foF2Out, double& m3000Out);

// One map series, evaluated from scratch. `nq` holds `orders` values; `coefficients`
// holds `total` values. Parameters that do not fit the series' fixed bounds give 0.
double MapValue(double modip, double lat, double lon, double ut, int harmonics, const int* nq,
                int orders, int rows, int stride, int total, const double* coefficients);

// The highest powers of the sine of modip per longitude order, for each map.
inline constexpr int kNqF2[9] = {11, 11, 8, 4, 1, 0, 0, 0, 0};
inline constexpr int kNqFm3[7] = {6, 7, 5, 2, 1, 0, 0};

}  // namespace vorel::density_model
