#include <filesystem>
#include <fstream>
#include <iostream>

#include "app/Commands.h"
#include "audit/HuntErr.h"
#include "db/Connection.h"
#include "db/JobDatabaseSchema.h"
#include "job/AppConfig.h"
#include "services/PasswordCipher.h"

namespace tessel::app {

namespace {
constexpr int32_t kErrAlreadyInitialised = 7020;
}

int RunInit(const InitOptions& options) {
  try {
    namespace fs = std::filesystem;
    fs::path folder = fs::absolute(options.folder).lexically_normal();
    Check(options.force || !fs::exists(folder / AppConfig::kFileName), kErrAlreadyInitialised,
          "[%1] holds a configuration already; use --force to write it anew.", {Variant(folder.string())});
    for (const char* sub : {"debug", "jobs", "conf"}) fs::create_directories(folder / sub);

    std::string database = options.database.empty() ? "sqlite:" + (folder / "tessel.db").string() : options.database;
    {
      std::unique_ptr<db::Connection> connection = db::OpenConnection(database);
      db::JobDatabaseSchema::Create(*connection);
    }
    fs::path keyFile = folder / "cipher.key";
    if (!fs::exists(keyFile)) PasswordCipher::CreateKeyFile(keyFile.string());
    AppConfig::Write(folder.string(), {{"DEFCHARSET", "utf-8"},
                                       {PasswordCipher::kConfigKey, keyFile.string()},
                                       {"DEBUGPATH", (folder / "debug").string()},
                                       {"WORKPATH", (folder / "jobs").string()},
                                       {"JOBCONFPATH", (folder / "conf").string()},
                                       {"DBCONAX", database}});
    fs::path functions = folder / "conf" / "functionh.xml";
    if (!fs::exists(functions)) {
      std::ofstream out(functions);
      out << "<?xml version=\"1.0\"?>\n<FUNCTIONS/>\n";
    }
    std::cout << "Initialised " << folder.string() << " (job database " << db::Connection::MaskPassword(database)
              << ")\n";
    return 0;
  } catch (...) {
    return ReportFailure();
  }
}

}  // namespace tessel::app
