// DataNodes: the small node operations of the data document that run for
// every field of every record, done directly on libxml2 nodes instead of
// through XPath queries, with the same results.
//
// Memory: a data document holds several nodes per field value, so texts of
// fewer than 16 bytes are kept inside their text node (in the two pointer
// slots a text node does not use, as libxml2's own parser does), and
// attribute texts of templates are shared through the document's name
// dictionary when it has one. libxml2 frees and replaces such texts itself.
// Short attribute texts of templates (field names) go further: the text node
// itself is shared by every record made from the template, as a counted
// block of XmlHeap whose frees drop one reference each; so is the time stamp
// of the records made in one millisecond. Such a node is reached only
// through its attributes, which XPath does not descend into, copies of the
// attribute copy the text, and an attribute that is set anew lets go of it
// instead of changing it.
//
// Speed: without node callbacks registered with libxml2, nodes are made
// field by field as libxml2 makes them, and FreeTree frees trees without
// asking the dictionary about every name again.
//
// Stateless; every function works on the nodes it is given.
#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace tessel {

class DataNodes {
 public:
  static constexpr size_t kCacheLine = 64;
  // About the nodes of ten fields with their values, of forty, and of three.
  static constexpr size_t kPrefetchRecordBytes = 4096;
  static constexpr ptrdiff_t kPrefetchRecordMaxBytes = 16384;
  static constexpr size_t kPrefetchAttributeBytes = 1024;
  static constexpr size_t kPrefetchLastFieldBytes = 1536;
  // A new text node of `doc`, not linked anywhere.
  static xmlNodePtr NewText(xmlDocPtr doc, std::string_view text, bool shareInDictionary = false);
  // The same, with PlainConstruction() asked by the caller beforehand.
  static xmlNodePtr NewText(xmlDocPtr doc, std::string_view text, bool shareInDictionary, bool plain);
  // A text node that many attributes may hold at once, or nullptr when the
  // text is too long for that or the heap cannot count references. Each
  // holder frees it as usual; the last free ends it. It has no document and
  // no parent, and must never be changed in place.
  static xmlNodePtr NewSharedText(std::string_view text);
  // Sets the attribute (no namespace) to `text`, replacing its value when it
  // exists. With `shared`, the text is a shared node when it can be (else
  // its text is shared through the dictionary): for the names of template
  // fields, which CloneElement then hands on to every copy.
  static void SetAttribute(xmlNodePtr element, const char* name, std::string_view text, bool shared = false);
  // The same with a text node made by the caller, which the attribute takes.
  static void SetAttributeText(xmlNodePtr element, const char* name, xmlNodePtr text);
  // The attribute without namespace, or nullptr.
  static xmlAttrPtr FindAttribute(xmlNodePtr element, std::string_view name) {
    if (element == nullptr || element->type != XML_ELEMENT_NODE) return nullptr;
    for (xmlAttrPtr a = element->properties; a != nullptr; a = a->next) {
      if (a->ns == nullptr && SameName(a->name, name)) return a;
    }
    return nullptr;
  }
  template <size_t N>
  static xmlAttrPtr FindAttribute(xmlNodePtr element, const char (&name)[N]) {
    if (element == nullptr || element->type != XML_ELEMENT_NODE) return nullptr;
    for (xmlAttrPtr a = element->properties; a != nullptr; a = a->next) {
      if (a->ns == nullptr && SameLiteral(a->name, name)) return a;
    }
    return nullptr;
  }
  // The attribute's value as XPath sees it.
  static std::string AttributeValue(xmlAttrPtr attribute);
  // The attribute's value when it is one text node (as nearly always),
  // without a copy; nullptr otherwise.
  static const char* SingleText(xmlAttrPtr attribute) {
    xmlNodePtr child = attribute->children;
    if (child != nullptr && child->next == nullptr && child->type == XML_TEXT_NODE) {
      return child->content ? reinterpret_cast<const char*>(child->content) : "";
    }
    return nullptr;
  }
  // True when the attribute's value equals `text`, without copying it.
  static bool AttributeEquals(xmlAttrPtr attribute, std::string_view text) {
    if (attribute->children == nullptr) return text.empty();
    if (const char* value = SingleText(attribute)) return SameName(reinterpret_cast<const xmlChar*>(value), text);
    return AttributeValue(attribute) == text;
  }
  // True when no node callback is registered with libxml2: nodes are then
  // made here field by field as libxml2's constructors make them, without
  // the calls and lookups those take.
  static bool PlainConstruction();
  // Ask the processor to bring a record's memory into its caches ahead of
  // use, for code that walks record after record. A record made at once
  // from its template lies in the bytes after its RECORD node, and fields
  // added later around its last child. Cheap, and harmless where a record
  // lies otherwise: a prefetch never faults.
  // The bytes after the RECORD node, up to `following` (the record made
  // after it) where that is near, else kPrefetchRecordBytes; reads nothing.
  static void PrefetchRecordStart(xmlNodePtr record, xmlNodePtr following = nullptr) {
    if (record == nullptr) return;
    const char* start = reinterpret_cast<const char*>(record);
    const char* end = reinterpret_cast<const char*>(following);
    const size_t bytes = end > start && end - start <= kPrefetchRecordMaxBytes ? static_cast<size_t>(end - start)
                                                                               : kPrefetchRecordBytes;
    for (size_t offset = 0; offset < bytes; offset += kCacheLine) Prefetch(start + offset);
  }
  // The bytes of its attributes, and at its last child where they lie
  // apart: this reads the RECORD node, so it is best asked once
  // PrefetchRecordStart's bytes are there.
  static void PrefetchRecordEnd(xmlNodePtr record) {
    if (record == nullptr) return;
    const char* start = reinterpret_cast<const char*>(record);
    // The attributes of the record and of its fields come from a size
    // class of their own, one after the other.
    if (const char* attributes = reinterpret_cast<const char*>(record->properties)) {
      for (size_t offset = 0; offset < kPrefetchAttributeBytes; offset += kCacheLine) Prefetch(attributes + offset);
    }
    const char* last = reinterpret_cast<const char*>(record->last);
    if (last == nullptr || (last >= start && last < start + kPrefetchRecordBytes)) return;
    for (size_t offset = 0; offset < kPrefetchLastFieldBytes; offset += kCacheLine) Prefetch(last + offset);
  }
  // One cache line. As an instruction of its own: the compiler drops a
  // loop of nothing but __builtin_prefetch as a loop without effect.
  static void Prefetch(const char* address) {
#if defined(__x86_64__)
    asm volatile("prefetcht0 %0" : : "m"(*address));
#else
    __builtin_prefetch(address);
#endif
  }
  // A deep copy of an element into `doc`, not linked anywhere; attribute
  // texts that are shared nodes are held by the copy as well, others are
  // shared through the dictionary.
  static xmlNodePtr CloneElement(xmlDocPtr doc, xmlNodePtr source);
  // The first child element of that name (no namespace), or nullptr.
  static xmlNodePtr FirstChildElement(xmlNodePtr parent, std::string_view name) {
    if (parent == nullptr) return nullptr;
    for (xmlNodePtr c = parent->children; c != nullptr; c = c->next) {
      if (IsElement(c, name)) return c;
    }
    return nullptr;
  }
  // The first child element of that name whose attribute `attribute` equals
  // `value`: the step NAME[@attribute='value'].
  static xmlNodePtr ChildWithAttribute(xmlNodePtr parent, std::string_view name, const char* attribute,
                                       std::string_view value) {
    if (parent == nullptr) return nullptr;
    return SiblingWithAttribute(parent->children, name, attribute, value);
  }
  // The same among `first` and its following siblings only.
  static xmlNodePtr SiblingWithAttribute(xmlNodePtr first, std::string_view name, const char* attribute,
                                         std::string_view value) {
    for (xmlNodePtr c = first; c != nullptr; c = c->next) {
      if (!IsElement(c, name)) continue;
      xmlAttrPtr a = FindAttribute(c, attribute);
      if (a != nullptr && AttributeEquals(a, value)) return c;
    }
    return nullptr;
  }
  static bool IsElement(xmlNodePtr node, std::string_view name) {
    return node != nullptr && node->type == XML_ELEMENT_NODE && node->ns == nullptr && SameName(node->name, name);
  }
  // The same for a name written in the code, compared without a loop.
  template <size_t N>
  static bool IsElement(xmlNodePtr node, const char (&name)[N]) {
    return node != nullptr && node->type == XML_ELEMENT_NODE && node->ns == nullptr && SameLiteral(node->name, name);
  }
  // The string value of a node is not empty: the test [.!=''].
  static bool HasText(xmlNodePtr node);
  // The string value of a node (its text).
  static std::string Text(xmlNodePtr node);
  // Makes `text` the only content of an element (or the value of a text node).
  static void SetText(xmlNodePtr node, std::string_view text);
  // Removes and frees every child of the node.
  static void RemoveChildren(xmlNodePtr node);
  // Frees an unlinked node with all below it, as xmlFreeNode does, without
  // asking the dictionary again for every name it has answered for.
  static void FreeTree(xmlNodePtr node);
  // A FIELD named `fieldName` holding one empty VALUES, as the factory makes
  // fields, from element and attribute names the dictionary of `doc` owns;
  // for plain construction only (see PlainConstruction). `sharedName`, when
  // given, is a counted text of the name; the field takes the caller's
  // reference to it when it returns, and not when it raises.
  static xmlNodePtr NewPlainField(xmlDocPtr doc, const xmlChar* fieldElement, const xmlChar* valuesElement,
                                  const xmlChar* nameAttribute, std::string_view fieldName,
                                  xmlNodePtr sharedName = nullptr);
  // True when a text of `length` bytes sits inside its text node (NewText
  // puts it there); PutTextInNode puts it there, for such a text only.
  static bool FitsInTextNode(size_t length);
  static void PutTextInNode(xmlNodePtr textNode, std::string_view text);
  // A new VALUE of `doc` holding `text` (no child when empty), not linked:
  // made plain (see PlainConstruction) when `plainValueElement` is given,
  // the name "VALUE" as the document's dictionary holds it; by libxml2's
  // constructors when it is null.
  static xmlNodePtr NewValue(xmlDocPtr doc, const xmlChar* plainValueElement, std::string_view text);
  // Fills `blocks` with `count` blocks of the given sizes as xmlMalloc gives
  // them (xmlFree frees each), in one call to the heap where it is installed.
  // Raises std::bad_alloc, leaving nothing behind.
  static void AllocateNodes(const uint16_t* sizes, size_t count, void** blocks);

 private:
  // CloneElement within one dictionary and without node callbacks.
  static xmlNodePtr ClonePlain(xmlDocPtr doc, xmlNodePtr source);

 public:
  // True when the NUL-terminated `name` equals `wanted`, without measuring it
  // first. Names of the data document are short and mostly differ early,
  // where a plain loop beats a library call.
  [[gnu::always_inline]] static bool SameName(const xmlChar* name, std::string_view wanted) {
    const char* text = reinterpret_cast<const char*>(name);
    for (size_t i = 0; i < wanted.size(); ++i) {
      if (text[i] != wanted[i] || text[i] == '\0') return false;
    }
    return text[wanted.size()] == '\0';
  }
  // SameName for a literal: byte by byte in one expression, stopping at the
  // first difference (a shorter name differs at its NUL), so no byte past
  // the name's end is read.
  template <size_t N>
  static bool SameLiteral(const xmlChar* name, const char (&wanted)[N]) {
    return [&]<size_t... I>(std::index_sequence<I...>) {
      return ((name[I] == static_cast<xmlChar>(wanted[I])) && ...) && name[N - 1] == '\0';
    }(std::make_index_sequence<N - 1>{});
  }
};

}  // namespace tessel
