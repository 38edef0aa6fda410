#include "atmosphere/slant_iono.h"

#include <algorithm>
#include <cmath>

#include "density_model/slant_tec.h"
#include "gnss/constants.h"
#include "gnss/time_coords.h"
#include "platform/text_file.h"

namespace vorel::atmosphere {
namespace {

// Degrees of longitude or latitude per metre, and half an extent in km to degrees.
constexpr double kDegreesPerMetre = 8.983191999999999e-06;
constexpr double kHalfDegreesPerKm = 0.004491596;

void Cross(const double u[3], const double v[3], double out[3]) {
  out[0] = u[1] * v[2] - u[2] * v[1];
  out[1] = u[2] * v[0] - u[0] * v[2];
  out[2] = u[0] * v[1] - u[1] * v[0];
}

double Dot(const double u[3], const double v[3]) { return u[0] * v[0] + u[1] * v[1] + u[2] * v[2]; }

void ToEcef(double latitude, double longitude, double height, double out[3]) {
  gnss::Ecef e;
  gnss::GeodeticToEcef(latitude, longitude, height, e);
  out[0] = e.x, out[1] = e.y, out[2] = e.z;
}

// A wall hit that counts: inside the latitude band and between the ground and the top.
bool InsideBand(double latitude, double height, double latS, double latN) {
  return !(latitude > latN || latitude < latS || height < 0.0 || height > kBubbleWallTopKm);
}

void Remember(SlantIonoState& state, const BubbleMark& mark) {
  if (state.marks.size() >= SlantIonoState::kMaxMarks) state.marks.pop_front();
  state.marks.push_back(mark);
}

void WriteRecordColumns(SlantIonoState& state, platform::OutputFile& file, int32_t satIndex,
                        int32_t timeMs, double delay, double bubbleDelay, int32_t bubbleClass) {
  if (state.bubbleRecordLast > satIndex) state.bubbleRecordLast = 0;
  if (state.bubbleRecordLast == 0) file.Print("\n{}  ,", timeMs);
  for (int32_t n = state.bubbleRecordLast + 1; n <= satIndex; ++n) file.Print("{} , - ,- , - ,", n);
  file.Print("{} ,{:.6f} ,{:.6f} ,{} ,", satIndex + 1, delay, bubbleDelay, bubbleClass);
  state.bubbleRecordLast = satIndex + 1;
}

}  // namespace

int RayPlaneHit(const double a[3], const double b[3], const double c[3],
                const double lineOfSight[3], const double satPosition[3], double range,
                double& latOut, double& lonOut, double& heightOut) {
  const double ba[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
  const double ca[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
  double n[3];
  Cross(ba, ca, n);
  const double d[3] = {-lineOfSight[0], -lineOfSight[1], -lineOfSight[2]};
  const double w[3] = {satPosition[0] - b[0], satPosition[1] - b[1], satPosition[2] - b[2]};
  const double dn = Dot(d, n);
  if (!(std::fabs(dn) > 1e-06)) return -2;
  const double t = -Dot(w, n) / dn;
  if (std::fabs(t) * std::sqrt(Dot(d, d)) > range) return -1;
  gnss::Geodetic g;
  gnss::EcefToGeodetic(satPosition[0] + t * d[0], satPosition[1] + t * d[1],
                       satPosition[2] + t * d[2], g);
  latOut = g.latitude;
  lonOut = g.longitude;
  heightOut = g.height / 1000.0;
  return heightOut > kBubbleWallTopKm ? -3 : 1;
}

int32_t BubbleClassOf(double bubbleDelay) {
  if (bubbleDelay <= 1.0) return 0;
  if (bubbleDelay <= 3.0) return 1;
  if (bubbleDelay <= 5.0) return 2;
  return 3;
}

void SlantIonoDelay(density_model::ModelState& model, SlantIonoState& state,
                    const SlantIonoInput& in, double& delay, int32_t& bubbleClass,
                    SlantIonoDetail* detail) {
  const BubbleSettings& bubble = *in.bubble;
  double lat = std::clamp(in.latRad * gnss::kRadToDegTropo, -89.9, 90.0);
  double lon = std::max(in.lonRad * gnss::kRadToDegTropo, -179.9);
  double flux = in.flux, ut = in.ut;
  if (state.bubbleStartKnown == 0) {
    state.bubbleStartTime = in.timeMs;
    state.bubbleStartKnown = 1;
  }
  gnss::Geodetic sat;
  gnss::EcefToGeodetic(in.satPosition[0], in.satPosition[1], in.satPosition[2], sat);
  const double tec = density_model::SlantTec(model, lat, lon, 0.0, sat.latitude, sat.longitude,
                                             sat.height / 1000.0, in.month, flux, ut);
  delay = tec * kL1MetresPerTecu;
  bubbleClass = 0;
  double bubbleDelay = 0.0;
  SlantIonoDetail local;
  SlantIonoDetail& out = detail ? *detail : local;
  out = SlantIonoDetail{};
  out.tec = tec;

  if (bubble.bubbleEnabled == 1) {
    const double drift = bubble.bubbleDrift * kDegreesPerMetre *
                         (static_cast<double>(in.timeMs) - state.bubbleStartTime);
    const double halfW = bubble.bubbleWidth * kHalfDegreesPerKm;
    const double halfL = bubble.bubbleLength * kHalfDegreesPerKm;
    const double latN = bubble.bubbleLatitude + halfL;
    const double latS = bubble.bubbleLatitude - halfL;
    const double lonNW = bubble.bubbleLonNorth + drift - halfW;
    const double lonNE = bubble.bubbleLonNorth + drift + halfW;
    const double lonSW = bubble.bubbleLonSouth + drift - halfW;
    const double lonSE = bubble.bubbleLonSouth + drift + halfW;

    double a[3], b[3], c[3];
    BubbleMark entry{1, in.satIndex, in.timeMs}, exit{2, in.satIndex, in.timeMs};
    ToEcef(latS, lonSW, 0.0, a);
    ToEcef(latS, lonSW, 1000000.0, b);
    ToEcef(latN, lonNW, 0.0, c);
    const int west = RayPlaneHit(a, b, c, in.lineOfSight, in.satPosition, in.range,
                                 entry.latitude, entry.longitude, entry.height);
    bool crossed = west >= 0 && InsideBand(entry.latitude, entry.height, latS, latN);
    if (crossed) {
      ToEcef(latS, lonSE, 0.0, a);
      ToEcef(latS, lonSE, 1000000.0, b);
      ToEcef(latN, lonNE, 0.0, c);
      // The east wall's code is not looked at: its hit must pass the band all the same.
      RayPlaneHit(a, b, c, in.lineOfSight, in.satPosition, in.range, exit.latitude,
                  exit.longitude, exit.height);
      crossed = InsideBand(exit.latitude, exit.height, latS, latN);
    }
    if (crossed) {
      Remember(state, entry);
      Remember(state, exit);
      out.crossed = true;
      out.entry = entry;
      out.exit = exit;
      if (bubble.bubbleApplyDelay == 1) {
        const BubbleMark& low = entry.height <= exit.height ? entry : exit;
        const BubbleMark& high = entry.height <= exit.height ? exit : entry;
        double lowLon = low.longitude;
        const double tecIn = density_model::SlantTec(model, low.latitude, lowLon, low.height,
                                                     high.latitude, high.longitude, high.height,
                                                     in.month, flux, ut);
        bubbleDelay = tecIn * kL1MetresPerTecu;
        delay -= bubbleDelay;
      }
      if (bubble.bubbleClassify == 1) bubbleClass = BubbleClassOf(bubbleDelay);
    }
  }
  out.bubbleDelay = bubbleDelay;
  if (bubble.bubbleRecordEnabled == 1 && bubble.recordFile)
    WriteRecordColumns(state, *bubble.recordFile, in.satIndex, in.timeMs, delay, bubbleDelay,
                       bubbleClass);
}

}  // namespace vorel::atmosphere
