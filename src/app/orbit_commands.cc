#include "app/orbit_commands.h"

#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "app/scenario_runs.h"
#include "orbits/rinex_nav_writer.h"
#include "orbits/sp3_convert.h"

namespace vorel::app {

std::function<int(CommandContext&)> Sp3ToPnmCommand(CLI::App& p) {
  auto input = std::make_shared<std::string>();
  auto output = std::make_shared<std::string>();
  p.add_option("IN", *input, "SP3 position file (\"#cP\" or \"#aP\")")->required();
  p.add_option("OUT", *output, "the .pnm file to write")->required();
  return [input, output](CommandContext& c) {
    orbits::Sp3ConvertArgs args;
    args.input = c.session.dataDir.Map(*input);
    args.output = c.session.dataDir.Map(*output);
    args.LeapSeconds = c.session.settings.scenario.LeapSeconds;
    if (std::filesystem::exists(args.output) &&
        std::filesystem::equivalent(args.input, args.output)) {
      fmt::print(stderr, "sp3-to-pnm: {}: the output would replace its own input\n",
                 args.output.string());
      return 1;
    }
    orbits::Sp3ConvertReport report;
    std::string error;
    if (orbits::ConvertSp3ToPnm(args, report, error) != 0) {
      fmt::print(stderr, "sp3-to-pnm: {}\n", error);
      return 1;
    }
    if (!c.global.quiet) {
      int satellites = 0, arcs = 0;
      for (int i = 0; i < orbits::kSp3Prns; ++i) {
        satellites += report.epochs[i] > 0 ? 1 : 0;
        arcs += report.arcs[i];
      }
      fmt::print("first epoch GPS week {}, {:.3f} s; {} epochs in the header\n", report.week,
                 report.secondsOfWeek, report.epochCount);
      fmt::print("{} satellites, {} arcs of 8 epochs\n", satellites, arcs);
      fmt::print("wrote {}\n", args.output.string());
    }
    return 0;
  };
}

std::function<int(CommandContext&)> PnmEvalCommand(CLI::App& p) {
  auto file = std::make_shared<std::string>();
  auto prn = std::make_shared<int>(0);
  auto week = std::make_shared<int>(0);
  auto sow = std::make_shared<double>(0.0);
  auto interval = std::make_shared<double>(900.0);
  p.add_option("FILE", *file, ".pnm file")->required();
  p.add_option("PRN", *prn, "satellite, 1 to 32")->required();
  p.add_option("WEEK", *week, "GPS week")->required();
  p.add_option("SOW", *sow, "seconds of week")->required();
  p.add_option("--interval", *interval, "seconds between the SP3 file's epochs (default 900)");
  return [=](CommandContext& c) {
    orbits::PnmFile pnm;
    std::string error;
    if (orbits::ReadPnmFile(c.session.dataDir.Map(*file), pnm, error) != 0) {
      fmt::print(stderr, "pnm-eval: {}\n", error);
      return 1;
    }
    orbits::PnmState s;
    if (orbits::EvaluatePnm(pnm, *prn, *week, *sow, *interval, s, error) != 0) {
      fmt::print(stderr, "pnm-eval: {}\n", error);
      return 1;
    }
    fmt::print("PRN {} week {} {:.3f} s: x {:.6f} km, y {:.6f} km, z {:.6f} km, clock {:.6f} us\n",
               *prn, *week, *sow, s.x, s.y, s.z, s.clock);
    return 0;
  };
}

std::function<int(CommandContext&)> NavRinexCommand(CLI::App& p) {
  auto file = std::make_shared<std::string>();
  p.add_option("FILE", *file, "the RINEX 2.11 navigation file to write")->required();
  return [file](CommandContext& c) {
    Session& s = c.session;
    if (!s.orbitState.OrbitsValid) {
      fmt::print(stderr, "nav-rinex: no orbits loaded; use load-orbits or galileo first\n");
      return 1;
    }
    // The orbits as a run flies them: an almanac is moved to the scenario date first.
    SetScenarioTime(s);
    orbits::RinexNavHeader header;
    header.hasIono = true;
    for (int k = 0; k < 4; ++k) {
      header.alpha[k] = s.settings.atmosphere.ionoBroadcastTable.cells[0][k];
      header.beta[k] = s.settings.atmosphere.ionoBroadcastTable.cells[1][k];
    }
    header.leapSeconds = s.settings.scenario.LeapSeconds;
    std::string error;
    const auto path = s.dataDir.Map(*file);
    const int records = orbits::WriteRinexNavigation(s.constellation, header, path, error);
    if (records < 0) {
      fmt::print(stderr, "Error message: {}\n", error);
      return 1;
    }
    if (!c.global.quiet) fmt::print("wrote {} ({} records)\n", path.string(), records);
    return 0;
  };
}

}  // namespace vorel::app
