// XMLWrapper: owner of one XML document and the engine's only way of opening,
// querying, changing and saving one. Data documents, job documents and
// transform definitions are all XMLWrapper objects.
//
// Ownership. The wrapper owns its libxml2 document (unset until
// OpenXMLDocument, LoadXML or CreateDocument has run; each of them replaces
// the previous document). Nodes are handed out as raw xmlNodePtr views that
// stay valid while the document lives and the node is in it: DeleteNode,
// ClearDocument and SetValueToNode free the nodes they remove, and replacing
// the document frees all of them. Nodes made by GenerateNode are kept by the
// wrapper until AddElement puts them into a tree.
//
// Behaviour kept on purpose:
// - whitespace text is preserved in every way of making a document;
// - the encoding named in the XML declaration is kept, ToString shows it and
//   SaveDocument writes in it; text handed to LoadXML is always UTF-8;
// - OpenXMLDocument refuses a document with a DTD, LoadXML accepts one;
// - no external entity, DTD or network resource is ever loaded;
// - queries are XPath 1.0; compiled expressions are cached per wrapper.
//
// Failures raise tessel::Error: 7701 missing attribute, 7703 node not found,
// 7704 "XML Load Failed" with the parser's report, 7705 missing file, 7706
// XPathFromNode without a node, 7707 ill-formatted document in AddElement, 91
// when there is no document or no node to work on. Every operation adds its
// frame to the error's call path (audit/HuntErr.h).
//
// One wrapper is used from one thread; nothing is locked.
#pragma once

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"

namespace tessel {

class Attributes;
class TransactionContext;

class XMLWrapper : public Object {
 public:
  XMLWrapper();
  ~XMLWrapper() override;

  std::string TypeName() const override { return "XMLWrapper"; }

  // The document, or nullptr before one was made.
  xmlDocPtr DOMDocument() const { return doc_.get(); }

  // True when the query "@<attribute>" from `node` finds at least one node.
  bool HasAttribute(xmlNodePtr node, std::string_view attribute);
  // The value of the one attribute "@<attribute>" finds; 7701 unless exactly
  // one is found.
  std::string GetAttributeFromNode(xmlNodePtr node, std::string_view attribute);
  // The first node the query finds from `node` (the document when null);
  // 7703 when there is none.
  xmlNodePtr GetNodeFromXPath(std::string_view xpath, xmlNodePtr node = nullptr);
  // All nodes the query finds, in document order; empty when none.
  std::vector<xmlNodePtr> GetNodesFromXPath(std::string_view xpath, xmlNodePtr node = nullptr);

  // Loads a file; 7705 when it does not exist, 7704 when it does not parse or
  // holds a DTD. A load that fails leaves the previous document in place.
  void OpenXMLDocument(const std::string& xmlPath);
  // Loads UTF-8 text; a DTD is accepted (its entities are not fetched). 7704
  // when the text does not parse.
  void LoadXML(std::string_view xmlDoc);
  // A new document holding only the declaration <?xml version="1.0"?>.
  xmlDocPtr CreateDocument();
  // Removes every element child of the document node; the declaration,
  // comments and processing instructions stay.
  void ClearDocument();
  // Writes the document to the file, in the declared encoding.
  void SaveDocument(const std::string& fileName);
  // The serialised document, as UTF-8, with the declaration's encoding.
  std::string ToString();

  // Removes the node from its parent and frees it (an attribute from its
  // element). 91 for a node without a parent.
  void DeleteNode(xmlNodePtr nodeToDelete);
  // Appends `nodeToInsert` as the last child of `destination` and returns the
  // node now in the tree: a copy when the node came from another document, the
  // text node it merged into for a text node. A document node instead replaces
  // this wrapper's document by a reparse of its text (7707 when that fails).
  xmlNodePtr AddElement(xmlNodePtr nodeToInsert, xmlNodePtr destination);
  // The same, placed by a context: with `insertPos` set the node goes under
  // its ContextNode (`destination` is not looked at), and an AutoUpdate
  // context then moves to the inserted node.
  xmlNodePtr AddElement(xmlNodePtr nodeToInsert, xmlNodePtr destination, TransactionContext* insertPos);
  // A new context over this document, on no node yet.
  Ref<TransactionContext> CreateContext();
  // A new element, not yet in the tree. `data` becomes its text unless it is
  // empty, null or "". A non-empty `namespaceUri` puts the element in that
  // namespace, with the prefix of `elementName` if it has one.
  xmlNodePtr GenerateNode(std::string_view elementName, const Variant& data = Variant(),
                          std::string_view namespaceUri = {});
  // The same, with the bag's attributes moved onto the new element (the bag
  // is empty afterwards) when `attributes` is set.
  xmlNodePtr GenerateNode(std::string_view elementName, const Variant& data, Attributes* attributes,
                          std::string_view namespaceUri = {});
  // A copy of `node` (with its subtree when `deep`) in this document, kept
  // with the generated nodes until AddElement puts it into the tree.
  xmlNodePtr CloneNode(xmlNodePtr node, bool deep);
  // Takes an unlinked node of this document, made by other means, into the
  // generated nodes (freed with the document unless AddElement links it).
  void KeepGenerated(xmlNodePtr node);
  // Takes an element out of the tree without freeing it: it stays with the
  // generated nodes until the document goes, so that views of it held
  // elsewhere stay valid. 91 for a node without a parent.
  void DetachNode(xmlNodePtr node);
  // True when the node hangs in the document's tree rather than among the
  // generated nodes.
  bool IsInTree(xmlNodePtr node) const;
  // A new wrapper holding a deep copy of the node the query finds; for "/" a
  // copy of the whole document, declaration included.
  Ref<XMLWrapper> CopyNodeIntoNewWrapper(std::string_view xpathToNode);
  // An absolute path to the node, "//DATA/RECORDS/RECORD[2]", with a position
  // only where siblings share the name. 7706 for a null node.
  std::string XPathFromNode(xmlNodePtr nodeToQuery);
  // The text of a node (all its descendants' text), as libxml2 gives it.
  static std::string NodeText(xmlNodePtr node);
  // The serialised form of a node and its descendants, without a declaration.
  static std::string NodeXml(xmlNodePtr node);
  // A valid XPath string literal (quoted, or a concat(...) call) of any text.
  // With `stringIsQuoteEnclosed`, matching outer quotes are taken off first.
  static std::string GenerateConcatForXPath(std::string_view xpathQueryString,
                                            bool stringIsQuoteEnclosed);

  // The encoding named in the XML declaration, or "".
  std::string EncodingMethod() const;
  // Names the encoding in the declaration (adding one when there is none).
  void EncodingMethod(std::string_view encoding);
  // Makes `data` the node's only text, or with `cdata` its only CDATA section.
  void SetValueToNode(xmlNodePtr node, const Variant& data, bool cdata);

 private:
  // Both free the element trees themselves (DataNodes::FreeTree) and leave
  // the rest to libxml2.
  struct DocFree {
    void operator()(xmlDocPtr doc) const;
  };
  struct NodeFree {
    void operator()(xmlNodePtr node) const;
  };
  struct ContextFree {
    void operator()(xmlXPathContextPtr context) const { xmlXPathFreeContext(context); }
  };
  struct CompExprFree {
    void operator()(xmlXPathCompExprPtr expr) const { xmlXPathFreeCompExpr(expr); }
  };
  using CompiledQuery = std::unique_ptr<xmlXPathCompExpr, CompExprFree>;

  // Takes over `doc` as the document, freeing the previous one.
  void Adopt(xmlDocPtr doc);
  xmlDocPtr RequireDocument() const;
  // Runs the query from `node` (the document when null).
  std::vector<xmlNodePtr> Select(std::string_view xpath, xmlNodePtr node);
  xmlXPathCompExprPtr Compile(std::string_view xpath);
  // Parses text into a document; raises `failNumber` with the parser's report.
  xmlDocPtr Parse(std::string_view text, bool forceUtf8, bool prohibitDtd, int32_t failNumber,
                  std::string_view failMessage);
  // The holder of generated nodes that are not yet in the tree.
  xmlNodePtr Detached();
  bool IsDetachedHolder(xmlNodePtr node) const { return node && node == detached_.get(); }

  // Declared in this order so that the nodes go before the document.
  std::unique_ptr<xmlDoc, DocFree> doc_;
  std::unique_ptr<xmlNode, NodeFree> detached_;
  std::unique_ptr<xmlXPathContext, ContextFree> xpathContext_;
  std::unordered_map<std::string, CompiledQuery> queries_;
};

}  // namespace tessel
