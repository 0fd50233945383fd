// MessageQueueWrapper: sends audit log entries to the log and to the view feed.
//
// The wrapper owns one LogQueue backend, chosen by the queue text it is
// initialised with: "embedded:" followed by the job database's connection text
// (the default of every installation). A queue that cannot be opened fails
// Initialise with 7555, so that a job learns it at session start rather than
// at its first entry.
#pragma once

#include <memory>
#include <string>

#include "audit/IntegrationLogEntry.h"
#include "audit/LogQueue.h"

namespace tessel {

class MessageQueueWrapper {
 public:
  MessageQueueWrapper();
  ~MessageQueueWrapper();

  // Opens the backend named by queueText; 7555 when it cannot be opened.
  void Initialise(const std::string& queueText);
  bool IsOpen() const;
  // Unless viewOnly the entry goes to the log; then a copy goes to the view
  // feed with a lifetime of 30 seconds. Raises when the queue is not open or
  // a send fails.
  void SendMessage(const IntegrationLogEntry& entry, bool viewOnly);
  void CloseConnections();

 private:
  std::unique_ptr<LogQueue> queue_;
};

}  // namespace tessel
