#pragma once
// The complex baseband (I/Q) form of the DIF run: the satellites of a .scn record at any
// sampling rate, interleaved I then Q, 8 or 16 bits, written for SDR playback.
//
// Block b (one millisecond) holds the samples g with
// ceil(b fs / 1000) <= g < ceil((b + 1) fs / 1000), so that a rate which is not a multiple
// of 1 kHz still gives every sample its exact time g / fs. Each channel's code and carrier
// phase at the block's first sample are computed afresh from the ranges (linear between the
// record's epochs, which may lie 1 to 100 ms apart), and within the block by exact integer
// steps: the code timing does not drift.

#include <array>
#include <cstdint>

#include "dif/iq_kernel.h"
#include "dif/sample_generation.h"
#include "dif/scn_reader.h"

namespace vorel::dif {

struct IqTiming {
  int64_t rate = 0;         // samples per second
  double ifOffset = 0.0;    // Hz
  float amplitude = 10.0f;  // levels
};

// Where the navigation bits of a channel come from, and what went wrong reading them.
struct IqBitSource {
  const int32_t* row = nullptr;
  int32_t base = 0;  // bit number of row[0]
  bool beforeRow = false;
  bool pastRow = false;
};

// The longest spacing of a record's epochs the form reads: between them the range is taken
// as a straight line, which at 100 ms is off by at most a quarter of a millimetre (a
// satellite's range acceleration seen from the ground stays below 0.2 m/s^2).
inline constexpr int32_t kIqMaxRecordIntervalMs = 100;

// Milliseconds from one epoch time (ms of the week) to the next, across a week's end; -1
// when the second lies more than a day after the first (or before it).
int32_t EpochSpacingMs(int32_t fromMs, int32_t toMs);

// ceil(block x rate / 1000): the block's first sample.
int64_t IqFirstSample(int64_t block, int64_t rate);

// Plans one channel of block `block` whose epoch time is `timeMs`, from the code ranges (m)
// of this epoch and the next.
void PlanIqChannel(const IqTiming& t, int64_t block, int32_t timeMs, double rangePrevious,
                   double rangeNext, IqBitSource& bits, const IqCodeTable& code,
                   IqChannelPlan& plan);

// Per-component noise sigma (levels) for a complex signal of amplitude `amplitude` at
// C/N0 `cn0` dB-Hz sampled at `rate`.
float IqNoiseSigma(float amplitude, double cn0, double rate);

// The amplitude (levels) a satellite takes with noise on when IqAmplitude is not given: the
// largest, to three significant digits, at which the noise's largest value (5.77 sigma) and
// twelve satellites in phase stay within `fullScale` (127 or 32767), so nothing clips.
float IqAmplitudeUnderNoise(double signalPower, double rate, double fullScale);

int GenerateIqSamples(const DifSettings& s, RecordState& record, const GeneratorFiles& files,
                      GeneratorContext& context, GeneratorReport& report);

}  // namespace vorel::dif
