#include "platform/random.h"

#include <cmath>

namespace vorel::platform {

void GaussianFill(uint32_t seed, double mean, double sigma, double* out, int count) {
  constexpr double kTwoPi = 6.283185307179586;
  constexpr double kScale = 1.0 / 9007199254740992.0;  // 2^-53
  const uint64_t key = Mix64(static_cast<uint64_t>(seed) * 0x2545f4914f6cdd1dull);
  for (int i = 0; i < count; i += 2) {
    const uint64_t pair = static_cast<uint64_t>(i / 2);
    const uint64_t a = Mix64(key ^ (2 * pair));
    const uint64_t b = Mix64(key ^ (2 * pair + 1));
    // u1 in (0, 1]: never zero, so the logarithm is finite.
    const double u1 = (static_cast<double>(a >> 11) + 1.0) * kScale;
    const double u2 = static_cast<double>(b >> 11) * kScale;
    const double radius = std::sqrt(-2.0 * std::log(u1));
    const double angle = kTwoPi * u2;
    out[i] = mean + sigma * radius * std::cos(angle);
    if (i + 1 < count) out[i + 1] = mean + sigma * radius * std::sin(angle);
  }
}

}  // namespace vorel::platform
