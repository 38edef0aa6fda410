#include "gnss/constants.h"
#include "orbits/satellite_position.h"

#include <cmath>
#include <limits>

#include "gnss/time_coords.h"

namespace vorel::orbits {
namespace {
constexpr double kGravitationalParameter = 398600500000000.0;
using gnss::kEarthRotation;
using gnss::kEarthRotationTransit;
constexpr double kRelativityFactor = -4.442807633e-10;
constexpr double kKeplerTolerance = 1e-08;
constexpr int kKeplerIterationCap = 100000;
}  // namespace

int SelectOrbitRecord(double t, ConstellationTable& table, int index) {
  SatelliteOrbits& row = table.rows[index];
  if (row.recordCount < 1) {
    row.selectedRecord = 0;
    return -1;
  }
  const int count = row.recordCount < kRecordsPerSet ? row.recordCount : kRecordsPerSet;
  for (int k = 0; k < count; ++k) {
    const OrbitRecord& record = row.trueRecords[k];
    if (record.status != kStatusUsable) continue;
    const double d = record.toe - t;
    if (d > 0.0 && d < 7200.0) {
      row.selectedRecord = k;
      return 0;
    }
  }
  row.selectedRecord = 0;
  return -1;
}

double SatelliteSpeedBound(const ConstellationTable& table, int satellite) {
  const SatelliteOrbits& row = table.rows[satellite];
  if (row.selectedRecord < 0 || row.selectedRecord >= kRecordsPerSet)
    return std::numeric_limits<double>::infinity();
  const OrbitRecord& o = row.trueRecords[row.selectedRecord];
  const double a = o.sqrtA * o.sqrtA;
  if (!(a > 0.0) || !(o.e >= 0.0 && o.e < 1.0)) return std::numeric_limits<double>::infinity();
  const double perigee = std::sqrt(kGravitationalParameter / a * (1.0 + o.e) / (1.0 - o.e));
  const double bound = 1.25 * (perigee + kEarthRotation * a * (1.0 + o.e)) + 100.0;
  return std::isfinite(bound) ? bound : std::numeric_limits<double>::infinity();
}

void SatellitePosition(const ConstellationTable& table, double t, int satellite, Vec3& position,
                       double& relativisticTerm) {
  const SatelliteOrbits& row = table.rows[satellite];
  if (row.selectedRecord < 0 || row.selectedRecord >= kRecordsPerSet) return;
  const OrbitRecord& o = row.trueRecords[row.selectedRecord];

  double tk = t - o.toe;
  if (tk > 302400.0) tk -= 604800.0;
  if (tk < -302400.0) tk += 604800.0;

  const double a = o.sqrtA * o.sqrtA;
  const double n = std::sqrt(kGravitationalParameter / (a * a * a)) + o.deltaN;
  const double m = n * tk + o.M0;

  double e = m;
  // The iteration converges for every eccentricity below 1; the cap only keeps a
  // corrupt record (e >= 1) from holding the run forever.
  for (int iteration = 0; iteration < kKeplerIterationCap; ++iteration) {
    const double next = o.e * std::sin(e) + m;
    const double change = std::fabs(next - e);
    e = next;
    // A NaN difference never falls below the tolerance; stop rather than spin on it.
    if (change < kKeplerTolerance || std::isnan(change)) break;
  }

  const double sinE = std::sin(e);
  const double cosE = std::cos(e);
  const double denominator = 1 - o.e * cosE;
  const double nu =
      std::atan2(std::sqrt(1 - o.e * o.e) * sinE / denominator, (cosE - o.e) / denominator);
  const double phi = nu + o.omega;
  const double cos2phi = std::cos(2 * phi);
  const double sin2phi = std::sin(2 * phi);
  const double u = phi + o.Cuc * cos2phi + o.Cus * sin2phi;
  const double r = a * (1 - o.e * cosE) + o.Crc * cos2phi + o.Crs * sin2phi;
  const double xp = r * std::cos(u);
  const double yp = r * std::sin(u);
  const double omegaNode =
      o.Omega0 - o.toe * kEarthRotation + (o.OmegaDot - kEarthRotation) * tk;
  const double i = o.i0 + o.IDOT * tk + o.Cic * cos2phi + o.Cis * sin2phi;
  const double cosO = std::cos(omegaNode);
  const double sinO = std::sin(omegaNode);
  const double cosI = std::cos(i);
  position[0] = xp * cosO - yp * cosI * sinO;
  position[1] = xp * sinO + yp * cosI * cosO;
  position[2] = yp * std::sin(i);
  relativisticTerm = kRelativityFactor * o.sqrtA * o.e * sinE;
}

void RotateForEarthSpin(double travelTime, const Vec3& position, Vec3& rotated) {
  const double theta = kEarthRotationTransit * travelTime;
  const double c = std::cos(theta);
  const double s = std::sin(theta);
  const double matrix[9] = {c, s, 0.0, -s, c, 0.0, 0.0, 0.0, 1.0};
  gnss::MatrixMultiply(matrix, position.data(), 3, 3, 1, rotated.data());
}

double SatelliteClockBias(const ConstellationTable& table, double t, int satellite) {
  const SatelliteOrbits& row = table.rows[satellite];
  if (row.selectedRecord < 0 || row.selectedRecord >= kRecordsPerSet) return 0.0;
  const OrbitRecord& o = row.trueRecords[row.selectedRecord];
  const double dt = gnss::WrapWeekSeconds(t - o.toc);
  return (o.af2 * dt + o.af1) * dt + o.af0;
}

double MessageClockBias(const ConstellationTable& table, double t, int satellite,
                        double relativisticTerm) {
  const SatelliteOrbits& row = table.rows[satellite];
  if (row.selectedRecord < 0 || row.selectedRecord >= kRecordsPerSet) return 0.0;
  const OrbitRecord& o = row.trueRecords[row.selectedRecord];
  return SatelliteClockBias(table, t, satellite) + relativisticTerm - o.fileTgd;
}

}  // namespace vorel::orbits
