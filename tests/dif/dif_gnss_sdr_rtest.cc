// A real software receiver on our recordings: GNSS-SDR must acquire, track and decode every
// satellite the .scn record holds above 10 degrees, and with matching IODC/IODE and a minute
// of signal compute a fix on the scenario's receiver.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "dif_scenario.h"
#include "gnss_sdr_output.h"

namespace vorel::test {
namespace {

std::filesystem::path CheckScript() { return SharedDir() / "tools" / "gnss-sdr" / "check-dif.sh"; }

bool HaveReceiver() { return std::filesystem::exists(CheckScript()) && HaveGnssSdr(); }

// Runs the check script; returns the receiver summary's lines, the last being JSON.
std::string RunCheck(const std::filesystem::path& file, const std::filesystem::path& out,
                     const std::string& extra) {
  const std::string command = fmt::format(
      "'{}' --file '{}' --fs 16368000 --if 4092000 --format packed --bits 2 --out '{}' {} "
      "> '{}/summary.txt' 2> '{}/check.err'",
      CheckScript().string(), file.string(), out.string(), extra, out.string(), out.string());
  std::filesystem::create_directories(out);
  std::system(command.c_str());
  return ReadFile(out / "summary.txt");
}

// Fields of the JSON summary through python3 (standard library only): one "key value" a line.
std::map<std::string, std::string> Facts(const std::filesystem::path& out) {
  const std::string script = R"PY(
import json, sys
s = json.loads(open(sys.argv[1]).read().strip().splitlines()[-1])
print("acquired", " ".join(str(p) for p in sorted(s.get("acquired", []))))
print("tracked", " ".join(str(p) for p in sorted(int(k) for k in s.get("tracked", {}))))
print("tow", " ".join(str(p) for p in sorted(s.get("tow_decoded", []))))
pvt = s.get("pvt") or {}
print("fixes", pvt.get("fixes", 0))
err = pvt.get("error_m") or {}
print("horizontal", err.get("horizontal", 1e9))
print("up", err.get("up", 1e9))
)PY";
  WriteFile(out / "facts.py", script);
  const std::string command = fmt::format("python3 '{}' '{}/summary.txt' > '{}/facts.txt'",
                                          (out / "facts.py").string(), out.string(), out.string());
  std::system(command.c_str());
  std::map<std::string, std::string> facts;
  std::istringstream in(ReadFile(out / "facts.txt"));
  std::string line;
  while (std::getline(in, line)) {
    const size_t space = line.find(' ');
    facts[line.substr(0, space)] = space == std::string::npos ? "" : line.substr(space + 1);
  }
  return facts;
}

std::set<int> Numbers(const std::string& text) {
  std::set<int> out;
  std::istringstream in(text);
  int v;
  while (in >> v) out.insert(v);
  return out;
}

// A DIF recording of `minutes` into dir/rec.bin on one thread (the receiver needs the other
// core), checked by its block count.
void RecordDif(const DifScenario& sc, const std::filesystem::path& dir, double minutes,
               int64_t blocks) {
  app::Session& s = *sc.session;
  s.settings.dif.Duration = minutes;
  s.settings.dif.DifThreads = 1;
  s.settings.dif.DifOutputFile = (dir / "rec.bin").string();
  dif::DifRunOutcome outcome;
  ASSERT_EQ(app::RunDif(s, "", outcome), 0);
  ASSERT_EQ(outcome.report.blocks, blocks);
}

TEST(DifRealClient, EverySatelliteAboveTenDegreesIsTrackedAndDecoded) {
  VOREL_REQUIRE_SHARED();
  if (!HaveReceiver()) GTEST_SKIP() << "gnss-sdr or the check script is absent";
  const auto dir = FreshRealClientDir("dif-tow");
  // The demo's recording: 40 s at 16.368 MHz, 2 bits, Packed.
  const DifScenario sc = MakeDifScenario(dir, {}, false);
  RecordDif(sc, dir, 40.0 / 60.0, 40000);
  if (HasFatalFailure()) return;

  const std::string summary = RunCheck(dir / "rec.bin", dir / "receiver", "");
  std::cout << summary;
  const auto facts = Facts(dir / "receiver");
  const std::set<int> tracked = Numbers(facts.at("tracked"));
  const std::set<int> decoded = Numbers(facts.at("tow"));
  const auto elevations = FirstEpochElevations(dir, {});
  ASSERT_FALSE(elevations.empty());
  int above = 0;
  for (const auto& [prn, elevation] : elevations) {
    if (elevation <= 10.0) continue;
    ++above;
    EXPECT_TRUE(tracked.count(prn)) << "PRN " << prn << " at " << elevation << " deg not tracked";
    EXPECT_TRUE(decoded.count(prn)) << "PRN " << prn << " at " << elevation << " deg: no TOW";
  }
  EXPECT_GE(above, 4);
  // Nothing is tracked that the record does not hold.
  for (int prn : tracked)
    EXPECT_TRUE(elevations.count(prn)) << "PRN " << prn << " is not in the record";
}

TEST(DifRealClient, PositionFixWithinThirtyMetres) {
  VOREL_REQUIRE_SHARED();
  if (!HaveReceiver()) GTEST_SKIP() << "gnss-sdr or the check script is absent";
  const auto dir = FreshRealClientDir("dif-pvt");
  // Subframe 1 begins 6 s into the file (TOW mod 30 = 24 at the start) for an early fix.
  const DifScenario sc = MakeDifScenario(dir, {"ScenarioSecond=24", "ScenarioDuration=2"}, true);
  RecordDif(sc, dir, 1.0, 60000);
  if (HasFatalFailure()) return;
  const app::ScenarioSettings& scn = sc.session->settings.scenario;
  const std::string summary =
      RunCheck(dir / "rec.bin", dir / "receiver",
               fmt::format("--iono-model OFF --trop-model OFF --ref {},{},{}", scn.ReceiverLatitude,
                           scn.ReceiverLongitude, scn.ReceiverAltitude));
  std::cout << summary;
  const auto facts = Facts(dir / "receiver");
  EXPECT_GT(std::stoi(facts.at("fixes")), 0);
  const double horizontal = std::stod(facts.at("horizontal"));
  const double up = std::stod(facts.at("up"));
  EXPECT_LT(std::hypot(horizontal, up), 30.0)
      << "horizontal " << horizontal << " m, up " << up << " m";
}

}  // namespace
}  // namespace vorel::test
