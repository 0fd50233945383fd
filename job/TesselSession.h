// TesselSession: a host's handle on the session of its coordinator's thread.
//
// A host gets one from TransformCoordinator::CreateSession, initialises it with
// the job to run and passes the returned id to the coordinator. Dropping the
// object closes the session, after which the thread can start another.
#pragma once

#include <memory>
#include <string>

namespace tessel {

class Session;
class SimpleVBWrapper;

class TesselSession {
 public:
  TesselSession() = default;
  ~TesselSession();
  TesselSession(const TesselSession&) = delete;
  TesselSession& operator=(const TesselSession&) = delete;

  const std::string& SessionId() const { return sessionId_; }
  std::string InitialiseSession(const std::string& jobId, bool dataServiceMode, bool testMode,
                                const std::string& uniqueClientId);
  void CloseSession();
  // A script host of its own for a host that wants to try code without a
  // job: the function library of the job configuration and 60 s per call.
  std::unique_ptr<SimpleVBWrapper> CreateVBWrapper() const;
  Session* GetSessionInternal() const;

 private:
  std::string sessionId_;
};

}  // namespace tessel
