#include "db/OdbcConnection.h"

#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <cctype>
#include <cstring>

#include "core/Error.h"
#include "db/SqlText.h"

namespace tessel::db {

static_assert(sizeof(SQLWCHAR) == sizeof(char16_t), "unixODBC wide characters are expected to be UTF-16");

namespace {

std::u16string ToUtf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    char32_t code;
    size_t extra;
    if (c < 0x80) {
      code = c;
      extra = 0;
    } else if ((c & 0xE0) == 0xC0) {
      code = c & 0x1F;
      extra = 1;
    } else if ((c & 0xF0) == 0xE0) {
      code = c & 0x0F;
      extra = 2;
    } else if ((c & 0xF8) == 0xF0) {
      code = c & 0x07;
      extra = 3;
    } else {
      out.push_back(0xFFFD);
      ++i;
      continue;
    }
    bool valid = true;
    for (size_t k = 1; k <= extra; ++k) {
      if (i + k >= text.size() || (static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) {
        valid = false;
        break;
      }
      code = (code << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
    }
    if (!valid || code > 0x10FFFF) {
      out.push_back(0xFFFD);
      ++i;
      continue;
    }
    i += extra + 1;
    if (code >= 0x10000) {
      code -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(code));
    }
  }
  return out;
}

std::string ToUtf8(const char16_t* text, size_t length) {
  std::string out;
  out.reserve(length);
  for (size_t i = 0; i < length; ++i) {
    char32_t code = text[i];
    if (code >= 0xD800 && code <= 0xDBFF && i + 1 < length && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      code = 0x10000 + ((code - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (code >= 0xD800 && code <= 0xDFFF) {
      code = 0xFFFD;
    }
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (code >> 18));
      out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return out;
}

SQLWCHAR* Wide(std::u16string& text) { return reinterpret_cast<SQLWCHAR*>(text.data()); }

struct Diagnostics {
  std::string message;
  std::string sqlState;  // of the first record
};

Diagnostics Diagnose(SQLSMALLINT handleType, SQLHANDLE handle) {
  Diagnostics diag;
  if (handle == SQL_NULL_HANDLE) return diag;
  for (SQLSMALLINT record = 1; record <= 10; ++record) {
    SQLWCHAR state[6] = {};
    SQLINTEGER nativeError = 0;
    SQLWCHAR text[1024] = {};
    SQLSMALLINT textLength = 0;
    SQLRETURN rc = SQLGetDiagRecW(handleType, handle, record, state, &nativeError, text,
                                  static_cast<SQLSMALLINT>(sizeof text / sizeof text[0]), &textLength);
    if (!SQL_SUCCEEDED(rc)) break;
    std::string stateText = ToUtf8(reinterpret_cast<const char16_t*>(state), 5);
    if (record == 1) diag.sqlState = stateText;
    size_t length = std::min<size_t>(textLength, sizeof text / sizeof text[0] - 1);
    if (!diag.message.empty()) diag.message += "||";
    diag.message += "[" + stateText + "] " + ToUtf8(reinterpret_cast<const char16_t*>(text), length);
  }
  if (diag.message.empty()) diag.message = "the driver gave no diagnostics";
  return diag;
}

std::string InfoText(SQLHDBC dbc, SQLUSMALLINT what) {
  SQLWCHAR buffer[256] = {};
  SQLSMALLINT length = 0;
  if (!SQL_SUCCEEDED(SQLGetInfoW(dbc, what, buffer, sizeof buffer, &length))) return {};
  size_t chars = std::min<size_t>(length / sizeof(SQLWCHAR), sizeof buffer / sizeof buffer[0] - 1);
  return ToUtf8(reinterpret_cast<const char16_t*>(buffer), chars);
}

FieldType FromSqlType(SQLSMALLINT type) {
  switch (type) {
    case SQL_BIT: return FieldType::Boolean;
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER:
    case SQL_BIGINT: return FieldType::Integer;
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE: return FieldType::Real;
    case SQL_DECIMAL:
    case SQL_NUMERIC: return FieldType::Decimal;
    case SQL_TYPE_DATE:
    case SQL_DATE: return FieldType::Date;
    case SQL_TYPE_TIME:
    case SQL_TIME: return FieldType::Time;
    case SQL_TYPE_TIMESTAMP:
    case SQL_TIMESTAMP: return FieldType::DateTime;
    case SQL_BINARY:
    case SQL_VARBINARY:
    case SQL_LONGVARBINARY: return FieldType::Binary;
    default: return FieldType::Text;
  }
}

std::string Upper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// The SQLite driver waits for another process's lock as long as its Timeout
// key says (in milliseconds, and it tries twice), a long time by default. A
// connection string that names the driver and no Timeout gets one so that the
// wait matches SqliteConnection's. A DSN keeps what it defines.
std::string WithSqliteBusyTimeout(const std::string& connectionString) {
  std::string upper = Upper(connectionString);
  size_t driver = upper.find("DRIVER=");
  if (driver == std::string::npos) return connectionString;
  size_t end = upper.find(';', driver);
  if (upper.substr(driver, end - driver).find("SQLITE") == std::string::npos) return connectionString;
  if (upper.find("TIMEOUT=") != std::string::npos) return connectionString;
  std::string out = connectionString;
  if (!out.empty() && out.back() != ';') out += ';';
  return out + "Timeout=" + std::to_string(kSqliteBusyTimeoutMs / 2) + ";";
}

}  // namespace

// The environment and connection handles, released in reverse order.
class OdbcConnection::Handles {
 public:
  ~Handles() {
    if (connected) SQLDisconnect(dbc);
    if (dbc != SQL_NULL_HDBC) SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    if (env != SQL_NULL_HENV) SQLFreeHandle(SQL_HANDLE_ENV, env);
  }
  SQLHENV env = SQL_NULL_HENV;
  SQLHDBC dbc = SQL_NULL_HDBC;
  bool connected = false;
};

// One executed statement with the parameter buffers it was bound to.
class OdbcConnection::Statement {
 public:
  Statement(std::shared_ptr<Handles> handles, SqlDialect dialect, std::string_view sql, const Params& params)
      : handles_(std::move(handles)), dialect_(dialect), sql_(sql) {
    SQLHDBC dbc = handles_->dbc;
    int marks = SqlText::CountPlaceholders(sql);
    if (marks != static_cast<int>(params.size())) {
      throw Error(kParameterMismatch,
                  "The statement has " + std::to_string(marks) + " parameter marks but " +
                      std::to_string(params.size()) + " values were given: " + sql_,
                  "tessel.db");
    }
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt_))) {
      stmt_ = SQL_NULL_HSTMT;
      Fail(Diagnose(SQL_HANDLE_DBC, dbc));
    }
    buffers_.resize(params.size());
    for (size_t i = 0; i < params.size(); ++i) Bind(static_cast<SQLUSMALLINT>(i + 1), params[i], buffers_[i]);
    std::u16string text = ToUtf16(sql);
    SQLRETURN rc = SQLExecDirectW(stmt_, Wide(text), static_cast<SQLINTEGER>(text.size()));
    if (rc != SQL_NO_DATA && !SQL_SUCCEEDED(rc)) Fail();
  }
  ~Statement() {
    if (stmt_ != SQL_NULL_HSTMT) {
      SQLFreeStmt(stmt_, SQL_CLOSE);
      SQLFreeHandle(SQL_HANDLE_STMT, stmt_);
    }
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  SQLHSTMT handle() const { return stmt_; }
  const std::string& sql() const { return sql_; }

  [[noreturn]] void Fail() const { Fail(Diagnose(SQL_HANDLE_STMT, stmt_)); }

  [[noreturn]] void Fail(const Diagnostics& diag) const {
    bool conflict = diag.sqlState == "40001" || diag.sqlState == "40P01" || diag.sqlState == "HYT00" ||
                    (dialect_ == SqlDialect::Sqlite && diag.message.find("database is locked") != std::string::npos);
    throw Error(conflict ? kTransactionConflict : kStatementFailed,
                "SQL statement failed: " + sql_ + "||" + diag.message, "tessel.db");
  }

 private:
  struct Buffer {
    int64_t integer = 0;
    double real = 0;
    std::u16string text;
    Blob bytes;
    SQLLEN indicator = 0;
  };

  void Bind(SQLUSMALLINT at, const SqlValue& value, Buffer& buffer) {
    SQLRETURN rc;
    if (IsNull(value)) {
      buffer.indicator = SQL_NULL_DATA;
      rc = SQLBindParameter(stmt_, at, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 1, 0, nullptr, 0,
                            &buffer.indicator);
    } else if (std::holds_alternative<bool>(value) || std::holds_alternative<int64_t>(value)) {
      // Booleans go as 1/0, which both bit and integer columns accept.
      buffer.integer = *ToInt64(value);
      rc = SQLBindParameter(stmt_, at, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 0, 0, &buffer.integer, 0,
                            nullptr);
    } else if (auto* d = std::get_if<double>(&value)) {
      buffer.real = *d;
      rc = SQLBindParameter(stmt_, at, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 15, 0, &buffer.real, 0, nullptr);
    } else if (auto* s = std::get_if<std::string>(&value)) {
      buffer.text = ToUtf16(*s);
      buffer.indicator = static_cast<SQLLEN>(buffer.text.size() * sizeof(char16_t));
      SQLULEN size = std::max<SQLULEN>(1, buffer.text.size());
      SQLSMALLINT type = size > 4000 ? SQL_WLONGVARCHAR : SQL_WVARCHAR;
      rc = SQLBindParameter(stmt_, at, SQL_PARAM_INPUT, SQL_C_WCHAR, type, size, 0, buffer.text.data(),
                            buffer.indicator, &buffer.indicator);
    } else {
      buffer.bytes = std::get<Blob>(value);
      buffer.indicator = static_cast<SQLLEN>(buffer.bytes.size());
      SQLULEN size = std::max<SQLULEN>(1, buffer.bytes.size());
      rc = SQLBindParameter(stmt_, at, SQL_PARAM_INPUT, SQL_C_BINARY, SQL_LONGVARBINARY, size, 0,
                            buffer.bytes.data(), buffer.indicator, &buffer.indicator);
    }
    if (!SQL_SUCCEEDED(rc)) Fail();
  }

  std::shared_ptr<Handles> handles_;  // declared first: released last
  SqlDialect dialect_;
  std::string sql_;
  SQLHSTMT stmt_ = SQL_NULL_HSTMT;
  std::vector<Buffer> buffers_;
};

class OdbcConnection::OdbcRecordset : public Recordset {
 public:
  explicit OdbcRecordset(std::unique_ptr<Statement> statement) : statement_(std::move(statement)) {
    SQLHSTMT stmt = statement_->handle();
    SQLSMALLINT columns = 0;
    if (!SQL_SUCCEEDED(SQLNumResultCols(stmt, &columns))) statement_->Fail();
    for (SQLSMALLINT i = 1; i <= columns; ++i) {
      SQLWCHAR name[256] = {};
      SQLSMALLINT nameLength = 0, dataType = 0, decimals = 0, nullable = 0;
      SQLULEN size = 0;
      if (!SQL_SUCCEEDED(SQLDescribeColW(stmt, i, name, static_cast<SQLSMALLINT>(sizeof name / sizeof name[0]),
                                         &nameLength, &dataType, &size, &decimals, &nullable))) {
        statement_->Fail();
      }
      size_t chars = std::min<size_t>(nameLength, sizeof name / sizeof name[0] - 1);
      names_.push_back(ToUtf8(reinterpret_cast<const char16_t*>(name), chars));
      types_.push_back(FromSqlType(dataType));
    }
    row_.resize(columns);
    eof_ = columns == 0;
    if (!eof_) Fetch();
  }

  bool IsEOF() const override { return eof_; }
  void Next() override {
    if (!eof_) Fetch();
  }
  void Close() override {
    statement_.reset();
    eof_ = true;
  }
  int FieldCount() const override { return static_cast<int>(names_.size()); }

 protected:
  const std::string& DoFieldName(int index) const override { return names_[index]; }
  FieldType DoTypeOf(int index) const override { return types_[index]; }
  SqlValue DoValue(int index) const override { return row_[index]; }

 private:
  void Fetch() {
    SQLRETURN rc = SQLFetch(statement_->handle());
    if (rc == SQL_NO_DATA) {
      eof_ = true;
      return;
    }
    if (!SQL_SUCCEEDED(rc)) {
      eof_ = true;
      statement_->Fail();
    }
    // Columns are read in order once per row: some drivers allow SQLGetData
    // only in ascending column order.
    for (size_t i = 0; i < row_.size(); ++i) row_[i] = Read(static_cast<SQLUSMALLINT>(i + 1), types_[i]);
  }

  SqlValue Read(SQLUSMALLINT column, FieldType type) {
    SQLHSTMT stmt = statement_->handle();
    SQLLEN indicator = 0;
    switch (type) {
      case FieldType::Boolean:
      case FieldType::Integer: {
        int64_t value = 0;
        if (!SQL_SUCCEEDED(SQLGetData(stmt, column, SQL_C_SBIGINT, &value, 0, &indicator))) statement_->Fail();
        if (indicator == SQL_NULL_DATA) return std::monostate{};
        if (type == FieldType::Boolean) return value != 0;
        return value;
      }
      case FieldType::Real: {
        double value = 0;
        if (!SQL_SUCCEEDED(SQLGetData(stmt, column, SQL_C_DOUBLE, &value, 0, &indicator))) statement_->Fail();
        if (indicator == SQL_NULL_DATA) return std::monostate{};
        return value;
      }
      case FieldType::Binary: {
        Blob bytes;
        uint8_t chunk[8192];
        while (true) {
          SQLRETURN rc = SQLGetData(stmt, column, SQL_C_BINARY, chunk, sizeof chunk, &indicator);
          if (rc == SQL_NO_DATA) break;
          if (!SQL_SUCCEEDED(rc)) statement_->Fail();
          if (indicator == SQL_NULL_DATA) return std::monostate{};
          bool last = indicator != SQL_NO_TOTAL && indicator <= static_cast<SQLLEN>(sizeof chunk);
          size_t got = last ? static_cast<size_t>(indicator) : sizeof chunk;
          bytes.insert(bytes.end(), chunk, chunk + got);
          if (last) break;
        }
        return bytes;
      }
      default: {
        std::u16string text;
        char16_t chunk[2048];
        constexpr SQLLEN kChunkBytes = sizeof chunk;
        while (true) {
          SQLRETURN rc = SQLGetData(stmt, column, SQL_C_WCHAR, chunk, kChunkBytes, &indicator);
          if (rc == SQL_NO_DATA) break;
          if (!SQL_SUCCEEDED(rc)) statement_->Fail();
          if (indicator == SQL_NULL_DATA) return std::monostate{};
          // A chunk that did not fit holds the buffer less its terminator.
          bool last = indicator != SQL_NO_TOTAL && indicator < kChunkBytes;
          size_t chars = last ? static_cast<size_t>(indicator) / sizeof(char16_t)
                              : static_cast<size_t>(kChunkBytes) / sizeof(char16_t) - 1;
          text.append(chunk, chars);
          if (last) break;
        }
        return ToUtf8(text.data(), text.size());
      }
    }
  }

  std::unique_ptr<Statement> statement_;
  std::vector<std::string> names_;
  std::vector<FieldType> types_;
  std::vector<SqlValue> row_;
  bool eof_ = true;
};

OdbcConnection::OdbcConnection(const std::string& connectionString, std::string connectionText)
    : Connection(std::move(connectionText)), handles_(std::make_shared<Handles>()) {
  auto fail = [&](const std::string& message) {
    handles_.reset();
    throw Error(kConnectFailed, "Could not connect to the database [" + ConnectionText() + "]: " + message,
                "tessel.db");
  };
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &handles_->env))) {
    handles_->env = SQL_NULL_HENV;
    fail("the ODBC environment could not be made");
  }
  SQLSetEnvAttr(handles_->env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, handles_->env, &handles_->dbc))) {
    handles_->dbc = SQL_NULL_HDBC;
    fail(Diagnose(SQL_HANDLE_ENV, handles_->env).message);
  }
  SQLSetConnectAttr(handles_->dbc, SQL_ATTR_LOGIN_TIMEOUT,
                    reinterpret_cast<SQLPOINTER>(static_cast<intptr_t>(kConnectTimeoutSeconds)), 0);
  SQLSetConnectAttr(handles_->dbc, SQL_ATTR_CONNECTION_TIMEOUT,
                    reinterpret_cast<SQLPOINTER>(static_cast<intptr_t>(kConnectTimeoutSeconds)), 0);
  std::u16string text = ToUtf16(WithSqliteBusyTimeout(connectionString));
  SQLWCHAR out[1024];
  SQLSMALLINT outLength = 0;
  SQLRETURN rc = SQLDriverConnectW(handles_->dbc, nullptr, Wide(text), static_cast<SQLSMALLINT>(text.size()), out,
                                   static_cast<SQLSMALLINT>(sizeof out / sizeof out[0]), &outLength,
                                   SQL_DRIVER_NOPROMPT);
  if (!SQL_SUCCEEDED(rc)) fail(Diagnose(SQL_HANDLE_DBC, handles_->dbc).message);
  handles_->connected = true;

  std::string dbms = InfoText(handles_->dbc, SQL_DBMS_NAME);
  std::string driver = InfoText(handles_->dbc, SQL_DRIVER_NAME);
  provider_ = dbms + " (" + driver + ")";
  std::string upper = Upper(dbms);
  if (upper.find("SQLITE") != std::string::npos) {
    dialect_ = SqlDialect::Sqlite;
  } else if (upper.find("POSTGRES") != std::string::npos) {
    dialect_ = SqlDialect::PostgreSql;
  } else if (upper.find("SQL SERVER") != std::string::npos) {
    dialect_ = SqlDialect::SqlServer;
  }
}

OdbcConnection::~OdbcConnection() { Close(); }

bool OdbcConnection::IsOpen() const { return handles_ != nullptr; }

void OdbcConnection::Close() {
  if (!handles_) return;
  if (InTransaction()) {
    MarkTransactionEnded();
    try {
      EndTransaction(false);
    } catch (const Error&) {
      // The connection goes anyway; the server rolls back on disconnect.
    }
  }
  handles_.reset();
}

int64_t OdbcConnection::DoExecute(std::string_view sql, const Params& params) {
  Statement statement(handles_, dialect_, sql, params);
  // A query reports the rows it returned, which are not changes.
  SQLSMALLINT columns = 0;
  if (SQL_SUCCEEDED(SQLNumResultCols(statement.handle(), &columns)) && columns > 0) return 0;
  SQLLEN rows = 0;
  if (!SQL_SUCCEEDED(SQLRowCount(statement.handle(), &rows)) || rows < 0) rows = 0;
  return rows;
}

std::unique_ptr<Recordset> OdbcConnection::DoOpenRecordset(std::string_view sql, const Params& params) {
  return std::make_unique<OdbcRecordset>(std::make_unique<Statement>(handles_, dialect_, sql, params));
}

void OdbcConnection::DoBegin(IsolationLevel level) {
  if (dialect_ == SqlDialect::Sqlite) {
    DoExecute("BEGIN IMMEDIATE", {});
    return;
  }
  SQLULEN isolation = SQL_TXN_READ_COMMITTED;
  if (level == IsolationLevel::RepeatableRead) isolation = SQL_TXN_REPEATABLE_READ;
  if (level == IsolationLevel::Serializable) isolation = SQL_TXN_SERIALIZABLE;
  auto check = [&](SQLRETURN rc, const char* what) {
    if (!SQL_SUCCEEDED(rc)) {
      throw Error(kStatementFailed, std::string("SQL statement failed: ") + what + "||" +
                                        Diagnose(SQL_HANDLE_DBC, handles_->dbc).message,
                  "tessel.db");
    }
  };
  check(SQLSetConnectAttr(handles_->dbc, SQL_ATTR_TXN_ISOLATION, reinterpret_cast<SQLPOINTER>(isolation), 0),
        "set isolation level");
  check(SQLSetConnectAttr(handles_->dbc, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0),
        "begin transaction");
}

void OdbcConnection::EndTransaction(bool commit) {
  if (dialect_ == SqlDialect::Sqlite) {
    try {
      DoExecute(commit ? "COMMIT" : "ROLLBACK", {});
    } catch (const Error&) {
      if (commit) {
        try {
          DoExecute("ROLLBACK", {});
        } catch (const Error&) {
          // Already ended by the database.
        }
        throw;
      }
      // A rollback fails when the database has already ended the transaction.
    }
    return;
  }
  SQLRETURN rc = SQLEndTran(SQL_HANDLE_DBC, handles_->dbc, commit ? SQL_COMMIT : SQL_ROLLBACK);
  Diagnostics diag;
  if (!SQL_SUCCEEDED(rc)) {
    diag = Diagnose(SQL_HANDLE_DBC, handles_->dbc);
    if (commit) SQLEndTran(SQL_HANDLE_DBC, handles_->dbc, SQL_ROLLBACK);
  }
  SQLSetConnectAttr(handles_->dbc, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), 0);
  SQLSetConnectAttr(handles_->dbc, SQL_ATTR_TXN_ISOLATION, reinterpret_cast<SQLPOINTER>(SQL_TXN_READ_COMMITTED), 0);
  if (!SQL_SUCCEEDED(rc)) {
    bool conflict = diag.sqlState == "40001" || diag.sqlState == "40P01";
    throw Error(conflict ? kTransactionConflict : kStatementFailed,
                std::string("SQL statement failed: ") + (commit ? "COMMIT" : "ROLLBACK") + "||" + diag.message,
                "tessel.db");
  }
}

void OdbcConnection::DoCommit() { EndTransaction(true); }

void OdbcConnection::DoRollback() { EndTransaction(false); }

}  // namespace tessel::db
