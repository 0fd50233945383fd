// TransactionRenamer: makes a data document speak a transform's names.
//
// A transform receives its parent's data document, whose record containers
// and fields bear the parent's names. The transform's definition says which
// input record each RECORD takes over (attribute imptranid) and which input
// field each FIELD takes over (attribute impname). RenameDataSetFromTransformDef
// applies these to the data document in place: record containers first, then
// the fields of every record of each type. Renames that cross (A from B and B
// from A) go through temporary names, so values change places rather than
// collide. With delete-fields set, fields of the input record that no field of
// the transform imports are removed as well.
//
// The renamer borrows the data document and both definitions for the length
// of one pass; it changes the data document and, where a record id is
// renamed, the parentid attributes of this transform's definition. Code that
// keeps indexes over the data document must drop them afterwards.
//
// Errors: 8280 when no free temporary name is found for a crossing rename;
// 7703 from the definitions for records they do not have.
#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/Object.h"
#include "store/TransactionRenameAction.h"

namespace tessel {

class TransformDefinition;
class XMLWrapper;

class TransactionRenamer {
 public:
  static constexpr int32_t kNoTemporaryName = 8280;
  // Temporary names tried per crossing rename before giving up.
  static constexpr int kTemporaryNameTries = 50;

  // `previous` may be null unless `deleteFields` is set.
  void Init(Ref<XMLWrapper> data, std::shared_ptr<TransformDefinition> definition,
            std::shared_ptr<TransformDefinition> previous, bool deleteFields = false);

  // Renames record containers and fields of the whole document.
  void RenameDataSetFromTransformDef();
  // Gives the containers of record type `oldId` the id `newId`, at the place
  // the definition gives `newId`.
  void RenameRecordId(const std::string& oldId, const std::string& newId);

 private:
  void RenameFieldsInternal(const std::string& recordId, const std::vector<TransactionRenameAction>& actions);
  std::vector<TransactionRenameAction> CheckForDeletedFields(const std::string& impTranId, xmlNodePtr record);
  std::string GenerateTempFieldName(xmlNodePtr record, const std::string& fieldId);

  Ref<XMLWrapper> data_;
  std::shared_ptr<TransformDefinition> definition_;
  std::shared_ptr<TransformDefinition> previous_;
  bool deleteFields_ = false;
};

}  // namespace tessel
