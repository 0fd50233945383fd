#include "audit/EmbeddedLogQueue.h"

#include <chrono>

#include "db/Connection.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {
int64_t UnixSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}
}  // namespace

EmbeddedLogQueue::EmbeddedLogQueue(std::string connectionText) : connectionText_(std::move(connectionText)) {}

EmbeddedLogQueue::~EmbeddedLogQueue() = default;

void EmbeddedLogQueue::Open() {
  connection_ = db::OpenConnection(connectionText_);
  // The view feed's table is the queue's own; it is made on first use so that
  // older job databases work unchanged.
  connection_->Execute(
      "CREATE TABLE IF NOT EXISTS AUDITVIEW (BODY TEXT NOT NULL, EXPIRES BIGINT NOT NULL)");
}

bool EmbeddedLogQueue::IsOpen() const { return connection_ && connection_->IsOpen(); }

void EmbeddedLogQueue::SendToLog(const IntegrationLogEntry& entry) {
  connection_->Execute(
      "INSERT INTO AUDITLOG (LOGTYPE, PROCESSID, SOURCE, RESULTREASON, TFORMID, TIMESTAMP, INSTANCEID, "
      "RESULTCODE, UNIQUEID) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
      db::Params{int64_t{entry.LogType}, entry.JobId, entry.Source, entry.Reason, entry.TransformId, entry.AuditDate,
       int64_t{entry.InstanceID}, entry.ReasonCode, entry.UniqueId});
}

void EmbeddedLogQueue::SendToView(const IntegrationLogEntry& entry, std::chrono::seconds lifetime) {
  const int64_t now = UnixSeconds();
  // Purging on every copy would double the statements per entry; expired
  // copies may stand a few seconds longer than their lifetime instead.
  if (now - lastPurge_ >= kPurgeIntervalSeconds) {
    connection_->Execute("DELETE FROM AUDITVIEW WHERE EXPIRES < ?", {now});
    lastPurge_ = now;
  }
  connection_->Execute("INSERT INTO AUDITVIEW (BODY, EXPIRES) VALUES (?, ?)",
                       db::Params{entry.Serialise()->ToString(), now + lifetime.count()});
}

void EmbeddedLogQueue::Close() {
  if (connection_) connection_->Close();
  connection_.reset();
}

std::string EmbeddedLogQueue::Name() const { return "embedded:" + db::Connection::MaskPassword(connectionText_); }

}  // namespace tessel
