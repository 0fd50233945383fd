// The job database tables, created on every backend.
#include <gtest/gtest.h>

#include "core/Error.h"
#include "db/JobDatabaseSchema.h"
#include "tests/db/BackendFixture.h"

namespace tessel::db::test {
namespace {

class JobDatabaseSchemaTest : public BackendFixture {
 protected:
  // Column names of a table, as a query of all its columns reports them.
  static std::vector<std::string> ColumnsOf(Connection& c, const std::string& table) {
    auto rs = c.OpenRecordset("select * from " + table + " where 1 = 0");
    std::vector<std::string> names;
    for (int i = 0; i < rs->FieldCount(); ++i) names.push_back(rs->FieldName(i));
    return names;
  }

  static void ExpectColumns(Connection& c, const std::string& table, const std::vector<std::string>& expected) {
    auto rs = c.OpenRecordset("select * from " + table + " where 1 = 0");
    for (const std::string& column : expected) {
      EXPECT_GE(rs->FieldIndex(column), 0) << table << "." << column;
    }
  }
};

TEST_P(JobDatabaseSchemaTest, CreatesEveryTableWithItsColumnsAndCanRunTwice) {
  auto c = Open();
  JobDatabaseSchema::Create(*c);
  c->Execute("insert into JOBDETAIL (JOBID, JOBDESC, JOBCONFIG, NEXTNO, MAXINSTANCE) values ('J1', 'd', 'j.xml', 5, 1)");
  JobDatabaseSchema::Create(*c);  // again: nothing changes, the row stays
  EXPECT_EQ(std::optional<int64_t>(5), c->OpenRecordset("select NEXTNO from JOBDETAIL where JOBID = 'J1'")->Int64(0));

  EXPECT_EQ(10u, JobDatabaseSchema::TableNames().size());
  ExpectColumns(*c, "JOBDETAIL", {"JOBID", "JOBDESC", "JOBCONFIG", "NEXTNO", "MAXINSTANCE", "LASTRUNDATE"});
  ExpectColumns(*c, "SYSTEMS", {"SYSID", "CONNECTSTR", "USERNAME", "PASSWORD", "ORGID", "SYSTYPE"});
  ExpectColumns(*c, "DBCONNECT", {"ID", "CONNECTSTR"});
  ExpectColumns(*c, "LOOKUPS", {"LOOKUPID", "INTLOOKUP", "INTLKUPTABLE", "SQLSELECT", "SQLFROM", "SQLWHERE",
                                "DBCONNECT"});
  ExpectColumns(*c, "LOOKUP", {"LOOKUPID", "LKUPKEY"});
  ExpectColumns(*c, "COUNTERS", {"COUNTERID", "PREFIX", "SUFFIX", "EVALKEY", "EVALFORMULA", "STEP", "STARTNUM",
                                 "LENGTH"});
  ExpectColumns(*c, "CTRKEYS", {"COUNTERID", "CTRKEY", "NEXTNUM"});
  ExpectColumns(*c, "AUDITLOG", {"LOGTYPE", "PROCESSID", "SOURCE", "RESULTREASON", "TFORMID", "TIMESTAMP",
                                 "INSTANCEID", "RESULTCODE", "UNIQUEID"});
  ExpectColumns(*c, "EMAILGROUP", {"EMAILID", "MAILSERVID", "EMLFROM", "EMLTO", "EMLCC", "EMLBCC"});
  std::vector<std::string> country = {"CURRENCY", "IANA_TLD", "ISO2", "ISO3", "NUMBER_CODE", "PHONE_PFX"};
  for (const char* language : {"ARA", "ENG", "DEU", "FRA", "JPN", "POR", "SPA", "RUS", "ZHO"}) {
    for (const char* part : {"_NAME", "_DEMONYM", "_SYNONYMS"}) country.push_back(std::string(language) + part);
  }
  ExpectColumns(*c, "ISOCOUNTRY", country);
  EXPECT_EQ(country.size(), ColumnsOf(*c, "ISOCOUNTRY").size());
}

TEST_P(JobDatabaseSchemaTest, AuditLogKeepsInsertionOrder) {
  auto c = Open();
  JobDatabaseSchema::Create(*c);
  // Same time text for all: only the id column tells the order.
  for (const char* reason : {"first", "second", "third"}) {
    c->Execute("insert into AUDITLOG (LOGTYPE, PROCESSID, SOURCE, RESULTREASON, TFORMID, TIMESTAMP, INSTANCEID, "
               "RESULTCODE, UNIQUEID) values (?, ?, ?, ?, ?, ?, ?, ?, ?)",
               {int64_t{1}, std::string("JOB"), std::string(""), std::string(reason), std::string("T1"),
                std::string("2024-01-01 10:00:00:000"), int64_t{7}, std::string("0"), std::string("client")});
  }
  auto rs = c->OpenRecordset("select RESULTREASON from AUDITLOG where PROCESSID = ? and INSTANCEID = ? order by LOGID",
                             {std::string("JOB"), int64_t{7}});
  std::vector<std::string> reasons;
  for (; !rs->IsEOF(); rs->Next()) reasons.push_back(*rs->Text(0));
  EXPECT_EQ((std::vector<std::string>{"first", "second", "third"}), reasons);
}

TEST_P(JobDatabaseSchemaTest, KeysRefuseDuplicates) {
  auto c = Open();
  JobDatabaseSchema::Create(*c);
  c->Execute("insert into CTRKEYS (COUNTERID, CTRKEY, NEXTNUM) values ('C', '1', 2)");
  c->Execute("insert into CTRKEYS (COUNTERID, CTRKEY, NEXTNUM) values ('C', '2', 2)");
  try {
    c->Execute("insert into CTRKEYS (COUNTERID, CTRKEY, NEXTNUM) values ('C', '1', 9)");
    ADD_FAILURE() << "a second row for one counter key was accepted";
  } catch (const Error& e) {
    EXPECT_EQ(kStatementFailed, e.number());
  }
  EXPECT_EQ(kStatementFailed, [&] {
    try {
      c->Execute("insert into JOBDETAIL (JOBID) values (NULL)");
    } catch (const Error& e) {
      return e.number();
    }
    return 0;
  }());
}

TEST_P(JobDatabaseSchemaTest, DefaultsFillOmittedColumns) {
  auto c = Open();
  JobDatabaseSchema::Create(*c);
  c->Execute("insert into JOBDETAIL (JOBID) values ('J')");
  auto rs = c->OpenRecordset("select NEXTNO, MAXINSTANCE, LASTRUNDATE from JOBDETAIL");
  EXPECT_EQ(std::optional<int64_t>(1), rs->Int64(0));
  EXPECT_EQ(std::optional<int64_t>(0), rs->Int64(1));
  EXPECT_TRUE(rs->IsNull(2));
}

INSTANTIATE_TEST_SUITE_P(Backends, JobDatabaseSchemaTest,
                         ::testing::Values("sqlite", "postgres", "odbc_sqlite", "odbc_postgres"), BackendName);

TEST(JobDatabaseSchemaStatements, SqlServerCreatesOnlyMissingTables) {
  std::vector<std::string> statements = JobDatabaseSchema::Statements(SqlDialect::SqlServer);
  ASSERT_FALSE(statements.empty());
  EXPECT_EQ(0u, statements[0].find("IF OBJECT_ID(N'JOBDETAIL', N'U') IS NULL CREATE TABLE JOBDETAIL ("));
  bool identity = false;
  for (const std::string& s : statements) identity |= s.find("LOGID BIGINT IDENTITY(1,1) PRIMARY KEY") != std::string::npos;
  EXPECT_TRUE(identity);
}

}  // namespace
}  // namespace tessel::db::test
