#pragma once
// What the tests' own receiver knows: its C/A code, from the G2 phase-selector taps of
// IS-GPS-200 (not from the generator's code tables), and the .scn record's epochs as text.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
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

struct ScnEpoch {
  int32_t timeMs = 0;
  std::map<int, double> range;  // code range, m
  std::map<int, int> bubbleClass;
};

// The first `wanted` epochs of a .scn record (fewer if it ends).
inline std::vector<ScnEpoch> ReadEpochs(const std::filesystem::path& path, int wanted) {
  std::ifstream in(path);
  std::vector<ScnEpoch> epochs;
  while (static_cast<int>(epochs.size()) < wanted) {
    ScnEpoch e;
    int count = 0;
    if (!(in >> e.timeMs >> count)) break;
    for (int j = 0; j < count; ++j) {
      int prn, cls;
      double code, carrier;
      in >> prn >> code >> carrier >> cls;
      e.range[prn] = code;
      e.bubbleClass[prn] = cls;
    }
    epochs.push_back(e);
  }
  return epochs;
}

}  // namespace vorel::test
