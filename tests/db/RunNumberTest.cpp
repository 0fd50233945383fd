// Two processes taking numbers from one row never get the same number.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "core/Error.h"
#include "db/JobDatabaseSchema.h"
#include "db/Transaction.h"
#include "tests/db/BackendFixture.h"

namespace tessel::db::test {
namespace {

constexpr int kProcesses = 3;
constexpr int kNumbersEach = 30;

// Takes one number: reads NEXTNO and writes it back plus one, in one
// transaction. With `serializable` the row is read plainly under serializable
// isolation and a lost conflict is retried; otherwise it is read through
// LockRowsForUpdate under read committed, which must never conflict.
int64_t Take(Connection& c, bool serializable) {
  while (true) {
    try {
      Transaction transaction(c, serializable ? IsolationLevel::Serializable : IsolationLevel::ReadCommitted);
      auto rs = serializable
                    ? c.OpenRecordset("select * from JOBDETAIL where JOBID = ?", {std::string("J1")})
                    : c.LockRowsForUpdate("JOBDETAIL", "JOBID = ?", {std::string("J1")});
      int64_t number = *rs->Int64("NEXTNO");
      rs->Close();
      c.Execute("update JOBDETAIL set NEXTNO = ? where JOBID = ?", {number + 1, std::string("J1")});
      transaction.Commit();
      return number;
    } catch (const Error& e) {
      // Only a serializable transaction may lose to another; then it retries.
      if (!serializable || e.number() != kTransactionConflict) throw;
    }
  }
}

class RowLockTest : public BackendFixture {
 protected:
  // Runs kProcesses children that each take kNumbersEach numbers, and returns
  // every number taken; an error in a child fails the test.
  std::vector<int64_t> TakeFromProcesses(bool serializable) {
    {
      auto c = Open();
      JobDatabaseSchema::Create(*c);
      c->Execute("insert into JOBDETAIL (JOBID, JOBDESC, JOBCONFIG, NEXTNO, MAXINSTANCE) values (?, ?, ?, ?, ?)",
                 {std::string("J1"), std::string("run numbers"), std::string("j1.xml"), int64_t{1}, int64_t{0}});
    }
    int gate[2];
    if (pipe(gate) != 0) throw std::runtime_error("pipe");
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
      std::string out = (dir_ / ("numbers" + std::to_string(p))).string();
      pid_t pid = fork();
      if (pid == 0) {
        close(gate[1]);
        std::ofstream file(out);
        int status = 0;
        try {
          auto c = Open();
          char byte;
          (void)!read(gate[0], &byte, 1);  // wait until all children are ready
          for (int i = 0; i < kNumbersEach; ++i) file << Take(*c, serializable) << "\n";
        } catch (const std::exception& e) {
          file << "ERROR " << e.what() << "\n";
          status = 1;
        }
        file.close();
        _exit(status);
      }
      children.push_back(pid);
    }
    close(gate[0]);
    close(gate[1]);  // releases the children together
    std::vector<int64_t> numbers;
    for (int p = 0; p < kProcesses; ++p) {
      int status = 0;
      waitpid(children[p], &status, 0);
      std::ifstream in(dir_ / ("numbers" + std::to_string(p)));
      std::string line;
      while (std::getline(in, line)) {
        if (line.starts_with("ERROR")) {
          ADD_FAILURE() << "process " << p << ": " << line;
        } else {
          numbers.push_back(std::stoll(line));
        }
      }
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "process " << p;
    }
    return numbers;
  }

  void ExpectEveryNumberOnce(const std::vector<int64_t>& numbers) {
    ASSERT_EQ(static_cast<size_t>(kProcesses * kNumbersEach), numbers.size());
    std::set<int64_t> distinct(numbers.begin(), numbers.end());
    EXPECT_EQ(numbers.size(), distinct.size()) << "a number was taken twice";
    EXPECT_EQ(1, *distinct.begin());
    EXPECT_EQ(kProcesses * kNumbersEach, *distinct.rbegin());
    auto c = Open();
    EXPECT_EQ(std::optional<int64_t>(kProcesses * kNumbersEach + 1),
              c->OpenRecordset("select NEXTNO from JOBDETAIL where JOBID = 'J1'")->Int64(0));
  }
};

TEST_P(RowLockTest, LockedRowGivesEachRunNumberOnce) { ExpectEveryNumberOnce(TakeFromProcesses(false)); }

TEST_P(RowLockTest, SerializableTransactionsGiveEachNumberOnce) { ExpectEveryNumberOnce(TakeFromProcesses(true)); }

TEST_P(RowLockTest, LockedRowWaitsForTheHolder) {
  {
    auto setup = Open();
    JobDatabaseSchema::Create(*setup);
    setup->Execute("insert into JOBDETAIL (JOBID, NEXTNO) values ('J1', 5)");
  }
  // The child is forked before this process opens its connection: SQLite
  // connections must not cross a fork.
  std::string out = (dir_ / "waiter").string();
  int go[2];
  ASSERT_EQ(0, pipe(go));
  pid_t pid = fork();
  if (pid == 0) {
    close(go[1]);
    std::ofstream file(out);
    try {
      auto other = Open();
      char byte;
      (void)!read(go[0], &byte, 1);
      file << Take(*other, false) << "\n";
    } catch (const std::exception& e) {
      file << "ERROR " << e.what() << "\n";
    }
    file.close();
    _exit(0);
  }
  close(go[0]);
  auto c = Open();
  c->BeginTransaction();
  auto rs = c->LockRowsForUpdate("JOBDETAIL", "JOBID = ?", {std::string("J1")});
  ASSERT_FALSE(rs->IsEOF());
  EXPECT_EQ(std::optional<int64_t>(5), rs->Int64("NEXTNO"));
  rs->Close();
  // The waiter now asks for the row while it is held: it must not get 5 but
  // the value written here.
  ASSERT_EQ(1, write(go[1], "x", 1));
  close(go[1]);
  usleep(300 * 1000);
  c->Execute("update JOBDETAIL set NEXTNO = 6 where JOBID = 'J1'");
  c->CommitTransaction();
  int status = 0;
  waitpid(pid, &status, 0);
  std::ifstream in(out);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ("6", line);
}

INSTANTIATE_TEST_SUITE_P(Backends, RowLockTest,
                         ::testing::Values("sqlite", "postgres", "odbc_sqlite", "odbc_postgres"), BackendName);

}  // namespace
}  // namespace tessel::db::test
