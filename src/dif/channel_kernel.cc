#include "dif/channel_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "dif/dif_state.h"
#include "dif/lanes.h"

namespace vorel::dif {
namespace {

// Float to int32 as a cast truncates, but held inside the int32 range and 0 for NaN, so
// that no input can make the conversion undefined.
inline int32_t SaturatingTrunc(float v) {
  if (!(v == v)) return 0;
  if (v >= 2147483520.0f) return 2147483520;
  if (v <= -2147483520.0f) return -2147483520;
  return static_cast<int32_t>(v);
}

inline int32_t FloorMod(int64_t a, int32_t n) {
  int64_t r = a % n;
  if (r < 0) r += n;
  return static_cast<int32_t>(r);
}

// True when no x and no phi of this path can leave the range in which a plain cast is
// defined. Otherwise the path runs the saturating form (only garbage in the record or the
// scintillation file gets there).
bool Tame(const PathArgs& a, const ChannelNco& c) {
  const double n = a.n;
  const double phiBound = std::fabs(static_cast<double>(a.thetaOff) + c.carrierPhase) +
                          n * std::fabs(static_cast<double>(a.omega)) + 1.0;
  const double xBound = std::fabs(static_cast<double>(a.d)) + std::fabs(c.codeFraction) +
                        n * std::fabs(static_cast<double>(a.rho)) + 2.0;
  return phiBound < 4.0e8 && xBound < 1.0e8 &&
         std::llabs(static_cast<long long>(c.codeIndex)) < 1000000000;
}

enum class Out { kAdd, kStore };

inline void Emit(float* dst, int32_t i, float s, float g, Out mode) {
  // A fresh buffer takes 0 + s g, which is what adding to a cleared sum gives.
  if (mode == Out::kAdd)
    dst[i] = dst[i] + s * g;
  else
    dst[i] = 0.0f + s * g;
}

// Whether the code phase's fraction x has left its range: -1..1 as the program wraps it
// (towards zero), 0..1 when it wraps down (kFloor).
template <bool kFloor>
inline bool LeavesRange(float x) {
  return kFloor ? (x >= 1.0f || x < 0.0f) : std::fabs(x) >= 1.0f;
}

// The whole samples that move from the fraction to the code index.
template <bool kWild, bool kFloor>
inline int32_t WholeSamples(float x) {
  int32_t m = kWild ? SaturatingTrunc(x) : static_cast<int32_t>(x);
  if (kFloor && static_cast<float>(m) > x) m -= 1;
  return m;
}

// Everything a sample does to the path's state: the code wrap, the code index, the
// millisecond count and the bit, and the carrier phase.
template <bool kWild, bool kFloor>
inline void Advance(const PathArgs& a, ChannelNco& c, BitFeed& feed, PathCursor& p, int32_t i) {
  const float fi1 = static_cast<float>(i + 1);
  p.x = p.dcf + fi1 * a.rho;
  if (LeavesRange<kFloor>(p.x)) {
    const int32_t m = WholeSamples<kWild, kFloor>(p.x);
    c.codeFraction -= static_cast<float>(m);
    p.K += m;
    c.codeIndex = static_cast<int32_t>(p.K);
    p.x = fi1 * a.rho + c.codeFraction;
    p.dcf = a.d + c.codeFraction;
  }
  const int32_t before = p.k;
  p.k = FloorMod(static_cast<int64_t>(i) + 1 + p.K, a.n);
  p.phi = p.base + static_cast<float>(i) * a.omega;
  if (a.epochOnWrap) {
    // The index has passed the end of the code, whether it landed on 0 or stepped over it.
    if (p.k < before) {
      c.msInBit = FloorMod(static_cast<int64_t>(c.msInBit) + 1, 20);
      if (c.msInBit == 0) NextBit(feed, c);
    }
  } else if (p.k == 0) {
    if (c.armed) {
      c.msInBit = FloorMod(static_cast<int64_t>(c.msInBit) + 1, 20);
      if (c.msInBit == 0) NextBit(feed, c);
      c.armed = 0;
    }
  } else if (p.k == 1 && !c.armed) {
    c.armed = 1;
  }
}

template <bool kWild, bool kFloor>
inline void Step(const PathArgs& a, ChannelNco& c, BitFeed& feed, PathCursor& p, int32_t i,
                 float* dst, Out mode) {
  Advance<kWild, kFloor>(a, c, feed, p, i);
  const float scaled = p.phi * kRadiansToIndex;
  const int32_t t = kWild ? SaturatingTrunc(scaled) : static_cast<int32_t>(scaled);
  const int32_t q = t & 15;  // floored remainder by 16
  float s;
  if (a.carrierOn)
    s = (static_cast<float>(c.navBit) * kCarrierTable[q]) * static_cast<float>(a.code[p.k]);
  else
    s = static_cast<float>(static_cast<int32_t>(static_cast<int64_t>(a.code[p.k]) * c.navBit));
  Emit(dst, i, s, a.g, mode);
}

// The state alone over samples i0..i1-1: only the samples where something can happen are
// stepped. Between them the code index runs on by one a sample with nothing to count, and
// x = dcf + float(i + 1) rho runs one way (each rounding is monotonic), so the first sample
// at which it leaves its range is found by halving. After the range the cursor holds what
// the last sample left, as the loops above leave it.
template <bool kWild, bool kFloor>
void SkipLoop(const PathArgs& a, ChannelNco& c, BitFeed& feed, PathCursor& p, int32_t i0,
              int32_t i1) {
  const int32_t n = a.n;
  auto leaves = [&](int32_t i) {
    return LeavesRange<kFloor>(p.dcf + static_cast<float>(i + 1) * a.rho);
  };
  bool stepped = false;  // whether the last sample of the range was stepped
  int32_t i = i0;
  while (i < i1) {
    // Entry 0 of the code comes at the sample i + ((-(i + 1 + K)) mod n), entry 1 one later.
    int32_t next = i + FloorMod(-(static_cast<int64_t>(i) + 1 + p.K), n);
    if (!a.epochOnWrap) next = std::min(next, i + FloorMod(-(static_cast<int64_t>(i) + p.K), n));
    next = std::min(next, i1);
    if (leaves(i)) {
      next = i;
    } else if (next > i + 1 && leaves(next - 1)) {
      int32_t lo = i, hi = next - 1;  // leaves(lo) is false, leaves(hi) true
      while (hi - lo > 1) {
        const int32_t mid = lo + (hi - lo) / 2;
        if (leaves(mid))
          hi = mid;
        else
          lo = mid;
      }
      next = hi;
    }
    if (next >= i1) break;
    p.k = FloorMod(static_cast<int64_t>(next) + p.K, n);  // the entry of the sample before
    Advance<kWild, kFloor>(a, c, feed, p, next);
    stepped = next == i1 - 1;
    i = next + 1;
  }
  if (i1 > i0 && !stepped) {
    p.x = p.dcf + static_cast<float>(i1) * a.rho;
    p.k = FloorMod(static_cast<int64_t>(i1) + p.K, n);
    p.phi = p.base + static_cast<float>(i1 - 1) * a.omega;
  }
}

inline void Finish(const PathArgs& a, ChannelNco& c, const PathCursor& p) {
  if (!a.lastPath) return;
  c.carrierPhase =
      static_cast<float>(std::fmod(static_cast<double>(a.omega + p.phi), kTwoPiFloatAsDouble));
  c.codeIndex = p.k;
  c.codeFraction = p.x;
}

template <bool kWild, bool kFloor>
void PlainLoop(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode, PathCursor& p,
               int32_t i0, int32_t i1) {
  for (int32_t i = i0; i < i1; ++i) Step<kWild, kFloor>(a, c, feed, p, i, dst, mode);
}

#if defined(__x86_64__)
// The carrier table times the bit in force, the same float product the plain loop forms, as
// 16 / W vectors of W lanes.
template <int W>
VOREL_LANES_INLINE void LoadCarrierTable(int32_t navBit, typename lanes::Vec<W>::F* parts) {
  alignas(64) float table[16];
  for (int m = 0; m < 16; ++m) table[m] = static_cast<float>(navBit) * kCarrierTable[m];
  for (int k = 0; k < 16 / W; ++k) parts[k] = lanes::LoadU<typename lanes::Vec<W>::F>(table + W * k);
}

// W samples at a time wherever no code wrap, no code epoch (k of 0 or 1) and no end of the
// code table falls among them; those groups go through the plain step. kStart, the code
// index of the group's first sample, moves on by W after a vector group and is taken anew
// after a plain one. Written once for eight lanes (AVX2: the table in two registers) and
// sixteen (AVX-512: in one).
template <int W, bool kFloor>
VOREL_LANES_INLINE void FastLoopLanes(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst,
                                      Out mode, PathCursor& p, int32_t i0, int32_t i1) {
  using F = typename lanes::Vec<W>::F;
  using I = typename lanes::Vec<W>::I;
  const int32_t n = a.n;
  const F baseV = lanes::Splat<F>(p.base), omegaV = lanes::Splat<F>(a.omega);
  const F gV = lanes::Splat<F>(a.g);
  F table[16 / W];
  int32_t tableBit = c.navBit;
  LoadCarrierTable<W>(tableBit, table);

  int32_t kStart = FloorMod(static_cast<int64_t>(i0) + 1 + p.K, n);
  int32_t i = i0;
  I iv = lanes::Iota<I>() + lanes::Splat<I>(i0);  // i + lane
  for (; i + W <= i1; i += W, iv += W) {
    // x = dcf + float(i + 1) rho runs one way over the group (each operation rounds
    // monotonically), so it leaves its range inside the group exactly when it does at the
    // group's first or last sample.
    const float xFirst = p.dcf + static_cast<float>(i + 1) * a.rho;
    const float xLast = p.dcf + static_cast<float>(i + W) * a.rho;
    const bool wrap = LeavesRange<kFloor>(xFirst) || LeavesRange<kFloor>(xLast);
    if (wrap || !a.carrierOn || kStart <= 1 || kStart + W - 1 >= n) {
      for (int32_t j = i; j < i + W; ++j) Step<false, kFloor>(a, c, feed, p, j, dst, mode);
      kStart = FloorMod(static_cast<int64_t>(i) + W + 1 + p.K, n);
      continue;
    }
    if (tableBit != c.navBit) {
      tableBit = c.navBit;
      LoadCarrierTable<W>(tableBit, table);
    }
    const F phi = baseV + __builtin_convertvector(iv, F) * omegaV;
    const I q = __builtin_convertvector(phi * kRadiansToIndex, I) & 15;
    F carrier;
    if constexpr (W == 16)
      carrier = __builtin_shuffle(table[0], q);
    else
      carrier = __builtin_shuffle(table[0], table[1], q);
    const F s = carrier * lanes::LoadU<F>(a.codeFloat + kStart);
    const F contribution = s * gV;
    if (mode == Out::kAdd)
      lanes::StoreU(dst + i, lanes::LoadU<F>(dst + i) + contribution);
    else
      lanes::StoreU(dst + i, 0.0f + contribution);
    // What the last sample of the group leaves behind.
    p.k = kStart + W - 1;
    p.x = p.dcf + static_cast<float>(i + W) * a.rho;
    p.phi = p.base + static_cast<float>(i + W - 1) * a.omega;
    kStart += W;
    if (kStart >= n) kStart -= n;
  }
  for (; i < i1; ++i) Step<false, kFloor>(a, c, feed, p, i, dst, mode);
}

template <bool kFloor>
__attribute__((target("avx2"))) void FastLoop(const PathArgs& a, ChannelNco& c, BitFeed& feed,
                                              float* dst, Out mode, PathCursor& p, int32_t i0,
                                              int32_t i1) {
  FastLoopLanes<8, kFloor>(a, c, feed, dst, mode, p, i0, i1);
}

template <bool kFloor>
__attribute__((target("avx512f"))) void FastLoop512(const PathArgs& a, ChannelNco& c,
                                                    BitFeed& feed, float* dst, Out mode,
                                                    PathCursor& p, int32_t i0, int32_t i1) {
  FastLoopLanes<16, kFloor>(a, c, feed, dst, mode, p, i0, i1);
}
#endif

template <bool kFloor>
void RunForm(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode, PathCursor& p,
             int32_t i0, int32_t i1) {
  switch (p.form) {
#if defined(__x86_64__)
    case PathCursor::Form::kSixteen:
      FastLoop512<kFloor>(a, c, feed, dst, mode, p, i0, i1);
      return;
    case PathCursor::Form::kEight:
      FastLoop<kFloor>(a, c, feed, dst, mode, p, i0, i1);
      return;
#endif
    case PathCursor::Form::kWild:
      PlainLoop<true, kFloor>(a, c, feed, dst, mode, p, i0, i1);
      return;
    default:
      PlainLoop<false, kFloor>(a, c, feed, dst, mode, p, i0, i1);
      return;
  }
}

void Run(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode, PathCursor& p,
         int32_t i0, int32_t i1) {
  if (a.floorWrap)
    RunForm<true>(a, c, feed, dst, mode, p, i0, i1);
  else
    RunForm<false>(a, c, feed, dst, mode, p, i0, i1);
}

void Whole(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode, bool vectorised) {
  PathCursor p = BeginPath(a, c, vectorised);
  Run(a, c, feed, dst, mode, p, 0, a.n);
  EndPath(a, c, p);
}

}  // namespace

void NextBit(BitFeed& feed, ChannelNco& nco) {
  switch (feed.kind) {
    case BitFeed::Kind::kScenario: {
      // Wrapping: a bit number saturated from a wild range must not overflow.
      nco.bitNumber = static_cast<int32_t>(static_cast<uint32_t>(nco.bitNumber) + 1u);
      const int64_t index = static_cast<int64_t>(nco.bitNumber) - feed.base;
      if (index < 0) {
        nco.navBit = 1;
        feed.beforeRow = true;
      } else if (index >= kNavBitsPerRow) {
        feed.pastRow = true;
      } else {
        nco.navBit = feed.row[index];
      }
      break;
    }
    case BitFeed::Kind::kAllOnes:
      nco.navBit = 1;
      break;
    case BitFeed::Kind::kAlternate:
      nco.navBit = -nco.navBit;
      break;
    case BitFeed::Kind::kFile:
      if (feed.fileIndex + 1 >= kNavBitsPerRow) {
        feed.pastRow = true;
      } else {
        feed.fileIndex += 1;
        nco.navBit = feed.row[feed.fileIndex];
      }
      break;
  }
}

PathCursor BeginPath(const PathArgs& a, const ChannelNco& c, bool vectorised) {
  PathCursor p;
  p.K = c.codeIndex;
  p.k = FloorMod(c.codeIndex, a.n);  // the entry before the block's first sample
  p.dcf = a.d + c.codeFraction;
  p.base = a.thetaOff + c.carrierPhase;
  const bool tame = Tame(a, c);
  p.form = tame ? PathCursor::Form::kPlain : PathCursor::Form::kWild;
#if defined(__x86_64__)
  if (vectorised && tame && a.codeFloat) {
    if (a.wide && __builtin_cpu_supports("avx512f"))
      p.form = PathCursor::Form::kSixteen;
    else if (__builtin_cpu_supports("avx2"))
      p.form = PathCursor::Form::kEight;
  }
#endif
  return p;
}

void RunPathRange(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* dst, bool store,
                  PathCursor& cursor, int32_t first, int32_t end) {
  Run(a, nco, feed, dst, store ? Out::kStore : Out::kAdd, cursor, first, end);
}

void SkipPathRange(const PathArgs& a, ChannelNco& nco, BitFeed& feed, PathCursor& cursor,
                   int32_t first, int32_t end) {
  const bool wild = cursor.form == PathCursor::Form::kWild;
  if (a.floorWrap) {
    if (wild)
      SkipLoop<true, true>(a, nco, feed, cursor, first, end);
    else
      SkipLoop<false, true>(a, nco, feed, cursor, first, end);
  } else if (wild) {
    SkipLoop<true, false>(a, nco, feed, cursor, first, end);
  } else {
    SkipLoop<false, false>(a, nco, feed, cursor, first, end);
  }
}

void EndPath(const PathArgs& a, ChannelNco& nco, const PathCursor& cursor) {
  Finish(a, nco, cursor);
}

void RunPathPlain(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* sum) {
  Whole(a, nco, feed, sum, Out::kAdd, false);
}
void RunPathFast(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* sum) {
  Whole(a, nco, feed, sum, Out::kAdd, true);
}
void RunPathPlainStore(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* out) {
  Whole(a, nco, feed, out, Out::kStore, false);
}
void RunPathFastStore(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* out) {
  Whole(a, nco, feed, out, Out::kStore, true);
}

}  // namespace vorel::dif
