// TransactionFactory: owner of one transform's data document and of the
// transform's definition, and the place where transactions are made and
// linked into the document.
//
// The data document's root is DATA; under it one RECORDS container per top
// record type holds that type's RECORD elements. A chain of transforms shares
// one document: the coordinator sets the parent's document as Data of the
// child's factory, so documents are held by std::shared_ptr.
#pragma once

#include "store/XMLWrapper.h"
#include <memory>

namespace tessel {

class TransformDefinition;


class TransactionFactory {
 public:
  // Starts with a new, empty data document.
  TransactionFactory();
  ~TransactionFactory();

  const Ref<XMLWrapper>& Data() const { return data_; }
  // Replaces the document, e.g. by the parent transform's.
  void SetData(Ref<XMLWrapper> data) { data_ = std::move(data); }

  const std::shared_ptr<tessel::TransformDefinition>& TransformDefinition() const { return definition_; }
  void SetTransformDefinition(std::shared_ptr<tessel::TransformDefinition> definition) {
    definition_ = std::move(definition);
  }

  // Removes every child of DATA.
  void ClearData();

 private:
  void InitXData();

  Ref<XMLWrapper> data_;
  std::shared_ptr<tessel::TransformDefinition> definition_;
};

}  // namespace tessel
