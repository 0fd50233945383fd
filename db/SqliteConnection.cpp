#include "db/SqliteConnection.h"

#include <sqlite3.h>
#include <strings.h>

#include <cctype>

#include "core/Error.h"
#include "db/SqlText.h"

namespace tessel::db {

namespace {

bool IsConflict(int code) {
  int primary = code & 0xff;
  return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

[[noreturn]] void Fail(sqlite3* db, int code, std::string_view sql) {
  std::string message = db ? sqlite3_errmsg(db) : sqlite3_errstr(code);
  throw Error(IsConflict(code) ? kTransactionConflict : kStatementFailed,
              "SQL statement failed: " + std::string(sql) + "||" + message, "tessel.db");
}

bool OnlyBlanks(const char* text) {
  // Trailing blanks, semicolons and comments leave nothing to prepare.
  for (; *text; ++text) {
    if (!std::isspace(static_cast<unsigned char>(*text)) && *text != ';') return false;
  }
  return true;
}

void Bind(sqlite3* db, sqlite3_stmt* stmt, const Params& params, std::string_view sql) {
  int expected = sqlite3_bind_parameter_count(stmt);
  if (expected != static_cast<int>(params.size())) {
    throw Error(kParameterMismatch,
                "The statement has " + std::to_string(expected) + " parameter marks but " +
                    std::to_string(params.size()) + " values were given: " + std::string(sql),
                "tessel.db");
  }
  for (size_t i = 0; i < params.size(); ++i) {
    int at = static_cast<int>(i) + 1;
    const SqlValue& value = params[i];
    int rc = SQLITE_OK;
    if (IsNull(value)) {
      rc = sqlite3_bind_null(stmt, at);
    } else if (auto* b = std::get_if<bool>(&value)) {
      rc = sqlite3_bind_int64(stmt, at, *b ? 1 : 0);
    } else if (auto* n = std::get_if<int64_t>(&value)) {
      rc = sqlite3_bind_int64(stmt, at, *n);
    } else if (auto* d = std::get_if<double>(&value)) {
      rc = sqlite3_bind_double(stmt, at, *d);
    } else if (auto* s = std::get_if<std::string>(&value)) {
      rc = sqlite3_bind_text64(stmt, at, s->data(), s->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    } else if (auto* blob = std::get_if<Blob>(&value)) {
      rc = sqlite3_bind_blob64(stmt, at, blob->data(), blob->size(), SQLITE_TRANSIENT);
    }
    if (rc != SQLITE_OK) Fail(db, rc, sql);
  }
}

struct StatementDeleter {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

// Type from the declared column type, by SQLite's own affinity rules plus the
// names that say boolean, decimal or a date.
FieldType FromDeclared(const char* declared) {
  if (declared == nullptr) return FieldType::Unknown;
  std::string upper(declared);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  auto has = [&](const char* what) { return upper.find(what) != std::string::npos; };
  if (has("BOOL") || upper == "BIT") return FieldType::Boolean;
  if (has("DATETIME") || has("TIMESTAMP")) return FieldType::DateTime;
  if (has("DATE")) return FieldType::Date;
  if (upper == "TIME") return FieldType::Time;
  if (has("INT")) return FieldType::Integer;
  if (has("CHAR") || has("CLOB") || has("TEXT")) return FieldType::Text;
  if (has("BLOB") || has("BINARY")) return FieldType::Binary;
  if (has("REAL") || has("FLOA") || has("DOUB")) return FieldType::Real;
  if (has("DEC") || has("NUMERIC") || has("MONEY")) return FieldType::Decimal;
  return FieldType::Unknown;
}

class SqliteRecordset : public Recordset {
 public:
  SqliteRecordset(sqlite3* db, Statement stmt, std::string sql)
      : db_(db), stmt_(std::move(stmt)), sql_(std::move(sql)) {
    int count = sqlite3_column_count(stmt_.get());
    for (int i = 0; i < count; ++i) {
      const char* name = sqlite3_column_name(stmt_.get(), i);
      names_.emplace_back(name ? name : "");
      declared_.push_back(FromDeclared(sqlite3_column_decltype(stmt_.get(), i)));
    }
    Step();
  }

  bool IsEOF() const override { return eof_; }
  void Next() override {
    if (!eof_) Step();
  }
  void Close() override {
    stmt_.reset();
    eof_ = true;
  }
  int FieldCount() const override { return static_cast<int>(names_.size()); }

 protected:
  const std::string& DoFieldName(int index) const override { return names_[index]; }

  FieldType DoTypeOf(int index) const override {
    if (declared_[index] != FieldType::Unknown || eof_) return declared_[index];
    // An expression column has no declared type; its current value tells.
    switch (sqlite3_column_type(stmt_.get(), index)) {
      case SQLITE_INTEGER: return FieldType::Integer;
      case SQLITE_FLOAT: return FieldType::Real;
      case SQLITE_BLOB: return FieldType::Binary;
      case SQLITE_TEXT: return FieldType::Text;
      default: return FieldType::Unknown;
    }
  }

  SqlValue DoValue(int index) const override {
    sqlite3_stmt* stmt = stmt_.get();
    switch (sqlite3_column_type(stmt, index)) {
      case SQLITE_NULL: return std::monostate{};
      case SQLITE_INTEGER: {
        int64_t v = sqlite3_column_int64(stmt, index);
        if (declared_[index] == FieldType::Boolean) return v != 0;
        return v;
      }
      case SQLITE_FLOAT: return sqlite3_column_double(stmt, index);
      case SQLITE_BLOB: {
        auto* data = static_cast<const uint8_t*>(sqlite3_column_blob(stmt, index));
        int size = sqlite3_column_bytes(stmt, index);
        return data ? Blob(data, data + size) : Blob();
      }
      default: {
        auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, index));
        int size = sqlite3_column_bytes(stmt, index);
        return text ? std::string(text, size) : std::string();
      }
    }
  }

 private:
  void Step() {
    if (!stmt_) {
      eof_ = true;
      return;
    }
    int rc = sqlite3_step(stmt_.get());
    if (rc == SQLITE_ROW) {
      eof_ = false;
    } else if (rc == SQLITE_DONE) {
      eof_ = true;
    } else {
      eof_ = true;
      Fail(db_, rc, sql_);
    }
  }

  sqlite3* db_;
  Statement stmt_;
  std::string sql_;
  std::vector<std::string> names_;
  std::vector<FieldType> declared_;
  bool eof_ = true;
};

}  // namespace

SqliteConnection::SqliteConnection(const std::string& path, std::string connectionText)
    : Connection(std::move(connectionText)) {
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
  if (rc != SQLITE_OK) {
    std::string message = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
    sqlite3_close_v2(db_);
    db_ = nullptr;
    throw Error(kConnectFailed, "Could not connect to the database [" + ConnectionText() + "]: " + message,
                "tessel.db");
  }
  sqlite3_busy_timeout(db_, kSqliteBusyTimeoutMs);
  sqlite3_extended_result_codes(db_, 1);
  // A file that is not a database only shows itself at the first read.
  try {
    DoExecute("select count(*) from sqlite_master", {});
  } catch (const Error& e) {
    Close();
    throw Error(kConnectFailed,
                "Could not connect to the database [" + ConnectionText() + "]: " + e.description(), "tessel.db");
  }  // The job database takes many small commits (one per audit entry): a
  // write-ahead log makes each one an append instead of several syncs, and
  // lets readers go on while a job writes. Power loss may cost the last
  // commits, never the file's consistency.
  if (path != ":memory:") {
    try {
      DoExecute("PRAGMA journal_mode=WAL", {});
      DoExecute("PRAGMA synchronous=NORMAL", {});
    } catch (const Error&) {
      // Another process holding the file in another mode is no reason to fail.
    }
  }
}

SqliteConnection::~SqliteConnection() { Close(); }

std::string SqliteConnection::Provider() const { return std::string("SQLite ") + sqlite3_libversion(); }

void SqliteConnection::Close() {
  if (db_ == nullptr) return;
  if (InTransaction()) {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    MarkTransactionEnded();
  }
  // close_v2 defers the close until statements still open are finalised.
  sqlite3_close_v2(db_);
  db_ = nullptr;
}

int64_t SqliteConnection::DoExecute(std::string_view sql, const Params& params) {
  std::string text(sql);
  const char* next = text.c_str();
  int64_t changed = 0;
  bool first = true;
  while (!OnlyBlanks(next)) {
    sqlite3_stmt* raw = nullptr;
    const char* tail = nullptr;
    int rc = sqlite3_prepare_v2(db_, next, -1, &raw, &tail);
    Statement stmt(raw);
    if (rc != SQLITE_OK) Fail(db_, rc, sql);
    if (!stmt) break;  // only a comment was left
    if (first) {
      Bind(db_, stmt.get(), params, sql);
    } else if (sqlite3_bind_parameter_count(stmt.get()) > 0) {
      throw Error(kParameterMismatch, "Parameters can only be given to a single statement: " + text, "tessel.db");
    }
    first = false;
    int64_t before = sqlite3_total_changes64(db_);
    while ((rc = sqlite3_step(stmt.get())) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) Fail(db_, rc, sql);
    if (sqlite3_total_changes64(db_) != before) changed += sqlite3_changes64(db_);
    next = tail;
  }
  if (first && !params.empty()) {
    throw Error(kParameterMismatch, "Parameters were given to an empty statement.", "tessel.db");
  }
  return changed;
}

std::unique_ptr<Recordset> SqliteConnection::DoOpenRecordset(std::string_view sql, const Params& params) {
  std::string text(sql);
  sqlite3_stmt* raw = nullptr;
  int rc = sqlite3_prepare_v2(db_, text.c_str(), -1, &raw, nullptr);
  Statement stmt(raw);
  if (rc != SQLITE_OK) Fail(db_, rc, sql);
  if (!stmt) throw Error(kStatementFailed, "SQL statement failed: the statement is empty.", "tessel.db");
  Bind(db_, stmt.get(), params, sql);
  return std::make_unique<SqliteRecordset>(db_, std::move(stmt), std::move(text));
}

void SqliteConnection::DoBegin(IsolationLevel) { DoExecute("BEGIN IMMEDIATE", {}); }

void SqliteConnection::DoCommit() {
  try {
    DoExecute("COMMIT", {});
  } catch (...) {
    // A failed COMMIT may leave the transaction open; end it so that the
    // connection stays usable.
    if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

void SqliteConnection::DoRollback() {
  // The database may have rolled back by itself after an error.
  if (sqlite3_get_autocommit(db_)) return;
  DoExecute("ROLLBACK", {});
}

}  // namespace tessel::db
