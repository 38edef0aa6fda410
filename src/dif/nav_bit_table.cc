#include "dif/nav_bit_table.h"

#include <bit>
#include <cstdio>
#include <cstring>
#include <vector>

namespace vorel::dif {

int32_t ReadNavBitFile(const std::filesystem::path& path, int32_t* row) {
  std::FILE* f = std::fopen(path.string().c_str(), "rb");
  if (!f) return -1;
  static_assert(sizeof(int32_t) == 4);
  // Large reads straight from the file: a row is a third of a megabyte.
  std::setvbuf(f, nullptr, _IONBF, 0);
  if constexpr (std::endian::native == std::endian::little) {
    // The file's little-endian int32s are the row's own layout: read in place.
    const size_t got = std::fread(row, 4, static_cast<size_t>(kNavBitsPerRow), f);
    std::fclose(f);
    return static_cast<int32_t>(got);
  }
  std::vector<unsigned char> buffer(4 * 16384);
  int32_t read = 0;
  while (read < kNavBitsPerRow) {
    const size_t want =
        std::min<size_t>(buffer.size() / 4, static_cast<size_t>(kNavBitsPerRow - read));
    const size_t got = std::fread(buffer.data(), 4, want, f);
    for (size_t k = 0; k < got; ++k) {
      const unsigned char* b = buffer.data() + 4 * k;
      row[read + static_cast<int32_t>(k)] = static_cast<int32_t>(
          static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
          static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24);
    }
    read += static_cast<int32_t>(got);
    if (got < want) break;
  }
  std::fclose(f);
  return read;
}

void ConvertNavBits(int32_t* row) {
  // Wrapping arithmetic: a row that is converted again (its file vanished) keeps moving
  // away from -1/+1 but never overflows into undefined behaviour.
  for (int32_t i = 0; i < kNavBitsPerRow; ++i)
    row[i] = static_cast<int32_t>(2u * static_cast<uint32_t>(row[i]) - 1u);
}

}  // namespace vorel::dif
