#pragma once
// Subframes 4 and 5: the 25 pages. The almanac carried is a small fixed table, not the
// constellation's; only the ionosphere coefficients of page 18 and the TOW change with
// the scenario. Each encoder overwrites only its own bits: bits 290-292 of an almanac
// page keep what the same place of the frame buffer held before.

#include <array>
#include <cstdint>

#include "navmsg/nav_bits.h"

namespace vorel::navmsg {

struct AlmanacEntry {
  int32_t spare = 0;
  int32_t svHealth = 0;
  double e = 0.0;
  double sqrtA = 0.0;     // m^(1/2)
  double toa = 0.0;       // s
  double M0 = 0.0;        // rad
  double omega = 0.0;     // rad
  double Omega0 = 0.0;    // rad
  double OmegaDot = 0.0;  // rad/s
  double deltaI = 0.0;
  double af0 = 0.0;  // s
  double af1 = 0.0;  // s/s
};

inline constexpr int kAlmanacEntries = 32;
using AlmanacTable = std::array<AlmanacEntry, kAlmanacEntries>;

// The generator's almanac: all zero but entry 0 (svHealth 1, e 0.123, sqrtA 5000.0,
// toa 120.0).
AlmanacTable MakeAlmanacTable();

// Six bits of health for every satellite on pages 25.
using HealthCode = std::array<NavBit, 6>;

// The UTC terms of page 18, in the order they are passed.
struct UtcConstants {
  double A1 = 0.0, A0 = 0.0, tot = 0.0, WNt = 0.0;                // the UTC polynomial
  double deltaTLS = 0.0, WNLSF = 0.0, DN = 0.0, deltaTLSF = 0.0;  // the leap second
};

// What every message carries: the UTC terms do not follow the scenario time.
inline constexpr UtcConstants kFixedUtcConstants = {-4.5297e-14, -9.3132e-09, 466900.0, 30.0,
                                                    10.0,        243.0,       5.0,      10.0};

// Each encoder takes the page (1..25), the week (not used), t (the time of the start of
// the next subframe), its data and the frame, finishes the subframe's words after the
// word 10 of the subframe before, and returns 1.

// Subframe 4, subframe ID 101: the almanac layout from `entry`.
int EncodeAlmanacPage4(int page, int32_t week, double t, const AlmanacEntry& entry,
                       NavFrame& frame);
// Subframe 5, subframe ID 101: the almanac layout from `entry`.
int EncodeAlmanacPage5(int page, int32_t week, double t, const AlmanacEntry& entry,
                       NavFrame& frame);
// Subframe 4, subframe ID 100: data bits alternating from 1.
int EncodeDummyPage(int page, int32_t week, double t, NavFrame& frame);
// Subframe 4, subframe ID 101: availability 10 and 30 NMCT values of 31.
int EncodeNmctPage(int page, int32_t week, double t, NavFrame& frame);
// Subframe 4, subframe ID 100: Klobuchar coefficients and UTC terms.
int EncodeIonoUtcPage(int page, int32_t week, double t, double alpha0, double alpha1, double alpha2,
                      double alpha3, double beta0, double beta1, double beta2, double beta3,
                      const UtcConstants& utc, NavFrame& frame);
// Subframe 4, subframe ID 101: configuration of SV 1..32 and health of SV 25..32.
int EncodeConfigHealthPage(int page, int32_t week, double t, const HealthCode& health,
                           NavFrame& frame);
// Subframe 5, subframe ID 101: toa, WNa (t modulo 256 s) and health of SV 1..24.
int EncodeHealthPage(int page, int32_t week, double t, int32_t toa, const HealthCode& health,
                     NavFrame& frame);

// Conversion of a truncating UTC field to an unsigned integer (low 32 bits); NaN gives 0.
uint32_t TruncateToUnsigned(double value);

}  // namespace vorel::navmsg
