#pragma once
// The observation workers and what surrounds them: moving the orbits to the scenario
// time, the output file names, one receiver's run and the four reference stations' runs,
// and the event-file skeletons.

#include <ctime>
#include <string>
#include <vector>

#include "app/session.h"
#include "observation/model_atmosphere.h"
#include "gnss/time_coords.h"
#include "platform/status.h"

namespace vorel::app {

// Moves every record from the first healthy satellite on so that its first record falls
// on the next two-hour mark after the scenario time. The week runs on from record to
// record: a record that crosses the week's end moves the week of all that follow.
void RedateOrbits(orbits::ConstellationTable& table, double secondsOfWeek, int32_t week);

// The scenario date as GPS week and seconds; re-dates the orbits when KeepOrbitEpochs is 0.
gnss::GpsTime SetScenarioTime(Session& session);

// The navigation message generator's settings: the nav panel, the broadcast ionosphere,
// the scenario date and whether orbits are loaded.
navmsg::NavMessageSettings NavSettings(const Session& session);

// Output names from the run-time clock (date "MM-DD-YYYY", time "HH:MM:SS") and the
// scenario date, in the data directory's old spelling ("C:/VLD/..."); empty when the
// record type has no rule.
std::string ObservationOutputName(int32_t recordType, const std::tm& now, const ScenarioSettings& s);
std::string DifOutputName(int32_t difFileType, const std::tm& now);
std::string StationOutputName(int32_t stationRecordType, int station, const ScenarioSettings& s);

// The rays of the scenario's first epoch along which the ionosphere is worked out: each
// satellite above the mask with its slant delay and what a bubble took from it. Nothing
// is written and the program start's atmosphere state is left as it was.
platform::Status TraceFirstEpochRays(Session& session,
                                     std::vector<observation::ModelAtmosphere::Ray>& rays,
                                     gnss::GpsTime& epoch);

// The scenario's start as GPS week and seconds of the week.
gnss::GpsTime ScenarioStartTime(const ScenarioSettings& s);

// What the map's sky layer shows of the scenario's first epoch: the display rows of the
// loaded orbits seen from the scenario's receiver (its static position), computed with
// the atmosphere off so that no delay, bubble mark or record comes of it. The program
// start's epoch counter and atmosphere state are left as they were; the orbits are
// re-dated as a run would re-date them.
platform::Status SkyRowsAtStart(Session& session, std::vector<observation::DisplayRow>& rows);

// One receiver, static or on a trajectory. Every input is checked before the record
// file is opened; the record is written under a temporary name and takes its own name
// only when it was written whole. Failed (reported as an "Error message" popup) when the
// run was refused, a limit was exceeded or the record could not be written; Stopped
// when the user stopped the run (the record is then closed whole). The record written
// is added to session.lastOutputs.
platform::Status RunObservationSim(Session& session);
// The same run ended sooner than ScenarioDuration, at the first epoch at or past
// `lengthSeconds` of a receiver that stays put: for a caller that needs only the record's
// first seconds. `earlierMs` moves every epoch of a static receiver that many ms earlier
// (ignored where it would reach back past the week's start): with epochs N ms apart, 2N - 2
// puts the first written epoch 2 ms after the start, where a 1 ms record's lies.
platform::Status RunObservationSim(Session& session, int32_t lengthSeconds,
                                   int32_t earlierMs = 0);
// The four reference stations in turn, each as above; a stop lets the remaining
// stations start and end at once, a failure ends the chain.
platform::Status RunRawGeneration(Session& session);
// Writes the event-file skeleton of each station. Returns the number written.
int WriteStationEventFiles(Session& session);

}  // namespace vorel::app
