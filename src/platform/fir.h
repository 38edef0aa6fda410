#pragma once
// Band-pass FIR design by the window method, and filtering that keeps its memory from one
// call to the next.
//
// FirGenBandpass makes the ideal band-pass response between the normalised corner
// frequencies `low` and `high` (cycles per sample, 0 to 0.5), centred on tap
// (tapCount - 1) / 2, and multiplies it by the window. With `normalise` the taps are
// scaled so that the gain at the centre frequency (low + high) / 2 is exactly 1.
//
// FirFilterInPlace computes y[i] = sum over k = 0..tapCount-1 of taps[k] x[i - k], the
// terms added in the order of k, with the samples before the first one of a call taken
// from the delay line; the delay line then holds the last tapCount - 1 inputs. The sum
// order is fixed, so the faster form gives the same bits as the plain one.

#include <cstdint>
#include <vector>

namespace vorel::platform {

// The window numbers of the numeric library the settings were written for.
enum class FirWindow : int32_t {
  kBartlett = 0,
  kBlackman = 1,
  kHamming = 2,
  kHann = 3,
  kRectangular = 4
};

// Returns 0, or -1 (taps untouched) when tapCount < 1 or the corners are not
// 0 <= low < high <= 0.5 or the window is unknown.
int FirGenBandpass(double low, double high, double* taps, int tapCount, FirWindow window,
                   bool normalise);

// Gain of `taps` at the normalised frequency f (cycles per sample).
double FirGain(const double* taps, int tapCount, double f);

struct FirState {
  std::vector<double> taps;
  // history[0] is the newest past input, history[tapCount - 2] the oldest.
  std::vector<double> history;
  // The past inputs and the block in one run; kept so that filtering allocates once.
  std::vector<double> scratch;
};

// A state with the given taps and the delay line cleared.
FirState FirInit(const double* taps, int tapCount);

void FirFilterInPlace(double* samples, int count, FirState& state);

// The same filtering in three steps, for callers that fill the input and compute the
// outputs in pieces (on several threads): FirBegin returns the run of past inputs and room
// for `count` new ones, which the caller fills from index FirPast(state) on; FirRange
// computes outputs first..end-1 into `out`; FirEnd keeps the last inputs for the next call.
double* FirBegin(FirState& state, int count);
int FirPast(const FirState& state);
void FirRange(const FirState& state, const double* ext, double* out, int first, int end);
void FirEnd(FirState& state);
// The plain loop, kept as the reference of the faster form.
void FirFilterInPlacePlain(double* samples, int count, FirState& state);

}  // namespace vorel::platform
