// TransactionContext: a movable position in a document. It says where the
// next transaction goes (TransactionFactory::AddTransaction) or from where a
// search or a walk starts.
//
// The context holds its XMLWrapper (a reference, when the wrapper is itself
// reference counted) and a plain node pointer into that document: the node
// must stay in the document while the context stands on it.
//
// Errors: 7703 from the wrapper when Context is set to a path that finds
// nothing; 8050 from NodeByPosition outside 1..ContextDepth().
#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "core/Object.h"

namespace tessel {

class XMLWrapper;

class TransactionContext : public Object {
 public:
  TransactionContext() = default;
  ~TransactionContext() override;

  std::string TypeName() const override { return "TransactionContext"; }

  // If true, AddElement and AddTransaction move the context to the added node.
  bool AutoUpdate() const { return autoUpdate_; }
  void SetAutoUpdate(bool value) { autoUpdate_ = value; }

  XMLWrapper* xWrapper() const { return wrapper_; }
  // Keeps a reference when the wrapper is reference counted.
  void SetXWrapper(XMLWrapper* wrapper);

  // The path of the context node as XMLWrapper::XPathFromNode gives it (not
  // the text that was set).
  std::string Context() const;
  // Moves to the node the path finds; 7703 when there is none.
  void SetContext(std::string_view xpath);
  xmlNodePtr ContextNode() const { return node_; }
  // Moves to the node without a query.
  void SetNode(xmlNodePtr node) { node_ = node; }
  // Kept for callers of the interface; does nothing.
  void Document() {}

  // Nodes from the context up to and including the document node.
  int32_t ContextDepth() const;
  // The node at depth `position` on the way up: 1 is the document node,
  // ContextDepth() the context node. 8050 outside that range.
  xmlNodePtr NodeByPosition(int32_t position) const;

 private:
  XMLWrapper* wrapper_ = nullptr;
  Ref<Object> keep_;  // holds the wrapper alive when it is reference counted
  std::string contextText_;
  xmlNodePtr node_ = nullptr;
  bool autoUpdate_ = false;
};

}  // namespace tessel
