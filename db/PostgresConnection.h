// PostgresConnection: a Connection to a PostgreSQL server through libpq.
//
// Opened from a postgresql:// or postgres:// URI; a connection attempt gives
// up after kConnectTimeoutSeconds unless the URI sets connect_timeout, and TCP
// keepalives notice a server that goes away mid-session. The
// client encoding is UTF-8. `?` marks are turned into $1, $2, ... and values
// are sent as text for the server to type by their use, bytes as bytea.
// A query's rows are fetched whole, so that other statements may run on the
// connection while its recordset is open.
//
// Owns the PGconn; recordsets own their PGresult and do not refer back to it.
#pragma once

#include <memory>
#include <string>

#include "db/Connection.h"

typedef struct pg_conn PGconn;
typedef struct pg_result PGresult;

namespace tessel::db {

class PostgresConnection : public Connection {
 public:
  // Raises kConnectFailed with libpq's message.
  PostgresConnection(const std::string& uri, std::string connectionText);
  ~PostgresConnection() override;

  BackendKind Backend() const override { return BackendKind::PostgreSql; }
  SqlDialect Dialect() const override { return SqlDialect::PostgreSql; }
  std::string Provider() const override;
  bool IsOpen() const override { return conn_ != nullptr; }
  void Close() override;

 protected:
  int64_t DoExecute(std::string_view sql, const Params& params) override;
  std::unique_ptr<Recordset> DoOpenRecordset(std::string_view sql, const Params& params) override;
  void DoBegin(IsolationLevel level) override;
  void DoCommit() override;
  void DoRollback() override;

 private:
  struct ResultDeleter {
    void operator()(PGresult* result) const;
  };
  using Result = std::unique_ptr<PGresult, ResultDeleter>;

  // Runs the statement and raises on failure.
  Result Run(std::string_view sql, const Params& params);

  PGconn* conn_ = nullptr;
};

}  // namespace tessel::db
