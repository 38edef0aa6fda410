// Truncated and garbled copies of the example orbit files: the readers must neither
// crash nor write outside the table, and must keep every row's count inside the row.
// Run under the asan preset as well.

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "orbits/orbit_files.h"
#include "test_support.h"

namespace vorel::orbits {
namespace {

// The table between two guard zones: a stray write lands in a guard (or, under the
// sanitizer, beyond the allocation).
struct GuardedTable {
  std::array<uint8_t, 4096> before;
  ConstellationTable table;
  std::array<uint8_t, 4096> after;
};
constexpr uint8_t kGuard = 0xA5;

// A fixed linear congruential sequence, so every run feeds the same inputs.
struct Lcg {
  uint64_t state;
  uint32_t Next() {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<uint32_t>(state >> 33);
  }
  size_t Below(size_t n) { return n == 0 ? 0 : Next() % n; }
};

const char* const kInserts[] = {"-",
                                "D",
                                "99999999999999",
                                "-2147483649",
                                "1D999",
                                "nan",
                                "\t",
                                "ID: 40",
                                "ID: -3",
                                "Health: 0",
                                "SQRT 5200",
                                "0",
                                " 1e308 1e308 -1e308 1e308",
                                "1.5",
                                "0.9900D+100",
                                "-0.5D+01"};

std::string Mutate(const std::string& text, Lcg& rng) {
  std::string out = text;
  const int edits = 1 + static_cast<int>(rng.Below(8));
  for (int e = 0; e < edits && !out.empty(); ++e) {
    const size_t at = rng.Below(out.size());
    switch (rng.Below(6)) {
      case 0:  // flip a byte to anything, NUL and high bytes included
        out[at] = static_cast<char>(rng.Next() & 0xFF);
        break;
      case 1:  // cut a piece out
        out.erase(at, rng.Below(200));
        break;
      case 2:  // insert a troublesome token
        out.insert(at, kInserts[rng.Below(std::size(kInserts))]);
        break;
      case 3:  // an overlong line
        out.insert(at, std::string(900 + rng.Below(300), '7'));
        break;
      case 4:  // repeat a stretch (more records for one PRN)
        out.insert(at, out.substr(rng.Below(out.size()), rng.Below(2000)));
        break;
      default:  // drop a newline, joining two lines
        if (const size_t nl = out.find('\n', at); nl != std::string::npos) out.erase(nl, 1);
        break;
    }
  }
  return out;
}

// Field by field (the record has padding); the doubles from toc to IDOT lie in a row.
bool SameRecord(const OrbitRecord& a, const OrbitRecord& b) {
  const size_t doubles = sizeof(OrbitRecord) - offsetof(OrbitRecord, toc);
  return a.prn == b.prn && a.week == b.week && a.status == b.status && a.iode == b.iode &&
         std::memcmp(&a.toc, &b.toc, doubles) == 0;
}

void ExpectTableIntact(const GuardedTable& g) {
  for (uint8_t b : g.before) ASSERT_EQ(b, kGuard);
  for (uint8_t b : g.after) ASSERT_EQ(b, kGuard);
  for (const SatelliteOrbits& row : g.table.rows) {
    ASSERT_GE(row.recordCount, 0);
    ASSERT_LE(row.recordCount, kRecordsPerSet);
  }
}

// A usable record must make an orbit: every field finite and an eccentricity in [0, 1);
// anything else runs the Kepler solver to its limit and gives NaN positions.
void ExpectUsableRecordsSound(const ConstellationTable& table) {
  for (const SatelliteOrbits& row : table.rows) {
    for (int k = 0; k < row.recordCount; ++k) {
      for (const OrbitRecord* r : {&row.trueRecords[k], &row.broadcastRecords[k]}) {
        if (r->status != kStatusUsable) continue;
        const double* first = &r->toc;
        const size_t count = (sizeof(OrbitRecord) - offsetof(OrbitRecord, toc)) / sizeof(double);
        for (size_t i = 0; i < count; ++i) ASSERT_TRUE(std::isfinite(first[i])) << i;
        ASSERT_GE(r->e, 0.0);
        ASSERT_LT(r->e, 1.0);
      }
    }
  }
}

class OrbitFilesFuzzTest : public ::testing::Test {
 protected:
  void SetUp() override {
    guarded = std::make_unique<GuardedTable>();
    guarded->before.fill(kGuard);
    guarded->after.fill(kGuard);
    messages.warning = [this](std::string_view) { ++warnings; };
  }

  // Feeds one input to the reader of `fileType` through the load command.
  void Feed(const std::string& text, int32_t fileType, const std::string& name) {
    const std::string path = (scratch / name).string();
    test::WriteFile(path, text);
    const int result = LoadAlmanac(guarded->table, state, {fileType, path}, messages);
    ASSERT_TRUE(result == 1 || result == -1) << result;
    ExpectTableIntact(*guarded);
    ExpectUsableRecordsSound(guarded->table);
  }

  std::unique_ptr<GuardedTable> guarded;
  ConstellationState state;
  platform::Messages messages;
  long warnings = 0;
  test::ScratchDir scratch{"orbit-fuzz"};
};

TEST_F(OrbitFilesFuzzTest, TruncatedCopiesOfBothFiles) {
  const std::string yuma = test::ReadFile(test::DataDir() / "examples" / "yuma147.txt");
  const std::string rinex = test::ReadFile(test::DataDir() / "examples" / "brdc1820.10n");
  ASSERT_FALSE(yuma.empty());
  ASSERT_FALSE(rinex.empty());
  // Cut at every 97th byte of the almanac and every 1999th of the navigation file, so
  // cuts fall inside labels, numbers and records alike.
  for (size_t cut = 0; cut < yuma.size(); cut += 97) Feed(yuma.substr(0, cut), 0, "cut.txt");
  for (size_t cut = 0; cut < rinex.size(); cut += 1999) Feed(rinex.substr(0, cut), 1, "cut.10n");
}

TEST_F(OrbitFilesFuzzTest, GarbledCopiesOfBothFiles) {
  const std::string yuma = test::ReadFile(test::DataDir() / "examples" / "yuma147.txt");
  const std::string rinex = test::ReadFile(test::DataDir() / "examples" / "brdc1820.10n");
  Lcg rng{20100701};
  for (int i = 0; i < 300; ++i) Feed(Mutate(yuma, rng), 0, "garbled.txt");
  // Shorter slices of the navigation file keep the run quick; each still holds records.
  for (int i = 0; i < 120; ++i) {
    const size_t start = rng.Below(rinex.size());
    const std::string slice = rinex.substr(0, 700) + rinex.substr(start, 30000);
    Feed(Mutate(slice, rng), 1, "garbled.10n");
  }
  // The same stream of inputs gives the same table: compare two runs of one input.
  Lcg again{7};
  const std::string input = Mutate(rinex, again);
  Feed(input, 1, "once.10n");
  auto first = std::make_unique<ConstellationTable>(guarded->table);
  Feed(input, 1, "twice.10n");
  for (int index = 0; index < kTableRows; ++index) {
    const SatelliteOrbits& a = first->rows[index];
    const SatelliteOrbits& b = guarded->table.rows[index];
    ASSERT_EQ(a.recordCount, b.recordCount);
    for (int k = 0; k < kRecordsPerSet; ++k) {
      ASSERT_TRUE(SameRecord(a.trueRecords[k], b.trueRecords[k])) << index << " " << k;
      ASSERT_TRUE(SameRecord(a.broadcastRecords[k], b.broadcastRecords[k])) << index << " " << k;
    }
  }
  EXPECT_GT(warnings, 0);
}

TEST_F(OrbitFilesFuzzTest, OneNavigationPrnRepeatedFarBeyondItsRow) {
  const std::string rinex = test::ReadFile(test::DataDir() / "examples" / "brdc1820.10n");
  const size_t body = rinex.find("END OF HEADER");
  const size_t firstRecord = rinex.find('\n', body) + 1;
  size_t recordEnd = firstRecord;
  for (int line = 0; line < 8; ++line) recordEnd = rinex.find('\n', recordEnd) + 1;
  std::string text = rinex.substr(0, firstRecord);
  for (int k = 0; k < 200; ++k) text += rinex.substr(firstRecord, recordEnd - firstRecord);
  Feed(text, 1, "repeat.10n");
  EXPECT_EQ(guarded->table.rows[0].recordCount, kRecordsPerSet);
  EXPECT_EQ(warnings, 1);
}

}  // namespace
}  // namespace vorel::orbits
