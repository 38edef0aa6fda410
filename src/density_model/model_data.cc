#include "density_model/model_data.h"

#include <cmath>
#include <cstdio>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include "platform/scan.h"
#include "platform/text_file.h"

namespace vorel::density_model {
namespace {

// PDIP with the model's indices: latitude 0..38, longitude -1..37.
inline double& Pdip(ModelState& s, int lat, int lon) { return s.PDIP[lat][lon + 1]; }
inline double Pdip(const ModelState& s, int lat, int lon) { return s.PDIP[lat][lon + 1]; }

std::string JoinDirs(const std::vector<std::filesystem::path>& dirs) {
  std::string text;
  for (const auto& d : dirs) {
    if (!text.empty()) text += ", ";
    text += d.string();
  }
  return text;
}

void SetUnreadable(ModelState& state, const std::filesystem::path& path, std::string_view why) {
  state.error = fmt::format("Model data file {} is unreadable: {}", path.string(), why);
}

// One field of a "(4E16.8)" record: blanks are ignored, an all-blank field is missing,
// and a number written without a point has its last 8 digits after the point.
bool ParseE16Field(std::string_view field, double& value) {
  char text[17];
  size_t n = 0;
  bool hasPoint = false;
  for (char c : field) {
    if (c == ' ' || c == '\t') continue;
    if (c == '.') hasPoint = true;
    text[n++] = c;
  }
  if (n == 0) return false;
  std::string_view compact(text, n);
  size_t used = platform::ParseDouble(compact, value);
  if (used != n) return false;
  if (!hasPoint) value *= 1e-8;
  return true;
}

}  // namespace

std::vector<std::filesystem::path> DefaultModelSearchDirs() {
  return {std::filesystem::path(VOREL_INSTALL_DATA_DIR) / "nequick",
          std::filesystem::path(VOREL_SOURCE_DATA_DIR) / "nequick"};
}

std::vector<std::filesystem::path> ModelSearchDirs(const std::filesystem::path& dataDir) {
  std::vector<std::filesystem::path> dirs{dataDir / "NEQUICK"};
  for (auto& d : DefaultModelSearchDirs()) dirs.push_back(std::move(d));
  return dirs;
}

bool FindModelFile(ModelState& state, const std::string& name, std::filesystem::path& found) {
  const std::vector<std::filesystem::path> dirs =
      state.searchDirs.empty() ? DefaultModelSearchDirs() : state.searchDirs;
  for (const auto& dir : dirs) {
    std::error_code ec;
    std::filesystem::path candidate = dir / name;
    if (std::filesystem::is_regular_file(candidate, ec)) {
      found = candidate;
      return true;
    }
  }
  state.error = fmt::format("Model data file {} not found; searched: {}", name, JoinDirs(dirs));
  return false;
}

int LoadDipLatitudes(ModelState& state) {
  std::filesystem::path path;
  if (!FindModelFile(state, "DIPLATS.ASC", path)) return -1;
  platform::LineReader reader;
  if (!reader.Open(path)) {
    SetUnreadable(state, path, "it cannot be opened");
    return -1;
  }
  // One read statement a row: 37 free-format numbers, taken from as many lines as they
  // need; what is left on a row's last line is dropped.
  std::string line;
  for (int r = 1; r <= 37; ++r) {
    int c = 1;
    while (c <= 37) {
      if (reader.ReadLine(line, 100000) < 0) {
        SetUnreadable(state, path,
                      fmt::format("it ends at line {} in row {} of 37", reader.lineNumber(), r));
        return -1;
      }
      platform::Scanner scan(line);
      while (c <= 37) {
        scan.SkipBlanks();
        if (scan.AtEnd()) break;
        double v = 0.0;
        if (!scan.Double(v)) {
          SetUnreadable(state, path, fmt::format("line {} holds a value that is not a number",
                                                 reader.lineNumber()));
          return -1;
        }
        Pdip(state, r, c - 1) = v;
        ++c;
      }
    }
  }
  // Padding; the offset of half a turn in longitude steps over the poles.
  for (int s = 0; s <= 36; ++s) Pdip(state, 0, s) = Pdip(state, 2, (s + 18) % 36);
  for (int s = 0; s <= 36; ++s) Pdip(state, 38, s) = Pdip(state, 36, (s + 18) % 36);
  for (int L = 0; L <= 38; ++L) Pdip(state, L, -1) = Pdip(state, L, 35);
  for (int L = 0; L <= 38; ++L) Pdip(state, L, 37) = Pdip(state, L, 1);
  state.dipLoaded = true;
  return 0;
}

int LoadCcirMonth(ModelState& state, int month) {
  // Two digits of month + 10; a month outside 1..12 names a file that does not exist.
  const std::string name = fmt::format("CCIR{:02d}.ASC", month + 10);
  std::filesystem::path path;
  if (!FindModelFile(state, name, path)) return -1;
  platform::LineReader reader;
  if (!reader.Open(path)) {
    SetUnreadable(state, path, "it cannot be opened");
    return -1;
  }
  // F2 then FM3 as one stream of "(4E16.8)" records.
  constexpr int kTotal = kF2Size + kFm3Size;
  std::string line;
  int count = 0;
  while (count < kTotal) {
    if (reader.ReadLine(line, 1000) < 0) {
      SetUnreadable(state, path, fmt::format("it ends at line {} after {} of {} values",
                                             reader.lineNumber(), count, kTotal));
      return -1;
    }
    for (int f = 0; f < 4 && count < kTotal; ++f) {
      const size_t start = static_cast<size_t>(f) * 16;
      std::string_view field =
          start < line.size() ? std::string_view(line).substr(start, 16) : std::string_view();
      double v = 0.0;
      if (!ParseE16Field(field, v)) {
        SetUnreadable(state, path,
                      fmt::format("line {}, field {} does not hold a number in E16.8 form",
                                  reader.lineNumber(), f + 1));
        return -1;
      }
      if (count < kF2Size) {
        state.F2[count] = v;
      } else {
        state.FM3[count - kF2Size] = v;
      }
      ++count;
    }
  }
  return 0;
}

double Interpolate4(const double z[4], double x) {
  const double t = 2.0 * x - 1.0;
  if (std::fabs(t + 1.0) < 1e-10) return z[1];
  const double a = z[2] + z[1];
  const double b = z[2] - z[1];
  const double c = z[3] + z[0];
  const double d = (z[3] - z[0]) / 3.0;
  const double g0 = 9.0 * a - c;
  const double g1 = 9.0 * b - d;
  const double g2 = c - a;
  const double g3 = d - b;
  return 0.0625 * (((g3 * t + g2) * t + g1) * t + g0);
}

namespace {

// Whole part towards zero, kept inside the int range for any input (NaN gives 0).
inline int TruncToInt(double v) {
  if (!(v > -1e6)) return v != v ? 0 : -1000000;
  if (v > 1e6) return 1000000;
  return static_cast<int>(v);
}

constexpr int kMaxOrders = 9, kMaxPower = 16;

// The hour's sines and cosines of T, k T for k up to n, by the angle-sum recurrence.
void HourHarmonics(double ut, int n, double* S, double* C) {
  const double T = (ut * 15.0 - 180.0) * kDeg;
  S[1] = std::sin(T);
  C[1] = std::cos(T);
  for (int i = 2; i <= n; ++i) {
    C[i] = C[1] * C[i - 1] - S[1] * S[i - 1];
    S[i] = C[1] * S[i - 1] + S[1] * C[i - 1];
  }
}

// The place's cosines and sines of (i - 1) times the longitude, i from 2 to `orders`.
void PlaceHarmonics(double lon, int orders, double* ca, double* sa) {
  for (int i = 2; i <= orders; ++i) {
    const double a = lon * (i - 1) * kDeg;
    ca[i] = std::cos(a);
    sa[i] = std::sin(a);
  }
}

// Step 3 of the series for every row: the Fourier sum in the hour. It depends on the
// hour and the mix only, so one hour's rows serve every place.
void FourierRows(const double* coefficients, int rows, int stride, int harmonics, const double* S,
                 const double* C, double* out) {
  for (int i = 1; i <= rows; ++i) {
    const int b = (i - 1) * stride;
    double sum = coefficients[b];
    for (int k = 1; k <= harmonics; ++k) {
      sum = sum + coefficients[b + 2 * k - 1] * S[k] + coefficients[b + 2 * k] * C[k];
    }
    out[i - 1] = sum;
  }
}

// Steps 4 to 9 of the series at one place, from the hour's rows (COEF[0] is row 1) and
// the place's sines and cosines, which both maps share.
double SeriesAtPlace(const double* COEF, const int* nq, int orders, double sm, double clat,
                     const double* ca, const double* sa) {
  double XSINX[kMaxPower + 1];
  double sum = COEF[0];
  XSINX[1] = 1.0;
  double s = sm;
  bool lastHeld = true;
  for (int i = 1; i <= nq[0]; ++i) {
    lastHeld = std::fabs(s) >= 1e-30;
    if (lastHeld) {
      sum = sum + COEF[i] * s;
      XSINX[i + 1] = s;
      s = s * sm;
    } else {
      XSINX[i + 1] = 0.0;
    }
  }
  XSINX[nq[0] + 2] = lastHeld ? s : 0.0;

  int np = nq[0] + 1;
  s = clat;
  for (int i = 2; i <= orders; ++i) {
    const double c = ca[i], sn = sa[i];
    for (int j = 1; j <= nq[i - 1] + 1; ++j) {
      sum = sum + COEF[np] * XSINX[j] * s * c + COEF[np + 1] * XSINX[j] * s * sn;
      np = np + 2;
    }
    s = s * clat;
  }
  return sum;
}

}  // namespace

double DipLatitudeAt(const ModelState& state, double lat, double lon) {
  const double w = (lon + 180.0) / 10.0;
  const int n = TruncToInt(w);
  const double x = w - std::trunc(w);
  // n - 2 taken modulo 36 into -2..33: the same stencil as the model's "n + 34, then
  // less 36 above 33" for every longitude from -180 to 540, and inside the map beyond.
  int j = (n - 2) % 36;
  if (j < 0) j += 36;
  if (j > 33) j -= 36;

  const double v = (lat + 90.0) / 5.0 + 1.0;
  const int m = TruncToInt(v - 1e-06);
  int i = m - 2;
  // Latitudes down to -90 (exactly) and above 90 would read outside the padded map.
  if (i < -1) i = -1;
  if (i > 34) i = 34;
  const double y = v - m;

  double Z[4];
  for (int k = 1; k <= 4; ++k) {
    const double z[4] = {Pdip(state, i + 1, j + k), Pdip(state, i + 2, j + k),
                         Pdip(state, i + 3, j + k), Pdip(state, i + 4, j + k)};
    Z[k - 1] = Interpolate4(z, y);
  }
  return Interpolate4(Z, x);
}

double MapValue(double modip, double lat, double lon, double ut, int harmonics, const int* nq,
                int orders, int rows, int stride, int total, const double* coefficients) {
  constexpr int kMaxHarmonics = 8, kMaxRows = 80;
  if (harmonics < 1 || harmonics > kMaxHarmonics || rows < 1 || rows > kMaxRows || orders < 1 ||
      orders > kMaxOrders || nq[0] < 0 || nq[0] + 2 > kMaxPower ||
      (rows - 1) * stride + 2 * harmonics + 1 > total) {
    return 0.0;
  }
  int used = 1 + nq[0];
  for (int i = 2; i <= orders; ++i) {
    if (nq[i - 1] < 0 || nq[i - 1] + 1 > nq[0] + 2) return 0.0;
    used += 2 * (nq[i - 1] + 1);
  }
  if (used > rows) return 0.0;

  double S[kMaxHarmonics + 1], C[kMaxHarmonics + 1], COEF[kMaxRows];
  HourHarmonics(ut, harmonics, S, C);
  FourierRows(coefficients, rows, stride, harmonics, S, C, COEF);
  double ca[kMaxOrders + 1], sa[kMaxOrders + 1];
  PlaceHarmonics(lon, orders, ca, sa);
  return SeriesAtPlace(COEF, nq, orders, std::sin(modip * kDeg), std::cos(lat * kDeg), ca, sa);
}


namespace {

void MakeRows(ModelState& state, double ut) {
  double S[7], C[7];
  HourHarmonics(ut, 6, S, C);
  // The M(3000)F2 series has 4 harmonics: the same recurrence, cut shorter.
  FourierRows(state.CF2, kF2Rows, kF2Stride, 6, S, C, state.rowsF2);
  FourierRows(state.CM3, kFm3Rows, kFm3Stride, 4, S, C, state.rowsFm3);
  state.rowsUt = ut;
  state.rowsValid = true;
}

}  // namespace

int CcirMaps(ModelState& state, double modip, int month, double ut, double r12, double lat,
             double lon, double& foF2Out, double& m3000Out) {
  if (month != state.loadedMonth) {
    // Only one month's maps are held; a failed read leaves no month loaded.
    state.loadedMonth = 13;
    state.rowsValid = false;
    if (LoadCcirMonth(state, month) != 0) return -1;
    state.loadedMonth = month;
  }
  if (r12 != state.mixedR12 || month != state.mixedMonth) {
    const double p = r12 / 100.0;
    const double q = 1.0 - p;
    for (int j = 1; j <= kF2Rows; ++j) {
      for (int k = 1; k <= kF2Stride; ++k) {
        const int at = (j - 1) * kF2Stride + (k - 1);
        state.CF2[at] = state.F2[at] * q + state.F2[at + kCf2Size] * p;
      }
    }
    for (int j = 1; j <= kFm3Rows; ++j) {
      for (int k = 1; k <= kFm3Stride; ++k) {
        const int at = (j - 1) * kFm3Stride + (k - 1);
        state.CM3[at] = state.FM3[at] * q + state.FM3[at + kCm3Size] * p;
      }
    }
    state.mixedR12 = r12;
    state.mixedMonth = month;
    state.rowsValid = false;
  }
  // The series as MapValue works it, with the hour's rows kept and the place's sines
  // and cosines worked once for both maps; every product and sum is the same.
  if (!state.rowsValid || state.rowsUt != ut) MakeRows(state, ut);
  double ca[kMaxOrders + 1], sa[kMaxOrders + 1];
  PlaceHarmonics(lon, kMaxOrders, ca, sa);
  const double sm = std::sin(modip * kDeg);
  const double clat = std::cos(lat * kDeg);
  foF2Out = SeriesAtPlace(state.rowsF2, kNqF2, 9, sm, clat, ca, sa);
  m3000Out = SeriesAtPlace(state.rowsFm3, kNqFm3, 7, sm, clat, ca, sa);
  return 0;
}

}  // namespace vorel::density_model
