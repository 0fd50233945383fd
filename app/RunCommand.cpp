#include <unistd.h>

#include <iostream>

#include "app/Commands.h"
#include "app/ProgressPrinter.h"
#include "job/TesselSession.h"
#include "job/TransformCoordinator.h"

namespace tessel::app {

int RunJob(const RunOptions& options) {
  const bool terminal = ::isatty(STDERR_FILENO) != 0;
  ProgressPrinter printer(std::cerr, terminal);
  const bool showProgress = options.progress || terminal;
  try {
    TransformCoordinator coordinator;
    if (showProgress) coordinator.SetProgress(&printer);
    std::unique_ptr<TesselSession> session = coordinator.CreateSession();
    std::string sessionId =
        session->InitialiseSession(options.jobId, false, options.testMode, "tessel-" + std::to_string(::getpid()));
    coordinator.Initialise(sessionId);
    coordinator.Process();
    if (showProgress) printer.PrintSummary();
    return 0;
  } catch (...) {
    if (showProgress) printer.PrintSummary();
    return ReportFailure(options.verbose);
  }
}

}  // namespace tessel::app
