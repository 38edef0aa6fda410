#pragma once
// The noise of a block: normal deviates from one seed per block.
//
// Our own generator, the same on every machine and in its plain and vector forms. For the
// seed s the key is Hash(s x 0x9E3779B9 + 0x632BE5AB). Pair p of the block draws two 32-bit
// words, h1 = Hash(key + 2p) and h2 = Hash(key ^ (2p + 1)), Hash being the "lowbias32" mixer
// (x ^= x >> 16; x *= 0x7feb352d; x ^= x >> 15; x *= 0x846ca68b; x ^= x >> 16). Then, in
// single precision with every operation in a fixed order:
//   u1 = ((h1 >> 8) + 1) / 2^24, in (0, 1];  r = sqrt(-2 ln u1)
//   the angle 2 pi u2 is taken as octant h2 >> 29 and fraction ((h2 >> 8) & 0x1FFFFF) / 2^21
//   c, s = cos and sin of the angle
// ln, sin and cos are our own polynomials (not the host's library), so that every lane of a
// vector computes exactly what the plain loop computes. Samples come in groups of 16: sample
// 16g + l is mean + sigma (r c) of pair 8g + l for l < 8, and mean + sigma (r s) of pair
// 8g + l - 8 for l >= 8.

#include <cstdint>

#include "platform/random.h"

namespace vorel::dif {

// Fills block[0..n-1] from `seed`.
void GaussianBlockFromSeed(float mean, float sigma, float* block, int32_t n, uint32_t seed);
// Only the groups of 16 samples firstGroup..endGroup-1 (the end of a block, for the filter of
// the next one on another thread); the same numbers as the whole block.
void GaussianBlockGroups(float mean, float sigma, float* block, int32_t n, uint32_t seed,
                         int32_t firstGroup, int32_t endGroup);
// The plain loop, kept as the reference of the vector form.
void GaussianBlockPlain(float mean, float sigma, float* block, int32_t n, uint32_t seed);

// One block of noise: the seed is the next value of the worker's C run-time rand.
void GaussianBlock(float mean, float sigma, float* block, int32_t n, platform::RandState& rand);

// The polynomial logarithm and sine/cosine the generator uses (exposed for tests).
float NoiseLog(float u);
void NoiseSinCos(uint32_t octant, float fraction, float& s, float& c);

}  // namespace vorel::dif
