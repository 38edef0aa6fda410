#include "density_model/slant_tec.h"

#include <cmath>

#include "density_model/electron_density.h"
#include "density_model/model_data.h"

namespace vorel::density_model {

RayGeometry MakeRayGeometry(double lat1, double lon1, double h1, double lat2, double lon2,
                            double h2) {
  RayGeometry g;
  const bool samePlace = std::fabs(lat2 - lat1) < 1e-05 && std::fabs(lon2 - lon1) < 1e-05;
  if (samePlace) lon2 = lon1;
  g.r1 = kEarthRadius + h1;
  g.r2 = kEarthRadius + h2;
  const double ratio = kEarthRadius / (kEarthRadius + 400.0);

  if (samePlace) {
    g.rp = 0.0;
    g.latp = lat1;
    g.lonp = lon1;
    g.zeta = 0.0;
    g.cchi = 1.0;
  } else {
    const double dl = (lon2 - lon1) * kDeg;
    const double s1 = std::sin(lat1 * kDeg), c1 = std::cos(lat1 * kDeg);
    const double s2 = std::sin(lat2 * kDeg), c2 = std::cos(lat2 * kDeg);
    const double cd = s1 * s2 + c1 * c2 * std::cos(dl);
    const double sd = std::sqrt(1.0 - cd * cd);
    const double z = std::atan2(sd, cd - g.r1 / g.r2);
    const double a = 1.5707963267948966 - z;
    const double sa = std::sin(a), ca = std::cos(a);
    const double sp = s1 * ca - c1 * sa * ((s2 - cd * s1) / sd / c1);
    const double cp = std::sqrt(1.0 - sp * sp);
    g.latp = std::atan2(sp, cp) * kRadToDeg;
    const double sl = -((std::sin(dl) * c2) / sd) * sa / cp;
    const double cl = ((ca - s1 * sp) / c1) / cp;
    g.lonp = std::atan2(sl, cl) * kRadToDeg + lon1;
    g.rp = g.r1 * std::sin(z);
    g.zeta = z * kRadToDeg;
    const double rs = ratio * std::sin(z);
    g.cchi = std::sqrt(1.0 - rs * rs);
  }

  if (g.rp >= 0.1) {
    const double dl = (lon2 - g.lonp) * kDeg;
    g.sinp = std::sin(g.latp * kDeg);
    g.sins = std::sin(lat2 * kDeg);
    g.cosp = std::cos(g.latp * kDeg);
    g.coss = std::cos(lat2 * kDeg);
    if (std::fabs(std::fabs(g.latp) - 90.0) >= 1e-10) {
      const double cd = g.sinp * g.sins + g.cosp * g.coss * std::cos(dl);
      const double sd = std::sqrt(1.0 - cd * cd);
      g.sinsig = (g.coss * std::sin(dl)) / sd;
      g.cossig = ((g.sins - g.sinp * cd) / g.cosp) / sd;
      g.delta = std::atan2(sd, cd) / kDeg;
    } else {
      // The perigee is at a pole: the ray leaves it along a meridian.
      g.delta = std::fabs(lat2 - g.latp);
      g.sinsig = 0.0;
      g.cossig = g.latp <= 0.0 ? 1.0 : -1.0;
    }
  }
  return g;
}

namespace {

using Pair = double __attribute__((vector_size(16)));

// The doubling rule over ElectronDensityHeight for the column of the last request,
// worked a pass at a time: the pass's points first, then the topside's arithmetic two
// points at a time (the same IEEE operations, so the same values), the exponentials one
// by one, and the sum in the rule's own order. Equal, bit for bit, to
// IntegrateDoubling(ElectronDensityHeight, a, b).
double VerticalColumn(ModelState& state, double a, double b) {
  constexpr int kMaxPoints = 1024;
  alignas(16) double point[kMaxPoints];
  alignas(16) double value[kMaxPoints];
  const Topside top(state);
  const Pair hmF2 = {top.hmF2, top.hmF2};
  const Pair H = {top.H, top.H};
  const Pair H100 = H * 100.0;

  int n = 8;
  double prev = 0.0;
  double sum = 0.0;
  for (;;) {
    const int count = 2 * n;
    const double w = (b - a) / n;
    const double q = w * 0.5773502691896;
    double x = a + (w - q) * 0.5;
    point[0] = x;
    point[1] = x + q;
    for (int i = 1; i <= n - 1; ++i) {
      point[2 * i] = x + w - q;
      point[2 * i + 1] = x + w;
      x = x + w;
    }
    // z = dh / (H (1 + 100 g / (100 H + g))), two points at a time; the next pair's
    // divisions are under way while this pair's exponentials are worked.
    auto zOf = [&](int k) {
      Pair h;
      __builtin_memcpy(&h, point + k, sizeof h);
      const Pair dh = h - hmF2;
      const Pair g = 0.125 * dh;
      return dh / (H * (1.0 + 100.0 * g / (H100 + g)));
    };
    Pair z = zOf(0);
    for (int k = 0; k < count; k += 2) {
      const Pair zNext = zOf(k + 2 < count ? k + 2 : k);
      const Pair e = {std::exp(z[0]), std::exp(z[1])};
      Pair v;
      if (e[0] <= 100000000000.0 && e[1] <= 100000000000.0) {
        const Pair e1 = e + 1.0;
        v = top.NmF2 * (4.0 * e / (e1 * e1));
      } else {
        for (int l = 0; l < 2; ++l) {
          const double el = e[l];
          v[l] = top.NmF2 * (el <= 100000000000.0 ? 4.0 * el / ((el + 1.0) * (el + 1.0))
                                                  : 4.0 / el);
        }
      }
      __builtin_memcpy(value + k, &v, sizeof v);
      z = zNext;
    }
    // Heights at or below hmF2 take the bottomside instead.
    for (int k = 0; k < count; ++k) {
      if (point[k] <= top.hmF2) value[k] = BottomsideDensity(state, point[k]);
    }
    sum = value[0] + value[1];
    for (int i = 1; i <= n - 1; ++i) sum = sum + value[2 * i] + value[2 * i + 1];
    sum = sum * w * 0.5;
    if (n == 8 || std::fabs(prev - sum) > 0.001 * std::fabs(prev)) {
      n = 2 * n;
      prev = sum;
      if (n < 1024) continue;
    }
    break;
  }
  return sum + (sum - prev) / 15.0;
}

}  // namespace

double SlantTec(ModelState& state, double lat1, double& lon1, double h1, double lat2, double lon2,
                double h2, int month, double& flux, double& ut) {
  const RayGeometry g = MakeRayGeometry(lat1, lon1, h1, lat2, lon2, h2);
  const double rp2 = g.rp * g.rp;
  const double s2 = std::sqrt(g.r2 * g.r2 - rp2);
  const double h0 = h1 > 0.0 ? h1 : 0.0;
  const double sh = std::sqrt((h0 + kEarthRadius) * (h0 + kEarthRadius) - rp2);

  // One full request prepares the month, flux, time and (for a vertical ray) the place.
  ElectronDensity(state, h2, lat1, lon1, month, flux, ut);
  if (!state.error.empty()) return 0.0;

  if (g.rp < kVerticalRp) {
    return VerticalColumn(state, h0, h2) / 1000000000000.0;
  }
  auto slant = [&state, &g, rp2](double s) {
    const double t = s / g.rp;
    const double c = 1.0 / std::sqrt(1.0 + t * t);
    const double sphi = g.sinp * c + g.cosp * t * c * g.cossig;
    const double lat = std::atan2(sphi, std::sqrt(1.0 - sphi * sphi)) * kRadToDeg;
    const double lon =
        std::atan2(t * c * g.sinsig * g.cosp, c - g.sinp * sphi) * kRadToDeg + g.lonp;
    const double h = std::sqrt(s * s + rp2) - kEarthRadius;
    return ElectronDensityAt(state, h, lat, lon);
  };
  return IntegrateDoubling(slant, sh, s2) / 1000000000000.0;
}

}  // namespace vorel::density_model
