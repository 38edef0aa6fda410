#include "app/commands.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "app/dif_command.h"
#include "app/scenario_runs.h"
#include "app/bubble_commands.h"
#include "app/chart_commands.h"
#include "app/check_command.h"
#include "app/record_command.h"
#include "app/map_commands.h"
#include "app/scint_commands.h"
#include "app/orbit_commands.h"
#include "atmosphere/atmosphere_text.h"
#include "density_model/density_commands.h"
#include "navmsg/nav_message.h"
#include "orbits/constellation_ops.h"
#include "orbits/orbit_files.h"
#include "web/serve_command.h"

namespace vorel::app {
namespace {

using Action = std::function<int(CommandContext&)>;

void Summary(const CommandContext& c, const std::string& what) {
  if (!c.global.quiet) fmt::print("{}\n", what);
}

void ReportOutputs(const CommandContext& c, const char* verb) {
  for (const std::string& path : c.session.lastOutputs)
    if (!path.empty()) Summary(c, fmt::format("{} {}", verb, path));
}

Action LoadOrbits(CLI::App& p) {
  auto type = std::make_shared<std::string>();
  auto file = std::make_shared<std::string>();
  p.add_option("--type", *type,
               "yuma or rinex; sets KeepOrbitEpochs to 0 or 1 (default: from the content)")
      ->check(CLI::IsMember({"yuma", "rinex"}));
  p.add_option("FILE", *file, "orbit file")->required();
  return [type, file](CommandContext& c) {
    Session& s = c.session;
    const std::string path = s.dataDir.Map(*file).string();
    std::string detected;
    if (type->empty()) {
      // Without --type the content decides, as --type would.
      const int32_t found = orbits::DetectOrbitFileType(path);
      if (found < 0) {
        fmt::print(stderr,
                   "load-orbits: {}: neither a RINEX navigation header nor a YUMA \"ID:\" line "
                   "found; use --type yuma or --type rinex\n",
                   path);
        return 1;
      }
      s.settings.scenario.KeepOrbitEpochs = found;
      detected = found == 0 ? "a YUMA almanac" : "a RINEX navigation file";
    }
    if (*type == "yuma") s.settings.scenario.KeepOrbitEpochs = 0;
    if (*type == "rinex") s.settings.scenario.KeepOrbitEpochs = 1;
    orbits::LoadAlmanacArgs args;
    args.KeepOrbitEpochs = s.settings.scenario.KeepOrbitEpochs;
    args.path = path;
    if (args.KeepOrbitEpochs != 0 && args.KeepOrbitEpochs != 1) {
      fmt::print(stderr, "load-orbits: KeepOrbitEpochs is {}: no file type; use --type\n",
                 args.KeepOrbitEpochs);
      return 1;
    }
    const int result = orbits::LoadAlmanac(s.constellation, s.orbitState, args, s.messages);
    if (result != 1) {
      fmt::print(stderr, "load-orbits: {}: no usable orbit found (read as {})\n", args.path,
                 args.KeepOrbitEpochs == 0 ? "a YUMA almanac" : "a RINEX navigation file");
      return 1;
    }
    int satellites = 0;
    for (int i = 0; i < 32; ++i) satellites += s.constellation.Present(i) ? 1 : 0;
    if (!detected.empty()) Summary(c, fmt::format("{}: read as {}", args.path, detected));
    Summary(c, fmt::format("loaded {} ({} healthy satellites)", args.path, satellites));
    return 0;
  };
}

Action Galileo(CLI::App&) {
  return [](CommandContext& c) {
    orbits::LoadGalileo(c.session.constellation, c.session.orbitState);
    Summary(c, "loaded the built-in Galileo constellation");
    return 0;
  };
}

Action SetTime(CLI::App&) {
  return [](CommandContext& c) {
    const gnss::GpsTime t = SetScenarioTime(c.session);
    fmt::print("GPS week {}, {:.3f} s of week\n", t.week, t.secondsOfWeek);
    return 0;
  };
}

Action ShowOrbitCommand(CLI::App& p) {
  auto prn = std::make_shared<int>(1);
  auto record = std::make_shared<int>(0);
  p.add_option("PRN", *prn, "satellite")->required();
  p.add_option("RECORD", *record, "record index, from 0");
  return [prn, record](CommandContext& c) {
    std::string out;
    orbits::ShowOrbitArgs args;
    args.prn = *prn;
    args.record = *record;
    if (orbits::ShowOrbit(c.session.constellation, c.session.orbitState, args, out) != 0) {
      fmt::print(stderr, "show-orbit: PRN {} record {} lies outside the table\n", *prn, *record);
      return 1;
    }
    fmt::print("{}", out);
    return 0;
  };
}

// An observation or station run and its summary: "wrote PATH" only for records that
// were written whole; 1 for a failure (already reported), 130 for a run the user stopped.
int ObservationRun(CommandContext& c, platform::Status (*run)(Session&)) {
  const platform::Status status = run(c.session);
  if (status.failed()) return status.ExitStatus();
  ReportOutputs(c, "wrote");
  return status.ExitStatus();
}

Action Obs(CLI::App&) {
  return [](CommandContext& c) { return ObservationRun(c, RunObservationSim); };
}

Action Raw(CLI::App&) {
  return [](CommandContext& c) { return ObservationRun(c, RunRawGeneration); };
}

Action Events(CLI::App&) {
  return [](CommandContext& c) {
    const int written = WriteStationEventFiles(c.session);
    ReportOutputs(c, "wrote event skeleton");
    return written == kStations ? 0 : 1;
  };
}

// The DIF run and its summary: the file and what a receiver must know to read it.
int DifRun(CommandContext& c, const std::string& recordOverride) {
  dif::DifRunOutcome outcome;
  const int status = RunDif(c.session, recordOverride, outcome);
  // A refusal or a failure has said what went wrong; there is no file to sum up.
  if (outcome.refused || outcome.popup || outcome.status.failed()) return status != 0 ? status : 1;
  ReportOutputs(c, "wrote");
  Summary(c, DescribeRecording(outcome.settings, outcome.report));
  return outcome.status.stopped() ? outcome.status.ExitStatus() : status;
}

Action Dif(CLI::App&) {
  return [](CommandContext& c) { return DifRun(c, ""); };
}

Action Sim(CLI::App&) {
  return [](CommandContext& c) {
    const ScenarioSettings& sc = c.session.settings.scenario;
    if (sc.DifEnabled == 1) return DifRun(c, "");
    if (sc.ObservationEnabled == 1) return ObservationRun(c, RunObservationSim);
    Summary(c, "sim: ObservationEnabled and DifEnabled are both 0: nothing to run");
    return 0;
  };
}

Action AutoRun(CLI::App&) {
  return [](CommandContext& c) {
    c.session.AutoRunStarted = 1;
    // A record that was refused or cut short is never handed on to the DIF run.
    const int observed = ObservationRun(c, RunObservationSim);
    if (observed != 0 && c.session.stopRequests.load() == 0) return observed;
    if (c.session.stopRequests.load() > 0) {
      fmt::print(stderr, "autorun: stopped during the observation run; the DIF run is not started\n");
      return observed != 0 ? observed : 130;
    }
    // The DIF run reads the record the observation run has just written.
    const std::string record = c.session.lastOutputs.empty() ? "" : c.session.lastOutputs.back();
    c.session.lastOutputs.clear();
    return DifRun(c, c.session.settings.scenario.ObservationOutputFile.empty() ? record : "");
  };
}

Action Nav(CLI::App& p, bool all) {
  auto prn = std::make_shared<int>(0);
  if (!all) p.add_option("--prn", *prn, "satellite (default: the navPrn setting)");
  return [prn, all](CommandContext& c) {
    Session& s = c.session;
    // Without orbits the generator refuses at once, before any question.
    if (s.orbitState.OrbitsValid &&
        !Confirm(c, fmt::format("{}:{}", navmsg::kConfirmationTitle,
                                all ? navmsg::kGenNavMultiConfirmation
                                    : navmsg::kGenNavConfirmation))) {
      fmt::print(stderr, "{}: not confirmed, nothing written\n", all ? "nav-all" : "nav");
      return 0;
    }
    navmsg::NavMessageSettings settings = NavSettings(s);
    if (*prn != 0) settings.navPrn = *prn;
    auto redate = [&s](double secondsOfWeek, int32_t week) {
      RedateOrbits(s.constellation, secondsOfWeek, week);
    };
    const int r = all ? navmsg::WriteAllNavigationFiles(settings, s.constellation, s.dataDir.root(),
                                              s.navMessage, s.messages, redate)
                      : navmsg::WriteNavigationFiles(settings, s.constellation, s.dataDir.root(),
                                        s.navMessage, s.messages, redate);
    if (r != 0) return 1;
    if (all)
      Summary(c, fmt::format("wrote {} navigation bit files (navbin1..32, navascii1..32) in {}",
                             2 * navmsg::kMessagePrnCount, (s.dataDir / "NAV").string()));
    else
      Summary(c, fmt::format("wrote {} and {} (PRN {})", (s.dataDir / "simulated.nvb").string(),
                             (s.dataDir / "simulated.nva").string(), settings.navPrn));
    return 0;
  };
}

Action Profile(CLI::App& p) {
  auto a = std::make_shared<density_model::ProfileArgs>();
  p.add_option("--lat", a->lat, "latitude, degrees")->required();
  p.add_option("--lon", a->lon, "longitude, degrees")->required();
  p.add_option("--month", a->month, "month 1 to 12")->required();
  p.add_option("--ut", a->ut, "universal time, hours")->required();
  p.add_option("--flux", a->flux, "10.7 cm solar flux")->required();
  p.add_option("--hmin", a->hmin, "lowest height, km")->capture_default_str();
  p.add_option("--hmax", a->hmax, "height limit (not included), km")->capture_default_str();
  p.add_option("--step", a->step, "height step, km")->capture_default_str();
  auto plot = std::make_shared<std::string>();
  p.add_option("--plot", *plot,
               "also draw the profile plot (0 to 999 km, profileScale, profileColour) to this PNG");
  return [a, plot](CommandContext& c) {
    std::string out, error;
    if (density_model::RunProfile(c.session.densityModel, *a, out, error) != 0) {
      c.session.messages.Popup("Error message", error);
      return 1;
    }
    fmt::print("{}", out);
    if (plot->empty()) return 0;
    return WriteProfilePlot(c.session, a->lat, a->lon, a->month, a->ut, a->flux, *plot);
  };
}

Action Tec(CLI::App& p) {
  auto a = std::make_shared<density_model::TecArgs>();
  p.add_option("--lat1", a->lat1, "first point: latitude, degrees")->required();
  p.add_option("--lon1", a->lon1, "first point: longitude, degrees")->required();
  p.add_option("--h1", a->h1, "first point: height, km")->required();
  p.add_option("--lat2", a->lat2, "second point: latitude, degrees")->required();
  p.add_option("--lon2", a->lon2, "second point: longitude, degrees")->required();
  p.add_option("--h2", a->h2, "second point: height, km")->required();
  p.add_option("--month", a->month, "month 1 to 12")->required();
  p.add_option("--ut", a->ut, "universal time, hours")->required();
  p.add_option("--flux", a->flux, "10.7 cm solar flux")->required();
  return [a](CommandContext& c) {
    std::string out, error;
    if (density_model::RunTec(c.session.densityModel, *a, out, error) != 0) {
      c.session.messages.Popup("Error message", error);
      return 1;
    }
    fmt::print("{}", out);
    return 0;
  };
}

Action About(CLI::App&) {
  return [](CommandContext&) {
    fmt::print("About\n{}\nversion {}\n", kProductName, kVersion);
    return 0;
  };
}

Action Convert(CLI::App& p, bool flux) {
  auto value = std::make_shared<std::string>();
  p.add_option("VALUE", *value, flux ? "10.7 cm solar flux" : "sunspot number R12")->required();
  return [value, flux](CommandContext& c) {
    std::string out, error;
    auto& a = c.session.settings.atmosphere;
    const int r = flux ? atmosphere::RunConvertFlux(a, *value, out, error)
                       : atmosphere::RunConvertSunspot(a, *value, out, error);
    if (r != 0) {
      fmt::print(stderr, "{}: {}\n", flux ? "convert-flux" : "convert-sunspot", error);
      return 1;
    }
    fmt::print("{}", out);
    return 0;
  };
}

Action ShowSettings(CLI::App& p) {
  auto reference = std::make_shared<bool>(false);
  p.add_flag("--reference", *reference, "the settings reference (docs/settings.md) instead");
  return [reference](CommandContext& c) {
    if (*reference) {
      fmt::print("{}", SettingsReference());
      return 0;
    }
    for (const SettingDef& d : SettingRegistry())
      fmt::print("{} = {}\n", d.name, d.show(c.session.settings));
    return 0;
  };
}

std::vector<CommandEntry> BuildTable() {
  return {
      {"load-orbits", "[--type yuma|rinex] FILE", "load a YUMA almanac or a RINEX navigation file", false, LoadOrbits},
      {"galileo", "", "load the built-in Galileo constellation", false, Galileo},
      {"set-time", "", "GPS week and seconds of the scenario date; re-date the orbits", false, SetTime},
      {"show-orbit", "PRN [RECORD]", "show a record of both sets", false, ShowOrbitCommand},
      {"obs", "", "observation run of one receiver", true, Obs},
      {"raw", "", "reference station runs (four stations)", true, Raw},
      {"events", "", "write the stations' event-file skeletons", false, Events},
      {"dif", "", "DIF run: the sampled IF recording of the .scn record (or the test signal)", true, Dif},
      {"sim", "", "the run the DifEnabled / ObservationEnabled switches select", true, Sim},
      {"autorun", "", "the unattended chain: observation run, then DIF run", true, AutoRun},
      {"nav", "[--prn N]", "navigation message of one satellite (simulated.nvb, .nva)", false,
       [](CLI::App& p) { return Nav(p, false); }},
      {"nav-all", "", "navigation messages of PRN 1 to 32 (NAV/navbin<prn>, navascii<prn>)", false,
       [](CLI::App& p) { return Nav(p, true); }},
      {"profile", "--lat D --lon D --month M --ut H --flux F [--hmin --hmax --step] [--plot PNG]",
       "electron density profile: height (km) and density (el/m3) per line", false, Profile},
      {"map", "[--layers L,...] [--opacity L=V ...] -o FILE.png",
       "the TEC map's layers (world, graticule, TEC, sky, bubble) as a PNG picture", false,
       MapCommand},
      {"tec", "--lat1 --lon1 --h1 --lat2 --lon2 --h2 --month --ut --flux",
       "slant TEC (1e15 el/m2) and L1 delay (m) between two points", false, Tec},
      {"about", "", "product name and version", false, About},
      {"convert-flux", "VALUE", "sunspot number from a 10.7 cm solar flux", false,
       [](CLI::App& p) { return Convert(p, true); }},
      {"convert-sunspot", "VALUE", "solar flux from a sunspot number", false,
       [](CLI::App& p) { return Convert(p, false); }},
      {"show-settings", "", "every setting with its value after all sources", false, ShowSettings},
      {"sp3-to-pnm", "IN.sp3 OUT.pnm", "SP3 positions and clocks to degree-7 polynomial arcs", false,
       Sp3ToPnmCommand},
      {"pnm-eval", "FILE PRN WEEK SOW [--interval S]",
       "position (km) and clock (us) of a satellite from a .pnm file", false, PnmEvalCommand},
      {"nav-rinex", "FILE", "RINEX 2.11 navigation file of the loaded orbits (an almanac re-dated "
                            "to the scenario)", false, NavRinexCommand},
      {"bubble-rays", "", "the first epoch's rays: slant delay, what the bubble took, class, "
                          "entry and exit", false, BubbleRaysCommand},
      {"bubble-marks", "", "where this program start's runs crossed the bubble's walls", false,
       BubbleMarksCommand},
      {"check", "FILE [--fs HZ --if HZ --format F --ms N]",
       "quick-look acquisition: the satellites a recording holds, Doppler, code phase, C/N0",
       false, CheckCommand},
      {"record", "--orbits FILE -o FILE [--lat --lon --alt --start --seconds --fs --if --bits]",
       "one recording for a software receiver, with its SigMF description and a GNSS-SDR "
       "configuration beside it",
       true, RecordCommand},
      {"scint-load", "[--plot PNG]",
       "read ScintTargetFile; set FilterPoles and FilterZeros from it", false,
       ScintLoadCommand},
      {"scint-fit", "[--plot PNG]",
       "fit the shaping filter to ScintTargetFile; write ScintFilterOutFile", false,
       ScintFitCommand},
      {"scint-generate", "[--plot PNG]",
       "amplitude and phase scintillation series (scintGenData.dat)", false,
       ScintGenerateCommand},
      {"scint-clear", "", "clear the filter fit's graph (what scint-load and scint-fit plot)",
       false, ScintClearCommand},
      {"scint-table", "OUT INDEX1 INDEX2 INDEX3 [--channels N]",
       "scintillation file of a DIF run for bubble classes 1 to 3 at ScintRate", false,
       ScintTableCommand},
      {"orbit-chart", "-o PNG", "chart of the loaded orbits' planes and satellites", false,
       OrbitChartCommand},
      {"colour-map", "[--pattern 1|2] [--entry ROW,COLOUR] [--cell ROW,COLUMN,VALUE] -o PNG",
       "the colour map editor's intensity plot, table and colour map", false, ColourMapCommand},
      {"scene-3d", "-o JSON", "Earth and ionosphere meshes and the satellites at the scenario "
                             "time, as JSON", false, Scene3dCommand},
      {"serve", "[--port N] [--host ADDR] [--data-dir DIR]",
       "the local web interface: scenario pages, runs with live progress, the map", false,
       web::ServeCommand},
  };
}

}  // namespace

namespace {

std::vector<CommandEntry> BuildFlaggedTable() {
  std::vector<CommandEntry> table = BuildTable();
  const auto among = [](const std::string& name, std::initializer_list<const char*> names) {
    return std::find(names.begin(), names.end(), name) != names.end();
  };
  for (CommandEntry& c : table) {
    c.needsOrbits = among(c.name, {"obs", "raw", "sim", "autorun", "nav", "nav-all", "show-orbit",
                                   "nav-rinex", "bubble-rays"});
    c.writesNothing = among(c.name, {"about", "show-settings", "convert-flux", "convert-sunspot",
                                     "profile", "tec", "set-time", "show-orbit", "load-orbits",
                                     "galileo", "bubble-rays", "bubble-marks", "scint-clear",
                                     "serve"});
  }
  return table;
}

}  // namespace

const std::vector<CommandEntry>& CommandTable() {
  static const std::vector<CommandEntry> table = BuildFlaggedTable();
  return table;
}

bool Confirm(const CommandContext& context, const std::string& question) {
  if (context.global.yes) return true;
  fmt::print(stderr, "{} [y/N] ", question);
  std::string answer;
  if (!std::getline(std::cin, answer)) return false;
  return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
}

}  // namespace vorel::app
