#include <iostream>

#include "app/Commands.h"
#include "scripting/SimpleVBWrapper.h"

namespace tessel::app {

int RunEval(const EvalOptions& options) {
  try {
    SimpleVBWrapper host;
    host.Initialise();
    std::string result;
    if (host.CodeNeedsWrapper(options.expression)) {
      // Several lines are a body whose last statement gives the value.
      result = host.SimpleEvaluate(host.AddCode("Eval", options.expression));
    } else {
      result = host.SimpleEvaluate(options.expression);
    }
    std::cout << result << '\n';
    return 0;
  } catch (...) {
    return ReportFailure();
  }
}

}  // namespace tessel::app
