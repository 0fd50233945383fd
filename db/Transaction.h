// Transaction: scope guard of one database transaction.
//
// Begins a transaction on construction and rolls it back on destruction
// unless Commit() was called; a rollback failure in the destructor is
// swallowed, as the connection ends the transaction anyway. The connection
// must outlive the guard.
#pragma once

#include "db/Connection.h"

namespace tessel::db {

class Transaction {
 public:
  explicit Transaction(Connection& connection, IsolationLevel level = IsolationLevel::ReadCommitted);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void Commit();
  void Rollback();
  bool Active() const { return active_; }

 private:
  Connection& connection_;
  bool active_ = false;
};

}  // namespace tessel::db
