#pragma once
// The electron density model's memory. One ModelState lives in the Session for the
// whole program start: the data files are read into it, the map mix and the last
// request are cached in it, and N100/BF are set in it once and never again. Nothing
// here is invalidated from outside; every cache is kept by comparison with the values
// it was made for.
//
// The model is not re-entrant: one request at a time, from one thread.

#include <filesystem>
#include <string>
#include <vector>

namespace vorel::density_model {

// Sizes of the map arrays, in the data files' own storage order (first index fastest).
inline constexpr int kF2Rows = 76;
inline constexpr int kF2Stride = 13;
inline constexpr int kFm3Rows = 49;
inline constexpr int kFm3Stride = 9;
inline constexpr int kF2Size = kF2Stride * kF2Rows * 2;     // 1976
inline constexpr int kFm3Size = kFm3Stride * kFm3Rows * 2;  // 882
inline constexpr int kCf2Size = kF2Stride * kF2Rows;        // 988
inline constexpr int kCm3Size = kFm3Stride * kFm3Rows;      // 441

struct ModelState {
  // Directories searched for the data files, in this order. When empty, the installed
  // place and then the source tree's data/nequick are searched (see ModelSearchDirs).
  std::vector<std::filesystem::path> searchDirs;

  // A data file could not be found or read. The text names the file and where it was
  // looked for. Once set, the model does no more work: every entry returns 0 and the
  // caller must stop the command or run that asked.
  std::string error;

  // ---- Map data -------------------------------------------------------------------
  // Dip latitude map: PDIP[L][s + 1] for latitude index L = 0..38 and longitude index
  // s = -1..37; the file fills L = 1..37, s = 0..36, the rest is padding.
  bool dipLoaded = false;
  double PDIP[39][39] = {};

  // foF2 and M(3000)F2 coefficients of the loaded month, solar minimum then maximum.
  int loadedMonth = 13;  // no month has 13
  double F2[kF2Size] = {};
  double FM3[kFm3Size] = {};

  // The same mixed for one R12, and what they were mixed for.
  double mixedR12 = -10.0;
  int mixedMonth = 14;
  double CF2[kCf2Size] = {};
  double CM3[kCm3Size] = {};

  // Time-of-day part of the map series (the rows' Fourier sums), kept for the UT and
  // mix it was made for: on one hour and one mix it does not change with the place.
  bool rowsValid = false;
  double rowsUt = 0.0;
  double rowsF2[kF2Rows] = {};
  double rowsFm3[kFm3Rows] = {};

  // ---- The last request -------------------------------------------------------------
  double UT = -100.0;  // no request has it
  int month = -1;
  double flux = 0.0;
  double R12 = 0.0;
  double sdelta = 0.0, cdelta = 0.0;
  double T = 0.0;
  double dipLat = 0.0, dip = 0.0, modip = 0.0, chi = 0.0;
  double foF2 = 0.0, M3000 = 0.0, foF1 = 0.0, foE = 0.0;
  double HM[3] = {};  // hmF2, hmF1, hmE
  double A[3] = {};   // Epstein amplitudes of F2, F1, E, 1e11 m^-3
  double B[6] = {};   // E below, E above, F1 below, F1 above, F2 below, topside H
  double NmF2 = 0.0;

  // Density at 100 km and the shape below it: worked at the first height below 100 km
  // of the program start and kept from then on, whatever place or time comes later.
  double N100 = -1.0;
  double BF = 0.0;
};

}  // namespace vorel::density_model
