#include "display/earth_mesh.h"

#include <fmt/format.h>

#ifdef _OPENMP
#include <omp.h>
#endif

#include <cmath>
#include <iterator>
#include <memory>

#include "orbits/satellite_position.h"

namespace vorel::display {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr int kHealthyRows = 32;

void AppendArray(fmt::memory_buffer& out, const char* name, const std::vector<double>& values) {
  fmt::format_to(std::back_inserter(out), "\"{}\":[", name);
  for (size_t k = 0; k < values.size(); ++k)
    fmt::format_to(std::back_inserter(out), "{}{:.3f}", k == 0 ? "" : ",", values[k]);
  fmt::format_to(std::back_inserter(out), "]");
}

void AppendMesh(fmt::memory_buffer& out, const char* name, const SurfaceMesh& mesh) {
  fmt::format_to(std::back_inserter(out), "\"{}\":{{", name);
  AppendArray(out, "x", mesh.X);
  fmt::format_to(std::back_inserter(out), ",");
  AppendArray(out, "y", mesh.Y);
  fmt::format_to(std::back_inserter(out), ",");
  AppendArray(out, "z", mesh.Z);
  fmt::format_to(std::back_inserter(out), "}}");
}

}  // namespace

double MeshParameter(int k) { return (k - 20) / 20.0 * kPi; }

SurfaceMesh FillSurfaceMesh(double radiusXY, double radiusZ) {
  SurfaceMesh mesh;
  const size_t n = static_cast<size_t>(kMeshSteps) * kMeshSteps;
  mesh.X.resize(n);
  mesh.Y.resize(n);
  mesh.Z.resize(n);
  double* x = mesh.X.data();
  double* y = mesh.Y.data();
  double* z = mesh.Z.data();
  // Each thread fills its own rows; inside another parallel region the loop runs on the
  // calling thread.
#ifdef _OPENMP
#pragma omp parallel for schedule(static) if (!omp_in_parallel())
#endif
  for (int i = 0; i < kMeshSteps; ++i) {
    const double a = MeshParameter(i);
    for (int j = 0; j < kMeshSteps; ++j) {
      const double b = MeshParameter(j);
      const size_t at = static_cast<size_t>(i) * kMeshSteps + j;
      x[at] = radiusXY * std::cos(a) * std::sin(b);
      y[at] = radiusXY * std::sin(a) * std::sin(b);
      z[at] = radiusZ * std::cos(b);
    }
  }
  return mesh;
}

SurfaceMesh EarthMesh() { return FillSurfaceMesh(kEarthRadiusXY, kEarthRadiusZ); }

SurfaceMesh IonosphereMesh() {
  return FillSurfaceMesh(kIonosphereShellRadius, kIonosphereShellRadius);
}

std::vector<SatellitePoint> SatellitePointsAt(const orbits::ConstellationTable& table,
                                              double secondsOfWeek) {
  // Selection marks the record in force in the table; a copy keeps the caller's as it was.
  auto scratch = std::make_unique<orbits::ConstellationTable>(table);
  std::vector<SatellitePoint> points;
  for (int index = 0; index < kHealthyRows; ++index) {
    if (!scratch->Present(index)) continue;
    orbits::SelectOrbitRecord(secondsOfWeek, *scratch, index);
    orbits::Vec3 position{};
    double relativistic = 0.0;
    orbits::SatellitePosition(*scratch, secondsOfWeek, index, position, relativistic);
    SatellitePoint p;
    p.prn = index + 1;
    for (int c = 0; c < 3; ++c) p.position[c] = position[c] / 1000.0;
    points.push_back(p);
  }
  return points;
}

std::string SceneJson(const SurfaceMesh& earth, const SurfaceMesh& ionosphere,
                      const std::vector<SatellitePoint>& satellites) {
  fmt::memory_buffer out;
  fmt::format_to(std::back_inserter(out), "{{\"units\":\"km\",\"steps\":{},", kMeshSteps);
  AppendMesh(out, "earth", earth);
  fmt::format_to(std::back_inserter(out), ",");
  AppendMesh(out, "ionosphere", ionosphere);
  fmt::format_to(std::back_inserter(out), ",\"satellites\":[");
  for (size_t k = 0; k < satellites.size(); ++k) {
    const SatellitePoint& s = satellites[k];
    fmt::format_to(std::back_inserter(out),
                   "{}{{\"prn\":{},\"x\":{:.3f},\"y\":{:.3f},\"z\":{:.3f}}}", k == 0 ? "" : ",",
                   s.prn, s.position[0], s.position[1], s.position[2]);
  }
  fmt::format_to(std::back_inserter(out), "]}}\n");
  return fmt::to_string(out);
}

}  // namespace vorel::display
