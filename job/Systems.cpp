#include "job/Systems.h"

#include "audit/HuntErr.h"
#include "db/Connection.h"
#include "job/Session.h"

namespace tessel {

namespace {
constexpr int32_t kErrConnectorUndefined = 10995;
constexpr const char* kUndefinedMessage =
    "Connector [%1] is not defined. The connector must first be setup in the Setup panel before it can be used.||";
}  // namespace

void Systems::Initialise(const std::string& systemId) {
  try {
    Session* session = CurrentSession();
    Check(session != nullptr, kErrConnectorUndefined, kUndefinedMessage, {Variant(systemId)});
    std::unique_ptr<db::Connection> link = session->GetDatabaseLink();
    auto rows = link->OpenRecordset("SELECT * FROM SYSTEMS WHERE SYSID = ?", {systemId});
    Check(!rows->IsEOF(), kErrConnectorUndefined, kUndefinedMessage, {Variant(systemId)});
    connectionString_ = rows->Text("CONNECTSTR").value_or("");
    userId_ = rows->Text("USERNAME").value_or("");
    password_ = rows->Text("PASSWORD").value_or("");
    organisationId_ = rows->Text("ORGID").value_or("");
    systemType_ = static_cast<int32_t>(rows->Int64("SYSTYPE").value_or(0));
    rows->Next();
    Check(rows->IsEOF(), kErrConnectorUndefined, kUndefinedMessage, {Variant(systemId)});
  } catch (...) {
    ErrorInRethrow("Systems.Initialise(sSystemId)", {Variant(systemId)});
  }
}

}  // namespace tessel
