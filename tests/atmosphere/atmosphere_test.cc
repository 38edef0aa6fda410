// Expected values come from tests/atmosphere/atmosphere_reference.py: the published
// definitions worked out at 40 digits (mpmath), on the exact doubles passed here.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "app/session.h"
#include "atmosphere/atmosphere_settings.h"
#include "atmosphere/atmosphere_text.h"
#include "atmosphere/klobuchar.h"
#include "atmosphere/troposphere.h"

namespace vorel::atmosphere {
namespace {

constexpr double kD2R = 3.141592653589793 / 180.0;
constexpr double kCallerDeg = 57.32484;  // what the epoch computation multiplies by

// A broadcast set of the usual size.
AtmosphereState BroadcastState() {
  AtmosphereState state;
  IonoCoefficientTable table;
  const double cells[8] = {1.1176e-08, 7.4506e-09, -5.9605e-08, -5.9605e-08,
                           90112.0,    0.0,        -196608.0,   -65536.0};
  for (int n = 0; n < 8; ++n) table.cells[n / 4][n % 4] = cells[n];
  LoadKlobucharCoefficients(state, table);
  return state;
}

double Klobuchar(const AtmosphereState& state, double latDeg, double lonDeg, double azDeg,
                 double elDeg, double t) {
  double delay = -1.0;
  KlobucharDelay(state, latDeg * kD2R, lonDeg * kD2R, azDeg * kD2R, elDeg * kD2R, t, delay);
  return delay;
}

void ExpectRel(double actual, double expected, double rel = 1e-12) {
  EXPECT_NEAR(actual, expected, std::fabs(expected) * rel) << "expected " << expected;
}

TEST(KlobucharDelay, DaytimeAndNighttimeAgainstUserAlgorithm) {
  const AtmosphereState state = BroadcastState();
  // Mid-latitude user, time of week 593100 s (local afternoon after the day steps).
  ExpectRel(Klobuchar(state, 40, -100, 210, 20, 593100.0), 8.93595673987067);
  // The same geometry at the start of the week: local night, the 5 ns term alone.
  ExpectRel(Klobuchar(state, 40, -100, 210, 20, 0.0), 6.8692382509221279);
  // Local time brought back into the day from a negative value (120 W, early UTC).
  ExpectRel(Klobuchar(state, 35, -120, -60, 15, 3600.0), 8.3387124814840576);
  // At the local peak of 14 h.
  ExpectRel(Klobuchar(state, 0, 0, 0, 45, 50400.0), 6.6323279965440803);
}

TEST(KlobucharDelay, ZeroCoefficientsGiveNightTermAtAnyHourAndElevationIsNotClipped) {
  const AtmosphereState zeros;
  // Elevation 0: F = 1 + 16 * 0.53^3 = 3.382032, times 5 ns of light travel.
  for (double t : {0.0, 30000.0, 50400.0, 80000.0}) {
    ExpectRel(Klobuchar(zeros, 0, 0, 0, 0, t), 5.06953843157328);
  }
  // At the zenith F = 1 + 16 * 0.03^3.
  ExpectRel(Klobuchar(zeros, 0, 0, 0, 90, 50400.0), 1.49960984170928);
}

TEST(KlobucharDelay, IonosphericLatitudeIsClippedSymmetrically) {
  const AtmosphereState state = BroadcastState();
  // Looking poleward from 80 degrees puts the pierce point past 0.416 semicircles.
  const double north = Klobuchar(state, 80, 10, 0, 30, 50400.0);
  ExpectRel(north, 2.6493028147149098);
  EXPECT_EQ(Klobuchar(state, 85, 10, 0, 30, 50400.0), north);
  const double south = Klobuchar(state, -80, 10, 180, 30, 50400.0);
  ExpectRel(south, 3.8802811376903611);
  EXPECT_EQ(Klobuchar(state, -89, 10, 180, 30, 50400.0), south);
}

TEST(KlobucharDelay, CosineTermEndsAtXOf157) {
  const AtmosphereState state = BroadcastState();
  // 22000 s either side of the peak is still inside, 23000 s after it is night.
  ExpectRel(Klobuchar(state, 0, 0, 0, 45, 50400.0 + 22000.0), 2.2526906984168866);
  ExpectRel(Klobuchar(state, 0, 0, 0, 45, 50400.0 - 22000.0), 2.2526906984168866);
  ExpectRel(Klobuchar(state, 0, 0, 0, 45, 50400.0 + 23000.0), 2.0254458130412801);

  // With the periods 0, PER is 72000 s and this time gives x = -1.57 exactly: night.
  AtmosphereState flatPeriod = state;
  for (double& b : flatPeriod.KlobucharBeta) b = 0.0;
  const double tEdge = 32409.12523289215;
  ExpectRel(Klobuchar(flatPeriod, 0, 0, 0, 45, tEdge), 2.0254458130412801);
  // One step later |x| is below 1.57 and the cosine term (about 2% of AMP) comes in.
  const double inside = Klobuchar(flatPeriod, 0, 0, 0, 45, std::nextafter(tEdge, 1e9));
  ExpectRel(inside, 2.1208336140113315, 1e-9);
}

TEST(KlobucharDelay, DayStepsStopAfterTen) {
  const AtmosphereState state = BroadcastState();
  const double peak = Klobuchar(state, 0, 0, 0, 45, 50400.0);
  // A full week and ten days ahead or behind are still brought into the day.
  EXPECT_EQ(Klobuchar(state, 0, 0, 0, 45, 50400.0 + 7 * 86400.0), peak);
  EXPECT_EQ(Klobuchar(state, 0, 0, 0, 45, 50400.0 + 10 * 86400.0), peak);
  EXPECT_EQ(Klobuchar(state, 0, 0, 0, 45, 50400.0 - 10 * 86400.0), peak);
  // Eleven days out stays a day out of range, far from the peak: the night term.
  const double night = 2.0254458130412801;
  ExpectRel(Klobuchar(state, 0, 0, 0, 45, 50400.0 + 11 * 86400.0), night);
  ExpectRel(Klobuchar(state, 0, 0, 0, 45, 50400.0 - 11 * 86400.0), night);
  // Each call has its own ten steps: many calls in a row keep wrapping.
  for (int n = 0; n < 30; ++n)
    EXPECT_EQ(Klobuchar(state, 0, 0, 0, 45, 50400.0 + 6 * 86400.0), peak);
}

TEST(KlobucharDelay, ReadsTheCoefficientsTheSessionHolds) {
  auto session = app::Session::Create();
  AtmosphereSettings settings;
  settings.ionoTruthTable = IonoCoefficientTable{
      {{1.1176e-08, 7.4506e-09, -5.9605e-08, -5.9605e-08}, {90112.0, 0.0, -196608.0, -65536.0}}};
  // Atmosphere off or the density model chosen: nothing is loaded.
  EXPECT_EQ(LoadRunKlobuchar(session->atmosphere, settings), 0);
  EXPECT_EQ(session->atmosphere.KlobucharAlpha[0], 0.0);
  settings.atmosphereEnabled = 1;
  ChooseSlantIonosphere(settings);
  EXPECT_EQ(LoadRunKlobuchar(session->atmosphere, settings), 0);
  ChooseBroadcastIonosphere(settings);
  EXPECT_EQ(LoadRunKlobuchar(session->atmosphere, settings), 1);
  EXPECT_EQ(session->atmosphere.KlobucharAlpha[3], -5.9605e-08);
  EXPECT_EQ(session->atmosphere.KlobucharBeta[2], -196608.0);
  ExpectRel(Klobuchar(session->atmosphere, 40, -100, 210, 20, 593100.0), 8.93595673987067);
}

// Weather of the model tests: 15 C, 1013.25 mbar, humidity 50, 100 m, 45 N, day 200.
double Tropo(AtmosphereState& state, double trueElevationDeg, int model) {
  return TroposphereDelay(state, trueElevationDeg * kD2R * kCallerDeg, 15.0, 1013.25, 50.0, 100.0,
                          45.0 * kD2R * kCallerDeg, 200, model);
}

TEST(TroposphereDelay, ThreeModelsThroughTheCallersDegreeFactor) {
  AtmosphereState state;
  // The caller's 57.32484 against the model's 0.017453292519943 makes every angle
  // 1.0005 times the true one; the references take the angle the same way.
  const double expected[3][3] = {
      {24.640069461863025, 24.6472559010419, 23.944990463236619},     // 5 deg
      {4.7911988146217423, 4.775146436913282, 4.7093639888711614},    // 30 deg
      {2.4036337097149732, 2.3960023166161769, 2.3644330026961266}};  // 90 deg
  const double elevations[3] = {5.0, 30.0, 90.0};
  for (int e = 0; e < 3; ++e) {
    for (int model = 1; model <= 3; ++model) {
      SCOPED_TRACE(testing::Message() << "elevation " << elevations[e] << " model " << model);
      ExpectRel(Tropo(state, elevations[e], model), expected[e][model - 1]);
    }
  }
  // The factor matters: at 5 degrees the true angle would give a visibly larger delay.
  const double hopfieldTrue5 = 2.312 / std::sin(std::sqrt(5.0 * kD2R * 5.0 * kD2R + 0.001904)) +
                               0.084 / std::sin(std::sqrt(5.0 * kD2R * 5.0 * kD2R + 0.0006854));
  EXPECT_GT(hopfieldTrue5 - Tropo(state, 5.0, 2), 0.005);
}

TEST(TroposphereDelay, ModelDetails) {
  AtmosphereState state;
  // Model 2 ignores the weather.
  const double hopfield = TroposphereDelay(state, 20.0, 15.0, 1013.25, 50.0, 0.0, 45.0, 200, 2);
  EXPECT_EQ(TroposphereDelay(state, 20.0, -30.0, 500.0, 100.0, 3000.0, -60.0, 10, 2), hopfield);
  // Model 1 with no humidity is the dry part alone.
  ExpectRel(TroposphereDelay(state, 20.0, 25.0, 1000.0, 0.0, 0.0, 0.0, 1, 1), 6.6198646010504841);
  // A true zenith comes in just past 90 degrees and is not clipped.
  ExpectRel(TroposphereDelay(state, 90.0 * 1.0005, 25.0, 1000.0, 40.0, 0.0, 0.0, 1, 1),
            2.411298262587682);
  // Negative elevations and unknown models give 0 and leave the record alone.
  state.troposphere.lastPressure = 123.0;
  EXPECT_EQ(TroposphereDelay(state, -0.001, 15.0, 1013.25, 50.0, 0.0, 45.0, 200, 1), 0.0);
  EXPECT_EQ(TroposphereDelay(state, 30.0, 15.0, 1013.25, 50.0, 0.0, 45.0, 200, 0), 0.0);
  EXPECT_EQ(TroposphereDelay(state, 30.0, 15.0, 1013.25, 50.0, 0.0, 45.0, 200, 4), 0.0);
  EXPECT_EQ(state.troposphere.lastPressure, 123.0);
  // An elevation of exactly 0 is computed: model 3 divides by sin 0 in its height term.
  EXPECT_TRUE(std::isinf(TroposphereDelay(state, 0.0, 15.0, 1013.25, 50.0, 100.0, 45.0, 200, 3)));
  EXPECT_TRUE(std::isnan(TroposphereDelay(state, 0.0, 15.0, 1013.25, 50.0, 0.0, 45.0, 200, 3)));
}

TEST(TroposphereDelay, LastValueRecordPerModel) {
  AtmosphereState state;
  const TroposphereLastValues& last = state.troposphere;
  TroposphereDelay(state, 30.0, 15.0, 1000.0, 50.0, 10.0, 45.0, 200, 1);
  EXPECT_EQ(last.lastPressure, 1000.0);
  EXPECT_EQ(last.lastHumidityTerm, 50.0);
  EXPECT_DOUBLE_EQ(last.lastTemperature, 288.15);
  EXPECT_EQ(last.lastWetScale, 1.0002822140697196);
  EXPECT_NEAR(last.lastDryTerm, 2.343 * (1000.0 / 1013.25) * (284.19 / 288.15), 1e-12);

  TroposphereDelay(state, 30.0, 15.0, 1000.0, 50.0, 10.0, 45.0, 200, 2);
  EXPECT_NEAR(last.lastDryTerm, 7.7624e-05 * 1000.0 / 288.15, 1e-15);    // Nd
  EXPECT_NEAR(last.lastDryScale, 0.011385 * 288.15 / 7.7624e-05, 1e-6);  // hd, m-free

  TroposphereDelay(state, 30.0, 20.0, 990.0, 60.0, 250.0, -33.0, 77, 3);
  EXPECT_EQ(last.lastTemperature, 20.0);
  EXPECT_EQ(last.lastHeight, 250.0);
  EXPECT_EQ(last.lastLatitude, -33.0);
  EXPECT_EQ(last.lastDayOfYear, 77);
  // Vapour pressure at 20 C and 60 % by the Magnus form: 0.6 * 23.389 mbar.
  EXPECT_NEAR(last.lastHumidityTerm, 14.0336141, 1e-7);
}

TEST(TroposphereDelay, NiellInterpolationAcrossLatitudes) {
  AtmosphereState state;
  // Model 3 at 10 degrees elevation, 10 C, 950 mbar, humidity 70, 500 m, day 100.
  auto model3 = [&](double lat, int day) {
    return TroposphereDelay(state, 10.0, 10.0, 950.0, 70.0, 500.0, lat, day, 3);
  };
  ExpectRel(model3(15.0, 100), 11.817350492878723);
  ExpectRel(model3(30.5, 100), 11.809908152408999);
  ExpectRel(model3(-30.5, 100), 11.807239678073643);
  ExpectRel(model3(75.0, 100), 11.789873678666087);
  ExpectRel(model3(80.0, 100), 11.787568834828975);
  ExpectRel(model3(10.0, 100), 11.819672287967666);
  // The day number runs past 365 as the program makes it; the season takes it as is.
  ExpectRel(model3(45.0, 391), 11.808390502264856);
  // The 15 degree row has no seasonal amplitude, and below 15 no season is used.
  EXPECT_EQ(model3(15.0, 10), model3(15.0, 200));
  EXPECT_EQ(model3(-10.0, 10), model3(-10.0, 300));

  struct Case {
    double lat;
    double dry[3], wet[3];
  };
  const Case cases[] = {
      {30.5,
       {0.001263301540883494, 0.002908604270082507, 0.062837984467483738},
       {0.00056838952733333333, 0.0015119762566666667, 0.0466354907}},
      {60.0,
       {0.0012085158513616574, 0.0028785905924529906, 0.063547709930003523},
       {0.00059727542, 0.0015007428, 0.044626982}},
      {75.0,
       {0.0011911617462913116, 0.0028642560978370848, 0.063702796487002991},
       {0.00061641693, 0.0017599082, 0.054736038}},
      {-75.0,  // half a year on in the south
       {0.0012180374537086884, 0.0029407263021629152, 0.064814113512997009},
       {0.00061641693, 0.0017599082, 0.054736038}},
      {12.0, {0.0012769934, 0.0029153695, 0.062610505}, {0.00058021897, 0.0014275268, 0.043472961}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "latitude " << c.lat);
    const NiellCoefficients k = NiellCoefficientsAt(c.lat, 100);
    ExpectRel(k.dryA, c.dry[0]);
    ExpectRel(k.dryB, c.dry[1]);
    ExpectRel(k.dryC, c.dry[2]);
    ExpectRel(k.wetA, c.wet[0]);
    ExpectRel(k.wetB, c.wet[1]);
    ExpectRel(k.wetC, c.wet[2]);
  }
  // Just below 75 the interpolation stays on the last pair of rows and meets the 75 row.
  const double below75 = std::nextafter(75.0, 0.0);
  ExpectRel(NiellCoefficientsAt(below75, 100).dryC, 0.063702796487002991, 1e-12);
  // A latitude that is no number reads no row outside the tables.
  const NiellCoefficients nanRow =
      NiellCoefficientsAt(std::numeric_limits<double>::quiet_NaN(), 100);
  EXPECT_EQ(nanRow.wetC, 0.054736038);
}

TEST(AtmosphereSettings, SolarNumberConversions) {
  AtmosphereSettings s;
  // Flux 150: sqrt(86.3 * 1123.6 + 167273) - 408.99 = sqrt(264239.68) - 408.99.
  s.solarFlux = 150.0;
  ConvertFluxToSunspot(s);
  EXPECT_NEAR(s.sunspotNumber, 514.04248851627 - 408.99, 1e-9);
  // R12 100: 0.00089 * 10000 + 72.8 + 63.7 = 145.4.
  s.sunspotNumber = 100.0;
  ConvertSunspotToFlux(s);
  EXPECT_NEAR(s.solarFlux, 145.4, 1e-12);
  // The two are near inverses of each other.
  ConvertFluxToSunspot(s);
  EXPECT_NEAR(s.sunspotNumber, 100.0, 0.05);
  // Too low a flux leaves no root.
  s.solarFlux = -100.0;
  ConvertFluxToSunspot(s);
  EXPECT_TRUE(std::isnan(s.sunspotNumber));
}

TEST(AtmosphereText, CoefficientTableFromText) {
  IonoCoefficientTable t;
  std::string error;
  ASSERT_EQ(ParseIonoTable("ionoTruthTable",
                           "1.1176E-08, 7.4506e-09,-5.9605e-08,-5.9605E-8,90112,0,-196608,+-65536",
                           t, error),
            -1);
  EXPECT_EQ(error, "ionoTruthTable: value 8 (beta3): '+-65536' is not a number");
  ASSERT_EQ(ParseIonoTable("ionoTruthTable",
                           "1.1176E-08, 7.4506e-09,-5.9605e-08,-5.9605E-8,90112,0,-196608,-65536",
                           t, error),
            0)
      << error;
  EXPECT_EQ(t.cells[0][0], 1.1176e-08);
  EXPECT_EQ(t.cells[0][3], -5.9605e-08);
  EXPECT_EQ(t.cells[1][0], 90112.0);
  EXPECT_EQ(t.cells[1][3], -65536.0);
  EXPECT_EQ(
      FormatIonoTable(t),
      "[1.1176e-08, 7.4506e-09, -5.9605e-08, -5.9605e-08, 90112.0, 0.0, -196608.0, -65536.0]");

  const IonoCoefficientTable before = t;
  EXPECT_EQ(ParseIonoTable("ionoBroadcastTable", "1,2,3,4,5,6,7", t, error), -1);
  EXPECT_EQ(error, "ionoBroadcastTable: expected 8 values (alpha0..alpha3, beta0..beta3), got 7");
  EXPECT_EQ(ParseIonoTable("ionoBroadcastTable", "1,2,3,4,5,6,7,8,9", t, error), -1);
  EXPECT_NE(error.find("got 9"), std::string::npos);
  EXPECT_EQ(ParseIonoTable("ionoBroadcastTable", "1,2,3,x,5,6,7,8", t, error), -1);
  EXPECT_EQ(error, "ionoBroadcastTable: value 4 (alpha3): 'x' is not a number");
  EXPECT_EQ(ParseIonoTable("ionoBroadcastTable", "1,2,3,4,,6,7,8", t, error), -1);
  EXPECT_NE(error.find("beta0"), std::string::npos);
  EXPECT_EQ(ParseIonoTable("ionoBroadcastTable", "1,2,3,4,nan,6,7,8", t, error), -1);
  EXPECT_EQ(ParseIonoTable("ionoBroadcastTable", "1,2,3,4,1e999,6,7,8", t, error), -1);
  EXPECT_NE(error.find("out of the range"), std::string::npos);
  EXPECT_EQ(std::memcmp(&before, &t, sizeof t), 0);

  const std::vector<double> six(6, 1.0);
  EXPECT_EQ(IonoTableFromCells("ionoTruthTable", six, t, error), -1);
  EXPECT_EQ(error, "ionoTruthTable: expected 8 values (alpha0..alpha3, beta0..beta3), got 6");

  EXPECT_EQ(CheckTropoModel(3, error), 0);
  EXPECT_EQ(CheckTropoModel(4, error), -1);
  EXPECT_EQ(error, "tropoModel: 4 is not a troposphere model; use 1, 2 or 3");
}

TEST(AtmosphereText, ConvertCommands) {
  AtmosphereSettings s;
  std::string out, error;
  ASSERT_EQ(RunConvertSunspot(s, "100", out, error), 0);
  // 81.7 + 63.7 in double arithmetic lands one step below 145.4; all digits are printed.
  EXPECT_EQ(out, "solarFlux = 145.39999999999998\nsunspotNumber = 100.0\n");
  ASSERT_EQ(RunConvertFlux(s, " 63.7 ", out, error), 0);
  // sqrt(167273) - 408.99 = 408.990219932 - 408.99
  EXPECT_EQ(out, "solarFlux = 63.7\nsunspotNumber = 0.00021993196855873975\n");
  out = "kept";
  EXPECT_EQ(RunConvertFlux(s, "12a", out, error), -1);
  EXPECT_EQ(error, "convert-flux: '12a' is not a number");
  EXPECT_EQ(out, "kept");
  EXPECT_EQ(s.solarFlux, 63.7);
  EXPECT_EQ(RunConvertSunspot(s, "", out, error), -1);
  EXPECT_EQ(error, "convert-sunspot: '' is not a number");
  ASSERT_EQ(RunConvertFlux(s, "-100", out, error), 0);
  EXPECT_EQ(out, "solarFlux = -100.0\nsunspotNumber = nan\n");
}

}  // namespace
}  // namespace vorel::atmosphere
