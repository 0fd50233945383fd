#include "tests/db/BackendFixture.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace tessel::db::test {

void PostgresUriOrSkip(std::string* uri) {
  const char* value = std::getenv("TESSEL_TEST_PG");
  if (value != nullptr && *value != '\0') {
    *uri = value;
    return;
  }
  const char* ci = std::getenv("CI");
  if (ci != nullptr && std::string(ci) == "true") {
    FAIL() << "TESSEL_TEST_PG is not set; CI needs the PostgreSQL test server (bash scripts/test-postgres)";
  }
  GTEST_SKIP() << "TESSEL_TEST_PG is not set; start the server with `bash scripts/test-postgres`";
}

PostgresParts SplitPostgresUri(const std::string& uri) {
  PostgresParts parts;
  std::string rest = uri.substr(uri.find("://") + 3);
  size_t at = rest.rfind('@');
  if (at != std::string::npos) {
    std::string userInfo = rest.substr(0, at);
    rest = rest.substr(at + 1);
    size_t colon = userInfo.find(':');
    parts.user = userInfo.substr(0, colon);
    if (colon != std::string::npos) parts.password = userInfo.substr(colon + 1);
  }
  size_t slash = rest.find('/');
  std::string hostPort = rest.substr(0, slash);
  if (slash != std::string::npos) parts.database = rest.substr(slash + 1, rest.find('?', slash) - slash - 1);
  size_t colon = hostPort.find(':');
  parts.host = hostPort.substr(0, colon);
  parts.port = colon == std::string::npos ? "5432" : hostPort.substr(colon + 1);
  return parts;
}

void BackendFixture::SetUp() {
  const std::string& backend = GetParam();
  if (backend == "sqlite") {
    text_ = "sqlite:" + (dir_ / "test.db").string();
  } else if (backend == "odbc_sqlite") {
    text_ = "odbc:DRIVER={SQLite3};DATABASE=" + (dir_ / "test.db").string() + ";";
  } else {
    std::string uri;
    PostgresUriOrSkip(&uri);
    if (uri.empty()) return;
    if (backend == "postgres") {
      text_ = uri;
    } else {
      PostgresParts p = SplitPostgresUri(uri);
      text_ = "odbc:DRIVER={PostgreSQL Unicode};SERVER=" + p.host + ";PORT=" + p.port + ";DATABASE=" + p.database +
              ";UID=" + p.user + ";PWD=" + p.password + ";";
    }
    static std::atomic<int> counter{0};
    schema_ = "tessel_db_test_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
    OpenConnection(uri)->Execute("create schema " + schema_);
  }
}

void BackendFixture::TearDown() {
  if (schema_.empty()) return;
  try {
    OpenConnection(std::getenv("TESSEL_TEST_PG"))->Execute("drop schema " + schema_ + " cascade");
  } catch (const std::exception& e) {
    ADD_FAILURE() << "dropping the test schema: " << e.what();
  }
}

std::unique_ptr<Connection> BackendFixture::Open() const {
  auto connection = OpenConnection(text_);
  if (!schema_.empty()) connection->Execute("set search_path to " + schema_);
  return connection;
}

std::string BackendFixture::BinaryType() const { return IsPostgres() ? "BYTEA" : "BLOB"; }

std::string BackendName(const ::testing::TestParamInfo<std::string>& info) { return info.param; }

}  // namespace tessel::db::test
