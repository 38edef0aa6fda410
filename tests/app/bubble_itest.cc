// The ionosphere along the ray and the bubble, end to end through the command line on
// the bundled example: the delays in the RINEX file are the rays' delays, a ray's delay
// is the TEC the `tec` command gives for the same points, the record follows the update
// rule, and bad input stops the run before anything is written.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <sstream>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

class Bubble : public ::testing::Test {
 protected:
  Bubble() : dir("bubble") {}
  CliResult Run(std::vector<std::string> extra, std::vector<std::string> commands) {
    std::vector<std::string> a = {"--data-dir", "VLD", "--scenario",
                                  (DataDir() / "examples" / "bubble.toml").string(), "--set",
                                  "ScenarioDuration=1"};
    a.insert(a.end(), extra.begin(), extra.end());
    a.insert(a.end(), {"load-orbits", (DataDir() / "examples" / "yuma147.txt").string()});
    a.insert(a.end(), commands.begin(), commands.end());
    return RunVorel(a, dir.path().string());
  }
  // bubble-rays: PRN -> the columns after it.
  static std::map<int, std::vector<std::string>> Rays(const std::string& out) {
    std::map<int, std::vector<std::string>> rays;
    for (const auto& line : SplitLines(out)) {
      std::istringstream in(line);
      int prn;
      if (!(in >> prn) || line.find("first epoch") != std::string::npos) continue;
      std::vector<std::string> cols;
      for (std::string w; in >> w;) cols.push_back(w);
      if (cols.size() >= 8) rays[prn] = cols;
    }
    return rays;
  }
  // Rows of the bubble record: PRN -> (delay, bubble delay, class) per row.
  std::vector<std::map<int, std::array<double, 3>>> Record() {
    std::vector<std::map<int, std::array<double, 3>>> rows;
    for (const auto& line : SplitLines(ReadFile(dir / "VLD" / "bubble-record.txt"))) {
      if (line.empty()) continue;
      std::vector<std::string> f;
      std::stringstream ss(line);
      for (std::string cell; std::getline(ss, cell, ',');) f.push_back(cell);
      std::map<int, std::array<double, 3>> row;
      // After the time, four cells a satellite: number, delay, bubble delay, class; a
      // satellite without a delay this epoch has "-" in its cells.
      for (size_t i = 1; i + 3 < f.size(); i += 4)
        if (f[i + 1].find('-') == std::string::npos || f[i + 1].find('.') != std::string::npos)
          row[std::stoi(f[i])] = {std::stod(f[i + 1]), std::stod(f[i + 2]), std::stod(f[i + 3])};
      rows.push_back(row);
    }
    return rows;
  }
  ScratchDir dir;
};

TEST_F(Bubble, RinexCodeMinusCarrierIsTwiceTheRayDelayAndTecAgrees) {
  CliResult r = Run({"--set", "AtmosphereUpdateInterval=0"}, {"bubble-rays", "obs"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto rays = Rays(r.out);
  ASSERT_GE(rays.size(), 8u) << r.out;
  int crossed = 0;
  for (const auto& [prn, c] : rays) crossed += c[7] != "-" ? 1 : 0;
  EXPECT_GE(crossed, 2) << r.out;

  // The first written epoch of the standard-layout RINEX file: C1 then L1 in cycles.
  const auto lines = SplitLines(ReadFile(dir / "VLD" / "bubble.10o"));
  size_t i = 0;
  while (i < lines.size() && lines[i].find("END OF HEADER") == std::string::npos) ++i;
  ASSERT_LT(i + 1, lines.size());
  const std::string epoch = lines[++i];
  const int count = std::stoi(epoch.substr(29, 3));
  const double lambda = 299792458.0 / 1575420000.0;
  for (int k = 0; k < count; ++k) {
    const int prn = std::stoi(epoch.substr(33 + 3 * k, 2));
    std::istringstream obs(lines[i + 1 + k]);
    double code, cycles;
    obs >> code >> cycles;
    ASSERT_TRUE(rays.count(prn)) << prn;
    EXPECT_NEAR((code - cycles * lambda) / 2.0, std::stod(rays.at(prn)[4]), 0.002) << "PRN " << prn;
  }

  // The first ray: the `tec` command from the same ground point (the receiver's latitude
  // and longitude through the program's degree factors 0.017453292519943 and 57.32484) to
  // the printed satellite position gives the same content and, before the bubble, the same
  // delay. (The first ray of a program start sets the model's N100 for all that follow, so
  // only the first ray of each process can be compared this way.)
  const double k = 0.017453292519943 * 57.32484;
  const auto& [prn, c] = *rays.begin();
  CliResult t = RunVorel({"--data-dir", "VLD", "tec", "--lat1", std::to_string(1.3 * k), "--lon1",
                          std::to_string(103.8 * k), "--h1", "0", "--lat2", c[0], "--lon2", c[1],
                          "--h2", c[2], "--month", "3", "--ut", "12", "--flux", "150"},
                         dir.path().string());
  ASSERT_EQ(t.status, 0) << t.err;
  double tec, tecu, delay;
  ASSERT_EQ(std::sscanf(SplitLines(t.out)[1].c_str(), "%lf %lf %lf", &tec, &tecu, &delay), 3);
  EXPECT_NEAR(tec, std::stod(c[3]), 0.002) << "PRN " << prn;
  EXPECT_NEAR(delay, std::stod(c[4]) + std::stod(c[5]), 0.002) << "PRN " << prn;
}

TEST_F(Bubble, RecordRowsFollowTheUpdateRuleAndTheDrift) {
  CliResult r = Run({"--set", "AtmosphereUpdateInterval=0"}, {"obs"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Record().size(), 1u);  // worked out once in the program start

  r = Run({"--set", "AtmosphereUpdateInterval=1000", "--set", "bubbleDrift=1000"},
          {"obs", "bubble-marks"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto rows = Record();
  ASSERT_EQ(rows.size(), 61u);  // one a second: the run's first epoch and the minute after it
  // At 1 km/s the slab moves 60 km east in the minute: PRN 12's stretch in it changes.
  ASSERT_TRUE(rows.front().count(12) && rows.back().count(12));
  EXPECT_GT(std::fabs(rows.front().at(12)[1] - rows.back().at(12)[1]), 0.05);
  EXPECT_NE(r.out.find("entry"), std::string::npos);

  // The broadcast model leaves the bubble alone: nothing is recorded.
  r = Run({"--set", "klobucharSelected=1"}, {"obs"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(Record().empty());
}

TEST_F(Bubble, ARecordInAMissingFolderStopsTheRunBeforeAnythingIsWritten) {
  CliResult r = Run({"--set", "bubbleRecordPath=C:/VLD/no-such-folder/rec.txt"}, {"obs"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("bubbleRecordPath"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("no-such-folder/rec.txt"), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(dir / "VLD" / "bubble.10o"));
}

}  // namespace
}  // namespace vorel::test
