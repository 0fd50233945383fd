#include "job/ManagedDBConnection.h"

#include "audit/HuntErr.h"
#include "db/Connection.h"
#include "job/Session.h"

namespace tessel {

namespace {
constexpr int32_t kErrManagedMissing = 7006;
constexpr std::string_view kPrefix = "ManagedId=";
}  // namespace

bool ManagedDBConnection::IsManaged() const { return connectionString_.rfind(kPrefix, 0) == 0; }

std::string ManagedDBConnection::ManagedConnectionId() const {
  return IsManaged() ? connectionString_.substr(kPrefix.size()) : std::string();
}

std::string ManagedDBConnection::ManagedConnectionString() const {
  try {
    Session* session = CurrentSession();
    Check(session != nullptr, kErrManagedMissing, "Managed Database connection [%1] does not exist. Please either modify the integration configuration to use a valid managed database connection, or add the managed connecction via the Settings tab.",
          {Variant(ManagedConnectionId())});
    std::unique_ptr<db::Connection> link = session->GetDatabaseLink();
    auto row = link->OpenRecordset("SELECT CONNECTSTR FROM DBCONNECT WHERE ID = ?", {ManagedConnectionId()});
    Check(!row->IsEOF(), kErrManagedMissing, "Managed Database connection [%1] does not exist. Please either modify the integration configuration to use a valid managed database connection, or add the managed connecction via the Settings tab.",
          {Variant(ManagedConnectionId())});
    return row->Text(0).value_or("");
  } catch (...) {
    ErrorInRethrow("ManagedDBConnection.ManagedConnectionString()", {Variant(connectionString_)});
  }
}

std::string ManagedDBConnection::ResolvedConnectionString() const {
  return IsManaged() ? ManagedConnectionString() : connectionString_;
}

}  // namespace tessel
