// RecordImage: a record template laid out for copying.
//
// Every new record is a deep copy of its type's template: a RECORD with one
// FIELD (its `name` attribute, an empty VALUES) per field. Walking the tree
// and making each node field by field costs more than the nodes' own bytes;
// an image lists the template's nodes in document order with, for each link
// between them, the node it leads to, so that a copy is each node's bytes
// and its links set anew.
//
// Only plain templates have an image (Make gives null for the rest, which
// DataNodes::CloneElement copies as before): elements and attributes without
// namespaces, private data or content of their own, line numbers or
// reader flags (a copy is read from nowhere), named from the template
// document's dictionary, elements whose children are elements,
// attributes whose value is one text node: either a counted text shared by
// the template and its copies (as the factory makes short field names),
// which each copy holds a reference to as DataNodes::CloneElement's copies
// do, or a text of the attribute's own whose text is inside the node or the
// dictionary's, which each copy copies.
//
// The image refers to the template's nodes, which the caller keeps alive and
// unchanged for as long as the image is used; only the root's own place (its
// parent and siblings) may change, as it is none of the copy's. Copy may be
// called from one thread at a time.
#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tessel {

class RecordImage {
  struct Key {
    explicit Key() = default;
  };

 public:
  // The image of `model`, or null when the template is not plain.
  static std::unique_ptr<RecordImage> Make(xmlNodePtr model);

  explicit RecordImage(Key);  // for Make only: Key is private
  RecordImage(const RecordImage&) = delete;
  RecordImage& operator=(const RecordImage&) = delete;

  // True when a copy for `doc` can be made from the image: the document
  // shares the template's dictionary (names are taken as they stand) and
  // libxml2 has no node callbacks to call.
  bool CopiesInto(xmlDocPtr doc) const;
  // A copy of the template belonging to `doc`, not linked anywhere; the
  // same tree as DataNodes::CloneElement(doc, model) makes. Only where
  // CopiesInto(doc) holds. Raises std::bad_alloc, leaving nothing behind.
  xmlNodePtr Copy(xmlDocPtr doc) const;

  // The names of the template's fields in order, when the template is a
  // record of fields as the factory makes them (each child a FIELD with its
  // name and one empty VALUES); empty otherwise.
  const std::vector<std::string>& FieldNames() const { return fieldNames_; }
  // Copy, with field i given one VALUE holding texts[i] where that is not
  // empty: the tree that SetFieldText(name, text) for each field in order
  // makes of a copy, for fields whose texts are taken as they stand (no
  // quotes to drop, not binary). Only where CopiesInto(doc) holds and
  // `texts` has one text per field of FieldNames(). Raises std::bad_alloc,
  // leaving nothing behind.
  xmlNodePtr CopyFilled(xmlDocPtr doc, std::span<const std::string_view> texts) const;

 private:
  // A pointer field of a copied node (at `offset` in node `node`) that must
  // lead to node `target` of the copy, or to nothing when `target` is the
  // number of nodes.
  struct Link {
    uint32_t node;
    uint32_t offset;
    uint32_t target;
  };

  // The copy's nodes, made from the image into blocks_[0, sources_.size());
  // returns the root.
  xmlNodePtr CopyInto(xmlDocPtr doc) const;
  // Finds the template's fields (fieldNames_, fieldValues_) when it is a
  // record of fields as the factory makes them.
  void FindFields(xmlNodePtr model, const std::unordered_map<const void*, uint32_t>& indexes);
  // Adds `element` and everything below it; false when something is not plain.
  bool AddElement(xmlNodePtr element);
  // Adds the links of node `index` whose fields are set in the template;
  // `indexes` gives each template node's index.
  void AddLinks(uint32_t index, const std::unordered_map<const void*, uint32_t>& indexes);

  xmlDocPtr templateDoc_ = nullptr;  // the template's document
  std::vector<const void*> sources_;  // the template's nodes, in document order
  std::vector<uint16_t> sizes_;       // their structures' sizes
  std::vector<Link> links_;
  std::vector<void*> sharedTexts_;    // attribute values shared with the template, held once more per copy
  std::vector<uint32_t> textsInside_;  // texts of the image whose text is inside the node
  std::vector<std::string> fieldNames_;
  std::vector<uint32_t> fieldValues_;     // per field, the index of its VALUES
  const xmlChar* valueName_ = nullptr;    // "VALUE" as the template's dictionary holds it
  std::vector<uint16_t> filledSizes_;     // sizes_, then a VALUE and its text per field
  mutable std::vector<void*> blocks_;     // the copy being made, and a null after it
  mutable std::vector<xmlChar*> longTexts_;  // CopyFilled's texts too long to sit in their node
};

}  // namespace tessel
