#include "job/Session.h"

#include <filesystem>

#include "audit/AuditLogger.h"
#include "audit/HuntErr.h"
#include "core/Error.h"
#include "db/Connection.h"
#include "job/AppConfig.h"
#include "job/JobLock.h"
#include "job/RegistryWrapper.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {
constexpr int32_t kErrJobUndefined = 7000;
constexpr int32_t kErrInvalidSession = 7002;
constexpr int32_t kErrInvalidVersion = 7003;
constexpr int32_t kErrLockNotAcquired = 7004;
constexpr int32_t kErrLockNotReleased = 7005;
constexpr const char* kJobVersion = "1.96";

std::string Trim(std::string text) {
  const char* blanks = " \t\r\n";
  size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return {};
  size_t last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

bool IsPostgreSql(const std::string& connectionText) {
  return connectionText.rfind("postgresql://", 0) == 0 || connectionText.rfind("postgres://", 0) == 0;
}
}  // namespace

Session::Session() = default;

Session::~Session() {
  try {
    ReleaseLock();
  } catch (...) {
  }
}

std::string Session::ErrorsFilePath() const {
  return (std::filesystem::path(debugPath_) / "Errors.txt").string();
}

void Session::MakeAuditLogger(bool withQueue) {
  AuditLogger::Settings settings;
  settings.debugPath = debugPath_;
  settings.errorsFilePath = debugPath_.empty() ? std::string() : ErrorsFilePath();
  if (withQueue) settings.queueText = queueText_;
  auto logger = std::make_shared<AuditLogger>();
  logger->Initialise(jobId_, jobInstance_, dataServiceMode_, uniqueClientId_, std::move(settings));
  auditLogger_ = std::move(logger);
}

void Session::Initialise(const std::string& sessionId, const std::string& jobId, bool dataServiceMode,
                         bool testMode, const std::string& uniqueClientId) {
  try {
    sessionId_ = sessionId;
    jobId_ = jobId;
    dataServiceMode_ = dataServiceMode;
    testMode_ = testMode;
    uniqueClientId_ = uniqueClientId;
    jobInstance_ = 0;
    MakeAuditLogger(false);
    ReadConfiguration();
    InitialiseJobSettings();
    OpenJobDefinition();
    MakeAuditLogger(true);
    auditLogger_->SetJobConfig(jobConfig_);
  } catch (...) {
    try {
      throw;
    } catch (const Error& error) {
      // The failure must reach the log: through the queue when the job
      // database is known and answers, else through the logger's fall-backs.
      if (!queueText_.empty() && !(auditLogger_ && error.number() == 7555)) {
        try {
          MakeAuditLogger(true);
        } catch (...) {
        }
      }
      if (!auditLogger_) {
        try {
          MakeAuditLogger(false);
        } catch (...) {
        }
      }
      if (auditLogger_) {
        IntegrationLogEntry entry;
        entry.Reason = "Error whilst initialising job. \r\n\r\n" + error.description();
        entry.ReasonCode = std::to_string(error.number());
        auditLogger_->LogAuditMessage(std::move(entry));
      }
    } catch (...) {
    }
    ErrorInRethrow("Session.Initialise(sSessionId, sJobId, bDataServiceMode, bTestMode, sUniqueClientId)",
            {Variant(sessionId), Variant(jobId), Variant(dataServiceMode), Variant(testMode)});
  }
}

void Session::ReadConfiguration() {
  try {
    configFolder_ = RegistryWrapper().GetRegistryKey("", "AppConfig");
    auto config = std::make_shared<AppConfig>(AppConfig::Load(configFolder_));
    defaultCharSet_ = config->DefaultCharSet();
    debugPath_ = config->DebugPath();
    workPath_ = config->WorkPath();
    jobConfPath_ = config->JobConfPath();
    databaseText_ = config->DatabaseText();
    accpacTrace_ = config->AccpacTrace();
    queueText_ = config->QueueText();
    appConfig_ = std::move(config);
  } catch (...) {
    ErrorInRethrow("Session.ReadConfiguration()", {});
  }
}

std::string Session::ConfigValue(const std::string& key, const std::string& fallback) const {
  return appConfig_ ? appConfig_->Value(key, fallback) : fallback;
}

void Session::CheckSession(const std::string& sessionId) const {
  try {
    Check(sessionId == sessionId_, kErrInvalidSession, "Session [%1] is not valid.", {Variant(sessionId)});
  } catch (...) {
    ErrorInRethrow("Session.CheckSession(sSessId)", {Variant(sessionId)});
  }
}

std::unique_ptr<db::Connection> Session::GetDatabaseLink() const {
  try {
    return db::OpenConnection(databaseText_);
  } catch (...) {
    ErrorInRethrow("Session.GetDatabaseLink()", {});
  }
}

void Session::InitialiseJobSettings() {
  try {
    std::unique_ptr<db::Connection> link = GetDatabaseLink();
    link->BeginTransaction();
    {
      std::unique_ptr<db::Recordset> job = link->LockRowsForUpdate("JOBDETAIL", "JOBID = ?", {jobId_});
      Check(!job->IsEOF(), kErrJobUndefined, "Job [%1] is invalid or undefined.", {Variant(jobId_)});
      jobInstance_ = static_cast<int32_t>(job->Int64("NEXTNO").value_or(0));
      jobConfigFile_ = Trim(job->Text("JOBCONFIG").value_or(""));
      maxInstance_ = static_cast<int32_t>(job->Int64("MAXINSTANCE").value_or(0));
    }
    link->Execute("UPDATE JOBDETAIL SET NEXTNO = ? WHERE JOBID = ?", {int64_t{jobInstance_} + 1, jobId_});
    link->CommitTransaction();
    AcquireLock();
  } catch (...) {
    ErrorInRethrow("Session.InitialiseJobSettings()", {});
  }
}

void Session::AcquireLock() {
  try {
    if (maxInstance_ < 1 || testMode_) return;
    lock_ = IsPostgreSql(databaseText_) ? JobLock::OnDatabase(databaseText_)
                                        : JobLock::InFolder((std::filesystem::path(debugPath_) / "locks").string());
    lockHeld_ = lock_->Acquire(jobId_, maxInstance_);
    Check(lockHeld_, kErrLockNotAcquired,
          "Job with ID [%1] failed to acquire semaphore lock or maximum concurrent job count reached.",
          {Variant(jobId_)});
  } catch (...) {
    ErrorInRethrow("Session.AcquireLock()", {});
  }
}

void Session::ReleaseLock() {
  try {
    if (lockHeld_ && lock_) {
      lockHeld_ = false;
      bool freed = testMode_ || lock_->Release();
      lock_.reset();
      Check(freed, kErrLockNotReleased, "Job with ID [%1] failed to gracefully release its semaphore lock.",
            {Variant(jobId_)});
    }
  } catch (...) {
    ErrorInRethrow("Session.ReleaseLock()", {});
  }
}

void Session::OpenJobDefinition() {
  try {
    auto document = MakeRef<XMLWrapper>();
    document->OpenXMLDocument((std::filesystem::path(workPath_) / jobConfigFile_).string());
    jobConfig_ = std::move(document);
    CheckVersion();
  } catch (...) {
    ErrorInRethrow("Session.OpenJobDefinition()", {});
  }
}

void Session::CheckVersion() {
  try {
    std::string version = jobConfig_->GetAttributeFromNode(jobConfig_->GetNodeFromXPath("/MAPPING"), "version");
    Check(version == kJobVersion, kErrInvalidVersion,
          "Job has an invalid version [%1]. Open the job in the designer to update the version.", {Variant(version)});
  } catch (...) {
    ErrorInRethrow("Session.CheckVersion()", {});
  }
}

}  // namespace tessel
