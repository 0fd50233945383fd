#include "store/XMLWrapper.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/SAX2.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlsave.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "store/Attributes.h"
#include "store/DataNodes.h"
#include "store/TransactionContext.h"
#include "store/XmlHeap.h"

namespace tessel {
namespace {

// Distinct queries beyond this many start the cache afresh: stores build
// queries with search values in them, which must not grow it without bound.
constexpr size_t kQueryCacheLimit = 512;
constexpr const char* kDetachedName = " detached";

const xmlChar* X(const char* text) { return reinterpret_cast<const xmlChar*>(text); }
const char* C(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

void InitialiseLibxml() {
  static std::once_flag once;
  std::call_once(once, [] {
    // Data documents are millions of small nodes: libxml2 takes them from
    // the size-class heap before it allocates anything of its own.
    XmlHeap::Install();
    xmlInitParser();
  });
}

// Stands for a node in an error frame, which prints its type name.
class NodeArgument : public Object {
 public:
  explicit NodeArgument(xmlNodePtr node) : node_(node) {}
  std::string TypeName() const override {
    switch (node_->type) {
      case XML_ELEMENT_NODE:
        return "IXMLDOMElement";
      case XML_ATTRIBUTE_NODE:
        return "IXMLDOMAttribute";
      case XML_TEXT_NODE:
        return "IXMLDOMText";
      case XML_CDATA_SECTION_NODE:
        return "IXMLDOMCDATASection";
      case XML_DOCUMENT_NODE:
        return "DOMDocument";
      default:
        return "IXMLDOMNode";
    }
  }

 private:
  xmlNodePtr node_;
};

Variant NodeArg(xmlNodePtr node) {
  if (!node) return Variant::Nothing();
  return Variant(Ref<Object>(MakeRef<NodeArgument>(node)));
}

// A missing document or node is what the script runtime calls an object
// variable that is not set.
[[noreturn]] void RaiseNotSet() { ThrowRuntimeError(91); }

void RequireNode(xmlNodePtr node) {
  if (!node) RaiseNotSet();
}

// Replaces every child of the node by `text`, stored as it is (no entity
// parsing), or sets the value of an attribute or character node.
void SetNodeText(xmlNodePtr node, std::string_view text) {
  std::string value(text);
  switch (node->type) {
    case XML_ELEMENT_NODE:
    case XML_DOCUMENT_FRAG_NODE:
      xmlNodeSetContent(node, nullptr);
      if (!value.empty()) xmlNodeAddContentLen(node, X(value.c_str()), static_cast<int>(value.size()));
      break;
    case XML_ATTRIBUTE_NODE:
      if (node->parent) {
        xmlSetNsProp(node->parent, node->ns, node->name, X(value.c_str()));
      } else {
        xmlNodeSetContent(node, nullptr);
        if (!value.empty()) xmlAddChild(node, xmlNewDocTextLen(node->doc, X(value.c_str()), static_cast<int>(value.size())));
      }
      break;
    default:
      xmlNodeSetContent(node, X(value.c_str()));
      break;
  }
}

// Holds the first error the parser reports, and whether a DTD turned up where
// none is allowed.
struct ParseState {
  bool prohibitDtd = false;
  bool sawDtd = false;
  int dtdLine = 0;
  bool haveError = false;
  std::string reason;
  int line = 0;
  int column = 0;
};

void OnParseError(void* userData, xmlErrorPtr error) {
  auto* ctxt = static_cast<xmlParserCtxtPtr>(userData);
  auto* state = static_cast<ParseState*>(ctxt->_private);
  if (!state || state->haveError || error->level < XML_ERR_ERROR) return;
  state->haveError = true;
  state->reason = error->message ? error->message : "Unknown error";
  state->line = error->line;
  state->column = error->int2;
}

void OnInternalSubset(void* userData, const xmlChar* name, const xmlChar* externalId,
                      const xmlChar* systemId) {
  auto* ctxt = static_cast<xmlParserCtxtPtr>(userData);
  auto* state = static_cast<ParseState*>(ctxt->_private);
  if (state && state->prohibitDtd) {
    state->sawDtd = true;
    state->dtdLine = xmlSAX2GetLineNumber(ctxt);
    xmlStopParser(ctxt);
    return;
  }
  xmlSAX2InternalSubset(userData, name, externalId, systemId);
}

// Line `line` (1-based) of the text, without its line end.
std::string SourceLine(std::string_view text, int line) {
  if (line < 1) return {};
  size_t start = 0;
  for (int i = 1; i < line; ++i) {
    size_t next = text.find('\n', start);
    if (next == std::string_view::npos) return {};
    start = next + 1;
  }
  size_t end = text.find('\n', start);
  std::string_view out = text.substr(start, end == std::string_view::npos ? end : end - start);
  if (!out.empty() && out.back() == '\r') out.remove_suffix(1);
  return std::string(out);
}

// Keeps a report readable when the source is not UTF-8.
std::string ValidUtf8(std::string_view text) {
  std::string out;
  size_t i = 0;
  while (i < text.size()) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    bool ok = len > 0 && i + len <= text.size();
    for (size_t k = 1; ok && k < len; ++k) {
      ok = (static_cast<unsigned char>(text[i + k]) >> 6) == 2;
    }
    if (ok) {
      out.append(text.substr(i, len));
      i += len;
    } else {
      out.push_back('?');
      ++i;
    }
  }
  return out;
}

// The parser's report in the layout the logs show: reason, source line, a
// caret under the position, line and position.
std::string LoadReport(const ParseState& state, std::string_view text) {
  std::string reason = state.reason;
  reason.erase(std::remove_if(reason.begin(), reason.end(),
                              [](char c) { return c == '\r' || c == '\n'; }),
               reason.end());
  std::string source = ValidUtf8(SourceLine(text, state.line));
  std::replace(source.begin(), source.end(), '\t', ' ');
  std::string report = "Description: " + reason + "\r\n" + "Source Line: " + source + "\r\n" +
                       ".            ";
  if (state.column > 0) {
    report.append(static_cast<size_t>(state.column - 1), ' ').append("^\r\n");
  }
  report += " Line=" + std::to_string(state.line) + " Pos=" + std::to_string(state.column);
  return report;
}

// The value of the encoding pseudo-attribute of a leading XML declaration.
std::string DeclaredEncoding(std::string_view text) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  if (text.substr(0, 5) != "<?xml") return {};
  size_t end = text.find("?>");
  if (end == std::string_view::npos) return {};
  std::string_view decl = text.substr(0, end);
  size_t pos = decl.find("encoding");
  if (pos == std::string_view::npos) return {};
  pos = decl.find_first_of("'\"", pos);
  if (pos == std::string_view::npos) return {};
  size_t close = decl.find(decl[pos], pos + 1);
  if (close == std::string_view::npos) return {};
  return std::string(decl.substr(pos + 1, close - pos - 1));
}

bool IsSimpleName(std::string_view name) {
  if (name.empty()) return false;
  std::string text(name);
  return xmlValidateNCName(X(text.c_str()), 0) == 0;
}

std::string BaseName(xmlNodePtr node) {
  switch (node->type) {
    case XML_ELEMENT_NODE:
    case XML_ATTRIBUTE_NODE:
    case XML_PI_NODE:
    case XML_ENTITY_REF_NODE:
      return node->name ? C(node->name) : "";
    default:
      return {};
  }
}

}  // namespace

XMLWrapper::XMLWrapper() { InitialiseLibxml(); }

void XMLWrapper::DocFree::operator()(xmlDocPtr doc) const {
  xmlNodePtr child = doc->children;
  while (child != nullptr) {
    xmlNodePtr next = child->next;
    if (child->type == XML_ELEMENT_NODE) {
      xmlUnlinkNode(child);
      DataNodes::FreeTree(child);
    }
    child = next;
  }
  xmlFreeDoc(doc);
}

void XMLWrapper::NodeFree::operator()(xmlNodePtr node) const { DataNodes::FreeTree(node); }

XMLWrapper::~XMLWrapper() = default;

void XMLWrapper::Adopt(xmlDocPtr doc) {
  queries_.clear();
  xpathContext_.reset();
  detached_.reset();
  doc_.reset(doc);
}

xmlDocPtr XMLWrapper::RequireDocument() const {
  if (!doc_) RaiseNotSet();
  return doc_.get();
}

xmlNodePtr XMLWrapper::Detached() {
  if (!detached_) {
    detached_.reset(xmlNewDocNode(RequireDocument(), nullptr, X(kDetachedName), nullptr));
  }
  return detached_.get();
}

// --- Queries -------------------------------------------------------------------

xmlXPathCompExprPtr XMLWrapper::Compile(std::string_view xpath) {
  std::string key(xpath);
  auto found = queries_.find(key);
  if (found != queries_.end()) return found->second.get();
  if (queries_.size() >= kQueryCacheLimit) queries_.clear();

  std::string failure;
  xpathContext_->error = [](void* data, xmlErrorPtr error) {
    auto* text = static_cast<std::string*>(data);
    if (text->empty() && error && error->message) *text = error->message;
  };
  xpathContext_->userData = &failure;
  CompiledQuery compiled(xmlXPathCtxtCompile(xpathContext_.get(), X(key.c_str())));
  xpathContext_->error = nullptr;
  xpathContext_->userData = nullptr;
  if (!compiled) {
    while (!failure.empty() && (failure.back() == '\n' || failure.back() == '\r')) failure.pop_back();
    Check(false, Error::kGeneral, "Invalid XPath query [%1]: %2",
          {Variant(key), Variant(failure.empty() ? std::string("syntax error") : failure)});
  }
  xmlXPathCompExprPtr result = compiled.get();
  queries_.emplace(std::move(key), std::move(compiled));
  return result;
}

std::vector<xmlNodePtr> XMLWrapper::Select(std::string_view xpath, xmlNodePtr node) {
  xmlDocPtr doc = RequireDocument();
  if (!xpathContext_) xpathContext_.reset(xmlXPathNewContext(doc));
  xmlXPathCompExprPtr compiled = Compile(xpath);

  xmlXPathContextPtr context = xpathContext_.get();
  context->doc = node && node->doc ? node->doc : doc;
  context->node = node ? node : reinterpret_cast<xmlNodePtr>(doc);
  std::string failure;
  context->error = [](void* data, xmlErrorPtr error) {
    auto* text = static_cast<std::string*>(data);
    if (text->empty() && error && error->message) *text = error->message;
  };
  context->userData = &failure;
  xmlXPathObjectPtr result = xmlXPathCompiledEval(compiled, context);
  context->error = nullptr;
  context->userData = nullptr;
  std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)> owned(result, xmlXPathFreeObject);
  if (!result) {
    while (!failure.empty() && (failure.back() == '\n' || failure.back() == '\r')) failure.pop_back();
    Check(false, Error::kGeneral, "Invalid XPath query [%1]: %2",
          {Variant(std::string(xpath)), Variant(failure.empty() ? std::string("evaluation failed") : failure)});
  }
  Check(result->type == XPATH_NODESET, Error::kGeneral,
        "Expression does not return a DOM node: [%1]", {Variant(std::string(xpath))});
  std::vector<xmlNodePtr> nodes;
  if (result->nodesetval) {
    nodes.assign(result->nodesetval->nodeTab, result->nodesetval->nodeTab + result->nodesetval->nodeNr);
  }
  return nodes;
}

bool XMLWrapper::HasAttribute(xmlNodePtr node, std::string_view attribute) {
  try {
    RequireNode(node);
    if (IsSimpleName(attribute)) {
      if (node->type != XML_ELEMENT_NODE) return false;
      for (xmlAttrPtr a = node->properties; a; a = a->next) {
        if (!a->ns && std::string_view(C(a->name)) == attribute) return true;
      }
      return false;
    }
    return !Select("@" + std::string(attribute), node).empty();
  } catch (...) {
    ErrorInRethrow("XMLWrapper.HasAttribute(objNode, sAttribute)",
                   {NodeArg(node), Variant(attribute)});
  }
}

std::string XMLWrapper::GetAttributeFromNode(xmlNodePtr node, std::string_view attribute) {
  try {
    RequireNode(node);
    std::vector<xmlNodePtr> found;
    if (IsSimpleName(attribute)) {
      if (node->type == XML_ELEMENT_NODE) {
        for (xmlAttrPtr a = node->properties; a; a = a->next) {
          if (!a->ns && std::string_view(C(a->name)) == attribute) {
            found.push_back(reinterpret_cast<xmlNodePtr>(a));
          }
        }
      }
    } else {
      found = Select("@" + std::string(attribute), node);
    }
    Check(found.size() == 1, 7701, "No matching attribute [%1] could be found in the node.",
          Variant(attribute));
    return NodeText(found.front());
  } catch (...) {
    ErrorInRethrow("XMLWrapper.GetAttributeFromNode(objNode, sAttribute)",
                   {NodeArg(node), Variant(attribute)});
  }
}

xmlNodePtr XMLWrapper::GetNodeFromXPath(std::string_view xpath, xmlNodePtr node) {
  try {
    std::vector<xmlNodePtr> nodes = Select(xpath, node);
    Check(!nodes.empty(), 7703, "[%1] could not be found in document.", Variant(xpath));
    return nodes.front();
  } catch (...) {
    ErrorInRethrow("XMLWrapper.GetNodeFromXPath(sXPath, objNode)", {Variant(xpath), NodeArg(node)});
  }
}

std::vector<xmlNodePtr> XMLWrapper::GetNodesFromXPath(std::string_view xpath, xmlNodePtr node) {
  try {
    return Select(xpath, node);
  } catch (...) {
    ErrorInRethrow("XMLWrapper.GetNodesFromXPath(sXPath, objNode)", {Variant(xpath), NodeArg(node)});
  }
}

// --- Making documents ------------------------------------------------------------

xmlDocPtr XMLWrapper::Parse(std::string_view text, bool forceUtf8, bool prohibitDtd,
                            int32_t failNumber, std::string_view failMessage) {
  ParseState state;
  state.prohibitDtd = prohibitDtd;
  xmlDocPtr doc = nullptr;
  if (text.empty()) {
    state.haveError = true;
    state.reason = "Document is empty";
    state.line = 1;
    state.column = 1;
  } else {
    std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> ctxt(
        xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size())), xmlFreeParserCtxt);
    if (!ctxt) throw std::bad_alloc();
    int options = XML_PARSE_NONET | XML_PARSE_NODICT | XML_PARSE_NOWARNING;
    if (forceUtf8) options |= XML_PARSE_IGNORE_ENC;
    xmlCtxtUseOptions(ctxt.get(), options);
    ctxt->_private = &state;
    ctxt->sax->serror = OnParseError;
    ctxt->sax->internalSubset = OnInternalSubset;
    xmlParseDocument(ctxt.get());
    doc = ctxt->myDoc;
    ctxt->myDoc = nullptr;
    bool ok = doc && ctxt->wellFormed && ctxt->nsWellFormed && !state.sawDtd;
    if (!ok) {
      xmlFreeDoc(doc);
      doc = nullptr;
      if (state.sawDtd) {
        state.haveError = true;
        state.reason = "DTD is prohibited.";
        state.line = state.dtdLine;
        std::string line = SourceLine(text, state.line);
        size_t at = line.find("<!DOCTYPE");
        state.column = at == std::string::npos ? 1 : static_cast<int>(at) + 1;
      } else if (!state.haveError) {
        xmlErrorPtr last = xmlCtxtGetLastError(ctxt.get());
        state.haveError = true;
        state.reason = last && last->message ? last->message : "Unknown parse failure";
        state.line = last ? last->line : 0;
        state.column = last ? last->int2 : 0;
      }
    }
  }
  if (!doc) {
    std::string report;
    try {
      report = LoadReport(state, text);
    } catch (const std::exception& e) {
      report = std::string("  ErrExtractXML.Extract failed: ") + e.what();
    }
    throw Error(failNumber, std::string(failMessage) + "\r\n" + report, "HuntERR.Check");
  }
  if (forceUtf8) {
    // The text was read as UTF-8 whatever it declared; the declared name is
    // still the document's encoding for ToString and SaveDocument.
    std::string declared = DeclaredEncoding(text);
    xmlFree(const_cast<xmlChar*>(doc->encoding));
    doc->encoding = declared.empty() ? nullptr : xmlStrdup(X(declared.c_str()));
  }
  return doc;
}

void XMLWrapper::OpenXMLDocument(const std::string& xmlPath) {
  try {
    std::error_code ec;
    bool exists = std::filesystem::is_regular_file(xmlPath, ec);
    Check(exists, 7705, "Could not open file [%1]", Variant(xmlPath));
    std::ifstream in(xmlPath, std::ios::binary);
    Check(static_cast<bool>(in), 7705, "Could not open file [%1]", Variant(xmlPath));
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Adopt(Parse(text, false, true, 7704, "XML Load Failed"));
  } catch (...) {
    ErrorInRethrow("XMLWrapper.OpenXMLDocument(sXMLPath)", {Variant(xmlPath)});
  }
}

void XMLWrapper::LoadXML(std::string_view xmlDoc) {
  try {
    Adopt(Parse(xmlDoc, true, false, 7704, "XML Load Failed"));
  } catch (...) {
    ErrorInRethrow("XMLWrapper.LoadXML(xmlDoc)", {Variant(xmlDoc)});
  }
}

xmlDocPtr XMLWrapper::CreateDocument() {
  try {
    xmlDocPtr doc = xmlNewDoc(X("1.0"));
    if (!doc) throw std::bad_alloc();
    doc->standalone = -2;  // declaration present, without standalone
    Adopt(doc);
    return doc;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.CreateDocument()");
  }
}

void XMLWrapper::ClearDocument() {
  try {
    xmlDocPtr doc = RequireDocument();
    xmlNodePtr child = doc->children;
    while (child) {
      xmlNodePtr next = child->next;
      if (child->type == XML_ELEMENT_NODE) {
        xmlUnlinkNode(child);
        xmlFreeNode(child);
      }
      child = next;
    }
  } catch (...) {
    ErrorInRethrow("XMLWrapper.ClearDocument()");
  }
}

void XMLWrapper::SaveDocument(const std::string& fileName) {
  try {
    xmlDocPtr doc = RequireDocument();
    // Without a declared encoding the file is UTF-8 and the declaration
    // stays as it is, without an encoding of its own.
    const char* encoding = doc->encoding ? C(doc->encoding) : "UTF-8";
    xmlSaveCtxtPtr save = xmlSaveToFilename(fileName.c_str(), doc->encoding ? encoding : nullptr, 0);
    Check(save != nullptr, Error::kGeneral, "Could not save the document to [%1] in encoding %2",
          {Variant(fileName), Variant(encoding)});
    long written = xmlSaveDoc(save, doc);
    int closed = xmlSaveClose(save);
    Check(written >= 0 && closed >= 0, Error::kGeneral, "Could not save the document to [%1]",
          Variant(fileName));
  } catch (...) {
    ErrorInRethrow("XMLWrapper.SaveDocument(sFileName)", {Variant(fileName)});
  }
}

std::string XMLWrapper::ToString() {
  try {
    xmlDocPtr doc = RequireDocument();
    std::string out;
    if (doc->standalone != -1) {
      out = "<?xml version=\"";
      out += doc->version ? C(doc->version) : "1.0";
      out += "\"";
      if (doc->encoding) out += " encoding=\"" + std::string(C(doc->encoding)) + "\"";
      if (doc->standalone == 1) out += " standalone=\"yes\"";
      if (doc->standalone == 0) out += " standalone=\"no\"";
      out += "?>\n";
    }
    std::unique_ptr<xmlBuffer, decltype(&xmlBufferFree)> buffer(xmlBufferCreate(), xmlBufferFree);
    xmlSaveCtxtPtr save = xmlSaveToBuffer(buffer.get(), "UTF-8", XML_SAVE_NO_DECL);
    if (!save) throw std::bad_alloc();
    xmlSaveDoc(save, doc);
    xmlSaveClose(save);
    out.append(C(xmlBufferContent(buffer.get())), static_cast<size_t>(xmlBufferLength(buffer.get())));
    return out;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.ToString()");
  }
}

// --- Changing documents -------------------------------------------------------------

void XMLWrapper::DeleteNode(xmlNodePtr nodeToDelete) {
  try {
    RequireNode(nodeToDelete);
    xmlNodePtr parent = nodeToDelete->parent;
    if (!parent || IsDetachedHolder(parent)) RaiseNotSet();
    if (nodeToDelete->type == XML_ATTRIBUTE_NODE) {
      xmlRemoveProp(reinterpret_cast<xmlAttrPtr>(nodeToDelete));
      return;
    }
    xmlUnlinkNode(nodeToDelete);
    xmlFreeNode(nodeToDelete);
  } catch (...) {
    ErrorInRethrow("XMLWrapper.DeleteNode(nodToDelete)", {NodeArg(nodeToDelete)});
  }
}

xmlNodePtr XMLWrapper::AddElement(xmlNodePtr nodeToInsert, xmlNodePtr destination) {
  try {
    RequireNode(nodeToInsert);
    if (nodeToInsert->type == XML_DOCUMENT_NODE) {
      std::unique_ptr<xmlBuffer, decltype(&xmlBufferFree)> buffer(xmlBufferCreate(), xmlBufferFree);
      xmlSaveCtxtPtr save = xmlSaveToBuffer(buffer.get(), "UTF-8", XML_SAVE_NO_DECL);
      if (!save) throw std::bad_alloc();
      xmlDocPtr other = reinterpret_cast<xmlDocPtr>(nodeToInsert);
      xmlSaveDoc(save, other);
      xmlSaveClose(save);
      std::string_view text(C(xmlBufferContent(buffer.get())),
                            static_cast<size_t>(xmlBufferLength(buffer.get())));
      xmlDocPtr copy = Parse(text, true, false, 7707,
                             "XML could not be loaded due to ill-formatted data.");
      copy->standalone = other->standalone;
      if (other->encoding) copy->encoding = xmlStrdup(other->encoding);
      Adopt(copy);
      return reinterpret_cast<xmlNodePtr>(copy);
    }
    RequireNode(destination);
    bool container = destination->type == XML_ELEMENT_NODE ||
                     destination->type == XML_DOCUMENT_NODE ||
                     destination->type == XML_DOCUMENT_FRAG_NODE;
    Check(container, Error::kGeneral, "A node cannot be inserted under a node of type %1.",
          Variant(static_cast<int32_t>(destination->type)));
    for (xmlNodePtr up = destination; up; up = up->parent) {
      Check(up != nodeToInsert, Error::kGeneral,
            "Inserting a node or its ancestor under itself is not allowed.");
    }
    Check(nodeToInsert->type != XML_ATTRIBUTE_NODE || destination->type == XML_ELEMENT_NODE,
          Error::kGeneral, "An attribute can only be added to an element.");
    if (destination->type == XML_DOCUMENT_NODE && nodeToInsert->type == XML_ELEMENT_NODE) {
      Check(xmlDocGetRootElement(reinterpret_cast<xmlDocPtr>(destination)) == nullptr,
            Error::kGeneral, "Only one top level element is allowed in an XML document.");
    }
    xmlNodePtr node = nodeToInsert;
    if (node->doc != destination->doc) {
      // Nodes never move between documents: each document frees its own.
      node = xmlDocCopyNode(nodeToInsert, destination->doc, 1);
      if (!node) throw std::bad_alloc();
    } else {
      xmlUnlinkNode(node);
    }
    xmlNodePtr added = xmlAddChild(destination, node);
    if (!added) {
      xmlFreeNode(node);
      throw std::bad_alloc();
    }
    return added;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.AddElement(nodToInsert, nodDestination, ctxInsertPos)",
                   {NodeArg(nodeToInsert), NodeArg(destination)});
  }
}

xmlNodePtr XMLWrapper::AddElement(xmlNodePtr nodeToInsert, xmlNodePtr destination,
                                  TransactionContext* insertPos) {
  try {
    if (insertPos == nullptr || (nodeToInsert != nullptr && nodeToInsert->type == XML_DOCUMENT_NODE)) {
      return AddElement(nodeToInsert, destination);
    }
    xmlNodePtr added = AddElement(nodeToInsert, insertPos->ContextNode());
    if (insertPos->AutoUpdate()) insertPos->SetNode(added);
    return added;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.AddElement(nodToInsert, nodDestination, ctxInsertPos)",
                   {NodeArg(nodeToInsert), NodeArg(destination)});
  }
}

Ref<TransactionContext> XMLWrapper::CreateContext() {
  Ref<TransactionContext> context = MakeRef<TransactionContext>();
  context->SetXWrapper(this);
  return context;
}

xmlNodePtr XMLWrapper::GenerateNode(std::string_view elementName, const Variant& data, Attributes* attributes,
                                    std::string_view namespaceUri) {
  try {
    xmlNodePtr node = GenerateNode(elementName, data, namespaceUri);
    if (attributes != nullptr) attributes->CopyAttributesOntoNode(node);
    return node;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.GenerateNode(strElementName, varData, atrAttributes, sNamespace)",
                   {Variant(elementName), data, Variant::Nothing(), Variant(namespaceUri)});
  }
}

xmlNodePtr XMLWrapper::CloneNode(xmlNodePtr node, bool deep) {
  try {
    RequireNode(node);
    xmlNodePtr copy = xmlDocCopyNode(node, RequireDocument(), deep ? 1 : 2);
    if (copy == nullptr) throw std::bad_alloc();
    xmlAddChild(Detached(), copy);
    return copy;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.CloneNode(nod, bDeep)", {NodeArg(node), Variant(deep)});
  }
}

void XMLWrapper::KeepGenerated(xmlNodePtr node) {
  try {
    RequireNode(node);
    Check(node->doc == RequireDocument() && node->parent == nullptr, Error::kGeneral,
          "Only an unlinked node of this document can be kept.");
    xmlAddChild(Detached(), node);
  } catch (...) {
    ErrorInRethrow("XMLWrapper.KeepGenerated(nod)", {NodeArg(node)});
  }
}

void XMLWrapper::DetachNode(xmlNodePtr node) {
  try {
    RequireNode(node);
    if (node->parent == nullptr || node->type != XML_ELEMENT_NODE) RaiseNotSet();
    if (IsDetachedHolder(node->parent)) return;
    Check(node->doc == RequireDocument(), Error::kGeneral, "The node belongs to another document.");
    xmlUnlinkNode(node);
    xmlAddChild(Detached(), node);
  } catch (...) {
    ErrorInRethrow("XMLWrapper.DetachNode(nod)", {NodeArg(node)});
  }
}

bool XMLWrapper::IsInTree(xmlNodePtr node) const {
  for (xmlNodePtr up = node; up != nullptr; up = up->parent) {
    if (up->type == XML_DOCUMENT_NODE) return true;
    if (IsDetachedHolder(up)) return false;
  }
  return false;
}

xmlNodePtr XMLWrapper::GenerateNode(std::string_view elementName, const Variant& data,
                                    std::string_view namespaceUri) {
  try {
    xmlDocPtr doc = RequireDocument();
    std::string name(elementName);
    Check(xmlValidateQName(X(name.c_str()), 0) == 0, Error::kGeneral,
          "[%1] is not a valid element name.", Variant(elementName));
    std::string prefix;
    std::string local = name;
    if (!namespaceUri.empty()) {
      size_t colon = name.find(':');
      if (colon != std::string::npos) {
        prefix = name.substr(0, colon);
        local = name.substr(colon + 1);
      }
    }
    xmlNodePtr node = xmlNewDocNode(doc, nullptr, X(local.c_str()), nullptr);
    if (!node) throw std::bad_alloc();
    xmlAddChild(Detached(), node);
    if (!namespaceUri.empty()) {
      std::string uri(namespaceUri);
      xmlNsPtr ns = xmlNewNs(node, X(uri.c_str()), prefix.empty() ? nullptr : X(prefix.c_str()));
      xmlSetNs(node, ns);
    }
    if (!data.IsEmpty() && !data.IsNull()) {
      std::string text = data.ToString();
      if (!text.empty()) SetNodeText(node, text);
    }
    return node;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.GenerateNode(strElementName, varData, atrAttributes, sNamespace)",
                   {Variant(elementName), data, Variant::Nothing(), Variant(namespaceUri)});
  }
}

Ref<XMLWrapper> XMLWrapper::CopyNodeIntoNewWrapper(std::string_view xpathToNode) {
  try {
    xmlNodePtr node = GetNodeFromXPath(xpathToNode);
    Ref<XMLWrapper> copy = MakeRef<XMLWrapper>();
    if (node->type == XML_DOCUMENT_NODE) {
      copy->LoadXML(ToString());
      return copy;
    }
    xmlDocPtr doc = copy->CreateDocument();
    xmlNodePtr clone = xmlDocCopyNode(node, doc, 1);
    if (!clone) throw std::bad_alloc();
    xmlAddChild(copy->Detached(), clone);
    copy->AddElement(clone, reinterpret_cast<xmlNodePtr>(doc));
    return copy;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.CopyNodeIntoNewWrapper(sXPathToNode)", {Variant(xpathToNode)});
  }
}

std::string XMLWrapper::XPathFromNode(xmlNodePtr nodeToQuery) {
  try {
    Check(nodeToQuery != nullptr, 7706, "");
    std::string path;
    std::string pending;
    xmlNodePtr child = nullptr;
    xmlNodePtr current = nodeToQuery;
    while (true) {
      if (current != nodeToQuery) {
        std::string childName = BaseName(child);
        if (!childName.empty()) {
          int count = 0;
          int position = 0;
          for (xmlNodePtr c = current->children; c; c = c->next) {
            if (c->type == XML_ELEMENT_NODE && !c->ns && childName == C(c->name)) {
              ++count;
              if (c == child) position = count;
            }
          }
          if (count >= 2 && position > 0) pending += "[" + std::to_string(position) + "]";
        }
      }
      path = pending + path;
      pending = "/" + BaseName(current);
      // The root element's parent is the document node, whose base name is
      // empty: that is what makes every path begin with "//".
      xmlNodePtr parent = current->type == XML_DOCUMENT_NODE ? nullptr : current->parent;
      if (!parent || IsDetachedHolder(parent)) return pending + path;
      child = current;
      current = parent;
    }
  } catch (...) {
    ErrorInRethrow("XMLWrapper.XPathFromNode(nodToQuery)", {NodeArg(nodeToQuery)});
  }
}

std::string XMLWrapper::GenerateConcatForXPath(std::string_view text, bool stringIsQuoteEnclosed) {
  try {
    if (stringIsQuoteEnclosed && text.size() >= 2 && (text.front() == '\'' || text.front() == '"') &&
        text.back() == text.front()) {
      text = text.substr(1, text.size() - 2);
    }
    size_t apostrophes = std::count(text.begin(), text.end(), '\'');
    size_t quotes = std::count(text.begin(), text.end(), '"');
    if (apostrophes == 0 && quotes == 0) return "'" + std::string(text) + "'";
    if (apostrophes == 1 && quotes == 0) return "\"" + std::string(text) + "\"";
    if (quotes == 1 && apostrophes == 0) return "'" + std::string(text) + "'";
    std::string out = "concat(";
    std::string_view rest = text;
    while (true) {
      size_t at = rest.find_first_of("'\"");
      if (at == std::string_view::npos) break;
      out += "'" + std::string(rest.substr(0, at)) + "', ";
      out += rest[at] == '\'' ? "\"'\", " : "'\"', ";
      rest = rest.substr(at + 1);
    }
    out += "'" + std::string(rest) + "')";
    return out;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.GenerateConcatForXPath(sxPathQueryString, bStringIsQuoteEnclosed)",
                   {Variant(text), Variant(stringIsQuoteEnclosed)});
  }
}

// --- Internal -----------------------------------------------------------------------

std::string XMLWrapper::EncodingMethod() const {
  xmlDocPtr doc = doc_.get();
  if (!doc || !doc->encoding || doc->standalone == -1) return {};
  return C(doc->encoding);
}

void XMLWrapper::EncodingMethod(std::string_view encoding) {
  try {
    xmlDocPtr doc = RequireDocument();
    std::string value(encoding);
    xmlFree(const_cast<xmlChar*>(doc->encoding));
    doc->encoding = value.empty() ? nullptr : xmlStrdup(X(value.c_str()));
    if (doc->standalone == -1) doc->standalone = -2;
  } catch (...) {
    ErrorInRethrow("XMLWrapper.EncodingMethod(sEncoding)", {Variant(encoding)});
  }
}

void XMLWrapper::SetValueToNode(xmlNodePtr node, const Variant& data, bool cdata) {
  try {
    RequireNode(node);
    std::string text = data.IsNull() ? std::string() : data.ToString();
    if (!cdata) {
      SetNodeText(node, text);
      return;
    }
    SetNodeText(node, "");
    xmlNodePtr section = xmlNewCDataBlock(node->doc, X(text.c_str()), static_cast<int>(text.size()));
    if (!section) throw std::bad_alloc();
    xmlAddChild(node, section);
  } catch (...) {
    ErrorInRethrow("XMLWrapper.SetValueToNode(nod, vData, bCData)",
                   {NodeArg(node), data, Variant(cdata)});
  }
}

std::string XMLWrapper::NodeText(xmlNodePtr node) {
  xmlChar* content = xmlNodeGetContent(node);
  std::string text = content ? C(content) : "";
  xmlFree(content);
  return text;
}

std::string XMLWrapper::NodeXml(xmlNodePtr node) {
  xmlBufferPtr buffer = xmlBufferCreate();
  xmlNodeDump(buffer, node->doc, node, 0, 0);
  std::string text(reinterpret_cast<const char*>(xmlBufferContent(buffer)), xmlBufferLength(buffer));
  xmlBufferFree(buffer);
  return text;
}

}  // namespace tessel
