#pragma once
// Vectors of W 32-bit lanes in GCC's vector extensions, for kernels written once for
// every width. A kernel is a template on W marked VOREL_LANES_INLINE, built only from these
// types, their operators (each one IEEE operation per lane, in the order written; the build
// has -ffp-contract=off) and the generic builtins (__builtin_shuffle,
// __builtin_convertvector); it is inlined into a small wrapper per instruction set, e.g.
// __attribute__((target("avx2"))) with W = 8 and target("avx512f") with W = 16, which is
// where the code is generated. An operation with no generic form (the square root) comes
// from a helper defined inside `#pragma GCC target` for its instruction set.

#include <cstdint>
#include <cstring>

namespace vorel::dif::lanes {

template <int W>
struct Vec {
  typedef float F __attribute__((vector_size(4 * W)));
  typedef int32_t I __attribute__((vector_size(4 * W)));
  typedef uint32_t U __attribute__((vector_size(4 * W)));
};

#define VOREL_LANES_INLINE inline __attribute__((always_inline))

template <typename V>
VOREL_LANES_INLINE V LoadU(const void* p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <typename V>
VOREL_LANES_INLINE void StoreU(void* p, const V& v) {
  std::memcpy(p, &v, sizeof v);
}

// Every lane set to `x`. (Written lane by lane: GCC 12 makes one broadcast of this, while
// `V{} + x` or `vector op scalar` with a scalar that is not a constant, inside a template
// compiled for the default target, becomes one insert per lane. So a kernel uses scalars
// other than constants only through Splat, outside its loops.)
template <typename V, typename T>
VOREL_LANES_INLINE V Splat(T x) {
  V v;
  for (int l = 0; l < static_cast<int>(sizeof(V) / sizeof(T)); ++l) v[l] = x;
  return v;
}

// 0, 1, ..., W - 1.
template <typename V>
VOREL_LANES_INLINE V Iota() {
  V v;
  for (int l = 0; l < static_cast<int>(sizeof(V) / 4); ++l) v[l] = l;
  return v;
}

}  // namespace vorel::dif::lanes
