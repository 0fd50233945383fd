// SqliteConnection: a Connection over one SQLite database file.
//
// The file is created when missing. Other processes' locks are waited for
// (kSqliteBusyTimeoutMs) rather than failed on. Every transaction is begun
// with BEGIN IMMEDIATE, so that a transaction that reads and then writes holds
// the write lock from its start: two processes taking the next number from a
// row can never both read the same value. Recordsets step the live statement,
// so a large result is not held in memory.
//
// Owns the sqlite3 handle. Closing with recordsets still open leaves the
// handle to SQLite until the last of them is finalised.
#pragma once

#include <memory>
#include <string>

#include "db/Connection.h"

struct sqlite3;

namespace tessel::db {

class SqliteConnection : public Connection {
 public:
  // path: file name, or ":memory:". Raises kConnectFailed.
  SqliteConnection(const std::string& path, std::string connectionText);
  ~SqliteConnection() override;

  BackendKind Backend() const override { return BackendKind::Sqlite; }
  SqlDialect Dialect() const override { return SqlDialect::Sqlite; }
  std::string Provider() const override;
  bool IsOpen() const override { return db_ != nullptr; }
  void Close() override;

 protected:
  int64_t DoExecute(std::string_view sql, const Params& params) override;
  std::unique_ptr<Recordset> DoOpenRecordset(std::string_view sql, const Params& params) override;
  void DoBegin(IsolationLevel level) override;
  void DoCommit() override;
  void DoRollback() override;

 private:
  sqlite3* db_ = nullptr;
};

}  // namespace tessel::db
