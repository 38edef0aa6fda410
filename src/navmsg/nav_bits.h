#pragma once
// The bit level of the GPS L1 C/A navigation message: the bit containers, the fixed
// first word, scaling and packing of parameters, the word parity with the search for
// the two non-information bits, the almanac page numbering, and the subframe writers.
//
// A word is built in the clear (source bits d1..d24 without regard to D30*), then
// FinishWord turns it in place into what is transmitted. Words are finished strictly in
// order, since each needs the final D29 and D30 of the one before.

#include <array>
#include <cstdint>
#include <cstdio>

namespace vorel::navmsg {

// One bit of the message, 0 or 1, one per 32-bit integer in memory and in the files.
using NavBit = int32_t;

inline constexpr int kBitsPerWord = 30;
inline constexpr int kDataBitsPerWord = 24;
inline constexpr int kWordsPerSubframe = 10;
inline constexpr int kSubframesPerFrame = 5;
inline constexpr int kBitsPerSubframe = kBitsPerWord * kWordsPerSubframe;    // 300
inline constexpr int kBitsPerFrame = kBitsPerSubframe * kSubframesPerFrame;  // 1500

// Index i is bit i+1 of the word: 0..23 are d1..d24, 24..29 the parity bits D25..D30.
using NavWord = std::array<NavBit, kBitsPerWord>;
using NavSubframe = std::array<NavWord, kWordsPerSubframe>;
// One continuous buffer: word 10 of subframe n directly precedes word 1 of subframe n+1.
using NavFrame = std::array<NavSubframe, kSubframesPerFrame>;
static_assert(sizeof(NavFrame) == kBitsPerFrame * sizeof(NavBit));

// Copies the fixed word (preamble 10001011, alternating telemetry message, reserved 10)
// into word 1 of subframe `subframeIndex` (0..4). Out-of-range indices are ignored.
void SetPreamble(int subframeIndex, NavFrame& frame);

// Scales value by 2^-exponent and rounds it the message's own way: ratios of 1 and above
// round to nearest with ties up, ratios strictly between 0 and 1 give 1, and ratios of 0
// and below are truncated towards zero. Only the low 32 bits of the integer are kept; a
// ratio that is not a number gives 0. `bits` is not used. Always returns 1.
int EncodeScaled(double value, int exponent, int bits, int32_t& result);

// Writes the low `bits` bits (1..32) of value, most significant first, to out[0] ..
// out[bits-1], in two's complement; higher bits are dropped. Returns out[0]. A width
// outside 1..32 writes nothing and returns 0.
NavBit PackBits(int32_t value, int bits, NavBit* out);

// Parity of one word from its source bits and D29*, D30* (indices 28, 29 of
// previousWord): the six parity bits go to parity[0..5], the 24 bits to be sent (the
// source bits, complemented when D30* is 1) to transmitted[0..23].
void ComputeParity(const NavWord& word, const NavWord& previousWord, NavBit* parity,
                   NavBit* transmitted);

// Turns word `wordIndex` (0..9) of the subframe from source bits into transmitted bits.
// For words 2 and 10 (indices 1 and 9) it first chooses d23, d24 so that D29 and D30
// come out 0. Out-of-range indices are ignored.
void FinishWord(NavSubframe& subframe, const NavWord& previousWord, int wordIndex);

// SV ID of page 1..25 of subframe 4; other pages leave svId unchanged. Returns 0.
int Subframe4SvId(int page, int& svId);
// SV ID of subframe 5's pages: the page number, but 51 for page 25.
int Subframe5SvId(int page);

// The NMCT estimated range deviation of a satellite: 31 for every PRN. Returns 1.
int NmctErdValue(int prn, int& value);

// The 300 bits of a subframe as int32 little-endian records (1200 bytes), and as the
// characters '0' and '1' with no separators (300 bytes). Write errors are left to the
// caller's stream state.
void WriteSubframeBinary(std::FILE* file, const NavSubframe& subframe);
void WriteSubframeText(std::FILE* file, const NavSubframe& subframe);

// --- helpers shared by the subframe and page encoders -------------------------------

// Writes `width` bits of value at subframe bit numbers first..first+width-1 (1..300,
// within one word), as PackBits does.
void PutField(NavSubframe& subframe, int firstBit, int32_t value, int width);

// Writes one value of `width` bits split over two places: the high part at
// firstBitHigh (widthHigh bits), the rest at firstBitLow.
void PutSplitField(NavSubframe& subframe, int firstBitHigh, int widthHigh, int firstBitLow,
                   int32_t value, int width);

// EncodeScaled followed by PutField.
void PutScaled(NavSubframe& subframe, int firstBit, double value, int exponent, int width);
void PutScaledSplit(NavSubframe& subframe, int firstBitHigh, int widthHigh, int firstBitLow,
                    double value, int exponent, int width);

// Bits alternating from 1 (1010...) at first..first+count-1 within one word.
void PutAlternating(NavSubframe& subframe, int firstBit, int count);

// Words 2 (the HOW): TOW count trunc(t)/6 (low 17 bits), alert flag 0, the anti-spoof
// flag, the subframe ID. Bits 53-54 are left for FinishWord.
void PutHandoverWord(NavSubframe& subframe, double t, int antiSpoof, int subframeId);

// Finishes all ten words of subframe `subframeIndex` of the frame in order; word 1
// follows `previousWord` (word 10 of the subframe before).
void FinishSubframe(NavFrame& frame, int subframeIndex, const NavWord& previousWord);

// The word transmitted just before subframe `subframeIndex` (1..4) of the frame.
inline const NavWord& WordBefore(const NavFrame& frame, int subframeIndex) {
  return frame[subframeIndex - 1][kWordsPerSubframe - 1];
}

// Conversion of a double to int32 by truncation, bounded: NaN gives 0 and values past
// the int32 range give its end points.
int32_t TruncateToInt32(double value);

}  // namespace vorel::navmsg
