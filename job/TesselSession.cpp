#include "job/TesselSession.h"

#include "audit/HuntErr.h"
#include "job/AppSettings.h"
#include "job/Session.h"
#include "scripting/SimpleVBWrapper.h"

namespace tessel {

std::unique_ptr<SimpleVBWrapper> TesselSession::CreateVBWrapper() const {
  try {
    auto wrapper = std::make_unique<SimpleVBWrapper>();
    wrapper->Initialise();
    return wrapper;
  } catch (...) {
    ErrorInRethrow("TesselSession.CreateVBWrapper()", {});
  }
}

TesselSession::~TesselSession() {
  try {
    CloseSession();
  } catch (...) {
  }
}

std::string TesselSession::InitialiseSession(const std::string& jobId, bool dataServiceMode, bool testMode,
                                             const std::string& uniqueClientId) {
  try {
    sessionId_ = AppSettings::Initialise(jobId, dataServiceMode, testMode, uniqueClientId);
    return sessionId_;
  } catch (...) {
    ErrorInRethrow("TesselSession.InitialiseSession(sJobId, bDataServiceMode, bTestMode, sUniqueClientId)",
            {Variant(jobId), Variant(dataServiceMode), Variant(testMode), Variant(uniqueClientId)});
  }
}

void TesselSession::CloseSession() {
  sessionId_.clear();
  AppSettings::Release();
}

Session* TesselSession::GetSessionInternal() const { return CurrentSession(); }

}  // namespace tessel
