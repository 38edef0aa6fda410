#include "navmsg/nav_message.h"

#include "platform/text_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "gnss/time_coords.h"
#include "navmsg/almanac_pages.h"
#include "navmsg/ephemeris_subframes.h"
#include "orbits/satellite_position.h"

namespace vorel::navmsg {
namespace {

constexpr const char* kErrorTitle = "Error message";
constexpr const char* kNoOrbitsText = "Please introduce orbits before generating nav message";
constexpr const char* kBinaryCreateError = "\n Binary File Create Error";
constexpr const char* kTextCreateError = "\n Ascii FIle Create Error";

void WriteSubframe(const NavFrame& frame, int subframeIndex, std::FILE* binaryFile,
                   std::FILE* textFile, NavMessageState& state, int32_t& copied) {
  WriteSubframeBinary(binaryFile, frame[subframeIndex]);
  WriteSubframeText(textFile, frame[subframeIndex]);
  const int32_t n = std::min<int32_t>(kBitsPerSubframe, state.copyLength - copied);
  if (!state.copy || n <= 0) return;
  std::copy_n(frame[subframeIndex][0].data(), n, state.copy + copied);  // words lie end to end
  copied += n;
}

// Subframe 4 of a page: which encoder fills it.
void EncodeSubframe4(int page, int32_t week, double t, int prn, const AlmanacTable& almanac,
                     double alpha0, double alpha1, double alpha2, double alpha3, double beta0,
                     double beta1, double beta2, double beta3, const HealthCode& health,
                     NavFrame& frame) {
  switch (page) {
    case 18:
      EncodeIonoUtcPage(page, week, t, alpha0, alpha1, alpha2, alpha3, beta0, beta1, beta2, beta3,
                        kFixedUtcConstants, frame);
      break;
    case 25:
      EncodeConfigHealthPage(page, week, t, health, frame);
      break;
    case 13:
      EncodeNmctPage(page, week, t, frame);
      break;
    case 2:
    case 3:
    case 4:
    case 5:
    case 7:
    case 8:
    case 9:
    case 10:
      // The satellite's own entry on every almanac page of subframe 4.
      EncodeAlmanacPage4(page, week, t, almanac[prn - 1], frame);
      break;
    default:
      EncodeDummyPage(page, week, t, frame);
      break;
  }
}

// Files of one satellite, opened together and closed together. Each is written under a
// temporary name and takes its own only when the whole message reached the disk; a file
// that could not be written whole is an error naming it, and an earlier file stays.
struct MessageFiles {
  platform::OutputFile binary;
  platform::OutputFile text;

  int Open(const std::filesystem::path& binaryPath, const std::filesystem::path& textPath,
           const platform::Messages& messages) {
    if (!binary.Open(binaryPath)) {
      messages.Info(kBinaryCreateError);
      return -1;
    }
    if (!text.Open(textPath)) {
      messages.Info(kTextCreateError);
      binary.Abandon();
      return -1;
    }
    return 0;
  }

  int Close(const platform::Messages& messages) {
    const bool binaryWhole = binary.Close();
    if (!binaryWhole) {
      text.Abandon();
      messages.Popup(kErrorTitle, binary.error());
      return -1;
    }
    if (!text.Close()) {
      messages.Popup(kErrorTitle, text.error());
      return -1;
    }
    return 0;
  }
};

// Steps shared by both commands before the first file: orbits loaded, PRN in range.
int CheckOrbits(const NavMessageSettings& settings, const platform::Messages& messages) {
  if (settings.OrbitsValid == 0) {
    messages.Popup(kErrorTitle, kNoOrbitsText);
    return -1;
  }
  return 0;
}

bool ValidPrn(int prn) { return prn >= 1 && prn <= kMessagePrnCount; }

// Scenario time in seconds of week, with the table re-dated to it when asked.
double ScenarioTime(const NavMessageSettings& settings, const RedateOrbitsFn& redateOrbits) {
  gnss::GpsTime time;
  gnss::CalendarToGpsTime(
      settings.ScenarioYear, settings.ScenarioMonth, settings.ScenarioDay, settings.ScenarioHour,
      settings.ScenarioMinute, settings.ScenarioSecond, settings.LeapSeconds, time);
  if (settings.KeepOrbitEpochs == 0 && redateOrbits) redateOrbits(time.secondsOfWeek, time.week);
  return time.secondsOfWeek;
}

// Whether two tables hold the same epochs (what re-dating changes) in every record.
bool SameEpochs(const orbits::ConstellationTable& a, const orbits::ConstellationTable& b) {
  auto same = [](const orbits::OrbitRecord& x, const orbits::OrbitRecord& y) {
    return x.toe == y.toe && x.toc == y.toc && x.week == y.week;
  };
  for (size_t r = 0; r < a.rows.size(); ++r)
    for (int k = 0; k < orbits::kRecordsPerSet; ++k)
      if (!same(a.rows[r].trueRecords[k], b.rows[r].trueRecords[k]) ||
          !same(a.rows[r].broadcastRecords[k], b.rows[r].broadcastRecords[k]))
        return false;
  return true;
}

// Opens the two files of one satellite, generates its message and closes them.
int WriteMessage(int prn, const NavMessageSettings& settings, orbits::ConstellationTable& table,
                 const std::filesystem::path& binaryPath, const std::filesystem::path& textPath,
                 NavMessageState& state, const platform::Messages& messages,
                 const RedateOrbitsFn& redateOrbits) {
  MessageFiles files;
  if (files.Open(binaryPath, textPath, messages) != 0) return -1;
  const double t = ScenarioTime(settings, redateOrbits);
  const auto& a = settings.ionoAlpha;
  const auto& b = settings.ionoBeta;
  GnssNavMessage(prn, table, a[0], a[1], a[2], a[3], b[0], b[1], b[2], b[3], t,
                 files.binary.stream(), files.text.stream(), state, settings.IodcFollowsIode == 1,
                 settings.SatClockFromMessage == 1, settings.NavRecordAsRanges == 1);
  return files.Close(messages);
}

}  // namespace

int GnssNavMessage(int prn, orbits::ConstellationTable& table, double alpha0, double alpha1,
                   double alpha2, double alpha3, double beta0, double beta1, double beta2,
                   double beta3, double t, std::FILE* binaryFile, std::FILE* textFile,
                   NavMessageState& state, bool iodcFollowsIode, bool fileTgd,
                   bool recordAsRanges) {
  if (!ValidPrn(prn)) return -1;
  state.frame = NavFrame{};
  state.previousWord = NavWord{};
  NavFrame& frame = state.frame;

  // The stream starts on page 1, on the 750 s grid at or before t.
  const double t0 = std::floor(t / kPageCycleSeconds) * kPageCycleSeconds;
  const AlmanacTable almanac = MakeAlmanacTable();
  const HealthCode health{};

  // One record, chosen at t0, serves the whole stream; a failed selection leaves record 0.
  // The ranges choose again every epoch: a millisecond later, at an even hour, they fly
  // the next record, which is what recordAsRanges takes.
  orbits::SelectOrbitRecord(recordAsRanges ? t0 + 0.001 : t0, table, prn - 1);
  const int selected = table.rows[prn - 1].selectedRecord;
  if (selected < 0 || selected >= orbits::kRecordsPerSet) return -1;
  const orbits::OrbitRecord rec = table.rows[prn - 1].broadcastRecords[selected];
  const int32_t iodc = iodcFollowsIode ? (rec.iode & 0xFF) : kSystemIodc;

  double r = t0;
  int page = 1;
  int32_t copied = 0;
  for (int f = 0; f < kFramesPerMessage; ++f) {
    r += 6.0;
    EncodeSubframe1(rec.week, r, fileTgd ? rec.fileTgd : rec.tgd, rec.toc, rec.af2, rec.af1, rec.af0, iodc, frame,
                    state.previousWord);
    WriteSubframe(frame, 0, binaryFile, textFile, state, copied);
    r += 6.0;
    EncodeSubframe2(rec.week, r, rec.iode, rec.Crs, rec.deltaN, rec.M0, rec.Cuc, rec.e, rec.Cus,
                    rec.sqrtA, rec.toe, rec.aodo, 0, frame);
    WriteSubframe(frame, 1, binaryFile, textFile, state, copied);
    r += 6.0;
    EncodeSubframe3(rec.week, r, rec.Cic, rec.Omega0, rec.Cis, rec.i0, rec.Crc, rec.omega,
                    rec.OmegaDot, rec.iode, rec.IDOT, frame);
    WriteSubframe(frame, 2, binaryFile, textFile, state, copied);
    r += 6.0;
    EncodeSubframe4(page, rec.week, r, prn, almanac, alpha0, alpha1, alpha2, alpha3, beta0, beta1,
                    beta2, beta3, health, frame);
    WriteSubframe(frame, 3, binaryFile, textFile, state, copied);
    r += 6.0;
    if (page < kPagesPerCycle)
      EncodeAlmanacPage5(page, rec.week, r, almanac[page - 1], frame);
    else
      EncodeHealthPage(page, rec.week, r, kHealthPageToa, health, frame);
    WriteSubframe(frame, 4, binaryFile, textFile, state, copied);
    page = page < kPagesPerCycle ? page + 1 : 1;
    state.previousWord = frame[4][kWordsPerSubframe - 1];
  }
  return 1;
}

int WriteNavigationFiles(const NavMessageSettings& settings, orbits::ConstellationTable& table,
            const std::filesystem::path& dataDir, NavMessageState& state,
            const platform::Messages& messages, const RedateOrbitsFn& redateOrbits) {
  if (CheckOrbits(settings, messages) != 0) return -1;
  if (!ValidPrn(settings.navPrn)) {
    messages.Popup(kErrorTitle, fmt::format("navPrn {} is not a GPS PRN from 1 to {}",
                                            settings.navPrn, kMessagePrnCount));
    return -1;
  }
  return WriteMessage(settings.navPrn, settings, table, dataDir / "simulated.nvb",
                      dataDir / "simulated.nva", state, messages, redateOrbits);
}

bool SettleForMessages(const NavMessageSettings& settings, orbits::ConstellationTable& table,
                       const RedateOrbitsFn& redateOrbits) {
  if (settings.KeepOrbitEpochs != 0 || !redateOrbits) return true;  // nothing re-dates it
  const orbits::ConstellationTable before = table;
  ScenarioTime(settings, redateOrbits);
  const orbits::ConstellationTable once = table;
  ScenarioTime(settings, redateOrbits);
  if (SameEpochs(once, table)) return true;
  table = before;
  return false;
}

int WriteAllNavigationFiles(const NavMessageSettings& settings, orbits::ConstellationTable& table,
                  const std::filesystem::path& dataDir, NavMessageState& state,
                  const platform::Messages& messages, const RedateOrbitsFn& redateOrbits,
                  int threads, const NavBitCopies* copies) {
  if (CheckOrbits(settings, messages) != 0) return -1;
  const std::filesystem::path navDir = dataDir / "NAV";
  auto write = [&](int prn, NavMessageState& st, const platform::Messages& m,
                   const RedateOrbitsFn& redate) {
    st.copy = copies ? copies->rows[prn - 1] : nullptr;
    st.copyLength = copies ? copies->length : 0;
    const int result = WriteMessage(prn, settings, table, navDir / fmt::format("navbin{}", prn),
                                    navDir / fmt::format("navascii{}", prn), st, m, redate);
    st.copy = nullptr;
    st.copyLength = 0;
    return result;
  };
  // Each message re-dates the table before it is made. Once the table has settled the
  // messages, which each select in and read their own row only, are made side by side,
  // each with its own state, and what they said is told afterwards in PRN order.
  if (threads <= 1 || !SettleForMessages(settings, table, redateOrbits)) {
    for (int prn = 1; prn <= kMessagePrnCount; ++prn)
      if (write(prn, state, messages, redateOrbits) != 0) return -1;
    return 0;
  }
  std::vector<NavMessageState> states(kMessagePrnCount);
  std::vector<platform::MessageLog> logs(kMessagePrnCount);
  std::vector<int> results(kMessagePrnCount, 0);
  std::atomic<int> next{0};
  auto work = [&] {
    for (int k = next.fetch_add(1); k < kMessagePrnCount; k = next.fetch_add(1)) {
      const platform::Messages m = logs[k].Recorder();
      try {
        results[k] = write(k + 1, states[k], m, {});
      } catch (const std::exception& e) {
        m.Popup(kErrorTitle, e.what());
        results[k] = -1;
      }
    }
  };
  std::vector<std::thread> helpers;
  for (int h = 1; h < std::min(threads, kMessagePrnCount); ++h) helpers.emplace_back(work);
  work();
  for (std::thread& h : helpers) h.join();
  // Told as the one-by-one loop tells them: up to the first PRN that failed.
  for (int k = 0; k < kMessagePrnCount; ++k) {
    logs[k].Replay(messages);
    if (results[k] != 0) return -1;
  }
  state = states.back();
  return 0;
}

}  // namespace vorel::navmsg
