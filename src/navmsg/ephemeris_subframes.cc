#include "navmsg/ephemeris_subframes.h"

namespace vorel::navmsg {
namespace {
constexpr double K = kSemicirclesPerRadian;
}  // namespace

int EncodeSubframe1(int32_t week, double t, double tgd, double toc, double af2, double af1,
                    double af0, int32_t iodc, NavFrame& frame, const NavWord& previousWord) {
  NavSubframe& sf = frame[0];
  SetPreamble(0, frame);
  PutHandoverWord(sf, t, 1, 1);
  // Word 3: week (modulo 1024), codes on L2 01, URA index 1, health 0, IODC high bits.
  PutField(sf, 61, week - 1024, 10);
  PutField(sf, 71, 1, 2);
  PutField(sf, 73, 1, 4);
  PutField(sf, 77, 0, 6);
  PutField(sf, 83, iodc >> 8, 2);
  // Words 4 to 6 and the head of word 7 are reserved: alternating from 1.
  PutAlternating(sf, 91, 24);
  PutAlternating(sf, 121, 24);
  PutAlternating(sf, 151, 24);
  PutAlternating(sf, 181, 16);
  PutScaled(sf, 197, tgd, -31, 8);
  // Word 8: IODC low bits and toc, whose fraction below 16 s is dropped.
  PutField(sf, 211, iodc & 0xFF, 8);
  PutField(sf, 219, TruncateToInt32(toc) / 16, 16);
  PutScaled(sf, 241, af2, -55, 8);
  PutScaled(sf, 249, af1, -43, 16);
  PutScaled(sf, 271, af0, -31, 22);
  FinishSubframe(frame, 0, previousWord);
  return 1;
}

int EncodeSubframe2(int32_t /*week*/, double t, int32_t iode, double Crs, double deltaN, double M0,
                    double Cuc, double e, double Cus, double sqrtA, double toe, int32_t aodo,
                    int /*fitFlag*/, NavFrame& frame) {
  NavSubframe& sf = frame[1];
  SetPreamble(1, frame);
  PutHandoverWord(sf, t, 0, 2);
  PutField(sf, 61, iode, 8);
  PutScaled(sf, 69, Crs, -5, 16);
  PutScaled(sf, 91, deltaN * K, -43, 16);
  PutScaledSplit(sf, 107, 8, 121, M0 * K, -31, 32);
  PutScaled(sf, 151, Cuc, -29, 16);
  PutScaledSplit(sf, 167, 8, 181, e, -33, 32);
  PutScaled(sf, 211, Cus, -29, 16);
  PutScaledSplit(sf, 227, 8, 241, sqrtA, -19, 32);
  PutScaled(sf, 271, static_cast<double>(TruncateToInt32(toe)), 4, 16);
  PutField(sf, 287, 0, 1);
  PutField(sf, 288, aodo, 5);
  FinishSubframe(frame, 1, WordBefore(frame, 1));
  return 1;
}

int EncodeSubframe3(int32_t /*week*/, double t, double Cic, double Omega0, double Cis, double i0,
                    double Crc, double omega, double OmegaDot, int32_t iode, double IDOT,
                    NavFrame& frame) {
  NavSubframe& sf = frame[2];
  SetPreamble(2, frame);
  PutHandoverWord(sf, t, 0, 3);
  PutScaled(sf, 61, Cic, -29, 16);
  PutScaledSplit(sf, 77, 8, 91, Omega0 * K, -31, 32);
  PutScaled(sf, 121, Cis, -29, 16);
  PutScaledSplit(sf, 137, 8, 151, i0 * K, -31, 32);
  PutScaled(sf, 181, Crc, -5, 16);
  PutScaledSplit(sf, 197, 8, 211, omega * K, -31, 32);
  PutScaled(sf, 241, OmegaDot * K, -43, 24);
  PutField(sf, 271, iode, 8);
  PutScaled(sf, 279, IDOT * K, -43, 14);
  FinishSubframe(frame, 2, WordBefore(frame, 2));
  return 1;
}

}  // namespace vorel::navmsg
