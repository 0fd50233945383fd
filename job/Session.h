// Session: the environment of one job run on one thread.
//
// Initialise reads appconfig.xml, takes the run's instance number from
// JOBDETAIL under a row lock, takes a slot of the job's concurrency limit,
// opens the job document and checks its version. The session owns the audit
// logger, the job document and the lock; the lock is freed by ReleaseLock or
// when the session goes. Code anywhere reaches its thread's session through
// CurrentSession(); sessions are made and dropped by AppSettings.
#pragma once

#include "store/XMLWrapper.h"
#include <cstdint>
#include <memory>
#include <string>

namespace tessel {

class AppConfig;
class AuditLogger;
class JobLock;

namespace db {
class Connection;
}

class Session {
 public:
  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Initialise(const std::string& sessionId, const std::string& jobId, bool dataServiceMode, bool testMode,
                  const std::string& uniqueClientId);
  // 7002 unless the id is this session's.
  void CheckSession(const std::string& sessionId) const;
  // A new open connection to the job database.
  std::unique_ptr<db::Connection> GetDatabaseLink() const;
  // Frees the job's concurrency slot; 7005 when it cannot be freed.
  void ReleaseLock();

  const std::string& ConfigFolder() const { return configFolder_; }
  const std::string& DebugPath() const { return debugPath_; }
  std::string ErrorsFilePath() const;
  const std::string& WorkPath() const { return workPath_; }
  const std::string& JobConfPath() const { return jobConfPath_; }
  const std::string& DefaultCharSet() const { return defaultCharSet_; }
  const std::string& SessionId() const { return sessionId_; }
  int32_t JobInstance() const { return jobInstance_; }
  const std::string& JobId() const { return jobId_; }
  const std::string& UniqueClientId() const { return uniqueClientId_; }
  bool DataServiceMode() const { return dataServiceMode_; }
  bool TestMode() const { return testMode_; }
  bool AccpacTrace() const { return accpacTrace_; }
  const std::string& DatabaseConnectionText() const { return databaseText_; }
  int32_t MaxInstance() const { return maxInstance_; }
  AuditLogger& GetAuditLogger() { return *auditLogger_; }
  const std::shared_ptr<AuditLogger>& AuditLoggerPtr() const { return auditLogger_; }
  const Ref<XMLWrapper>& JobConfig() const { return jobConfig_; }
  // Further keys of appconfig.xml, for the parts of the engine that have their own.
  std::string ConfigValue(const std::string& key, const std::string& fallback = "") const;

 private:
  void ReadConfiguration();
  void InitialiseJobSettings();
  void AcquireLock();
  void OpenJobDefinition();
  void CheckVersion();
  void MakeAuditLogger(bool withQueue);

  std::string sessionId_;
  std::string jobId_;
  std::string uniqueClientId_;
  bool dataServiceMode_ = false;
  bool testMode_ = false;

  std::string configFolder_;
  std::shared_ptr<AppConfig> appConfig_;
  std::string debugPath_;
  std::string workPath_;
  std::string jobConfPath_;
  std::string defaultCharSet_;
  std::string databaseText_;
  std::string queueText_;
  bool accpacTrace_ = false;

  int32_t jobInstance_ = 0;
  std::string jobConfigFile_;
  int32_t maxInstance_ = 0;
  std::unique_ptr<JobLock> lock_;
  bool lockHeld_ = false;

  std::shared_ptr<AuditLogger> auditLogger_;
  Ref<XMLWrapper> jobConfig_;
};

// The session of the calling thread, or nullptr.
Session* CurrentSession();

}  // namespace tessel
