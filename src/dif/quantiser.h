#pragma once
// Quantising a block against its own range, decimation and packing.
//
// The quantiser is uniform with L = 2^BitsPerSample cells spanning exactly the block's
// minimum to maximum: level floor((x - lo) / step), step = (hi - lo) / L, the maximum folded
// from L to L - 1. A block whose maximum equals its minimum gives level 0 throughout.
// Levels are unsigned: 0 is the block's minimum.

#include <cstdint>
#include <vector>

namespace vorel::dif {

// L = 2^bits by repeated squaring in double, truncated to int32.
int32_t LevelCount(int32_t bitsPerSample);
// Entry m is m reduced to 8 bits (the identity up to 8 bits).
std::vector<uint8_t> LevelTable(int32_t levelCount);

// Float form: hi - lo and the division by L in float, the step then widened; each
// (x - lo) in float, widened, divided in double. Writes n bytes.
void QuantiseFloatBlock(int32_t bits, const float* samples, uint8_t* bytes, const uint8_t* levels,
                        int32_t n, int32_t levelCount);
// Double form: the same without narrowing.
void QuantiseDoubleBlock(int32_t bits, const double* samples, uint8_t* bytes, const uint8_t* levels,
                         int32_t n, int32_t levelCount);
// The plain loops, kept as the reference of the vector forms.
void QuantiseFloatBlockPlain(int32_t bits, const float* samples, uint8_t* bytes,
                             const uint8_t* levels, int32_t n, int32_t levelCount);
void QuantiseDoubleBlockPlain(int32_t bits, const double* samples, uint8_t* bytes,
                              const uint8_t* levels, int32_t n, int32_t levelCount);

// The quantiser in pieces, for the fast forms (one or several threads), with the bytes of
// QuantiseFloatBlock/QuantiseDoubleBlock followed by PackBlock:
// MinMaxRange gives the limits of samples first..end-1, each piece starting from the
// block's first sample as the whole-block loop does; CombineLimits merges pieces in order.
template <typename T>
struct BlockLimits {
  T lo;
  T hi;
};
BlockLimits<float> MinMaxRange(const float* x, int32_t first, int32_t end);
BlockLimits<double> MinMaxRange(const double* x, int32_t first, int32_t end);
template <typename T>
void CombineLimits(BlockLimits<T>& into, const BlockLimits<T>& piece) {
  if (piece.hi > into.hi) into.hi = piece.hi;
  if (piece.lo < into.lo) into.lo = piece.lo;
}

// Quantises and packs straight into out[firstByte..endByte-1] (bytes of the packed block),
// reading only the samples those bytes hold. Returns nothing; the block's byte count is
// PackedCount.
void QuantisePackRange(const float* x, const BlockLimits<float>& limits, int32_t bits,
                       const uint8_t* levels, int32_t levelCount, int32_t decimation,
                       uint8_t outputPacked, int32_t firstByte, int32_t endByte, uint8_t* out);
void QuantisePackRange(const double* x, const BlockLimits<double>& limits, int32_t bits,
                       const uint8_t* levels, int32_t levelCount, int32_t decimation,
                       uint8_t outputPacked, int32_t firstByte, int32_t endByte, uint8_t* out);
// Bytes of a packed block of n samples (PackBlock's count).
int32_t PackedCount(int32_t n, int32_t bitsPerSample, int32_t decimation, uint8_t outputPacked);

// Decimation and packing in place. decimation 0 is taken as 1. Direct: n / D bytes, byte
// j = level of sample jD. Packed 1 bit: (n / 8) / D bytes, bit m of byte j = low bit of
// sample D (8j + m). Packed 2 bits: (n / 4) / D bytes, bits 2m and 2m+1 of byte j = the two
// low bits of sample D (4j + m). The earliest sample lies in the lowest bits. Returns the
// number of bytes to write (0 for packing of other widths, which set-up refuses).
int32_t PackBlock(uint8_t* bytes, int32_t n, int32_t bitsPerSample, int32_t decimation,
                  uint8_t outputPacked);

}  // namespace vorel::dif
