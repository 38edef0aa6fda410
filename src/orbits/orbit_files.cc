#include "orbits/orbit_files.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <limits>
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

// ---- Value bounds ----------------------------------------------------------------------

// What a stored value may be. The bounds are far outside anything a real broadcast or
// almanac carries; they only keep out values that make no orbit (e = 1.5 has no Kepler
// solution, 9.9D+99 or NaN gives NaN positions for every epoch). docs/orbits.md lists them.
struct FieldBound {
  std::string_view name;
  double low, high;
  bool lowIncluded = true, highIncluded = true;
};

constexpr double kHuge = std::numeric_limits<double>::max();
constexpr FieldBound kAnyFinite{"", -kHuge, kHuge};
constexpr FieldBound kEccentricity{"eccentricity", 0.0, 1.0, true, false};
constexpr FieldBound kSqrtA{"sqrtA", 0.0, 100000.0, false, true};
constexpr double kAngleLimit = 100.0;    // radians
constexpr double kRateLimit = 1e-3;      // radians per second
constexpr double kHarmonicAngle = 1.0;   // radians (Cuc, Cus, Cic, Cis)
constexpr double kHarmonicRadius = 1e5;  // metres (Crc, Crs)
constexpr double kClockLimit = 1.0;      // s, s/s, s/s^2
constexpr double kToeLimit = 1e7;        // seconds

constexpr FieldBound Symmetric(std::string_view name, double limit) {
  return FieldBound{name, -limit, limit};
}

// Empty when the value is inside; otherwise the reason, for the warning.
std::string OutOfBounds(double value, const FieldBound& b) {
  if (!std::isfinite(value)) return fmt::format("{} is not a finite number", b.name);
  const bool aboveLow = b.lowIncluded ? value >= b.low : value > b.low;
  const bool belowHigh = b.highIncluded ? value <= b.high : value < b.high;
  if (aboveLow && belowHigh) return "";
  return fmt::format("{} {} is outside {}{}, {}{}", b.name, value, b.lowIncluded ? '[' : '(', b.low,
                     b.high, b.highIncluded ? ']' : ')');
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

FieldBound YumaBound(YumaField field) {
  switch (field) {
    case YumaField::e:
      return kEccentricity;
    case YumaField::sqrtA:
      return kSqrtA;
    case YumaField::i0:
      return Symmetric("orbital inclination", kAngleLimit);
    case YumaField::Omega0:
      return Symmetric("right ascension", kAngleLimit);
    case YumaField::omega:
      return Symmetric("argument of perigee", kAngleLimit);
    case YumaField::M0:
      return Symmetric("mean anomaly", kAngleLimit);
    case YumaField::OmegaDot:
      return Symmetric("rate of right ascension", kRateLimit);
    case YumaField::af0:
      return Symmetric("af0", kClockLimit);
    case YumaField::af1:
      return Symmetric("af1", kClockLimit);
    default:
      return kAnyFinite;  // not stored
  }
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

// What is needed to take a record back when one of its values is out of bounds: the
// row whose count it raised and the slot as it was before, in both sets.
struct RinexRecordCheck {
  SatelliteOrbits* row = nullptr;
  OrbitRecord savedTrue{}, savedBroadcast{};
  bool refused = false;
  bool sqrtASeen = false;  // line 3 was read: its sqrtA takes part in the success check
};

// Checks the values of one record line; the first value out of bounds refuses the
// record, with the file and line in the warning.
void CheckRinexValues(std::initializer_list<std::pair<double, FieldBound>> values,
                      const platform::LineReader& file, int32_t prn, RinexRecordCheck& check,
                      const platform::Messages& messages) {
  if (check.refused) return;
  for (const auto& [value, bound] : values) {
    const std::string reason = OutOfBounds(value, bound);
    if (reason.empty()) continue;
    Warn(messages, file, fmt::format("{}; the record of PRN {} is refused", reason, prn));
    check.refused = true;
    return;
  }
}

// The end of a record: a refused one is taken back, as if the file had not held it; a
// sound one lets its sqrtA count for success.
void FinishRinexRecord(const RinexTemporaries& v, RinexTarget& target, RinexRecordCheck& check,
                       int& result) {
  if (check.refused) {
    if (check.row != nullptr && target.Valid()) {
      *target.trueRecord = check.savedTrue;
      *target.broadcastRecord = check.savedBroadcast;
      check.row->recordCount -= 1;
    } else if (target.Valid()) {
      // A record without its first line wrote into the record before it: that record
      // now holds the refused values and is made unusable.
      StoreBoth(target, [](OrbitRecord& r) { r.status = 0; });
    }
    target = RinexTarget{};
  } else if (check.sqrtASeen) {
    CheckSqrtA(v.sqrtA, result);
  }
  check = RinexRecordCheck{};
}

void RinexLineOne(const std::string& line, const platform::LineReader& file,
                  ConstellationTable& table, RinexTemporaries& v, RinexTarget& target,
                  RinexRecordCheck& check, std::array<bool, kTableRows>& overflowReported,
                  const platform::Messages& messages) {
  const int filled = platform::ScanLine(
      line, "%s>%i%i%i%i%i%i%f%f%f%f",
      {&v.prn, &v.year, &v.month, &v.day, &v.hour, &v.minute, &v.seconds, &v.af0, &v.af1, &v.af2});
  if (filled < 10)
    Warn(messages, file,
         fmt::format("record line 1 scanned {} of 10 values", filled < 0 ? 0 : filled));

  if (v.year < 99) v.year += 2000;
  if (v.year > -kYearLimit && v.year < kYearLimit && v.day > -kDayLimit && v.day < kDayLimit &&
      std::isfinite(v.seconds)) {
    gnss::CalendarToGpsTime(v.year, v.month, v.day, v.hour, v.minute, v.seconds, 0, v.clockTime);
  } else {
    Warn(messages, file, "date out of range; week and toc of the previous record are used");
  }
  CheckRinexValues({{v.clockTime.secondsOfWeek, Symmetric("toc", kToeLimit)},
                    {v.af0, Symmetric("af0", kClockLimit)},
                    {v.af1, Symmetric("af1", kClockLimit)},
                    {v.af2, Symmetric("af2", kClockLimit)}},
                   file, v.prn, check, messages);

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
  check.row = &row;
  check.savedTrue = row.trueRecords[k];
  check.savedBroadcast = row.broadcastRecords[k];
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
                    RinexTemporaries& v, RinexTarget& target, RinexRecordCheck& check,
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
      CheckRinexValues({{v.iode, kAnyFinite},
                        {v.Crs, Symmetric("Crs", kHarmonicRadius)},
                        {v.deltaN, Symmetric("deltaN", kRateLimit)},
                        {v.M0, Symmetric("M0", kAngleLimit)}},
                       file, v.prn, check, messages);
      break;
    case 3:
      filled = platform::ScanLine(line, kFormat, {&v.Cuc, &v.e, &v.Cus, &v.sqrtA});
      StoreBoth(target, [&](OrbitRecord& r) {
        r.Cuc = v.Cuc;
        r.e = v.e;
        r.Cus = v.Cus;
        r.sqrtA = v.sqrtA;
      });
      check.sqrtASeen = true;
      CheckRinexValues({{v.Cuc, Symmetric("Cuc", kHarmonicAngle)},
                        {v.e, kEccentricity},
                        {v.Cus, Symmetric("Cus", kHarmonicAngle)},
                        {v.sqrtA, kSqrtA}},
                       file, v.prn, check, messages);
      break;
    case 4:
      filled = platform::ScanLine(line, kFormat, {&v.toe, &v.Cic, &v.Omega0, &v.Cis});
      StoreBoth(target, [&](OrbitRecord& r) {
        r.toe = v.toe;
        r.Cic = v.Cic;
        r.Omega0 = v.Omega0;
        r.Cis = v.Cis;
      });
      CheckRinexValues({{v.toe, Symmetric("toe", kToeLimit)},
                        {v.Cic, Symmetric("Cic", kHarmonicAngle)},
                        {v.Omega0, Symmetric("Omega0", kAngleLimit)},
                        {v.Cis, Symmetric("Cis", kHarmonicAngle)}},
                       file, v.prn, check, messages);
      break;
    case 5:
      filled = platform::ScanLine(line, kFormat, {&v.i0, &v.Crc, &v.omega, &v.OmegaDot});
      StoreBoth(target, [&](OrbitRecord& r) {
        r.i0 = v.i0;
        r.Crc = v.Crc;
        r.omega = v.omega;
        r.OmegaDot = v.OmegaDot;
      });
      CheckRinexValues({{v.i0, Symmetric("i0", kAngleLimit)},
                        {v.Crc, Symmetric("Crc", kHarmonicRadius)},
                        {v.omega, Symmetric("omega", kAngleLimit)},
                        {v.OmegaDot, Symmetric("OmegaDot", kRateLimit)}},
                       file, v.prn, check, messages);
      break;
    case 6:
      filled = platform::ScanLine(line, kFormat, {&v.IDOT, &v.codesOnL2, &v.gpsWeek, &v.l2pFlag});
      needed = 1;
      StoreBoth(target, [&](OrbitRecord& r) { r.IDOT = v.IDOT; });
      CheckRinexValues({{v.IDOT, Symmetric("IDOT", kRateLimit)},
                        {v.codesOnL2, kAnyFinite},
                        {v.gpsWeek, kAnyFinite},
                        {v.l2pFlag, kAnyFinite}},
                       file, v.prn, check, messages);
      break;
    case 7:
      filled = platform::ScanLine(line, kFormat, {&v.accuracy, &v.health, &v.tgd, &v.iodc});
      needed = 2;
      // A record that is not healthy keeps whatever status it held.
      if (v.health == 0.0) StoreBoth(target, [&](OrbitRecord& r) { r.status = kStatusUsable; });
      if (filled >= 3) StoreBoth(target, [&](OrbitRecord& r) { r.fileTgd = v.tgd; });
      CheckRinexValues({{v.accuracy, kAnyFinite},
                        {v.health, kAnyFinite},
                        {v.tgd, kAnyFinite},
                        {v.iodc, kAnyFinite}},
                       file, v.prn, check, messages);
      break;
    default:
      filled = platform::ScanLine(line, kFormat,
                                  {&v.transmissionTime, &v.fitInterval, &v.spare1, &v.spare2});
      needed = 0;
      CheckRinexValues({{v.transmissionTime, kAnyFinite},
                        {v.fitInterval, kAnyFinite},
                        {v.spare1, kAnyFinite},
                        {v.spare2, kAnyFinite}},
                       file, v.prn, check, messages);
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
  // The almanac block being read: whether one of its sqrtA passed, and whether a value
  // out of bounds refused it. A block counts for success only when it is not refused.
  bool blockSqrtAPasses = false;
  bool blockRefused = false;
  auto endBlock = [&] {
    if (blockSqrtAPasses && !blockRefused) result = 1;
    blockSqrtAPasses = false;
    blockRefused = false;
  };

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
      endBlock();
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

    // The range check looks at every sqrtA read, stored or not; a sqrtA of a stored
    // almanac counts once the whole block is known to be sound.
    if (key->field == YumaField::sqrtA && !blockRefused) {
      if (row == nullptr)
        CheckSqrtA(value, result);
      else
        blockSqrtAPasses = blockSqrtAPasses || (value > kSqrtALow && value < kSqrtAHigh);
    }

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
    if (key->field != YumaField::Time) {
      const std::string reason = OutOfBounds(value, YumaBound(key->field));
      if (!reason.empty()) {
        // The almanac is left unusable, as a load leaves every row it does not fill.
        Warn(messages, file,
             fmt::format("{}; the almanac of PRN {} is refused", reason, row->trueRecords[0].prn));
        row->trueRecords[0].status = 0;
        row->broadcastRecords[0].status = 0;
        row->recordCount = 0;
        row = nullptr;
        blockRefused = true;
        continue;
      }
    }
    StoreYumaValue(key->field, value, row->trueRecords[0]);
    StoreYumaValue(key->field, value, row->broadcastRecords[0]);
  }
  endBlock();
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
  RinexRecordCheck check;
  std::array<bool, kTableRows> overflowReported{};
  bool ended = false;  // end of file met; the rest of the record reads nothing

  for (;;) {
    for (int lineInRecord = 1; lineInRecord <= 8; ++lineInRecord) {
      length = file.ReadLine(line, kLineLength);
      if (length <= 0) {
        // A line that cannot be read is passed over; only the eighth ends the reading.
        if (lineInRecord == 8) {
          FinishRinexRecord(values, target, check, result);
          return result;
        }
        if (length == 0) {
          Warn(messages, file, fmt::format("empty record line {} passed over", lineInRecord));
        } else if (!ended) {
          ended = true;
          if (lineInRecord > 1) Warn(messages, file, "the file ends inside a record");
        }
        continue;
      }
      if (lineInRecord == 1) {
        RinexLineOne(line, file, table, values, target, check, overflowReported, messages);
      } else {
        RinexOrbitLine(lineInRecord, line, file, values, target, check, messages);
      }
    }
    FinishRinexRecord(values, target, check, result);
  }
}

int32_t DetectOrbitFileType(const std::string& path) {
  constexpr int kLinesLooked = 200;
  platform::LineReader file;
  if (!file.Open(path)) return -1;
  std::string line;
  for (int n = 0; n < kLinesLooked && file.ReadLine(line, kLineLength) != -1; ++n) {
    if (line.find("RINEX VERSION / TYPE") != std::string::npos ||
        line.find("END OF HEADER") != std::string::npos)
      return 1;
    if (line.rfind("ID:", 0) == 0) return 0;
  }
  return -1;
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
