// IImportReader: cuts the data sets of an IInputOutputController into records
// and fields.
//
// InitClass leaves the reader standing on the first record (natural-hierarchy
// readers stand before it), so a caller's loop is: test EOF_, use the record,
// MoveNext unless EOF_. The reader shares the controller with its transform;
// the definition outlives the reader.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

#include "core/Variant.h"

namespace tessel {

class IInputOutputController;
class TransformDefinition;

class IImportReader {
 public:
  virtual ~IImportReader() = default;

  virtual void InitClass(std::shared_ptr<TransformDefinition> definition,
                         std::shared_ptr<IInputOutputController> controller, bool testMode) = 0;
  virtual void MoveNext() = 0;
  // The value of the field whose FIELD element of the definition is given.
  virtual Variant Item(xmlNodePtr fieldNode) = 0;
  // Item as text where the reader keeps it, valid until MoveNext, for a
  // reader whose values are all Strings: true and `text` set, or the same
  // errors as Item. false when the reader does not keep text (use Item).
  virtual bool ItemText(xmlNodePtr fieldNode, std::string_view& text) { return false; }
  // The value at a 0-based position of the current record.
  virtual Variant FieldByPosition(int32_t position) = 0;
  virtual bool EOF_() = 0;
  // Lets the reader check or re-cut the current record once its type is known.
  virtual void ValidateRecord(xmlNodePtr recordNode) = 0;
  virtual std::string Source() = 0;
};

}  // namespace tessel
