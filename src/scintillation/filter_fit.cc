#include "scintillation/filter_fit.h"

#include <fmt/format.h>

#include <Eigen/Dense>
#include <cmath>

#include "platform/scan.h"
#include "platform/text_file.h"

namespace vorel::scintillation {

int ReadTargetResponse(const std::filesystem::path& path, bool wantNa, TargetResponse& target,
                       std::string& error) {
  target = TargetResponse{};
  platform::LineReader file;
  if (!file.Open(path)) {
    error = fmt::format("{}: the target response file cannot be opened", path.string());
    return -1;
  }
  std::string line;
  if (file.ReadLine(line) < 0) {
    error = fmt::format("{}: the target response file is empty", path.string());
    return -1;
  }
  const int read = wantNa ? platform::ScanLine(line, "%s>%d%s[w1d]%d", {&target.N, &target.na})
                          : platform::ScanLine(line, "%s>%d", {&target.N});
  if (read != (wantNa ? 2 : 1)) {
    const char* expected =
        wantNa ? "the row count N, one separating character and na (\"20,4\")" : "the row count N";
    error = fmt::format("{}, line 1: expected {}, got \"{}\"", path.string(), expected, line);
    return -1;
  }
  if (target.N < 1) {
    error = fmt::format("{}, line 1: the row count N is {}; at least 1 row is needed",
                        path.string(), target.N);
    return -1;
  }
  for (int32_t i = 0; i < target.N; ++i) {
    const int lineNumber = i + 2;
    if (file.ReadLine(line) < 0) {
      error = fmt::format("{}: the file ends after line {}; line 1 says {} rows follow",
                          path.string(), lineNumber - 1, target.N);
      return -1;
    }
    double x = 0.0, y = 0.0;
    if (platform::ScanLine(line, "%s>%f%s[w1d]%f", {&x, &y}) != 2) {
      error = fmt::format(
          "{}, line {}: expected a frequency, one separating character and a response "
          "(\"0.5,-10.0\"), got \"{}\"",
          path.string(), lineNumber, line);
      return -1;
    }
    if (!(x > 0.0) || !std::isfinite(x) || !std::isfinite(y)) {
      error = fmt::format(
          "{}, line {}: the frequency must be a finite number above 0 (its logarithm is "
          "taken), got \"{}\"",
          path.string(), lineNumber, line);
      return -1;
    }
    target.x.push_back(x);
    target.y.push_back(y);
  }
  return 0;
}

int FitScintFilter(const TargetResponse& target, int32_t na, int32_t nb, FitResult& fit,
                   std::string& error) {
  fit = FitResult{};
  if (na < 0 || nb < 0) {
    error = fmt::format("FilterPoles ({}) and FilterZeros ({}) must be 0 or above", na, nb);
    return -1;
  }
  const int64_t rows = target.N >= 1 ? 10 * (static_cast<int64_t>(target.N) - 1) : 0;
  const int64_t columns = static_cast<int64_t>(na) + nb + 1;
  if (columns > rows) {
    error = fmt::format(
        "the fit has {} rows (10 per pair of target rows) for {} coefficients (FilterPoles + "
        "FilterZeros + 1); give more target rows or fewer coefficients",
        rows, columns);
    return -1;
  }
  const int32_t M = static_cast<int32_t>(rows);
  const int32_t C = static_cast<int32_t>(columns);
  fit.M = M;
  fit.C = C;
  fit.f.resize(M);
  fit.y.resize(M);
  fit.w.resize(M);
  // Ten points from each row towards the next, linear in the plain frequency; the last
  // row is not a point of its own.
  for (int32_t i = 0; i + 1 < target.N; ++i) {
    const double x0 = target.x[i], x1 = target.x[i + 1];
    const double y0 = target.y[i], y1 = target.y[i + 1];
    for (int m = 0; m < 10; ++m) {
      fit.f[10 * i + m] = x0 + (x1 - x0) * m / 10.0;
      fit.y[10 * i + m] = y0 + (y1 - y0) * m / 10.0;
    }
  }
  for (int32_t r = 0; r < M; ++r) {
    fit.f[r] = std::log10(fit.f[r]);
    fit.w[r] = fit.f[r] * kFitFrequencyScale;
  }
  // Equation-error form with the target phase held at zero, column by column.
  fit.A.assign(static_cast<size_t>(M) * C, 0.0);
  for (int32_t r = 0; r < M; ++r) {
    for (int32_t c = 0; c < na; ++c)
      fit.A[r + static_cast<size_t>(c) * M] =
          -fit.y[r] * std::cos(-static_cast<double>(c + 1) * fit.w[r]);
    for (int32_t l = 0; l <= nb; ++l)
      fit.A[r + static_cast<size_t>(na + l) * M] = std::cos(-static_cast<double>(l) * fit.w[r]);
  }
  // The solver reads the same memory row by row.
  using RowView =
      Eigen::Map<const Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>>;
  const RowView view(fit.A.data(), M, C);
  const Eigen::Map<const Eigen::VectorXd> rhs(fit.y.data(), M);
  const Eigen::HouseholderQR<Eigen::MatrixXd> qr(view);
  const Eigen::MatrixXd R = qr.matrixQR().topRows(C).triangularView<Eigen::Upper>();
  double largest = 0.0;
  for (int32_t c = 0; c < C; ++c) largest = std::max(largest, std::fabs(R(c, c)));
  for (int32_t c = 0; c < C; ++c)
    if (!(std::fabs(R(c, c)) > largest * 1e-13)) fit.singular = true;
  Eigen::VectorXd theta = Eigen::VectorXd::Zero(C);
  if (!fit.singular) theta = qr.solve(rhs);
  fit.theta.assign(theta.data(), theta.data() + C);
  const Eigen::VectorXd curve = view * theta;
  fit.fit.assign(curve.data(), curve.data() + M);
  return 0;
}

std::string FormatScintFilterFile(const std::vector<double>& theta, int32_t na, int32_t nb) {
  fmt::memory_buffer out;
  fmt::format_to(std::back_inserter(out), "{}\n", na);
  for (int32_t i = 0; i < na; ++i)
    fmt::format_to(std::back_inserter(out), "{:14.3f}  \n", theta[i]);
  fmt::format_to(std::back_inserter(out), "{}\n", nb + 1);
  for (int32_t i = 0; i <= nb; ++i)
    fmt::format_to(std::back_inserter(out), "{:14.3f}  \n", theta[na + i]);
  return fmt::to_string(out);
}

std::string FormatDesignDump(const FitResult& fit, int32_t na, int32_t nb) {
  fmt::memory_buffer out;
  for (int32_t r = 0; r < fit.M; ++r)
    for (int32_t c = 0; c < na + nb; ++c)
      fmt::format_to(std::back_inserter(out), "{:14.3f}  ",
                     fit.A[r + static_cast<size_t>(c) * fit.M]);
  return fmt::to_string(out);
}

}  // namespace vorel::scintillation
