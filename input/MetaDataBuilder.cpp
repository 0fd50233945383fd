#include "input/MetaDataBuilder.h"

#include <cstring>

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "input/IMetaDataBuilder.h"
#include "job/TransformDefinition.h"
#include "store/Attributes.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {

std::string Attribute(xmlNodePtr node, const char* name) {
  xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  if (value == nullptr) return {};
  std::string text(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return text;
}

}  // namespace

MetaDataBuilder::MetaDataBuilder() = default;
MetaDataBuilder::~MetaDataBuilder() = default;

void MetaDataBuilder::InitialiseBuilder(std::shared_ptr<TransactionFactory> target, IMetaDataBuilder* callback,
                                        std::shared_ptr<TransformDefinition> source) {
  try {
    if (!target || !source) ThrowRuntimeError(91);
    target_ = std::move(target);
    callback_ = callback;
    source_ = std::move(source);
    definition_ = std::make_shared<TransformDefinition>();
    wrapper_ = MakeRef<XMLWrapper>();
    wrapper_->CreateDocument();
    InitialiseTransformDefinition();
    target_->SetTransformDefinition(definition_);
  } catch (...) {
    ErrorInRethrow("MetaDataBuilder.InitialiseBuilder(oTargetFactory, oMetaDataCallback, oSourceDefinition)", {});
  }
}

void MetaDataBuilder::InitialiseTransformDefinition() {
  xmlNodePtr root = wrapper_->GenerateNode("TRANSFORM");
  xmlSetProp(root, reinterpret_cast<const xmlChar*>("id"),
             reinterpret_cast<const xmlChar*>(source_->TransformId().c_str()));
  root = wrapper_->AddElement(root, reinterpret_cast<xmlNodePtr>(wrapper_->DOMDocument()));
  xmlNodePtr detail = wrapper_->AddElement(wrapper_->GenerateNode("TRANSFORMDETAIL"), root);
  records_ = wrapper_->AddElement(wrapper_->GenerateNode("RECORDS"), detail);
  definition_->SetTransformDefinitionXWrapper(wrapper_);
  definition_->SetOptions(*source_);
}

xmlNodePtr MetaDataBuilder::AddTransaction(std::string_view id, std::string_view parentId, std::string_view hashCode,
                                           Attributes& attributes) {
  attributes.Add("id", Variant(id));
  attributes.Add("hashcode", Variant(hashCode));
  attributes.Add("parentid", Variant(parentId));
  xmlNodePtr record = wrapper_->GenerateNode("RECORD", Variant(), &attributes);
  return wrapper_->AddElement(record, records_);
}

void MetaDataBuilder::GenFldAttribs(xmlNodePtr sourceField, Attributes& attributes) {
  attributes.Add("name", Variant(Attribute(sourceField, "name")));
  attributes.Add("type", Variant(Attribute(sourceField, "type")));
  attributes.Add("allowmultiplevals", Variant("False"));
  attributes.Add("overwritable", Variant("True"));
  const std::string key = Attribute(sourceField, "key");
  if (!key.empty() && key != "0") attributes.Add("key", Variant(key));
  for (xmlAttrPtr attr = sourceField->properties; attr; attr = attr->next) {
    xmlChar* value = xmlNodeGetContent(reinterpret_cast<xmlNodePtr>(attr));
    attributes.Add(reinterpret_cast<const char*>(attr->name),
                   Variant(std::string(value ? reinterpret_cast<const char*>(value) : "")));
    if (value) xmlFree(value);
  }
}

void MetaDataBuilder::AddField(xmlNodePtr record, Attributes& attributes) {
  wrapper_->AddElement(wrapper_->GenerateNode("FIELD", Variant(), &attributes), record);
}

void MetaDataBuilder::GenerateMetaData() {
  try {
    if (!definition_) ThrowRuntimeError(91);
    for (xmlNodePtr sourceRecord : source_->RecordNodes()) {
      const std::string id = source_->RecordId(sourceRecord);
      const std::string parentId = source_->RecordParentId(sourceRecord);
      const std::string hashCode = Attribute(sourceRecord, "hashcode");
      Ref<Attributes> recordAttributes = MakeRef<Attributes>();
      if (callback_) callback_->TransactionAttributes(id, parentId, *recordAttributes);
      xmlNodePtr record = AddTransaction(id, parentId, hashCode, *recordAttributes);
      for (xmlNodePtr field = sourceRecord->children; field; field = field->next) {
        if (field->type != XML_ELEMENT_NODE || std::strcmp(reinterpret_cast<const char*>(field->name), "FIELD") != 0) {
          continue;
        }
        Ref<Attributes> fieldAttributes = MakeRef<Attributes>();
        GenFldAttribs(field, *fieldAttributes);
        const std::string name = Attribute(field, "name");
        if (callback_ && name.rfind("SYS.", 0) != 0) callback_->FieldAttributes(id, field, *fieldAttributes);
        AddField(record, *fieldAttributes);
      }
    }
    definition_->ResetCache();
  } catch (...) {
    ErrorInRethrow("MetaDataBuilder.GenerateMetaData()", {});
  }
}

}  // namespace tessel
