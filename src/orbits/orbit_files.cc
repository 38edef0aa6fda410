#include "orbits/orbit_files.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <string_view>

#include "gnss/time_coords.h"
#include "platform/scan.h"

namespace vorel::orbits {
namespace {

constexpr int kClearedPrns = 32;
constexpr size_t kLineLength = 1000;
constexpr double kSqrtALow = 5100.0;
constexpr double kSqrtAHigh = 5500.0;

// Calendar arithmetic on int32 stays exact well inside these; a garbled date beyond them
// is not converted.
constexpr int32_t kYearLimit = 100000;
constexpr int32_t kDayLimit = 1000000;

void Warn(const platform::Messages& messages, const platform::LineReader& file,
          std::string_view text) {
  messages.Warn(fmt::format("{}:{}: {}", file.path(), file.lineNumber(), text));
}

bool PrnInTable(int32_t prn) { return prn >= 1 && prn <= kTableRows; }

// Both loaders start by marking record 0 of PRN 1 to 32 unusable and forgetting the
// record counts; records above 0 and the fields of record 0 stay.
void ClearForLoad(ConstellationTable& table) {
  for (int index = 0; index < kClearedPrns; ++index) {
    SatelliteOrbits& row = table.rows[index];
    row.trueRecords[0].status = 0;
    row.broadcastRecords[0].status = 0;
    row.recordCount = 0;
  }
}

// Only the first sqrtA in the GPS range counts; later ones change nothing.
void CheckSqrtA(double sqrtA, int& result) {
  if (result == -1 && sqrtA > kSqrtALow && sqrtA < kSqrtAHigh) result = 1;
}

// Truncation to an integer and its low 16 bits, defined for every double (NaN and
// infinities give 0).
int16_t LowSixteenBits(double value) {
  if (!std::isfinite(value)) return 0;
  const double wrapped = std::fmod(std::trunc(value), 65536.0);  // exact, |wrapped| < 65536
  const auto bits = static_cast<uint16_t>(static_cast<int32_t>(wrapped) & 0xFFFF);
  return static_cast<int16_t>(bits);
}

// ---- YUMA ----------------------------------------------------------------------------

enum class YumaField { Id, Health, e, Time, i0, OmegaDot, sqrtA, Omega0, omega, M0, af0, af1 };

struct YumaKey {
  std::string_view key;
  std::string_view format;
  YumaField field;
};

// Matched in this order by exact prefix; the first match decides.
constexpr std::array<YumaKey, 12> kYumaKeys = {{
    {"ID:", "%s>%s[d]%i", YumaField::Id},
    {"Health:", "%s>%s[d]%i", YumaField::Health},
    {"Eccentr", "%s>%s[d]%f", YumaField::e},
    {"Time", "%s>%s[d]%s[d]%s[d]%f", YumaField::Time},
    {"Orbital", "%s>%s[d]%s[d]%f", YumaField::i0},
    {"Rate", "%s>%s[d]%s[d]%s[d]%s[d]%f", YumaField::OmegaDot},
    {"SQRT", "%s>%s[d]%s[d]%s[d]%f", YumaField::sqrtA},
    {"Right", "%s>%s[d]%s[d]%s[d]%s[d]%f", YumaField::Omega0},
    {"Argument", "%s>%s[d]%s[d]%s[d]%f", YumaField::omega},
    {"Mean", "%s>%s[d]%s[d]%f", YumaField::M0},
    {"Af0", "%s>%s[d]%f", YumaField::af0},
    {"Af1", "%s>%s[d]%f", YumaField::af1},
}};

const YumaKey* FindYumaKey(std::string_view line) {
  for (const YumaKey& key : kYumaKeys)
    if (line.substr(0, key.key.size()) == key.key) return &key;
  return nullptr;
}

void StoreYumaValue(YumaField field, double value, OrbitRecord& r) {
  switch (field) {
    case YumaField::e:
      r.e = value;
      break;
    case YumaField::i0:
      r.i0 = value;
      break;
    case YumaField::OmegaDot:
      r.OmegaDot = value;
      break;
    case YumaField::sqrtA:
      r.sqrtA = value;
      break;
    case YumaField::Omega0:
      r.Omega0 = value;
      break;
    case YumaField::omega:
      r.omega = value;
      break;
    case YumaField::M0:
      r.M0 = value;
      break;
    case YumaField::af0:
      r.af0 = value;
      break;
    case YumaField::af1:
      r.af1 = value;
      break;
    default:
      break;  // ID, Health and Time are handled by the reader itself
  }
}

// ---- RINEX ---------------------------------------------------------------------------

// The values of a navigation record as scanned. They live for the whole read: a field
// that does not scan keeps the value of the previous record, which is stored as if read.
struct RinexTemporaries {
  int32_t prn = 0, year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double seconds = 0.0, af0 = 0.0, af1 = 0.0, af2 = 0.0;
  double iode = 0.0, Crs = 0.0, deltaN = 0.0, M0 = 0.0;
  double Cuc = 0.0, e = 0.0, Cus = 0.0, sqrtA = 0.0;
  double toe = 0.0, Cic = 0.0, Omega0 = 0.0, Cis = 0.0;
  double i0 = 0.0, Crc = 0.0, omega = 0.0, OmegaDot = 0.0;
  double IDOT = 0.0, codesOnL2 = 0.0, gpsWeek = 0.0, l2pFlag = 0.0;
  double accuracy = 0.0, health = 0.0, tgd = 0.0, iodc = 0.0;
  double transmissionTime = 0.0, fitInterval = 0.0, spare1 = 0.0, spare2 = 0.0;
  gnss::GpsTime clockTime{};
};

// The record the lines of the current block go to, in both sets; null while the block
// is skipped (or before the first block).
struct RinexTarget {
  OrbitRecord* trueRecord = nullptr;
  OrbitRecord* broadcastRecord = nullptr;
  bool Valid() const { return trueRecord != nullptr; }
};

template <typename Store>
void StoreBoth(RinexTarget& target, Store store) {
  if (!target.Valid()) return;
  store(*target.trueRecord);
  store(*target.broadcastRecord);
}

void RinexLineOne(const std::string& line, const platform::LineReader& file,
                  ConstellationTable& table, RinexTemporaries& v, RinexTarget& target,
                  std::array<bool, kTableRows>& overflowReported,
                  const platform::Messages& messages) {
  const int filled = platform::ScanLine(
      line, "%s>%i%i%i%i%i%i%f%f%f%f",
      {&v.prn, &v.year, &v.month, &v.day, &v.hour, &v.minute, &v.seconds, &v.af0, &v.af1, &v.af2});
  if (filled < 10)
    Warn(messages, file,
         fmt::format("record line 1 scanned {} of 10 values", filled < 0 ? 0 : filled));

  if (v.year < 99) v.year += 2000;
  if (v.year > -kYearLimit && v.year < kYearLimit && v.day > -kDayLimit && v.day < kDayLimit) {
    gnss::CalendarToGpsTime(v.year, v.month, v.day, v.hour, v.minute, v.seconds, 0,
                                   v.clockTime);
  } else {
    Warn(messages, file, "date out of range; week and toc of the previous record are used");
  }

  target = RinexTarget{};
  if (!PrnInTable(v.prn)) {
    Warn(messages, file,
         fmt::format("PRN {} lies outside the table (1 to {}); record skipped", v.prn, kTableRows));
    return;
  }
  SatelliteOrbits& row = table.rows[v.prn - 1];
  row.prn = v.prn;
  const int32_t k = row.recordCount;
  if (k < 0 || k >= kRecordsPerSet) {
    if (!overflowReported[v.prn - 1]) {
      Warn(messages, file,
           fmt::format("PRN {} has more than {} records; the first {} are kept, the rest skipped",
                       v.prn, kRecordsPerSet, kRecordsPerSet));
      overflowReported[v.prn - 1] = true;
    }
    return;
  }
  row.recordCount = k + 1;
  target.trueRecord = &row.trueRecords[k];
  target.broadcastRecord = &row.broadcastRecords[k];
  StoreBoth(target, [&](OrbitRecord& r) {
    r.week = v.clockTime.week;
    r.toc = v.clockTime.secondsOfWeek;
    r.af0 = v.af0;
    r.af1 = v.af1;
    r.af2 = v.af2;
  });
}

// Lines 2 to 8 of a record; `needed` is how many leading values the line must give for
// nothing to be reported.
void RinexOrbitLine(int lineInRecord, const std::string& line, const platform::LineReader& file,
                    RinexTemporaries& v, RinexTarget& target, int& result,
                    const platform::Messages& messages) {
  constexpr std::string_view kFormat = "%s>%f%f%f%f";
  int filled = 0;
  int needed = 4;
  switch (lineInRecord) {
    case 2:
      filled = platform::ScanLine(line, kFormat, {&v.iode, &v.Crs, &v.deltaN, &v.M0});
      StoreBoth(target, [&](OrbitRecord& r) {
        r.iode = LowSixteenBits(v.iode);
        r.Crs = v.Crs;
        r.deltaN = v.deltaN;
        r.M0 = v.M0;
      });
      break;
    case 3:
      filled = platform::ScanLine(line, kFormat, {&v.Cuc, &v.e, &v.Cus, &v.sqrtA});
      StoreBoth(target, [&](OrbitRecord& r) {
        r.Cuc = v.Cuc;
        r.e = v.e;
        r.Cus = v.Cus;
        r.sqrtA = v.sqrtA;
      });
      CheckSqrtA(v.sqrtA, result);
      break;
    case 4:
      filled = platform::ScanLine(line, kFormat, {&v.toe, &v.Cic, &v.Omega0, &v.Cis});
      StoreBoth(target, [&](OrbitRecord& r) {
        r.toe = v.toe;
        r.Cic = v.Cic;
        r.Omega0 = v.Omega0;
        r.Cis = v.Cis;
      });
      break;
    case 5:
      filled = platform::ScanLine(line, kFormat, {&v.i0, &v.Crc, &v.omega, &v.OmegaDot});
      StoreBoth(target, [&](OrbitRecord& r) {
        r.i0 = v.i0;
        r.Crc = v.Crc;
        r.omega = v.omega;
        r.OmegaDot = v.OmegaDot;
      });
      break;
    case 6:
      filled = platform::ScanLine(line, kFormat, {&v.IDOT, &v.codesOnL2, &v.gpsWeek, &v.l2pFlag});
      needed = 1;
      StoreBoth(target, [&](OrbitRecord& r) { r.IDOT = v.IDOT; });
      break;
    case 7:
      filled = platform::ScanLine(line, kFormat, {&v.accuracy, &v.health, &v.tgd, &v.iodc});
      needed = 2;
      // A record that is not healthy keeps whatever status it held.
      if (v.health == 0.0) StoreBoth(target, [&](OrbitRecord& r) { r.status = kStatusUsable; });
      break;
    default:
      filled = platform::ScanLine(line, kFormat,
                                  {&v.transmissionTime, &v.fitInterval, &v.spare1, &v.spare2});
      needed = 0;
      break;
  }
  if (filled < needed)
    Warn(messages, file,
         fmt::format("record line {} scanned {} of {} values; earlier values are used",
                     lineInRecord, filled < 0 ? 0 : filled, needed));
}

}  // namespace

int ReadYumaAlmanac(platform::LineReader& file, ConstellationTable& table,
                    const platform::Messages& messages) {
  ClearForLoad(table);

  std::string line;
  if (file.ReadLine(line, kLineLength) < 0) {
    messages.Warn(fmt::format("{}: the first line cannot be read", file.path()));
    return -1;
  }

  int result = -1;
  // One temporary of each kind for the whole read: a value that does not scan leaves
  // the last one read, and that is stored.
  int32_t intValue = 0;
  double value = 0.0;
  // Current row, or none: before the first ID line, and after an ID outside the table.
  SatelliteOrbits* row = nullptr;
  bool seenId = false;

  while (file.ReadLine(line, kLineLength) != -1) {
    const YumaKey* key = FindYumaKey(line);
    if (key == nullptr) continue;  // banner, week and blank lines

    const bool integer = key->field == YumaField::Id || key->field == YumaField::Health;
    const int filled = integer ? platform::ScanLine(line, key->format, {&intValue})
                               : platform::ScanLine(line, key->format, {&value});
    if (filled < 1)
      Warn(messages, file,
           fmt::format("no value after \"{}\"; the previous value is used", key->key));

    if (key->field == YumaField::Id) {
      seenId = true;
      if (!PrnInTable(intValue)) {
        Warn(messages, file,
             fmt::format("PRN {} lies outside the table (1 to {}); its almanac is skipped",
                         intValue, kTableRows));
        row = nullptr;
        continue;
      }
      row = &table.rows[intValue - 1];
      row->trueRecords[0].prn = intValue;
      row->broadcastRecords[0].prn = intValue;
      continue;
    }

    // The range check looks at every sqrtA read, stored or not.
    if (key->field == YumaField::sqrtA) CheckSqrtA(value, result);

    if (row == nullptr) {
      if (!seenId) Warn(messages, file, "value before the first \"ID:\" line is skipped");
      continue;
    }
    if (key->field == YumaField::Health) {
      if (intValue == 0) {
        row->trueRecords[0].status = kStatusUsable;
        row->broadcastRecords[0].status = kStatusUsable;
        row->recordCount = 1;
      }
      continue;
    }
    StoreYumaValue(key->field, value, row->trueRecords[0]);
    StoreYumaValue(key->field, value, row->broadcastRecords[0]);
  }
  return result;
}

int ReadRinexNavigation(ConstellationTable& table, const std::string& path,
                        const platform::Messages& messages) {
  ClearForLoad(table);
  if (path.empty()) return -1;  // the file choice was cancelled

  platform::LineReader file;
  if (!file.Open(path)) {
    messages.Warn(fmt::format("{}: cannot be opened", path));
    return -1;
  }

  std::string line;
  int length = 0;
  do {
    length = file.ReadLine(line, kLineLength);
    if (length == -1) {
      Warn(messages, file, "end of file before \"END OF HEADER\"");
      return -1;
    }
  } while (line.find("END OF HEADER") == std::string::npos);
  if (length <= 0) return -1;

  int result = -1;
  RinexTemporaries values;
  RinexTarget target;
  std::array<bool, kTableRows> overflowReported{};
  bool ended = false;  // end of file met; the rest of the record reads nothing

  for (;;) {
    for (int lineInRecord = 1; lineInRecord <= 8; ++lineInRecord) {
      length = file.ReadLine(line, kLineLength);
      if (length <= 0) {
        // A line that cannot be read is passed over; only the eighth ends the reading.
        if (lineInRecord == 8) return result;
        if (length == 0) {
          Warn(messages, file, fmt::format("empty record line {} passed over", lineInRecord));
        } else if (!ended) {
          ended = true;
          if (lineInRecord > 1) Warn(messages, file, "the file ends inside a record");
        }
        continue;
      }
      if (lineInRecord == 1) {
        RinexLineOne(line, file, table, values, target, overflowReported, messages);
      } else {
        RinexOrbitLine(lineInRecord, line, file, values, target, result, messages);
      }
    }
  }
}

int LoadAlmanac(ConstellationTable& table, ConstellationState& state, const LoadAlmanacArgs& args,
                 const platform::Messages& messages) {
  // Marked before the file is chosen; a cancel leaves every record 0 at 1 (unusable).
  for (int index = 0; index < kClearedPrns; ++index) {
    table.rows[index].trueRecords[0].status = 1;
    table.rows[index].broadcastRecords[0].status = 1;
  }

  int result = 0;
  if (args.KeepOrbitEpochs == 0) {
    if (args.path.empty()) {
      result = -1;
    } else {
      platform::LineReader file;
      if (!file.Open(args.path)) messages.Warn(fmt::format("{}: cannot be opened", args.path));
      // A file that did not open reads as one with no first line.
      result = ReadYumaAlmanac(file, table, messages);
      state.orbitFileName = args.path;
    }
  } else if (args.KeepOrbitEpochs == 1) {
    if (!args.path.empty()) state.orbitFileName = args.path;
    result = ReadRinexNavigation(table, args.path, messages);
  }

  if (result > 0) {
    state.OrbitsValid = true;
    state.galileoLoaded = false;
    state.orbitIndicator = true;
  }
  ShowOrbitRecord(table, state.satelliteCount, state.panel);
  return result;
}

}  // namespace vorel::orbits
