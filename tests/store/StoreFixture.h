// Shared set-up of the store tests: a transform definition with an ORDER
// record (one field of each type and the multi-value variants), its LINE
// child, a record type without fields, and a factory over it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/CatchError.h"
#include "core/Error.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

namespace tessel::test {

// Under AddressSanitizer libxml2 keeps the C library's allocator: there is
// no XmlHeap, so no counted texts either.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kHeapInThisBuild = false;
#else
constexpr bool kHeapInThisBuild = true;
#endif

inline const char* kStoreDefinition =
    "<TRANSFORM id=\"T1\" parentid=\"\" type=\"1\"><OPTIONS/><TRANSFORMDETAIL><RECORDS>"
    "<RECORD id=\"ORDER\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"NUMBER\" type=\"3\"/>"
    "<FIELD name=\"QTY\" type=\"1\"/>"
    "<FIELD name=\"NOTE\" type=\"3\" allowmultiplevals=\"True\"/>"
    "<FIELD name=\"LOCKED\" type=\"3\" allowmultiplevals=\"False\" overwritable=\"False\"/>"
    "<FIELD name=\"PRICE\" type=\"2\"/>"
    "<FIELD name=\"WHEN\" type=\"4\"/>"
    "<FIELD name=\"OK\" type=\"0\"/>"
    "<FIELD name=\"BLOB\" type=\"5\"/>"
    "<FIELD name=\"CODES\" type=\"1\" allowmultiplevals=\"1\"/>"
    "</RECORD>"
    "<RECORD id=\"LINE\" parentid=\"ORDER\" hashcode=\"2\">"
    "<FIELD name=\"ITEM\" type=\"3\"/><FIELD name=\"QTY\" type=\"1\"/>"
    "</RECORD>"
    "<RECORD id=\"EMPTY\" parentid=\"\" hashcode=\"3\"/>"
    "</RECORDS></TRANSFORMDETAIL></TRANSFORM>";

inline std::shared_ptr<TransformDefinition> MakeDefinition(const std::string& xml = kStoreDefinition) {
  auto wrapper = MakeRef<XMLWrapper>();
  wrapper->LoadXML(xml);
  return std::make_shared<TransformDefinition>(wrapper);
}

inline std::shared_ptr<TransactionFactory> MakeFactory(const std::string& xml = kStoreDefinition) {
  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(MakeDefinition(xml));
  return factory;
}


// A context on the factory's DATA node.
inline Ref<TransactionContext> TopContext(TransactionFactory& factory, bool autoUpdate = false) {
  Ref<TransactionContext> context = factory.Data()->CreateContext();
  factory.SetContextToTopDataNode(*context);
  context->SetAutoUpdate(autoUpdate);
  return context;
}

// Adds an ORDER with NUMBER set at the context and returns it.
inline Ref<Transaction> AddOrder(TransactionFactory& factory, TransactionContext& context, const std::string& number) {
  Ref<Transaction> order = factory.CreateTransaction("ORDER");
  order->SetFieldValue("NUMBER", Variant(number));
  factory.AddTransaction(*order, context);
  return order;
}

}  // namespace tessel::test
