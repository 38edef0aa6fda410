#include "app/startup.h"

#include <fmt/format.h>

#include <filesystem>
#include <utility>

#include "app/scenario_runs.h"
#include "density_model/model_data.h"
#include "orbits/orbit_files.h"

namespace vorel::app {

int LoadStartupOrbits(Session& session, std::string* problem) {
  const auto report = [&](std::string text) {
    if (problem != nullptr)
      *problem = std::move(text);
    else
      session.messages.Warn(text);
  };
  const auto path = session.dataDir.Map(session.settings.scenario.OrbitFile);
  if (!std::filesystem::is_regular_file(path)) {
    report(
        fmt::format("orbit file {} (OrbitFile) cannot be read; load orbits "
                    "with load-orbits or galileo before a run",
                    path.string()));
    return -1;
  }
  orbits::LoadAlmanacArgs args;
  args.KeepOrbitEpochs = 0;  // start-up reads its orbit file as a YUMA almanac
  args.path = path.string();
  const int result =
      orbits::LoadAlmanac(session.constellation, session.orbitState, args, session.messages);
  if (result != 1)
    report(fmt::format("orbit file {} (OrbitFile) holds no usable YUMA almanac", path.string()));
  return result;
}

int StartUp(Session& session, const GlobalOptions& options, std::string& error,
            StartupReport* report) {
  session.dataDir = platform::DataDirectory(options.dataDir);
  Settings& settings = session.settings;
  std::filesystem::path settingsFile = options.settingsFile;
  if (settingsFile.empty() && std::filesystem::exists(session.dataDir / "settings.txt"))
    settingsFile = session.dataDir / "settings.txt";
  if (!settingsFile.empty()) ReadSettingsFile(settings, settingsFile, session.messages);
  if (!options.scenarioFile.empty() && !ApplyScenarioFile(settings, options.scenarioFile, error))
    return 2;
  for (const std::string& assignment : options.assignments)
    if (!ApplySetAssignment(settings, assignment, "--set", error)) return 2;

  // Settings are settled before anything is made on disk.
  if (options.createDataDir && !session.dataDir.Create(error)) return 2;
  session.densityModel.searchDirs = density_model::ModelSearchDirs(session.dataDir.root());

  orbits::SetSignalSystem(settings.scenario.ConstellationChoice, session.orbitState);
  LoadStartupOrbits(session, report != nullptr ? &report->orbitFileProblem : nullptr);
  SetScenarioTime(session);
  return 0;
}

}  // namespace vorel::app
