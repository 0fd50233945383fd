// HuntErr: how failures are raised and how they collect their call path.
//
// A precondition is tested with Check, which raises a numbered tessel::Error
// built from a message template. Every routine catches what passes through it
// and hands it to ErrorIn (or ErrorInRethrow), which appends the routine's
// frame - name, parameters and their values - to a trace text and raises the
// same number again with source "HuntERR.ErrorIn" and the trace as the
// description:
//
//   try {
//     ...
//   } catch (...) {
//     ErrorInRethrow("XMLWrapper.GetNodeFromXPath(sXPath)", {Variant(xpath)});
//   }
//
// ErrorIn reads the exception in flight. A tessel::Error keeps its number; any
// other exception becomes the general error (Error::kGeneral) with its what()
// text, so that foreign failures are numbered too. Whoever finally stops the
// error reads the number, ShortDescription and the trace.
//
// All state is per thread (ErrorRecord); nothing here takes a lock.
//
// Error numbers lie by subsystem:
//   7000-7099 job and session          7500-7599 audit
//   7700-7799 XML wrapper, sort, namespaces
//   8000-8299 transaction store and selectors
//   8500-8599 file controller and paths
//   9000-9099 writers and fixed-length handling
//   9500-9699 stack, property bag, character sets, file system, FTP, mail,
//             SQL, registry
//   10000-10099 functions, lookups, counters
//   10500-10599 coordinator and transforms
//   10800-10899 process task           10995 connector not defined
//   11000-11199 ERP connector
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "core/Error.h"
#include "core/Variant.h"

namespace tessel {

class IErrorConnection;

// Option flags of ErrorIn.
constexpr int kErrRaise = 1;             // raise the error again
constexpr int kErrTrace = 2;             // add the frame to the trace
constexpr int kErrSetAbort = 4;          // abort the transaction-control object
constexpr int kErrDisableCommit = 8;     // disable commit on it
constexpr int kErrRollback = 16;         // roll back the connection
constexpr int kErrWebInfo = 32;          // add web information
constexpr int kErrCloseConnection = 64;  // close the connection
constexpr int kErrCarried = 128;         // carried along, tested nowhere
// The usual sets: the rule, the rule with 128, and the swallowing handler.
constexpr int kErrStandard = kErrRaise | kErrTrace | kErrWebInfo;            // 35
constexpr int kErrStandardCarried = kErrStandard | kErrCarried;             // 163
constexpr int kErrSwallow = kErrTrace | kErrDisableCommit | kErrWebInfo;    // 42

// Numbers from kBypassFirst up to (not including) Error::kGeneral are expected
// conditions: ErrorIn passes them on without a trace.
constexpr int32_t kBypassFirst = static_cast<int32_t>(0x80041065);

// Message of the general error when ErrorIn finds no error to report.
inline constexpr std::string_view kLostErrorMessage =
    "ErrorIn: Error information was lost. To fix: call ErrPreserve before doing "
    "anything in error handler.";

// --- Check ---------------------------------------------------------------------

// Raises (or with number 0 collects) the message built from `messageTemplate`
// when `condition` is false. "||" becomes CR LF; then "%1".."%n" are replaced
// by the arguments' text (an argument that cannot convert gives ""), every
// other "%" stays. Raised errors carry source "HuntERR.Check".
void CheckFailed(int32_t number, std::string_view messageTemplate, std::span<const Variant> args,
                 std::string_view helpFile = {}, int32_t helpContext = 0);

inline void Check(bool condition, int32_t number, std::string_view messageTemplate,
                  std::initializer_list<Variant> args = {}, std::string_view helpFile = {},
                  int32_t helpContext = 0) {
  if (!condition) {
    CheckFailed(number, messageTemplate, std::span<const Variant>(args.begin(), args.size()),
                helpFile, helpContext);
  }
}
inline void Check(bool condition, int32_t number, std::string_view messageTemplate,
                  std::span<const Variant> args, std::string_view helpFile = {},
                  int32_t helpContext = 0) {
  if (!condition) CheckFailed(number, messageTemplate, args, helpFile, helpContext);
}
inline void Check(bool condition, int32_t number, std::string_view messageTemplate,
                  const Variant& arg, std::string_view helpFile = {}, int32_t helpContext = 0) {
  if (!condition) {
    CheckFailed(number, messageTemplate, std::span<const Variant>(&arg, 1), helpFile, helpContext);
  }
}

// The message Check would build, without raising anything.
std::string BuildCheckMessage(std::string_view messageTemplate, std::span<const Variant> args);
inline std::string BuildCheckMessage(std::string_view messageTemplate,
                                     std::initializer_list<Variant> args) {
  return BuildCheckMessage(messageTemplate, std::span<const Variant>(args.begin(), args.size()));
}

// --- ErrorIn -------------------------------------------------------------------

// Adds the calling routine's frame for the current error and returns the trace
// text. `method` is the routine's name with its parameter names, as in
// "XMLWrapper.GetNodeFromXPath(sXPath, objNode)"; `args` are the values paired
// with them by position. `connection`, when given (or preserved), is described
// in the first frame and rolled back (kErrRollback) or closed
// (kErrCloseConnection). `envNames`/`envValues` add an "Env:" line.
// With kErrRaise the error is thrown again (and this never returns normally).
// Never fails for reasons of its own.
std::string ErrorIn(std::string_view method, std::span<const Variant> args,
                    int options = kErrStandard, IErrorConnection* connection = nullptr,
                    std::span<const std::string> envNames = {},
                    std::span<const Variant> envValues = {});
inline std::string ErrorIn(std::string_view method, std::initializer_list<Variant> args = {},
                           int options = kErrStandard, IErrorConnection* connection = nullptr) {
  return ErrorIn(method, std::span<const Variant>(args.begin(), args.size()), options, connection);
}

// ErrorIn with kErrRaise forced: the handler form for routines that return a
// value.
[[noreturn]] void ErrorInRethrow(std::string_view method, std::span<const Variant> args,
                                 int options = kErrStandard,
                                 IErrorConnection* connection = nullptr);
[[noreturn]] inline void ErrorInRethrow(std::string_view method,
                                        std::initializer_list<Variant> args = {},
                                        int options = kErrStandard,
                                        IErrorConnection* connection = nullptr) {
  ErrorInRethrow(method, std::span<const Variant>(args.begin(), args.size()), options, connection);
}

// --- The current error -----------------------------------------------------------

// The error a handler is working on: the exception in flight (converted as
// ErrorIn converts it) unless an error was restored while that same exception
// was in flight, or when none is in flight; number 0 when there is none.
Error CurrentError();

// Copies the current error into the thread's record, unless one is preserved
// already (the first one wins until ErrorIn re-raises it).
void ErrPreserve();
// Makes the preserved error the current one again; keeps it preserved.
void ErrRestore();
// Zeroes the record's number, description, source, help file, help context
// ("0"), API code and line, ends any preservation, and forgets the current
// error.
void ErrClear();

int32_t ErrNumber();
std::string ErrSource();
std::string ErrDescription();
// ShortDescription of the current error.
std::string ErrShortDescription();
// TraceFreeDescription of the current error.
std::string ErrTraceFreeDescription();
// The messages of Check calls with number 0, one per line; reading empties them.
std::string ErrCollectedMessages();

// Lines added to the next trace after its frame line.
void ErrInsertTrace(std::string_view lines);
// Text reported once under "    Released Objects: " in the next trace.
void ErrReleasedObjects(std::string_view text);
// A connection ErrorIn uses when its caller passes none; cleared by ErrorIn.
void ErrPreserveConnection(IErrorConnection* connection);
// Sets the operating-system error code reported in the next first frame.
void ErrSetAPI(int32_t code);

// --- Reading descriptions --------------------------------------------------------

// The reason for the audit log: the text before the first line break or before
// "Time='", whichever comes later, trimmed. Keeps a multi-line message whole
// when the description is a trace.
std::string ShortDescription(std::string_view source, std::string_view description);
inline std::string ShortDescription(const Error& error) {
  return ShortDescription(error.source(), error.description());
}
// The second form: the text before "Time" or "Call Stack:", whichever comes
// first, trimmed.
std::string ShortDescriptionBeforeTrace(std::string_view description);
// The description as it was before the first frame was written.
std::string TraceFreeDescription(std::string_view source, std::string_view description);

}  // namespace tessel
