#pragma once
// Everything the program keeps for the life of one program start lives here: one
// Session is made when the program starts and handed by reference to whatever needs
// it. A test makes a fresh Session to get a fresh program start.

#include <atomic>
#include <cstdint>
#include <memory>

#include "density_model/model_state.h"
#include "orbits/orbit_record.h"
#include "platform/messages.h"
#include "platform/random.h"

namespace vorel::app {

struct Session {
  // 1 while a run may go on; cleared by the stop command and by each worker as it ends.
  std::atomic<uint8_t> RunActive{0};

  orbits::ConstellationTable constellation;

  // The C run-time rand of the worker that runs simulations; it carries on from one
  // run to the next within a program start, as a reused pool thread would.
  platform::RandState workerRand;

  density_model::ModelState densityModel;

  platform::Messages messages = platform::Messages::Stderr();

  static std::unique_ptr<Session> Create() { return std::make_unique<Session>(); }
};

}  // namespace vorel::app
