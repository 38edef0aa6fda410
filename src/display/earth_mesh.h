#pragma once
// The two surfaces of the 3D view: the Earth and the ionosphere shell, each a 40 by 40
// parametric mesh in km, and the satellites' positions, for a renderer in the browser.
//
// The parameter runs in 40 equal steps from -pi to 0.95 pi (k - 20) / 20 pi, so the last
// row and column stop one step short of where the first began: the mesh does not quite
// close, which is how the view has always looked.

#include <array>
#include <string>
#include <vector>

#include "orbits/orbit_record.h"

namespace vorel::display {

inline constexpr int kMeshSteps = 40;
inline constexpr double kEarthRadiusXY = 6378.0;          // km
inline constexpr double kEarthRadiusZ = 6356.0;           // km
inline constexpr double kIonosphereShellRadius = 6878.0;  // km

// X, Y, Z of point (i, j) at index i * kMeshSteps + j.
struct SurfaceMesh {
  std::vector<double> X;
  std::vector<double> Y;
  std::vector<double> Z;
};

// The parameter value of step k: (k - 20) / 20 pi.
double MeshParameter(int k);

// X = Rxy cos a(i) sin b(j), Y = Rxy sin a(i) sin b(j), Z = Rz cos b(j).
SurfaceMesh FillSurfaceMesh(double radiusXY, double radiusZ);
SurfaceMesh EarthMesh();
SurfaceMesh IonosphereMesh();

// A satellite of the scene: its PRN and Earth-fixed position in km.
struct SatellitePoint {
  int prn = 0;
  std::array<double, 3> position{};
};

// The healthy satellites of PRN 1 to 32 at `secondsOfWeek`, each from the record the
// table would select at that time (record 0 when none lies ahead). The table is left as
// it is.
std::vector<SatellitePoint> SatellitePointsAt(const orbits::ConstellationTable& table,
                                              double secondsOfWeek);

// The scene as JSON: {"units":"km","steps":40,"earth":{"x":[..],"y":[..],"z":[..]},
// "ionosphere":{..},"satellites":[{"prn":1,"x":..,"y":..,"z":..},..]}.
std::string SceneJson(const SurfaceMesh& earth, const SurfaceMesh& ionosphere,
                      const std::vector<SatellitePoint>& satellites);

}  // namespace vorel::display
