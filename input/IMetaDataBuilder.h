// IMetaDataBuilder: the callback through which MetaDataBuilder lets its owner
// add attributes to the record and field metadata it generates. The bags are
// the builder's; the callback only adds to them.
#pragma once

#include <libxml/tree.h>

#include <string_view>

#include "core/Variant.h"

namespace tessel {

class Attributes;

class IMetaDataBuilder {
 public:
  virtual ~IMetaDataBuilder() = default;

  // `source` is whatever the owner reads from; builders may ignore it.
  virtual void Initialise(const Variant& source) = 0;
  virtual void TransactionAttributes(std::string_view transactionId, std::string_view parentId,
                                     Attributes& attributes) = 0;
  virtual void FieldAttributes(std::string_view transactionId, xmlNodePtr fieldNode, Attributes& attributes) = 0;
};

}  // namespace tessel
