// JobEnvironment: a complete engine installation for one test: a configuration
// folder with appconfig.xml, debug/work folders and a job database (a SQLite
// file in the folder, or the loopback PostgreSQL server), with
// TESSEL_APPCONFIG pointing at it for the life of the object. The job
// configuration folder holds an empty script library (functionh.xml) that a
// test may replace.
//
// Job documents are built from TransformSpec lists, so tests say only what
// matters to them.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "db/Connection.h"
#include "tests/support/TempDir.h"

namespace tessel::test {

struct TransformSpec {
  TransformSpec(std::string id, std::string parentId, int type = 999, std::string priority = {},
                std::map<std::string, std::string> options = {})
      : id(std::move(id)), parentId(std::move(parentId)), type(type), priority(std::move(priority)),
        options(std::move(options)) {}

  std::string id;
  std::string parentId;
  int type = 999;
  std::string priority;                        // empty: no attribute
  std::map<std::string, std::string> options;  // OPTION name/value
  std::map<std::string, std::string> audit;    // AUDIT options over the defaults
  // RECORDS content; the default is one top record R with a string field F.
  std::string records = "<RECORD id=\"R\" parentid=\"\" hashcode=\"1\"><FIELD name=\"F\" type=\"3\"/></RECORD>";
};

// A MAPPING document of version 1.96 (or the version given).
std::string JobDocument(const std::string& jobId, const std::vector<TransformSpec>& transforms,
                        const std::map<std::string, std::string>& jobOptions = {},
                        const std::string& version = "1.96");

enum class Backend { Sqlite, PostgreSql };

class JobEnvironment {
 public:
  explicit JobEnvironment(Backend backend = Backend::Sqlite);
  ~JobEnvironment();

  const std::filesystem::path& Folder() const { return dir_.path(); }
  std::filesystem::path DebugPath() const { return dir_ / "debug"; }
  std::filesystem::path WorkPath() const { return dir_ / "jobs"; }
  const std::string& DatabaseText() const { return databaseText_; }
  db::Connection& Database() { return *database_; }

  // A job id unique to this environment (PostgreSQL tests share one database).
  std::string JobId(const std::string& name) const;
  void AddJob(const std::string& jobId, const std::string& document, int maxInstance = 0, int nextNo = 1);
  // One column of the first row, as text; nullopt for NULL or no row.
  std::optional<std::string> Scalar(const std::string& sql, const db::Params& params = {});
  // RESULTREASON of every AUDITLOG row of the job, in order.
  std::vector<std::string> AuditReasons(const std::string& jobId);
  std::vector<std::string> AuditColumn(const std::string& jobId, const std::string& column);

  // The script library every script host of this environment loads; it
  // starts empty (<FUNCTIONS/>).
  std::filesystem::path FunctionLibraryPath() const { return dir_ / "conf" / "functionh.xml"; }
  // Replaces the library: each piece of script source (Functions, Subs,
  // statements) becomes one element of the file, in order.
  void SetFunctionLibrary(const std::vector<std::string>& pieces);

 private:
  TempDir dir_;
  std::string databaseText_;
  std::string suffix_;
  std::unique_ptr<db::Connection> database_;
  std::optional<std::string> previousConfig_;
};

// The loopback PostgreSQL server's URI; the test is skipped locally, and
// fails under CI, when none is configured.
std::optional<std::string> PostgresUri();

}  // namespace tessel::test
