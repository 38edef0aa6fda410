#pragma once
// A receiver's own C/A code for the tests' correlators, from the G2 phase-selector taps of
// IS-GPS-200 (not from the generator's code tables).

#include <vector>

namespace vorel::test {

// The 1023 chips of PRN 1 to 32 as 0/1 bits.
inline std::vector<int> ReplicaCode(int prn) {
  static constexpr int kTaps[32][2] = {
      {2, 6}, {3, 7}, {4, 8}, {5, 9}, {1, 9},  {2, 10}, {1, 8}, {2, 9}, {3, 10}, {2, 3}, {3, 4},
      {5, 6}, {6, 7}, {7, 8}, {8, 9}, {9, 10}, {1, 4},  {2, 5}, {3, 6}, {4, 7},  {5, 8}, {6, 9},
      {1, 3}, {4, 6}, {5, 7}, {6, 8}, {7, 9},  {8, 10}, {1, 6}, {2, 7}, {3, 8},  {4, 9}};
  int g1[11], g2[11];
  for (int s = 1; s <= 10; ++s) g1[s] = g2[s] = 1;
  std::vector<int> bits(1023);
  for (int k = 0; k < 1023; ++k) {
    bits[k] = g1[10] ^ g2[kTaps[prn - 1][0]] ^ g2[kTaps[prn - 1][1]];
    const int f1 = g1[3] ^ g1[10], f2 = g2[2] ^ g2[3] ^ g2[6] ^ g2[8] ^ g2[9] ^ g2[10];
    for (int s = 10; s > 1; --s) {
      g1[s] = g1[s - 1];
      g2[s] = g2[s - 1];
    }
    g1[1] = f1;
    g2[1] = f2;
  }
  return bits;
}

}  // namespace vorel::test
