// DataNodes: the small node operations of the data document that run for
// every field of every record, done directly on libxml2 nodes instead of
// through XPath queries, with the same results.
//
// Memory: a data document holds several nodes per field value, so texts of
// fewer than 16 bytes are kept inside their text node (in the two pointer
// slots a text node does not use, as libxml2's own parser does), and
// attribute texts of templates are shared through the document's name
// dictionary when it has one. libxml2 frees and replaces such texts itself.
//
// Stateless; every function works on the nodes it is given.
#pragma once

#include <libxml/tree.h>

#include <string>
#include <string_view>

namespace tessel {

class DataNodes {
 public:
  // A new text node of `doc`, not linked anywhere.
  static xmlNodePtr NewText(xmlDocPtr doc, std::string_view text, bool shareInDictionary = false);
  // Sets the attribute (no namespace) to `text`, replacing its value when it
  // exists.
  static void SetAttribute(xmlNodePtr element, const char* name, std::string_view text,
                           bool shareInDictionary = false);
  // The attribute without namespace, or nullptr.
  static xmlAttrPtr FindAttribute(xmlNodePtr element, std::string_view name);
  // The attribute's value as XPath sees it.
  static std::string AttributeValue(xmlAttrPtr attribute);
  // True when the attribute's value equals `text`, without copying it.
  static bool AttributeEquals(xmlAttrPtr attribute, std::string_view text);
  // A deep copy of an element into `doc`, not linked anywhere; attribute
  // texts are shared through the dictionary.
  static xmlNodePtr CloneElement(xmlDocPtr doc, xmlNodePtr source);
  // The first child element of that name (no namespace), or nullptr.
  static xmlNodePtr FirstChildElement(xmlNodePtr parent, std::string_view name);
  // The first child element of that name whose attribute `attribute` equals
  // `value`: the step NAME[@attribute='value'].
  static xmlNodePtr ChildWithAttribute(xmlNodePtr parent, std::string_view name, const char* attribute,
                                       std::string_view value);
  // The same among `first` and its following siblings only.
  static xmlNodePtr SiblingWithAttribute(xmlNodePtr first, std::string_view name, const char* attribute,
                                         std::string_view value);
  static bool IsElement(xmlNodePtr node, std::string_view name);
  // The string value of a node is not empty: the test [.!=''].
  static bool HasText(xmlNodePtr node);
  // The string value of a node (its text).
  static std::string Text(xmlNodePtr node);
  // Makes `text` the only content of an element (or the value of a text node).
  static void SetText(xmlNodePtr node, std::string_view text);
  // Removes and frees every child of the node.
  static void RemoveChildren(xmlNodePtr node);
};

}  // namespace tessel
