#include "store/TransactionRenamer.h"

#include <cstring>
#include <unordered_set>

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "job/TransformDefinition.h"
#include "store/TransactionSelectStringBldr.h"
#include "store/XMLWrapper.h"

namespace tessel {
namespace {

bool IsElement(xmlNodePtr node, const char* name) {
  return node->type == XML_ELEMENT_NODE && std::strcmp(reinterpret_cast<const char*>(node->name), name) == 0;
}

// The attribute's text; nullopt-like empty flag through `present`.
std::string Attribute(xmlNodePtr node, const char* name, bool* present = nullptr) {
  xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  if (present) *present = value != nullptr;
  if (value == nullptr) return {};
  std::string text(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return text;
}

void SetAttribute(xmlNodePtr node, const char* name, const std::string& value) {
  xmlSetProp(node, reinterpret_cast<const xmlChar*>(name), reinterpret_cast<const xmlChar*>(value.c_str()));
}

// The first FIELD child whose name attribute is `name`, or null. Walking the
// children finds what FIELD[@name='...'] finds, for any name.
xmlNodePtr FindField(xmlNodePtr record, const std::string& name) {
  for (xmlNodePtr child = record->children; child; child = child->next) {
    if (IsElement(child, "FIELD") && Attribute(child, "name") == name) return child;
  }
  return nullptr;
}

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

}  // namespace

void TransactionRenamer::Init(Ref<XMLWrapper> data, std::shared_ptr<TransformDefinition> definition,
                              std::shared_ptr<TransformDefinition> previous, bool deleteFields) {
  data_ = std::move(data);
  definition_ = std::move(definition);
  previous_ = std::move(previous);
  deleteFields_ = deleteFields;
}

void TransactionRenamer::RenameDataSetFromTransformDef() {
  std::string recordId;
  try {
    if (!data_ || !definition_) ThrowRuntimeError(91);
    XMLWrapper& definitionXml = *definition_->TransformDefinitionXWrapper();
    for (xmlNodePtr record : definition_->RecordNodes()) {
      std::unordered_set<std::string> inUse;
      std::vector<TransactionRenameAction> deletes;
      std::vector<TransactionRenameAction> swaps;
      std::vector<TransactionRenameAction> renames;
      recordId = definition_->RecordId(record);
      const std::string importId = Attribute(record, "imptranid");

      for (xmlNodePtr field : definitionXml.GetNodesFromXPath("FIELD[@impname]", record)) {
        const std::string impName = Attribute(field, "impname");
        const std::string name = definitionXml.GetAttributeFromNode(field, "name");
        if (impName.empty() || impName == name) continue;
        TransactionRenameAction action;
        action.FieldId = impName;
        action.NewFieldId = name;
        // A name met before may be taken by another rename of this record:
        // going through a free name keeps the two apart.
        if (inUse.count(impName) != 0 || inUse.count(name) != 0) {
          action.NeedToSwap = true;
          action.TempFieldId = GenerateTempFieldName(record, impName);
          swaps.push_back(std::move(action));
        } else {
          renames.push_back(std::move(action));
        }
        inUse.insert(impName);
        inUse.insert(name);
      }

      // A record without an import takes its fields from the input record of
      // its own id.
      if (deleteFields_) deletes = CheckForDeletedFields(importId.empty() ? recordId : importId, record);
      if (!importId.empty() && importId != recordId) RenameRecordId(importId, recordId);

      if (!deletes.empty() || !swaps.empty() || !renames.empty()) {
        std::vector<TransactionRenameAction> actions = std::move(deletes);
        actions.insert(actions.end(), swaps.begin(), swaps.end());
        actions.insert(actions.end(), renames.begin(), renames.end());
        RenameFieldsInternal(recordId, actions);
      }
    }
  } catch (...) {
    ErrorInRethrow("TransactionRenamer.RenameDataSetFromTransformDef()", {Variant(recordId)});
  }
}

void TransactionRenamer::RenameRecordId(const std::string& oldId, const std::string& newId) {
  try {
    // The path of the new id, spelled with the old one: the containers as the
    // input placed them.
    std::string path = definition_->GenerateXPathFromTranId(newId);
    ReplaceAll(path, newId, oldId);
    for (xmlNodePtr node : data_->GetNodesFromXPath(path)) {
      if (IsElement(node, "RECORDS")) SetAttribute(node, "id", newId);
    }
    for (xmlNodePtr child : definition_->RecordDescendents(oldId)) SetAttribute(child, "parentid", newId);
  } catch (...) {
    ErrorInRethrow("TransactionRenamer.RenameRecordId(sOldId, sNewId)", {Variant(oldId), Variant(newId)});
  }
}

std::vector<TransactionRenameAction> TransactionRenamer::CheckForDeletedFields(const std::string& impTranId,
                                                                                xmlNodePtr record) {
  try {
    if (!previous_) ThrowRuntimeError(91);
    std::unordered_set<std::string> imported;
    for (xmlNodePtr field = record->children; field; field = field->next) {
      bool present = false;
      std::string impName = IsElement(field, "FIELD") ? Attribute(field, "impname", &present) : std::string();
      if (present) imported.insert(std::move(impName));
    }
    std::vector<TransactionRenameAction> deletes;
    xmlNodePtr input = previous_->RecordNode(impTranId);
    for (xmlNodePtr field = input->children; field; field = field->next) {
      if (!IsElement(field, "FIELD")) continue;
      std::string name = Attribute(field, "name");
      if (imported.count(name) != 0) continue;
      TransactionRenameAction action;
      action.FieldId = std::move(name);
      action.DeleteField = true;
      deletes.push_back(std::move(action));
    }
    return deletes;
  } catch (...) {
    ErrorInRethrow("TransactionRenamer.CheckForDeletedFields(sImpTranId)", {Variant(impTranId)});
  }
}

void TransactionRenamer::RenameFieldsInternal(const std::string& recordId,
                                              const std::vector<TransactionRenameAction>& actions) {
  try {
    std::vector<const TransactionRenameAction*> swaps;
    for (const TransactionRenameAction& action : actions) {
      if (action.NeedToSwap) swaps.push_back(&action);
    }
    TransactionSelectStringBldr builder(definition_);
    builder.SetReturnTransaction(recordId);
    builder.AddSearch(recordId, "*");
    for (xmlNodePtr record : data_->GetNodesFromXPath(builder.XPath())) {
      for (const TransactionRenameAction& action : actions) {
        xmlNodePtr field = FindField(record, action.FieldId);
        if (field == nullptr) continue;
        if (action.DeleteField) {
          data_->DeleteNode(field);
        } else {
          SetAttribute(field, "name", action.NeedToSwap ? action.TempFieldId : action.NewFieldId);
        }
      }
      for (const TransactionRenameAction* action : swaps) {
        if (xmlNodePtr field = FindField(record, action->TempFieldId)) SetAttribute(field, "name", action->NewFieldId);
      }
    }
  } catch (...) {
    ErrorInRethrow("TransactionRenamer.RenameFieldsInternal(sRecId, oActions)", {Variant(recordId)});
  }
}

std::string TransactionRenamer::GenerateTempFieldName(xmlNodePtr record, const std::string& fieldId) {
  try {
    std::unordered_set<std::string> names;
    for (xmlNodePtr field = record->children; field; field = field->next) {
      if (!IsElement(field, "FIELD")) continue;
      bool present = false;
      std::string impName = Attribute(field, "impname", &present);
      if (present) names.insert(std::move(impName));
      std::string name = Attribute(field, "name", &present);
      if (present) names.insert(std::move(name));
    }
    for (int l = 0; l < kTemporaryNameTries; ++l) {
      std::string candidate = fieldId + "_" + std::to_string(l);
      if (names.count(candidate) == 0) return candidate;
    }
    Check(false, kNoTemporaryName, "Could not determine unique temporary id on field rename for [%1]",
          Variant(fieldId));
    return {};
  } catch (...) {
    ErrorInRethrow("TransactionRenamer.GenerateTempFieldName(nodRecord, sFieldId)", {Variant(fieldId)});
  }
}

}  // namespace tessel
