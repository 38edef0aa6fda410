#pragma once
// SP3 precise ephemerides to polynomial arcs (.pnm), and a reader that evaluates them.
//
// Each satellite's positions and clock are cut into arcs of 8 epochs; through each arc a
// degree-7 polynomial is laid exactly, in the epoch's place in the arc (0 to 7) as its
// variable. Positions are fitted in units of 10 m (km times 100.0), the clock as the file
// gives it (microseconds). The file is read once for its header and once per PRN.

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vorel::orbits {

inline constexpr int kSp3MaxEpochsPerPrn = 1000;
inline constexpr int kSp3Prns = 32;
inline constexpr int kArcEpochs = 8;
// Characters of a line that are read; the rest of a longer line is dropped.
inline constexpr size_t kSp3LineChars = 79;

// The coefficients, in ascending powers, of the polynomial through the n points (x, y),
// by the master polynomial. Nothing is computed for n below 1.
void PolynomialCoefficients(const double* x, const double* y, double* coefficients, int n);

struct Sp3ConvertArgs {
  std::filesystem::path input;
  std::filesystem::path output;
  int32_t LeapSeconds = 0;
};

struct Sp3ConvertReport {
  int32_t week = 0;
  double secondsOfWeek = 0.0;
  int32_t epochCount = 0;                  // as the header says
  std::array<int32_t, kSp3Prns> epochs{};  // epochs held per PRN
  std::array<int32_t, kSp3Prns> arcs{};
};

// Converts `args.input` into `args.output`. Returns 0, or -1 with `error` when the input
// cannot be read, has no "#cP"/"#aP" header line, or the output cannot be written whole;
// on -1 no output file is left behind.
int ConvertSp3ToPnm(const Sp3ConvertArgs& args, Sp3ConvertReport& report, std::string& error);

// A .pnm file read back.
struct PnmArc {
  // x, y, z (units of 10 m) and clock (microseconds), each c0..c7.
  std::array<std::array<double, kArcEpochs>, 4> c{};
};
struct PnmFile {
  int32_t week = 0;
  double secondsOfWeek = 0.0;
  int32_t epochCount = 0;
  std::array<std::vector<PnmArc>, kSp3Prns> arcs;
};

// Reads a .pnm file; -1 with `error` naming the file and line on a malformed line.
int ReadPnmFile(const std::filesystem::path& path, PnmFile& out, std::string& error);

struct PnmState {
  double x = 0.0, y = 0.0, z = 0.0;  // km
  double clock = 0.0;                // microseconds
};

// The state of `prn` at `week`/`secondsOfWeek`, with epochs `interval` seconds apart from
// the file's first epoch (the file does not carry the interval). The arc that holds the
// epoch at or before the time is used; past its last node it extrapolates up to one epoch.
// Returns -1 with `error` when the PRN has no arc covering the time.
int EvaluatePnm(const PnmFile& file, int prn, int32_t week, double secondsOfWeek,
                double interval, PnmState& out, std::string& error);

}  // namespace vorel::orbits
