#pragma once
// One epoch of the simulated receiver: the observables of every healthy satellite above
// the mask, collected in an EpochResult. The computation writes nothing: the loop hands
// the result to the run's sinks (record writers, the map display; see epoch_sink.h).
//
// The observation model is narrow on purpose: code and carrier carry the geometric
// range, the satellite clock and the ionosphere, nothing else. The relativistic term,
// the troposphere and the noise draws are computed in their places and reach no
// observable; the receiver clock is perfect. Two opt-in departures, for receivers and
// positioning tools that model what the program leaves out: the satellite clock as the
// message defines it (relativistic term, TGD) and the troposphere in both ranges.

#include <array>
#include <cstdint>
#include <vector>

#include "atmosphere/bubble_settings.h"
#include "atmosphere/slant_iono.h"
#include "gnss/constants.h"
#include "orbits/orbit_record.h"
#include "platform/random.h"

namespace vorel::platform {
class LineReader;
struct Messages;
}  // namespace vorel::platform

namespace vorel::observation {

inline constexpr int kMaxChannels = 48;
using gnss::kDegToRad;
using gnss::kRadToDegTropo;
using gnss::kSpeedOfLight;

struct EpochChannel {
  int32_t prn = 0;
  double geometricRange = 0.0;  // m
  double codeRange = 0.0;       // m
  double doppler = 0.0;         // thousandths of the Doppler in Hz, from the code difference
  double carrierCycles = 0.0;   // cycles
  double carrierRange = 0.0;    // m
  double elevation = 0.0;       // rad
  double azimuth = 0.0;         // rad, -pi..pi clockwise from north
  uint8_t valid = 0;
  double signalLevel = 0.0;
  int32_t bubbleClass = 0;
};

struct EpochResult {
  int32_t gpsWeek = 0;
  int32_t timeMs = 0;
  int32_t channelCount = 0;
  std::array<EpochChannel, kMaxChannels> channels{};
};

struct DisplayRow {
  int32_t prn = 0;
  double elevation = 0.0;
  double azimuth = 0.0;
  std::array<double, 3> position{};
  uint8_t visible = 0;
  int32_t status = 0;
};

// Per-satellite delays of a run; zeroed at the start of every run.
struct AtmosphereCache {
  double ionoDelay = 0.0;   // m at L1
  double tropoDelay = 0.0;  // m; read only when the run puts the troposphere in the ranges
  int32_t bubbleClass = 0;
};

struct EventStep {
  int32_t enabled = 0;
  double size = 0.0;
  double finishEpoch = 0.0;  // ms
};

struct ChannelEvent {
  double eventEpoch = 0.0;  // ms after the run start
  double runStart = 0.0;    // ms
  int32_t active = 0;
  int32_t prn = 0;
  std::array<EventStep, 6> steps{};  // code step, ramp, accel; carrier step, ramp, accel
};

// What a record file gets per epoch.
enum RecordTypeValue : int32_t {
  kRecordLog = 0,
  kRecordGod = 1,
  kRecordRinex = 2,
  kRecordNone = 3,
  kRecordSrv = 4,
  kRecordScn = 5,
};

// The atmosphere models as the epoch computation sees them. A run that enables a model
// this build does not provide is refused at its start.
class AtmosphereModels {
 public:
  virtual ~AtmosphereModels() = default;
  virtual bool HasTroposphere() const = 0;
  virtual bool HasKlobuchar() const = 0;
  virtual bool HasSlantIonosphere() const = 0;
  virtual double Troposphere(double elevationDeg, double temperature, double pressure,
                             double humidity, double altitude, double latitudeDeg,
                             int32_t dayIndex, int32_t model) = 0;
  virtual double Klobuchar(double latitudeRad, double longitudeRad, double azimuth,
                           double elevation, double tTransmit) = 0;
  // The ray of one satellite, as the electron density model takes it.
  using SlantInput = atmosphere::SlantIonoInput;
  virtual void SlantIonosphere(const SlantInput& in, double& delay, int32_t& bubbleClass) = 0;
};

// Kept for the life of a program start.
struct EpochState {
  int32_t AtmosphereEpochCounter = 0;
  double stationLatchTime = 0.0;
  uint8_t stationLatchSet = 0;
  std::vector<DisplayRow> displayRows;
};

// The arguments of one run, as the scenario workers give them.
struct TrajectoryRunArgs {
  double elevationMask = 0.0;  // rad
  double latitude = 0.0;       // deg
  double longitude = 0.0;      // deg
  double altitude = 0.0;       // m
  int32_t tropoEnabled = 0;
  double surfaceTemperature = 0.0;
  double surfacePressure = 0.0;
  double surfaceHumidity = 0.0;
  int32_t tropoModel = 1;
  int32_t dayIndex = 0;
  int32_t gpsWeek = 0;
  int32_t startMs = 0;
  int32_t durationArg = 0;
  // A static run that ends at its duration rather than at the progress step reaching 100 %
  // (our own runs that only feed another; the system's runs keep its rule).
  bool endAtDuration = false;
  platform::LineReader* trajectoryFile = nullptr;  // null: static receiver
  int32_t intervalMs = 500;
  int32_t carriedFlag = 0;
  int32_t ionoEnabled = 0;
  int32_t ionoModel = 0;
  int32_t month = 0;
  int32_t carriedHour = 0;
  double universalTime = 0.0;
  double solarFlux = 0.0;
  atmosphere::BubbleSettings bubble;
  int32_t stationLatchEnabled = 0;
  std::array<double, 4> stationValues{};
  double stationAlongTrack = 0.0;
  double carrierFrequency = gnss::kL1Frequency;
  int32_t satelliteCount = 32;
  int32_t recordType = kRecordScn;
  platform::LineReader* eventFile = nullptr;  // null: no events
  int32_t staticReceiver = 1;
  // Milliseconds of scenario time between atmosphere updates; 0 works it out once in the
  // program start and holds it (the program's own behaviour).
  int32_t atmosphereUpdateMs = 0;
  // Opt-in RINEX layout that standard tools read directly (0: the program's own; 2 also
  // a header that tells the run and the Doppler in Hz).
  int32_t rinexStandardLayout = 0;
  // 1: the satellite clock in the ranges is that of the message as an L1 C/A receiver
  // applies it (polynomial + relativistic term - TGD); 0: the polynomial alone.
  int32_t satClockFromMessage = 0;
  // 1: the troposphere model's delay enters code and carrier, with the same sign.
  int32_t troposphereInRanges = 0;
};

class EpochSink;

// What the epoch computation needs beyond the run's arguments, and where the run's
// epochs go: each sink gets every epoch, in the order of the list.
struct EpochEnvironment {
  orbits::ConstellationTable& table;
  EpochState& state;
  platform::RandState& rand;
  AtmosphereModels* atmosphere = nullptr;
  std::vector<EpochSink*> sinks{};
};

// What a sink needs to know of an epoch beyond its result.
struct EpochContext {
  // A record carries this epoch: every epoch of a run but its first, which only fills
  // the previous codes. An epoch without channels is written too.
  bool written = false;
  // The atmosphere counter reached its limit with this epoch: the map is updated.
  bool displayTick = false;
  double latitudeRad = 0.0;
  double longitudeRad = 0.0;
  const std::vector<DisplayRow>* rows = nullptr;  // the program start's display rows
  int32_t lateInRun = 0;
  std::array<double, 3> receiverEcef{};  // m, the epoch's receiver position
};

// The loop's locals that the epoch computation reads and updates.
struct EpochLoop {
  std::vector<double> previousCode;
  std::vector<AtmosphereCache> cache;
  std::array<double, 3> receiverEcef{};
  std::array<double, 3> northRow{}, eastRow{}, upRow{};
  double wavelength = 0.0;
  uint8_t firstEpochDone = 0;
  ChannelEvent activeEvent;
  int32_t lateInRun = 0;
  // With an atmosphere update interval: the time of the next update (the run's first
  // epoch is always one).
  int64_t nextAtmosphereMs = INT64_MIN;
  // A receiver that stays put: a satellite found well below the mask is passed over until
  // belowMaskUntil[s] (ms), the soonest it could have risen to the mask.
  bool receiverFixed = false;
  std::vector<int64_t> belowMaskUntil;
};

// Computes one epoch at `timeMs` (the result's time must already be set). Position in
// radians and metres. Touches no file and no display: what the sinks need to know of
// the epoch comes back.
EpochContext ComputeEpoch(EpochEnvironment& env, const TrajectoryRunArgs& args, EpochLoop& loop,
                          EpochResult& result, double latitudeRad, double longitudeRad,
                          double altitude, int32_t timeMs);

}  // namespace vorel::observation
