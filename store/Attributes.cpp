#include "store/Attributes.h"

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "store/XMLWrapper.h"

namespace tessel {
namespace {

const xmlChar* X(const std::string& text) { return reinterpret_cast<const xmlChar*>(text.c_str()); }

xmlAttrPtr FindAttribute(xmlNodePtr node, std::string_view name) {
  if (node == nullptr) return nullptr;
  for (xmlAttrPtr a = node->properties; a != nullptr; a = a->next) {
    if (a->ns == nullptr && name == reinterpret_cast<const char*>(a->name)) return a;
  }
  return nullptr;
}

std::string AttributeText(xmlAttrPtr attribute) {
  xmlChar* value = xmlNodeListGetString(attribute->doc, attribute->children, 1);
  std::string text = value ? reinterpret_cast<const char*>(value) : "";
  xmlFree(value);
  return text;
}

}  // namespace

Attributes::Attributes() {
  own_ = MakeRef<XMLWrapper>();
  own_->CreateDocument();
}

Attributes::~Attributes() = default;

void Attributes::Add(std::string_view name, const Variant& value) {
  try {
    if (xNode_ == nullptr) xNode_ = own_->GenerateNode("ATTRIBS");
    std::string key(name);
    Check(xmlValidateName(X(key), 0) == 0, Error::kGeneral, "[%1] is not a valid attribute name.",
          Variant(name));
    std::string text = value.IsNull() || value.IsEmpty() ? std::string() : value.ToString();
    // Replacing and creating end the same way in a DOM without attribute
    // objects of their own: the element holds the name with the new text.
    xmlSetProp(xNode_, X(key), X(text));
  } catch (...) {
    ErrorInRethrow("Attributes.Add(sName, vVal)", {Variant(name), value});
  }
}

void Attributes::RemoveAll() {
  try {
    while (xNode_ != nullptr && xNode_->properties != nullptr) RemoveItem(0);
  } catch (...) {
    ErrorInRethrow("Attributes.RemoveAll()", {});
  }
}

std::string Attributes::AttributeByName(std::string_view name) const {
  xmlAttrPtr found = FindAttribute(xNode_, name);
  return found ? AttributeText(found) : std::string();
}

bool Attributes::HasAttribute(std::string_view name) const {
  try {
    if (xNode_ == nullptr) ThrowRuntimeError(91);
    return FindAttribute(xNode_, name) != nullptr;
  } catch (...) {
    ErrorInRethrow("Attributes.HasAttribute(sName)", {Variant(name)});
  }
}

std::vector<xmlAttrPtr> Attributes::GetAttributes() const {
  try {
    if (xNode_ == nullptr) ThrowRuntimeError(91);
    std::vector<xmlAttrPtr> all;
    for (xmlAttrPtr a = xNode_->properties; a != nullptr; a = a->next) all.push_back(a);
    return all;
  } catch (...) {
    ErrorInRethrow("Attributes.GetAttributes()", {});
  }
}

void Attributes::CopyAttributesOntoNode(xmlNodePtr node) {
  try {
    if (node == nullptr) ThrowRuntimeError(91);
    if (xNode_ == nullptr) return;
    while (xNode_->properties != nullptr) {
      xmlAttrPtr first = xNode_->properties;
      std::string name = reinterpret_cast<const char*>(first->name);
      std::string text = AttributeText(first);
      RemoveItem(0);
      xmlSetProp(node, X(name), X(text));
    }
  } catch (...) {
    ErrorInRethrow("Attributes.CopyAttributesOntoNode(nod)", {});
  }
}

void Attributes::SetXNode(xmlNodePtr node) { xNode_ = node; }

void Attributes::RemoveItem(int32_t item) {
  try {
    xmlAttrPtr a = xNode_ ? xNode_->properties : nullptr;
    for (int32_t i = 0; a != nullptr && i < item; ++i) a = a->next;
    Check(a != nullptr, 5, "Invalid procedure call or argument");
    xmlRemoveProp(a);
  } catch (...) {
    ErrorInRethrow("Attributes.RemoveItem(lItem)", {Variant(item)});
  }
}

}  // namespace tessel
