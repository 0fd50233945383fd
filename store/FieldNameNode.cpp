#include "store/FieldNameNode.h"

#include "store/DataNodes.h"
#include "store/XmlHeap.h"

namespace tessel {

FieldNameNode::FieldNameNode(const FieldNameNode& other) : newest_(other.newest_) {
  Hold(0, other.nodes_[0]);
  Hold(1, other.nodes_[1]);
}

FieldNameNode& FieldNameNode::operator=(const FieldNameNode& other) {
  Hold(0, other.nodes_[0]);
  Hold(1, other.nodes_[1]);
  newest_ = other.newest_;
  return *this;
}

FieldNameNode::~FieldNameNode() {
  Hold(0, nullptr);
  Hold(1, nullptr);
}

void FieldNameNode::Hold(size_t slot, xmlNodePtr node) {
  xmlNodePtr& held = nodes_[slot];
  if (node == held) return;
  if (node != nullptr) XmlHeap::Retain(node);
  // A shared node keeps its text inside itself and belongs to no document:
  // dropping the last reference to it is freeing its block.
  if (held != nullptr) XmlHeap::Free(held);
  held = node;
}

void FieldNameNode::Learn(xmlNodePtr field, std::string_view name) {
  xmlNodePtr text = nullptr;
  if (field != nullptr && field->type == XML_ELEMENT_NODE && field->ns == nullptr &&
      DataNodes::SameLiteral(field->name, "FIELD")) {
    xmlAttrPtr attribute = field->properties;
    if (attribute != nullptr && attribute->ns == nullptr && DataNodes::SameLiteral(attribute->name, "name")) {
      text = attribute->children;
    }
  }
  const bool shared = text != nullptr && text->next == nullptr && text->type == XML_TEXT_NODE &&
                      text->content != nullptr && XmlHeap::IsCounted(text) &&
                      DataNodes::SameName(text->content, name);
  if (!shared || text == nodes_[0] || text == nodes_[1]) return;
  newest_ = 1 - newest_;
  Hold(newest_, text);
}

}  // namespace tessel
