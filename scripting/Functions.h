// Functions: the function library every script of a job sees.
//
// The script host publishes one Functions object per engine as "objFunctions"
// with its members as bare global names, so a formula may say
// `TitleCase(%Name)` or `objFunctions.Sum("%Amount", "LINE")`. Members work on
// values (Format, TitleCase, dates), on files (through one FileSystemWrapper
// made at first use) and on records: the current record is Transaction, which
// vbWrapper::Evaluate sets before each evaluation, and record members reach
// other records relative to it through a TransactionSelector.
//
// Members whose work needs lookups, counters, registered values or an ERP are
// bound as well and raise 10503 until the engine has them.
//
// Ownership: the wrapper that Initialise names owns this object (through a
// Ref) and outlives every call; the current record is held by a Ref.
// Errors: 10000 (Sum on a non-numeric field), 10001 (binary fields),
// 10006 (GetParent on an unknown or non-parent record id); errors of the
// classes below pass through with each member's frame.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/Object.h"
#include "core/Variant.h"
#include "scripting/vbs/ClassBinding.h"

namespace tessel {

class FileSystemWrapper;
class Transaction;
class vbWrapper;

class Functions : public vbs::BoundObject<Functions> {
 public:
  static void Bind(vbs::ClassBinding<Functions>& binding);

  Functions();
  ~Functions() override;

  // Keeps the wrapper that owns this object (not owned).
  void Initialise(vbWrapper& wrapper);

  // The current record; may be null.
  const Ref<tessel::Transaction>& CurrentTransaction() const { return transaction_; }
  void SetCurrentTransaction(Ref<tessel::Transaction> transaction);

 private:
  vbWrapper* wrapper_ = nullptr;
  Ref<tessel::Transaction> transaction_;
  std::unique_ptr<FileSystemWrapper> fileSystem_;
};

}  // namespace tessel
