#include "observation/epoch_sink.h"

namespace vorel::observation {

void DisplaySink::OnEpoch(const EpochResult& /*result*/, const EpochContext& context) {
  if (context.displayTick && context.rows)
    display_.UpdateMapScene(context.latitudeRad, context.longitudeRad, *context.rows,
                            context.lateInRun);
}

}  // namespace vorel::observation
