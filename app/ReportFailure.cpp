#include <iostream>

#include "app/Commands.h"
#include "audit/HuntErr.h"
#include "core/Error.h"

namespace tessel::app {

int ReportFailure(bool verbose) {
  Error error = CurrentError();
  std::cerr << "tessel: error " << error.number() << ": "
            << (verbose ? error.description() : TraceFreeDescription(error.source(), error.description())) << '\n';
  return 1;
}

}  // namespace tessel::app
