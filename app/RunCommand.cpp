#include <unistd.h>

#include <cstdio>
#include <cstdlib>
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
    session->CloseSession();
    // The run is over and its results are written and logged. What is left
    // is the data documents, millions of nodes for a large file, which take
    // seconds to free one by one; the process ends here instead and gives
    // all its memory back at once.
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    std::_Exit(0);
  } catch (...) {
    if (showProgress) printer.PrintSummary();
    return ReportFailure(options.verbose);
  }
}

}  // namespace tessel::app
