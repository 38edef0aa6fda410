#include "app/receiver_outputs.h"

#include <cctype>

#include <fmt/format.h>

#include "gnss/calendar.h"
#include "gnss/time_coords.h"
#include "orbits/rinex_nav_writer.h"

namespace vorel::app {

std::string StandardObservationName(const ScenarioSettings& s) {
  return fmt::format("C:/VLD/{}{:03d}0.{:02d}O", s.RinexStationName,
                     gnss::DayOfYear(s.ScenarioYear, s.ScenarioMonth, s.ScenarioDay),
                     s.ScenarioYear % 100);
}

std::filesystem::path NavigationPathBeside(const std::filesystem::path& observation,
                                           const ScenarioSettings& s) {
  const std::string ext = observation.extension().string();
  const bool rinexExt = ext.size() == 4 && std::isdigit(static_cast<unsigned char>(ext[1])) &&
                        std::isdigit(static_cast<unsigned char>(ext[2])) &&
                        (ext[3] == 'O' || ext[3] == 'o');
  std::filesystem::path nav = observation;
  if (rinexExt)
    nav.replace_extension(ext.substr(0, 3) + (ext[3] == 'O' ? "N" : "n"));
  else
    nav.replace_extension(fmt::format(".{:02d}N", s.ScenarioYear % 100));
  return nav;
}

observation::RinexRunHeader PredictedRunHeader(const ScenarioSettings& s,
                                               const observation::TrajectoryRunArgs& args) {
  observation::RinexRunHeader h;
  h.marker = s.RinexStationName;
  gnss::Ecef p;
  gnss::GeodeticToEcef(args.latitude, args.longitude, args.altitude, p);
  h.approxEcef = {p.x, p.y, p.z};
  h.gpsWeek = args.gpsWeek;
  // The run's first epoch lies one interval after the start and is not written.
  h.firstTimeMs = args.startMs + 2 * args.intervalMs;
  h.intervalMs = args.staticReceiver == 1 ? args.intervalMs : 0;
  return h;
}

platform::Status WriteNavigationBeside(Session& session, const Settings& settings,
                                       const std::filesystem::path& path) {
  orbits::RinexNavHeader header;
  header.hasIono = true;
  for (int k = 0; k < 4; ++k) {
    header.alpha[k] = settings.atmosphere.ionoBroadcastTable.cells[0][k];
    header.beta[k] = settings.atmosphere.ionoBroadcastTable.cells[1][k];
  }
  header.leapSeconds = settings.scenario.LeapSeconds;
  header.fileTgd = settings.nav.SatClockFromMessage == 1;
  std::string error;
  if (orbits::WriteRinexNavigation(session.constellation, header, path, error) < 0) {
    const std::string why = fmt::format("RinexNavBeside: {}", error);
    session.messages.Popup("Error message", why);
    return platform::Status::Failed(why);
  }
  session.lastOutputs.push_back(path.string());
  return platform::Status::Ok();
}

}  // namespace vorel::app
