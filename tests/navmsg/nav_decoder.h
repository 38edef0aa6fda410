#pragma once
// A receiver-side reading of the navigation bit stream, written for the tests from the
// published interface definition and independent of the encoders: words are checked
// with the parity masks in the usual 24-bit form, D30* undoes the complementing, and
// fields are cut out of the recovered source words by subframe bit number.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vorel::navmsg::decoder {

// Parity masks over d1..d24 (d1 as the most significant of 24 bits) for D25..D30, and
// which previous bit joins each sum (true: D30*, false: D29*).
inline constexpr std::array<uint32_t, 6> kParityMasks = {0xEC7CD2, 0x763E69, 0xBB1F34,
                                                         0x5D8F9A, 0xAEC7CD, 0x2DEA27};
inline constexpr std::array<bool, 6> kUsesD30Star = {false, true, false, true, true, false};

struct DecodedSubframe {
  std::array<uint32_t, 10> source{};  // d1..d24 of each word after undoing D30*
  std::array<uint32_t, 10> raw{};     // the 30 transmitted bits of each word
  bool parityOk = true;

  // Unsigned field of `width` bits starting at subframe bit `first` (1..300), reading
  // only data bits of one word.
  uint32_t Field(int first, int width) const {
    uint32_t v = 0;
    for (int b = first; b < first + width; ++b) {
      const int word = (b - 1) / 30, pos = (b - 1) % 30;
      v = (v << 1) | ((source[word] >> (23 - pos)) & 1u);
    }
    return v;
  }
  int64_t SignedField(int first, int width) const {
    const uint32_t v = Field(first, width);
    return (v >> (width - 1)) & 1u ? static_cast<int64_t>(v) - (int64_t{1} << width) : v;
  }
  // Two-part field: the high part first.
  uint32_t Split(int firstHigh, int widthHigh, int firstLow, int widthLow) const {
    return (Field(firstHigh, widthHigh) << widthLow) | Field(firstLow, widthLow);
  }
  int64_t SignedSplit(int firstHigh, int widthHigh, int firstLow, int widthLow) const {
    const uint32_t v = Split(firstHigh, widthHigh, firstLow, widthLow);
    const int width = widthHigh + widthLow;
    if (width == 32) return static_cast<int32_t>(v);
    return (v >> (width - 1)) & 1u ? static_cast<int64_t>(v) - (int64_t{1} << width) : v;
  }
  uint32_t Tow() const { return Field(31, 17); }
  uint32_t SubframeId() const { return Field(50, 3); }
  uint32_t RawBit(int bitNumber) const {
    const int word = (bitNumber - 1) / 30, pos = (bitNumber - 1) % 30;
    return (raw[word] >> (29 - pos)) & 1u;
  }
};

// Reads a stream of 0/1 bits, 300 per subframe, with D29*, D30* of 0 before the first.
inline std::vector<DecodedSubframe> DecodeStream(const std::vector<int>& bits, uint32_t d29Star = 0,
                                                 uint32_t d30Star = 0) {
  std::vector<DecodedSubframe> out(bits.size() / 300);
  for (size_t s = 0; s < out.size(); ++s) {
    DecodedSubframe& sf = out[s];
    for (int w = 0; w < 10; ++w) {
      uint32_t word = 0;
      for (int i = 0; i < 30; ++i) word = (word << 1) | (bits[s * 300 + w * 30 + i] & 1u);
      sf.raw[w] = word;
      uint32_t data = word >> 6;
      if (d30Star) data ^= 0xFFFFFF;
      for (int p = 0; p < 6; ++p) {
        const uint32_t expected =
            (__builtin_popcount(data & kParityMasks[p]) + (kUsesD30Star[p] ? d30Star : d29Star)) &
            1u;
        if (((word >> (5 - p)) & 1u) != expected) sf.parityOk = false;
      }
      sf.source[w] = data;
      d29Star = (word >> 1) & 1u;
      d30Star = word & 1u;
    }
  }
  return out;
}

inline std::vector<int> BitsFromText(const std::string& text) {
  std::vector<int> bits;
  for (char c : text) bits.push_back(c == '1' ? 1 : 0);
  return bits;
}

// Little-endian int32 records.
inline std::vector<int> BitsFromBinary(const std::string& bytes) {
  std::vector<int> bits;
  for (size_t i = 0; i + 3 < bytes.size(); i += 4) {
    uint32_t v = 0;
    for (int k = 3; k >= 0; --k) v = (v << 8) | static_cast<unsigned char>(bytes[i + k]);
    bits.push_back(static_cast<int>(v));
  }
  return bits;
}

}  // namespace vorel::navmsg::decoder
