#pragma once
// The ionosphere along the ray: the electron density model integrated from the
// receiver's ground point to the satellite, turned into metres of L1 delay, with an
// optional plasma bubble cut out of it. The bubble is a slab of empty ionosphere between
// two vertical walls (planes through the Earth's interior, up to 1000 km), drifting east
// or west; a ray that passes through both walls inside the slab's latitude band loses
// the electrons of the stretch between them.

#include <cstdint>
#include <deque>

#include "atmosphere/bubble_settings.h"
#include "density_model/model_state.h"

namespace vorel::atmosphere {

inline constexpr double kL1MetresPerTecu = 0.016200000000000003;
inline constexpr double kBubbleWallTopKm = 1000.0;

// Where a ray crossed a bubble wall: kind 1 entry (west wall), kind 2 exit (east wall).
struct BubbleMark {
  int32_t kind = 0;
  int32_t satIndex = 0;
  int32_t timeMs = 0;
  double latitude = 0.0;   // degrees
  double longitude = 0.0;  // degrees, 0 to 360
  double height = 0.0;     // km
};

// Kept for the life of a program start.
struct SlantIonoState {
  int32_t bubbleStartKnown = 0;
  int32_t bubbleStartTime = 0;  // ms: the drift counts from here
  int32_t bubbleRecordLast = 0;  // the last satellite column of the record's row
  // Entry and exit points for the map's bubble layer, oldest first; the oldest go once
  // kMaxMarks are held.
  static constexpr size_t kMaxMarks = 4096;
  std::deque<BubbleMark> marks;
};

// What one call found, beyond the delay and the class the observation takes.
struct SlantIonoDetail {
  double tec = 0.0;          // TEC units along the whole ray
  double bubbleDelay = 0.0;  // metres taken out by the bubble (dBubble)
  bool crossed = false;      // the ray passed through both walls
  BubbleMark entry, exit;
};

// Intersects the ray from the satellite towards the receiver with the plane through the
// earth-fixed points a, b and c (metres). Returns 1 with the hit's latitude, longitude
// (degrees) and height (km); -1 when the plane lies farther than `range` from the
// satellite, -2 when the ray is parallel to the plane, -3 for a hit above 1000 km.
int RayPlaneHit(const double a[3], const double b[3], const double c[3],
                const double lineOfSight[3], const double satPosition[3], double range,
                double& latOut, double& lonOut, double& heightOut);

struct SlantIonoInput {
  double latRad = 0.0, lonRad = 0.0;  // receiver, geodetic radians
  int32_t satIndex = 0;               // zero-based
  const double* lineOfSight = nullptr;  // unit vector receiver -> satellite, earth-fixed
  double range = 0.0;                   // m
  const double* satPosition = nullptr;  // earth-fixed m
  int32_t month = 0;
  double ut = 0.0;
  double flux = 0.0;
  const BubbleSettings* bubble = nullptr;
  int32_t timeMs = 0;
};

// The delay (metres at L1) and bubble class (0 to 3) of one satellite; writes the
// satellite's columns of the bubble record when that is on, and marks the entry and exit
// points of a crossed bubble.
void SlantIonoDelay(density_model::ModelState& model, SlantIonoState& state,
                    const SlantIonoInput& in, double& delay, int32_t& bubbleClass,
                    SlantIonoDetail* detail = nullptr);

// The class of the delay a bubble took out: 0 up to 1 m, 1 up to 3 m, 2 up to 5 m, 3 above.
int32_t BubbleClassOf(double bubbleDelay);

}  // namespace vorel::atmosphere
