#pragma once
// The shaping-filter fit: a target response file (frequency, wanted response per row) is
// read, densified to ten points between each two rows, and a pole-zero filter is fitted
// to it by least squares through QR.
//
// The design matrix is filled column by column (element (r, c) at r + c M) and then
// handed to the solver as if it were stored row by row, an M x C matrix with a row
// stride of C. The two views differ, so the solver sees the elements in another
// arrangement than the one that was filled; that is what the program has always done
// and what its filter files come from, so it stays. The fitted curve is taken from the
// same row-by-row view.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vorel::scintillation {

// Scaling of log10(frequency) into the fit's `w`: 2 pi / 5.
inline constexpr double kFitFrequencyScale = 1.2566370614359172;
// Colour of the first marked target; each fit steps it by kFitPlotColourStep.
inline constexpr int32_t kFitPlotColourStart = 0xFF0000;
inline constexpr int32_t kFitPlotColourStep = 0xFA;

// What the loader reads: line 1 "N<one character>na", then N rows "x<one character>y".
struct TargetResponse {
  int32_t N = 0;
  int32_t na = 0;
  std::vector<double> x;  // frequencies as in the file
  std::vector<double> y;
};

// Reads the whole target file; `wantNa` asks for the second number of line 1 (the loader
// reads it, the fit reads N alone). Frequencies must be above 0, as their logarithm is
// taken. Returns 0, or -1 with `error` naming the file and the line.
int ReadTargetResponse(const std::filesystem::path& path, bool wantNa, TargetResponse& target,
                       std::string& error);

struct FitResult {
  int32_t M = 0;              // 10 (N - 1) rows
  int32_t C = 0;              // na + nb + 1 columns
  std::vector<double> f;      // log10 of the densified frequencies
  std::vector<double> y;      // densified target
  std::vector<double> w;      // f x kFitFrequencyScale
  std::vector<double> A;      // M x C, column by column
  std::vector<double> theta;  // a[0..na-1], then b[0..nb]
  std::vector<double> fit;    // the fitted curve, M values
  bool singular = false;      // the solver's view had no full column rank; theta is 0
};

// Densifies the rows of `target` (x as in the file, not yet logarithms) and fits.
// Returns 0, or -1 with `error` when na or nb is negative or the fit has fewer rows than
// coefficients.
int FitScintFilter(const TargetResponse& target, int32_t na, int32_t nb, FitResult& fit,
                   std::string& error);

// The filter file: na, the a's, nb + 1, the b's, each value by "%14.3f  ".
std::string FormatScintFilterFile(const std::vector<double>& theta, int32_t na, int32_t nb);
// The design-matrix dump "temp.txt": rows 0..M-1, columns 0..na+nb-1 (the last column is
// left out), each by "%14.3f  ", without any newline.
std::string FormatDesignDump(const FitResult& fit, int32_t na, int32_t nb);

}  // namespace vorel::scintillation
