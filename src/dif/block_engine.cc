#include "dif/block_engine.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "dif/noise.h"
#include "dif/quantiser.h"
#include "dif/sample_generation.h"
#include "platform/aligned_buffer.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vorel::dif {

void ApplyAlignment(const Alignment& a, ChannelNco& nco, BitFeed& feed) {
  nco.bitNumber = a.bitNumber;
  nco.navBit = a.navBit;
  nco.msInBit = a.msInBit;
  nco.codeIndex = a.codeIndex;
  nco.codeFraction = a.codeFraction;
  if (a.beforeRow) feed.beforeRow = true;
  if (a.pastRow) feed.pastRow = true;
}

namespace {

constexpr uint8_t kBeforeRow = 1;
constexpr uint8_t kPastRow = 2;
constexpr int64_t kNotReading = std::numeric_limits<int64_t>::max();

// Every channel's state after some batch: what a thread needs to make the next one.
struct ChannelStates {
  int64_t batch = -1;  // the state after this batch; -1: before the first
  std::vector<ChannelNco> ncos;
  std::vector<BitFeed> feeds;
  std::vector<double> past;  // the filter's memory, newest first (empty: filter off)
};

struct BatchSlot {
  int64_t batch = -1;
  int32_t count = 0;  // blocks planned; a record's end is the last of them
  bool done = false;
  std::vector<BlockPlan> plans;
  std::vector<int32_t> bytes;
  std::vector<uint8_t> flags;               // kBeforeRow, kPastRow after the block
  platform::AlignedBuffer<uint8_t> packed;  // `stride` bytes a block
  ChannelStates after;
};

// A thread's own state and buffers.
struct Maker {
  ChannelStates state;
  platform::AlignedBuffer<float> sum, noise;
  platform::AlignedBuffer<double> filtered;
  platform::AlignedBuffer<uint8_t> levels;  // the plain form's levels before packing
  platform::FirState filter;
};

class EngineRun {
 public:
  struct Setup {
    const DifSettings& s;
    const platform::FirState& filter;
    std::FILE* output;
    bool vectorised;
    int members;
    int takeTurns;
  };

  EngineRun(const Setup& setup, const ChannelNco* ncos, const BitFeed* feeds, int32_t units,
            int64_t total, const BlockSource& source, GeneratorContext& ctx,
            GeneratorReport& report, BlockPlan& last)
      : s_(setup.s),
        output_(setup.output),
        vectorised_(setup.vectorised),
        members_(setup.members),
        takeTurns_(setup.takeTurns),
        n_(setup.s.SamplesPerMs),
        levelCount_(LevelCount(setup.s.BitsPerSample)),
        levels_(LevelTable(levelCount_)),
        count_(PackedCount(n_, setup.s.BitsPerSample, setup.s.Decimation, setup.s.OutputPacked)),
        total_(total),
        source_(source),
        ctx_(ctx),
        report_(report),
        last_(last) {
    const bool filter = s_.FilterOn == 1;
    past_ = filter ? platform::FirPast(setup.filter) : 0;
    // About 2^18 samples a batch, and at least the blocks the filter's memory reaches back.
    batch_ = takeTurns_ > 0 ? takeTurns_ : std::max(1, (1 << 18) / std::max(1, n_));
    tailBlocks_ = past_ > 0 ? (past_ + n_ - 1) / n_ : 0;
    batch_ = std::max(batch_, tailBlocks_);
    ring_ = members_ == 1 ? 1 : takeTurns_ > 0 ? members_ + 1 : 4 * members_;
    stride_ = std::max(1, vectorised_ ? count_ : std::max(count_, n_));

    ChannelStates start;
    start.ncos.assign(ncos, ncos + units);
    start.feeds.assign(feeds, feeds + units);
    start.past = setup.filter.history;
    if (!filter) start.past.clear();
    retired_ = start;
    makers_.reset(new Maker[static_cast<size_t>(members_)]);
    for (int m = 0; m < members_; ++m) {
      Maker& mk = makers_[m];
      mk.state = start;
      mk.filter = setup.filter;
      mk.filter.history.clear();  // the state's own is swapped in around each block
      mk.sum.Allocate(static_cast<size_t>(n_));
      mk.noise.Allocate(static_cast<size_t>(n_));
      if (filter) mk.filtered.Allocate(static_cast<size_t>(n_));
      if (!vectorised_) mk.levels.Allocate(static_cast<size_t>(n_));
    }
    slots_.reset(new BatchSlot[static_cast<size_t>(ring_)]);
    for (int32_t r = 0; r < ring_; ++r) {
      BatchSlot& slot = slots_[r];
      slot.plans.resize(static_cast<size_t>(batch_));
      slot.bytes.assign(static_cast<size_t>(batch_), 0);
      slot.flags.assign(static_cast<size_t>(batch_), 0);
      slot.packed.Allocate(static_cast<size_t>(stride_) * static_cast<size_t>(batch_));
    }
    reading_.assign(static_cast<size_t>(members_), kNotReading);
    planningOver_ = total_ <= 0;
  }

  // The job of thread `member`; the last member is the caller's thread, which also writes.
  void Member(int member) {
    Maker& me = makers_[member];
    const bool writer = member == members_ - 1;
    try {
      for (;;) {
        int64_t batch = 0, from = 0;
        {
          std::unique_lock<std::mutex> lock(mutex_);
          for (;;) {
            if (writer) RetireFinished(lock);
            if (halted_) return;
            if (CanTake(member)) break;
            if (planningOver_ && (!writer || frontier_ == next_)) return;
            ++sleepers_;
            wake_.wait(lock);
            --sleepers_;
          }
          batch = next_++;
          Plan(batch, slots_[batch % ring_]);
          if (takeTurns_ > 0) WakeSleepers();  // the next member's turn
          from = NewestState(me.state, batch);
          if (from < batch) reading_[member] = from;
        }
        if (from < batch) {
          for (int64_t b = from; b < batch; ++b) TakeOver(slots_[b % ring_], me, batch);
          std::lock_guard<std::mutex> lock(mutex_);
          reading_[member] = kNotReading;
          WakeSleepers();
        }
        BatchSlot& slot = slots_[batch % ring_];
        Make(slot, me);
        std::lock_guard<std::mutex> lock(mutex_);
        slot.done = true;
        WakeSleepers();
      }
    } catch (...) {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!failure_) failure_ = std::current_exception();
      halted_ = true;
      wake_.notify_all();
    }
  }

  void RethrowFailure() {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  void WakeSleepers() {
    if (sleepers_ > 0) wake_.notify_all();
  }

  // Whether `member` may take the next batch: the run goes on, its slot is free (the batch
  // that used it written, and no thread reading that batch's plans), and, for the tests'
  // turns, it is this member's turn.
  bool CanTake(int member) const {
    if (halted_ || planningOver_) return false;
    if (next_ - frontier_ >= ring_) return false;
    if (takeTurns_ > 0 && next_ % members_ != member) return false;
    const int64_t old = next_ - ring_;
    for (int64_t r : reading_)
      if (r <= old) return false;
    return true;
  }

  // Plans the blocks of a batch, in order (under the lock: the record is read block after
  // block); the planning is over at the run's last block or where the record ends.
  void Plan(int64_t batch, BatchSlot& slot) {
    slot.batch = batch;
    slot.done = false;
    slot.count = 0;
    for (int32_t k = 0; k < batch_; ++k) {
      const int64_t block = batch * batch_ + k;
      BlockPlan& plan = slot.plans[k];
      plan.recordEnded = false;
      plan.paths.clear();
      plan.channels.clear();
      source_.plan(block, plan);
      slot.count = k + 1;
      if (plan.recordEnded || block + 1 >= total_) {
        planningOver_ = true;
        return;
      }
    }
  }

  // Puts the newest channel states there are before `batch` into `state` (its own, those
  // after the last batch written, or those a finished batch left) and returns the first
  // batch it still has to be taken over. Taking turns (tests), a thread keeps its own, so
  // that it takes its channels over every batch of the others.
  int64_t NewestState(ChannelStates& state, int64_t batch) {
    if (takeTurns_ > 0) return state.batch + 1;
    if (retired_.batch > state.batch) state = retired_;
    for (int64_t b = batch - 1; b > state.batch; --b) {
      const BatchSlot& slot = slots_[b % ring_];
      if (slot.batch == b && slot.done) {
        state = slot.after;
        break;
      }
    }
    return state.batch + 1;
  }

  // Takes the thread's channels over a batch another thread makes; within the last blocks
  // before `target` it also makes the inputs the filter remembers.
  void TakeOver(const BatchSlot& slot, Maker& me, int64_t target) {
    for (int32_t k = 0; k < slot.count; ++k) {
      const BlockPlan& plan = slot.plans[k];
      if (plan.recordEnded) break;
      const int64_t block = slot.batch * batch_ + k;
      SkipBlock(plan, me, past_ > 0 && block >= target * batch_ - tailBlocks_);
    }
    me.state.batch = slot.batch;
  }

  void SkipBlock(const BlockPlan& plan, Maker& me, bool remember) {
    const int32_t from = remember ? std::max(0, n_ - past_) : n_;
    float* sum = me.sum.data();
    for (const PlannedChannel& ch : plan.channels) {
      ChannelNco& nco = me.state.ncos[ch.unit];
      BitFeed& feed = me.state.feeds[ch.unit];
      if (ch.align) ApplyAlignment(ch.alignment, nco, feed);
      for (int32_t j = ch.firstPath; j < ch.endPath; ++j) {
        const PathArgs& a = plan.paths[j];
        PathCursor cursor = BeginPath(a, nco, vectorised_);
        SkipPathRange(a, nco, feed, cursor, 0, from);
        if (from < n_) RunPathRange(a, nco, feed, sum, j == 0, cursor, from, n_);
        EndPath(a, nco, cursor);
      }
    }
    if (!remember) return;
    if (plan.paths.empty()) std::fill(sum + from, sum + n_, 0.0f);
    float* noise = me.noise.data();
    if (vectorised_)
      GaussianBlockGroups(0.0f, s_.NoiseSigma, noise, n_, plan.seed, from / 16, (n_ + 15) / 16);
    else
      GaussianBlockPlain(0.0f, s_.NoiseSigma, noise, n_, plan.seed);
    // The filter's memory moves on by the inputs from..n-1, as filtering them would move it.
    me.filter.history.swap(me.state.past);
    double* ext = platform::FirBegin(me.filter, n_ - from);
    for (int32_t i = from; i < n_; ++i)
      ext[past_ + i - from] = static_cast<double>(sum[i] + noise[i]);
    platform::FirEnd(me.filter);
    me.filter.history.swap(me.state.past);
  }

  // Makes the blocks of a batch into its slot.
  void Make(BatchSlot& slot, Maker& me) {
    for (int32_t k = 0; k < slot.count; ++k) {
      const BlockPlan& plan = slot.plans[k];
      if (plan.recordEnded) break;
      float* sum = me.sum.data();
      bool before = false, pastRow = false;
      for (const PlannedChannel& ch : plan.channels) {
        ChannelNco& nco = me.state.ncos[ch.unit];
        BitFeed& feed = me.state.feeds[ch.unit];
        if (ch.align) ApplyAlignment(ch.alignment, nco, feed);
        for (int32_t j = ch.firstPath; j < ch.endPath; ++j) RunPath(plan.paths[j], nco, feed, sum, j == 0);
        before = before || feed.beforeRow;
        pastRow = pastRow || feed.pastRow;
      }
      slot.flags[k] = static_cast<uint8_t>((before ? kBeforeRow : 0) | (pastRow ? kPastRow : 0));
      if (plan.paths.empty()) me.sum.Zero();
      if (vectorised_)
        GaussianBlockFromSeed(0.0f, s_.NoiseSigma, me.noise.data(), n_, plan.seed);
      else
        GaussianBlockPlain(0.0f, s_.NoiseSigma, me.noise.data(), n_, plan.seed);
      uint8_t* out = slot.packed.data() + static_cast<size_t>(stride_) * k;
      slot.bytes[k] = vectorised_ ? Finish(me, out) : FinishPlain(me, out);
    }
    me.state.batch = slot.batch;
    slot.after = me.state;
  }

  void RunPath(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* dst, bool store) const {
    if (store) {
      if (vectorised_)
        RunPathFastStore(a, nco, feed, dst);
      else
        RunPathPlainStore(a, nco, feed, dst);
    } else if (vectorised_) {
      RunPathFast(a, nco, feed, dst);
    } else {
      RunPathPlain(a, nco, feed, dst);
    }
  }

  // Noise added, filter, quantiser and packing into `out`. Returns the bytes.
  int32_t Finish(Maker& me, uint8_t* out) {
    float* sum = me.sum.data();
    AddNoise(sum, me.noise.data());
    if (s_.FilterOn == 1) {
      me.filter.history.swap(me.state.past);
      double* ext = platform::FirBegin(me.filter, n_);
      for (int32_t i = 0; i < n_; ++i) ext[past_ + i] = static_cast<double>(sum[i]);
      double* f = me.filtered.data();
      platform::FirRange(me.filter, ext, f, 0, n_);
      platform::FirEnd(me.filter);
      me.filter.history.swap(me.state.past);
      const BlockLimits<double> limits = MinMaxRange(f, 0, n_);
      QuantisePackRange(f, limits, s_.BitsPerSample, levels_.data(), levelCount_, s_.Decimation,
                        s_.OutputPacked, 0, count_, out);
    } else {
      const BlockLimits<float> limits = MinMaxRange(sum, 0, n_);
      QuantisePackRange(sum, limits, s_.BitsPerSample, levels_.data(), levelCount_, s_.Decimation,
                        s_.OutputPacked, 0, count_, out);
    }
    return count_;
  }

  // The reference: every step as the run is described.
  int32_t FinishPlain(Maker& me, uint8_t* out) {
    float* sum = me.sum.data();
    const float* noise = me.noise.data();
    for (int32_t i = 0; i < n_; ++i) sum[i] = sum[i] + noise[i];
    uint8_t* bytes = me.levels.data();
    if (s_.FilterOn == 1) {
      double* f = me.filtered.data();
      for (int32_t i = 0; i < n_; ++i) f[i] = static_cast<double>(sum[i]);
      me.filter.history.swap(me.state.past);
      platform::FirFilterInPlacePlain(f, n_, me.filter);
      me.filter.history.swap(me.state.past);
      QuantiseDoubleBlockPlain(s_.BitsPerSample, f, bytes, levels_.data(), n_, levelCount_);
    } else {
      QuantiseFloatBlockPlain(s_.BitsPerSample, sum, bytes, levels_.data(), n_, levelCount_);
    }
    const int32_t count = PackBlock(bytes, n_, s_.BitsPerSample, s_.Decimation, s_.OutputPacked);
    if (count < 0 || count > stride_) throw std::logic_error("a packed block outgrew its room");
    std::memcpy(out, bytes, static_cast<size_t>(count));
    return count;
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

  // The writer: writes the finished batches in order, from the next one to be written on,
  // and ends the run where a block says so. Called and returning with the lock held.
  void RetireFinished(std::unique_lock<std::mutex>& lock) {
    while (!halted_) {
      BatchSlot& slot = slots_[frontier_ % ring_];
      if (slot.batch != frontier_ || !slot.done) return;
      lock.unlock();
      const bool goOn = RetireBatch(slot);
      lock.lock();
      if (!goOn) {
        halted_ = true;
        wake_.notify_all();
        return;
      }
      retired_ = slot.after;
      ++frontier_;
      WakeSleepers();
    }
  }

  bool RetireBatch(const BatchSlot& slot) {
    for (int32_t k = 0; k < slot.count; ++k) {
      const BlockPlan& plan = slot.plans[k];
      const int64_t b = slot.batch * batch_ + k;
      if (plan.recordEnded) {
        ctx_.messages.Warn(source_.recordEnded(b));
        report_.recordEnded = true;
        last_ = plan;
        return false;
      }
      const int32_t bytes = slot.bytes[k];
      if (output_ && bytes > 0)
        std::fwrite(slot.packed.data() + static_cast<size_t>(stride_) * k, 1,
                    static_cast<size_t>(bytes), output_);
      if (!Retire(plan, b, bytes, slot.flags[k])) return false;
    }
    return true;
  }

  // After writing block b: the report, the warnings, and whether the run goes on (a
  // navigation row ran out, the user stopped, or the run is complete).
  bool Retire(const BlockPlan& plan, int64_t b, int32_t bytes, uint8_t flags) {
    report_.bytes += bytes;
    report_.blocks += 1;
    last_.rand = plan.rand;
    last_.statics = plan.statics;
    last_.issues = plan.issues;
    if ((flags & kBeforeRow) && !warnedBefore_) {
      warnedBefore_ = true;
      ctx_.messages.Warn(
          "a satellite's signal at the start of the run was sent before the first "
          "bit of its navigation file: those bits are sent as +1");
    }
    if (flags & kPastRow) {
      ctx_.messages.Warn(source_.rowEnded(b + 1));
      report_.rowEnded = true;
      return false;
    }
    if (ctx_.RunActive.load(std::memory_order_relaxed) == 0) {
      report_.stopped = true;
      return false;
    }
    if (b + 1 >= total_) return false;
    if ((b + 1) % 1000 == 0) {
      const int32_t seconds = static_cast<int32_t>((b + 1) / 1000);
      ctx_.messages.Progress(seconds * 100.0 / s_.Duration);
    }
    return true;
  }

  const DifSettings& s_;
  std::FILE* output_;
  bool vectorised_;
  int members_;
  int takeTurns_;
  int32_t n_;
  int32_t levelCount_;
  std::vector<uint8_t> levels_;
  int32_t count_;
  int32_t past_ = 0;        // the filter's memory in inputs (0: filter off)
  int32_t batch_ = 1;       // blocks a batch
  int32_t tailBlocks_ = 0;  // blocks the filter's memory reaches back
  int32_t ring_ = 1;        // batches in flight
  int32_t stride_ = 1;      // room for one block's bytes
  int64_t total_;
  const BlockSource& source_;
  GeneratorContext& ctx_;
  GeneratorReport& report_;
  BlockPlan& last_;
  bool warnedBefore_ = false;  // the writer's

  std::unique_ptr<Maker[]> makers_;
  std::unique_ptr<BatchSlot[]> slots_;

  // Shared, under the lock.
  std::mutex mutex_;
  std::condition_variable wake_;
  int sleepers_ = 0;
  int64_t next_ = 0;      // the next batch to take
  int64_t frontier_ = 0;  // batches written
  bool planningOver_ = false;
  bool halted_ = false;
  ChannelStates retired_;         // the states after the last batch written
  std::vector<int64_t> reading_;  // per member: the first batch whose plans it reads
  std::exception_ptr failure_;
};

}  // namespace

BlockEngine::BlockEngine(const DifSettings& s, const platform::FirState& filter,
                         std::FILE* output, const GeneratorSpeed& speed)
    : s_(s),
      filter_(filter),
      output_(output),
      vectorised_(speed.vectorised),
      takeTurns_(std::max(0, speed.turns)),
      team_(std::max(1, speed.threads)) {}

void BlockEngine::Run(const ChannelNco* ncos, const BitFeed* feeds, int32_t units, int64_t total,
                      const BlockSource& source, GeneratorContext& ctx, GeneratorReport& report,
                      BlockPlan& last) {
  EngineRun run({s_, filter_, output_, vectorised_, team_.members(), takeTurns_}, ncos, feeds,
                units, total, source, ctx, report, last);
  team_.Run([&](int member) { run.Member(member); });
  run.RethrowFailure();
}

}  // namespace vorel::dif
