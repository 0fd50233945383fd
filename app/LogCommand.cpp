#include <iostream>

#include "app/Commands.h"
#include "db/Connection.h"
#include "job/AppConfig.h"
#include "job/RegistryWrapper.h"

namespace tessel::app {

int RunLog(const LogOptions& options) {
  try {
    AppConfig config = AppConfig::Load(RegistryWrapper::AppConfigFolder());
    std::unique_ptr<db::Connection> link = db::OpenConnection(config.DatabaseText());
    int64_t instance = options.instance;
    if (instance <= 0) {
      auto latest = link->OpenRecordset("SELECT MAX(INSTANCEID) FROM AUDITLOG WHERE PROCESSID = ?", {options.jobId});
      instance = latest->IsEOF() ? 0 : latest->Int64(0).value_or(0);
    }
    auto rows = link->OpenRecordset(
        "SELECT TIMESTAMP, LOGTYPE, TFORMID, RESULTCODE, RESULTREASON, SOURCE FROM AUDITLOG "
        "WHERE PROCESSID = ? AND INSTANCEID = ? ORDER BY LOGID",
        {options.jobId, instance});
    std::cout << "job " << options.jobId << ", run " << instance << '\n';
    for (; !rows->IsEOF(); rows->Next()) {
      std::string transform = rows->Text(2).value_or("");
      std::string source = rows->Text(5).value_or("");
      std::cout << rows->Text(0).value_or("") << "  type " << rows->Text(1).value_or("") << "  code "
                << rows->Text(3).value_or("");
      if (!transform.empty()) std::cout << "  transform " << transform;
      if (!source.empty()) std::cout << "  source " << source;
      std::cout << "\n    " << rows->Text(4).value_or("") << '\n';
    }
    return 0;
  } catch (...) {
    return ReportFailure();
  }
}

}  // namespace tessel::app
