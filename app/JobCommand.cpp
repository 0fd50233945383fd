#include <filesystem>
#include <iomanip>
#include <iostream>

#include "app/Commands.h"
#include "audit/HuntErr.h"
#include "db/Connection.h"
#include "job/AppConfig.h"
#include "job/RegistryWrapper.h"
#include "store/XMLWrapper.h"

namespace tessel::app {

namespace {
constexpr int32_t kErrJobExists = 7021;
}

int RunJobAdd(const JobAddOptions& options) {
  try {
    namespace fs = std::filesystem;
    AppConfig config = AppConfig::Load(RegistryWrapper::AppConfigFolder());
    // A document that does not load is refused here rather than at its first run.
    XMLWrapper document;
    document.OpenXMLDocument(options.file);

    std::string fileName = fs::path(options.file).filename().string();
    std::unique_ptr<db::Connection> link = db::OpenConnection(config.DatabaseText());
    link->BeginTransaction();
    bool exists = !link->OpenRecordset("SELECT JOBID FROM JOBDETAIL WHERE JOBID = ?", {options.jobId})->IsEOF();
    Check(!exists || options.replace, kErrJobExists, "Job [%1] exists already; use --replace to replace its document.",
          {Variant(options.jobId)});
    fs::create_directories(config.WorkPath());
    fs::copy_file(options.file, fs::path(config.WorkPath()) / fileName, fs::copy_options::overwrite_existing);
    if (exists) {
      link->Execute("UPDATE JOBDETAIL SET JOBCONFIG = ? WHERE JOBID = ?", {fileName, options.jobId});
      if (options.descriptionGiven) {
        link->Execute("UPDATE JOBDETAIL SET JOBDESC = ? WHERE JOBID = ?", {options.description, options.jobId});
      }
      if (options.maxInstanceGiven) {
        link->Execute("UPDATE JOBDETAIL SET MAXINSTANCE = ? WHERE JOBID = ?",
                      {int64_t{options.maxInstance}, options.jobId});
      }
    } else {
      link->Execute("INSERT INTO JOBDETAIL (JOBID, JOBDESC, JOBCONFIG, NEXTNO, MAXINSTANCE) VALUES (?, ?, ?, 1, ?)",
                    {options.jobId, options.description, fileName, int64_t{options.maxInstance}});
    }
    link->CommitTransaction();
    std::cout << (exists ? "Replaced job " : "Added job ") << options.jobId << " (" << fileName << ")\n";
    return 0;
  } catch (...) {
    return ReportFailure();
  }
}

int RunJobList() {
  try {
    AppConfig config = AppConfig::Load(RegistryWrapper::AppConfigFolder());
    std::unique_ptr<db::Connection> link = db::OpenConnection(config.DatabaseText());
    auto jobs = link->OpenRecordset(
        "SELECT JOBID, JOBCONFIG, NEXTNO, MAXINSTANCE, LASTRUNDATE, JOBDESC FROM JOBDETAIL ORDER BY JOBID");
    std::cout << std::left << std::setw(20) << "JOBID" << std::setw(24) << "DOCUMENT" << std::setw(8) << "NEXTNO"
              << std::setw(6) << "MAX" << std::setw(26) << "LAST RUN" << "DESCRIPTION\n";
    for (; !jobs->IsEOF(); jobs->Next()) {
      std::cout << std::setw(20) << jobs->Text(0).value_or("") << std::setw(24) << jobs->Text(1).value_or("")
                << std::setw(8) << jobs->Text(2).value_or("") << std::setw(6) << jobs->Text(3).value_or("")
                << std::setw(26) << jobs->Text(4).value_or("") << jobs->Text(5).value_or("") << '\n';
    }
    return 0;
  } catch (...) {
    return ReportFailure();
  }
}

}  // namespace tessel::app
