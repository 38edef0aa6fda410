#pragma once
// The vertical profile plot: electron density against height, 0 to 1000 km, on a plot
// area of 220 by 376 pixels. The horizontal axis is either six decades, 1e7 to 1e13 m^-3
// (profileScale 0), or linear from 0 to 1e13 m^-3 (any other profileScale). Profiles are
// drawn over one another so that they can be compared; Clear wipes them.
//
// The picture adds a margin with the axes around the plot area; the plot area's pixel
// (x, y) is the picture's (x + kProfileLeft, y + kProfileTop).

#include <cstdint>
#include <string>
#include <vector>

#include "density_model/model_state.h"
#include "display/canvas.h"

namespace vorel::display {

inline constexpr int kProfileWidth = 220;
inline constexpr int kProfileHeight = 376;
inline constexpr int kProfileLeft = 62;
inline constexpr int kProfileTop = 14;
inline constexpr int kProfilePictureWidth = kProfileLeft + kProfileWidth + 16;
inline constexpr int kProfilePictureHeight = kProfileTop + kProfileHeight + 44;
inline constexpr int kProfilePoints = 1000;

struct ProfileRequest {
  double lat = 0.0, lon = 0.0;  // degrees; clipped to -89.9..90 and -179.9..180
  int month = 1;
  double hour = 0.0;
  double solarFlux = 0.0;
};

// The plot's 1000 densities (m^-3), at heights 0 to 999 km, from a model prepared with a
// request at height 0 at the place. False with `error` when the model's data failed.
bool ComputeProfile(density_model::ModelState& model, const ProfileRequest& request,
                    std::vector<double>& densities, std::string& error);

// Plot-area coordinates of the k-th density (0-based): it is drawn one kilometre above
// its height, y = (1000 - (k + 1)) 376 / 1000.
double ProfileX(double density, int32_t profileScale);
double ProfileY(int k);

class ProfilePlot {
 public:
  ProfilePlot();
  // Axes only (as after CLEAR_PROFILE).
  void Clear();
  // A profile in `colour` (0xRRGGBB) over what is there, from (0, 1000 km) point to point.
  void Draw(const std::vector<double>& densities, int32_t profileScale, uint32_t colour);
  const Canvas& canvas() const { return canvas_; }

 private:
  int32_t axesScale_ = 0;
  Canvas canvas_;
  void DrawAxes(int32_t profileScale);
};

}  // namespace vorel::display
