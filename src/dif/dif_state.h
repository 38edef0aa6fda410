#pragma once
// What the DIF generator keeps for the life of a program start: the navigation bits of
// the 32 satellites and the statics of the .scn reader.

#include <cstdint>
#include <vector>

namespace vorel::dif {

inline constexpr int kNavBitRows = 32;
inline constexpr int kNavBitsPerRow = 87000;  // 58 frames, 1740 s of 50 bit/s data

struct NavBitTable {
  // Row r (PRN r + 1) holds elements [r x 87000, (r + 1) x 87000). Allocated zeroed on
  // first use, then never cleared nor reallocated: a file that is missing at the next
  // run leaves its row as it stood.
  std::vector<int32_t> bits;

  void EnsureAllocated() {
    if (bits.empty()) bits.assign(static_cast<size_t>(kNavBitRows) * kNavBitsPerRow, 0);
  }
  int32_t* Row(int prnIndex) {
    return bits.data() + static_cast<size_t>(prnIndex) * kNavBitsPerRow;
  }
};

// The reader's time and channel count of the last epoch read: zero at program start and
// not reset between runs.
struct ScnReaderStatics {
  int32_t timeMs = 0;
  int32_t count = 0;
};

struct DifState {
  NavBitTable navBitTable;
  ScnReaderStatics scnReader;
};

}  // namespace vorel::dif
