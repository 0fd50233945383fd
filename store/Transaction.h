// Transaction: the view through which all code reads and writes one record
// (a RECORD element) of the data document.
//
// A transaction owns no values: it points at the record's RECORD node in the
// data document and at the record type's RECORD node in the definition, and
// shares the record type's field dictionary. Many transactions may view one
// node; values stay in the document when the views go. The view holds its
// document wrapper and the definition alive; the node itself must stay in
// the document (the iterator's Delete keeps deleted records alive for that
// reason). The factory is held weakly: a transaction does not keep it alive.
//
// Field rules (SetFieldValue): an empty value never clears a field (use
// UnsetField); enclosing double quotes are dropped for all types but string;
// a single-valued field is replaced unless its definition forbids
// overwriting; a multi-valued field gains a value unless `overwrite` is set.
// Binary values (type 5) are kept in files of the run's folder and the field
// holds the file's path.
//
// Errors: 8101 value instance out of range, 8102 field number out of range,
// 8103 unknown field, 8104 not a binary field, 8105 binary file gone, 8106 no
// folder for binary files; conversions raise the script runtime's 13 "Type
// mismatch" (and 6, 5); 7701 for a missing record attribute.
#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"
#include "store/FieldMetaData.h"
#include "store/FieldNameNode.h"
#include "store/XMLWrapper.h"

namespace tessel {

class TransactionContext;
class TransactionFactory;
class TransformDefinition;

class Transaction : public Object {
 public:
  Transaction();
  ~Transaction() override;

  std::string TypeName() const override { return "Transaction"; }

  // The record type's RECORD element of the definition.
  xmlNodePtr TransactionMetaData() const { return metaData_; }
  void SetTransactionMetaData(xmlNodePtr node);
  const std::shared_ptr<const FieldDictionary>& FieldMetaDataDictionary() const { return fields_; }
  void SetFieldMetaDataDictionary(std::shared_ptr<const FieldDictionary> dictionary);
  // The RECORD element of the data document.
  xmlNodePtr Data() const { return data_; }
  // Takes the node; stamps its timestamp when that is empty or missing.
  void SetData(xmlNodePtr node);
  // The data document; set once by the factory.
  void SetXWrapper(Ref<XMLWrapper> wrapper);
  const Ref<XMLWrapper>& xWrapper() const { return wrapper_; }
  // Set by the factory; `definition` keeps the metadata node alive.
  void SetFactory(std::weak_ptr<TransactionFactory> factory,
                  std::shared_ptr<tessel::TransformDefinition> definition);
  // The factory that made this view; raises 91 when it is gone.
  std::shared_ptr<TransactionFactory> Factory() const;
  // Keeps a document alive whose node this view stands on (a reconstructed
  // record lives in a document of its own).
  void KeepDocument(Ref<XMLWrapper> document);
  // Makes this view as a new one is, for the factory to hand out again once
  // no one else holds it.
  void Recycle();

  // Attribute of the RECORD; 7701 when missing.
  std::string TranAttribute(std::string_view name);
  // Attributes summary, status, uri and uricoord; "" (0) when missing.
  std::string Summary();
  void SetSummary(std::string_view value);
  int32_t Status();
  void SetStatus(int32_t value);
  std::string OrigTranLocation();
  void SetOrigTranLocation(std::string_view value);
  std::string OrigTranCoordinate();
  void SetOrigTranCoordinate(std::string_view value);

  // Attributes id and parentid of the metadata node, read once.
  const std::string& TransactionId() { return haveId_ ? id_ : ReadTransactionId(); }
  const std::string& ParentId();
  int32_t FieldCount() const { return fieldCount_; }
  // A new context on the data document standing on this RECORD.
  Ref<TransactionContext> Context();
  // Neighbouring records of the same container, or null.
  Ref<Transaction> NextTransaction();
  Ref<Transaction> PreviousTransaction();
  // The record two levels up, or null for a record type without parent.
  Ref<Transaction> ParentTransaction();

  std::string GetFieldAttribute(std::string_view fieldName, std::string_view attribute);
  void SetTranAttribute(std::string_view name, const Variant& value);
  void SetFieldAttribute(std::string_view fieldName, std::string_view attribute, const Variant& value);
  // Every element of this record's container (../*).
  std::vector<xmlNodePtr> GetParentNodes();
  // 1-based, in the definition's order; 8102 outside 1..FieldCount.
  std::string FieldName(int32_t position);
  std::vector<std::string> FieldNames();
  // The names as a Variant array from 0.
  Variant FieldNames2();

  void SetFieldValue(std::string_view name, const Variant& value, bool overwrite = false);
  // SetFieldValue of a String value, for readers that hold the text but no
  // Variant of it; same rules and errors.
  void SetFieldText(std::string_view name, std::string_view text, bool overwrite = false);
  // Removes every value; nothing happens when the field has no node.
  void UnsetField(std::string_view fieldName);
  // Kept for callers of the interface: always "".
  std::string GetFieldNameById(int32_t id) { return {}; }
  bool IsFieldSet(std::string_view fieldName);
  // HasField and IsFieldSet; false, without an error, for an unknown field.
  bool HasFieldAndSet(std::string_view fieldName);
  // See the class comment: the type's default when unset, the text of a
  // single value, the value at a 0-based instance, or all values as an array
  // for instance 0.
  Variant GetFieldValues(std::string_view fieldName, int32_t instance = 0);
  // The text of a field that holds a single value with text, where it is
  // stored: what GetFieldValues returns as a String, valid until the record
  // changes. nullptr in every other case (no data, unknown or unset field,
  // several values), where GetFieldValues gives the answer. Never raises.
  const char* SingleValueText(std::string_view fieldName) noexcept;
  // The same, with the field's type in `fieldType` where there is text; a
  // field the definition does not know then gives nullptr as well.
  const char* SingleValueText(std::string_view fieldName, int16_t* fieldType) noexcept;
  // The same for a field the caller found at `place` of this view's field
  // dictionary (FieldDictionary::PlaceOf), without asking the dictionary.
  const char* SingleValueTextAt(std::string_view fieldName, size_t place) noexcept;
  // The same for a caller that asks for the field record after record and
  // keeps `known` for it: the field is known by its name node where it
  // follows the field found last (see FieldNameNode), and `known` learns
  // that node wherever the field is found by its name.
  const char* SingleValueText(std::string_view fieldName, FieldNameNode& known) noexcept;
  // SingleValueTextAt with the field known by its name node at its place.
  const char* SingleValueTextAt(std::string_view fieldName, size_t place, FieldNameNode& known) noexcept;
  std::vector<uint8_t> GetBinaryValue(std::string_view fieldName);
  // GetFieldValues cast to the field's type (strings are not cast).
  Variant GetFieldValueCastType(std::string_view fieldName, int32_t instance = 0);
  bool FieldOverwritable(std::string_view name);
  bool AllowMultipleFieldVals(std::string_view name);
  // Number of RECORDS children: child record types with data.
  int16_t ChildCount();
  // No field has a value and there are no child records.
  bool IsEmpty();
  bool HasField(std::string_view fieldName) const;
  int16_t GetType(std::string_view fieldName);
  // The RECORD element as XML text.
  void PrintData(std::ostream& stream);
  // Makes `target` a copy: a deep clone of the RECORD, same metadata and document.
  void CopyTransaction(Transaction& target);

 private:
  // The FIELD of the data node; checks the name (8103) when there is none.
  xmlNodePtr GetField(std::string_view fieldName);
  // The FIELD of the data node, or nullptr. `place` is the field's place in
  // the dictionary when the caller knows it, kNotInDictionary when the
  // caller found the name missing there.
  static constexpr size_t kPlaceUnknown = static_cast<size_t>(-1);
  static constexpr size_t kNotInDictionary = static_cast<size_t>(-2);
  xmlNodePtr FindField(std::string_view fieldName, size_t place = kPlaceUnknown);
  // The node standing at `place` among data_'s children, counted from the
  // field found last where that stands before it; null when that is far.
  xmlNodePtr NodeAtPlace(size_t place) const;
  // FindField where the field is not the node after the last one found.
  [[gnu::noinline]] xmlNodePtr FindFieldElsewhere(std::string_view fieldName, size_t place, bool resume,
                                                  xmlNodePtr next);
  // A new VALUE element of `doc` holding `text`, not linked.
  xmlNodePtr NewValueNode(xmlDocPtr doc, std::string_view text);
  // A new FIELD of the data node's document as the factory makes fields,
  // not linked.
  xmlNodePtr NewFieldNode(std::string_view fieldName);
  // A counted text of a field's name for a field this view makes, with a
  // reference for the caller; null when none can be shared.
  xmlNodePtr SharedFieldName(std::string_view fieldName);
  // Looks the element and attribute names of fields up in the dictionary
  // of `doc` when the view starts working with it; true when new nodes can
  // be made plain (see DataNodes::PlainConstruction) with those names.
  bool UsePlainNames(xmlDocPtr doc);
  xmlNodePtr GetMetaDataField(std::string_view fieldName);
  xmlNodePtr GetValuesNode(xmlNodePtr field);
  // The text of the single value of `field` (null allowed), as SingleValueText gives it.
  static const char* SingleTextOf(xmlNodePtr field) noexcept;
  int32_t GetValueCount(xmlNodePtr field);
  void CheckFieldExists(std::string_view fieldName);
  const FieldMetaData& Meta(std::string_view fieldName);
  std::string SetBinaryField(std::string_view name, const Variant& bytes);
  // SetFieldValue without its error trace; `value` is null for a String
  // whose text is `text`.
  void StoreFieldValue(std::string_view name, const Variant* value, std::string_view text, bool overwrite);
  Variant MultiValueFieldToArray(const std::vector<xmlNodePtr>& nodes, int16_t type);
  void SetTimeStamp();
  std::string OptionalAttribute(const char* name);
  void RequireData() const;
  // TransactionId the first time: the record type's id from the metadata.
  const std::string& ReadTransactionId();
  // Tells the factory of a change to a record in the tree (its key index).
  void NotifyChange();

  xmlNodePtr metaData_ = nullptr;
  xmlNodePtr data_ = nullptr;
  xmlNodePtr lastField_ = nullptr;  // where the next field search starts; a FIELD of data_
  size_t lastPlace_ = kPlaceUnknown;  // lastField_'s place among data_'s children, when known
  size_t metaHint_ = 0;             // where the next field dictionary search starts
  // Element and attribute names as the data document's dictionary holds
  // them, looked up once per dictionary the view works with; the view holds
  // a reference to that dictionary.
  xmlDictPtr namesDict_ = nullptr;
  const xmlChar* valueName_ = nullptr;
  const xmlChar* valuesName_ = nullptr;
  const xmlChar* fieldName_ = nullptr;
  const xmlChar* nameAttributeName_ = nullptr;
  bool plain_ = false;  // DataNodes::PlainConstruction(), asked once per record
  bool plainKnown_ = false;
  // Names of the fields this view made, as counted texts every such field
  // shares (the view holds one reference to each), as a template's are.
  static constexpr size_t kMaxSharedFieldNames = 64;
  std::vector<std::pair<std::string, xmlNodePtr>> fieldNames_;
  Ref<XMLWrapper> wrapper_;
  Ref<XMLWrapper> ownDocument_;
  std::weak_ptr<TransactionFactory> factory_;
  std::shared_ptr<tessel::TransformDefinition> definition_;
  std::shared_ptr<const FieldDictionary> fields_;
  int32_t fieldCount_ = 0;
  std::string id_;
  // The record type id_ was read from, kept over recycling: a view handed
  // out again for a record of the same type (the same node of the same
  // definition, which is held so that neither can be another's) has its id.
  xmlNodePtr idMeta_ = nullptr;
  std::shared_ptr<tessel::TransformDefinition> idDefinition_;
  std::string parentId_;
  bool haveId_ = false;
  bool haveParentId_ = false;
};

}  // namespace tessel
