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
    auto vertical = [&state](double h) { return ElectronDensityHeight(state, h); };
    return IntegrateDoubling(vertical, h0, h2) / 1000000000000.0;
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
