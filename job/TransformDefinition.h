// TransformDefinition: one transform's part of the job document.
//
// A definition owns its XMLWrapper, a private document whose root element is
// the TRANSFORM (the coordinator copies it out of the job document), and reads
// everything else from it: options through a PropertyBagHelper, the record
// types (RECORD elements under TRANSFORMDETAIL/RECORDS), the audit node.
//
// Record nodes are cached by the key they were asked for, since the store asks
// for them on every new transaction. Transforms that grow their own metadata
// must call ResetCache (setting the wrapper does so).
//
// Definitions are shared: a child transform holds its parent's definition as
// its previous definition, so they live in std::shared_ptr.
#pragma once

#include "store/XMLWrapper.h"
#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Variant.h"
#include "job/PropertyBagHelper.h"

namespace tessel {

class AuditLogDefinition;

class TransformDefinition {
 public:
  TransformDefinition();
  explicit TransformDefinition(Ref<XMLWrapper> wrapper);
  ~TransformDefinition();

  // The AUDIT child of the root TRANSFORM (7703 when missing).
  xmlNodePtr AuditNode();
  // Made on first use from this definition's audit node.
  AuditLogDefinition& GetAuditLogDefinition();
  bool SupportsWorkflow();

  const Ref<XMLWrapper>& TransformDefinitionXWrapper() const { return wrapper_; }
  void SetTransformDefinitionXWrapper(Ref<XMLWrapper> wrapper);
  void ResetCache();

  // A new definition over a copy of this document; the audit definition is not copied.
  std::shared_ptr<TransformDefinition> Clone() const;
  // Options from a copy of the other document; its root attributes copied onto this root.
  void SetOptions(const TransformDefinition& other);

  bool HasRecord(std::string_view tranId);
  // By the key as given: a numeric key is a 1-based position, any other an id.
  xmlNodePtr RecordNode(std::string_view tranId);
  xmlNodePtr RecordNodeByRecordId(std::string_view tranId);
  long RecordCount();
  std::string RecordId(xmlNodePtr node);
  std::string RecordParentId(xmlNodePtr node);
  std::string HashCode(xmlNodePtr node);
  // RECORD[@parentid=parent]; with an empty parent the top records.
  std::vector<xmlNodePtr> RecordDescendents(std::string_view parent);
  std::vector<std::string> RecordDirectDescendentIDs(xmlNodePtr node);
  std::vector<std::string> RecordAllDescendentIDs(std::string_view parent);
  bool IsRecordDescendent(std::string_view parent, std::string_view child);
  std::vector<xmlNodePtr> RecordNodes();

  std::string PropertyName(long id) { return bag_.PropertyName(id); }
  // For a list option an array of its values, else the value as a string.
  Variant Property(std::string_view name);
  bool PropertyIsList(std::string_view name) { return bag_.PropertyIsList(name); }
  long PropertyCount() const { return bag_.Count(); }
  bool HasProperty(std::string_view name) { return bag_.HasProperty(name); }
  std::vector<std::string> GetPropertyList(std::string_view name) { return bag_.GetList(name); }
  void SetProperty(std::string_view name, std::string_view value) { bag_.SetProperty(name, value); }
  // The option's value, or fallback when the option is absent.
  std::string PropertyOr(std::string_view name, std::string_view fallback);

  xmlNodePtr RecordsNode();
  std::string TransformId();
  std::string TransformParentId();
  // The type attribute as a 16-bit integer; text that is no number raises 13.
  int16_t TransformType();
  // Path of a record's container in the data document:
  // /DATA/RECORDS[@id='A'], /DATA/RECORDS/RECORD/RECORDS[@id='B'], ...
  std::string GenerateXPathFromTranId(std::string_view tranId);
  // Raises 7010 when a record's parent chain comes back to a record already on it.
  bool RecordsAreNonCyclical();
  xmlNodePtr TransformRootNode();

 private:
  std::string RootAttribute(const char* name);

  Ref<XMLWrapper> wrapper_;
  Ref<XMLWrapper> optionsWrapper_;  // set by SetOptions: the bag reads this copy
  PropertyBagHelper bag_;
  std::unique_ptr<AuditLogDefinition> auditDefinition_;
  std::unordered_map<std::string, xmlNodePtr> recordCache_;
  xmlNodePtr recordsNode_ = nullptr;
};

}  // namespace tessel
