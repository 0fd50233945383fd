#include "audit/MessageQueueWrapper.h"

#include "audit/EmbeddedLogQueue.h"
#include "audit/ExceptionState.h"
#include "audit/HuntErr.h"
#include "core/Error.h"

namespace tessel {

namespace {
constexpr int32_t kErrQueueOpen = 7555;
constexpr int32_t kErrQueueNotOpen = 7556;
constexpr std::string_view kEmbeddedPrefix = "embedded:";
}  // namespace

MessageQueueWrapper::MessageQueueWrapper() = default;

MessageQueueWrapper::~MessageQueueWrapper() {
  ExceptionState pending = CaptureExceptionState();
  try {
    CloseConnections();
  } catch (...) {
  }
  RestoreExceptionState(pending);
}

void MessageQueueWrapper::Initialise(const std::string& queueText) {
  try {
    std::unique_ptr<LogQueue> queue;
    if (queueText.rfind(kEmbeddedPrefix, 0) == 0) {
      queue = std::make_unique<EmbeddedLogQueue>(queueText.substr(kEmbeddedPrefix.size()));
    }
    Check(queue != nullptr, kErrQueueOpen, "Could not open message queue [%1]||||%2",
          {Variant(queueText), Variant("the queue text names no known kind of queue")});
    try {
      queue->Open();
    } catch (const Error& error) {
      Check(false, kErrQueueOpen, "Could not open message queue [%1]||||%2",
            {Variant(queue->Name()), Variant(std::to_string(error.number()) + " - " + error.description())});
    }
    queue_ = std::move(queue);
  } catch (...) {
    ErrorInRethrow("MessageQueueWrapper.Initialise()", {});
  }
}

bool MessageQueueWrapper::IsOpen() const { return queue_ && queue_->IsOpen(); }

void MessageQueueWrapper::SendMessage(const IntegrationLogEntry& entry, bool viewOnly) {
  try {
    Check(IsOpen(), kErrQueueNotOpen, "The log queue is not open.");
    if (!viewOnly) queue_->SendToLog(entry);
    queue_->SendToView(entry, kViewCopyLifetime);
  } catch (...) {
    ErrorInRethrow("MessageQueueWrapper.SendMessage(oEntry, bViewOnly)", {Variant(viewOnly)});
  }
}

void MessageQueueWrapper::CloseConnections() {
  if (queue_ && queue_->IsOpen()) queue_->Close();
}

}  // namespace tessel
