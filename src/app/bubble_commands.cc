#include "app/bubble_commands.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "app/scenario_runs.h"
#include "gnss/time_coords.h"

namespace vorel::app {
namespace {

std::string Point(const atmosphere::BubbleMark& m) {
  return fmt::format("{:8.3f} {:8.3f} {:7.1f}", m.latitude, m.longitude, m.height);
}

}  // namespace

std::function<int(CommandContext&)> BubbleRaysCommand(CLI::App&) {
  return [](CommandContext& c) {
    std::vector<observation::ModelAtmosphere::Ray> rays;
    gnss::GpsTime epoch;
    const platform::Status status = TraceFirstEpochRays(c.session, rays, epoch);
    if (!status.ok()) return status.ExitStatus();
    const ScenarioSettings& sc = c.session.settings.scenario;
    fmt::print("first epoch: GPS week {}, {:.3f} s; receiver {:.4f} {:.4f} (rays from its "
               "ground point)\n",
               epoch.week, epoch.secondsOfWeek, sc.ReceiverLatitude, sc.ReceiverLongitude);
    fmt::print("{:>4} {:>10} {:>10} {:>11} {:>9} {:>8} {:>8} {:>5}  {:<26} {:<26}\n", "PRN",
               "sat lat", "sat lon", "h km", "TEC 1e15", "delay m", "bubble m", "class",
               "entry lat, lon, h km", "exit lat, lon, h km");
    int crossed = 0;
    for (const auto& r : rays) {
      gnss::Geodetic g;
      gnss::EcefToGeodetic(r.satPosition[0], r.satPosition[1], r.satPosition[2], g);
      const auto& d = r.detail;
      crossed += d.crossed ? 1 : 0;
      fmt::print("{:>4} {:10.5f} {:10.5f} {:11.4f} {:9.3f} {:8.3f} {:8.3f} {:>5}  {:<26} {:<26}\n",
                 r.satIndex + 1, g.latitude, g.longitude, g.height / 1000.0, d.tec, r.delay,
                 d.bubbleDelay, r.bubbleClass, d.crossed ? Point(d.entry) : "-",
                 d.crossed ? Point(d.exit) : "-");
    }
    if (!c.global.quiet)
      fmt::print("{} ray(s), {} through the bubble (the delay column is what the code range "
                 "takes: the whole ray's less the bubble's)\n",
                 rays.size(), crossed);
    return 0;
  };
}

std::function<int(CommandContext&)> BubbleMarksCommand(CLI::App&) {
  return [](CommandContext& c) {
    const auto& marks = c.session.atmosphere.slant.marks;
    fmt::print("{:>5} {:>4} {:>12} {:>8} {:>8} {:>7}\n", "kind", "PRN", "time ms", "lat", "lon",
               "h km");
    for (const auto& m : marks)
      fmt::print("{:>5} {:>4} {:>12} {}\n", m.kind == 1 ? "entry" : "exit", m.satIndex + 1,
                 m.timeMs, Point(m));
    if (!c.global.quiet)
      fmt::print("{} point(s) where rays crossed the bubble's walls in this program start\n",
                 marks.size());
    return 0;
  };
}

}  // namespace vorel::app
