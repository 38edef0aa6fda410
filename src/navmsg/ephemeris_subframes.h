#pragma once
// Subframes 1 to 3: clock and ephemeris of one broadcast orbit record. The encoders
// fill their subframe of the frame, word by word, and finish its words.

#include <cstdint>

#include "navmsg/nav_bits.h"

namespace vorel::navmsg {

// Radians to semicircles, kept as this literal (1/pi to 13 digits).
inline constexpr double kSemicirclesPerRadian = 0.3183098861838;

// The IODC that every frame carries unless the IODC-follows-IODE option is on.
inline constexpr int32_t kSystemIodc = 562;

// Subframe 1: week, URA, health, IODC, reserved words, TGD, toc, af2, af1, af0.
// `iodc` goes into the ten IODC bits (the generator passes 562, or the record's IODE
// when asked to). previousWord is the last word sent before this subframe. Returns 1.
int EncodeSubframe1(int32_t week, double t, double tgd, double toc, double af2, double af1,
                    double af0, int32_t iodc, NavFrame& frame, const NavWord& previousWord);

// Subframe 2: IODE, Crs, delta n, M0, Cuc, e, Cus, sqrt A, toe, fit flag, AODO.
// The fit flag goes out as 0 whatever is passed. Returns 1.
int EncodeSubframe2(int32_t week, double t, int32_t iode, double Crs, double deltaN, double M0,
                    double Cuc, double e, double Cus, double sqrtA, double toe, int32_t aodo,
                    int fitFlag, NavFrame& frame);

// Subframe 3: Cic, Omega0, Cis, i0, Crc, omega, Omega dot, IODE, IDOT. Returns 1.
int EncodeSubframe3(int32_t week, double t, double Cic, double Omega0, double Cis, double i0,
                    double Crc, double omega, double OmegaDot, int32_t iode, double IDOT,
                    NavFrame& frame);

}  // namespace vorel::navmsg
