#pragma once
// The inner loop of sample generation: one path of one channel over one block.
//
// For sample i of the block (all in single precision except the integers):
//   x   = (d + codeFraction) + float(i + 1) rho; when |x| >= 1 the whole samples (x
//         truncated) move from codeFraction to the code index (codeIndex = K) and x is taken
//         again; with floorWrap, when x leaves 0..1, x floored moves
//   k   = (i + 1 + K) mod n, floored
//   phi = (thetaOff + carrierPhase) + float(i) omega
//   at k = 0 with `armed` set the channel counts a millisecond, and at the twentieth a new
//   navigation bit comes; k = 1 arms it again
//   q   = trunc(phi x 8/pi) mod 16, floored
//   s   = (float(navBit) T[q]) float(code[k])
// and the caller's sum takes s x g. The last path of a channel leaves carrierPhase,
// codeIndex and codeFraction for the next block.

#include <array>
#include <cstdint>

#include "gnss/constants.h"

namespace vorel::dif {

using gnss::kTwoPiFloat;
inline constexpr double kTwoPiFloatAsDouble = 6.2831854820251465;
inline constexpr float kRadiansToIndex = 2.5464789867401123f;

// sin((m + 1) pi / 8), with the five-digit 0.38268 for sin(pi / 8).
inline constexpr std::array<float, 16> kCarrierTable = {
    0.38268f,  0.70710677f,  0.9238795f,  1.0f,  0.9238795f,  0.70710677f,  0.38268f,  0.0f,
    -0.38268f, -0.70710677f, -0.9238795f, -1.0f, -0.9238795f, -0.70710677f, -0.38268f, 0.0f};

// The numerically controlled state of one PRN.
struct ChannelNco {
  float carrierPhase = 0.0f;
  float codeFraction = 0.0f;
  int32_t codeIndex = 0;
  int32_t msInBit = 0;
  int32_t bitNumber = 0;
  int32_t navBit = 0;
  uint8_t armed = 1;
  int32_t syncAge = 0;
};

// Where a channel's next navigation bit comes from.
struct BitFeed {
  enum class Kind { kScenario, kAllOnes, kAlternate, kFile };
  Kind kind = Kind::kScenario;
  const int32_t* row = nullptr;  // the PRN's row of the NavBitTable (row 0 for a test run)
  int32_t base = 0;              // first bit number of the row (scenario)
  int32_t fileIndex = 0;         // test run, bits from the file: index of the bit in force
  bool beforeRow = false;        // a bit before the row's first was asked for (sent as +1)
  bool pastRow = false;          // the row has run out: the run ends after this block
};

// The bit that follows when a channel completes a bit period.
void NextBit(BitFeed& feed, ChannelNco& nco);

struct PathArgs {
  int32_t n = 0;
  float d = 0.0f;         // path delay in samples
  float rho = 0.0f;       // code rate offset, samples per sample
  float omega = 0.0f;     // carrier step, radians per sample
  float thetaOff = 0.0f;  // scintillation phase
  float g = 1.0f;         // path gain
  bool lastPath = true;
  bool carrierOn = true;  // off (test signal): s = float(code[k] x navBit)
  const int32_t* code = nullptr;
  const float* codeFloat = nullptr;  // float(code[k]), for the vector form
  bool wide = true;                  // the vector form may use 16 lanes where the machine has them
  // The sample of the code is picked by the code index alone, the fraction left out. As the
  // program wraps it (false), the fraction runs in -1..1 with the sign of rho, so the code
  // sent is on average half a sample late on an approaching satellite and half a sample
  // early on a receding one: metres of range error that differ by satellite. Wrapped down (true), the fraction
  // stays in 0..1 whatever rho, and every satellite's code lags by the same half sample on
  // average, which a receiver takes into its clock.
  bool floorWrap = false;
  // When the channel counts a millisecond of its navigation bit. As the program does
  // (false): when the index lands on entry 0 after entry 1 has armed the count, so a
  // whole-sample step over entry 0 (or over entry 1) loses that millisecond for good, and
  // the bit edges come a millisecond late against the code from then on. True: whenever the
  // index passes the end of the code, wherever it lands.
  bool epochOnWrap = false;
};

// The state a path carries from sample to sample within a block, and the form of the loop
// chosen for the path at its start.
struct PathCursor {
  enum class Form : int8_t { kPlain, kWild, kEight, kSixteen };
  int64_t K = 0;
  float dcf = 0.0f;   // d + codeFraction
  float base = 0.0f;  // thetaOff + carrierPhase
  float x = 0.0f;
  float phi = 0.0f;
  int32_t k = 0;
  Form form = Form::kPlain;
};

// A path in pieces: BeginPath at the start of the block, RunPathRange over consecutive
// sample ranges first..end-1 that together cover 0..n-1, EndPath after the last. The
// numbers are those of the whole-block loops below. `store` puts 0 + s x g into dst
// instead of adding s x g.
PathCursor BeginPath(const PathArgs& a, const ChannelNco& nco, bool vectorised);
void RunPathRange(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* dst, bool store,
                  PathCursor& cursor, int32_t first, int32_t end);
void EndPath(const PathArgs& a, ChannelNco& nco, const PathCursor& cursor);
// Takes the path over first..end-1 as RunPathRange does, making no samples: the cursor, the
// NCO and the bit feed end as RunPathRange leaves them. A thread that leaves a block to
// another still has to know where each channel stands after it.
void SkipPathRange(const PathArgs& a, ChannelNco& nco, BitFeed& feed, PathCursor& cursor,
                   int32_t first, int32_t end);

// Runs one path over the block and adds s x g into sum[0..n-1]. When `channelOut` is given,
// s x g goes there instead of into the sum (channels on separate threads).
void RunPathPlain(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* sum);
// The same numbers, eight samples at a time where nothing happens between them.
void RunPathFast(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* sum);

// Stores s x g instead of adding it (first contribution of a fresh buffer).
void RunPathPlainStore(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* out);
void RunPathFastStore(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* out);

}  // namespace vorel::dif
