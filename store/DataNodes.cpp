#include "store/DataNodes.h"

#include <libxml/dict.h>
#include <libxml/globals.h>
#include <libxml/parserInternals.h>

#include <cstring>
#include <new>

#include "store/XmlHeap.h"

namespace tessel {
namespace {

const xmlChar* X(const char* text) { return reinterpret_cast<const xmlChar*>(text); }
const char* C(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

// Room inside a text node for a short text: its properties and nsDef slots.
constexpr size_t kInlineRoom = sizeof(void*) * 2;

// A zeroed node structure from libxml2's allocator.
template <class T>
T* NewStructure() {
  T* node = static_cast<T*>(xmlMalloc(sizeof(T)));
  if (node == nullptr) throw std::bad_alloc();
  std::memset(node, 0, sizeof(T));
  return node;
}

// An element of `doc` named by a name that the document's dictionary owns,
// made as xmlNewDocNodeEatName makes it when no node callback is registered.
xmlNodePtr PlainElement(xmlDocPtr doc, const xmlChar* name) {
  xmlNodePtr node = NewStructure<xmlNode>();
  node->type = XML_ELEMENT_NODE;
  node->name = name;
  node->doc = doc;
  return node;
}

// An attribute without value appended to the element's attributes, made as
// xmlNewNsPropEatName makes it when no node callback is registered.
xmlAttrPtr PlainAttribute(xmlNodePtr element, const xmlChar* name, xmlAttrPtr last) {
  xmlAttrPtr attribute = NewStructure<xmlAttr>();
  attribute->type = XML_ATTRIBUTE_NODE;
  attribute->name = name;
  attribute->parent = element;
  attribute->doc = element->doc;
  attribute->prev = last;
  if (last != nullptr) last->next = attribute; else element->properties = attribute;
  return attribute;
}

}  // namespace

bool DataNodes::PlainConstruction() { return xmlRegisterNodeDefaultValue == nullptr; }

bool DataNodes::FitsInTextNode(size_t length) { return length < kInlineRoom; }

void DataNodes::PutTextInNode(xmlNodePtr textNode, std::string_view text) {
  char* room = reinterpret_cast<char*>(&textNode->properties);
  for (size_t i = 0; i < text.size(); ++i) room[i] = text[i];
  room[text.size()] = '\0';
  textNode->content = reinterpret_cast<xmlChar*>(room);
}

xmlNodePtr DataNodes::NewText(xmlDocPtr doc, std::string_view text, bool shareInDictionary) {
  return NewText(doc, text, shareInDictionary, PlainConstruction());
}

xmlNodePtr DataNodes::NewText(xmlDocPtr doc, std::string_view text, bool shareInDictionary, bool plain) {
  xmlNodePtr node;
  if (plain) {
    // As xmlNewDocText makes it.
    node = NewStructure<xmlNode>();
    node->type = XML_TEXT_NODE;
    node->name = xmlStringText;
    node->doc = doc;
  } else {
    node = xmlNewDocText(doc, nullptr);
    if (node == nullptr) throw std::bad_alloc();
  }
  if (FitsInTextNode(text.size())) {
    PutTextInNode(node, text);
  } else if (shareInDictionary && doc != nullptr && doc->dict != nullptr) {
    node->content = const_cast<xmlChar*>(
        xmlDictLookup(doc->dict, reinterpret_cast<const xmlChar*>(text.data()), static_cast<int>(text.size())));
  } else {
    node->content = xmlStrndup(reinterpret_cast<const xmlChar*>(text.data()), static_cast<int>(text.size()));
  }
  if (node->content == nullptr) {
    xmlFreeNode(node);
    throw std::bad_alloc();
  }
  return node;
}

xmlNodePtr DataNodes::NewSharedText(std::string_view text) {
  // A node callback would see one node stand for many and be told of its
  // end once per holder; with one registered, nothing is shared.
  if (text.size() >= kInlineRoom || xmlRegisterNodeDefaultValue != nullptr) return nullptr;
  void* block = XmlHeap::AllocateCounted(sizeof(xmlNode));
  if (block == nullptr) return nullptr;
  // Made as libxml2 makes a text node, with the text in the node itself and
  // neither document nor parent, as it belongs to no one attribute.
  xmlNodePtr node = static_cast<xmlNodePtr>(block);
  std::memset(node, 0, sizeof(xmlNode));
  node->type = XML_TEXT_NODE;
  node->name = xmlStringText;
  char* room = reinterpret_cast<char*>(&node->properties);
  std::memcpy(room, text.data(), text.size());
  room[text.size()] = '\0';
  node->content = reinterpret_cast<xmlChar*>(room);
  return node;
}

void DataNodes::SetAttribute(xmlNodePtr element, const char* name, std::string_view text, bool shared) {
  xmlNodePtr value = shared ? NewSharedText(text) : nullptr;
  if (value == nullptr) value = NewText(element->doc, text, shared);
  SetAttributeText(element, name, value);
}

void DataNodes::SetAttributeText(xmlNodePtr element, const char* name, xmlNodePtr text) {
  xmlAttrPtr attribute = FindAttribute(element, name);
  if (attribute == nullptr) {
    attribute = xmlNewProp(element, X(name), nullptr);
    if (attribute == nullptr) {
      xmlFreeNode(text);
      throw std::bad_alloc();
    }
  } else if (attribute->children != nullptr) {
    xmlFreeNodeList(attribute->children);
  }
  // A shared text keeps no parent: it has many.
  if (!XmlHeap::IsCounted(text)) text->parent = reinterpret_cast<xmlNodePtr>(attribute);
  attribute->children = text;
  attribute->last = text;
}

std::string DataNodes::AttributeValue(xmlAttrPtr attribute) {
  if (const char* text = SingleText(attribute)) return text;
  xmlChar* value = xmlNodeListGetString(attribute->doc, attribute->children, 1);
  std::string text = value ? C(value) : "";
  xmlFree(value);
  return text;
}

xmlNodePtr DataNodes::CloneElement(xmlDocPtr doc, xmlNodePtr source) {
  if (source->type != XML_ELEMENT_NODE || source->ns != nullptr || source->nsDef != nullptr) {
    xmlNodePtr copy = xmlDocCopyNode(source, doc, 1);
    if (copy == nullptr) throw std::bad_alloc();
    return copy;
  }
  // Documents that share one dictionary share their names: the copy takes
  // the same interned pointers instead of looking each name up again.
  const bool sameDictionary = doc != nullptr && doc->dict != nullptr && source->doc != nullptr &&
                              source->doc->dict == doc->dict;
  if (sameDictionary && PlainConstruction()) return ClonePlain(doc, source);
  xmlNodePtr copy = sameDictionary
                        ? xmlNewDocNodeEatName(doc, nullptr, const_cast<xmlChar*>(source->name), nullptr)
                        : xmlNewDocNode(doc, nullptr, source->name, nullptr);
  if (copy == nullptr) throw std::bad_alloc();
  try {
    for (xmlAttrPtr a = source->properties; a != nullptr; a = a->next) {
      if (a->ns != nullptr) {
        if (xmlCopyProp(copy, a) == nullptr) throw std::bad_alloc();
        continue;
      }
      xmlAttrPtr attribute = sameDictionary
                                 ? xmlNewNsPropEatName(copy, nullptr, const_cast<xmlChar*>(a->name), nullptr)
                                 : xmlNewProp(copy, a->name, nullptr);
      if (attribute == nullptr) throw std::bad_alloc();
      xmlNodePtr value;
      if (xmlNodePtr text = a->children; text != nullptr && text->next == nullptr &&
                                           text->type == XML_TEXT_NODE && XmlHeap::IsCounted(text)) {
        // The templates' texts are counted: every record holds the same one.
        XmlHeap::Retain(text);
        value = text;
      } else {
        const char* single = SingleText(a);
        value = single ? NewText(doc, single, true) : NewText(doc, AttributeValue(a), true);
        value->parent = reinterpret_cast<xmlNodePtr>(attribute);
      }
      attribute->children = value;
      attribute->last = value;
    }
    for (xmlNodePtr child = source->children; child != nullptr; child = child->next) {
      xmlNodePtr added;
      if (child->type == XML_TEXT_NODE) {
        added = NewText(doc, child->content ? C(child->content) : "");
      } else if (child->type == XML_ELEMENT_NODE) {
        added = CloneElement(doc, child);
      } else {
        added = xmlDocCopyNode(child, doc, 1);
        if (added == nullptr) throw std::bad_alloc();
      }
      // Linked by hand: xmlAddChild would merge neighbouring text nodes.
      added->parent = copy;
      added->prev = copy->last;
      if (copy->last != nullptr) copy->last->next = added; else copy->children = added;
      copy->last = added;
    }
  } catch (...) {
    xmlFreeNode(copy);
    throw;
  }
  return copy;
}

xmlNodePtr DataNodes::ClonePlain(xmlDocPtr doc, xmlNodePtr source) {
  xmlNodePtr copy = PlainElement(doc, source->name);
  try {
    xmlAttrPtr last = nullptr;
    for (xmlAttrPtr a = source->properties; a != nullptr; a = a->next) {
      if (a->ns != nullptr) {
        if (xmlCopyProp(copy, a) == nullptr) throw std::bad_alloc();
        last = copy->properties;
        while (last->next != nullptr) last = last->next;
        continue;
      }
      xmlAttrPtr attribute = PlainAttribute(copy, a->name, last);
      last = attribute;
      xmlNodePtr value;
      if (xmlNodePtr text = a->children; text != nullptr && text->next == nullptr &&
                                           text->type == XML_TEXT_NODE && XmlHeap::IsCounted(text)) {
        XmlHeap::Retain(text);
        value = text;
      } else {
        const char* single = SingleText(a);
        value = single ? NewText(doc, single, true, true) : NewText(doc, AttributeValue(a), true, true);
        value->parent = reinterpret_cast<xmlNodePtr>(attribute);
      }
      attribute->children = value;
      attribute->last = value;
    }
    for (xmlNodePtr child = source->children; child != nullptr; child = child->next) {
      xmlNodePtr added;
      if (child->type == XML_TEXT_NODE) {
        added = NewText(doc, child->content ? C(child->content) : "", false, true);
      } else if (child->type == XML_ELEMENT_NODE && child->ns == nullptr && child->nsDef == nullptr) {
        added = ClonePlain(doc, child);
      } else {
        added = child->type == XML_ELEMENT_NODE ? CloneElement(doc, child) : xmlDocCopyNode(child, doc, 1);
        if (added == nullptr) throw std::bad_alloc();
      }
      added->parent = copy;
      added->prev = copy->last;
      if (copy->last != nullptr) copy->last->next = added; else copy->children = added;
      copy->last = added;
    }
  } catch (...) {
    xmlFreeNode(copy);
    throw;
  }
  return copy;
}

void DataNodes::AllocateNodes(const uint16_t* sizes, size_t count, void** blocks) {
  if (XmlHeap::Installed()) {
    if (!XmlHeap::AllocateEach(sizes, count, blocks)) throw std::bad_alloc();
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    blocks[i] = xmlMalloc(sizes[i]);
    if (blocks[i] == nullptr) {
      while (i > 0) xmlFree(blocks[--i]);
      throw std::bad_alloc();
    }
  }
}

xmlNodePtr DataNodes::NewPlainField(xmlDocPtr doc, const xmlChar* fieldElement, const xmlChar* valuesElement,
                                    const xmlChar* nameAttribute, std::string_view fieldName, xmlNodePtr sharedName) {
  xmlNodePtr field = PlainElement(doc, fieldElement);
  try {
    xmlAttrPtr attribute = PlainAttribute(field, nameAttribute, nullptr);
    xmlNodePtr values = PlainElement(doc, valuesElement);
    values->parent = field;
    field->children = field->last = values;
    // The name comes last, so that a failure before leaves a given shared
    // name with its caller.
    xmlNodePtr text = sharedName != nullptr ? sharedName : NewSharedText(fieldName);
    // A shared text keeps no parent: it may have many.
    if (text == nullptr) {
      text = NewText(doc, fieldName, true, true);
      text->parent = reinterpret_cast<xmlNodePtr>(attribute);
    }
    attribute->children = attribute->last = text;
  } catch (...) {
    xmlFreeNode(field);
    throw;
  }
  return field;
}

xmlNodePtr DataNodes::NewValue(xmlDocPtr doc, const xmlChar* plainValueElement, std::string_view text) {
  xmlNodePtr value;
  if (plainValueElement != nullptr) {
    value = PlainElement(doc, plainValueElement);
  } else {
    value = xmlNewDocNode(doc, nullptr, X("VALUE"), nullptr);
    if (value == nullptr) throw std::bad_alloc();
  }
  if (text.empty()) return value;
  xmlNodePtr content;
  try {
    content = NewText(doc, text, false, plainValueElement != nullptr);
  } catch (...) {
    xmlFreeNode(value);
    throw;
  }
  content->parent = value;
  value->children = value->last = content;
  return value;
}

bool DataNodes::HasText(xmlNodePtr node) {
  if (node == nullptr) return false;
  switch (node->type) {
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
      return node->content != nullptr && node->content[0] != '\0';
    case XML_ELEMENT_NODE:
      for (xmlNodePtr c = node->children; c != nullptr; c = c->next) {
        if ((c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE || c->type == XML_ELEMENT_NODE ||
             c->type == XML_ENTITY_REF_NODE) &&
            HasText(c)) {
          return true;
        }
      }
      return false;
    default:
      return !Text(node).empty();
  }
}

std::string DataNodes::Text(xmlNodePtr node) {
  if (node == nullptr) return {};
  if (node->type == XML_ELEMENT_NODE) {
    xmlNodePtr only = node->children;
    if (only == nullptr) return {};
    if (only->next == nullptr && only->type == XML_TEXT_NODE) return only->content ? C(only->content) : "";
  }
  xmlChar* content = xmlNodeGetContent(node);
  std::string text = content ? C(content) : "";
  xmlFree(content);
  return text;
}

void DataNodes::SetText(xmlNodePtr node, std::string_view text) {
  if (node->type == XML_ELEMENT_NODE) {
    RemoveChildren(node);
    if (text.empty()) return;
    xmlNodePtr value = NewText(node->doc, text);
    value->parent = node;
    node->children = value;
    node->last = value;
    return;
  }
  std::string copy(text);
  xmlNodeSetContent(node, X(copy.c_str()));
}

namespace {

// Whether the document's dictionary owns a string, with the answers for the
// few names and texts of a data document remembered: libxml2 asks the
// dictionary by walking its pools, once for every node freed.
class OwnedStrings {
 public:
  explicit OwnedStrings(xmlDictPtr dict) : dict_(dict) {}
  bool Owns(const xmlChar* text) {
    if (dict_ == nullptr) return false;
    const size_t slot = (reinterpret_cast<uintptr_t>(text) >> 3) % kSlots;
    if (known_[slot] == text) return true;
    if (xmlDictOwns(dict_, text) != 1) return false;
    known_[slot] = text;
    return true;
  }
  // Frees a string unless the dictionary owns it, as libxml2 does.
  void Free(const xmlChar* text) {
    if (text != nullptr && !Owns(text)) xmlFree(const_cast<xmlChar*>(text));
  }

 private:
  static constexpr size_t kSlots = 16;
  xmlDictPtr dict_;
  const xmlChar* known_[kSlots] = {};
};

void FreeText(xmlNodePtr text, OwnedStrings& owned) {
  if (text->content != reinterpret_cast<xmlChar*>(&text->properties)) owned.Free(text->content);
  xmlFree(text);
}

void FreeAttributes(xmlAttrPtr attribute, OwnedStrings& owned) {
  while (attribute != nullptr) {
    xmlAttrPtr next = attribute->next;
    if (attribute->atype == XML_ATTRIBUTE_ID) {
      xmlFreeProp(attribute);  // it leaves the document's ID table
    } else {
      xmlNodePtr value = attribute->children;
      if (value != nullptr && value->next == nullptr && value->type == XML_TEXT_NODE) {
        FreeText(value, owned);
      } else if (value != nullptr) {
        xmlFreeNodeList(value);
      }
      owned.Free(attribute->name);
      xmlFree(attribute);
    }
    attribute = next;
  }
}

}  // namespace

void DataNodes::FreeTree(xmlNodePtr node) {
  if (node == nullptr) return;
  if (node->type != XML_ELEMENT_NODE || xmlDeregisterNodeDefaultValue != nullptr) {
    xmlFreeNode(node);
    return;
  }
  // The walk of xmlFreeNodeList: down to the first leaf, free it, on to its
  // sibling or back up to its parent, which has no children left then.
  OwnedStrings owned(node->doc != nullptr ? node->doc->dict : nullptr);
  xmlNodePtr current = node;
  size_t depth = 0;
  while (true) {
    while (current->type == XML_ELEMENT_NODE && current->children != nullptr) {
      current = current->children;
      ++depth;
    }
    xmlNodePtr next = depth > 0 ? current->next : nullptr;
    xmlNodePtr parent = current->parent;
    switch (current->type) {
      case XML_ELEMENT_NODE:
        FreeAttributes(current->properties, owned);
        if (current->nsDef != nullptr) xmlFreeNsList(current->nsDef);
        owned.Free(current->name);
        xmlFree(current);
        break;
      case XML_TEXT_NODE:
        FreeText(current, owned);
        break;
      default:
        xmlFreeNode(current);  // with its own children, as libxml2 frees them
        break;
    }
    if (next != nullptr) {
      current = next;
    } else {
      if (depth == 0) break;
      --depth;
      current = parent;
      current->children = nullptr;
    }
  }
}

void DataNodes::RemoveChildren(xmlNodePtr node) {
  xmlNodePtr child = node->children;
  node->children = nullptr;
  node->last = nullptr;
  if (child != nullptr) xmlFreeNodeList(child);
}

}  // namespace tessel
