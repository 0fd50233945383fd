#include "db/Transaction.h"

#include "core/Error.h"

namespace tessel::db {

Transaction::Transaction(Connection& connection, IsolationLevel level) : connection_(connection) {
  connection_.BeginTransaction(level);
  active_ = true;
}

Transaction::~Transaction() {
  if (!active_) return;
  try {
    if (connection_.IsOpen() && connection_.InTransaction()) connection_.RollbackTransaction();
  } catch (const Error&) {
    // Nothing to report to: the transaction ends with the connection anyway.
  }
}

void Transaction::Commit() {
  if (!active_) throw Error(kTransactionState, "The transaction has already ended.", "tessel.db");
  active_ = false;
  connection_.CommitTransaction();
}

void Transaction::Rollback() {
  if (!active_) throw Error(kTransactionState, "The transaction has already ended.", "tessel.db");
  active_ = false;
  connection_.RollbackTransaction();
}

}  // namespace tessel::db
