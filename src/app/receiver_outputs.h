#pragma once
// The outputs a RINEX observation run adds for real receivers and positioning tools: a
// header that tells the run, the standard observation file name, and a navigation file
// of the orbits the run flew, written beside the observations.

#include <filesystem>
#include <string>

#include "app/session.h"
#include "observation/epoch.h"
#include "observation/record_writers.h"
#include "platform/status.h"

namespace vorel::app {

// The standard name "ssssdddf.yyO" in the data directory's old spelling: the station,
// the scenario's day of the year, session 0, the two-digit year.
std::string StandardObservationName(const ScenarioSettings& s);

// The navigation file beside an observation file: "name.10O" gives "name.10N" (the case
// of the letter kept); any other name keeps its stem and takes ".yyN" of the scenario.
std::filesystem::path NavigationPathBeside(const std::filesystem::path& observation,
                                           const ScenarioSettings& s);

// The header a run expects to write: the receiver where the run starts, and for a static
// receiver the interval and the first written epoch (the run's second). The sink puts
// in the real position and time of the first epoch with observations.
observation::RinexRunHeader PredictedRunHeader(const ScenarioSettings& s,
                                               const observation::TrajectoryRunArgs& args);

// Writes the orbits of the table as the run left them (an almanac re-dated to the
// scenario) to `path`, with the broadcast ionosphere and, with SatClockFromMessage, the
// navigation file's TGD. Failed with an "Error message" when it was not written whole.
platform::Status WriteNavigationBeside(Session& session, const Settings& settings,
                                       const std::filesystem::path& path);

}  // namespace vorel::app
