// MetaDataBuilder: makes a new transform definition from an existing one, for
// transforms that change the record layout. The new definition has the
// source's id and options and a copy of each record and field, to which the
// owner adds attributes through its IMetaDataBuilder callback; it becomes the
// target factory's definition.
//
// Ownership: the builder makes the new definition and hands it to the target
// factory; it keeps references to the factory, the source definition and the
// callback (which must outlive the builder).
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

#include "core/Object.h"

namespace tessel {

class Attributes;
class IMetaDataBuilder;
class TransactionFactory;
class TransformDefinition;
class XMLWrapper;

class MetaDataBuilder {
 public:
  MetaDataBuilder();
  ~MetaDataBuilder();

  // `callback` may be null: no attributes are added.
  void InitialiseBuilder(std::shared_ptr<TransactionFactory> target, IMetaDataBuilder* callback,
                         std::shared_ptr<TransformDefinition> source);
  void GenerateMetaData();

  const std::shared_ptr<TransformDefinition>& Definition() const { return definition_; }

 private:
  void InitialiseTransformDefinition();
  xmlNodePtr AddTransaction(std::string_view id, std::string_view parentId, std::string_view hashCode,
                            Attributes& attributes);
  void AddField(xmlNodePtr record, Attributes& attributes);
  void GenFldAttribs(xmlNodePtr sourceField, Attributes& attributes);

  std::shared_ptr<TransactionFactory> target_;
  IMetaDataBuilder* callback_ = nullptr;
  std::shared_ptr<TransformDefinition> source_;
  std::shared_ptr<TransformDefinition> definition_;
  Ref<XMLWrapper> wrapper_;
  xmlNodePtr records_ = nullptr;
};

}  // namespace tessel
