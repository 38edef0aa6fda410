#include "density_model/density_commands.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <utility>

#include "density_model/electron_density.h"
#include "density_model/slant_tec.h"

namespace vorel::density_model {
namespace {

// Longest profile we print; beyond it the heights are almost certainly a typing slip.
constexpr double kMaxProfileLines = 1000000.0;

bool CheckFinite(const char* command, const char* name, double v, std::string& error) {
  if (std::isfinite(v)) return true;
  error = fmt::format("{}: --{} must be a number (got {})", command, name, v);
  return false;
}

bool CheckRange(const char* command, const char* name, double v, double lo, double hi,
                std::string& error) {
  if (!CheckFinite(command, name, v, error)) return false;
  if (v >= lo && v <= hi) return true;
  error = fmt::format("{}: --{} must be from {} to {} (got {})", command, name, lo, hi, v);
  return false;
}

bool CheckRequest(const char* command, int month, double ut, double flux, std::string& error) {
  if (month < 1 || month > 12) {
    error = fmt::format("{}: --month must be from 1 to 12 (got {})", command, month);
    return false;
  }
  // The model folds the hour into a day once, so one day either side is accepted.
  if (!CheckFinite(command, "ut", ut, error)) return false;
  if (ut < -24.0 || ut >= 48.0) {
    error = fmt::format("{}: --ut must be from -24 up to 48 hours (got {})", command, ut);
    return false;
  }
  return CheckRange(command, "flux", flux, 0.0, 1e6, error);
}

}  // namespace

int RunProfile(ModelState& state, const ProfileArgs& args, std::string& out, std::string& error) {
  if (!CheckRange("profile", "lat", args.lat, -90.0, 90.0, error) ||
      !CheckFinite("profile", "lon", args.lon, error) ||
      !CheckRequest("profile", args.month, args.ut, args.flux, error) ||
      !CheckFinite("profile", "hmin", args.hmin, error) ||
      !CheckFinite("profile", "hmax", args.hmax, error) ||
      !CheckFinite("profile", "step", args.step, error)) {
    return -1;
  }
  if (!(args.step > 0.0)) {
    error = fmt::format("profile: --step must be above 0 (got {})", args.step);
    return -1;
  }
  // A step lost in the rounding of a height (h + step == h) would never move the loop on;
  // the largest heights, at either end of the range, are where it is lost first.
  if (args.hmin + args.step == args.hmin || args.hmax + args.step == args.hmax) {
    error = fmt::format("profile: --step {} is lost in the rounding of the heights {} to {}",
                        args.step, args.hmin, args.hmax);
    return -1;
  }
  if (args.hmax < args.hmin || (args.hmax - args.hmin) / args.step > kMaxProfileLines) {
    error = fmt::format(
        "profile: --hmin {} to --hmax {} by --step {} is not a range of at most {} heights",
        args.hmin, args.hmax, args.step, kMaxProfileLines);
    return -1;
  }

  // The place is clipped as the profile plot clips it, and the model is prepared with a
  // request at height 0 there, as the plot does.
  double lat = args.lat < -89.9 ? -89.9 : (args.lat > 90.0 ? 90.0 : args.lat);
  double lon = args.lon < -179.9 ? -179.9 : (args.lon > 180.0 ? 180.0 : args.lon);
  double flux = args.flux, ut = args.ut;
  ElectronDensity(state, 0.0, lat, lon, args.month, flux, ut);
  if (!state.error.empty()) {
    error = state.error;
    return -1;
  }
  // Rounding can make a step move less than asked, so the count is held to the limit
  // here too; a profile that would pass it is refused whole.
  const size_t start = out.size();
  auto sink = std::back_inserter(out);
  double lines = 0.0;
  for (double h = args.hmin; h < args.hmax; h = h + args.step) {
    if (++lines > kMaxProfileLines) {
      out.resize(start);
      error = fmt::format("profile: --step {} gives more than {} heights from {} to {}", args.step,
                          kMaxProfileLines, args.hmin, args.hmax);
      return -1;
    }
    fmt::format_to(sink, "{:.3f} {:.6e}\n", h, ElectronDensityHeight(state, h));
  }
  return 0;
}

int RunTec(ModelState& state, const TecArgs& args, std::string& out, std::string& error) {
  if (!CheckRange("tec", "lat1", args.lat1, -90.0, 90.0, error) ||
      !CheckFinite("tec", "lon1", args.lon1, error) ||
      !CheckRange("tec", "h1", args.h1, -1000.0, 100000.0, error) ||
      !CheckRange("tec", "lat2", args.lat2, -90.0, 90.0, error) ||
      !CheckFinite("tec", "lon2", args.lon2, error) ||
      !CheckRange("tec", "h2", args.h2, -1000.0, 100000.0, error) ||
      !CheckRequest("tec", args.month, args.ut, args.flux, error)) {
    return -1;
  }
  // The integral runs from the lower point; the points are taken in that order.
  double lat1 = args.lat1, lon1 = args.lon1, h1 = args.h1;
  double lat2 = args.lat2, lon2 = args.lon2, h2 = args.h2;
  if (h1 > h2) {
    std::swap(lat1, lat2);
    std::swap(lon1, lon2);
    std::swap(h1, h2);
  }
  double flux = args.flux, ut = args.ut;
  const double tec = SlantTec(state, lat1, lon1, h1, lat2, lon2, h2, args.month, flux, ut);
  if (!state.error.empty()) {
    error = state.error;
    return -1;
  }
  if (!std::isfinite(tec)) {
    // Only a ray whose nearest point to the centre lies exactly on a pole gets here:
    // the direction of the ray has no longitude there.
    error = "tec: the ray passes exactly over a pole, where its content is not defined";
    return -1;
  }
  // The integral is in 1e15 electrons per square metre; a TEC unit is 1e16.
  fmt::format_to(std::back_inserter(out), "# TEC (1e15 el/m2), TECU (1e16 el/m2), L1 delay (m)\n");
  fmt::format_to(std::back_inserter(out), "{:.6f} {:.6f} {:.6f}\n", tec, tec / 10.0,
                 tec * kL1DelayPerTecUnit);
  return 0;
}

}  // namespace vorel::density_model
