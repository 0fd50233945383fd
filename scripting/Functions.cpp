#include "scripting/Functions.h"

#include <utility>

#include "services/FileSystemWrapper.h"
#include "store/XMLWrapper.h"
#include "store/Transaction.h"

namespace tessel {

void Functions::Bind(vbs::ClassBinding<Functions>& binding) {
  binding.TypeName("Functions");
}

Functions::Functions() = default;
Functions::~Functions() = default;

void Functions::Initialise(vbWrapper& wrapper) { wrapper_ = &wrapper; }

void Functions::SetCurrentTransaction(Ref<tessel::Transaction> transaction) {
  transaction_ = std::move(transaction);
}

}  // namespace tessel
