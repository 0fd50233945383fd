// IErrorConnection: what the error module needs of a database connection when
// a handler asks it to roll back or close the connection on the way out, and
// to describe the connection in the first frame of a trace.
//
// The database layer implements it; the error module only borrows the object
// for the duration of one ErrorIn call (or while it is preserved, see
// PreserveConnection), never owns it. Every operation may throw: the error
// module calls them with failures caught and written into the trace.
#pragma once

#include <string>
#include <vector>

namespace tessel {

class IErrorConnection {
 public:
  // State bits as the trace prints them.
  static constexpr int kStateClosed = 0;
  static constexpr int kStateOpen = 1;
  static constexpr int kStateConnecting = 2;
  static constexpr int kStateExecuting = 4;
  static constexpr int kStateFetching = 8;

  virtual ~IErrorConnection() = default;

  virtual bool IsOpen() const = 0;
  virtual void RollbackTransaction() = 0;
  virtual void Close() = 0;

  // Descriptive parts of the trace; the defaults print little.
  virtual std::string TypeName() const { return "Connection"; }
  virtual std::string Version() const { return "?"; }
  virtual std::string ConnectionString() const { return {}; }
  virtual int State() const { return IsOpen() ? kStateOpen : kStateClosed; }
  // The driver's own error texts gathered on the connection, oldest first.
  virtual std::vector<std::string> Errors() const { return {}; }
};

}  // namespace tessel
