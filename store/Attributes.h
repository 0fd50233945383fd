// Attributes: a small bag of named values kept as the attributes of an XML
// element, used to hand a set of attributes to a new node
// (XMLWrapper::GenerateNode, TransactionFactory::AddTransaction) or to read
// and change those of an existing element (SetXNode).
//
// The bag owns a private document; until SetXNode binds it to an element of
// another document, its element is an ATTRIBS element made by the first Add.
// CopyAttributesOntoNode moves the attributes: the bag is empty afterwards.
//
// GetAttributes before the first Add raises 91: there is no element yet.
#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"

namespace tessel {

class XMLWrapper;

class Attributes : public Object {
 public:
  Attributes();
  ~Attributes() override;

  std::string TypeName() const override { return "Attributes"; }

  // Replaces the text of an attribute of that name whose text is not empty;
  // otherwise sets a new attribute (Null and Empty give empty text).
  void Add(std::string_view name, const Variant& value);
  void RemoveAll();
  // The attribute's text, or "" when there is none.
  std::string AttributeByName(std::string_view name) const;
  bool HasAttribute(std::string_view name) const;
  // The attributes of the element, in order; 91 before the element exists.
  std::vector<xmlAttrPtr> GetAttributes() const;
  // Moves every attribute onto `node`, replacing those of the same name there.
  void CopyAttributesOntoNode(xmlNodePtr node);
  // Binds the bag to an existing element; later calls work on it.
  void SetXNode(xmlNodePtr node);
  // Removes the attribute at a 0-based position.
  void RemoveItem(int32_t item);

 private:
  Ref<XMLWrapper> own_;
  xmlNodePtr xNode_ = nullptr;
};

}  // namespace tessel
