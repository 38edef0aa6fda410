#include "orbits/constellation_ops.h"

#include <fmt/format.h>

#include <iterator>

namespace vorel::orbits {
namespace {

// Loops that walk the constellation stop at PRN 32.
constexpr int kWalkedPrns = 32;

// The PRN selector cannot hold more than satelliteCount nor less than 1.
void ClampSelectedPrn(int32_t satelliteCount, OrbitPanel& panel) {
  if (panel.selectedPrn > satelliteCount) panel.selectedPrn = satelliteCount;
  if (panel.selectedPrn < 1) panel.selectedPrn = 1;
}

bool PanelInTable(const OrbitPanel& panel) {
  return panel.selectedPrn >= 1 && panel.selectedPrn <= kTableRows && panel.selectedRecord >= 0 &&
         panel.selectedRecord < kRecordsPerSet;
}

void ShowSet(const OrbitRecord& r, OrbitPanelSet& s) {
  // Row 11 (IDOT) is deliberately not shown: it keeps whatever the cell held.
  s.keplerian[0] = r.toe;
  s.keplerian[1] = r.week;
  s.keplerian[2] = r.M0;
  s.keplerian[3] = r.deltaN;
  s.keplerian[4] = r.e;
  s.keplerian[5] = r.sqrtA;
  s.keplerian[6] = r.Omega0;
  s.keplerian[7] = r.i0;
  s.keplerian[8] = r.omega;
  s.keplerian[9] = r.OmegaDot;
  s.harmonic = {r.Cuc, r.Cus, r.Crc, r.Crs, r.Cic, r.Cis};
  s.clock = {r.toc, r.af0, r.af1};
}

void ApplySet(const OrbitPanelSet& s, OrbitRecord& r) {
  // Row 2 (week) is display only.
  r.toe = s.keplerian[0];
  r.M0 = s.keplerian[2];
  r.deltaN = s.keplerian[3];
  r.e = s.keplerian[4];
  r.sqrtA = s.keplerian[5];
  r.Omega0 = s.keplerian[6];
  r.i0 = s.keplerian[7];
  r.omega = s.keplerian[8];
  r.OmegaDot = s.keplerian[9];
  r.IDOT = s.keplerian[10];
  r.Cuc = s.harmonic[0];
  r.Cus = s.harmonic[1];
  r.Crc = s.harmonic[2];
  r.Crs = s.harmonic[3];
  r.Cic = s.harmonic[4];
  r.Cis = s.harmonic[5];
  r.toc = s.clock[0];
  r.af0 = s.clock[1];
  r.af1 = s.clock[2];
}

void ClearHarmonics(OrbitRecord& r) { r.Cuc = r.Cus = r.Crc = r.Crs = r.Cic = r.Cis = 0.0; }
void ClearClock(OrbitRecord& r) { r.af0 = r.af1 = r.af2 = 0.0; }

// Applies `clear` to every stored record of PRN 1 to 32 in one set.
template <typename Clear>
void ClearSet(ConstellationTable& table, bool broadcast, Clear clear) {
  for (int index = 0; index < kWalkedPrns; ++index) {
    SatelliteOrbits& row = table.rows[index];
    const int count = row.recordCount < kRecordsPerSet ? row.recordCount : kRecordsPerSet;
    for (int k = 0; k < count; ++k) clear(broadcast ? row.broadcastRecords[k] : row.trueRecords[k]);
  }
}

}  // namespace

int ShowOrbitRecord(const ConstellationTable& table, int32_t satelliteCount, OrbitPanel& panel) {
  ClampSelectedPrn(satelliteCount, panel);
  if (!PanelInTable(panel)) return -1;
  const SatelliteOrbits& row = table.rows[panel.selectedPrn - 1];
  const OrbitRecord& trueRecord = row.trueRecords[panel.selectedRecord];
  const OrbitRecord& broadcastRecord = row.broadcastRecords[panel.selectedRecord];
  ShowSet(trueRecord, panel.trueSet);
  ShowSet(broadcastRecord, panel.broadcastSet);
  panel.healthy = broadcastRecord.status == kStatusUsable;
  return 0;
}

int ApplyOrbitPanel(ConstellationTable& table, int32_t satelliteCount, OrbitPanel& panel) {
  ClampSelectedPrn(satelliteCount, panel);
  if (!PanelInTable(panel)) return 1;
  SatelliteOrbits& row = table.rows[panel.selectedPrn - 1];
  OrbitRecord& trueRecord = row.trueRecords[panel.selectedRecord];
  OrbitRecord& broadcastRecord = row.broadcastRecords[panel.selectedRecord];
  ApplySet(panel.trueSet, trueRecord);
  ApplySet(panel.broadcastSet, broadcastRecord);
  // The check box raises a record to usable; switched off it lowers nothing.
  if (panel.healthy) {
    trueRecord.status = kStatusUsable;
    broadcastRecord.status = kStatusUsable;
  }
  return 1;
}

namespace {

// A bulk clear over one set, then the panel shows the record again.
template <typename Clear>
int ClearAndShow(ConstellationTable& table, ConstellationState& state, bool broadcast,
                 Clear clear) {
  ClearSet(table, broadcast, clear);
  ShowOrbitRecord(table, state.satelliteCount, state.panel);
  return 0;
}

}  // namespace

int ClearBroadcastHarmonics(ConstellationTable& table, ConstellationState& state) {
  return ClearAndShow(table, state, true, ClearHarmonics);
}

int ClearBroadcastClocks(ConstellationTable& table, ConstellationState& state) {
  return ClearAndShow(table, state, true, ClearClock);
}

int ClearTrueHarmonics(ConstellationTable& table, ConstellationState& state) {
  return ClearAndShow(table, state, false, ClearHarmonics);
}

int ClearTrueClocks(ConstellationTable& table, ConstellationState& state) {
  return ClearAndShow(table, state, false, ClearClock);
}

int32_t SatelliteCountForSystem(int32_t signalSystem) {
  switch (signalSystem) {
    case 0:
    case 1:
    case 2:
      return 32;
    case 3:
    case 4:
    case 5:
      return 24;
    case 6:
      return 3;
    case 7:
      return 36;
    default:
      return 0;
  }
}

int SetSignalSystem(int32_t signalSystem, ConstellationState& state) {
  state.satelliteCount = SatelliteCountForSystem(signalSystem);
  return 0;
}

int ShowOrbit(const ConstellationTable& table, ConstellationState& state, const ShowOrbitArgs& args,
              std::string& out) {
  if (args.prn < 1 || args.prn > kTableRows || args.record < 0 || args.record >= kRecordsPerSet)
    return -1;
  state.panel.selectedPrn = args.prn;
  state.panel.selectedRecord = args.record;
  if (ShowOrbitRecord(table, state.satelliteCount, state.panel) != 0) return -1;
  out += FormatOrbitPanel(table, state.panel);
  return 0;
}

std::string FormatOrbitPanel(const ConstellationTable& table, const OrbitPanel& panel) {
  static constexpr const char* kKeplerianNames[kKeplerianRows] = {
      "toe", "week", "M0", "deltaN", "e", "sqrtA", "Omega0", "i0", "omega", "OmegaDot", "IDOT"};
  static constexpr const char* kHarmonicNames[kHarmonicRows] = {"Cuc", "Cus", "Crc",
                                                                "Crs", "Cic", "Cis"};
  static constexpr const char* kClockNames[kClockRows] = {"toc", "af0", "af1"};

  fmt::memory_buffer b;
  auto out = std::back_inserter(b);
  int32_t recordCount = 0;
  if (panel.selectedPrn >= 1 && panel.selectedPrn <= kTableRows)
    recordCount = table.rows[panel.selectedPrn - 1].recordCount;
  fmt::format_to(out, "PRN {} record {} recordCount {} healthy {}\n", panel.selectedPrn,
                 panel.selectedRecord, recordCount, panel.healthy ? 1 : 0);
  fmt::format_to(out, "{:<10}{:>24}{:>24}\n", "", "true", "broadcast");
  for (int i = 0; i < kKeplerianRows; ++i) {
    if (i == 1) {
      fmt::format_to(out, "{:<10}{:24.0f}{:24.0f}\n", kKeplerianNames[i],
                     panel.trueSet.keplerian[i], panel.broadcastSet.keplerian[i]);
    } else {
      fmt::format_to(out, "{:<10}{:24.16e}{:24.16e}\n", kKeplerianNames[i],
                     panel.trueSet.keplerian[i], panel.broadcastSet.keplerian[i]);
    }
  }
  for (int i = 0; i < kHarmonicRows; ++i)
    fmt::format_to(out, "{:<10}{:24.16e}{:24.16e}\n", kHarmonicNames[i], panel.trueSet.harmonic[i],
                   panel.broadcastSet.harmonic[i]);
  for (int i = 0; i < kClockRows; ++i)
    fmt::format_to(out, "{:<10}{:24.16e}{:24.16e}\n", kClockNames[i], panel.trueSet.clock[i],
                   panel.broadcastSet.clock[i]);
  return fmt::to_string(b);
}

}  // namespace vorel::orbits
