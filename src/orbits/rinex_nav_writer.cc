#include "orbits/rinex_nav_writer.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include <fmt/format.h>

#include "gnss/calendar.h"
#include "platform/text_file.h"

namespace vorel::orbits {
namespace {

std::string HeaderLine(const std::string& content, const char* label) {
  return fmt::format("{:<60}{:<20}\n", content.substr(0, 60), label);
}

// A record's satellite clock line and its seven orbit lines.
void WriteRecord(fmt::memory_buffer& out, const OrbitRecord& r, int prn, bool fileTgd) {
  const gnss::CalendarTime t = gnss::GpsToCalendar(r.week, r.toc);
  auto o = std::back_inserter(out);
  fmt::format_to(o, "{:2d} {:02d} {:2d} {:2d} {:2d} {:2d}{:5.1f}{}{}{}\n", prn, t.year % 100,
                 t.month, t.day, t.hour, t.minute, t.second, FormatD(r.af0, 19, 12), FormatD(r.af1, 19, 12),
                 FormatD(r.af2, 19, 12));
  const double rows[7][4] = {
      {static_cast<double>(r.iode), r.Crs, r.deltaN, r.M0},
      {r.Cuc, r.e, r.Cus, r.sqrtA},
      {r.toe, r.Cic, r.Omega0, r.Cis},
      {r.i0, r.Crc, r.omega, r.OmegaDot},
      // Codes on L2: C/A; the week continues past 1023; no P-code data flag.
      {r.IDOT, 1.0, static_cast<double>(r.week), 0.0},
      // Accuracy 2 m, healthy, the record's TGD and IODC.
      {2.0, 0.0, fileTgd ? r.fileTgd : r.tgd, static_cast<double>(r.iodc)},
      // Transmitted at toe; fit interval 4 hours.
      {r.toe, 4.0, 0.0, 0.0}};
  for (int line = 0; line < 7; ++line) {
    fmt::format_to(o, "   ");
    const int fields = line == 6 ? 2 : 4;
    for (int k = 0; k < fields; ++k) fmt::format_to(o, "{}", FormatD(rows[line][k], 19, 12));
    out.push_back('\n');
  }
}

}  // namespace

std::string FormatD(double value, int width, int digits) {
  std::string body;
  if (value == 0.0 || !std::isfinite(value)) {
    body = " 0." + std::string(digits, '0') + "D+00";
  } else {
    // "%.*E" gives d.ddd with `digits` digits, rounded; the point moves one place left.
    char text[64];
    std::snprintf(text, sizeof text, "%.*E", digits - 1, std::fabs(value));
    const char* e = std::strchr(text, 'E');
    const int exponent = std::atoi(e + 1) + 1;
    std::string mantissa;
    for (const char* p = text; p < e; ++p)
      if (*p != '.') mantissa += *p;
    body = fmt::format("{}0.{}D{}{:02d}", value < 0 ? '-' : ' ', mantissa,
                       exponent < 0 ? '-' : '+', std::abs(exponent));
  }
  return fmt::format("{:>{}}", body, width);
}

int WriteRinexNavigation(const ConstellationTable& table, const RinexNavHeader& header,
                         const std::filesystem::path& path, std::string& error) {
  fmt::memory_buffer out;
  auto o = std::back_inserter(out);
  fmt::format_to(o, "{}", HeaderLine("     2.11           N: GPS NAV DATA", "RINEX VERSION / TYPE"));
  fmt::format_to(o, "{}",
                 HeaderLine(fmt::format("{:<20}{:<20}{:<20}", header.program, "", header.date),
                            "PGM / RUN BY / DATE"));
  if (header.hasIono) {
    std::string alpha = "  ", beta = "  ";
    for (int k = 0; k < 4; ++k) {
      alpha += FormatD(header.alpha[k], 12, 4);
      beta += FormatD(header.beta[k], 12, 4);
    }
    fmt::format_to(o, "{}{}", HeaderLine(alpha, "ION ALPHA"), HeaderLine(beta, "ION BETA"));
  }
  fmt::format_to(o, "{}", HeaderLine(fmt::format("{:6d}", header.leapSeconds), "LEAP SECONDS"));
  fmt::format_to(o, "{}", HeaderLine("", "END OF HEADER"));

  int written = 0;
  for (int prn = 1; prn <= 32; ++prn) {
    const SatelliteOrbits& row = table.rows[prn - 1];
    if (row.trueRecords[0].status != kStatusUsable) continue;
    const int count = std::min(row.recordCount, kRecordsPerSet);
    for (int k = 0; k < count; ++k) {
      if (row.broadcastRecords[k].sqrtA <= 0.0) continue;
      WriteRecord(out, row.broadcastRecords[k], prn, header.fileTgd);
      ++written;
    }
  }

  if (!platform::WriteWholeFile(path, std::string_view(out.data(), out.size()), error))
    return -1;
  return written;
}

}  // namespace vorel::orbits
