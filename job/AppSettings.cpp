#include "job/AppSettings.h"

#include <memory>
#include <random>

#include "audit/HuntErr.h"
#include "job/Session.h"

namespace tessel {

namespace {
constexpr int32_t kErrSessionExists = 7001;

thread_local std::unique_ptr<Session> tSession;

std::string NewSessionId() {
  thread_local std::mt19937 generator(std::random_device{}());
  return std::to_string(std::uniform_int_distribution<int>(1, 9999)(generator));
}
}  // namespace

Session* CurrentSession() { return tSession.get(); }

namespace AppSettings {

std::string Initialise(const std::string& jobId, bool dataServiceMode, bool testMode,
                       const std::string& uniqueClientId) {
  try {
    Check(!tSession, kErrSessionExists, "Session has already been initialised; sessions may only be initialised once.");
    std::string sessionId = NewSessionId();
    tSession = std::make_unique<Session>();
    try {
      tSession->Initialise(sessionId, jobId, dataServiceMode, testMode, uniqueClientId);
    } catch (...) {
      tSession.reset();
      throw;
    }
    return sessionId;
  } catch (...) {
    ErrorInRethrow("AppSettings.Initialise(sJobId, bDataServiceMode, bTestMode, sUniqueClientId)",
            {Variant(jobId), Variant(dataServiceMode), Variant(testMode), Variant(uniqueClientId)});
  }
}

void Release() { tSession.reset(); }

}  // namespace AppSettings
}  // namespace tessel
