// ScintReadValues: the file's values taken as the numbers they are, each in its own slot,
// and the phase carried by the carrier as the file's phase (worked out by hand from the
// slots' interpolation over the period).
#include "dif/scint_reading.h"

#include <gtest/gtest.h>

#include "test_support.h"

namespace vorel::dif {
namespace {

using test::ScratchDir;

TEST(ScintReading, ModeOneValuesLandInTheirOwnSlotsByBubbleClass) {
  ScratchDir dir("scint-values");
  test::WriteFile(dir / "ten.txt", "1 2 0.5 0.25 3 4 5 6 7 8\n1 2 0.5 0.25 3 4 5 6 7 8\n");
  platform::LineReader ten(dir / "ten.txt");
  ScintillationState st;
  st.scintPeriod = 2;
  st.scintCounter = 2;  // a reading block; the new slot of PRN 32 is 63
  const ScintReading reading{1, 0, 0, true};
  float g = 0, theta = 0;
  UpdateScintillation(32, 2, reading, 0, &ten, st, g, theta);
  EXPECT_EQ(st.phase[63], 0.5f);
  EXPECT_EQ(st.amplitude[63], 0.25f);  // an amplitude: no square root in this mode
  EXPECT_EQ(st.phase[64], 0.0f);       // the spare slot is not touched
  EXPECT_EQ(st.amplitude[64], 1.0f);
  EXPECT_EQ(g, 0.25f);
  EXPECT_EQ(theta, 0.5f);
  // Class 3 on PRN 1 (new slot 1): the third pair; its old slot 0 keeps its value.
  UpdateScintillation(1, 3, reading, 0, &ten, st, g, theta);
  EXPECT_EQ(st.phase[1], 3.0f);
  EXPECT_EQ(st.amplitude[1], 4.0f);
  EXPECT_EQ(st.amplitude[0], 1.0f);
  EXPECT_EQ(g, 4.0f);
}

TEST(ScintReading, ModeTwoPhaseIsCarriedByTheCarrierAsTheFilesPhase) {
  ScratchDir dir("scint-phase");
  test::WriteFile(dir / "two.txt", "0.4 0.25\n0.8 1.0\n");
  platform::LineReader two(dir / "two.txt");
  DifSettings s;
  s.ScintMode = 2;
  s.ScintRate = 500;  // a period of 2 ms
  s.ScintPrn = 3;
  s.ScintReadValues = 1;
  ScintillationState st;
  StartScintillation(s, 0, st);
  ASSERT_EQ(st.scintPeriod, 2);
  // Readings at blocks 2 and 4. Between them the slots are interpolated from the old slot
  // (the last value read) to the new one (the value before it, here the start's 0 and 1):
  // phase 0, 0, 0.4, 0.2, 0.8 and amplitude 1, 1, sqrt(0.25), 0.75, 1.
  const float phase[] = {0.0f, 0.0f, 0.4f, 0.2f, 0.8f};
  const float amplitude[] = {1.0f, 1.0f, 0.5f, 0.75f, 1.0f};
  float carried = 0.0f;
  for (int block = 0; block < 5; ++block) {
    float g = 0, theta = 0;
    UpdateScintillation(3, 0, ScenarioScintReading(s), 0, &two, st, g, theta);
    carried += theta;  // a block's phase offset stays in the carrier from then on
    EXPECT_NEAR(carried, phase[block], 1e-6) << "block " << block;
    EXPECT_FLOAT_EQ(g, amplitude[block]) << "block " << block;
    StepScintCounter(s.ScintMode, st);
  }
}

}  // namespace
}  // namespace vorel::dif
