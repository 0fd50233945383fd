// FieldNameNode: the text nodes that name one field in the records made
// from one template, remembered so that a reader that asks for the field
// record after record knows it by that node's address.
//
// Why: the records of a template share the text of each field's `name`
// attribute as one counted node (see DataNodes::NewSharedText). Such a node
// is never changed once made (an attribute given another value gets a node
// of its own), so a FIELD whose first attribute `name` holds the remembered
// node is the field of that name, with no bytes compared.
//
// Fields that a transform adds share their name node per record view that
// made them, and views take turns, so two nodes are remembered.
//
// Contract:
// - Learn(field, name) remembers the node naming `field` when it is a
//   shared node holding `name`, in place of the one learnt before the last.
// - Names(node) is true only when `node` is a FIELD element whose first
//   attribute is `name` (neither with a namespace) holding a remembered
//   node; false when nothing is remembered.
// - The object holds a reference to each node it remembers, so an address
//   can never come to stand for another node. Copies hold their own.
//   Any thread may use its own object.
#pragma once

#include <libxml/tree.h>

#include <string_view>

namespace tessel {

class FieldNameNode {
 public:
  FieldNameNode() = default;
  FieldNameNode(const FieldNameNode& other);
  FieldNameNode& operator=(const FieldNameNode& other);
  ~FieldNameNode();

  [[gnu::always_inline]] bool Names(xmlNodePtr node) const {
    if (node->type != XML_ELEMENT_NODE || node->ns != nullptr) return false;
    xmlAttrPtr attribute = node->properties;
    if (attribute == nullptr || attribute->ns != nullptr) return false;
    xmlNodePtr text = attribute->children;
    if (text == nullptr || (text != nodes_[0] && text != nodes_[1])) return false;
    const xmlChar* a = attribute->name;
    const xmlChar* e = node->name;
    return a[0] == 'n' && a[1] == 'a' && a[2] == 'm' && a[3] == 'e' && a[4] == '\0' && e[0] == 'F' &&
           e[1] == 'I' && e[2] == 'E' && e[3] == 'L' && e[4] == 'D' && e[5] == '\0';
  }
  void Learn(xmlNodePtr field, std::string_view name);

 private:
  void Hold(size_t slot, xmlNodePtr node);

  xmlNodePtr nodes_[2] = {nullptr, nullptr};
  size_t newest_ = 0;
};

}  // namespace tessel
