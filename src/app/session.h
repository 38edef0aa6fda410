#pragma once
// Everything the program keeps for the life of one program start lives here: one
// Session is made when the program starts and handed by reference to whatever needs
// it. A test makes a fresh Session to get a fresh program start.

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/settings.h"
#include "atmosphere/atmosphere_state.h"
#include "density_model/model_state.h"
#include "display/colour_map.h"
#include "display/scint_plots.h"
#include "dif/dif_state.h"
#include "navmsg/nav_message.h"
#include "observation/epoch.h"
#include "observation/epoch_sink.h"
#include "orbits/constellation_ops.h"
#include "orbits/orbit_record.h"
#include "platform/data_dir.h"
#include "platform/messages.h"
#include "platform/random.h"
#include "platform/text_file.h"
#include "scintillation/filter_fit.h"

namespace vorel::app {

struct Session {
  // 1 while a run may go on; cleared by the stop command and, through a
  // platform::RunActiveScope, by each worker as it ends.
  std::atomic<uint8_t> RunActive{0};
  // Stops the user asked for (Ctrl-C) in this program start; a chain of runs ends at one.
  std::atomic<int> stopRequests{0};
  int32_t AutoRunStarted = 0;

  Settings settings;
  platform::DataDirectory dataDir;

  orbits::ConstellationTable constellation;
  // Source indicators, the orbit panel and the PRN selector's range (satelliteCount).
  orbits::ConstellationState orbitState;

  // The epoch counter that gates the atmosphere, the station latch and the display rows.
  observation::EpochState epochState;
  // Where a run's map and sky plot go; none without a display.
  observation::EpochDisplay* display = nullptr;

  // The C run-time rand of the worker that runs simulations; it carries on from one
  // run to the next within a program start, as a reused pool thread would.
  platform::RandState workerRand;

  // Klobuchar coefficients in force and the troposphere's last-value record.
  atmosphere::AtmosphereState atmosphere;

  // The electron density model: its maps, caches and the one-way N100, loaded once.
  density_model::ModelState densityModel;

  // The navigation message generator's frame buffer, reused from message to message.
  navmsg::NavMessageState navMessage;

  // The navigation bits of the DIF generator and the statics of its .scn reader.
  dif::DifState dif;

  // Colour in which the scintillation fit marks its target; steps at every fit.
  int32_t FitPlotColour = scintillation::kFitPlotColourStart;

  // The colour map editor's grid, entries and cell colours.
  display::ColourMap colourMap = display::InitialColourMap();
  // The filter fit's graph: loaded targets and fits pile up on it until it is cleared.
  display::PlotGraph scintGraph = display::EmptyFitGraph();
  // The strip chart of the last generated series; no traces before the first.
  display::PlotGraph scintStrip;

  // Station 1's position in relative mode, kept from one station run to the next.
  double originLatitude = 0.0;
  double originLongitude = 0.0;

  // The bubble record, open from the run that asked for it to the next such run or the
  // end of the program start. A run's other files (trajectory, events, records) are the
  // run's own and are closed when it ends.
  std::unique_ptr<platform::OutputFile> bubbleRecordFile;

  // Paths the last command wrote, for the front end's summary.
  std::vector<std::string> lastOutputs;

  platform::Messages messages = platform::Messages::Stderr();

  static std::unique_ptr<Session> Create() { return std::make_unique<Session>(); }
};

}  // namespace vorel::app
