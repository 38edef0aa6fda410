#pragma once
// The program's constants, each in one place. Where one quantity has several values on
// purpose (the degree factors, the Earth's rotation rate, 2 pi in single precision), each
// variant has its own name and says where it is used, so the differences stay visible.

#include <cstdint>

namespace vorel::gnss {

inline constexpr double kSpeedOfLight = 299792458.0;       // m/s
inline constexpr double kL1Frequency = 1575420000.0;       // Hz
inline constexpr int kGpsPrnCount = 32;                    // PRN 1..32
inline constexpr double kSecondsPerWeek = 604800.0;
inline constexpr double kHalfWeek = 302400.0;

// Degrees to radians as the program at large has it (orbits, observation, troposphere).
inline constexpr double kDegToRad = 0.017453292519943;
// Radians to degrees as the observation's elevation for the troposphere has it: not the
// inverse of kDegToRad, so the angle comes back 1.0005 times too large.
inline constexpr double kRadToDegTropo = 57.32484;
// The electron density model's pair.
inline constexpr double kDegToRadDensity = 0.0174532925199433;
inline constexpr double kRadToDegDensity = 57.29577951308232;
inline constexpr double kPi = 3.141592653589793;

// The Earth's rotation rate of the satellite position (WGS 84 as the ICD prints it) and
// the slightly different one of the Earth-rotation correction over the transit time.
inline constexpr double kEarthRotation = 7.2921151467e-05;         // rad/s
inline constexpr double kEarthRotationTransit = 7.292115147e-05;   // rad/s

// 2 pi as the sample arithmetic holds it: the float nearest to 2 pi.
inline constexpr float kTwoPiFloat = 6.2831854820251465f;

}  // namespace vorel::gnss
