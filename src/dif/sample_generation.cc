#include "dif/sample_generation.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "dif/block_engine.h"
#include "dif/ca_code.h"
#include "gnss/constants.h"

namespace vorel::dif {
namespace {

constexpr double kMetresPerMs = 299792.458;
using gnss::kSpeedOfLight;
constexpr double kRangeRateToRho = -3.335640940349549e-06;

int32_t SaturatingInt(double v) {
  if (!(v == v)) return 0;
  if (v >= 2147483647.0) return 2147483647;
  if (v <= -2147483648.0) return -2147483647 - 1;
  return static_cast<int32_t>(v);
}

// The paths of one channel: the direct path, then one per multipath row of its PRN, which
// until its start time is a second copy of the direct signal at full strength. Returns the
// channel, for its alignment.
PlannedChannel& AddChannel(BlockPlan& plan, int32_t unit, const PathArgs& direct,
                           const MultipathRecord& mp, int32_t seconds, float metreToSample) {
  PlannedChannel ch;
  ch.unit = unit;
  ch.firstPath = static_cast<int32_t>(plan.paths.size());
  float d = direct.d, g = direct.g;
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
    PathArgs a = direct;
    a.d = d;
    a.g = g;
    a.lastPath = path == mp.count;
    plan.paths.push_back(a);
  }
  ch.endPath = static_cast<int32_t>(plan.paths.size());
  plan.channels.push_back(ch);
  return plan.channels.back();
}

}  // namespace

void RunBuffers::Allocate(int32_t n) {
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

bool ReadFirstTwoEpochs(RecordState& record, const GeneratorFiles& files, GeneratorContext& ctx,
                        GeneratorReport& report, int32_t& timeMs, int32_t& count,
                        ScnReadIssues& issues) {
  if (!files.record ||
      !ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues) ||
      !ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues)) {
    ctx.messages.Warn(fmt::format("record {} holds fewer than two epochs: no samples were made",
                                  files.record ? files.record->path() : ""));
    report.recordEnded = true;
    return false;
  }
  return true;
}

void WarnScnIssues(const ScnReadIssues& issues, const GeneratorFiles& files,
                   GeneratorContext& ctx) {
  const std::string text = issues.Describe(files.record ? files.record->path() : "");
  if (!text.empty()) ctx.messages.Warn(text);
}

int64_t RunMilliseconds(const DifSettings& s) {
  const double total = std::trunc(1000.0 * s.Duration);
  return total > 0.0 ? static_cast<int64_t>(total) : 0;
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
  const int32_t channelLimit = std::clamp(s.MaxChannels == 0 ? 20 : s.MaxChannels, 0, 32);
  BlockEngine engine(s, b.filter, files.output, ctx.speed);
  StartScintillation(s, 0, scint);
  const ScintReading scintReading = ScenarioScintReading(s);

  // The 32 sampled codes are independent of one another: made on the run's threads.
  std::vector<platform::AlignedBuffer<float>> codeFloat(32);
  engine.team().ForEach(32, [&](int p) {
    MakeCaCodeSamples(n, static_cast<double>(fs), 0.0, p, b.codeTables[p].data());
    codeFloat[p].Allocate(n);
    for (int32_t i = 0; i < n; ++i) codeFloat[p][i] = static_cast<float>(b.codeTables[p][i]);
  });

  ScnReadIssues issues;
  int32_t timeMs = 0, count = 0;
  if (!ReadFirstTwoEpochs(record, files, ctx, report, timeMs, count, issues)) return 0;
  ctx.state.navBitTable.EnsureAllocated();
  const int32_t base = BitBaseForTime(timeMs);

  const int64_t totalMs = RunMilliseconds(s);
  if (totalMs <= 0) return 0;

  std::array<ChannelNco, 32> nco{};
  std::array<BitFeed, 32> feeds{};
  std::array<const int32_t*, 32> rows{};
  for (int32_t p = 0; p < 32; ++p) {
    rows[p] = ctx.state.navBitTable.Row(p);
    feeds[p].kind = BitFeed::Kind::kScenario;
    feeds[p].row = rows[p];
    feeds[p].base = base;
  }
  // The planner's own: when each PRN was aligned (the NCOs belong to the stages).
  std::array<int32_t, 32> syncAge{};

  BlockSource source;
  source.plan = [&](int64_t block, BlockPlan& plan) {
    const int32_t msCounter = static_cast<int32_t>(block % 1000) + 1;
    const int32_t seconds = static_cast<int32_t>(block / 1000);
    const bool read =
        ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues);
    plan.statics = ctx.state.scnReader;
    plan.issues = issues;
    plan.rand = ctx.rand;
    if (!read) {
      plan.recordEnded = true;
      return;
    }
    count = std::clamp(count, 0, std::min(channelLimit, 32));
    if (count > 0 && msCounter == 1000) {
      for (int32_t j = 0; j < count; ++j) {
        const int32_t prn = record.prnList[j];
        if (prn < 1 || prn > 32) continue;
        syncAge[prn - 1] += 1;
        if (syncAge[prn - 1] == 100001) syncAge[prn - 1] = 0;
      }
    }
    plan.seed = static_cast<uint32_t>(platform::CrtRand(ctx.rand));
    plan.rand = ctx.rand;
    for (int32_t j = 0; j < count; ++j) {
      const int32_t prn = record.prnList[j];
      if (prn < 1 || prn > 32) continue;
      PathArgs direct;
      if (s.ScintMode > 0)
        UpdateScintillation(prn, record.bubbleClass[prn - 1], scintReading, seconds, files.scint,
                            scint, direct.g, direct.thetaOff);
      const RangePair& range = record.codeRange[prn - 1];
      // The program's rate covers n - 1 of the block's n sample steps, so the code falls
      // behind the range by 1/n of its change; the whole change keeps it on the record.
      const double dR =
          s.WholeBlockRate == 1
              ? range.next - range.previous
              : ((range.next - range.previous) * (n - 1)) / n + range.previous - range.previous;
      direct.n = n;
      direct.floorWrap = s.CodeWrapFloor == 1;
      direct.epochOnWrap = s.CodeEpochOnWrap == 1;
      direct.rho = static_cast<float>(dR * kRangeRateToRho);
      direct.omega =
          (static_cast<float>(static_cast<double>(direct.rho) * s.CarrierFrequency) + intermediate) *
          radPerHz;
      direct.carrierOn = true;
      direct.code = b.codeTables[prn - 1].data();
      direct.codeFloat = codeFloat[prn - 1].data();
      PlannedChannel& ch =
          AddChannel(plan, prn - 1, direct, multipath[prn - 1], seconds, metreToSample);
      if (syncAge[prn - 1] == 0) {
        // AlignChannel on a copy: what it sets, the stage running the channel puts in place.
        ChannelNco aligned;
        BitFeed flags;
        const float codePhase =
            AlignChannel(n, timeMs, rows[prn - 1], range.previous, base, aligned, flags);
        ch.align = true;
        ch.alignment.bitNumber = aligned.bitNumber;
        ch.alignment.navBit = aligned.navBit;
        ch.alignment.msInBit = aligned.msInBit;
        ch.alignment.codeIndex = SaturatingInt(codePhase);
        ch.alignment.codeFraction = codePhase - static_cast<float>(ch.alignment.codeIndex);
        ch.alignment.beforeRow = flags.beforeRow;
        ch.alignment.pastRow = flags.pastRow;
        syncAge[prn - 1] = 1;
      }
    }
    StepScintCounter(s.ScintMode, scint);
  };
  source.rowEnded = [](int64_t ms) {
    return fmt::format(
        "the navigation bits (1740 s from the 12.5-minute frame of the run's start) ran out "
        "after {} ms: the run ends there",
        ms);
  };
  source.recordEnded = [&](int64_t ms) {
    return fmt::format(
        "record {} ended after {} ms of the {} asked for: the run ends with the record",
        files.record->path(), ms, totalMs);
  };

  scint.scintCounter = 0;
  BlockPlan last;
  last.rand = ctx.rand;
  last.statics = ctx.state.scnReader;
  last.issues = issues;
  engine.Run(nco.data(), feeds.data(), 32, totalMs, source, ctx, report, last);
  // The planner may have read ahead of the last block: the worker's rand and the reader's
  // statics go on from where that block left them, as with one thread.
  ctx.rand = last.rand;
  ctx.state.scnReader = last.statics;
  issues = last.issues;
  WarnScnIssues(issues, files, ctx);
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
  BlockEngine engine(s, b.filter, files.output, ctx.speed);

  const double fd = s.TestDopplerOn != 0 ? s.TestDoppler : 0.0;
  const float rho = static_cast<float>(fd / s.CarrierFrequency);
  const float omega = (kTwoPiFloat / static_cast<float>(s.SamplingFrequency)) *
                      static_cast<float>(s.IfFrequency + fd);
  StartScintillation(s, s.TestPrn, scint);
  const ScintReading scintReading = TestScintReading(s);

  ChannelNco c;
  c.navBit = 1;
  BitFeed feed;
  const int32_t mode = s.TestDataOn != 0 ? s.TestDataMode : 0;
  feed.kind = mode == 1   ? BitFeed::Kind::kAlternate
              : mode == 2 ? BitFeed::Kind::kFile
                          : BitFeed::Kind::kAllOnes;
  if (mode == 2) {
    ctx.state.navBitTable.EnsureAllocated();
    feed.row = ctx.state.navBitTable.Row(0);
  }

  const int64_t totalMs = RunMilliseconds(s);
  if (totalMs <= 0) return 0;
  const MultipathRecord& mp = multipath[prnIndex];
  const float metreToSample = static_cast<float>(0.001 * n / kSpeedOfLight);

  BlockSource source;
  source.plan = [&](int64_t block, BlockPlan& plan) {
    const int32_t seconds = static_cast<int32_t>(block / 1000);
    plan.seed = static_cast<uint32_t>(platform::CrtRand(ctx.rand));
    plan.rand = ctx.rand;
    PathArgs direct;
    if (s.ScintMode > 0)
      UpdateScintillation(s.TestPrn, 0, scintReading, seconds, files.scint, scint, direct.g,
                          direct.thetaOff);
    direct.n = n;
    direct.rho = rho;
    direct.omega = omega;
    direct.carrierOn = s.TestCarrierOn != 0;
    direct.code = code.data();
    direct.codeFloat = codeFloat.data();
    AddChannel(plan, 0, direct, mp, seconds, metreToSample);
    StepScintCounter(s.ScintMode, scint);
  };
  source.rowEnded = [](int64_t ms) {
    return fmt::format(
        "the navigation bits of the test signal ran out after {} ms: the run ends there", ms);
  };
  source.recordEnded = [](int64_t) { return std::string(); };

  scint.scintCounter = 0;
  BlockPlan last;
  last.rand = ctx.rand;
  engine.Run(&c, &feed, 1, totalMs, source, ctx, report, last);
  ctx.rand = last.rand;
  return 0;
}

}  // namespace vorel::dif
