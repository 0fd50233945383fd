#include "store/TransactionFactory.h"

#include "audit/HuntErr.h"
#include "job/TransformDefinition.h"
#include "store/XMLWrapper.h"

namespace tessel {

TransactionFactory::TransactionFactory() { InitXData(); }

TransactionFactory::~TransactionFactory() = default;

void TransactionFactory::InitXData() {
  try {
    auto data = MakeRef<XMLWrapper>();
    data->CreateDocument();
    xmlNodePtr root = xmlNewDocNode(data->DOMDocument(), nullptr, BAD_CAST "DATA", nullptr);
    xmlAddChild(reinterpret_cast<xmlNodePtr>(data->DOMDocument()), root);
    data_ = std::move(data);
  } catch (...) {
    ErrorInRethrow("TransactionFactory.InitXData()", {});
  }
}

void TransactionFactory::ClearData() {
  try {
    xmlNodePtr root = data_->GetNodeFromXPath("/DATA");
    while (root->children != nullptr) {
      xmlNodePtr child = root->children;
      xmlUnlinkNode(child);
      xmlFreeNode(child);
    }
  } catch (...) {
    ErrorInRethrow("TransactionFactory.ClearData()", {});
  }
}

}  // namespace tessel
