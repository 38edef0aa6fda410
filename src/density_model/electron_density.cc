#include "density_model/electron_density.h"

#include <cmath>

#include "density_model/model_data.h"

namespace vorel::density_model {
namespace {

// Constants the model holds in single precision, used as the doubles they widen to.
constexpr double kNmFactor = 0.12399999797344208;   // (MHz)^2 to 1e11 m^-3
constexpr double kB2Factor = 0.38499999046325684;
constexpr double kB1LowFactor = 0.699999988079071;

constexpr double kHmE = 120.0;
constexpr double kChiDayNight = 86.23292796211615;

inline double Epstein(double a, double m, double b, double z) {
  const double e = ClippedExp((z - m) / b);
  return a * e / ((e + 1.0) * (e + 1.0));
}

// foE and foF1 (MHz) from the latitude, the month, the flux and the zenith angle.
void LowerLayers(ModelState& st, double lat) {
  double seas;
  switch (st.month) {
    case 1: case 2: case 11: case 12: seas = -1.0; break;
    case 5: case 6: case 7: case 8: seas = 1.0; break;
    default: seas = 0.0; break;  // 3, 4, 9, 10
  }
  const double ee = ClippedExp(0.3 * lat);
  seas = seas * (ee - 1.0) / (ee + 1.0);
  const double chi = st.chi;
  const double chin =
      SmoothJoin(90.0 - 0.24 * ClippedExp(20.0 - 0.2 * chi), chi, 12.0, chi - kChiDayNight);
  const double sfac = (1.112 - 0.019 * seas) * std::sqrt(std::sqrt(st.flux));
  const double fa = sfac * ClippedExp(0.3 * std::log(std::cos(chin * kDeg)));
  st.foE = std::sqrt(fa * fa + 0.49);
  st.foF1 = SmoothJoin(1.4 * st.foE, 0.0, 12.0, kChiDayNight - chi);
}

// Peak heights, amplitudes and thicknesses of the three layers.
void LayerParameters(ModelState& st) {
  const double foF2 = st.foF2, foE = st.foE, foF1 = st.foF1;
  const double NmF2p = kNmFactor * (foF2 * foF2);
  double NmF1 = kNmFactor * (foF1 * foF1);
  if (foF1 <= 0.0 && foE > 2.0) NmF1 = kNmFactor * ((foE + 0.5) * (foE + 0.5));
  const double NmE = kNmFactor * (foE * foE);

  const double hmF2 = PeakHeightF2(foE, foF2, st.M3000);
  const double hmF1 = SmoothJoin(108.8 + 14.0 * NmF1 + 0.71 * st.dip,
                                 108.8 + 14.0 * NmF1 - 0.71 * st.dip, 12.0, st.dip);
  st.HM[0] = hmF2;
  st.HM[1] = hmF1;
  st.HM[2] = kHmE;

  const double slope =
      0.01 * std::exp(-3.467 + 0.857 * std::log(foF2 * foF2) + 2.02 * std::log(st.M3000));
  const double B2 = kB2Factor * NmF2p / slope;

  st.A[0] = 4.0 * NmF2p;
  double a2 = 4.0 * (NmF1 - Epstein(st.A[0], hmF2, B2, hmF1));
  a2 = SmoothJoin(a2, 0.05, 60.0, a2 - 0.005);
  st.A[1] = a2;

  double x = NmF1 > 0.001 ? a2 / (0.1 * NmF1) : 0.0;
  x = SmoothJoin(x, 1.5, 20.0, x - 1.5);
  const double B1top = (hmF2 - hmF1) / std::log(x);
  const double B1 = SmoothJoin(B2 + 50.0, B1top, 20.0, B1top - B2 - 50.0);
  const double B1low = kB1LowFactor * B1;

  double a3 =
      4.0 * (NmE - Epstein(a2, hmF1, B1low, kHmE) - Epstein(st.A[0], hmF2, B2, kHmE));
  a3 = SmoothJoin(a3, 0.005, 60.0, a3 - 0.005);
  st.A[2] = a3;

  double BEtop = 0.5 * B1;
  if (BEtop < 7.0) BEtop = 7.0;

  double kk;
  if (st.month < 4 || st.month > 9) {
    const double r = hmF2 / B2;
    kk = 0.097 * (r * r) - 7.77 + 0.153 * NmF2p;
  } else {
    kk = 6.705 - 0.014 * st.R12 - 0.008 * hmF2;
  }
  kk = SmoothJoin(kk, 2.0, 1.0, kk - 2.0);
  kk = SmoothJoin(8.0, kk, 1.0, kk - 8.0);
  const double H = kk * B2;
  const double y = (H - 150.0) / 100.0;

  st.B[0] = 5.0;
  st.B[1] = BEtop;
  st.B[2] = B1low;
  st.B[3] = B1;
  st.B[4] = B2;
  st.B[5] = H / ((0.041163 * y - 0.183981) * y + 1.424472);
}

}  // namespace

double ClippedExp(double x) {
  if (x > 80.0) return 5.5406e+34;
  if (x < -80.0) return 1.8049e-35;
  return std::exp(x);
}

double SmoothJoin(double f1, double f2, double alpha, double x) {
  const double e = ClippedExp(alpha * x);
  return (f1 * e + f2) / (e + 1.0);
}

void SolarDeclination(int month, double ut, double& sdelta, double& cdelta) {
  const double t = month * 30.5 - 15.0 + (18.0 - ut) / 24.0;
  const double am = (0.9856 * t - 3.289) * kDeg;
  const double al = am + (1.916 * std::sin(am) + 0.02 * std::sin(2.0 * am) + 282.634) * kDeg;
  sdelta = 0.39782 * std::sin(al);
  cdelta = std::sqrt(1.0 - sdelta * sdelta);
}

double PeakHeightF2(double foE, double foF2, double m3000) {
  const double M = m3000;
  double dM;
  if (foE < 1e-30) {
    dM = -0.012;
  } else {
    double r = foF2 / foE;
    r = SmoothJoin(r, 1.75, 20.0, r - 1.75);
    dM = 0.253 / (r - 1.215) - 0.012;
  }
  return M * std::sqrt((0.0196 * (M * M) + 1.0) / (1.2967 * (M * M) - 1.0)) * 1490.0 / (M + dM) -
         176.0;
}

double BottomsideDensity(ModelState& st, double h) {
  const double hmF2 = st.HM[0], hmF1 = st.HM[1], hmE = st.HM[2];
  const double BB[3] = {st.B[4], h > hmF1 ? st.B[3] : st.B[2], h > hmE ? st.B[1] : st.B[0]};
  if (h >= 100.0) {
    double sum = 0.0;
    for (int i = 0; i < 3; ++i) {
      double arg = (h - st.HM[i]) / BB[i];
      if (i > 0) {
        const double d = std::fabs(h - hmF2);
        arg = arg * std::exp(10.0 / (1.0 + 2.0 * d));
      }
      if (std::fabs(arg) <= 25.0) {
        const double e = std::exp(arg);
        sum = sum + st.A[i] * e / ((e + 1.0) * (e + 1.0));
      }
    }
    return sum * 100000000000.0;
  }
  if (st.N100 <= 0.0) {
    // Worked once in the program start, with the thicknesses that a height below
    // 100 km selects, and kept from then on.
    double sum = 0.0, ds = 0.0;
    for (int i = 0; i < 3; ++i) {
      double arg = (100.0 - st.HM[i]) / BB[i];
      if (i > 0) {
        const double d = std::fabs(100.0 - hmF2);
        arg = arg * std::exp(10.0 / (1.0 + 2.0 * d));
      }
      double s = 0.0, dsum = 0.0;
      if (std::fabs(arg) <= 25.0) {
        const double e = std::exp(arg);
        s = st.A[i] * e / ((e + 1.0) * (e + 1.0));
        dsum = ((1.0 - e) / (e + 1.0)) / BB[i];
      }
      sum = sum + s;
      ds = ds + s * dsum;
    }
    st.BF = 1.0 - 10.0 * ds / sum;
    st.N100 = sum * 100000000000.0;
  }
  const double z = (h - 100.0) / 10.0;
  return st.N100 * ClippedExp(1.0 - st.BF * z - ClippedExp(-z));
}

double TopsideDensity(const ModelState& st, double h) { return Topside(st).At(h); }

double ElectronDensityHeight(ModelState& st, double h) {
  if (!st.error.empty()) return 0.0;
  if (h <= st.HM[0]) return BottomsideDensity(st, h);
  return TopsideDensity(st, h);
}

double ElectronDensityAt(ModelState& st, double h, double lat, double lon) {
  if (!st.error.empty()) return 0.0;
  double T = st.UT + lon / 15.0;
  if (T < 0.0) T = T + 24.0;
  if (T >= 24.0) T = T - 24.0;
  st.T = T;

  st.dipLat = DipLatitudeAt(st, lat, lon);
  const double d = std::atan2(2.0 * std::sin(st.dipLat * kDeg), std::cos(st.dipLat * kDeg));
  st.modip = std::atan2(d, std::sqrt(std::fabs(std::cos(lat * kDeg)))) * kRadToDeg;
  st.dip = d * kRadToDeg;

  const double cosChi = std::sin(lat * kDeg) * st.sdelta +
                        std::cos(lat * kDeg) * st.cdelta * std::cos((12.0 - T) * kPi / 12.0);
  st.chi = std::atan2(std::sqrt(1.0 - cosChi * cosChi), cosChi) * kRadToDeg;

  if (CcirMaps(st, st.modip, st.month, st.UT, st.R12, lat, lon, st.foF2, st.M3000) != 0) {
    return 0.0;
  }
  LowerLayers(st, lat);
  LayerParameters(st);
  st.NmF2 = BottomsideDensity(st, st.HM[0]);
  return ElectronDensityHeight(st, h);
}

double ElectronDensity(ModelState& st, double h, double lat, double& lon, int month, double& flux,
                       double& ut) {
  if (flux > 193.0) flux = 193.0;
  if (ut < 0.0) ut = ut + 24.0;
  if (ut >= 24.0) ut = ut - 24.0;
  lon = std::fmod(lon + 360.0, 360.0);
  if (!st.error.empty()) return 0.0;

  if (!st.dipLoaded && LoadDipLatitudes(st) != 0) return 0.0;
  if (ut != st.UT || month != st.month) {
    SolarDeclination(month, ut, st.sdelta, st.cdelta);
    st.UT = ut;
    st.month = month;
  }
  if (flux != st.flux) {
    st.R12 = std::sqrt((flux - 63.7) * 1123.6 + 167273.0) - 408.99;
    st.flux = flux;
  }
  return ElectronDensityAt(st, h, lat, lon);
}

}  // namespace vorel::density_model
