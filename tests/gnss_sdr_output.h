#pragma once
// What GNSS-SDR prints on its standard output, read back for the realclient tests: the
// fixes with the receiver time they were made at, and the satellites it tracked and whose
// navigation subframes it decoded; and WGS 84 positions as Earth-centred coordinates to
// compare the fixes with the truth. Also the run itself: a 90 s `vorel record` of the
// example orbits and GNSS-SDR on it with the configuration written beside it.

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {

inline bool HaveGnssSdr() { return std::system("command -v gnss-sdr >/dev/null 2>&1") == 0; }

using Ecef = std::array<double, 3>;

// WGS 84 geodetic (degrees, degrees, metres) to Earth-centred coordinates, m.
inline Ecef ToEcef(double latitude, double longitude, double height) {
  const double a = 6378137.0, f = 1.0 / 298.257223563, e2 = f * (2.0 - f);
  const double phi = latitude * M_PI / 180.0, lambda = longitude * M_PI / 180.0;
  const double n = a / std::sqrt(1.0 - e2 * std::sin(phi) * std::sin(phi));
  return {(n + height) * std::cos(phi) * std::cos(lambda),
          (n + height) * std::cos(phi) * std::sin(lambda), (n * (1.0 - e2) + height) * std::sin(phi)};
}

inline double Distance(const Ecef& p, const Ecef& q) {
  return std::hypot(p[0] - q[0], p[1] - q[1], p[2] - q[2]);
}

struct GnssSdrFix {
  double fileSeconds = 0.0;  // receiver time when the fix was printed
  Ecef position{};
};

struct GnssSdrOutput {
  std::vector<GnssSdrFix> fixes;
  std::set<int> tracked;                    // PRNs whose tracking started
  std::map<int, std::set<int>> subframes;  // PRN -> subframe IDs decoded
};

// Reads the receiver's standard output. A fix takes the receiver time ("Current receiver
// time: 1 min 5 s") printed last before it.
inline GnssSdrOutput ReadGnssSdrOutput(const std::string& out) {
  const std::regex time(R"(Current receiver time: (?:(\d+) min )?(\d+) s)");
  const std::regex fix(R"(Position at .* is Lat = ([-\d.]+) \[deg\], Long = ([-\d.]+) \[deg\], )"
                       R"(Height = ([-\d.]+) \[m\])");
  const std::regex tracking(R"(Tracking of GPS L1 C/A signal started on channel \d+ for )"
                            R"(satellite GPS PRN (\d+))");
  const std::regex subframe(R"(New GPS NAV message received in channel \d+: subframe (\d) from )"
                            R"(satellite GPS PRN (\d+))");
  GnssSdrOutput read;
  double now = 0.0;
  std::istringstream in(out);
  std::string line;
  std::smatch m;
  while (std::getline(in, line)) {
    if (std::regex_search(line, m, time))
      now = (m[1].matched ? std::stod(m[1]) * 60.0 : 0.0) + std::stod(m[2]);
    else if (std::regex_search(line, m, fix))
      read.fixes.push_back({now, ToEcef(std::stod(m[1]), std::stod(m[2]), std::stod(m[3]))});
    else if (std::regex_search(line, m, tracking))
      read.tracked.insert(std::stoi(m[1]));
    else if (std::regex_search(line, m, subframe))
      read.subframes[std::stoi(m[2])].insert(std::stoi(m[1]));
  }
  return read;
}

// The fixes made within the first `seconds` of signal.
inline std::vector<GnssSdrFix> FixesWithin(const std::vector<GnssSdrFix>& fixes, double seconds) {
  std::vector<GnssSdrFix> kept;
  for (const GnssSdrFix& f : fixes)
    if (f.fileSeconds <= seconds) kept.push_back(f);
  return kept;
}

// An empty folder for one realclient run, kept under the build tree for a look afterwards.
inline std::filesystem::path FreshRealClientDir(const std::string& name) {
  const auto dir = BinaryDir() / "realclient" / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

// `vorel record` of 90 s of the example orbits into dir/rec.bin, the atmosphere off, with
// further --set assignments and options of `record`.
inline CliResult RecordNinetySeconds(const std::filesystem::path& dir, double latitude,
                                     double longitude, double altitude, const std::string& start,
                                     const std::vector<std::string>& sets,
                                     const std::vector<std::string>& options) {
  std::vector<std::string> args = {"--data-dir", (dir / "VLD").string(), "--quiet", "--set",
                                   "atmosphereEnabled=0"};
  for (const std::string& s : sets) args.insert(args.end(), {"--set", s});
  args.insert(args.end(),
              {"record", "--orbits", (DataDir() / "examples" / "brdc1820.10n").string(), "--lat",
               fmt::format("{}", latitude), "--lon", fmt::format("{}", longitude), "--alt",
               fmt::format("{}", altitude), "--start", start, "--seconds", "90", "-o",
               (dir / "rec.bin").string()});
  args.insert(args.end(), options.begin(), options.end());
  return RunVorel(args, dir.string());
}

// GNSS-SDR on dir/rec.bin with the configuration `record` wrote beside it and nothing else.
inline CliResult RunGnssSdrOnRecording(const std::filesystem::path& dir) {
  return RunShell(fmt::format(
      "cd '{0}' && timeout --signal=INT --kill-after=30 400 gnss-sdr "
      "--config_file='{0}/rec.gnss-sdr.conf' --keyboard=false --log_dir='{0}' </dev/null",
      dir.string()));
}

// The last part of a long output, for a failure message.
inline std::string Tail(const std::string& text, size_t chars = 4000) {
  return text.substr(text.size() > chars ? text.size() - chars : 0);
}

}  // namespace vorel::test
