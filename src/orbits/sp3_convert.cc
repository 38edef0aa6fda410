#include "orbits/sp3_convert.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fmt/format.h>

#include "gnss/constants.h"
#include "gnss/time_coords.h"
#include "platform/text_file.h"

namespace vorel::orbits {
namespace {

struct Sp3Epoch {
  double secondsOfWeek = 0.0;
  double x = 0.0, y = 0.0, z = 0.0;  // km
  double clock = 0.0;                // microseconds
  double unused[3] = {0.0, 0.0, 0.0};
};

// The calendar fields of a header or epoch line, kept from line to line: a line that
// fails to scan leaves the values before it.
struct Sp3Calendar {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double seconds = 0.0;
};

bool Plausible(const Sp3Calendar& c) {
  return c.year >= 1980 && c.year <= 2200 && c.month >= 1 && c.month <= 12 && c.day >= 1 &&
         c.day <= 31 && c.hour >= 0 && c.hour <= 24 && c.minute >= 0 && c.minute <= 60 &&
         std::isfinite(c.seconds) && c.seconds >= 0.0 && c.seconds <= 61.0;
}

// Seconds of week of a calendar epoch; a date outside any sensible range keeps `previous`.
double EpochSeconds(const Sp3Calendar& c, int32_t leapSeconds, double previous,
                    int32_t* week = nullptr) {
  if (!Plausible(c)) return previous;
  gnss::GpsTime t;
  gnss::CalendarToGpsTime(c.year, c.month, c.day, c.hour, c.minute, c.seconds, leapSeconds, t);
  if (week) *week = t.week;
  return t.secondsOfWeek;
}

// The satellite ("+ ") and accuracy ("++") lists: each entry is three characters from
// the tenth on, and counts when it starts with a blank, "G" or "g". The converter walks
// them as the file's layout asks and uses nothing it finds there.
int WalkListLine(const std::string& line) {
  if (line.size() < 60) return 0;
  int counted = 0;
  for (size_t i = 9; i + 3 <= line.size(); i += 3) {
    const char c = line[i];
    if (c == ' ' || c == 'G' || c == 'g') ++counted;
  }
  return counted;
}

void WriteCoefficients(fmt::memory_buffer& out, const double* c) {
  // Twelve decimals: the degree-7 coefficient of a position arc is of the order of 1e-4
  // and is multiplied by up to 7^7 = 823543 at the arc's end, so six decimals would move
  // the end of an arc by metres; twelve keep it below a micrometre.
  for (int k = 0; k < kArcEpochs; ++k) {
    if (k > 0) out.push_back(',');
    fmt::format_to(std::back_inserter(out), "{:.12f}", c[k]);
  }
  out.push_back('\n');
}

bool StartsWith(const std::string& s, const char* prefix) {
  return s.compare(0, std::strlen(prefix), prefix) == 0;
}

}  // namespace

void PolynomialCoefficients(const double* x, const double* y, double* coefficients, int n) {
  if (n < 1) return;
  std::vector<double> s(n, 0.0);
  for (int k = 0; k < n; ++k) coefficients[k] = 0.0;
  s[n - 1] = -x[0];
  for (int i = 1; i < n; ++i) {
    for (int j = n - 1 - i; j <= n - 2; ++j) s[j] -= x[i] * s[j + 1];
    s[n - 1] -= x[i];
  }
  for (int j = 0; j < n; ++j) {
    double phi = n;
    for (int k = n - 1; k >= 1; --k) phi = k * s[k] + x[j] * phi;
    const double f = y[j] / phi;
    double b = 1.0;
    for (int k = n - 1; k >= 0; --k) {
      coefficients[k] += b * f;
      b = s[k] + x[j] * b;
    }
  }
}

int ConvertSp3ToPnm(const Sp3ConvertArgs& args, Sp3ConvertReport& report, std::string& error) {
  report = Sp3ConvertReport{};
  platform::LineReader in;
  std::string line;

  // Header pass: the first "#cP" or "#aP" line gives the system character and the start.
  if (!in.Open(args.input)) {
    error = fmt::format("{}: cannot be read", args.input.string());
    return -1;
  }
  char system = 0;
  Sp3Calendar start;
  while (in.ReadLine(line, kSp3LineChars) >= 0) {
    if (StartsWith(line, "#cP") || StartsWith(line, "#aP")) {
      system = line[1] == 'c' ? 'G' : ' ';
      std::sscanf(line.c_str() + 3, "%d %d %d %d %d %lf %d", &start.year, &start.month,
                  &start.day, &start.hour, &start.minute, &start.seconds, &report.epochCount);
      break;
    }
  }
  in.Close();
  if (system == 0) {
    error = fmt::format("{}: no \"#cP\" or \"#aP\" header line: not an SP3 position file",
                        args.input.string());
    return -1;
  }
  report.secondsOfWeek = EpochSeconds(start, args.LeapSeconds, 0.0, &report.week);

  fmt::memory_buffer out;
  fmt::format_to(std::back_inserter(out), "#{},{:.6f},{}\n", report.week, report.secondsOfWeek,
                 report.epochCount);

  std::vector<Sp3Epoch> held;
  held.reserve(kSp3MaxEpochsPerPrn);
  for (int prn = 1; prn <= kSp3Prns; ++prn) {
    if (!in.Open(args.input)) {
      error = fmt::format("{}: cannot be read", args.input.string());
      return -1;
    }
    fmt::format_to(std::back_inserter(out), "prn={}\n", prn);
    held.clear();
    Sp3Calendar epoch;
    double epochTime = 0.0;
    while (in.ReadLine(line, kSp3LineChars) >= 0) {
      if (StartsWith(line, "EOF")) break;
      if (line.empty()) continue;
      switch (line[0]) {
        case '*':
          std::sscanf(line.c_str() + 1, "%d %d %d %d %d %lf", &epoch.year, &epoch.month,
                      &epoch.day, &epoch.hour, &epoch.minute, &epoch.seconds);
          epochTime = EpochSeconds(epoch, args.LeapSeconds, epochTime);
          break;
        case 'P': {
          int number = -1;
          if (line.size() < 3 || line[1] != system) break;
          if (std::sscanf(line.c_str() + 2, "%d", &number) != 1 || number != prn) break;
          if (static_cast<int>(held.size()) >= kSp3MaxEpochsPerPrn) break;
          Sp3Epoch e;
          e.secondsOfWeek = epochTime;
          if (line.size() > 5)
            std::sscanf(line.c_str() + 5, "%lf %lf %lf %lf", &e.x, &e.y, &e.z, &e.clock);
          held.push_back(e);
          break;
        }
        case '+':
          (void)WalkListLine(line);
          break;
        default:
          break;
      }
    }
    in.Close();

    const int arcs = static_cast<int>(held.size()) / kArcEpochs;
    report.epochs[prn - 1] = static_cast<int32_t>(held.size());
    report.arcs[prn - 1] = arcs;
    double abscissa[kArcEpochs], values[4][kArcEpochs], c[kArcEpochs];
    for (int k = 0; k < kArcEpochs; ++k) abscissa[k] = k;
    for (int a = 0; a < arcs; ++a) {
      for (int k = 0; k < kArcEpochs; ++k) {
        const Sp3Epoch& e = held[a * kArcEpochs + k];
        values[0][k] = e.x * 100.0;
        values[1][k] = e.y * 100.0;
        values[2][k] = e.z * 100.0;
        values[3][k] = e.clock;
      }
      fmt::format_to(std::back_inserter(out), "arc={}\n", a);
      for (auto& v : values) {
        PolynomialCoefficients(abscissa, v, c, kArcEpochs);
        WriteCoefficients(out, c);
      }
    }
  }
  return platform::WriteWholeFile(args.output, std::string_view(out.data(), out.size()), error)
             ? 0
             : -1;
}

int ReadPnmFile(const std::filesystem::path& path, PnmFile& out, std::string& error) {
  out = PnmFile{};
  platform::LineReader in;
  if (!in.Open(path)) {
    error = fmt::format("{}: cannot be read", path.string());
    return -1;
  }
  auto fail = [&](const std::string& what) {
    error = fmt::format("{}, line {}: {}", path.string(), in.lineNumber(), what);
    return -1;
  };
  std::string line;
  if (in.ReadLine(line, 100000) < 0) return fail("empty file");
  char tail = 0;
  if (std::sscanf(line.c_str(), "#%d,%lf,%d%c", &out.week, &out.secondsOfWeek, &out.epochCount,
                  &tail) != 3)
    return fail("expected \"#week,seconds,epochs\"");
  int prn = 0;
  std::vector<PnmArc>* arcs = nullptr;
  while (in.ReadLine(line, 100000) >= 0) {
    int number = 0;
    if (std::sscanf(line.c_str(), "prn=%d%c", &number, &tail) == 1) {
      if (number != prn + 1 || number > kSp3Prns) return fail("PRNs must run 1 to 32 in order");
      prn = number;
      arcs = &out.arcs[prn - 1];
      continue;
    }
    if (std::sscanf(line.c_str(), "arc=%d%c", &number, &tail) == 1) {
      if (!arcs || number != static_cast<int>(arcs->size()))
        return fail("arc out of order or before any PRN");
      PnmArc arc;
      for (auto& row : arc.c) {
        if (in.ReadLine(line, 100000) < 0) return fail("the arc ends early");
        const char* p = line.c_str();
        for (int k = 0; k < kArcEpochs; ++k) {
          char* end = nullptr;
          row[k] = std::strtod(p, &end);
          if (end == p || (k < kArcEpochs - 1 && *end != ',') || (k == kArcEpochs - 1 && *end))
            return fail("expected 8 numbers separated by commas");
          p = end + 1;
        }
      }
      arcs->push_back(arc);
      continue;
    }
    return fail(fmt::format("unexpected line \"{}\"", line.substr(0, 40)));
  }
  return 0;
}

int EvaluatePnm(const PnmFile& file, int prn, int32_t week, double secondsOfWeek,
                double interval, PnmState& out, std::string& error) {
  if (prn < 1 || prn > kSp3Prns) {
    error = fmt::format("PRN {} is outside 1 to {}", prn, kSp3Prns);
    return -1;
  }
  if (!(interval > 0.0) || !std::isfinite(interval)) {
    error = "the epoch interval must be a positive number of seconds";
    return -1;
  }
  const std::vector<PnmArc>& arcs = file.arcs[prn - 1];
  const double k = ((static_cast<double>(week) - file.week) * gnss::kSecondsPerWeek +
                    (secondsOfWeek - file.secondsOfWeek)) /
                   interval;
  if (!(k >= 0.0) || k >= static_cast<double>(arcs.size()) * kArcEpochs) {
    error = fmt::format("PRN {} has no arc at week {} {:.3f} s ({} arcs from week {} {:.3f} s)",
                        prn, week, secondsOfWeek, arcs.size(), file.week, file.secondsOfWeek);
    return -1;
  }
  const size_t a = static_cast<size_t>(k / kArcEpochs);
  const double u = k - static_cast<double>(a) * kArcEpochs;
  double v[4];
  for (int r = 0; r < 4; ++r) {
    double sum = 0.0;
    for (int j = kArcEpochs - 1; j >= 0; --j) sum = sum * u + arcs[a].c[r][j];
    v[r] = sum;
  }
  out.x = v[0] / 100.0;
  out.y = v[1] / 100.0;
  out.z = v[2] / 100.0;
  out.clock = v[3];
  return 0;
}

}  // namespace vorel::orbits
