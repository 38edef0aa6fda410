#pragma once
// The loop that carries one receiver through one run: a static receiver stepped by the
// observation interval, or a trajectory file taken line by line, with reference-station
// events, the ten-second progress tick, the speed and altitude limits, and a stop after
// any epoch.

#include <atomic>
#include <cstdint>
#include <string>

#include "observation/epoch.h"
#include "observation/receiver_track.h"
#include "platform/status.h"

namespace vorel::platform {
struct Messages;
}

namespace vorel::observation {

inline constexpr char kEventFormat[] =
    "%s>%f%s[w1d]%d%s[w1d]%d%s[w1d]%d%s[w1d]%f%s[w1d]%f%s[w1d]%d%s[w1d]%f%s[w1d]%f%s[w1d]%d%s["
    "w1d]%f%s[w1d]%f%s[w1d]%d%s[w1d]%f%s[w1d]%f%s[w1d]%d%s[w1d]%f%s[w1d]%f%s[w1d]%d%s[w1d]%f%s["
    "w1d]%f%s[w1d]";

// Scans one event line into `event`; returns the number of fields read (21 when whole).
int ScanEventLine(const std::string& line, ChannelEvent& event);

// The atmosphere model a run with these arguments needs and `models` does not carry, or
// null when nothing is missing.
const char* MissingAtmosphereModel(const AtmosphereModels* models, const TrajectoryRunArgs& args);

// The refusal of a run that needs a missing model: an "Error message" popup. True when
// the run must not start.
bool RefuseUnavailableModels(const AtmosphereModels* models, const TrajectoryRunArgs& args,
                             const platform::Messages& messages);

// Why a run with these arguments must not start (empty when it may): an interval that
// is not positive, a satellite count outside the table, a negative duration for a
// static receiver, or a static run whose time would pass the largest millisecond count
// the loop keeps (2^31 - 1).
std::string CheckRunArgs(const TrajectoryRunArgs& args);

// The time (ms of the week, as a 64-bit count) of the last epoch of a static run.
int64_t StaticRunEndMs(const TrajectoryRunArgs& args);

// The first epoch of a static receiver's run, computed as the run would compute it
// (one interval after the start) and handed to nobody. For tools that look at one epoch.
EpochResult ComputeFirstEpoch(EpochEnvironment& env, const TrajectoryRunArgs& args);

// Runs the loop: the receiver's track gives each epoch's time and place, and every
// computed epoch goes to the sinks of `env`, which write and show what the run makes;
// the loop itself writes nothing. Ok at a normal end, Stopped when `runActive` was
// cleared before the end came, Failed when a limit was exceeded or the run was refused
// at its start (the reason goes out as a popup).
platform::Status SimulateTrajectory(EpochEnvironment& env, const TrajectoryRunArgs& args,
                                    EpochResult& result, std::atomic<uint8_t>& runActive,
                                    const platform::Messages& messages);

}  // namespace vorel::observation
