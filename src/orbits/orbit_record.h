#pragma once
// The orbit store: per satellite a true set of records (what the simulation flies) and
// a broadcast set (what the navigation message carries), with the same layout.

#include <array>
#include <cstdint>

namespace vorel::orbits {

inline constexpr int kTableRows = 68;      // rows by PRN - 1; 1..32 are walked by loops
inline constexpr int kRecordsPerSet = 28;  // records per set and satellite
inline constexpr int32_t kStatusUsable = 7;

struct OrbitRecord {
  int32_t prn = 0;
  int32_t week = 0;    // full GPS week of toc and toe
  int32_t status = 0;  // 7 = healthy and usable
  int16_t iodc = 0;
  int16_t iode = 0;
  int32_t aodo = 0;
  double toc = 0.0;  // s of week
  double af0 = 0.0;  // s
  double af1 = 0.0;  // s/s
  double af2 = 0.0;  // s/s^2
  double tgd = 0.0;  // s; no reader fills it: the program's message and ranges carry 0
  // TGD as the RINEX navigation record gave it (s; 0 from an almanac). Kept apart from
  // `tgd` so that only the receiver profile's clock and subframe 1 take it up.
  double fileTgd = 0.0;
  double Cuc = 0.0;  // rad
  double Cus = 0.0;  // rad
  double Crc = 0.0;  // m
  double Crs = 0.0;  // m
  double Cic = 0.0;  // rad
  double Cis = 0.0;  // rad
  double toe = 0.0;  // s of week
  double M0 = 0.0;   // rad
  double deltaN = 0.0;  // rad/s
  double e = 0.0;
  double sqrtA = 0.0;  // m^(1/2)
  double Omega0 = 0.0;  // rad
  double i0 = 0.0;      // rad
  double omega = 0.0;   // rad
  double OmegaDot = 0.0;  // rad/s
  double IDOT = 0.0;      // rad/s
};

struct SatelliteOrbits {
  int32_t prn = 0;
  int32_t recordCount = 0;     // valid records, the same for both sets
  int32_t selectedRecord = 0;  // record in force; negative means no orbit
  std::array<OrbitRecord, kRecordsPerSet> trueRecords{};
  std::array<OrbitRecord, kRecordsPerSet> broadcastRecords{};
};

struct ConstellationTable {
  std::array<SatelliteOrbits, kTableRows> rows{};

  // A satellite counts as present when true record 0 is usable.
  bool Present(int index) const { return rows[index].trueRecords[0].status == kStatusUsable; }
};

}  // namespace vorel::orbits
