#include "db/PostgresConnection.h"

#include <libpq-fe.h>

#include <charconv>
#include <cstring>

#include "core/Error.h"
#include "db/SqlText.h"

namespace tessel::db {

namespace {

// Type oids of the built-in types (pg_type.h).
constexpr Oid kBoolOid = 16;
constexpr Oid kByteaOid = 17;
constexpr Oid kInt8Oid = 20;
constexpr Oid kInt2Oid = 21;
constexpr Oid kInt4Oid = 23;
constexpr Oid kOidOid = 26;
constexpr Oid kFloat4Oid = 700;
constexpr Oid kFloat8Oid = 701;
constexpr Oid kMoneyOid = 790;
constexpr Oid kNumericOid = 1700;
constexpr Oid kDateOid = 1082;
constexpr Oid kTimeOid = 1083;
constexpr Oid kTimestampOid = 1114;
constexpr Oid kTimestampTzOid = 1184;
constexpr Oid kTimeTzOid = 1266;

std::string TrimMessage(const char* message) {
  std::string text = message ? message : "";
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

FieldType FromOid(Oid oid) {
  switch (oid) {
    case kBoolOid: return FieldType::Boolean;
    case kByteaOid: return FieldType::Binary;
    case kInt2Oid:
    case kInt4Oid:
    case kInt8Oid:
    case kOidOid: return FieldType::Integer;
    case kFloat4Oid:
    case kFloat8Oid: return FieldType::Real;
    case kNumericOid:
    case kMoneyOid: return FieldType::Decimal;
    case kDateOid: return FieldType::Date;
    case kTimeOid:
    case kTimeTzOid: return FieldType::Time;
    case kTimestampOid:
    case kTimestampTzOid: return FieldType::DateTime;
    default: return FieldType::Text;
  }
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// bytea in its text output form: \x followed by hex digits.
Blob DecodeBytea(const char* text, int length) {
  Blob out;
  if (length >= 2 && text[0] == '\\' && text[1] == 'x') {
    out.reserve((length - 2) / 2);
    for (int i = 2; i + 1 < length; i += 2) {
      int hi = HexDigit(text[i]), lo = HexDigit(text[i + 1]);
      if (hi < 0 || lo < 0) break;
      out.push_back(static_cast<uint8_t>(hi * 16 + lo));
    }
    return out;
  }
  // The older escape form.
  size_t size = 0;
  unsigned char* raw = PQunescapeBytea(reinterpret_cast<const unsigned char*>(text), &size);
  if (raw) {
    out.assign(raw, raw + size);
    PQfreemem(raw);
  }
  return out;
}

class PostgresRecordset : public Recordset {
 public:
  PostgresRecordset(PGresult* result) : result_(result) {
    rows_ = PQntuples(result);
    int count = PQnfields(result);
    for (int i = 0; i < count; ++i) {
      names_.emplace_back(PQfname(result, i));
      types_.push_back(FromOid(PQftype(result, i)));
    }
  }
  ~PostgresRecordset() override { Close(); }

  bool IsEOF() const override { return row_ >= rows_; }
  void Next() override {
    if (row_ < rows_) ++row_;
  }
  void Close() override {
    if (result_) PQclear(result_);
    result_ = nullptr;
    rows_ = 0;
    row_ = 0;
  }
  int FieldCount() const override { return static_cast<int>(names_.size()); }

 protected:
  const std::string& DoFieldName(int index) const override { return names_[index]; }
  FieldType DoTypeOf(int index) const override { return types_[index]; }

  SqlValue DoValue(int index) const override {
    if (PQgetisnull(result_, row_, index)) return std::monostate{};
    const char* text = PQgetvalue(result_, row_, index);
    int length = PQgetlength(result_, row_, index);
    switch (types_[index]) {
      case FieldType::Boolean: return text[0] == 't';
      case FieldType::Integer: {
        int64_t v = 0;
        auto [end, ec] = std::from_chars(text, text + length, v);
        if (ec == std::errc() && end == text + length) return v;
        return std::string(text, length);
      }
      case FieldType::Real: {
        SqlValue asText = std::string(text, length);
        return *ToDouble(asText);
      }
      case FieldType::Binary: return DecodeBytea(text, length);
      default: return std::string(text, length);
    }
  }

 private:
  PGresult* result_;
  int rows_ = 0;
  int row_ = 0;
  std::vector<std::string> names_;
  std::vector<FieldType> types_;
};

void IgnoreNotice(void*, const char*) {}

}  // namespace

void PostgresConnection::ResultDeleter::operator()(PGresult* result) const { PQclear(result); }

PostgresConnection::PostgresConnection(const std::string& uri, std::string connectionText)
    : Connection(std::move(connectionText)) {
  // The URI comes last so that what it sets itself wins.
  std::string timeout = std::to_string(kConnectTimeoutSeconds);
  // Keepalives make a server that vanishes mid-session fail the next
  // statement within a minute instead of leaving it waiting on the socket.
  const char* keywords[] = {"connect_timeout", "keepalives", "keepalives_idle", "keepalives_interval",
                            "keepalives_count", "tcp_user_timeout", "client_encoding", "dbname", nullptr};
  const char* values[] = {timeout.c_str(), "1", "30", "10", "3", "60000", "UTF8", uri.c_str(), nullptr};
  conn_ = PQconnectdbParams(keywords, values, 1);
  if (conn_ == nullptr || PQstatus(conn_) != CONNECTION_OK) {
    std::string message = conn_ ? TrimMessage(PQerrorMessage(conn_)) : "out of memory";
    if (conn_) PQfinish(conn_);
    conn_ = nullptr;
    throw Error(kConnectFailed, "Could not connect to the database [" + ConnectionText() + "]: " + message,
                "tessel.db");
  }
  PQsetNoticeProcessor(conn_, IgnoreNotice, nullptr);
}

PostgresConnection::~PostgresConnection() { Close(); }

std::string PostgresConnection::Provider() const {
  std::string provider = "PostgreSQL";
  if (conn_) {
    int version = PQserverVersion(conn_);
    provider += " " + std::to_string(version / 10000) + "." + std::to_string(version % 10000);
  }
  return provider;
}

void PostgresConnection::Close() {
  if (conn_ == nullptr) return;
  if (InTransaction()) MarkTransactionEnded();  // the server rolls back when the session ends
  PQfinish(conn_);
  conn_ = nullptr;
}

PostgresConnection::Result PostgresConnection::Run(std::string_view sql, const Params& params) {
  std::string text;
  Result result;
  int marks = SqlText::CountPlaceholders(sql);
  if (marks != static_cast<int>(params.size())) {
    throw Error(kParameterMismatch,
                "The statement has " + std::to_string(marks) + " parameter marks but " +
                    std::to_string(params.size()) + " values were given: " + std::string(sql),
                "tessel.db");
  }
  if (params.empty()) {
    // PQexec allows several statements in one text.
    text.assign(sql);
    result.reset(PQexec(conn_, text.c_str()));
  } else {
    text = SqlText::ToNumberedPlaceholders(sql);
    std::vector<std::string> texts(params.size());
    std::vector<const char*> values(params.size());
    std::vector<int> lengths(params.size());
    std::vector<int> formats(params.size());
    std::vector<Oid> types(params.size());
    for (size_t i = 0; i < params.size(); ++i) {
      const SqlValue& value = params[i];
      if (IsNull(value)) {
        values[i] = nullptr;
        continue;
      }
      if (auto* blob = std::get_if<Blob>(&value)) {
        texts[i].assign(blob->begin(), blob->end());
        formats[i] = 1;
        types[i] = kByteaOid;
      } else {
        // Booleans go as 1/0, which both boolean and integer columns accept.
        texts[i] = *ToText(value);
      }
      values[i] = texts[i].c_str();
      lengths[i] = static_cast<int>(texts[i].size());
    }
    result.reset(PQexecParams(conn_, text.c_str(), static_cast<int>(params.size()), types.data(), values.data(),
                              lengths.data(), formats.data(), 0));
  }
  ExecStatusType status = result ? PQresultStatus(result.get()) : PGRES_FATAL_ERROR;
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK || status == PGRES_EMPTY_QUERY) return result;

  std::string message = TrimMessage(result ? PQresultErrorMessage(result.get()) : PQerrorMessage(conn_));
  if (message.empty()) message = TrimMessage(PQerrorMessage(conn_));
  const char* state = result ? PQresultErrorField(result.get(), PG_DIAG_SQLSTATE) : nullptr;
  std::string sqlState = state ? state : "";
  // Serialization failure, deadlock, lock not available.
  bool conflict = sqlState == "40001" || sqlState == "40P01" || sqlState == "55P03";
  if (!sqlState.empty()) message = "[" + sqlState + "] " + message;
  if (PQstatus(conn_) == CONNECTION_BAD) message += " (the connection to the server is lost)";
  throw Error(conflict ? kTransactionConflict : kStatementFailed,
              "SQL statement failed: " + std::string(sql) + "||" + message, "tessel.db");
}

int64_t PostgresConnection::DoExecute(std::string_view sql, const Params& params) {
  Result result = Run(sql, params);
  // A query reports the rows it returned, which are not changes.
  if (std::strncmp(PQcmdStatus(result.get()), "SELECT", 6) == 0) return 0;
  const char* tuples = PQcmdTuples(result.get());
  int64_t changed = 0;
  if (tuples && *tuples) std::from_chars(tuples, tuples + std::strlen(tuples), changed);
  return changed;
}

std::unique_ptr<Recordset> PostgresConnection::DoOpenRecordset(std::string_view sql, const Params& params) {
  Result result = Run(sql, params);
  return std::make_unique<PostgresRecordset>(result.release());
}

void PostgresConnection::DoBegin(IsolationLevel level) {
  const char* sql = "BEGIN ISOLATION LEVEL READ COMMITTED";
  if (level == IsolationLevel::RepeatableRead) sql = "BEGIN ISOLATION LEVEL REPEATABLE READ";
  if (level == IsolationLevel::Serializable) sql = "BEGIN ISOLATION LEVEL SERIALIZABLE";
  Run(sql, {});
}

void PostgresConnection::DoCommit() {
  Result result = Run("COMMIT", {});
  // COMMIT of a transaction that failed earlier rolls back without an error.
  if (std::strcmp(PQcmdStatus(result.get()), "ROLLBACK") == 0) {
    throw Error(kStatementFailed,
                "SQL statement failed: COMMIT||The transaction had failed earlier and was rolled back.",
                "tessel.db");
  }
}

void PostgresConnection::DoRollback() { Run("ROLLBACK", {}); }

}  // namespace tessel::db
