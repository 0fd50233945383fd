// OdbcConnection: a Connection through the unixODBC driver manager.
//
// Opened from an ODBC connection string (DSN=... or DRIVER=...). Text crosses
// the driver boundary as UTF-16 (the wide API) and is UTF-8 on this side. The
// SQL dialect is taken from the driver's DBMS name: a SQLite driver gets the
// same BEGIN IMMEDIATE transactions as SqliteConnection, and a connection
// string naming a SQLite driver without a Timeout key gets one matching
// kSqliteBusyTimeoutMs. Other drivers get the isolation level through the
// connection attribute, and transactions by turning auto-commit off until
// commit or rollback.
//
// Owns the environment and connection handles together with the recordsets
// it made: the driver connection ends when the last of them goes. Close()
// rolls back and makes the connection refuse further work at once.
#pragma once

#include <memory>
#include <string>

#include "db/Connection.h"

namespace tessel::db {

class OdbcConnection : public Connection {
 public:
  // Raises kConnectFailed with the driver manager's diagnostics.
  OdbcConnection(const std::string& connectionString, std::string connectionText);
  ~OdbcConnection() override;

  BackendKind Backend() const override { return BackendKind::Odbc; }
  SqlDialect Dialect() const override { return dialect_; }
  std::string Provider() const override { return provider_; }
  bool IsOpen() const override;
  void Close() override;

 protected:
  int64_t DoExecute(std::string_view sql, const Params& params) override;
  std::unique_ptr<Recordset> DoOpenRecordset(std::string_view sql, const Params& params) override;
  void DoBegin(IsolationLevel level) override;
  void DoCommit() override;
  void DoRollback() override;

 private:
  class Handles;
  class Statement;
  class OdbcRecordset;

  void EndTransaction(bool commit);

  // Shared with the statements, so that a recordset outliving its
  // connection keeps the driver connection until it goes.
  std::shared_ptr<Handles> handles_;
  SqlDialect dialect_ = SqlDialect::Other;
  std::string provider_;
};

}  // namespace tessel::db
