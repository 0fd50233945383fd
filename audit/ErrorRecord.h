// ErrorRecord: the error module's per-thread state.
//
// One record exists per thread and is reached only through Current(); it is
// never shared between job threads, so nothing in it is locked. The record
// holds the preserved error (the one a handler is working on), the trace text
// that ErrorIn grows frame by frame, a few extra texts that go into the next
// trace, and the messages that Check collects for number 0.
//
// `current` stands in for the script runtime's global error object: the error
// a handler sees once it has been restored (by ErrorIn without a raise, by
// ErrRestore or by RestoreExceptionState). It is bound to the exception that
// was in flight at the time, so that a newer exception takes precedence over
// it (see CurrentError in HuntErr.h).
//
// The record borrows the preserved connection; it owns everything else.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <string_view>

namespace tessel {

class IErrorConnection;

class ErrorRecord {
 public:
  // The restored error, see the class comment.
  struct Restored {
    bool set = false;
    std::exception_ptr origin;  // exception in flight when it was restored
    int32_t number = 0;
    std::string source;
    std::string description;
    std::string helpFile;
    std::string helpContext = "0";
  };

  // This thread's record.
  static ErrorRecord& Current();

  int32_t ErrNumber = 0;
  std::string ErrSource;
  std::string ErrDescription;
  int32_t Errl = 0;  // source line; 0 where unknown, which is always in C++
  std::string ErrHelpFile;
  std::string ErrHelpContext = "0";
  std::string traceText;
  int32_t ErrAPI = 0;  // last operating-system error code
  bool ErrPreserved = false;
  std::string insertedText;  // extra trace lines, flushed into the next trace
  // Optional source of message templates for Check templates that begin with
  // "#"; nothing in the engine installs one.
  std::function<std::string(std::string_view key)> messageProvider;
  std::string releasedObjectsText;
  IErrorConnection* preservedConnection = nullptr;
  std::string longValuesText;
  std::string collectedMessages;
  Restored current;
};

}  // namespace tessel
