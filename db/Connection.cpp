#include "db/Connection.h"

#include <strings.h>

#include <algorithm>
#include <cctype>

#include "core/Error.h"
#include "db/OdbcConnection.h"
#include "db/PostgresConnection.h"
#include "db/SqlText.h"
#include "db/SqliteConnection.h"

namespace tessel::db {

namespace {

constexpr std::string_view kManagedPrefix = "ManagedId=";

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

std::string Upper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return text;
}

[[noreturn]] void BadText(std::string_view text, const std::string& why) {
  throw Error(kBadConnectionText,
              "Connection text [" + Connection::MaskPassword(text) + "] is not understood: " + why +
                  " Use sqlite:PATH, postgresql://..., odbc:CONNECTION-STRING or ManagedId=NAME.",
              "tessel.db");
}

}  // namespace

Connection::Connection(std::string connectionText) : connectionText_(MaskPassword(connectionText)) {}

Connection::~Connection() = default;

int Connection::DatabaseType() const { return DatabaseTypeOf(Provider()); }

int Connection::DatabaseTypeOf(std::string_view provider) {
  std::string upper = Upper(provider);
  auto has = [&](const char* what) { return upper.find(what) != std::string::npos; };
  if (has("SQLNCLI") || has("SQLOLEDB") || has("SQL SERVER")) return 1;
  if (has("MSDAORA") || has("ORACLE")) return 2;
  if (has("MYSQL")) return 3;
  return 4;
}

std::string Connection::MaskPassword(std::string_view text) {
  std::string out(text);
  // user:password@ in a URI
  size_t scheme = out.find("://");
  if (scheme != std::string::npos) {
    size_t authorityStart = scheme + 3;
    size_t authorityEnd = out.find_first_of("/?", authorityStart);
    if (authorityEnd == std::string::npos) authorityEnd = out.size();
    size_t at = out.rfind('@', authorityEnd);
    if (at != std::string::npos && at >= authorityStart) {
      size_t colon = out.find(':', authorityStart);
      if (colon != std::string::npos && colon < at) out.replace(colon + 1, at - colon - 1, "****");
    }
  }
  // password=value and pwd=value, separated by ; & ? or blanks
  for (std::string_view key : {std::string_view("password="), std::string_view("pwd=")}) {
    size_t from = 0;
    while (true) {
      std::string upper = Upper(out);
      size_t pos = upper.find(Upper(key), from);
      if (pos == std::string::npos) break;
      bool atStart = pos == 0 || out[pos - 1] == ';' || out[pos - 1] == '&' || out[pos - 1] == '?' ||
                     std::isspace(static_cast<unsigned char>(out[pos - 1]));
      size_t valueStart = pos + key.size();
      if (!atStart) {
        from = valueStart;
        continue;
      }
      size_t valueEnd;
      if (valueStart < out.size() && out[valueStart] == '{') {
        // Inside braces "}}" stands for one "}".
        valueEnd = valueStart + 1;
        while (valueEnd < out.size()) {
          if (out[valueEnd] == '}') {
            if (valueEnd + 1 < out.size() && out[valueEnd + 1] == '}') {
              valueEnd += 2;
              continue;
            }
            ++valueEnd;
            break;
          }
          ++valueEnd;
        }
      } else {
        valueEnd = out.find_first_of(";& ", valueStart);
        if (valueEnd == std::string::npos) valueEnd = out.size();
      }
      out.replace(valueStart, valueEnd - valueStart, "****");
      from = valueStart + 4;
    }
  }
  return out;
}

void Connection::CheckOpen() const {
  if (!IsOpen()) {
    throw Error(kConnectionClosed, "The database connection [" + connectionText_ + "] is not open.", "tessel.db");
  }
}

int64_t Connection::Execute(std::string_view sql, const Params& params) {
  CheckOpen();
  return DoExecute(sql, params);
}

std::unique_ptr<Recordset> Connection::OpenRecordset(std::string_view sql, const Params& params) {
  CheckOpen();
  return DoOpenRecordset(sql, params);
}

void Connection::BeginTransaction(IsolationLevel level) {
  CheckOpen();
  if (inTransaction_) {
    throw Error(kTransactionState, "A transaction is already open on this connection.", "tessel.db");
  }
  DoBegin(level);
  inTransaction_ = true;
}

void Connection::CommitTransaction() {
  CheckOpen();
  if (!inTransaction_) throw Error(kTransactionState, "There is no open transaction to commit.", "tessel.db");
  // The transaction is over whether the commit succeeds or not.
  inTransaction_ = false;
  DoCommit();
}

void Connection::RollbackTransaction() {
  CheckOpen();
  if (!inTransaction_) throw Error(kTransactionState, "There is no open transaction to roll back.", "tessel.db");
  inTransaction_ = false;
  DoRollback();
}

std::string Connection::LockingSelect(std::string_view table, std::string_view where) const {
  std::string sql = "select * from " + std::string(table);
  if (Dialect() == SqlDialect::SqlServer) sql += " with (updlock, rowlock)";
  if (!where.empty()) sql += " where " + std::string(where);
  if (Dialect() == SqlDialect::PostgreSql || Dialect() == SqlDialect::Other) sql += " for update";
  return sql;
}

std::unique_ptr<Recordset> Connection::LockRowsForUpdate(std::string_view table, std::string_view where,
                                                         const Params& params) {
  CheckOpen();
  if (!inTransaction_) {
    throw Error(kTransactionState, "Rows of [" + std::string(table) + "] can only be locked inside a transaction.",
                "tessel.db");
  }
  return DoOpenRecordset(LockingSelect(table, where), params);
}

bool IsManagedConnection(std::string_view connectionText) {
  return StartsWithNoCase(Trim(connectionText), kManagedPrefix);
}

std::string ResolveManagedConnection(std::string_view id, Connection& jobDatabase) {
  auto rs = jobDatabase.OpenRecordset("select CONNECTSTR from DBCONNECT where ID = ?", {std::string(id)});
  if (rs->IsEOF()) {
    throw Error(kManagedConnectionMissing,
                "Managed Database connection [" + std::string(id) +
                    "] does not exist. Please either modify the integration configuration to use a valid managed "
                    "database connection, or add the managed connecction via the Settings tab.",
                "tessel.db");
  }
  return rs->Text(0).value_or("");
}

std::unique_ptr<Connection> OpenConnection(std::string_view connectionText) {
  return OpenConnection(connectionText, nullptr);
}

std::unique_ptr<Connection> OpenConnection(std::string_view connectionText, Connection* jobDatabase) {
  std::string_view text = Trim(connectionText);
  if (StartsWithNoCase(text, kManagedPrefix)) {
    std::string id(Trim(text.substr(kManagedPrefix.size())));
    if (id.empty()) BadText(connectionText, "the managed connection id is empty.");
    if (jobDatabase == nullptr) {
      BadText(connectionText, "a managed connection needs the job database to resolve it.");
    }
    std::string resolved = ResolveManagedConnection(id, *jobDatabase);
    if (IsManagedConnection(resolved)) {
      BadText(resolved, "a managed connection may not name another managed connection.");
    }
    return OpenConnection(resolved, nullptr);
  }
  if (StartsWithNoCase(text, "sqlite:")) {
    std::string path(text.substr(7));
    if (path.empty()) BadText(connectionText, "the SQLite file path is empty.");
    return std::make_unique<SqliteConnection>(path, std::string(text));
  }
  if (StartsWithNoCase(text, "postgresql://") || StartsWithNoCase(text, "postgres://")) {
    // libpq only knows the schemes in lower case.
    size_t colon = text.find(':');
    std::string uri(text);
    std::transform(uri.begin(), uri.begin() + colon, uri.begin(), [](unsigned char c) { return std::tolower(c); });
    return std::make_unique<PostgresConnection>(uri, std::string(text));
  }
  if (StartsWithNoCase(text, "odbc:")) {
    std::string odbc(Trim(text.substr(5)));
    if (odbc.empty()) BadText(connectionText, "the ODBC connection string is empty.");
    return std::make_unique<OdbcConnection>(odbc, std::string(text));
  }
  if (StartsWithNoCase(text, "DSN=") || StartsWithNoCase(text, "DRIVER=") || StartsWithNoCase(text, "FILEDSN=")) {
    return std::make_unique<OdbcConnection>(std::string(text), std::string(text));
  }
  if (text.empty()) BadText(connectionText, "it is empty.");
  BadText(connectionText, "its form is unknown.");
}

}  // namespace tessel::db
