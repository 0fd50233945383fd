// Throughput of the database layer: parameterised inserts inside one
// transaction, reading rows back, and taking run numbers under a row lock.
// SQLite always; PostgreSQL too when TESSEL_TEST_PG names a server.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "db/Connection.h"
#include "db/JobDatabaseSchema.h"
#include "db/Transaction.h"

namespace {

using namespace tessel::db;

std::string SqlitePath() {
  return (std::filesystem::temp_directory_path() / ("tessel-db-bench-" + std::to_string(getpid()) + ".db")).string();
}

std::unique_ptr<Connection> OpenFor(int backend) {
  if (backend == 0) return OpenConnection("sqlite:" + SqlitePath());
  const char* uri = std::getenv("TESSEL_TEST_PG");
  if (uri == nullptr || *uri == '\0') return nullptr;
  auto c = OpenConnection(uri);
  c->Execute("create schema if not exists tessel_db_bench");
  c->Execute("set search_path to tessel_db_bench");
  return c;
}

void BM_InsertRows(benchmark::State& state) {
  auto c = OpenFor(static_cast<int>(state.range(0)));
  if (!c) {
    state.SkipWithError("TESSEL_TEST_PG is not set");
    return;
  }
  c->Execute("drop table if exists BENCH_ROWS");
  c->Execute("create table BENCH_ROWS (ID integer, NAME varchar(50), AMOUNT double precision)");
  const int64_t rows = 1000;
  for (auto _ : state) {
    Transaction t(*c);
    for (int64_t i = 0; i < rows; ++i) {
      c->Execute("insert into BENCH_ROWS (ID, NAME, AMOUNT) values (?, ?, ?)",
                 {i, std::string("customer ") + std::to_string(i), static_cast<double>(i) * 1.25});
    }
    t.Commit();
  }
  state.SetItemsProcessed(state.iterations() * rows);
}
BENCHMARK(BM_InsertRows)->Arg(0)->Arg(1)->ArgName("postgres")->Unit(benchmark::kMillisecond);

void BM_ReadRows(benchmark::State& state) {
  auto c = OpenFor(static_cast<int>(state.range(0)));
  if (!c) {
    state.SkipWithError("TESSEL_TEST_PG is not set");
    return;
  }
  c->Execute("drop table if exists BENCH_READ");
  c->Execute("create table BENCH_READ (ID integer, NAME varchar(50), AMOUNT double precision)");
  {
    Transaction t(*c);
    for (int64_t i = 0; i < 10000; ++i) {
      c->Execute("insert into BENCH_READ (ID, NAME, AMOUNT) values (?, ?, ?)",
                 {i, std::string("customer ") + std::to_string(i), static_cast<double>(i) * 1.25});
    }
    t.Commit();
  }
  int64_t rows = 0;
  for (auto _ : state) {
    auto rs = c->OpenRecordset("select ID, NAME, AMOUNT from BENCH_READ");
    for (; !rs->IsEOF(); rs->Next()) {
      benchmark::DoNotOptimize(rs->Field("NAME"));
      ++rows;
    }
  }
  state.SetItemsProcessed(rows);
}
BENCHMARK(BM_ReadRows)->Arg(0)->Arg(1)->ArgName("postgres")->Unit(benchmark::kMillisecond);

void BM_TakeRunNumber(benchmark::State& state) {
  auto c = OpenFor(static_cast<int>(state.range(0)));
  if (!c) {
    state.SkipWithError("TESSEL_TEST_PG is not set");
    return;
  }
  JobDatabaseSchema::Create(*c);
  c->Execute("delete from JOBDETAIL where JOBID = 'BENCH'");
  c->Execute("insert into JOBDETAIL (JOBID, NEXTNO) values ('BENCH', 1)");
  for (auto _ : state) {
    Transaction t(*c);
    auto rs = c->LockRowsForUpdate("JOBDETAIL", "JOBID = ?", {std::string("BENCH")});
    int64_t next = *rs->Int64("NEXTNO");
    rs->Close();
    c->Execute("update JOBDETAIL set NEXTNO = ? where JOBID = ?", {next + 1, std::string("BENCH")});
    t.Commit();
  }
}
BENCHMARK(BM_TakeRunNumber)->Arg(0)->Arg(1)->ArgName("postgres")->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::filesystem::remove(SqlitePath());
  if (const char* uri = std::getenv("TESSEL_TEST_PG"); uri && *uri) {
    try {
      OpenConnection(uri)->Execute("drop schema if exists tessel_db_bench cascade");
    } catch (...) {
    }
  }
  return 0;
}
