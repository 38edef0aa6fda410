#include "dif/sample_generation.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <memory>

#include "dif/ca_code.h"
#include "dif/noise.h"
#include "dif/quantiser.h"
#include "dif/worker_team.h"
#include "gnss/constants.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

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

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

// What aligning a channel sets, worked out when its block is planned and put in place by
// the thread that runs the channel (the planner never touches a channel's state).
struct Alignment {
  int32_t bitNumber = 0;
  int32_t navBit = 0;
  int32_t msInBit = 0;
  int32_t codeIndex = 0;
  float codeFraction = 0.0f;
  bool beforeRow = false;
  bool pastRow = false;
};

void ApplyAlignment(const Alignment& a, ChannelNco& nco, BitFeed& feed) {
  nco.bitNumber = a.bitNumber;
  nco.navBit = a.navBit;
  nco.msInBit = a.msInBit;
  nco.codeIndex = a.codeIndex;
  nco.codeFraction = a.codeFraction;
  if (a.beforeRow) feed.beforeRow = true;
  if (a.pastRow) feed.pastRow = true;
}

struct PlannedChannel {
  int32_t unit = 0;       // index of the channel's NCO and bit feed
  int32_t firstPath = 0;  // its paths in the block's list
  int32_t endPath = 0;
  bool align = false;
  Alignment alignment;
  int32_t waitStage = -1;  // set by the engine: before the channel, wait until that stage
  int64_t waitCount = 0;   // has done this many blocks (the channel last ran there)
};

// One block as the planner hands it over, and what the run leaves behind if this block
// turns out to be its last: the worker's rand, the record reader's statics and issues.
struct BlockPlan {
  bool recordEnded = false;  // the record ended where this block's epoch should be: no block
  uint32_t seed = 0;
  std::vector<PathArgs> paths;
  std::vector<PlannedChannel> channels;
  platform::RandState rand;
  ScnReaderStatics statics;
  ScnReadIssues issues;
};

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

// What differs between the two generators: how a block is planned (on the first stage's
// thread, block after block) and what the warnings say.
struct BlockSource {
  std::function<void(int64_t block, BlockPlan& plan)> plan;
  std::function<std::string(int64_t ms)> rowEnded;
  std::function<std::string(int64_t ms)> recordEnded;
};

// Where a block's work goes: stage s runs channels stageFirst[s] .. stageFirst[s + 1] - 1
// (each channel with all its paths), and stage noiseStage makes the noise. The noise comes
// in groups of 16 values, each from the block's seed and its own index alone, so it may be
// shared: noiseStage makes groups 0 .. noiseHandOff - 1 and the last stage the rest (a
// noiseHandOff of kAllNoise, or a noiseStage that is the last, gives it all to noiseStage).
inline constexpr int32_t kAllNoise = INT32_MAX;
struct Split {
  std::vector<int32_t> stageFirst;
  int32_t noiseStage = 0;
  int32_t noiseHandOff = kAllNoise;
};

// The cost of each piece of a block in seconds: planning (first stage), one path, the
// noise, and the finish (noise added, filter, quantiser, packing, write: last stage).
struct Costs {
  double plan = 0.0;
  double path = 0.0;
  double noise = 0.0;
  double finish = 0.0;
};

// Chooses the split that makes the busiest stage least busy under the costs measured over
// the last blocks (medians over 128 blocks). A new split is taken only when it is clearly
// better, and one that moves a channel to an earlier stage (which makes that stage wait for
// the later one once) at most every 4096 blocks.
class Balancer {
 public:
  // `groups`: the noise groups of a block, which may be shared between the two stages of a
  // two-stage run (0: the noise is made whole by one stage).
  Balancer(int stages, const Costs& guess, int32_t groups)
      : stages_(stages), groups_(groups), costs_(guess) {}

  const Split& For(const std::vector<int32_t>& pathCounts) {
    if (pathCounts != paths_ || split_.stageFirst.empty()) {
      paths_ = pathCounts;
      split_ = Best(paths_);
    }
    return split_;
  }

  // One retired block's measurements.
  void Absorb(const Costs& sample, bool havePaths) {
    plan_.push_back(sample.plan);
    finish_.push_back(sample.finish);
    noise_.push_back(sample.noise);
    if (havePaths) path_.push_back(sample.path);
    if (plan_.size() < kWindow) return;
    costs_.plan = Median(plan_);
    costs_.finish = Median(finish_);
    costs_.noise = Median(noise_);
    if (!path_.empty()) costs_.path = Median(path_);
    plan_.clear();
    finish_.clear();
    noise_.clear();
    path_.clear();
    if (split_.stageFirst.empty()) return;
    // Moving the noise, or channels to later stages, costs nothing; a channel moving to an
    // earlier stage makes that stage wait once until the later one has caught up (up to a
    // ring of blocks). So such a move needs a clear gain and comes at most once in a while,
    // lest the split follow the noise of the measurements.
    Split best = Best(paths_);
    const bool back = MovesBack(split_, best);
    sinceBack_ += kWindow;
    if (back && sinceBack_ < kBackEvery) return;
    if (Bottleneck(best, paths_) < (back ? 0.95 : 0.98) * Bottleneck(split_, paths_)) {
      split_ = best;
      if (back) sinceBack_ = 0;
    }
  }

  const Costs& costs() const { return costs_; }

 private:
  static constexpr size_t kWindow = 128;
  static constexpr int64_t kBackEvery = 4096;

  // Whether some channel runs on an earlier stage under `to` than under `from`.
  static bool MovesBack(const Split& from, const Split& to) {
    int a = 0, b = 0;
    const int32_t channels = from.stageFirst.back();
    for (int32_t c = 0; c < channels; ++c) {
      while (c >= from.stageFirst[a + 1]) ++a;
      while (c >= to.stageFirst[b + 1]) ++b;
      if (b < a) return true;
    }
    return false;
  }

  static double Median(std::vector<double>& v) {
    std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2), v.end());
    return v[v.size() / 2];
  }

  double Fixed(int stage, int noiseStage) const {
    double load = stage == noiseStage ? costs_.noise : 0.0;
    if (stage == 0) load += costs_.plan;
    if (stage == stages_ - 1) load += costs_.finish;
    return load;
  }

  // The stage's fixed load under a split whose noise may be shared.
  double Fixed(int stage, const Split& split) const {
    const int last = stages_ - 1;
    if (split.noiseHandOff == kAllNoise || split.noiseStage == last || groups_ <= 0)
      return Fixed(stage, split.noiseStage);
    const double kept = costs_.noise * std::min(split.noiseHandOff, groups_) / groups_;
    double load = Fixed(stage, -1);
    if (stage == split.noiseStage) load += kept;
    if (stage == last) load += costs_.noise - kept;
    return load;
  }

  double Bottleneck(const Split& split, const std::vector<int32_t>& paths) const {
    double worst = 0.0;
    for (int st = 0; st < stages_; ++st) {
      double load = Fixed(st, split);
      for (int32_t c = split.stageFirst[st]; c < split.stageFirst[st + 1]; ++c)
        load += paths[c] * costs_.path;
      worst = std::max(worst, load);
    }
    return worst;
  }

  // Stages take channels in order while they stay within `limit`; the last takes the rest.
  bool Fill(double limit, int noiseStage, const std::vector<int32_t>& paths, Split& out) const {
    const int32_t channels = static_cast<int32_t>(paths.size());
    out.stageFirst.assign(static_cast<size_t>(stages_) + 1, channels);
    out.stageFirst[0] = 0;
    out.noiseStage = noiseStage;
    int32_t c = 0;
    for (int st = 0; st < stages_; ++st) {
      out.stageFirst[st] = c;
      double load = Fixed(st, noiseStage);
      if (load > limit) return false;
      if (st == stages_ - 1) {
        for (; c < channels; ++c) load += paths[c] * costs_.path;
        return load <= limit;
      }
      while (c < channels && load + paths[c] * costs_.path <= limit) load += paths[c++] * costs_.path;
    }
    return c == channels;
  }

  // Two stages: every cut of the channel list, with the noise shared so that the two stages
  // come out as even as its groups allow.
  Split BestOfTwo(const std::vector<int32_t>& paths) const {
    const auto channels = static_cast<int32_t>(paths.size());
    double after = costs_.finish;
    for (int32_t p : paths) after += p * costs_.path;
    double before = costs_.plan;
    Split best;
    double bestLoad = 0.0;
    for (int32_t k = 0; k <= channels; ++k) {
      if (k > 0) {
        before += paths[k - 1] * costs_.path;
        after -= paths[k - 1] * costs_.path;
      }
      // Noise x on the first stage: before + x = after + (noise - x).
      const double x = std::clamp(0.5 * (after + costs_.noise - before), 0.0, costs_.noise);
      Split s;
      s.stageFirst = {0, k, channels};
      s.noiseStage = 0;
      s.noiseHandOff = costs_.noise > 0.0
                           ? static_cast<int32_t>(std::lround(x / costs_.noise * groups_))
                           : groups_;
      const double load = Bottleneck(s, paths);
      if (best.stageFirst.empty() || load < bestLoad) {
        best = s;
        bestLoad = load;
      }
    }
    return best;
  }

  Split Best(const std::vector<int32_t>& paths) const {
    if (stages_ == 2 && groups_ > 0) return BestOfTwo(paths);
    Split best;
    double bestLoad = 0.0;
    double total = costs_.plan + costs_.noise + costs_.finish;
    for (int32_t p : paths) total += p * costs_.path;
    for (int ns = 0; ns < stages_; ++ns) {
      double lo = 0.0, hi = total + 1e-12;
      Split s;
      for (int k = 0; k < 60; ++k) {
        const double mid = 0.5 * (lo + hi);
        if (Fill(mid, ns, paths, s))
          hi = mid;
        else
          lo = mid;
      }
      Fill(hi, ns, paths, s);
      const double load = Bottleneck(s, paths);
      if (best.stageFirst.empty() || load < bestLoad) {
        best = s;
        bestLoad = load;
      }
    }
    return best;
  }

  int stages_;
  int32_t groups_;
  Costs costs_;
  std::vector<int32_t> paths_;
  Split split_;
  std::vector<double> plan_, finish_, noise_, path_;
  int64_t sinceBack_ = kBackEvery;  // blocks since a channel last moved back
};

// Makes the blocks of a run: each block is planned (its paths, seed and alignments), its
// channels are summed in order, the noise is added, and the sum is filtered if asked,
// quantised, packed and written. With one thread all of it happens block after block on
// the caller's thread. With more, the blocks go down a pipeline of stages, one thread each,
// living for the whole run: the first stage plans each block and runs the first channels
// into its sum, each later stage adds the next channels to the same sum, and the last one
// (the caller's thread) adds the noise, finishes and writes the block. Every sample is still
// 0 + path 1 + path 2 + ... + noise, in the order of the plain loop. The blocks in flight
// live in a ring of slots; the first stage may run that many blocks ahead of the last. A
// stage that has to wait for another spins briefly, then sleeps until a batch of blocks is
// ready for it (see Milestones), so the threads meet a few times a second, not per block.
// Which stage runs which channel follows the costs measured on the retired blocks; a
// channel's state (its NCO and bit feed) is only ever touched by the stage running it, and
// a channel that moves to an earlier stage first waits for the later one to be done with it.
class BlockEngine {
 public:
  BlockEngine(const DifSettings& s, RunBuffers& b, std::FILE* output, const GeneratorSpeed& speed,
              int32_t maxChannels)
      : s_(s),
        b_(b),
        output_(output),
        speed_(speed),
        n_(s.SamplesPerMs),
        levelCount_(LevelCount(s.BitsPerSample)),
        levels_(LevelTable(levelCount_)),
        count_(PackedCount(n_, s.BitsPerSample, s.Decimation, s.OutputPacked)),
        stages_(std::clamp(speed.threads, 1, std::max(1, maxChannels + 1))),
        team_(stages_) {
    packed_.Allocate(static_cast<size_t>(std::max(count_, 1)));
    if (stages_ == 1) {
      ring_ = 1;
    } else if (speed_.reshuffle > 0) {
      ring_ = 3;  // tests: the ring wraps every few blocks
    } else {
      // About 16 MB of blocks in flight (a few milliseconds of work on a loaded machine),
      // 4 to 128 blocks.
      const size_t slotBytes = static_cast<size_t>(n_) * 2 * sizeof(float);
      ring_ = static_cast<int32_t>(std::clamp<size_t>((size_t{16} << 20) / slotBytes, 4, 128));
    }
    batch_ = std::max(1, ring_ / 8);
    slots_.reset(new Slot[static_cast<size_t>(ring_)]);
    for (int32_t k = 0; k < ring_; ++k) {
      slots_[k].sum.Allocate(static_cast<size_t>(n_));
      slots_[k].noise.Allocate(static_cast<size_t>(n_));
      slots_[k].notes.resize(static_cast<size_t>(stages_));
    }
  }

  WorkerTeam& team() { return team_; }
  int stages() const { return stages_; }

  // Makes blocks 0 .. total - 1, fewer if the run ends early; `last` takes the snapshots of
  // the last block the run used (made, or found missing from the record).
  void Run(ChannelNco* ncos, BitFeed* feeds, int32_t units, int64_t total, const BlockSource& source,
           GeneratorContext& ctx, GeneratorReport& report, BlockPlan& last) {
    Milestones milestones(stages_, stages_);
    RunState run(ncos, feeds, total, source, ctx, report, last, milestones);
    run.lastStage.assign(static_cast<size_t>(units), -1);
    run.lastBlock.assign(static_cast<size_t>(units), -1);
    team_.Run([&](int member) { Stage(member, run); });
  }

 private:
  struct alignas(64) StageNote {
    double busy = 0.0;         // seconds of work on the block, waits left out
    double pathSeconds = 0.0;  // of which running paths
    double noiseSeconds = 0.0;
    int32_t paths = 0;
    bool pastRow = false;
    bool beforeRow = false;
  };
  struct Slot {
    int64_t block = -1;
    BlockPlan plan;
    Split split;
    std::vector<StageNote> notes;
    platform::AlignedBuffer<float> sum, noise;
  };
  struct RunState {
    RunState(ChannelNco* n, BitFeed* f, int64_t t, const BlockSource& src, GeneratorContext& c,
             GeneratorReport& r, BlockPlan& l, Milestones& m)
        : ncos(n), feeds(f), total(t), source(src), ctx(c), report(r), last(l), milestones(m) {}
    ChannelNco* ncos;
    BitFeed* feeds;
    int64_t total;
    const BlockSource& source;
    GeneratorContext& ctx;
    GeneratorReport& report;
    BlockPlan& last;
    Milestones& milestones;
    // The first stage's: where each channel last ran, and the split.
    std::vector<int32_t> lastStage;
    std::vector<int64_t> lastBlock;
    std::vector<int32_t> pathCounts;
    std::unique_ptr<Balancer> balancer;
    // The last stage's.
    bool warnedBefore = false;
  };

  void Stage(int stage, RunState& run) {
    Milestones& ms = run.milestones;
    const bool first = stage == 0, isLast = stage == stages_ - 1;
    const bool timed = stages_ > 1;
    if (first && timed)
      run.balancer = std::make_unique<Balancer>(stages_, GuessCosts(), NoiseGroups());
    for (int64_t b = 0;; ++b) {
      if (ms.Halted()) break;
      Slot& slot = slots_[b % ring_];
      if (first) {
        if (b >= run.total) break;
        // The slot is free once the last stage has retired the block that used it.
        if (b >= ring_ && ms.Await(stage, stages_ - 1, b - ring_ + 1, b - ring_ + batch_) < 0)
          break;
      } else if (ms.Await(stage, stage - 1, b + 1, b + batch_) < 0) {
        break;
      }
      const Clock::time_point start = timed ? Clock::now() : Clock::time_point{};
      StageNote note;
      if (first) {
        if (timed && slot.block >= 0) Absorb(slot, run);
        BlockPlan& plan = slot.plan;
        plan.recordEnded = false;
        plan.paths.clear();
        plan.channels.clear();
        run.source.plan(b, plan);
        slot.block = b;
        if (!plan.recordEnded) Assign(slot, b, run);
      }
      if (slot.plan.recordEnded) {
        if (isLast) {
          run.ctx.messages.Warn(run.source.recordEnded(b));
          run.report.recordEnded = true;
          run.last = slot.plan;
          ms.Halt();
        } else {
          ms.Publish(stage, b + 1);
        }
        break;
      }
      const Clock::time_point planned = timed ? Clock::now() : start;
      double waited = 0.0;
      if (!RunChannels(stage, slot, run, note, waited)) break;
      const Clock::time_point ran = timed ? Clock::now() : start;
      note.pathSeconds = timed ? Seconds(planned, ran) - waited : 0.0;
      if (MakeNoise(stage, slot) && timed) note.noiseSeconds = Seconds(ran, Clock::now());
      bool goOn = true;
      if (isLast) {
        const int32_t bytes = Finish(slot);
        goOn = Retire(slot, b, bytes, note, run);
      }
      if (timed) note.busy = Seconds(start, Clock::now()) - waited;
      slot.notes[stage] = note;
      if (!goOn) {
        ms.Halt();
        break;
      }
      ms.Publish(stage, b + 1);
    }
    ms.Close(stage);
  }

  // The channels of this stage, each path added to the block's sum in order (the block's
  // first path stores instead). False when the run halted during a wait.
  bool RunChannels(int stage, Slot& slot, RunState& run, StageNote& note, double& waited) {
    const BlockPlan& plan = slot.plan;
    float* sum = slot.sum.data();
    for (int32_t c = slot.split.stageFirst[stage]; c < slot.split.stageFirst[stage + 1]; ++c) {
      const PlannedChannel& ch = plan.channels[c];
      if (ch.waitStage >= 0) {
        const Clock::time_point w = Clock::now();
        if (run.milestones.Await(stage, ch.waitStage, ch.waitCount, ch.waitCount) < 0) return false;
        waited += Seconds(w, Clock::now());
      }
      ChannelNco& nco = run.ncos[ch.unit];
      BitFeed& feed = run.feeds[ch.unit];
      if (ch.align) ApplyAlignment(ch.alignment, nco, feed);
      for (int32_t j = ch.firstPath; j < ch.endPath; ++j) RunPath(plan.paths[j], nco, feed, sum, j == 0);
      note.paths += ch.endPath - ch.firstPath;
      note.pastRow = note.pastRow || feed.pastRow;
      note.beforeRow = note.beforeRow || feed.beforeRow;
    }
    return true;
  }

  void RunPath(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* dst, bool store) const {
    if (store) {
      if (speed_.vectorised)
        RunPathFastStore(a, nco, feed, dst);
      else
        RunPathPlainStore(a, nco, feed, dst);
    } else if (speed_.vectorised) {
      RunPathFast(a, nco, feed, dst);
    } else {
      RunPathPlain(a, nco, feed, dst);
    }
  }

  // The noise groups of a block the vector form may share between two stages (0 where it is
  // made whole: the plain loop, or more than two stages).
  int32_t NoiseGroups() const { return speed_.vectorised && stages_ == 2 ? (n_ + 15) / 16 : 0; }

  // This stage's part of the block's noise; false when it has none.
  bool MakeNoise(int stage, Slot& slot) const {
    const Split& split = slot.split;
    const int last = stages_ - 1;
    const bool shared = split.noiseHandOff != kAllNoise && split.noiseStage != last &&
                        NoiseGroups() > 0;
    float* noise = slot.noise.data();
    if (!shared) {
      if (stage != split.noiseStage) return false;
      if (speed_.vectorised)
        GaussianBlockFromSeed(0.0f, s_.NoiseSigma, noise, n_, slot.plan.seed);
      else
        GaussianBlockPlain(0.0f, s_.NoiseSigma, noise, n_, slot.plan.seed);
      return true;
    }
    const int32_t handOff = std::clamp(split.noiseHandOff, 0, NoiseGroups());
    if (stage == split.noiseStage && handOff > 0) {
      GaussianBlockGroups(0.0f, s_.NoiseSigma, noise, n_, slot.plan.seed, 0, handOff);
      return true;
    }
    if (stage == last && handOff < NoiseGroups()) {
      GaussianBlockGroups(0.0f, s_.NoiseSigma, noise, n_, slot.plan.seed, handOff, NoiseGroups());
      return true;
    }
    return false;
  }

  // The first stage: which stage runs which channel, and the waits a channel moving to an
  // earlier stage needs.
  void Assign(Slot& slot, int64_t block, RunState& run) {
    const std::vector<PlannedChannel>& channels = slot.plan.channels;
    const int32_t count = static_cast<int32_t>(channels.size());
    if (stages_ == 1) {
      slot.split.stageFirst = {0, count};
      slot.split.noiseStage = 0;
      slot.split.noiseHandOff = kAllNoise;
      return;
    }
    if (speed_.reshuffle > 0) {
      Reshuffled(block / speed_.reshuffle, count, slot.split);
    } else {
      run.pathCounts.resize(static_cast<size_t>(count));
      for (int32_t c = 0; c < count; ++c)
        run.pathCounts[c] = channels[c].endPath - channels[c].firstPath;
      slot.split = run.balancer->For(run.pathCounts);
    }
    int stage = 0;
    for (int32_t c = 0; c < count; ++c) {
      while (c >= slot.split.stageFirst[stage + 1]) ++stage;
      PlannedChannel& ch = slot.plan.channels[c];
      ch.waitStage = -1;
      const int32_t u = ch.unit;
      if (run.lastStage[u] > stage) {
        ch.waitStage = run.lastStage[u];
        ch.waitCount = run.lastBlock[u] + 1;
      }
      run.lastStage[u] = stage;
      run.lastBlock[u] = block;
    }
  }

  // Tests: a split that changes every few blocks by a fixed rule, so that channels move
  // both ways between the stages and the noise moves too.
  void Reshuffled(int64_t key, int32_t count, Split& split) const {
    uint64_t h = static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ull + 0x632BE59BD9B4E019ull;
    auto next = [&] {
      h ^= h >> 29;
      h *= 0xBF58476D1CE4E5B9ull;
      h ^= h >> 32;
      return h;
    };
    split.stageFirst.assign(static_cast<size_t>(stages_) + 1, count);
    split.stageFirst[0] = 0;
    for (int st = 1; st < stages_; ++st)
      split.stageFirst[st] = static_cast<int32_t>(next() % static_cast<uint64_t>(count + 1));
    std::sort(split.stageFirst.begin(), split.stageFirst.end());
    split.noiseStage = static_cast<int32_t>(next() % static_cast<uint64_t>(stages_));
    // Where two stages may share the noise, some blocks share it at a point of their own.
    const int32_t groups = NoiseGroups();
    split.noiseHandOff =
        groups > 0 && next() % 2 == 0
            ? static_cast<int32_t>(next() % static_cast<uint64_t>(groups + 1))
            : kAllNoise;
  }

  // Costs before anything is measured, in units of one path (measured: about 4 us at
  // 16.368 MHz on the build machine); they only set the first split.
  Costs GuessCosts() const {
    Costs c;
    c.path = 1.0;
    c.plan = 0.3;
    c.noise = 1.5;
    c.finish = s_.FilterOn == 1 ? 7.0 : 1.0;
    return c;
  }

  // The first stage, reusing a slot: the costs measured on the block it held.
  void Absorb(const Slot& slot, RunState& run) {
    if (slot.plan.recordEnded) return;
    const int last = stages_ - 1;
    Costs sample;
    double pathSeconds = 0.0;
    int32_t paths = 0;
    for (int st = 0; st < stages_; ++st) {
      pathSeconds += slot.notes[st].pathSeconds;
      paths += slot.notes[st].paths;
    }
    for (int st = 0; st < stages_; ++st) sample.noise += slot.notes[st].noiseSeconds;
    sample.path = paths > 0 ? pathSeconds / paths : 0.0;
    const StageNote& a = slot.notes[0];
    const StageNote& z = slot.notes[last];
    sample.plan = std::max(0.0, a.busy - a.pathSeconds - a.noiseSeconds);
    sample.finish = std::max(0.0, z.busy - z.pathSeconds - z.noiseSeconds);
    run.balancer->Absorb(sample, paths > 0);
  }

  // The last stage: noise added, filter, quantiser, packing and write. Returns the bytes.
  int32_t Finish(Slot& slot) {
    float* sum = slot.sum.data();
    const float* noise = slot.noise.data();
    if (slot.plan.paths.empty()) slot.sum.Zero();
    if (!speed_.vectorised) return FinishPlain(sum, noise);
    AddNoise(sum, noise);
    const bool filter = s_.FilterOn == 1;
    if (filter) {
      double* ext = platform::FirBegin(b_.filter, n_);
      const int past = platform::FirPast(b_.filter);
      for (int32_t i = 0; i < n_; ++i) ext[past + i] = static_cast<double>(sum[i]);
      double* f = b_.filterBuffer.data();
      platform::FirRange(b_.filter, ext, f, 0, n_);
      platform::FirEnd(b_.filter);
      const BlockLimits<double> limits = MinMaxRange(f, 0, n_);
      QuantisePackRange(f, limits, s_.BitsPerSample, levels_.data(), levelCount_, s_.Decimation,
                        s_.OutputPacked, 0, count_, packed_.data());
    } else {
      const BlockLimits<float> limits = MinMaxRange(sum, 0, n_);
      QuantisePackRange(sum, limits, s_.BitsPerSample, levels_.data(), levelCount_, s_.Decimation,
                        s_.OutputPacked, 0, count_, packed_.data());
    }
    return Write(packed_.data(), count_);
  }

  // The reference: every step as the run is described.
  int32_t FinishPlain(float* sum, const float* noise) {
    for (int32_t i = 0; i < n_; ++i) sum[i] = sum[i] + noise[i];
    uint8_t* bytes = b_.bytes.data();
    if (s_.FilterOn == 1) {
      double* f = b_.filterBuffer.data();
      for (int32_t i = 0; i < n_; ++i) f[i] = static_cast<double>(sum[i]);
      platform::FirFilterInPlacePlain(f, n_, b_.filter);
      QuantiseDoubleBlockPlain(s_.BitsPerSample, f, bytes, levels_.data(), n_, levelCount_);
    } else {
      QuantiseFloatBlockPlain(s_.BitsPerSample, sum, bytes, levels_.data(), n_, levelCount_);
    }
    return Write(bytes, PackBlock(bytes, n_, s_.BitsPerSample, s_.Decimation, s_.OutputPacked));
  }

  void AddNoise(float* sum, const float* noise) const {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) {
      AddAvx2(sum, noise, n_);
      return;
    }
#endif
    for (int32_t i = 0; i < n_; ++i) sum[i] = sum[i] + noise[i];
  }

#if defined(__x86_64__)
  __attribute__((target("avx2"))) static void AddAvx2(float* sum, const float* noise, int32_t n) {
    int32_t i = 0;
    for (; i + 8 <= n; i += 8)
      _mm256_storeu_ps(sum + i,
                       _mm256_add_ps(_mm256_loadu_ps(sum + i), _mm256_loadu_ps(noise + i)));
    for (; i < n; ++i) sum[i] = sum[i] + noise[i];
  }
#endif

  int32_t Write(const uint8_t* bytes, int32_t count) {
    if (output_ && count > 0) std::fwrite(bytes, 1, static_cast<size_t>(count), output_);
    return count;
  }

  // The last stage, after writing block b: the report, the warnings, and whether the run
  // goes on (a navigation row ran out, the user stopped, or the run is complete).
  bool Retire(const Slot& slot, int64_t b, int32_t bytes, const StageNote& own, RunState& run) {
    run.report.bytes += bytes;
    run.report.blocks += 1;
    run.last.rand = slot.plan.rand;
    run.last.statics = slot.plan.statics;
    run.last.issues = slot.plan.issues;
    bool before = own.beforeRow, past = own.pastRow;
    for (int st = 0; st + 1 < stages_; ++st) {
      before = before || slot.notes[st].beforeRow;
      past = past || slot.notes[st].pastRow;
    }
    if (before && !run.warnedBefore) {
      run.warnedBefore = true;
      run.ctx.messages.Warn(
          "a satellite's signal at the start of the run was sent before the first "
          "bit of its navigation file: those bits are sent as +1");
    }
    if (past) {
      run.ctx.messages.Warn(run.source.rowEnded(b + 1));
      run.report.rowEnded = true;
      return false;
    }
    if (run.ctx.RunActive.load(std::memory_order_relaxed) == 0) {
      run.report.stopped = true;
      return false;
    }
    if (b + 1 >= run.total) return false;
    if ((b + 1) % 1000 == 0) {
      const int32_t seconds = static_cast<int32_t>((b + 1) / 1000);
      run.ctx.messages.Progress(seconds * 100.0 / s_.Duration);
    }
    return true;
  }

  const DifSettings& s_;
  RunBuffers& b_;
  std::FILE* output_;
  GeneratorSpeed speed_;
  int32_t n_;
  int32_t levelCount_;
  std::vector<uint8_t> levels_;
  int32_t count_;
  int stages_;
  int32_t ring_ = 1;
  int32_t batch_ = 1;
  WorkerTeam team_;
  platform::AlignedBuffer<uint8_t> packed_;
  std::unique_ptr<Slot[]> slots_;
};

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
  BlockEngine engine(s, b, files.output, ctx.speed, channelLimit);
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
  BlockEngine engine(s, b, files.output, ctx.speed, 1);

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
