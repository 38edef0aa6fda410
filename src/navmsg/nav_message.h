#pragma once
// The message generator: one satellite's GPS L1 C/A navigation message over 59 frames
// (88,500 bits, 1770 s) from one broadcast orbit record, and the commands that write it
// to the navigation bit files, for one satellite or for PRN 1 to 32.

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "navmsg/nav_bits.h"
#include "orbits/orbit_record.h"
#include "platform/messages.h"
#include "platform/setting_table.h"

namespace vorel::navmsg {

inline constexpr int kFramesPerMessage = 59;
inline constexpr int kBitsPerMessage = kFramesPerMessage * kBitsPerFrame;  // 88,500
inline constexpr int kPagesPerCycle = 25;
inline constexpr double kPageCycleSeconds = 750.0;
inline constexpr int kMessagePrnCount = 32;
inline constexpr int32_t kHealthPageToa = 70;

// The generator's buffers, kept for the life of the program. They are cleared at the
// start of each message and then reused frame after frame: the almanac pages let bits of
// the page before show through.
struct NavMessageState {
  NavFrame frame{};
  NavWord previousWord{};  // word 10 of the last subframe 5 sent
  // Where the message's bits go besides the binary file: the first `copyLength` of them,
  // each as the file holds it (0 or 1); none when null.
  int32_t* copy = nullptr;
  int32_t copyLength = 0;
};

// Rows that take a copy of the bits of each message WriteAllNavigationFiles writes:
// rows[prn - 1] the first `length` bits of PRN prn's message (a null row none), the
// numbers its binary file holds, so that a reader of the files can be spared reading them.
struct NavBitCopies {
  std::array<int32_t*, kMessagePrnCount> rows{};
  int32_t length = 0;
};

// Builds the message of `prn` (1..32) from the broadcast record selected at t0, the
// largest multiple of 750 s not above t (s of week), and writes each subframe to the
// binary file and then to the text file. The files stay the caller's. With
// iodcFollowsIode the ten IODC bits carry the record's IODE instead of 562. Returns 1, or
// -1 (nothing written) when the PRN is outside 1..32 or no record is selected. With
// fileTgd subframe 1 carries the record's TGD from the navigation file instead of 0.
int GnssNavMessage(int prn, orbits::ConstellationTable& table, double alpha0, double alpha1,
                   double alpha2, double alpha3, double beta0, double beta1, double beta2,
                   double beta3, double t, std::FILE* binaryFile, std::FILE* textFile,
                   NavMessageState& state, bool iodcFollowsIode = false, bool fileTgd = false,
                   bool recordAsRanges = false);

// The settings of the navigation message commands as the user gives them.
struct NavPanelValues {
  int32_t navPrn = 1;           // the satellite of WriteNavigationFiles
  int32_t IodcFollowsIode = 0;  // 1: IODC carries the record's IODE (not 562)
  // 1: subframe 1 sends the navigation file's TGD (and the runs put the message's clock
  // in the ranges); 0: TGD 0, as the program always sent it.
  int32_t SatClockFromMessage = 0;
  // 1: the stream carries the record the ranges fly just after the page grid's start
  // (chosen at t0 + 1 ms); 0: the record chosen at t0 itself, which at an even hour of a
  // file's own epochs can be none, so record 0.
  int32_t NavRecordAsRanges = 0;
};

const platform::SettingTable<NavPanelValues>& NavSettingTable();

// What the two generation commands read: the panel values and the scenario's.
struct NavMessageSettings : NavPanelValues {
  std::array<double, 4> ionoAlpha{};  // broadcast Klobuchar alpha0..alpha3
  std::array<double, 4> ionoBeta{};   // broadcast Klobuchar beta0..beta3
  int OrbitsValid = 0;
  int KeepOrbitEpochs = 0;  // 0: orbits are re-dated to the scenario first
  int ScenarioYear = 2000;
  int ScenarioMonth = 1;
  int ScenarioDay = 1;
  int ScenarioHour = 0;
  int ScenarioMinute = 0;
  double ScenarioSecond = 0.0;
  int LeapSeconds = 0;
  int ScenarioDuration = 0;  // min; read, but the message length is fixed
};

// The confirmations the front end asks before each command, with this title.
inline constexpr const char* kConfirmationTitle = "Confirmation message";
inline constexpr const char* kGenNavConfirmation =
    " Are you sure you want to write \n navigation message file ? \n Existing file will be "
    "overwritten.";
inline constexpr const char* kGenNavMultiConfirmation =
    " Are you sure you want to overwrite \n navigation message files \n using current scenario ?";

// Re-dating of the orbit table to the scenario time (seconds of week, week), run before
// generation when KeepOrbitEpochs is 0. The front end passes the program's re-dating.
using RedateOrbitsFn = std::function<void(double secondsOfWeek, int32_t week)>;

// WriteNavigationFiles: the message of settings.navPrn into <dataDir>/simulated.nvb and
// <dataDir>/simulated.nva. Returns 0, or -1 when no orbits are loaded, the PRN is not
// 1..32 (both "Error message" popups) or a file cannot be created (a message on the
// standard output). The confirmation belongs to the caller.
int WriteNavigationFiles(const NavMessageSettings& settings, orbits::ConstellationTable& table,
            const std::filesystem::path& dataDir, NavMessageState& state,
            const platform::Messages& messages, const RedateOrbitsFn& redateOrbits = {});

// Re-dates the table as the first two messages of WriteAllNavigationFiles would before they
// are made. True when the second left it as the first did (or nothing re-dates it): every
// message then sees this table, and they can be made from it (or a copy) with no
// re-dating, the same bytes. False, with the table as it was, otherwise.
bool SettleForMessages(const NavMessageSettings& settings, orbits::ConstellationTable& table,
                       const RedateOrbitsFn& redateOrbits);

// WriteAllNavigationFiles: the messages of PRN 1 to 32 into <dataDir>/NAV/navbin<prn> and
// <dataDir>/NAV/navascii<prn>. Returns 0, or -1 as WriteNavigationFiles; a file that cannot be
// created stops the command at that PRN (with `threads` above 1 the messages are made on
// that many threads, the same bytes; the PRNs after a failed one may then be written too).
int WriteAllNavigationFiles(const NavMessageSettings& settings, orbits::ConstellationTable& table,
                  const std::filesystem::path& dataDir, NavMessageState& state,
                  const platform::Messages& messages, const RedateOrbitsFn& redateOrbits = {},
                  int threads = 1, const NavBitCopies* copies = nullptr);

}  // namespace vorel::navmsg
