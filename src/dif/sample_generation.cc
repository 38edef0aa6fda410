#include "dif/sample_generation.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <fmt/format.h>

#include "dif/ca_code.h"
#include "dif/noise.h"
#include "dif/quantiser.h"
#include "platform/scan.h"

namespace vorel::dif {
namespace {

constexpr double kMetresPerMs = 299792.458;
constexpr double kSpeedOfLight = 299792458.0;
constexpr double kRangeRateToRho = -3.335640940349549e-06;

// The double a scan stores lands on two float slots (and the spare one behind the last).
void StoreDoubleOverSlots(std::array<float, 65>& slots, int32_t slot, double value) {
  std::memcpy(&slots[static_cast<size_t>(slot)], &value, sizeof value);
}

int32_t SaturatingInt(double v) {
  if (!(v == v)) return 0;
  if (v >= 2147483647.0) return 2147483647;
  if (v <= -2147483648.0) return -2147483647 - 1;
  return static_cast<int32_t>(v);
}

// The tail of every block: noise already in the sum; filter, quantise, pack, write.
class BlockWriter {
 public:
  BlockWriter(const DifSettings& s, RunBuffers& b, std::FILE* output)
      : s_(s), b_(b), output_(output), levelCount_(LevelCount(s.BitsPerSample)),
        levels_(LevelTable(levelCount_)) {}

  int32_t Write(bool vectorised) {
    const int32_t n = s_.SamplesPerMs;
    if (s_.FilterOn == 1) {
      double* f = b_.filterBuffer.data();
      const float* sum = b_.sum.data();
      for (int32_t i = 0; i < n; ++i) f[i] = static_cast<double>(sum[i]);
      if (vectorised)
        platform::FirFilterInPlace(f, n, b_.filter);
      else
        platform::FirFilterInPlacePlain(f, n, b_.filter);
      if (vectorised)
        QuantiseDoubleBlock(s_.BitsPerSample, f, b_.bytes.data(), levels_.data(), n, levelCount_);
      else
        QuantiseDoubleBlockPlain(s_.BitsPerSample, f, b_.bytes.data(), levels_.data(), n, levelCount_);
    } else if (vectorised) {
      QuantiseFloatBlock(s_.BitsPerSample, b_.sum.data(), b_.bytes.data(), levels_.data(), n, levelCount_);
    } else {
      QuantiseFloatBlockPlain(s_.BitsPerSample, b_.sum.data(), b_.bytes.data(), levels_.data(), n, levelCount_);
    }
    const int32_t count = PackBlock(b_.bytes.data(), n, s_.BitsPerSample, s_.Decimation, s_.OutputPacked);
    if (output_ && count > 0) std::fwrite(b_.bytes.data(), 1, static_cast<size_t>(count), output_);
    return count;
  }

 private:
  const DifSettings& s_;
  RunBuffers& b_;
  std::FILE* output_;
  int32_t levelCount_;
  std::vector<uint8_t> levels_;
};

void AddNoise(float* sum, const float* noise, int32_t n) {
  for (int32_t i = 0; i < n; ++i) sum[i] = sum[i] + noise[i];
}

void StepScintCounter(int32_t scintMode, ScintillationState& scint) {
  if (scintMode <= 0) return;
  if (scint.scintCounter >= scint.scintPeriod) {
    scint.scintCounter = 0;
    scint.slotOld = scint.slotNew;
    scint.slotNew = std::abs(scint.slotNew - 1);
  }
  scint.scintCounter += 1;
}

void FillScintillation(ScintillationState& scint) {
  scint.amplitude.fill(1.0f);
  scint.phase.fill(0.0f);
}

// One path ready to run: its arguments, and the channel and bit feed it moves on.
struct PlannedPath {
  PathArgs args;
  int32_t channel;  // index into the block's channel plan
};

void RunPlannedPath(const PlannedPath& p, ChannelNco& nco, BitFeed& feed, float* dst, bool vectorised,
                    bool store) {
  if (store) {
    if (vectorised)
      RunPathFastStore(p.args, nco, feed, dst);
    else
      RunPathPlainStore(p.args, nco, feed, dst);
  } else if (vectorised) {
    RunPathFast(p.args, nco, feed, dst);
  } else {
    RunPathPlain(p.args, nco, feed, dst);
  }
}

// Runs the block's paths in order into the sum (one thread), or channel by channel on
// several threads into a buffer per path, summed afterwards in the plain order.
void RunPaths(const std::vector<PlannedPath>& paths, const std::vector<ChannelNco*>& ncos,
              const std::vector<BitFeed*>& feeds, RunBuffers& b,
              std::vector<platform::AlignedBuffer<float>>& pathBuffers, const GeneratorSpeed& speed,
              int32_t n) {
  float* sum = b.sum.data();
  const int threads = std::max(1, speed.threads);
  if (threads == 1 || paths.size() < 2) {
    for (const PlannedPath& p : paths) RunPlannedPath(p, *ncos[p.channel], *feeds[p.channel], sum, speed.vectorised, false);
    return;
  }
  // Paths of one channel stay together and in order on one thread.
  const int32_t channels = static_cast<int32_t>(ncos.size());
  std::vector<int32_t> firstPath(static_cast<size_t>(channels) + 1, static_cast<int32_t>(paths.size()));
  for (int32_t j = static_cast<int32_t>(paths.size()) - 1; j >= 0; --j) firstPath[paths[j].channel] = j;
  for (int32_t c = channels - 1; c >= 0; --c) firstPath[c] = std::min(firstPath[c], firstPath[c + 1]);
#pragma omp parallel for schedule(static) num_threads(threads)
  for (int32_t c = 0; c < channels; ++c) {
    for (int32_t j = firstPath[c]; j < firstPath[c + 1]; ++j)
      RunPlannedPath(paths[j], *ncos[c], *feeds[c], pathBuffers[j].data(), speed.vectorised, true);
  }
  const int32_t count = static_cast<int32_t>(paths.size());
#pragma omp parallel for schedule(static) num_threads(threads)
  for (int32_t chunk = 0; chunk < (n + 1023) / 1024; ++chunk) {
    const int32_t lo = chunk * 1024, hi = std::min(n, lo + 1024);
    for (int32_t j = 0; j < count; ++j) {
      const float* src = pathBuffers[j].data();
      for (int32_t i = lo; i < hi; ++i) sum[i] = sum[i] + src[i];
    }
  }
}

}  // namespace

void RunBuffers::Allocate(int32_t n) {
  filterBuffer.Allocate(static_cast<size_t>(8) * n);
  sum.Allocate(n);
  noise.Allocate(n);
  channel.Allocate(n);
  bytes.Allocate(n);
  codeTables.clear();
  codeTables.resize(32);
  for (auto& t : codeTables) t.Allocate(n);
}

void LoadMultipathTable(const std::array<MultipathRow, kMultipathRows>& rows, int32_t rowCount,
                        MultipathRecords& records, int32_t& skippedRows) {
  bool on = true;
  skippedRows = 0;
  for (int32_t r = 0; r < std::min(rowCount, kMultipathRows); ++r) {
    const MultipathRow& row = rows[r];
    if (row.enable == "n") {
      on = false;
      continue;
    }
    if (row.enable == "y") on = true;
    if (!on) continue;
    if (row.prn < 1 || row.prn > 32) {
      ++skippedRows;
      continue;
    }
    MultipathRecord& rec = records[row.prn - 1];
    if (rec.count >= kMaxPaths) continue;  // eight rows can give no more
    rec.amplitude[rec.count] = static_cast<float>(row.amplitude);
    rec.delay[rec.count] = static_cast<float>(row.delay);
    rec.startTime[rec.count] = static_cast<float>(row.startTime);
    rec.count += 1;
  }
}

void UpdateScintillation(int32_t prn, int32_t bubbleClass, int32_t scintMode, int32_t scintPrn,
                         int32_t scintStart, int32_t seconds, platform::LineReader* file,
                         ScintillationState& st, float& amplitude, float& phase) {
  const int32_t slotNew = 2 * (prn - 1) + st.slotNew;
  const int32_t slotOld = 2 * (prn - 1) + st.slotOld;
  auto plain = [&] {
    st.amplitude[slotNew] = 1.0f;
    st.phase[slotNew] = 0.0f;
  };
  if (st.scintCounter >= st.scintPeriod) {
    std::string line;
    if (scintMode == 2) {
      if (prn == scintPrn && seconds >= scintStart) {
        const int length = file ? file->ReadLine(line) : -1;
        if (length > 0) {
          // Values a line does not hold are taken as phase 0 and power 1.
          double first = 0.0, second = 1.0;
          platform::ScanLine(line, "%s>%f%f", {&first, &second});
          StoreDoubleOverSlots(st.phase, slotNew, first);
          st.amplitude[slotNew] = static_cast<float>(std::sqrt(second));
        } else {
          plain();
        }
      } else {
        plain();
      }
    } else if (scintMode == 1) {
      const int length = file ? file->ReadLine(line) : -1;
      if (length < 0) {
        plain();
      } else if (bubbleClass == 0) {
        plain();
      } else if (bubbleClass >= 1 && bubbleClass <= 5) {
        platform::Scanner scanner(line);
        double skipped = 0.0, first = 0.0, second = 0.0;
        bool ok = true;
        for (int32_t k = 0; k < 2 * (bubbleClass - 1) && ok; ++k) ok = scanner.Double(skipped);
        if (ok && scanner.Double(first)) {
          StoreDoubleOverSlots(st.phase, slotNew, first);
          if (scanner.Double(second)) StoreDoubleOverSlots(st.amplitude, slotNew, second);
        }
      }
      // Classes above 5 (and below 0) leave the slots as they are.
    }
  }
  const float counter = static_cast<float>(st.scintCounter);
  const float period = static_cast<float>(st.scintPeriod);
  const float aOld = st.amplitude[slotOld], aNew = st.amplitude[slotNew];
  const float pOld = st.phase[slotOld], pNew = st.phase[slotNew];
  amplitude = aOld + ((aNew - aOld) * counter) / period;
  phase = pOld + ((pNew - pOld) * counter) / period;
}

int32_t BitBaseForTime(int32_t timeMs) {
  return static_cast<int32_t>(std::trunc(timeMs / 750000.0)) * 37500;
}

float AlignChannel(int32_t n, int32_t timeMs, const int32_t* row, double range, int32_t base,
                   ChannelNco& nco, BitFeed& feed) {
  const double tx = timeMs - range / kMetresPerMs;
  nco.bitNumber = SaturatingInt(std::floor(tx / 20.0));
  const int64_t index = static_cast<int64_t>(nco.bitNumber) - base;
  if (index < 0) {
    nco.navBit = 1;
    feed.beforeRow = true;
  } else if (index >= kNavBitsPerRow) {
    nco.navBit = 1;
    feed.pastRow = true;
  } else {
    nco.navBit = row[index];
  }
  double whole = 0.0;
  const double fraction = std::modf(tx, &whole);
  const float codePhase = static_cast<float>(fraction) * static_cast<float>(n);
  const double ms = std::trunc(whole - 20.0 * nco.bitNumber);
  // Floored into 0..19 so that the millisecond count of a bit always closes.
  const int32_t msInBit = SaturatingInt(ms);
  nco.msInBit = ((msInBit % 20) + 20) % 20;
  return codePhase;
}

int GenerateScenarioSamples(const DifSettings& s, RunBuffers& b, RecordState& record,
                            ScintillationState& scint, const MultipathRecords& multipath,
                            const GeneratorFiles& files, GeneratorContext& ctx,
                            GeneratorReport& report) {
  const int32_t n = s.SamplesPerMs;
  const float fs = static_cast<float>(s.SamplingFrequency);
  const float intermediate = static_cast<float>(s.IfFrequency);
  const float metreToSample = static_cast<float>(0.001 * n / kSpeedOfLight);
  const float radPerHz = kTwoPiFloat / fs;
  BlockWriter writer(s, b, files.output);
  const int32_t rate = s.ScintRate == 0 ? 1 : s.ScintRate;
  scint.scintPeriod = 1000 / rate;
  if (s.ScintMode > 0) FillScintillation(scint);

  std::vector<platform::AlignedBuffer<float>> codeFloat(32);
  for (int32_t p = 0; p < 32; ++p) {
    MakeCaCodeSamples(n, static_cast<double>(fs), 0.0, p, b.codeTables[p].data());
    codeFloat[p].Allocate(n);
    for (int32_t i = 0; i < n; ++i) codeFloat[p][i] = static_cast<float>(b.codeTables[p][i]);
  }

  ScnReadIssues issues;
  int32_t timeMs = 0, count = 0;
  auto warnIssues = [&] {
    const std::string text = issues.Describe(files.record ? files.record->path() : "");
    if (!text.empty()) ctx.messages.Warn(text);
  };
  if (!files.record || !ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues) ||
      !ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues)) {
    ctx.messages.Warn(fmt::format("record {} holds fewer than two epochs: no samples were made",
                                  files.record ? files.record->path() : ""));
    report.recordEnded = true;
    return 0;
  }
  ctx.state.navBitTable.EnsureAllocated();
  const int32_t base = BitBaseForTime(timeMs);

  const double total = std::trunc(1000.0 * s.Duration);
  const int64_t totalMs = total > 0.0 ? static_cast<int64_t>(total) : 0;
  const int32_t channelLimit = std::clamp(s.MaxChannels == 0 ? 20 : s.MaxChannels, 0, 32);
  if (totalMs <= 0) return 0;

  std::array<ChannelNco, 32> nco{};
  std::array<BitFeed, 32> feeds{};
  for (int32_t p = 0; p < 32; ++p) {
    feeds[p].kind = BitFeed::Kind::kScenario;
    feeds[p].row = ctx.state.navBitTable.Row(p);
    feeds[p].base = base;
  }
  int32_t maxPaths = 1;
  for (const MultipathRecord& m : multipath) maxPaths = std::max(maxPaths, 1 + m.count);
  std::vector<platform::AlignedBuffer<float>> pathBuffers;
  if (ctx.speed.threads > 1) {
    pathBuffers.resize(static_cast<size_t>(channelLimit) * maxPaths);
    for (auto& buffer : pathBuffers) buffer.Allocate(n);
  }
  std::vector<PlannedPath> paths;
  paths.reserve(pathBuffers.size() + static_cast<size_t>(32 * maxPaths));
  std::vector<ChannelNco*> channelNcos;
  std::vector<BitFeed*> channelFeeds;
  bool warnedBefore = false;

  int32_t msCounter = 0, seconds = 0;
  int64_t msDone = 0;
  scint.scintCounter = 0;
  for (;;) {
    msCounter += 1;
    if (!ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues)) {
      ctx.messages.Warn(fmt::format("record {} ended after {} ms of the {} asked for: the run ends "
                                    "with the record",
                                    files.record->path(), msDone, totalMs));
      report.recordEnded = true;
      break;
    }
    count = std::clamp(count, 0, std::min(channelLimit, 32));
    if (count > 0 && msCounter == 1000) {
      for (int32_t j = 0; j < count; ++j) {
        const int32_t prn = record.prnList[j];
        if (prn < 1 || prn > 32) continue;
        ChannelNco& c = nco[prn - 1];
        c.syncAge += 1;
        if (c.syncAge == 100001) c.syncAge = 0;
      }
    }
    b.sum.Zero();
    GaussianBlock(0.0f, s.NoiseSigma, b.noise.data(), n, ctx.rand);

    paths.clear();
    channelNcos.clear();
    channelFeeds.clear();
    for (int32_t j = 0; j < count; ++j) {
      const int32_t prn = record.prnList[j];
      if (prn < 1 || prn > 32) continue;
      ChannelNco& c = nco[prn - 1];
      BitFeed& feed = feeds[prn - 1];
      float g = 1.0f, thetaOff = 0.0f;
      if (s.ScintMode > 0)
        UpdateScintillation(prn, record.bubbleClass[prn - 1], s.ScintMode, s.ScintPrn, s.ScintStart,
                            seconds, files.scint, scint, g, thetaOff);
      const RangePair& range = record.codeRange[prn - 1];
      const double dR = ((range.next - range.previous) * (n - 1)) / n + range.previous - range.previous;
      const float rho = static_cast<float>(dR * kRangeRateToRho);
      const float omega = (static_cast<float>(static_cast<double>(rho) * s.CarrierFrequency) + intermediate) * radPerHz;
      if (c.syncAge == 0) {
        const float codePhase = AlignChannel(n, timeMs, feed.row, range.previous, base, c, feed);
        c.codeIndex = SaturatingInt(codePhase);
        c.codeFraction = codePhase - static_cast<float>(c.codeIndex);
        c.syncAge = 1;
      }
      const int32_t channel = static_cast<int32_t>(channelNcos.size());
      channelNcos.push_back(&c);
      channelFeeds.push_back(&feed);
      const MultipathRecord& mp = multipath[prn - 1];
      const int32_t M = mp.count;
      float d = 0.0f;
      for (int32_t path = 0; path <= M; ++path) {
        if (path > 0) {
          if (static_cast<float>(seconds) >= mp.startTime[path - 1]) {
            d = mp.delay[path - 1] * metreToSample;
            g = mp.amplitude[path - 1];
          } else {
            d = 0.0f;
            g = 1.0f;
          }
        }
        PlannedPath planned;
        planned.channel = channel;
        planned.args.n = n;
        planned.args.d = d;
        planned.args.rho = rho;
        planned.args.omega = omega;
        planned.args.thetaOff = thetaOff;
        planned.args.g = g;
        planned.args.lastPath = path == M;
        planned.args.carrierOn = true;
        planned.args.code = b.codeTables[prn - 1].data();
        planned.args.codeFloat = codeFloat[prn - 1].data();
        paths.push_back(planned);
      }
    }
    if (ctx.speed.threads > 1 && paths.size() > pathBuffers.size()) {
      // More paths than planned for (a PRN listed twice): this block runs on one thread.
      GeneratorSpeed single = ctx.speed;
      single.threads = 1;
      RunPaths(paths, channelNcos, channelFeeds, b, pathBuffers, single, n);
    } else {
      RunPaths(paths, channelNcos, channelFeeds, b, pathBuffers, ctx.speed, n);
    }
    AddNoise(b.sum.data(), b.noise.data(), n);
    StepScintCounter(s.ScintMode, scint);
    report.bytes += writer.Write(ctx.speed.vectorised);
    report.blocks += 1;

    bool rowEnded = false;
    for (BitFeed& f : feeds) {
      rowEnded = rowEnded || f.pastRow;
      if (f.beforeRow && !warnedBefore) {
        warnedBefore = true;
        ctx.messages.Warn("a satellite's signal at the start of the run was sent before the first "
                          "bit of its navigation file: those bits are sent as +1");
      }
    }
    if (rowEnded) {
      ctx.messages.Warn(fmt::format("the navigation bits (1740 s from the 12.5-minute frame of the "
                                    "run's start) ran out after {} ms: the run ends there",
                                    msDone + 1));
      report.rowEnded = true;
      break;
    }
    if (ctx.RunActive.load(std::memory_order_relaxed) == 0) {
      report.stopped = true;
      break;
    }
    msDone += 1;
    if (msDone >= totalMs) break;
    if (msCounter == 1000) {
      seconds += 1;
      ctx.messages.Progress(seconds * 100.0 / s.Duration);
      msCounter = 0;
    }
  }
  warnIssues();
  return 0;
}

int GenerateTestSamples(const DifSettings& s, RunBuffers& b, ScintillationState& scint,
                        const MultipathRecords& multipath, const GeneratorFiles& files,
                        GeneratorContext& ctx, GeneratorReport& report) {
  const int32_t n = s.SamplesPerMs;
  const int32_t prnIndex = s.TestPrn - 1;
  platform::AlignedBuffer<int32_t> code(n);
  platform::AlignedBuffer<float> codeFloat(n);
  if (s.TestCodeOn == 1)
    MakeCaCodeSamples(n, s.SamplingFrequency, 0.0, prnIndex, code.data());
  else
    std::fill(code.data(), code.data() + n, 1);
  for (int32_t i = 0; i < n; ++i) codeFloat[i] = static_cast<float>(code[i]);
  BlockWriter writer(s, b, files.output);

  const double fd = s.TestDopplerOn != 0 ? s.TestDoppler : 0.0;
  const float rho = static_cast<float>(fd / s.CarrierFrequency);
  const float omega = (kTwoPiFloat / static_cast<float>(s.SamplingFrequency)) * static_cast<float>(s.IfFrequency + fd);
  const int32_t rate = s.ScintRate == 0 ? 1 : s.ScintRate;
  scint.scintPeriod = 1000 / rate;
  if (s.ScintMode > 0) {
    scint.amplitude[2 * prnIndex] = scint.amplitude[2 * prnIndex + 1] = 1.0f;
    scint.phase[2 * prnIndex] = scint.phase[2 * prnIndex + 1] = 0.0f;
  }

  ChannelNco c;
  c.navBit = 1;
  BitFeed feed;
  const int32_t mode = s.TestDataOn != 0 ? s.TestDataMode : 0;
  feed.kind = mode == 1 ? BitFeed::Kind::kAlternate : mode == 2 ? BitFeed::Kind::kFile : BitFeed::Kind::kAllOnes;
  if (mode == 2) {
    ctx.state.navBitTable.EnsureAllocated();
    feed.row = ctx.state.navBitTable.Row(0);
  }

  const double total = std::trunc(1000.0 * s.Duration);
  const int64_t totalMs = total > 0.0 ? static_cast<int64_t>(total) : 0;
  if (totalMs <= 0) return 0;
  const MultipathRecord& mp = multipath[prnIndex];
  const float metreToSample = static_cast<float>(0.001 * n / kSpeedOfLight);
  int32_t msCounter = 0, seconds = 0;
  int64_t msDone = 0;
  scint.scintCounter = 0;
  for (;;) {
    if (msCounter == 1000) {
      seconds += 1;
      ctx.messages.Progress(seconds * 100.0 / s.Duration);
      msCounter = 0;
    }
    msCounter += 1;
    b.sum.Zero();
    GaussianBlock(0.0f, s.NoiseSigma, b.noise.data(), n, ctx.rand);
    float g = 1.0f, thetaOff = 0.0f;
    if (s.ScintMode > 0)
      UpdateScintillation(s.TestPrn, 0, 2, s.TestPrn, s.ScintStart, seconds, files.scint, scint, g, thetaOff);
    float d = 0.0f;
    for (int32_t path = 0; path <= mp.count; ++path) {
      if (path > 0) {
        if (static_cast<float>(seconds) >= mp.startTime[path - 1]) {
          d = mp.delay[path - 1] * metreToSample;
          g = mp.amplitude[path - 1];
        } else {
          d = 0.0f;
          g = 1.0f;
        }
      }
      PathArgs a;
      a.n = n;
      a.d = d;
      a.rho = rho;
      a.omega = omega;
      a.thetaOff = thetaOff;
      a.g = g;
      a.lastPath = path == mp.count;
      a.carrierOn = s.TestCarrierOn != 0;
      a.code = code.data();
      a.codeFloat = codeFloat.data();
      if (ctx.speed.vectorised)
        RunPathFast(a, c, feed, b.sum.data());
      else
        RunPathPlain(a, c, feed, b.sum.data());
    }
    AddNoise(b.sum.data(), b.noise.data(), n);
    StepScintCounter(s.ScintMode, scint);
    report.bytes += writer.Write(ctx.speed.vectorised);
    report.blocks += 1;
    if (feed.pastRow) {
      ctx.messages.Warn(fmt::format("the navigation bits of the test signal ran out after {} ms: "
                                    "the run ends there",
                                    msDone + 1));
      report.rowEnded = true;
      break;
    }
    if (ctx.RunActive.load(std::memory_order_relaxed) == 0) {
      report.stopped = true;
      break;
    }
    msDone += 1;
    if (msDone >= totalMs) break;
  }
  return 0;
}

}  // namespace vorel::dif
