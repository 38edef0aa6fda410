// The built-in Galileo constellation: 27 satellites in three planes 120 degrees apart,
// nine a plane 40 degrees apart, plus three spares at 20 degrees.

#include "orbits/constellation_ops.h"

namespace vorel::orbits {
namespace {

constexpr double kInclination = 0.977384381116808;  // 56 degrees
constexpr double kSqrtA = 5440.588203494177;        // a = 29,600,000 m
constexpr int kGalileoPrns = 30;

// Per PRN 1..30: Omega0 and M0 in radians. PRN 5 and 8 carry no M0 (hasM0 false):
// they keep whatever their row held, which leaves them on top of PRN 1 in a fresh
// program start. PRN 28 and 29 share plane and phase.
struct GalileoSlot {
  double Omega0;
  bool hasM0;
  double M0;
};

constexpr double kPlane2 = 2.09439510239316;
constexpr double kPlane3 = 4.18879020478632;

constexpr GalileoSlot kSlots[kGalileoPrns] = {
    {0.0, true, 0.0},
    {0.0, true, 0.69813170079772},
    {0.0, true, 1.39626340159544},
    {0.0, true, 2.09439510239316},
    {0.0, false, 0.0},
    {0.0, true, 3.4906585039886},
    {0.0, true, 4.18879020478632},
    {0.0, false, 0.0},
    {0.0, true, 5.58505360638176},
    {kPlane2, true, 0.2326523892908402},
    {kPlane2, true, 0.9307840900885602},
    {kPlane2, true, 1.6289157908862801},
    {kPlane2, true, 2.3270474916840005},
    {kPlane2, true, 3.0251791924817204},
    {kPlane2, true, 3.7233108932794403},
    {kPlane2, true, 4.421442594077161},
    {kPlane2, true, 5.11957429487488},
    {kPlane2, true, 5.8177059956726005},
    {kPlane3, true, 0.4653047785816804},
    {kPlane3, true, 1.1634364793794003},
    {kPlane3, true, 1.8615681801771204},
    {kPlane3, true, 2.5596998809748404},
    {kPlane3, true, 3.2578315817725603},
    {kPlane3, true, 3.9559632825702806},
    {kPlane3, true, 4.654094983368001},
    {kPlane3, true, 5.352226684165721},
    {kPlane3, true, 6.050358384963441},
    {kPlane2, true, 0.34906585039886},
    {kPlane2, true, 0.34906585039886},
    {kPlane3, true, 0.34906585039886},
};

}  // namespace

int LoadGalileo(ConstellationTable& table, ConstellationState& state) {
  for (int index = 0; index < 32; ++index) table.rows[index].trueRecords[0].status = 0;

  // Only true record 0 is written, and only these fields: recordCount, week, the
  // broadcast set, deltaN, IDOT, af2, tgd and the harmonic terms keep what they held.
  for (int index = 0; index < kGalileoPrns; ++index) {
    OrbitRecord& r = table.rows[index].trueRecords[0];
    r.prn = index + 1;
    r.status = kStatusUsable;
    r.e = 0.0;
    r.toe = 0.0;
    r.OmegaDot = 0.0;
    r.omega = 0.0;
    r.toc = 0.0;
    r.af0 = 0.0;
    r.af1 = 0.0;
    r.i0 = kInclination;
    r.sqrtA = kSqrtA;
    r.Omega0 = kSlots[index].Omega0;
    if (kSlots[index].hasM0) r.M0 = kSlots[index].M0;
  }

  for (int index = 30; index < 36; ++index) table.rows[index].trueRecords[0].status = 0;

  state.OrbitsValid = false;
  state.galileoLoaded = true;
  return 0;
}

}  // namespace vorel::orbits
