#pragma once
// Random numbers that are the same on every machine.
//
// CrtRand is the classic C run-time rule the noise seeds come from: the state steps as
// state * 214013 + 2531011 and the value is bits 16 to 30 of the new state (0..32767).
// Each thread of the original began at state 1; here the state is an explicit object so
// that a run's sequence does not depend on which thread executes it.
//
// GaussianFill is our normal deviate generator, seeded anew by every call. Pair k of
// the output is made from two uniforms of a counter-based hash of (seed, k) by the
// Box-Muller rule, so any sample can be computed without the ones before it.

#include <cstdint>

namespace vorel::platform {

struct RandState {
  uint32_t state = 1;
};

inline int CrtRand(RandState& r) {
  r.state = r.state * 214013u + 2531011u;
  return static_cast<int>((r.state >> 16) & 0x7fffu);
}

// SplitMix64 finaliser: a bijective mix of 64 bits.
inline uint64_t Mix64(uint64_t z) {
  z += 0x9e3779b97f4a7c15ull;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

// Fills `count` normal deviates of the given mean and sigma from `seed`.
void GaussianFill(uint32_t seed, double mean, double sigma, double* out, int count);

}  // namespace vorel::platform
