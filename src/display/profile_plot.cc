#include "display/profile_plot.h"

#include <fmt/format.h>

#include <cmath>

#include "density_model/electron_density.h"

namespace vorel::display {
namespace {

constexpr uint32_t kPaper = 0xFFFFFF, kAxis = 0x303030, kGrid = 0xDCDCDC;
// Keeps a density of 0 (log of 0) or a wild one from sending the pen to infinity; the
// point then lies just beyond the plot's edge.
constexpr double kFarLeft = -50.0, kFarRight = kProfileWidth + 50.0;

}  // namespace

bool ComputeProfile(density_model::ModelState& model, const ProfileRequest& r,
                    std::vector<double>& densities, std::string& error) {
  double lat = r.lat < -89.9 ? -89.9 : (r.lat > 90.0 ? 90.0 : r.lat);
  double lon = r.lon < -179.9 ? -179.9 : (r.lon > 180.0 ? 180.0 : r.lon);
  double flux = r.solarFlux, ut = r.hour;
  density_model::ElectronDensity(model, 0.0, lat, lon, r.month, flux, ut);
  densities.assign(kProfilePoints, 0.0);
  for (int k = 0; k < kProfilePoints; ++k)
    densities[k] = density_model::ElectronDensityHeight(model, static_cast<double>(k));
  if (!model.error.empty()) {
    error = model.error;
    return false;
  }
  return true;
}

double ProfileX(double n, int32_t profileScale) {
  const double x =
      profileScale == 0 ? std::log10(n / 10000000.0) * 220.0 / 6.0 : n * 220.0 / 10000000000000.0;
  if (std::isnan(x) || x < kFarLeft) return kFarLeft;
  return x > kFarRight ? kFarRight : x;
}

double ProfileY(int k) { return (1000.0 - (k + 1)) * 376.0 / 1000.0; }

ProfilePlot::ProfilePlot() : canvas_(kProfilePictureWidth, kProfilePictureHeight) { Clear(); }

void ProfilePlot::Clear() {
  canvas_.Fill(kPaper);
  DrawAxes(axesScale_);
}

void ProfilePlot::DrawAxes(int32_t scale) {
  axesScale_ = scale;
  canvas_.FillRect(0, 0, kProfilePictureHeight, kProfileLeft, kPaper);
  canvas_.FillRect(kProfileTop + kProfileHeight, 0, 44, kProfilePictureWidth, kPaper);
  const int l = kProfileLeft, t = kProfileTop, b = kProfileTop + kProfileHeight;
  for (int h = 0; h <= 1000; h += 200) {
    const double y = t + std::floor((1000.0 - h) * 376.0 / 1000.0);
    canvas_.DrawLine(l - 4, y, l - 1, y, kAxis);
    canvas_.DrawText(std::to_string(h), l - 30, y + 4, 10.0, kAxis);
  }
  for (int k = 0; k <= 6; ++k) {
    const double x = l + std::floor(k * 220.0 / 6.0);
    canvas_.DrawLine(x, b, x, b + 3, kAxis);
    const std::string label = scale == 0 ? fmt::format("1e{}", 7 + k)
                                         : (k == 0 ? "0" : fmt::format("{:.3g}", k / 6.0 * 10.0));
    canvas_.DrawTextCentred(label, x, b + 12, 9.0, kAxis);
  }
  canvas_.DrawTextCentred(scale == 0 ? "electron density (m^-3)" : "electron density (1e12 m^-3)",
                          l + kProfileWidth / 2.0, b + 32, 10.0, kAxis);
  canvas_.DrawText("km", 8, t + 8, 10.0, kAxis);
  // The frame sits just outside the plot area, which stays 220 by 376 pixels.
  canvas_.DrawLine(l - 1, t - 1, l + kProfileWidth, t - 1, kGrid);
  canvas_.DrawLine(l + kProfileWidth, t - 1, l + kProfileWidth, b, kGrid);
  canvas_.DrawLine(l - 1, t - 1, l - 1, b, kAxis);
  canvas_.DrawLine(l - 1, b, l + kProfileWidth, b, kAxis);
}

void ProfilePlot::Draw(const std::vector<double>& densities, int32_t profileScale,
                       uint32_t colour) {
  if (profileScale != axesScale_) DrawAxes(profileScale);
  cairo_t* cr = canvas_.context();
  cairo_save(cr);
  cairo_rectangle(cr, kProfileLeft, kProfileTop, kProfileWidth, kProfileHeight);
  cairo_clip(cr);
  double px = 0.0, py = 1000.0;  // the plot's own start point, far below the area
  for (int k = 0; k < static_cast<int>(densities.size()); ++k) {
    const double x = ProfileX(densities[k], profileScale), y = ProfileY(k);
    canvas_.DrawLine(kProfileLeft + px, kProfileTop + py, kProfileLeft + x, kProfileTop + y,
                     colour);
    px = x, py = y;
  }
  cairo_restore(cr);
}

}  // namespace vorel::display
