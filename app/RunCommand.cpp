#include <unistd.h>

#include <iostream>

#include "app/Commands.h"
#include "app/ProgressPrinter.h"
#include "job/TesselSession.h"
#include "job/TransformCoordinator.h"

namespace tessel::app {

int RunJob(const RunOptions& options) {
  try {
    ProgressPrinter printer(std::cerr);
    TransformCoordinator coordinator;
    if (options.progress || ::isatty(STDERR_FILENO)) coordinator.SetProgress(&printer);
    std::unique_ptr<TesselSession> session = coordinator.CreateSession();
    std::string sessionId =
        session->InitialiseSession(options.jobId, false, options.testMode, "tessel-" + std::to_string(::getpid()));
    coordinator.Initialise(sessionId);
    coordinator.Process();
    return 0;
  } catch (...) {
    return ReportFailure(options.verbose);
  }
}

}  // namespace tessel::app
