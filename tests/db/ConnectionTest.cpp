// Behaviour of Connection and Recordset, the same on every backend.
#include <gtest/gtest.h>

#include <limits>

#include "core/Error.h"
#include "db/Connection.h"
#include "db/Transaction.h"
#include "tests/db/BackendFixture.h"

namespace tessel::db::test {
namespace {

// Runs the statement and returns the number of the Error it raised, or 0.
template <typename F>
int32_t ErrorNumberOf(F&& f) {
  try {
    f();
  } catch (const Error& e) {
    return e.number();
  }
  return 0;
}

int64_t CountRows(Connection& c, const std::string& table) {
  return *c.OpenRecordset("select count(*) from " + table)->Int64(0);
}

class ConnectionTest : public BackendFixture {};

TEST_P(ConnectionTest, TypedValuesRoundTrip) {
  auto c = Open();
  c->Execute("create table VALS (ID integer primary key, I bigint, R double precision, S varchar(200), "
             "D varchar(30), N integer, B " + BinaryType() + ")");
  const std::string text = "Grüße, naïve café — 日本語 𝄞 'quoted' ?";
  const Blob bytes = {0x00, 0x01, 0xFF, 0x7F, 0x00, 0x80};
  const int64_t big = std::numeric_limits<int64_t>::max() - 7;
  EXPECT_EQ(1, c->Execute("insert into VALS (ID, I, R, S, D, N, B) values (?, ?, ?, ?, ?, ?, ?)",
                          {int64_t{1}, big, -1234.5625, text, std::string("2024-02-29 13:05:00"), std::monostate{},
                           bytes}));
  c->Execute("insert into VALS (ID, I) values (?, ?)", {int64_t{2}, int64_t{-5}});

  auto rs = c->OpenRecordset("select I, R, S, D, N, B from VALS order by ID");
  ASSERT_FALSE(rs->IsEOF());
  ASSERT_EQ(6, rs->FieldCount());
  EXPECT_EQ(FieldType::Integer, rs->TypeOf(0));
  EXPECT_EQ(FieldType::Real, rs->TypeOf(1));
  EXPECT_EQ(FieldType::Text, rs->TypeOf(2));
  EXPECT_EQ(FieldType::Binary, rs->TypeOf(5));

  EXPECT_EQ(SqlValue(big), rs->Value(0));
  EXPECT_EQ(SqlValue(-1234.5625), rs->Value(1));
  EXPECT_EQ(SqlValue(text), rs->Value(2));
  EXPECT_EQ(std::optional<std::string>("2024-02-29 13:05:00"), rs->Text(3));
  EXPECT_TRUE(rs->IsNull(4));
  EXPECT_EQ(std::nullopt, rs->Text(4));
  EXPECT_EQ(SqlValue(bytes), rs->Value(5));

  rs->Next();
  ASSERT_FALSE(rs->IsEOF());
  EXPECT_EQ(std::optional<int64_t>(-5), rs->Int64(0));
  EXPECT_TRUE(rs->IsNull(1));
  EXPECT_TRUE(rs->IsNull(2));
  EXPECT_TRUE(rs->IsNull(5));
  rs->Next();
  EXPECT_TRUE(rs->IsEOF());
  rs->Next();  // harmless at the end
  EXPECT_TRUE(rs->IsEOF());
}

TEST_P(ConnectionTest, EmptyAndLongTextsRoundTrip) {
  auto c = Open();
  c->Execute("create table TEXTS (ID integer primary key, S text)");
  std::string longText;
  for (int i = 0; i < 3000; ++i) longText += "ä€" + std::to_string(i);
  c->Execute("insert into TEXTS (ID, S) values (1, ?)", {std::string()});
  c->Execute("insert into TEXTS (ID, S) values (2, ?)", {longText});
  auto rs = c->OpenRecordset("select S from TEXTS order by ID");
  EXPECT_EQ(std::optional<std::string>(""), rs->Text(0));
  rs->Next();
  EXPECT_EQ(std::optional<std::string>(longText), rs->Text(0));
}

TEST_P(ConnectionTest, ParametersBindByPositionAndSkipQuotedMarks) {
  auto c = Open();
  c->Execute("create table P (K varchar(10), V integer)");
  c->Execute("insert into P (K, V) values ('a', 1), ('b', 2), ('?', 3)");
  auto rs = c->OpenRecordset("select V from P where K = ? or (K <> '?' and V = ?) order by V",
                             {std::string("a"), int64_t{2}});
  EXPECT_EQ(std::optional<int64_t>(1), rs->Int64("v"));
  rs->Next();
  EXPECT_EQ(std::optional<int64_t>(2), rs->Int64("V"));
  rs->Next();
  EXPECT_TRUE(rs->IsEOF());

  EXPECT_EQ(kParameterMismatch, ErrorNumberOf([&] { c->OpenRecordset("select V from P where K = ?"); }));
  EXPECT_EQ(kParameterMismatch,
            ErrorNumberOf([&] { c->Execute("update P set V = ? where K = 'a'", {int64_t{1}, int64_t{2}}); }));
  // A failed bind leaves the connection usable.
  EXPECT_EQ(3, CountRows(*c, "P"));
}

TEST_P(ConnectionTest, ExecuteCountsChangedRows) {
  auto c = Open();
  c->Execute("create table R (K integer, V integer)");
  EXPECT_EQ(3, c->Execute("insert into R (K, V) values (1, 0), (1, 0), (2, 0)"));
  EXPECT_EQ(2, c->Execute("update R set V = V + 1 where K = ?", {int64_t{1}}));
  EXPECT_EQ(0, c->Execute("update R set V = 9 where K = ?", {int64_t{42}}));
  EXPECT_EQ(0, c->Execute("select K from R"));
  EXPECT_EQ(1, c->Execute("delete from R where K = 2"));
}

TEST_P(ConnectionTest, FieldsAreFoundByNameWithoutRegardToCase) {
  auto c = Open();
  c->Execute("create table F (JOBID varchar(20), NEXTNO integer)");
  c->Execute("insert into F (JOBID, NEXTNO) values ('J1', 7)");
  auto rs = c->OpenRecordset("select JOBID, NEXTNO from F");
  EXPECT_EQ(1, rs->FieldIndex("NextNo"));
  EXPECT_EQ(-1, rs->FieldIndex("NEXT"));
  EXPECT_EQ(std::optional<std::string>("J1"), rs->Text("jobid"));
  EXPECT_EQ(std::optional<int64_t>(7), rs->Int64("NEXTNO"));
  EXPECT_EQ(kItemNotFound, ErrorNumberOf([&] { rs->Value("MISSING"); }));
  EXPECT_EQ(kItemNotFound, ErrorNumberOf([&] { rs->Value(2); }));
  EXPECT_EQ(kItemNotFound, ErrorNumberOf([&] { rs->FieldName(-1); }));
  rs->Next();
  EXPECT_EQ(kNoCurrentRow, ErrorNumberOf([&] { rs->Value(0); }));
}

TEST_P(ConnectionTest, EmptyResultIsAtItsEndAtOnce) {
  auto c = Open();
  c->Execute("create table E (A integer)");
  auto rs = c->OpenRecordset("select A from E where A = ?", {int64_t{1}});
  EXPECT_TRUE(rs->IsEOF());
  EXPECT_EQ(1, rs->FieldCount());
}

TEST_P(ConnectionTest, TransactionsCommitAndRollBack) {
  auto c = Open();
  c->Execute("create table T (A integer)");

  c->BeginTransaction();
  c->Execute("insert into T (A) values (1)");
  c->RollbackTransaction();
  EXPECT_EQ(0, CountRows(*c, "T"));

  c->BeginTransaction(IsolationLevel::Serializable);
  c->Execute("insert into T (A) values (2)");
  c->CommitTransaction();
  EXPECT_EQ(1, CountRows(*c, "T"));

  {
    Transaction guard(*c, IsolationLevel::RepeatableRead);
    c->Execute("insert into T (A) values (3)");
  }  // not committed: rolled back
  EXPECT_FALSE(c->InTransaction());
  EXPECT_EQ(1, CountRows(*c, "T"));

  {
    Transaction guard(*c);
    c->Execute("insert into T (A) values (4)");
    guard.Commit();
  }
  EXPECT_EQ(2, CountRows(*c, "T"));

  // Another connection sees only committed rows.
  auto other = Open();
  EXPECT_EQ(2, CountRows(*other, "T"));
}

TEST_P(ConnectionTest, TransactionStateMisuseIsRefused) {
  auto c = Open();
  c->Execute("create table T (A integer)");
  EXPECT_EQ(kTransactionState, ErrorNumberOf([&] { c->CommitTransaction(); }));
  EXPECT_EQ(kTransactionState, ErrorNumberOf([&] { c->RollbackTransaction(); }));
  EXPECT_EQ(kTransactionState, ErrorNumberOf([&] { c->LockRowsForUpdate("T", "A = 1"); }));
  c->BeginTransaction();
  EXPECT_EQ(kTransactionState, ErrorNumberOf([&] { c->BeginTransaction(); }));
  EXPECT_TRUE(c->InTransaction());
  c->RollbackTransaction();
}

TEST_P(ConnectionTest, FailedStatementNamesTheSqlAndTheCause) {
  auto c = Open();
  try {
    c->OpenRecordset("select * from NO_SUCH_TABLE_X");
    FAIL() << "no error";
  } catch (const Error& e) {
    EXPECT_EQ(kStatementFailed, e.number());
    EXPECT_NE(std::string::npos, e.description().find("select * from NO_SUCH_TABLE_X")) << e.description();
    std::string lower = e.description();
    for (char& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    EXPECT_NE(std::string::npos, lower.find("no_such_table_x", lower.find("||"))) << e.description();
  }
  EXPECT_EQ(kStatementFailed, ErrorNumberOf([&] { c->Execute("this is not sql"); }));
  // The connection still works.
  EXPECT_EQ(std::optional<int64_t>(1), c->OpenRecordset("select 1")->Int64(0));
}

TEST_P(ConnectionTest, FailureInsideTransactionDoesNotCommitEarlierWork) {
  auto c = Open();
  c->Execute("create table T (A integer primary key)");
  c->BeginTransaction();
  c->Execute("insert into T (A) values (1)");
  EXPECT_NE(0, ErrorNumberOf([&] { c->Execute("insert into T (A) values (1)"); }));
  c->RollbackTransaction();
  EXPECT_EQ(0, CountRows(*c, "T"));
}

TEST_P(ConnectionTest, ClosedConnectionRefusesWork) {
  auto c = Open();
  EXPECT_TRUE(c->IsOpen());
  c->Close();
  EXPECT_FALSE(c->IsOpen());
  EXPECT_EQ(kConnectionClosed, ErrorNumberOf([&] { c->Execute("select 1"); }));
  EXPECT_EQ(kConnectionClosed, ErrorNumberOf([&] { c->OpenRecordset("select 1"); }));
  EXPECT_EQ(kConnectionClosed, ErrorNumberOf([&] { c->BeginTransaction(); }));
  c->Close();
}

TEST_P(ConnectionTest, RecordsetOutlivesItsConnection) {
  std::unique_ptr<Recordset> rs;
  {
    auto c = Open();
    c->Execute("create table O (A integer)");
    c->Execute("insert into O (A) values (1), (2)");
    rs = c->OpenRecordset("select A from O order by A");
  }
  EXPECT_EQ(std::optional<int64_t>(1), rs->Int64(0));
  rs->Next();
  EXPECT_EQ(std::optional<int64_t>(2), rs->Int64(0));
  rs->Next();
  EXPECT_TRUE(rs->IsEOF());
}

TEST_P(ConnectionTest, ClosingRollsBackAnOpenTransaction) {
  auto c = Open();
  c->Execute("create table T (A integer)");
  c->BeginTransaction();
  c->Execute("insert into T (A) values (1)");
  c->Close();
  auto other = Open();
  EXPECT_EQ(0, CountRows(*other, "T"));
}

TEST_P(ConnectionTest, DescribesItsBackend) {
  auto c = Open();
  const std::string& backend = GetParam();
  EXPECT_EQ(backend.starts_with("odbc") ? BackendKind::Odbc
            : backend == "sqlite"       ? BackendKind::Sqlite
                                        : BackendKind::PostgreSql,
            c->Backend());
  EXPECT_EQ(IsPostgres() ? SqlDialect::PostgreSql : SqlDialect::Sqlite, c->Dialect());
  EXPECT_EQ(4, c->DatabaseType());
  if (IsPostgres()) {
    EXPECT_EQ(std::string::npos, c->ConnectionText().find(":tessel@"));
    EXPECT_EQ(std::string::npos, c->ConnectionText().find("PWD=tessel"));
  }
}

TEST_P(ConnectionTest, ManagedIdOpensTheDbconnectRow) {
  auto job = Open();
  job->Execute("create table DBCONNECT (ID varchar(60) primary key, CONNECTSTR varchar(1000))");
  std::string target = "sqlite:" + (dir_ / "managed.db").string();
  job->Execute("insert into DBCONNECT (ID, CONNECTSTR) values (?, ?)", {std::string("SALES"), target});

  auto managed = OpenConnection(" ManagedId=SALES", job.get());
  EXPECT_EQ(BackendKind::Sqlite, managed->Backend());
  EXPECT_EQ(target, managed->ConnectionText());
  EXPECT_TRUE(std::filesystem::exists(dir_ / "managed.db"));

  try {
    OpenConnection("ManagedId=NOPE", job.get());
    FAIL() << "no error";
  } catch (const Error& e) {
    EXPECT_EQ(kManagedConnectionMissing, e.number());
    EXPECT_EQ(
        "Managed Database connection [NOPE] does not exist. Please either modify the integration configuration to "
        "use a valid managed database connection, or add the managed connecction via the Settings tab.",
        e.description());
  }
  EXPECT_EQ(kBadConnectionText, ErrorNumberOf([&] { OpenConnection("ManagedId=SALES"); }));
  // A plain text needs no job database.
  EXPECT_EQ(BackendKind::Sqlite, OpenConnection(target, nullptr)->Backend());
}

INSTANTIATE_TEST_SUITE_P(Backends, ConnectionTest,
                         ::testing::Values("sqlite", "postgres", "odbc_sqlite", "odbc_postgres"), BackendName);

}  // namespace
}  // namespace tessel::db::test
