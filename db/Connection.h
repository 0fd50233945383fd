// Connection: one open connection to a relational database, behind which sits
// SQLite, PostgreSQL (libpq) or an ODBC driver (unixODBC).
//
// A connection is opened from its connection text by OpenConnection:
//   sqlite:PATH                     SQLite file, created when missing;
//                                   "sqlite::memory:" is a private memory database
//   postgresql://... postgres://... libpq URI
//   odbc:CONNECTION-STRING          ODBC connection string ("DRIVER=...;DATABASE=..."
//                                   or "DSN=..."); a string that itself starts
//                                   with DSN=, DRIVER= or FILEDSN= is taken as ODBC too
//   ManagedId=NAME                  the CONNECTSTR of row NAME of the job database's
//                                   DBCONNECT table, opened by the rules above
//
// Statements take positional parameters written `?` on every backend.
// Recordsets read forward only. Several may be open at once on the SQLite and
// PostgreSQL backends, and on ODBC as far as the driver allows. A recordset
// stays readable after its connection is closed or destroyed: it keeps what
// it needs of the native connection.
//
// A Connection belongs to one thread at a time. It owns its native handle
// and closes it when destroyed; destruction also rolls back a transaction
// still open.
//
// Errors raised (tessel::Error, numbers in the SQL range of the system):
//   9600 kConnectFailed         could not connect; message has the masked
//                               connection text and the backend's own message
//   9601 kStatementFailed       a statement failed; message has the SQL text and
//                               the backend's message (with SQLSTATE where known)
//   9602 kBadConnectionText     connection text of no known form
//   9603 kManagedConnectionMissing  ManagedId names no DBCONNECT row
//   9604 kConnectionClosed      operation on a closed connection
//   9605 kTransactionState      Begin inside a transaction, Commit/Rollback or
//                               LockRowsForUpdate outside one
//   9606 kTransactionConflict   the database gave up waiting for a lock, found a
//                               deadlock or a serialization failure; the
//                               transaction is lost and may be retried
//   9607 kParameterMismatch     number of `?` marks differs from the parameters
//   9608 kConversionFailed      a value cannot be read as the type asked for
//   9609 kNoCurrentRow          a value read from a recordset at its end
//   3265 kItemNotFound          no field of that name or ordinal (the number
//                               and text ADO gives for the same fault)
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "db/Recordset.h"
#include "db/SqlValue.h"

namespace tessel::db {

inline constexpr int32_t kConnectFailed = 9600;
inline constexpr int32_t kStatementFailed = 9601;
inline constexpr int32_t kBadConnectionText = 9602;
inline constexpr int32_t kManagedConnectionMissing = 9603;
inline constexpr int32_t kConnectionClosed = 9604;
inline constexpr int32_t kTransactionState = 9605;
inline constexpr int32_t kTransactionConflict = 9606;
inline constexpr int32_t kParameterMismatch = 9607;
inline constexpr int32_t kConversionFailed = 9608;
inline constexpr int32_t kNoCurrentRow = 9609;
inline constexpr int32_t kItemNotFound = 3265;

// Seconds a connection attempt may take before it fails with kConnectFailed,
// unless the connection text names its own limit.
inline constexpr int kConnectTimeoutSeconds = 5;
// Milliseconds a SQLite connection waits for another process's lock.
inline constexpr int kSqliteBusyTimeoutMs = 30000;

enum class BackendKind { Sqlite, PostgreSql, Odbc };

// The SQL spoken behind the connection; for ODBC it is read from the driver's
// DBMS name.
enum class SqlDialect { Sqlite, PostgreSql, SqlServer, Other };

enum class IsolationLevel { ReadCommitted, RepeatableRead, Serializable };

class Connection {
 public:
  virtual ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  virtual BackendKind Backend() const = 0;
  virtual SqlDialect Dialect() const = 0;

  // Name of the database product, e.g. "SQLite", "PostgreSQL", or for ODBC
  // the driver's DBMS name and driver name.
  virtual std::string Provider() const = 0;

  // 1 SQL Server, 2 Oracle, 3 MySQL, 4 anything else; see DatabaseTypeOf.
  int DatabaseType() const;

  // The connection text as opened, with any password replaced by "****".
  const std::string& ConnectionText() const { return connectionText_; }

  virtual bool IsOpen() const = 0;
  // Rolls back an open transaction and releases the native connection.
  // Closing twice is harmless.
  virtual void Close() = 0;

  // Runs a statement and returns the number of rows it changed (0 for
  // statements that change none). Without parameters the text may hold
  // several statements separated by ";" on SQLite and PostgreSQL.
  int64_t Execute(std::string_view sql, const Params& params = {});

  // Runs a query; the recordset stands on its first row (or at its end).
  std::unique_ptr<Recordset> OpenRecordset(std::string_view sql, const Params& params = {});

  // Starts a transaction. On SQLite every transaction takes the write lock
  // at once (BEGIN IMMEDIATE): a read followed by a write never deadlocks, and
  // other writers wait for the commit. The level applies on PostgreSQL and ODBC.
  void BeginTransaction(IsolationLevel level = IsolationLevel::ReadCommitted);
  void CommitTransaction();
  void RollbackTransaction();
  bool InTransaction() const { return inTransaction_; }

  // Reads `select * from TABLE where WHERE` and locks the rows read against
  // other writers until the transaction ends, so that a value read here can be
  // written back without another process taking the same value in between
  // (SELECT ... FOR UPDATE on PostgreSQL, WITH (UPDLOCK, ROWLOCK) on SQL
  // Server, the write lock of BEGIN IMMEDIATE on SQLite). Needs an open
  // transaction; raises kTransactionState otherwise.
  std::unique_ptr<Recordset> LockRowsForUpdate(std::string_view table, std::string_view where,
                                               const Params& params = {});

  // Maps a provider or product name to the DatabaseType number: containing
  // SQLNCLI, SQLOLEDB or SQL SERVER gives 1; MSDAORA or ORACLE 2; MYSQL 3;
  // anything else 4. Case is ignored.
  static int DatabaseTypeOf(std::string_view provider);

  // The connection text with the values of password=, pwd= and the password
  // part of a URI's user information replaced by "****".
  static std::string MaskPassword(std::string_view connectionText);

 protected:
  explicit Connection(std::string connectionText);

  // Backend work behind the public operations above; the base class has
  // already checked that the connection is open and the transaction state.
  virtual int64_t DoExecute(std::string_view sql, const Params& params) = 0;
  virtual std::unique_ptr<Recordset> DoOpenRecordset(std::string_view sql, const Params& params) = 0;
  virtual void DoBegin(IsolationLevel level) = 0;
  virtual void DoCommit() = 0;
  virtual void DoRollback() = 0;
  // Text of the locking query for LockRowsForUpdate.
  virtual std::string LockingSelect(std::string_view table, std::string_view where) const;

  void CheckOpen() const;
  // Backends call this when the database ended the transaction by itself.
  void MarkTransactionEnded() { inTransaction_ = false; }

 private:
  std::string connectionText_;
  bool inTransaction_ = false;
};

// Opens a connection of the forms listed above. ManagedId=NAME is refused
// with kBadConnectionText, as it needs the job database to resolve.
std::unique_ptr<Connection> OpenConnection(std::string_view connectionText);

// Opens a connection, resolving ManagedId=NAME through the DBCONNECT table of
// `jobDatabase` (which may be null when the text is not a managed reference).
std::unique_ptr<Connection> OpenConnection(std::string_view connectionText, Connection* jobDatabase);

// True when the text is a managed reference, "ManagedId=NAME".
bool IsManagedConnection(std::string_view connectionText);

// The CONNECTSTR of DBCONNECT row `id`; raises kManagedConnectionMissing.
std::string ResolveManagedConnection(std::string_view id, Connection& jobDatabase);

}  // namespace tessel::db
