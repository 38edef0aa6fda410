#pragma once
// The record files of an observation run: .log, .god, .srv, .scn, the RINEX 2.11
// observation file, and the skeleton of a reference station's event file. Each format
// is fixed to the byte: the .scn record is read back by the DIF generator.

#include <cstdint>
#include <filesystem>
#include <array>
#include <memory>
#include <string>

#include "observation/epoch.h"
#include "observation/epoch_sink.h"

namespace vorel::platform {
class OutputFile;
}

namespace vorel::observation {

// .log: "# <timeMs>\n" per epoch.
void WriteLogLine(platform::OutputFile& file, int32_t timeMs);
// .god: "\n <timeMs>" per epoch: the file opens with an empty line and has no final newline.
void WriteGodItem(platform::OutputFile& file, int32_t timeMs);
void WriteSrvRecord(platform::OutputFile& file, const EpochResult& result);
void WriteScnRecord(platform::OutputFile& file, const EpochResult& result);

// The fixed 15-line header; with `standardLayout` the observation types stand in their
// RINEX 2.11 columns.
void WriteRinexHeader(platform::OutputFile& file, bool standardLayout = false);
// One epoch; nothing at all for an empty epoch with flag 0, 1 or 6. With `standardLayout`
// satellite lists longer than 12 continue on continuation lines. With `dopplerHz` D1 is
// written in Hz (the program's own files carry thousandths of it).
void WriteRinexEpoch(platform::OutputFile& file, const EpochResult& result, int32_t eventFlag,
                     bool standardLayout = false, bool dopplerHz = false);

// What a header that tells the run says: the station, the receiver's position, the
// interval and the time of the first observation.
struct RinexRunHeader {
  std::string marker = "VORL";
  std::array<double, 3> approxEcef{};  // m
  int32_t intervalMs = 0;              // 0: no INTERVAL line (a trajectory sets its own times)
  int32_t gpsWeek = 0;
  int32_t firstTimeMs = 0;  // ms of the week
};
// A RINEX 2.11 observation header from the run, in the standard columns: C1 L1 D1 with
// D1 in Hz, GPS time. The program's fixed header describes another site and another day.
void WriteRinexRunHeader(platform::OutputFile& file, const RinexRunHeader& header);

// Digit 0..9 from a signal level, compared in single precision.
int SignalStrengthDigit(double signalLevel);

struct RinexCalendar {
  int32_t year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double second = 0.0;
};
RinexCalendar RinexEpochCalendar(int32_t gpsWeek, int32_t timeMs);

// The sink that writes the record of `recordType` to `file`, or null for a type that
// writes no record. Each writes every epoch but a run's first; the RINEX header is the
// caller's, written before the run.
std::unique_ptr<EpochSink> MakeRecordSink(int32_t recordType, platform::OutputFile& file,
                                          bool rinexStandardLayout = false);
// The RINEX sink of a run whose header tells the run (standard columns, D1 in Hz). The
// sink writes the header itself, with the position and time of the first epoch that has
// observations; `predicted` stands when no such epoch comes before the run ends.
std::unique_ptr<EpochSink> MakeRinexRunSink(platform::OutputFile& file,
                                            const RinexRunHeader& predicted);

// The event-file header line (with its leading blank), as written for a station.
extern const char kEventFileHeader[];
// Writes the event skeleton to `path`; false when the file cannot be created.
bool WriteEventSkeleton(const std::filesystem::path& path);

}  // namespace vorel::observation
