#include "tests/support/JobEnvironment.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>

#include "db/JobDatabaseSchema.h"
#include "job/AppConfig.h"
#include "job/RegistryWrapper.h"

namespace tessel::test {

namespace {
std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string Options(const std::map<std::string, std::string>& options) {
  std::string xml = "<OPTIONS>";
  for (const auto& [name, value] : options) {
    xml += "<OPTION name=\"" + Escape(name) + "\" value=\"" + Escape(value) + "\"/>";
  }
  return xml + "</OPTIONS>";
}
}  // namespace

std::string JobDocument(const std::string& jobId, const std::vector<TransformSpec>& transforms,
                        const std::map<std::string, std::string>& jobOptions, const std::string& version) {
  std::map<std::string, std::string> options{{"id", jobId}, {"actiontransformerror", "1"},
                                             {"actiontransformfail", "1"}, {"sendauditreport", "3"}};
  for (const auto& [name, value] : jobOptions) {
    if (value == "<absent>") {
      options.erase(name);
    } else {
      options[name] = value;
    }
  }
  std::string xml = "<?xml version=\"1.0\"?>\n<MAPPING version=\"" + version + "\">" + Options(options) +
                    "<TRANSFORMS>";
  for (const TransformSpec& t : transforms) {
    std::map<std::string, std::string> audit{{"rptgroup", "G1"}, {"rptwarnings", "True"}, {"logstart", "True"},
                                             {"logend", "True"},
                                             {"summaryhdr", "Transform " + t.id},
                                             {"auditsummary", "%R.PROCESSED processed, %R.ERRORS errors"}};
    for (const auto& [name, value] : t.audit) audit[name] = value;
    xml += "<TRANSFORM id=\"" + Escape(t.id) + "\" parentid=\"" + Escape(t.parentId) + "\" type=\"" +
           std::to_string(t.type) + "\"";
    if (!t.priority.empty()) xml += " priority=\"" + Escape(t.priority) + "\"";
    xml += ">" + Options(t.options) + "<TRANSFORMDETAIL><RECORDS>" + t.records + "</RECORDS></TRANSFORMDETAIL>" +
           "<AUDIT>" + Options(audit) + "</AUDIT></TRANSFORM>";
  }
  return xml + "</TRANSFORMS></MAPPING>\n";
}

std::optional<std::string> PostgresUri() {
  const char* uri = std::getenv("TESSEL_TEST_PG");
  if (uri != nullptr && *uri != '\0') return std::string(uri);
  return std::nullopt;
}

JobEnvironment::JobEnvironment(Backend backend) {
  static std::atomic<int> counter{0};
  suffix_ = "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
  namespace fs = std::filesystem;
  for (const char* sub : {"debug", "jobs", "conf"}) fs::create_directories(dir_ / sub);
  if (backend == Backend::PostgreSql) {
    std::optional<std::string> uri = PostgresUri();
    if (!uri) throw std::runtime_error("no PostgreSQL server: set TESSEL_TEST_PG");
    databaseText_ = *uri;
  } else {
    databaseText_ = "sqlite:" + (dir_ / "tessel.db").string();
  }
  database_ = db::OpenConnection(databaseText_);
  db::JobDatabaseSchema::Create(*database_);
  AppConfig::Write(dir_.path().string(), {{"DEFCHARSET", "utf-8"},
                                          {"DEBUGPATH", (dir_ / "debug").string()},
                                          {"WORKPATH", (dir_ / "jobs").string()},
                                          {"JOBCONFPATH", (dir_ / "conf").string()},
                                          {"DBCONAX", databaseText_}});
  SetFunctionLibrary({});
  if (const char* previous = std::getenv(RegistryWrapper::kEnvironmentVariable)) previousConfig_ = previous;
  ::setenv(RegistryWrapper::kEnvironmentVariable, dir_.path().c_str(), 1);
}

JobEnvironment::~JobEnvironment() {
  if (previousConfig_) {
    ::setenv(RegistryWrapper::kEnvironmentVariable, previousConfig_->c_str(), 1);
  } else {
    ::unsetenv(RegistryWrapper::kEnvironmentVariable);
  }
}

void JobEnvironment::SetFunctionLibrary(const std::vector<std::string>& pieces) {
  std::string xml = "<?xml version=\"1.0\"?>\n";
  if (pieces.empty()) {
    xml += "<FUNCTIONS/>\n";
  } else {
    xml += "<FUNCTIONS>";
    for (const std::string& piece : pieces) xml += "<FUNCTION>" + Escape(piece) + "</FUNCTION>";
    xml += "</FUNCTIONS>\n";
  }
  std::ofstream(FunctionLibraryPath(), std::ios::binary) << xml;
}

std::string JobEnvironment::JobId(const std::string& name) const { return name + suffix_; }

void JobEnvironment::AddJob(const std::string& jobId, const std::string& document, int maxInstance, int nextNo) {
  std::string fileName = jobId + ".xml";
  std::ofstream(WorkPath() / fileName) << document;
  database_->Execute("DELETE FROM JOBDETAIL WHERE JOBID = ?", {jobId});
  database_->Execute("INSERT INTO JOBDETAIL (JOBID, JOBDESC, JOBCONFIG, NEXTNO, MAXINSTANCE) VALUES (?, ?, ?, ?, ?)",
                     {jobId, "test job", " " + fileName + " ", int64_t{nextNo}, int64_t{maxInstance}});
}

std::optional<std::string> JobEnvironment::Scalar(const std::string& sql, const db::Params& params) {
  auto rows = database_->OpenRecordset(sql, params);
  if (rows->IsEOF()) return std::nullopt;
  return rows->Text(0);
}

std::vector<std::string> JobEnvironment::AuditColumn(const std::string& jobId, const std::string& column) {
  std::vector<std::string> values;
  auto rows = database_->OpenRecordset("SELECT " + column + " FROM AUDITLOG WHERE PROCESSID = ? ORDER BY LOGID",
                                       {jobId});
  for (; !rows->IsEOF(); rows->Next()) values.push_back(rows->Text(0).value_or(""));
  return values;
}

std::vector<std::string> JobEnvironment::AuditReasons(const std::string& jobId) {
  return AuditColumn(jobId, "RESULTREASON");
}

}  // namespace tessel::test
