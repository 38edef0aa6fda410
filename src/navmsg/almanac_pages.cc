#include "navmsg/almanac_pages.h"

#include <cmath>

#include "navmsg/ephemeris_subframes.h"

namespace vorel::navmsg {
namespace {

constexpr double K = kSemicirclesPerRadian;
// 0.3 / pi: delta i is scaled as a factor, with no 0.3 semicircle reference taken off.
constexpr double kDeltaIFactor = 0.09549296585514;
constexpr int kSubframe4 = 3;
constexpr int kSubframe5 = 4;
constexpr int kIdFour = 4;  // 100
constexpr int kIdFive = 5;  // 101

// Words 1 and 2 and the page's data ID and SV ID.
void StartPage(NavFrame& frame, int subframeIndex, double t, int subframeId, int svId) {
  NavSubframe& sf = frame[subframeIndex];
  SetPreamble(subframeIndex, frame);
  PutHandoverWord(sf, t, 1, subframeId);
  PutField(sf, 61, 1, 2);
  PutField(sf, 63, svId, 6);
}

int SvIdOfSubframe4(int page) {
  int svId = 0;
  Subframe4SvId(page, svId);
  return svId;
}

void FinishPage(NavFrame& frame, int subframeIndex) {
  FinishSubframe(frame, subframeIndex, WordBefore(frame, subframeIndex));
}

// Bit numbers of the data bits of words 3 to 10 from `firstBit` on (parity bits and
// the solved bits of word 10 skipped), walked one at a time.
class DataBitCursor {
 public:
  explicit DataBitCursor(int firstBit) : bit_(firstBit) {}
  int Next() {
    const int current = bit_;
    ++bit_;
    // After the 24th data bit of a word come its parity bits.
    if ((bit_ - 1) % kBitsPerWord == kDataBitsPerWord) bit_ += kBitsPerWord - kDataBitsPerWord;
    return current;
  }

 private:
  int bit_;
};

void PutBitAt(NavSubframe& sf, int bitNumber, NavBit value) { PutField(sf, bitNumber, value, 1); }

void PutAlmanac(NavSubframe& sf, const AlmanacEntry& entry) {
  PutScaled(sf, 69, entry.e, -21, 16);
  PutScaled(sf, 91, entry.toa, 12, 8);
  PutScaled(sf, 99, entry.deltaI * kDeltaIFactor, -19, 16);
  PutScaled(sf, 121, entry.OmegaDot * K, -38, 16);
  PutField(sf, 137, 0, 8);
  PutScaled(sf, 151, entry.sqrtA, -11, 24);
  PutScaled(sf, 181, entry.Omega0 * K, -23, 24);
  PutScaled(sf, 211, entry.omega * K, -23, 24);
  PutScaled(sf, 241, entry.M0 * K, -23, 24);
  // af0 goes in whole from bit 271 and af1 over its three low bits from 279; 290-292
  // are written by neither.
  PutScaled(sf, 271, entry.af0, -20, 11);
  PutScaled(sf, 279, entry.af1, -38, 11);
}

void PutHealthCode(NavSubframe& sf, int firstBit, const HealthCode& health) {
  for (int i = 0; i < 6; ++i) PutBitAt(sf, firstBit + i, health[i]);
}

}  // namespace

AlmanacTable MakeAlmanacTable() {
  AlmanacTable table{};
  table[0].svHealth = 1;
  table[0].e = 0.123;
  table[0].sqrtA = 5000.0;
  table[0].toa = 120.0;
  return table;
}

namespace {

// An almanac page of subframe 4 or 5: only the subframe and the SV ID on the page differ.
int EncodeAlmanacPage(int subframe, int svId, double t, const AlmanacEntry& entry,
                      NavFrame& frame) {
  StartPage(frame, subframe, t, kIdFive, svId);
  PutAlmanac(frame[subframe], entry);
  FinishPage(frame, subframe);
  return 1;
}

}  // namespace

int EncodeAlmanacPage4(int page, int32_t /*week*/, double t, const AlmanacEntry& entry,
                       NavFrame& frame) {
  return EncodeAlmanacPage(kSubframe4, SvIdOfSubframe4(page), t, entry, frame);
}

int EncodeAlmanacPage5(int page, int32_t /*week*/, double t, const AlmanacEntry& entry,
                       NavFrame& frame) {
  return EncodeAlmanacPage(kSubframe5, Subframe5SvId(page), t, entry, frame);
}

int EncodeDummyPage(int page, int32_t /*week*/, double t, NavFrame& frame) {
  StartPage(frame, kSubframe4, t, kIdFour, SvIdOfSubframe4(page));
  NavSubframe& sf = frame[kSubframe4];
  PutAlternating(sf, 69, 16);
  for (int word = 4; word <= 10; ++word) PutAlternating(sf, (word - 1) * kBitsPerWord + 1, 24);
  FinishPage(frame, kSubframe4);
  return 1;
}

int EncodeNmctPage(int page, int32_t /*week*/, double t, NavFrame& frame) {
  StartPage(frame, kSubframe4, t, kIdFive, SvIdOfSubframe4(page));
  NavSubframe& sf = frame[kSubframe4];
  PutField(sf, 69, 2, 2);  // availability indicator 10
  // 30 fields of six bits over bits 71-84, words 4-9 and 271-292, split wherever a
  // word ends.
  DataBitCursor cursor(71);
  for (int field = 0; field < 30; ++field) {
    int value = 0;
    NmctErdValue(field + 1, value);
    std::array<NavBit, 6> bits{};
    PackBits(value, 6, bits.data());
    for (NavBit b : bits) PutBitAt(sf, cursor.Next(), b);
  }
  FinishPage(frame, kSubframe4);
  return 1;
}

int EncodeIonoUtcPage(int page, int32_t /*week*/, double t, double alpha0, double alpha1,
                      double alpha2, double alpha3, double beta0, double beta1, double beta2,
                      double beta3, const UtcConstants& utc, NavFrame& frame) {
  StartPage(frame, kSubframe4, t, kIdFour, SvIdOfSubframe4(page));
  NavSubframe& sf = frame[kSubframe4];
  PutScaled(sf, 69, alpha0, -30, 8);
  PutScaled(sf, 77, alpha1, -27, 8);
  PutScaled(sf, 91, alpha2, -24, 8);
  PutScaled(sf, 99, alpha3, -24, 8);
  PutScaled(sf, 107, beta0, 11, 8);
  PutScaled(sf, 121, beta1, 14, 8);
  PutScaled(sf, 129, beta2, 16, 8);
  PutScaled(sf, 137, beta3, 16, 8);
  PutScaled(sf, 151, utc.A1, -50, 24);
  PutScaledSplit(sf, 181, 24, 211, utc.A0, -30, 32);
  PutScaled(sf, 219, utc.tot, 12, 8);
  PutField(sf, 227, static_cast<int32_t>(TruncateToUnsigned(utc.WNt)), 8);
  PutScaled(sf, 241, utc.deltaTLS, 0, 8);
  PutField(sf, 249, static_cast<int32_t>(TruncateToUnsigned(utc.WNLSF)), 8);
  PutField(sf, 257, static_cast<int32_t>(TruncateToUnsigned(utc.DN)), 8);
  PutScaled(sf, 271, utc.deltaTLSF, 0, 8);
  PutAlternating(sf, 279, 14);
  FinishPage(frame, kSubframe4);
  return 1;
}

int EncodeConfigHealthPage(int page, int32_t /*week*/, double t, const HealthCode& health,
                           NavFrame& frame) {
  StartPage(frame, kSubframe4, t, kIdFive, SvIdOfSubframe4(page));
  NavSubframe& sf = frame[kSubframe4];
  // Anti-spoof and configuration of SV 1..32, 0001 each: 4 in word 3, 6 in each of
  // words 4 to 7, 4 at the head of word 8.
  DataBitCursor cursor(69);
  for (int sv = 0; sv < 32; ++sv) {
    for (NavBit b : {0, 0, 0, 1}) PutBitAt(sf, cursor.Next(), b);
  }
  PutField(sf, 227, 2, 2);  // reserved 10
  PutHealthCode(sf, 229, health);
  for (int k = 0; k < 4; ++k) PutHealthCode(sf, 241 + 6 * k, health);
  for (int k = 0; k < 3; ++k) PutHealthCode(sf, 271 + 6 * k, health);
  PutField(sf, 289, 10, 4);  // reserved 1010
  FinishPage(frame, kSubframe4);
  return 1;
}

int EncodeHealthPage(int page, int32_t /*week*/, double t, int32_t toa, const HealthCode& health,
                     NavFrame& frame) {
  StartPage(frame, kSubframe5, t, kIdFive, Subframe5SvId(page));
  NavSubframe& sf = frame[kSubframe5];
  PutField(sf, 69, toa, 8);
  // WNa holds the time of week modulo 256 s, not a week number.
  const double wna = t - 256.0 * std::trunc(t * 0.00390625);
  PutField(sf, 77, TruncateToInt32(wna), 8);
  for (int word = 4; word <= 9; ++word) {
    const int first = (word - 1) * kBitsPerWord + 1;
    for (int k = 0; k < 4; ++k) PutHealthCode(sf, first + 6 * k, health);
  }
  PutField(sf, 271, 42, 6);  // reserved 101010
  PutAlternating(sf, 277, 16);
  FinishPage(frame, kSubframe5);
  return 1;
}

uint32_t TruncateToUnsigned(double value) {
  if (std::isnan(value) || std::isinf(value)) return 0;
  if (value < 2147483648.0) return static_cast<uint32_t>(TruncateToInt32(value));
  double low = std::fmod(std::trunc(value), 4294967296.0);
  return static_cast<uint32_t>(low);
}

}  // namespace vorel::navmsg
