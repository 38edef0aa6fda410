#pragma once
// The scintillation series generator: an amplitude and a phase series of 5000 samples
// at 20 samples per second, made from two correlated gamma-distributed white series,
// band-limited by two 27-tap FIR filters, optionally shaped by fitted recursive filters,
// and with the amplitude floored at 0.2.
//
// Random numbers: four MT19937 streams with fixed seeds (777, 700, 600, 600), so the same
// settings give the same series. Streams 3 and 4 share their seed and draw gamma values of
// one shape, which is what correlates amplitude and phase. The gamma deviates are our own
// (GammaFill below), so that a series is the same on every machine.

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "scintillation/scint_settings.h"

namespace vorel::scintillation {

inline constexpr int32_t kScintSamples = 5000;
inline constexpr double kScintSampleRate = 20.0;  // samples per second
inline constexpr int kScintFirTaps = 27;
inline constexpr double kAmpFilterGain = 1.1;
inline constexpr double kPhaseFilterGain = 3.1;
inline constexpr double kAmpWhiteWeight = 0.6;
inline constexpr double kPhaseWhiteWeight = 0.2;
inline constexpr double kAmplitudeFloor = 0.2;
inline constexpr char kScintRefusal[] = "Incorrect scintillation parameters.\n Execution aborted";

using ScintStream = std::mt19937;  // the standard MT19937 of 32-bit outputs

// A uniform deviate in (0, 1) from two outputs of the stream (53 bits).
double UniformOpen(ScintStream& stream);
// A standard normal deviate by the Marsaglia polar method, from the same stream.
double StandardNormal(ScintStream& stream);

// `n` values, each `beta` x a gamma deviate of shape `alpha` (Marsaglia and Tsang; a shape
// below 1 is raised by one and scaled back by U^(1/alpha)). Returns 0, or -1 (nothing
// written) when alpha or beta is not above 0.
int GammaFill(ScintStream& stream, int32_t n, double* out, double alpha, double beta);

// The raw series: amp (mean 0, variance scintIndex^2) and phase. Returns 0 or above, or
// a negative value when the settings cannot be met (the shared shape and the amplitude's
// own shape must both be above 0 for K = 100 or K = 10) or a generator refuses.
int GenerateScintSeries(ScintStream& stream1, ScintStream& stream2, ScintStream& stream3,
                        ScintStream& stream4, double scintIndex, double correlation,
                        double phaseSigma, int32_t n, double* amp, double* phase, double* tmp1,
                        double* tmp2);

// A recursive filter as its file gives it, with room for what the step reads: b has
// nb + 1 entries (the last 0.0) and xHistory nb + 1 entries.
struct ScintFilter {
  int32_t na = 0;
  int32_t nb = 0;
  std::vector<double> a;
  std::vector<double> b;
  std::vector<double> yHistory;
  std::vector<double> xHistory;
  int32_t yIndex = 0;
  int32_t xIndex = 0;
};

// Reads a filter file ("%d" count, that many values, twice); every b is multiplied by
// `gain`. Returns 0, or -1 with `error` naming the file and the line.
int ReadScintFilterFile(const std::filesystem::path& path, double gain, ScintFilter& filter,
                        std::string& error);

// One sample through the recursive filter; `x` is replaced by the output. The a terms and
// the b terms from b[1] on are subtracted; the input is stored one place ahead of where it
// is read, so the feed-forward terms have one sample more delay than the recursion, and
// xHistory[0] is never written.
void ScintFilterStep(const double* a, double* yHistory, int32_t& yIndex, int32_t na,
                     const double* b, double* xHistory, int32_t& xIndex, int32_t nb, double& x);

struct ScintSeries {
  std::vector<double> ampOut;
  std::vector<double> phaseOut;
};

// The whole generator. `ampFilter` / `phaseFilter` are used when the setting switches them
// on (they must then be given). Returns 0; -1 with `error` for band corners the FIR design
// refuses; -2 with `error` = kScintRefusal when the series cannot be generated.
int GenerateScint(const ScintSettings& settings, ScintFilter* ampFilter, ScintFilter* phaseFilter,
                  ScintSeries& series, std::string& error);

// The scintGenData file: one line per sample by "%14.3f %14.3f \r\n", amplitude first.
std::string FormatScintGenData(const ScintSeries& series);

}  // namespace vorel::scintillation
