#include "navmsg/nav_bits.h"

#include <bit>
#include <cmath>
#include <limits>

namespace vorel::navmsg {
namespace {

// Preamble 10001011, telemetry message alternating from 1 (14 bits), reserved 10.
constexpr std::array<NavBit, kDataBitsPerWord> kFixedWord = {1, 0, 0, 0, 1, 0, 1, 1, 1, 0, 1, 0,
                                                             1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0};

// Source bits (1-based dn) of each parity bit D25..D30; the first entry of a row says
// whether D29* (29) or D30* (30) of the previous word joins the sum.
struct ParityRow {
  int previousBit;
  int count;
  std::array<int, 15> bits;
};
constexpr std::array<ParityRow, 6> kParityRows = {{
    {29, 14, {1, 2, 3, 5, 6, 10, 11, 12, 13, 14, 17, 18, 20, 23}},
    {30, 14, {2, 3, 4, 6, 7, 11, 12, 13, 14, 15, 18, 19, 21, 24}},
    {29, 14, {1, 3, 4, 5, 7, 8, 12, 13, 14, 15, 16, 19, 20, 22}},
    {30, 14, {2, 4, 5, 6, 8, 9, 13, 14, 15, 16, 17, 20, 21, 23}},
    {30, 15, {1, 3, 5, 6, 7, 9, 10, 14, 15, 16, 17, 18, 21, 22, 24}},
    {29, 13, {3, 5, 6, 8, 9, 10, 11, 13, 15, 19, 22, 23, 24}},
}};

// Each row's source bits as a mask over the packed data bits (bit dn - 1 for dn).
constexpr std::array<uint32_t, 6> kParityMasks = [] {
  std::array<uint32_t, 6> masks{};
  for (int p = 0; p < 6; ++p)
    for (int k = 0; k < kParityRows[p].count; ++k) masks[p] |= uint32_t{1} << (kParityRows[p].bits[k] - 1);
  return masks;
}();

// Order in which d23, d24 are tried for words 2 and 10.
constexpr std::array<std::array<NavBit, 2>, 4> kSolvedBitOrder = {{{0, 0}, {0, 1}, {1, 1}, {1, 0}}};

NavBit& BitAt(NavSubframe& subframe, int bitNumber) {
  const int index = bitNumber - 1;
  return subframe[index / kBitsPerWord][index % kBitsPerWord];
}

}  // namespace

void SetPreamble(int subframeIndex, NavFrame& frame) {
  if (subframeIndex < 0 || subframeIndex >= kSubframesPerFrame) return;
  NavWord& word = frame[subframeIndex][0];
  for (int i = 0; i < kDataBitsPerWord; ++i) word[i] = kFixedWord[i];
}

int EncodeScaled(double value, int exponent, int /*bits*/, int32_t& result) {
  const long double q = std::ldexp(static_cast<long double>(value), -exponent);
  if (std::isnan(q)) {
    result = 0;
    return 1;
  }
  const long double c = std::ceil(q);
  long double rounded;
  if (q >= 1.0L) {
    rounded = (c - q > 0.5L) ? std::floor(q) : c;
  } else if (q > 0.0L) {
    rounded = 1.0L;
  } else {
    rounded = c;
  }
  if (std::isinf(rounded)) {
    result = 0;
    return 1;
  }
  // The low 32 bits of the integer, whatever its size: the remainder is exact.
  long double low = std::fmod(rounded, 4294967296.0L);
  if (low < 0.0L) low += 4294967296.0L;
  result = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(low)));
  return 1;
}

NavBit PackBits(int32_t value, int bits, NavBit* out) {
  if (bits < 1 || bits > 32) return 0;
  const uint32_t pattern = static_cast<uint32_t>(value);
  for (int i = 0; i < bits; ++i) out[i] = static_cast<NavBit>((pattern >> (bits - 1 - i)) & 1u);
  return out[0];
}

void ComputeParity(const NavWord& word, const NavWord& previousWord, NavBit* parity,
                   NavBit* transmitted) {
  const NavBit d29Star = previousWord[28] & 1;
  const NavBit d30Star = previousWord[29] & 1;
  // The data bits side by side (bit i of `packed` is d(i+1)), each sum a count of ones.
  uint32_t packed = 0;
  for (int i = 0; i < kDataBitsPerWord; ++i) {
    transmitted[i] = word[i];
    packed |= static_cast<uint32_t>(word[i] & 1) << i;
  }
  for (int p = 0; p < 6; ++p) {
    const NavBit star = kParityRows[p].previousBit == 29 ? d29Star : d30Star;
    parity[p] = star ^ static_cast<NavBit>(std::popcount(packed & kParityMasks[p]) & 1);
  }
  if (d30Star == 1) {
    for (int i = 0; i < kDataBitsPerWord; ++i) transmitted[i] = 1 - (transmitted[i] & 1);
  }
}

void FinishWord(NavSubframe& subframe, const NavWord& previousWord, int wordIndex) {
  if (wordIndex < 0 || wordIndex >= kWordsPerSubframe) return;
  NavWord& word = subframe[wordIndex];
  std::array<NavBit, 6> parity{};
  std::array<NavBit, kDataBitsPerWord> transmitted{};
  if (wordIndex == 1 || wordIndex == 9) {
    for (const auto& pair : kSolvedBitOrder) {
      word[22] = pair[0];
      word[23] = pair[1];
      ComputeParity(word, previousWord, parity.data(), transmitted.data());
      if (parity[4] == 0 && parity[5] == 0) break;
    }
  } else {
    ComputeParity(word, previousWord, parity.data(), transmitted.data());
  }
  if (previousWord[29] == 1) {
    for (int i = 0; i < kDataBitsPerWord; ++i) word[i] = transmitted[i];
  }
  for (int p = 0; p < 6; ++p) word[kDataBitsPerWord + p] = parity[p];
}

int Subframe4SvId(int page, int& svId) {
  // Pages 1..25 of subframe 4 and their SV IDs.
  static constexpr std::array<int, 25> kSvIds = {57, 25, 26, 27, 28, 57, 29, 30, 31, 32, 57, 62, 52,
                                                 53, 54, 57, 55, 56, 58, 59, 57, 60, 61, 62, 63};
  if (page >= 1 && page <= 25) svId = kSvIds[page - 1];
  return 0;
}

int Subframe5SvId(int page) { return page == 25 ? 51 : page; }

int NmctErdValue(int /*prn*/, int& value) {
  value = 31;
  return 1;
}

void WriteSubframeBinary(std::FILE* file, const NavSubframe& subframe) {
  // Each bit is one little-endian int32 record; the subframe goes out in one write.
  std::array<unsigned char, kBitsPerSubframe * 4> bytes{};
  int n = 0;
  for (const NavWord& word : subframe) {
    for (NavBit bit : word) {
      const uint32_t v = static_cast<uint32_t>(bit);
      bytes[n++] = static_cast<unsigned char>(v & 0xFFu);
      bytes[n++] = static_cast<unsigned char>((v >> 8) & 0xFFu);
      bytes[n++] = static_cast<unsigned char>((v >> 16) & 0xFFu);
      bytes[n++] = static_cast<unsigned char>((v >> 24) & 0xFFu);
    }
  }
  std::fwrite(bytes.data(), 1, bytes.size(), file);
}

void WriteSubframeText(std::FILE* file, const NavSubframe& subframe) {
  std::array<char, kBitsPerSubframe> chars{};
  int n = 0;
  for (const NavWord& word : subframe) {
    for (NavBit bit : word) chars[n++] = bit == 0 ? '0' : '1';
  }
  std::fwrite(chars.data(), 1, chars.size(), file);
}

void PutField(NavSubframe& subframe, int firstBit, int32_t value, int width) {
  std::array<NavBit, 32> bits{};
  PackBits(value, width, bits.data());
  for (int i = 0; i < width; ++i) BitAt(subframe, firstBit + i) = bits[i];
}

void PutSplitField(NavSubframe& subframe, int firstBitHigh, int widthHigh, int firstBitLow,
                   int32_t value, int width) {
  std::array<NavBit, 32> bits{};
  PackBits(value, width, bits.data());
  for (int i = 0; i < widthHigh; ++i) BitAt(subframe, firstBitHigh + i) = bits[i];
  for (int i = widthHigh; i < width; ++i) BitAt(subframe, firstBitLow + i - widthHigh) = bits[i];
}

void PutScaled(NavSubframe& subframe, int firstBit, double value, int exponent, int width) {
  int32_t encoded = 0;
  EncodeScaled(value, exponent, width, encoded);
  PutField(subframe, firstBit, encoded, width);
}

void PutScaledSplit(NavSubframe& subframe, int firstBitHigh, int widthHigh, int firstBitLow,
                    double value, int exponent, int width) {
  int32_t encoded = 0;
  EncodeScaled(value, exponent, width, encoded);
  PutSplitField(subframe, firstBitHigh, widthHigh, firstBitLow, encoded, width);
}

void PutAlternating(NavSubframe& subframe, int firstBit, int count) {
  for (int i = 0; i < count; ++i) BitAt(subframe, firstBit + i) = (i % 2 == 0) ? 1 : 0;
}

void PutHandoverWord(NavSubframe& subframe, double t, int antiSpoof, int subframeId) {
  PutField(subframe, 31, TruncateToInt32(t) / 6, 17);
  PutField(subframe, 48, 0, 1);
  PutField(subframe, 49, antiSpoof, 1);
  PutField(subframe, 50, subframeId, 3);
}

void FinishSubframe(NavFrame& frame, int subframeIndex, const NavWord& previousWord) {
  NavSubframe& subframe = frame[subframeIndex];
  FinishWord(subframe, previousWord, 0);
  for (int w = 1; w < kWordsPerSubframe; ++w) FinishWord(subframe, subframe[w - 1], w);
}

int32_t TruncateToInt32(double value) {
  if (std::isnan(value)) return 0;
  if (value <= static_cast<double>(std::numeric_limits<int32_t>::min()))
    return std::numeric_limits<int32_t>::min();
  if (value >= static_cast<double>(std::numeric_limits<int32_t>::max()))
    return std::numeric_limits<int32_t>::max();
  return static_cast<int32_t>(value);
}

}  // namespace vorel::navmsg
