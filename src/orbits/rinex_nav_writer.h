#pragma once
// A RINEX 2.11 GPS navigation file from the broadcast set of the orbit table, so that
// a positioning tool can take the same orbits a run flew (also after an almanac was
// re-dated to the scenario).

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

#include "orbits/orbit_record.h"

namespace vorel::orbits {

struct RinexNavHeader {
  bool hasIono = false;
  std::array<double, 4> alpha{};
  std::array<double, 4> beta{};
  int32_t leapSeconds = 0;
  std::string program = "vorel";
  std::string date;  // "YYYYMMDD HHMMSS UTC"; empty: left blank
  // Each record's TGD as the navigation file gave it (what the receiver profile's message
  // and ranges carry) instead of the program's 0.
  bool fileTgd = false;
};

// A number in the Fortran D form, right-aligned in `width` with `digits` digits after the
// point: FormatD(1.23e-4, 19, 12) is " 0.123000000000D-03" (a sign or a blank first).
std::string FormatD(double value, int width, int digits);

// Writes every broadcast record below recordCount of the usable satellites 1 to 32.
// Returns the number of records written, or -1 with `error` naming the file when it
// could not be written whole (an earlier file of that name is then left as it was).
int WriteRinexNavigation(const ConstellationTable& table, const RinexNavHeader& header,
                         const std::filesystem::path& path, std::string& error);

}  // namespace vorel::orbits
