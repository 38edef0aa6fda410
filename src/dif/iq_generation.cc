#include "dif/iq_generation.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "dif/noise.h"
#include "dif/worker_team.h"
#include "gnss/constants.h"

namespace vorel::dif {
namespace {

constexpr double kMetresPerMs = 299792.458;
constexpr double kTwo32 = 4294967296.0;
constexpr int32_t kChunk = 4096;      // samples summed in cache at a time
// Blocks are planned, made (on the team) and written a batch at a time: at least 32 blocks
// and about 2^18 samples, so that at low rates the team is woken a few hundred times a run
// rather than once every 32 ms of signal.
constexpr int32_t kMinBatchBlocks = 32;
constexpr int64_t kBatchSamples = int64_t{1} << 18;
constexpr double kThermalNoiseDbw = -204.0;  // kT at 290 K, dBW/Hz

int64_t FloorDiv(int64_t a, int64_t b) {
  int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

double Fraction(double x) { return x - std::floor(x); }

// The range `k` ms into a pair of epochs `interval` ms apart, on the straight line between
// them; the epochs' own ranges at either end, exactly.
double RangeBetween(const RangePair& range, int32_t k, int32_t interval) {
  if (k == 0) return range.previous;
  if (k == interval) return range.next;
  return range.previous + (range.next - range.previous) * static_cast<double>(k) /
                              static_cast<double>(interval);
}

// The bit sent in millisecond `ms` (counted from the start of the week) of the channel.
float BitOfMillisecond(int64_t ms, IqBitSource& bits) {
  const int64_t index = FloorDiv(ms, 20) - bits.base;
  if (index < 0) {
    bits.beforeRow = true;
    return 1.0f;
  }
  if (index >= kNavBitsPerRow) {
    bits.pastRow = true;
    return 1.0f;
  }
  return static_cast<float>(bits.row[index]);
}

struct IqBlockPlan {
  int64_t block = 0;
  int32_t count = 0;
  int32_t channels = 0;
  std::array<IqChannelPlan, 32> channel{};
};

// One block from its plan into `out` (count x 2 values of `bytes` bytes); returns the
// values held at the limits. Works a chunk at a time so that the sums stay in the cache.
int64_t MakeIqBlock(const IqBlockPlan& plan, float sigma, int bytes, bool vectorised,
                    uint8_t* out) {
  alignas(64) float sumI[kChunk + 16];  // room for the vector form's last step
  alignas(64) float sumQ[kChunk + 16];
  alignas(64) float noise[2 * kChunk + 16];
  int64_t held = 0;
  for (int32_t c0 = 0; c0 < plan.count; c0 += kChunk) {
    const int32_t c1 = std::min(plan.count, c0 + kChunk);
    const int32_t len = c1 - c0;
    if (!vectorised || plan.channels == 0) {
      std::fill_n(sumI, len + 16, 0.0f);
      std::fill_n(sumQ, len + 16, 0.0f);
    }
    for (int32_t ch = 0; ch < plan.channels; ++ch) {
      if (vectorised)
        AddIqChannelFast(plan.channel[ch], c0, c1, sumI, sumQ, true, ch == 0);
      else
        AddIqChannelPlain(plan.channel[ch], c0, c1, sumI, sumQ);
    }
    if (sigma > 0.0f) {
      // A seed of its own for each chunk of each block: the noise does not depend on
      // which thread makes the block.
      const auto seed = static_cast<uint32_t>(plan.block * 64 + c0 / kChunk);
      GaussianBlockFromSeed(0.0f, sigma, noise, 2 * len, seed);
      for (int32_t k = 0; k < len; ++k) {
        sumI[k] = sumI[k] + noise[2 * k];
        sumQ[k] = sumQ[k] + noise[2 * k + 1];
      }
    }
    held += QuantiseIq(sumI, sumQ, len, bytes, out + static_cast<int64_t>(c0) * 2 * bytes);
  }
  return held;
}

}  // namespace

int64_t IqFirstSample(int64_t block, int64_t rate) { return (block * rate + 999) / 1000; }

int32_t EpochSpacingMs(int32_t fromMs, int32_t toMs) {
  constexpr int64_t kWeekMs = 604800000;
  const int64_t d = (static_cast<int64_t>(toMs) - fromMs) % kWeekMs;
  const int64_t spacing = d < 0 ? d + kWeekMs : d;
  // Anything past the longest interval the form reads is reported as it is, or as -1 when
  // it is more than a day (a record that runs backward).
  return spacing <= 86400000 ? static_cast<int32_t>(spacing) : -1;
}

float IqNoiseSigma(float amplitude, double cn0, double rate) {
  // C/N0 = A^2 / N0 and N0 = 2 sigma^2 / fs for complex noise of sigma per component.
  const double ratio = std::pow(10.0, cn0 / 10.0);
  return static_cast<float>(amplitude * std::sqrt(rate / (2.0 * ratio)));
}

float IqAmplitudeUnderNoise(double signalPower, double rate, double fullScale) {
  // The noise's uniform never falls below 2^-24, so its Box-Muller radius, and with it
  // each component, stays within sqrt(-2 ln 2^-24) = 5.7681 sigma.
  constexpr double kNoisePeak = 5.7682;
  constexpr double kSatellitesInPhase = 12.0;
  const double sigmaPerLevel = IqNoiseSigma(1.0f, signalPower - kThermalNoiseDbw, rate);
  const double amplitude = fullScale / (kNoisePeak * sigmaPerLevel + kSatellitesInPhase);
  const double digit = std::pow(10.0, std::floor(std::log10(amplitude)) - 2.0);
  return static_cast<float>(std::floor(amplitude / digit) * digit);
}

void PlanIqChannel(const IqTiming& t, int64_t block, int32_t timeMs, double rangePrevious,
                   double rangeNext, IqBitSource& bits, const IqCodeTable& code,
                   IqChannelPlan& plan) {
  const double rate = static_cast<double>(t.rate);
  const int64_t first = IqFirstSample(block, t.rate);
  const int64_t count = IqFirstSample(block + 1, t.rate) - first;
  // Seconds from the epoch to the block's first sample, below 1 ms.
  const double tau = static_cast<double>(first * 1000 - block * t.rate) / (1000.0 * rate);
  const double r = (rangeNext - rangePrevious) / kMetresPerMs;  // range rate over c

  // Transmission time in ms: the whole milliseconds apart, so that the fraction keeps
  // its precision a week into the GPS time.
  const double f = -rangePrevious / kMetresPerMs + tau * 1000.0 * (1.0 - r);
  const double whole = std::floor(f);
  int64_t ms = static_cast<int64_t>(timeMs) + static_cast<int64_t>(whole);
  auto phase = static_cast<uint64_t>(std::llround((f - whole) * kChipsPerCode * kTwo32));
  constexpr uint64_t kPeriod = static_cast<uint64_t>(kChipsPerCode) << 32;
  if (phase >= kPeriod) {
    phase -= kPeriod;
    ms += 1;
  }
  plan.codePhase = phase;
  plan.codeStep = static_cast<uint64_t>(std::llround(kChipRate * (1.0 - r) / rate * kTwo32));
  for (int p = 0; p < kIqCodePeriods; ++p)
    plan.gain[p] = t.amplitude / kIqCarrierScale * BitOfMillisecond(ms + p, bits);
  plan.code = &code;
  SetIqPeriodStarts(plan, count);

  // Carrier in cycles: -L1 R(t) / c (a satellite coming closer turns the phasor
  // counter-clockwise) plus the offset's turns since the run's first sample.
  const double cyclesPerMetre = gnss::kL1Frequency / gnss::kSpeedOfLight;
  const int64_t seconds = first / t.rate;
  const int64_t rest = first % t.rate;
  const double offsetTurns = Fraction(Fraction(t.ifOffset) * static_cast<double>(seconds)) +
                             t.ifOffset * static_cast<double>(rest) / rate;
  const double theta =
      -Fraction(cyclesPerMetre * rangePrevious) - gnss::kL1Frequency * r * tau + offsetTurns;
  plan.carrierPhase =
      static_cast<uint32_t>(static_cast<uint64_t>(std::llround(Fraction(theta) * kTwo32)));
  const double step = (-gnss::kL1Frequency * r + t.ifOffset) / rate;
  plan.carrierStep = static_cast<uint32_t>(std::llround(step * kTwo32));
}

int GenerateIqSamples(const DifSettings& s, RecordState& record, const GeneratorFiles& files,
                      GeneratorContext& ctx, GeneratorReport& report) {
  IqTiming timing;
  timing.rate = s.IqSampleRate;
  timing.ifOffset = s.IqIfOffset;
  timing.amplitude = s.IqAmplitude;
  const float sigma = s.IqNoise != 0 ? IqNoiseSigma(s.IqAmplitude, s.SignalPower - kThermalNoiseDbw,
                                                    static_cast<double>(s.IqSampleRate))
                                     : 0.0f;
  const int bytes = s.IqBytes;
  const int32_t channelLimit = std::clamp(s.MaxChannels == 0 ? 20 : s.MaxChannels, 0, 32);

  WorkerTeam team(std::max(1, ctx.speed.threads));
  auto codes = std::make_unique<std::array<IqCodeTable, 32>>();
  team.ForEach(32, [&](int p) { MakeIqCodeTable(p, (*codes)[p]); });

  ScnReadIssues issues;
  int32_t timeMs = 0, count = 0;
  if (!ReadFirstTwoEpochs(record, files, ctx, report, timeMs, count, issues)) return 0;
  // Epochs `interval` ms apart: a block lies within the pair of epochs around it, at
  // `offset` ms past the earlier, and its ranges are interpolated between theirs. The
  // first block is the record's first epoch plus 1 ms, as with a 1 ms record (whose blocks
  // are its epochs from the second on, each taken as one millisecond whatever its time).
  const int32_t interval = EpochSpacingMs(timeMs, ctx.state.scnReader.timeMs);
  if (interval < 1 || interval > kIqMaxRecordIntervalMs) {
    report.refusal = fmt::format(
        "record {}: its first epochs are {} ms apart; the I/Q form reads records of 1 to {} "
        "ms (ObservationInterval)",
        files.record->path(), interval, kIqMaxRecordIntervalMs);
    return 0;
  }
  int32_t offset = 1;
  int32_t epochMs = timeMs;
  ctx.state.navBitTable.EnsureAllocated();
  std::array<IqBitSource, 32> bits{};
  for (int p = 0; p < 32; ++p) {
    bits[p].row = ctx.state.navBitTable.Row(p);
    bits[p].base = BitBaseForTime(timeMs);
  }
  const int64_t totalMs = RunMilliseconds(s);

  const int64_t maxCount = IqFirstSample(1, timing.rate) + 1;
  const int64_t blockBytes = maxCount * 2 * bytes;
  // Two batches: while the team makes the blocks of one, one of its members writes the
  // other (made in the round before) and then plans the next batch into it, so that the
  // record's reading and the file's writing overlap the sample making.
  struct Batch {
    std::vector<IqBlockPlan> plans;
    std::vector<uint8_t> out;
    std::vector<int64_t> held;
    int32_t planned = 0;
  };
  std::array<Batch, 2> batches;
  const auto batchBlocks = static_cast<int32_t>(
      std::max<int64_t>(kMinBatchBlocks, kBatchSamples / std::max<int64_t>(1, maxCount)));
  for (Batch& b : batches) {
    b.plans.resize(static_cast<size_t>(batchBlocks));
    b.held.resize(static_cast<size_t>(batchBlocks));
    b.out.resize(static_cast<size_t>(blockBytes * batchBlocks));
  }
  bool warnedBefore = false;
  int64_t block = 0;
  bool more = totalMs > 0;

  // Plans blocks in record order until the batch is full or the run ends.
  auto plan = [&](Batch& batch) {
    batch.planned = 0;
    while (more && batch.planned < batchBlocks && block < totalMs) {
      if (offset == interval) {
        if (!ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues)) {
          ctx.messages.Warn(fmt::format(
              "record {} ended after {} ms of the {} asked for: the run ends with the record",
              files.record->path(), block, totalMs));
          report.recordEnded = true;
          more = false;
          break;
        }
        const int32_t spacing = EpochSpacingMs(timeMs, ctx.state.scnReader.timeMs);
        if (interval > 1 && spacing != interval) {
          ctx.messages.Warn(fmt::format(
              "record {}: the epoch after {} ms of the week comes {} ms after it, not {}: the "
              "run ends there, after {} ms",
              files.record->path(), timeMs, spacing, interval, block));
          report.recordEnded = true;
          more = false;
          break;
        }
        offset = 0;
        epochMs = timeMs;
      }
      IqBlockPlan& p = batch.plans[batch.planned];
      p.block = block;
      p.count = static_cast<int32_t>(IqFirstSample(block + 1, timing.rate) -
                                     IqFirstSample(block, timing.rate));
      p.channels = 0;
      const int32_t listed = std::min({count, ctx.state.scnReader.count, channelLimit});
      bool pastRow = false;
      for (int32_t j = 0; j < listed; ++j) {
        const int32_t prn = record.prnList[j];
        if (prn < 1 || prn > 32) continue;
        const RangePair& range = record.codeRange[prn - 1];
        if (range.previous == 0.0 || range.next == 0.0) continue;  // not in both epochs
        IqBitSource& source = bits[prn - 1];
        PlanIqChannel(timing, block, epochMs + offset,
                      RangeBetween(range, offset, interval),
                      RangeBetween(range, offset + 1, interval), source, (*codes)[prn - 1],
                      p.channel[p.channels++]);
        pastRow = pastRow || source.pastRow;
        if (source.beforeRow && !warnedBefore) {
          warnedBefore = true;
          ctx.messages.Warn(
              "a satellite's signal at the start of the run was sent before the first "
              "bit of its navigation file: those bits are sent as +1");
        }
      }
      ++batch.planned;
      ++block;
      ++offset;
      if (pastRow) {
        ctx.messages.Warn(fmt::format(
            "the navigation bits (1740 s from the 12.5-minute frame of the run's start) ran "
            "out after {} ms: the run ends there",
            block));
        report.rowEnded = true;
        more = false;
      } else if (ctx.RunActive.load(std::memory_order_relaxed) == 0) {
        report.stopped = true;
        more = false;
      }
    }
    if (block >= totalMs) more = false;
  };

  // Writes the batch's blocks in order.
  auto write = [&](Batch& batch) {
    for (int32_t k = 0; k < batch.planned; ++k) {
      const size_t size = static_cast<size_t>(batch.plans[k].count) * 2 * bytes;
      if (files.output) std::fwrite(batch.out.data() + k * blockBytes, 1, size, files.output);
      report.bytes += static_cast<int64_t>(size);
      report.blocks += 1;
      report.heldValues += batch.held[k];
      if (report.blocks % 1000 == 0 && s.Duration > 0.0)
        ctx.messages.Progress(static_cast<double>(report.blocks / 1000) * 100.0 / s.Duration);
    }
    batch.planned = 0;
  };

  int current = 0;
  plan(batches[0]);
  while (batches[0].planned > 0 || batches[1].planned > 0) {
    Batch& now = batches[current];
    Batch& other = batches[1 - current];  // made in the round before, or empty
    // The writing and planning first, so that whoever takes it makes fewer blocks.
    team.ForEach(now.planned + 1, [&](int task) {
      if (task == 0) {
        write(other);
        plan(other);
        return;
      }
      const int k = task - 1;
      now.held[k] = MakeIqBlock(now.plans[k], sigma, bytes, ctx.speed.vectorised,
                                now.out.data() + k * blockBytes);
    });
    current = 1 - current;
    if (batches[current].planned == 0) write(now);  // the last batch: nothing to overlap
  }
  WarnScnIssues(issues, files, ctx);
  return 0;
}

}  // namespace vorel::dif
