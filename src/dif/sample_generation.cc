#include "gnss/constants.h"
#include "dif/sample_generation.h"

#include <fmt/format.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>

#include "dif/ca_code.h"
#include "dif/noise.h"
#include "dif/quantiser.h"
#include "platform/scan.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vorel::dif {
namespace {

constexpr double kMetresPerMs = 299792.458;
using gnss::kSpeedOfLight;
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

// One path ready to run: its arguments, and the channel whose state it moves on.
struct PlannedPath {
  PathArgs args;
  int32_t channel;  // index into the block's channel list
};

#if defined(__x86_64__)
// sum[i] = ((start + p[first][i]) + p[first + 1][i] + ...) + noise[i], eight samples at a
// time; start is sum[i] itself or 0.
__attribute__((target("avx2"))) void ReduceAvx2(const std::vector<const float*>& parts,
                                                size_t first, bool fromSum, const float* noise,
                                                float* sum, int32_t lo, int32_t hi) {
  int32_t i = lo;
  const size_t count = parts.size();
  for (; i + 8 <= hi; i += 8) {
    __m256 acc = fromSum ? _mm256_loadu_ps(sum + i) : _mm256_setzero_ps();
    for (size_t j = first; j < count; ++j) acc = _mm256_add_ps(acc, _mm256_loadu_ps(parts[j] + i));
    _mm256_storeu_ps(sum + i, _mm256_add_ps(acc, _mm256_loadu_ps(noise + i)));
  }
  for (; i < hi; ++i) {
    float acc = fromSum ? sum[i] : 0.0f;
    for (size_t j = first; j < count; ++j) acc = acc + parts[j][i];
    sum[i] = acc + noise[i];
  }
}
#endif

// Makes one block from its planned paths: noise, the paths in order, the noise added, the
// filter, the quantiser, the packing and the write. The plain form follows the description
// step by step; the fast forms give its bytes (vector loops, channels on threads with a
// buffer per path summed in the plain order, the quantiser fused with the packing).
class BlockEngine {
 public:
  BlockEngine(const DifSettings& s, RunBuffers& b, std::FILE* output, const GeneratorSpeed& speed)
      : s_(s),
        b_(b),
        output_(output),
        speed_(speed),
        n_(s.SamplesPerMs),
        levelCount_(LevelCount(s.BitsPerSample)),
        levels_(LevelTable(levelCount_)),
        count_(PackedCount(n_, s.BitsPerSample, s.Decimation, s.OutputPacked)) {
    threads_ = std::max(1, speed.threads);
    packed_.Allocate(static_cast<size_t>(std::max(count_, 1)));
  }

  // Room for `paths` per-path buffers when channels go to threads.
  void Reserve(size_t paths) {
    if (threads_ == 1) return;
    pathBuffers_.resize(paths);
    for (auto& buffer : pathBuffers_) buffer.Allocate(n_);
  }

  // Returns the bytes written. `sideWork`, when given, is independent work of the caller
  // (reading the next epoch) that runs beside the block on another thread, or after it.
  int32_t Make(const std::vector<PlannedPath>& paths, const std::vector<ChannelNco*>& ncos,
               const std::vector<BitFeed*>& feeds, uint32_t seed,
               const std::function<void()>& sideWork = {}) {
    int32_t bytes;
    if (!speed_.vectorised && threads_ == 1) {
      bytes = MakePlain(paths, ncos, feeds, seed);
    } else if (threads_ == 2 && ncos.size() >= 2 && paths.size() == ncos.size()) {
      return MakePipelined(paths, ncos, feeds, seed, sideWork);
    } else if (threads_ > 1 && paths.size() <= pathBuffers_.size() && !paths.empty()) {
      return MakeThreaded(paths, ncos, feeds, seed, sideWork);
    } else {
      bytes = MakeFast(paths, ncos, feeds, seed);
    }
    if (sideWork) sideWork();
    return bytes;
  }

 private:
  void RunPath(const PlannedPath& p, ChannelNco& nco, BitFeed& feed, float* dst, bool store) const {
    if (store) {
      if (speed_.vectorised)
        RunPathFastStore(p.args, nco, feed, dst);
      else
        RunPathPlainStore(p.args, nco, feed, dst);
    } else if (speed_.vectorised) {
      RunPathFast(p.args, nco, feed, dst);
    } else {
      RunPathPlain(p.args, nco, feed, dst);
    }
  }

  int32_t Write(const uint8_t* bytes, int32_t count) {
    if (output_ && count > 0) std::fwrite(bytes, 1, static_cast<size_t>(count), output_);
    return count;
  }

  // The reference: every step as the run is described.
  int32_t MakePlain(const std::vector<PlannedPath>& paths, const std::vector<ChannelNco*>& ncos,
                    const std::vector<BitFeed*>& feeds, uint32_t seed) {
    float* sum = b_.sum.data();
    b_.sum.Zero();
    GaussianBlockPlain(0.0f, s_.NoiseSigma, b_.noise.data(), n_, seed);
    for (const PlannedPath& p : paths)
      RunPathPlain(p.args, *ncos[p.channel], *feeds[p.channel], sum);
    const float* noise = b_.noise.data();
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

  // One thread, vector loops: the first path stores 0 + s g instead of adding to a cleared sum.
  int32_t MakeFast(const std::vector<PlannedPath>& paths, const std::vector<ChannelNco*>& ncos,
                   const std::vector<BitFeed*>& feeds, uint32_t seed) {
    float* sum = b_.sum.data();
    GaussianBlockFromSeed(0.0f, s_.NoiseSigma, b_.noise.data(), n_, seed);
    if (paths.empty()) b_.sum.Zero();
    bool first = true;
    for (const PlannedPath& p : paths) {
      RunPath(p, *ncos[p.channel], *feeds[p.channel], sum, first);
      first = false;
    }
    AddNoise(0, n_);
    return Finish();
  }

  void AddNoise(int32_t first, int32_t end) {
    float* sum = b_.sum.data();
    const float* noise = b_.noise.data();
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) {
      AddAvx2(sum, noise, first, end);
      return;
    }
#endif
    for (int32_t i = first; i < end; ++i) sum[i] = sum[i] + noise[i];
  }

#if defined(__x86_64__)
  __attribute__((target("avx2"))) static void AddAvx2(float* sum, const float* noise, int32_t first,
                                                      int32_t end) {
    int32_t i = first;
    for (; i + 8 <= end; i += 8)
      _mm256_storeu_ps(sum + i,
                       _mm256_add_ps(_mm256_loadu_ps(sum + i), _mm256_loadu_ps(noise + i)));
    for (; i < end; ++i) sum[i] = sum[i] + noise[i];
  }
#endif

  // Filter, limits, quantiser and packing of a finished sum, on this thread.
  int32_t Finish() {
    if (s_.FilterOn == 1) {
      double* ext = platform::FirBegin(b_.filter, n_);
      const int past = platform::FirPast(b_.filter);
      const float* sum = b_.sum.data();
      for (int32_t i = 0; i < n_; ++i) ext[past + i] = static_cast<double>(sum[i]);
      double* f = b_.filterBuffer.data();
      platform::FirRange(b_.filter, ext, f, 0, n_);
      platform::FirEnd(b_.filter);
      const BlockLimits<double> limits = MinMaxRange(f, 0, n_);
      QuantisePackRange(f, limits, s_.BitsPerSample, levels_.data(), levelCount_, s_.Decimation,
                        s_.OutputPacked, 0, count_, packed_.data());
    } else {
      const BlockLimits<float> limits = MinMaxRange(b_.sum.data(), 0, n_);
      QuantisePackRange(b_.sum.data(), limits, s_.BitsPerSample, levels_.data(), levelCount_,
                        s_.Decimation, s_.OutputPacked, 0, count_, packed_.data());
    }
    return Write(packed_.data(), count_);
  }

  // Two threads, one path per channel: a pipeline over pieces of 2048 samples. The front
  // thread runs the first channels over a piece into the sum (the first one storing) and
  // says the piece is ready; the back thread makes the block's noise first, which gives the
  // front thread its lead, then adds the other channels over each piece and the noise last,
  // the plain order of additions, and filters the piece. Both keep each path's state from
  // piece to piece. The work is split in channel pieces: the front thread has channels
  // 0..split-1 whole and channel `split` over the pieces before `handover`; the back thread
  // takes that channel on from there, with the state the front thread left. Only the
  // quantiser and the bytes follow the pipeline, in halves.
  int32_t MakePipelined(const std::vector<PlannedPath>& paths, const std::vector<ChannelNco*>& ncos,
                        const std::vector<BitFeed*>& feeds, uint32_t seed,
                        const std::function<void()>& sideWork) {
    const int32_t channels = static_cast<int32_t>(ncos.size());
    const int32_t piece = 2048;
    const int32_t pieces = (n_ + piece - 1) / piece;
    // The front share in channel pieces: at least channel 0 whole, at most all but the
    // back thread's last piece of the last channel.
    if (speed_.pipelineShare > 0) frontShare_ = speed_.pipelineShare;
    if (frontShare_ <= 0) frontShare_ = channels * pieces / 2;
    frontShare_ = std::clamp(frontShare_, pieces, channels * pieces - 1);
    const int32_t split = frontShare_ / pieces;
    const int32_t handover = frontShare_ % pieces;
    const bool filter = s_.FilterOn == 1;
    floatLimits_.resize(static_cast<size_t>(pieces));
    doubleLimits_.resize(static_cast<size_t>(pieces));
    cursors_.resize(static_cast<size_t>(channels));
    double* ext = filter ? platform::FirBegin(b_.filter, n_) : nullptr;
    const int past = platform::FirPast(b_.filter);
    float* sum = b_.sum.data();
    float* noise = b_.noise.data();
    double* f = b_.filterBuffer.data();
    std::atomic<int32_t> ready{0};
    double frontBusy = 0.0, frontPieces = 0.0, backBusy = 0.0;
    using Clock = std::chrono::steady_clock;

    auto front = [&] {
      const auto start = Clock::now();
      const int32_t begun = handover > 0 ? split + 1 : split;
      for (int32_t c = 0; c < begun; ++c) cursors_[c] = BeginPath(paths[c].args, *ncos[c], true);
      for (int32_t j = 0; j < pieces; ++j) {
        const int32_t lo = j * piece, hi = std::min(n_, lo + piece);
        const int32_t last = j < handover ? split + 1 : split;
        for (int32_t c = 0; c < last; ++c)
          RunPathRange(paths[c].args, *ncos[c], *feeds[c], sum, c == 0, cursors_[c], lo, hi);
        ready.store(j + 1, std::memory_order_release);
      }
      for (int32_t c = 0; c < split; ++c) EndPath(paths[c].args, *ncos[c], cursors_[c]);
      frontPieces = std::chrono::duration<double>(Clock::now() - start).count();
      if (sideWork) sideWork();
      frontBusy = std::chrono::duration<double>(Clock::now() - start).count();
    };
    auto back = [&] {
      double waited = 0.0;
      const auto start = Clock::now();
      for (int32_t c = handover > 0 ? split + 1 : split; c < channels; ++c)
        cursors_[c] = BeginPath(paths[c].args, *ncos[c], true);
      GaussianBlockFromSeed(0.0f, s_.NoiseSigma, noise, n_, seed);
      for (int32_t j = 0; j < pieces; ++j) {
        const int32_t lo = j * piece, hi = std::min(n_, lo + piece);
        if (ready.load(std::memory_order_acquire) <= j) {
          const auto w = Clock::now();
          while (ready.load(std::memory_order_acquire) <= j) Pause();
          waited += std::chrono::duration<double>(Clock::now() - w).count();
        }
        for (int32_t c = j < handover ? split + 1 : split; c < channels; ++c)
          RunPathRange(paths[c].args, *ncos[c], *feeds[c], sum, false, cursors_[c], lo, hi);
        AddNoise(lo, hi);
        if (filter) {
          for (int32_t i = lo; i < hi; ++i) ext[past + i] = static_cast<double>(sum[i]);
          platform::FirRange(b_.filter, ext, f, lo, hi);
          doubleLimits_[j] = MinMaxRange(f, lo, hi);
        } else {
          floatLimits_[j] = MinMaxRange(sum, lo, hi);
        }
      }
      for (int32_t c = split; c < channels; ++c) EndPath(paths[c].args, *ncos[c], cursors_[c]);
      backBusy = std::chrono::duration<double>(Clock::now() - start).count() - waited;
    };

#pragma omp parallel num_threads(2)
    {
      if (omp_get_num_threads() == 1) {
        front();
        back();
      } else if (omp_get_thread_num() == 1) {
        front();
      } else {
        back();
      }
#pragma omp barrier
      QuantiseInTeam(filter, sum, f, pieces);
    }
    if (filter) platform::FirEnd(b_.filter);
    // Move channel pieces towards the less busy thread: as many as half the difference,
    // smoothed over the blocks, is worth at the front thread's cost per channel piece. This
    // steers the split, never a number.
    const double pieceCost = frontPieces / std::max(1, frontShare_);
    busyDifference_ = 0.7 * busyDifference_ + 0.3 * (backBusy - frontBusy);
    if (pieceCost > 0.0) {
      const int32_t move =
          static_cast<int32_t>(std::clamp(std::lround(busyDifference_ / (2.0 * pieceCost)),
                                          -static_cast<long>(pieces), static_cast<long>(pieces)));
      frontShare_ += move;
      busyDifference_ -= 2.0 * pieceCost * move;
    }
    return Write(packed_.data(), count_);
  }

  static void Pause() {
#if defined(__x86_64__)
    _mm_pause();
#endif
  }

  // Channels on threads. Thread 0 adds its channels straight into the sum, in order, as the
  // one-thread loop does; the other threads put each path of theirs into a buffer of its
  // own and the last one also makes the noise and the side work. The buffers are then added
  // sample by sample in path order and the noise last, the plain order; filter, limits and
  // bytes go in pieces. Which thread computes what changes no number.
  int32_t MakeThreaded(const std::vector<PlannedPath>& paths, const std::vector<ChannelNco*>& ncos,
                       const std::vector<BitFeed*>& feeds, uint32_t seed,
                       const std::function<void()>& sideWork) {
    const int32_t channels = static_cast<int32_t>(ncos.size());
    firstPath_.assign(static_cast<size_t>(channels) + 1, static_cast<int32_t>(paths.size()));
    for (int32_t j = static_cast<int32_t>(paths.size()) - 1; j >= 0; --j)
      firstPath_[paths[j].channel] = j;
    for (int32_t c = channels - 1; c >= 0; --c)
      firstPath_[c] = std::min(firstPath_[c], firstPath_[c + 1]);

    const int32_t groups = (n_ + 15) / 16;
    const int32_t chunk = 2048;
    const int32_t chunks = (n_ + chunk - 1) / chunk;
    const bool filter = s_.FilterOn == 1;
    floatLimits_.resize(static_cast<size_t>(chunks));
    doubleLimits_.resize(static_cast<size_t>(chunks));
    double* ext = filter ? platform::FirBegin(b_.filter, n_) : nullptr;
    const int past = platform::FirPast(b_.filter);
    float* sum = b_.sum.data();
    double* f = b_.filterBuffer.data();
    // Roles, planned before the threads start: role 0 takes the first channels straight into
    // the sum, roles 1.. the others into buffers, the last role also the noise and the side
    // work. Work in path units; the noise and side work cost what the last blocks measured.
    const int roles = threads_;
    const double share = (static_cast<double>(paths.size()) + extraCost_) / roles;
    int32_t direct = 0;  // channels 0..direct-1 go straight into the sum
    while (direct < channels && firstPath_[direct + 1] <= share + 0.5) ++direct;
    owner_.assign(static_cast<size_t>(channels), 0);
    int t = 1;
    double load = 0.0;
    for (int32_t c = direct; c < channels; ++c) {
      const double cost = firstPath_[c + 1] - firstPath_[c];
      if (t < roles - 1 && load + cost / 2 > share) {
        ++t;
        load = 0.0;
      }
      owner_[c] = t;
      load += cost;
    }
    parts_.clear();
    if (direct > 0) parts_.push_back(nullptr);  // the sum itself, see ReduceOnto
    for (int32_t j = firstPath_[direct]; j < static_cast<int32_t>(paths.size()); ++j)
      parts_.push_back(pathBuffers_[j].data());

    auto playRole = [&](int role) {
      if (role == 0) {
        const auto start = std::chrono::steady_clock::now();
        bool first = true;
        for (int32_t c = 0; c < direct; ++c)
          for (int32_t j = firstPath_[c]; j < firstPath_[c + 1]; ++j) {
            RunPath(paths[j], *ncos[c], *feeds[c], sum, first);
            first = false;
          }
        if (direct > 0)
          pathSeconds_ =
              std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() /
              firstPath_[direct];
      } else {
        for (int32_t c = direct; c < channels; ++c) {
          if (owner_[c] != role) continue;
          for (int32_t j = firstPath_[c]; j < firstPath_[c + 1]; ++j)
            RunPath(paths[j], *ncos[c], *feeds[c], pathBuffers_[j].data(), true);
        }
      }
      if (role == roles - 1) {
        const auto start = std::chrono::steady_clock::now();
        GaussianBlockGroups(0.0f, s_.NoiseSigma, b_.noise.data(), n_, seed, 0, groups);
        if (sideWork) sideWork();
        extraSeconds_ =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      }
    };

    // Three meeting points a block: after the roles, after the sum (and after the filter).
#pragma omp parallel num_threads(roles)
    {
      const int team = omp_get_num_threads();
      for (int role = omp_get_thread_num(); role < roles; role += team) playRole(role);
#pragma omp barrier
#pragma omp for schedule(static)
      for (int32_t c = 0; c < chunks; ++c) {
        const int32_t lo = c * chunk, hi = std::min(n_, lo + chunk);
        ReduceOnto(direct > 0, lo, hi);
        if (filter) {
          for (int32_t i = lo; i < hi; ++i) ext[past + i] = static_cast<double>(sum[i]);
        } else {
          floatLimits_[c] = MinMaxRange(sum, lo, hi);
        }
      }
      if (filter) {
#pragma omp for schedule(static)
        for (int32_t c = 0; c < chunks; ++c) {
          const int32_t lo = c * chunk, hi = std::min(n_, lo + chunk);
          platform::FirRange(b_.filter, ext, f, lo, hi);
          doubleLimits_[c] = MinMaxRange(f, lo, hi);
        }
      }
      QuantiseInTeam(filter, sum, f, chunks);
    }
    if (filter) platform::FirEnd(b_.filter);
    // The measured cost of the noise and side work, in paths, for the next split.
    if (pathSeconds_ > 0.0 && extraSeconds_ > 0.0)
      extraCost_ = 0.8 * extraCost_ + 0.2 * std::min(64.0, extraSeconds_ / pathSeconds_);
    return Write(packed_.data(), count_);
  }

  // sum[i] = ((start + p_1[i]) + p_2[i] + ...) + noise[i] over lo..hi-1, start being the
  // sum thread 0 made (or 0 when it made none): the plain order of additions.
  void ReduceOnto(bool fromSum, int32_t lo, int32_t hi) {
    float* sum = b_.sum.data();
    const float* noise = b_.noise.data();
    const size_t first = fromSum ? 1 : 0;
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) {
      ReduceAvx2(parts_, first, fromSum, noise, sum, lo, hi);
      return;
    }
#endif
    for (int32_t i = lo; i < hi; ++i) {
      float acc = fromSum ? sum[i] : 0.0f;
      for (size_t j = first; j < parts_.size(); ++j) acc = acc + parts_[j][i];
      sum[i] = acc + noise[i];
    }
  }

  // Called by every thread of a team once the pieces' limits stand: each thread merges
  // them itself, in order (every piece started from the block's first sample, as the whole
  // loop does), then the team quantises and packs the block in slices of bytes.
  void QuantiseInTeam(bool filter, const float* sum, const double* f, int32_t pieces) {
    constexpr int32_t kByteChunk = 1024;
    const int32_t byteChunks = (count_ + kByteChunk - 1) / kByteChunk;
    BlockLimits<float> fl = floatLimits_[0];
    BlockLimits<double> dl = doubleLimits_[0];
    for (int32_t j = 1; j < pieces; ++j) {
      if (filter)
        CombineLimits(dl, doubleLimits_[j]);
      else
        CombineLimits(fl, floatLimits_[j]);
    }
#pragma omp for schedule(static) nowait
    for (int32_t c = 0; c < byteChunks; ++c) {
      const int32_t j0 = c * kByteChunk, j1 = std::min(count_, j0 + kByteChunk);
      if (filter)
        QuantisePackRange(f, dl, s_.BitsPerSample, levels_.data(), levelCount_, s_.Decimation,
                          s_.OutputPacked, j0, j1, packed_.data());
      else
        QuantisePackRange(sum, fl, s_.BitsPerSample, levels_.data(), levelCount_, s_.Decimation,
                          s_.OutputPacked, j0, j1, packed_.data());
    }
  }

  const DifSettings& s_;
  RunBuffers& b_;
  std::FILE* output_;
  GeneratorSpeed speed_;
  int32_t n_;
  int32_t levelCount_;
  std::vector<uint8_t> levels_;
  int32_t count_;
  int threads_ = 1;
  platform::AlignedBuffer<uint8_t> packed_;
  std::vector<platform::AlignedBuffer<float>> pathBuffers_;
  std::vector<int32_t> firstPath_;
  std::vector<int> owner_;
  // Timing that only steers which thread does what: seconds per path on thread 0, seconds
  // of noise and side work, and their ratio smoothed over the blocks.
  double pathSeconds_ = 0.0;
  double extraSeconds_ = 0.0;
  double extraCost_ = 4.0;
  // The front thread's share of the pipeline in channel pieces (0: not yet set) and the
  // smoothed difference of the busy times.
  int32_t frontShare_ = 0;
  double busyDifference_ = 0.0;
  std::vector<PathCursor> cursors_;
  std::vector<const float*> parts_;
  std::vector<BlockLimits<float>> floatLimits_;
  std::vector<BlockLimits<double>> doubleLimits_;
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
  BlockEngine engine(s, b, files.output, ctx.speed);
  const int32_t rate = s.ScintRate == 0 ? 1 : s.ScintRate;
  scint.scintPeriod = 1000 / rate;
  if (s.ScintMode > 0) FillScintillation(scint);

  // The 32 sampled codes are independent of one another: made on the run's threads.
  std::vector<platform::AlignedBuffer<float>> codeFloat(32);
#pragma omp parallel for schedule(static) num_threads(std::max(1, ctx.speed.threads))
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
  if (!files.record ||
      !ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues) ||
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
  engine.Reserve(static_cast<size_t>(channelLimit) * maxPaths);
  std::vector<PlannedPath> paths;
  paths.reserve(static_cast<size_t>(32 * maxPaths));
  std::vector<ChannelNco*> channelNcos;
  std::vector<BitFeed*> channelFeeds;
  bool warnedBefore = false;

  int32_t msCounter = 0, seconds = 0;
  int64_t msDone = 0;
  scint.scintCounter = 0;
  // With channels on threads the next epoch is read while the block is being made: the
  // block's paths are planned by then and read nothing of the record.
  bool readAhead = false, aheadOk = false;
  int32_t aheadTime = 0, aheadCount = 0;
  const std::function<void()> readNext = [&] {
    aheadOk =
        ReadScnEpoch(*files.record, ctx.state.scnReader, record, aheadTime, aheadCount, issues);
    readAhead = true;
  };
  const std::function<void()> nothing;
  for (;;) {
    msCounter += 1;
    bool epochRead;
    if (readAhead) {
      epochRead = aheadOk;
      timeMs = aheadTime;
      count = aheadCount;
      readAhead = false;
    } else {
      epochRead = ReadScnEpoch(*files.record, ctx.state.scnReader, record, timeMs, count, issues);
    }
    if (!epochRead) {
      ctx.messages.Warn(
          fmt::format("record {} ended after {} ms of the {} asked for: the run ends "
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
    const uint32_t seed = static_cast<uint32_t>(platform::CrtRand(ctx.rand));

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
      const double dR =
          ((range.next - range.previous) * (n - 1)) / n + range.previous - range.previous;
      const float rho = static_cast<float>(dR * kRangeRateToRho);
      const float omega =
          (static_cast<float>(static_cast<double>(rho) * s.CarrierFrequency) + intermediate) *
          radPerHz;
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
    const bool ahead = ctx.speed.threads > 1 && msDone + 1 < totalMs;
    report.bytes += engine.Make(paths, channelNcos, channelFeeds, seed, ahead ? readNext : nothing);
    StepScintCounter(s.ScintMode, scint);
    report.blocks += 1;

    bool rowEnded = false;
    for (BitFeed& f : feeds) {
      rowEnded = rowEnded || f.pastRow;
      if (f.beforeRow && !warnedBefore) {
        warnedBefore = true;
        ctx.messages.Warn(
            "a satellite's signal at the start of the run was sent before the first "
            "bit of its navigation file: those bits are sent as +1");
      }
    }
    if (rowEnded) {
      ctx.messages.Warn(
          fmt::format("the navigation bits (1740 s from the 12.5-minute frame of the "
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
  BlockEngine engine(s, b, files.output, ctx.speed);
  engine.Reserve(static_cast<size_t>(1 + multipath[prnIndex].count));
  std::vector<PlannedPath> paths;
  std::vector<ChannelNco*> ncos;
  std::vector<BitFeed*> feeds;

  const double fd = s.TestDopplerOn != 0 ? s.TestDoppler : 0.0;
  const float rho = static_cast<float>(fd / s.CarrierFrequency);
  const float omega = (kTwoPiFloat / static_cast<float>(s.SamplingFrequency)) *
                      static_cast<float>(s.IfFrequency + fd);
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
  feed.kind = mode == 1   ? BitFeed::Kind::kAlternate
              : mode == 2 ? BitFeed::Kind::kFile
                          : BitFeed::Kind::kAllOnes;
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
    const uint32_t seed = static_cast<uint32_t>(platform::CrtRand(ctx.rand));
    float g = 1.0f, thetaOff = 0.0f;
    if (s.ScintMode > 0)
      UpdateScintillation(s.TestPrn, 0, 2, s.TestPrn, s.ScintStart, seconds, files.scint, scint, g,
                          thetaOff);
    float d = 0.0f;
    paths.clear();
    ncos.assign(1, &c);
    feeds.assign(1, &feed);
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
      paths.push_back(PlannedPath{a, 0});
    }
    report.bytes += engine.Make(paths, ncos, feeds, seed);
    StepScintCounter(s.ScintMode, scint);
    report.blocks += 1;
    if (feed.pastRow) {
      ctx.messages.Warn(
          fmt::format("the navigation bits of the test signal ran out after {} ms: "
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
