#include "gnss/constants.h"
#include "atmosphere/troposphere.h"

#include <cmath>

namespace vorel::atmosphere {
namespace {

// The program's degrees-to-radians factor for the troposphere.
using gnss::kDegToRad;

// Niell mapping coefficients, rows at 15, 30, 45, 60 and 75 degrees of latitude;
// columns a, b, c.
constexpr double kDryAverage[5][3] = {
    {0.0012769934, 0.0029153695, 0.062610505}, {0.001268323, 0.0029152299, 0.062837393},
    {0.0012465397, 0.0029288445, 0.063721774}, {0.0012196049, 0.0029022565, 0.063824265},
    {0.0012045996, 0.0029024912, 0.064258455},
};
constexpr double kDryAmplitude[5][3] = {
    {0.0, 0.0, 0.0},
    {1.2709626e-05, 2.1414979e-05, 9.01284e-05},
    {2.6523662e-05, 3.0160779e-05, 4.3497037e-05},
    {3.4000452e-05, 7.2562722e-05, 0.00084795348},
    {4.1202191e-05, 0.00011723375, 0.0017037206},
};
constexpr double kWet[5][3] = {
    {0.00058021897, 0.0014275268, 0.043472961}, {0.00056794847, 0.0015138625, 0.04672951},
    {0.00058118019, 0.0014572752, 0.043908931}, {0.00059727542, 0.0015007428, 0.044626982},
    {0.00061641693, 0.0017599082, 0.054736038},
};

// Height correction of the dry mapping; the numerator is 1 + a / (1 + b / (1 + c)),
// kept as the program has it.
constexpr double kHeightA = 2.53e-05;
constexpr double kHeightB = 0.00549;
constexpr double kHeightC = 0.00114;
constexpr double kHeightNumerator = 1.0000251620178218;

// Continued fraction of the mapping function, normalised to 1 at the zenith.
double MappingFraction(double x, double a, double b, double c) {
  return (1.0 + a / (1.0 + b / (1.0 + c))) / (x + a / (x + b / (x + c)));
}

// The weather and the terms a model worked out, kept for the display of the last values.
void KeepWeather(TroposphereLastValues& last, double P, double humidityTerm, double T) {
  last.lastPressure = P;
  last.lastHumidityTerm = humidityTerm;
  last.lastTemperature = T;
}

void KeepTerms(TroposphereLastValues& last, double wet, double dry, double wetScale,
               double dryScale) {
  last.lastWetTerm = wet;
  last.lastDryTerm = dry;
  last.lastWetScale = wetScale;
  last.lastDryScale = dryScale;
}

double BlackDelay(TroposphereLastValues& last, double E, double T, double P, double H) {
  const double TK = T + 273.15;
  KeepWeather(last, P, H, TK);

  const double TK2 = TK * TK;
  const double Zd = 2.343 * (P / 1013.25) * (TK - 3.96) / TK;
  // The humidity enters as typed, without a division by 100.
  const double Zw = H * (8.952 / TK2) * std::exp(-37.2465 + 0.213166 * TK - 0.000256908 * TK2);
  const double D = 1.0 + 22.346999999999998 * (TK - 3.96) / 6378137.0;
  const double W = 1.0002822140697196;  // 1 + 1800 / 6378137
  KeepTerms(last, Zw, Zd, W, D);

  const double cosE = std::cos(E);
  const double qd = cosE / D;
  const double qw = cosE / W;
  const double md = 1.0 / std::sqrt(1.0 - qd * qd);
  const double mw = 1.0 / std::sqrt(1.0 - qw * qw);
  return Zd * md + Zw * mw;
}

double HopfieldDelay(TroposphereLastValues& last, double E, double T, double P, double H) {
  // The weather is worked through and recorded, but the delay returned below uses the
  // elevation alone.
  const double TK = T + 273.15;
  const double th = 300.0 / TK;
  const double A = 2409000000.0 * std::exp(-22.64 * th) * std::pow(th, 4.0) * H;
  const double Nd = 7.7624e-05 * P / TK;
  const double Nw = (371900.0 / TK - 12.92) * 1e-06 * A / TK;
  const double hd = 0.011385 * P / Nd;
  const double hw = 0.011385 * A / Nw * (1255.0 / TK + 0.5);
  KeepWeather(last, P, H, TK);
  KeepTerms(last, Nw, Nd, hw, hd);

  const double E2 = E * E;
  return 2.312 / std::sin(std::sqrt(E2 + 0.001904)) + 0.084 / std::sin(std::sqrt(E2 + 0.0006854));
}

// Row pair and fraction of the linear interpolation for 15 <= L < 75. The whole part
// of L / 15 is 1 to 4 there; it is bounded all the same so that no rounding can step
// past the last row.
void InterpolationPoint(double L, int& row, double& f) {
  int i = static_cast<int>(L / 15.0);
  if (i < 1) i = 1;
  if (i > 4) i = 4;
  row = i - 1;  // rows counted from 0 at 15 degrees
  f = (L - 15.0 * i) / 15.0;
}

double Lerp(const double table[5][3], int row, double f, int column) {
  return table[row][column] + (table[row + 1][column] - table[row][column]) * f;
}

double SaastamoinenNiellDelay(TroposphereLastValues& last, double E, double T, double P, double H,
                              double h, double latitudeDeg, int dayOfYear) {
  // Here the temperature stays in Celsius and the humidity is a percentage.
  const double e = 6.11 * (H / 100.0) * std::pow(10.0, 7.5 * T / (237.3 + T));
  KeepWeather(last, P, e, T);
  last.lastHeight = h;
  last.lastLatitude = latitudeDeg;
  last.lastDayOfYear = dayOfYear;

  const double phi = latitudeDeg * kDegToRad;
  const double C1 = 0.00266 * std::cos(2.0 * phi);
  const double C2 = 0.00028 * h / 1000.0;
  // Pressure reduced to the height with a lapse rate of 4.5 K per km.
  const double R = std::pow((273.16 + T - 4.5 * h / 1000.0) / (273.16 + T), 7.577777777777778);
  const double Zd = 0.0022768 * P * R / (1.0 - C1 - C2);
  // 0.0022768 * 1255; the textbook's further 0.05 term is not part of this model.
  const double Zw = 2.8573839999999997 * e / (273.2 + T) / (1.0 - C2 - C1);

  const NiellCoefficients k = NiellCoefficientsAt(latitudeDeg, dayOfYear);
  const double s = std::sin(E);
  const double md = MappingFraction(s, k.dryA, k.dryB, k.dryC) +
                    (h / 1000.0) * (1.0 / s - kHeightNumerator /
                                                  (s + kHeightA / (s + kHeightB / (s + kHeightC))));
  const double mw = MappingFraction(s, k.wetA, k.wetB, k.wetC);
  return Zd * md + Zw * mw;
}

}  // namespace

NiellCoefficients NiellCoefficientsAt(double latitudeDeg, int dayOfYear) {
  // The day number is taken as it comes (the program's 30 * month + day runs up to 391).
  // The half-year shift is applied for every southern latitude, also where the result
  // does not use it. The subtraction is done in double so that no day number overflows.
  double S = static_cast<double>(dayOfYear) - 28.0;
  if (latitudeDeg < 0.0) S += 182.625;
  S *= 0.017202423838958193;
  const double c = std::cos(S);

  const double L = std::fabs(latitudeDeg);
  NiellCoefficients k{};
  if (L < 15.0) {
    k.dryA = kDryAverage[0][0];
    k.dryB = kDryAverage[0][1];
    k.dryC = kDryAverage[0][2];
    k.wetA = kWet[0][0];
    k.wetB = kWet[0][1];
    k.wetC = kWet[0][2];
  } else if (L < 75.0) {
    int row = 0;
    double f = 0.0;
    InterpolationPoint(L, row, f);
    k.dryA = Lerp(kDryAverage, row, f, 0) - Lerp(kDryAmplitude, row, f, 0) * c;
    k.dryB = Lerp(kDryAverage, row, f, 1) - Lerp(kDryAmplitude, row, f, 1) * c;
    k.dryC = Lerp(kDryAverage, row, f, 2) - Lerp(kDryAmplitude, row, f, 2) * c;
    k.wetA = Lerp(kWet, row, f, 0);
    k.wetB = Lerp(kWet, row, f, 1);
    k.wetC = Lerp(kWet, row, f, 2);
  } else {
    // 75 degrees and above; a latitude that is not a number lands here as well.
    k.dryA = kDryAverage[4][0] - kDryAmplitude[4][0] * c;
    k.dryB = kDryAverage[4][1] - kDryAmplitude[4][1] * c;
    k.dryC = kDryAverage[4][2] - kDryAmplitude[4][2] * c;
    k.wetA = kWet[4][0];
    k.wetB = kWet[4][1];
    k.wetC = kWet[4][2];
  }
  return k;
}

double TroposphereDelay(AtmosphereState& state, double elevationDeg, double temperatureC,
                        double pressureMbar, double humidity, double heightM, double latitudeDeg,
                        int dayOfYear, int model) {
  if (elevationDeg < 0.0) return 0.0;
  const double E = elevationDeg * kDegToRad;
  TroposphereLastValues& last = state.troposphere;
  switch (model) {
    case kTropoBlack:
      return BlackDelay(last, E, temperatureC, pressureMbar, humidity);
    case kTropoHopfield:
      return HopfieldDelay(last, E, temperatureC, pressureMbar, humidity);
    case kTropoSaastamoinenNiell:
      return SaastamoinenNiellDelay(last, E, temperatureC, pressureMbar, humidity, heightM,
                                    latitudeDeg, dayOfYear);
    default:
      return 0.0;
  }
}

}  // namespace vorel::atmosphere
