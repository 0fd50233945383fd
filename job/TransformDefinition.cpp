#include "job/TransformDefinition.h"

#include <charconv>
#include <unordered_set>

#include "audit/AuditLogDefinition.h"
#include "audit/HuntErr.h"
#include "core/Error.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {
constexpr int32_t kErrCyclicalRecord = 7010;

// Attribute text, or an empty string when the node lacks it.
std::string OptionalAttribute(xmlNodePtr node, const char* name) {
  xmlChar* value = xmlGetProp(node, BAD_CAST name);
  std::string text = value ? reinterpret_cast<const char*>(value) : "";
  xmlFree(value);
  return text;
}

bool IsWholeNumber(std::string_view text) {
  if (text.empty()) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

std::string RecordById(std::string_view id) {
  return "RECORD[@id='" + std::string(id) + "']";
}
}  // namespace

TransformDefinition::TransformDefinition() = default;

TransformDefinition::TransformDefinition(Ref<XMLWrapper> wrapper) {
  SetTransformDefinitionXWrapper(std::move(wrapper));
}

TransformDefinition::~TransformDefinition() = default;

void TransformDefinition::SetTransformDefinitionXWrapper(Ref<XMLWrapper> wrapper) {
  ResetCache();
  wrapper_ = std::move(wrapper);
  bag_ = PropertyBagHelper();
  if (wrapper_) bag_.Initialise(*wrapper_);
}

void TransformDefinition::ResetCache() {
  recordCache_.clear();
  recordsNode_ = nullptr;
}

xmlNodePtr TransformDefinition::AuditNode() {
  try {
    return wrapper_->GetNodeFromXPath("/TRANSFORM/AUDIT");
  } catch (...) {
    ErrorInRethrow("TransformDefinition.AuditNode()", {});
  }
}

AuditLogDefinition& TransformDefinition::GetAuditLogDefinition() {
  try {
    if (!auditDefinition_) {
      auto definition = std::make_unique<AuditLogDefinition>();
      definition->SetOptions(*this);
      auditDefinition_ = std::move(definition);
    }
    return *auditDefinition_;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.AuditLogDefinition()", {});
  }
}

bool TransformDefinition::SupportsWorkflow() {
  try {
    return !wrapper_->GetNodesFromXPath("/TRANSFORM/WORKFLOW").empty();
  } catch (...) {
    ErrorInRethrow("TransformDefinition.SupportsWorkflow()", {});
  }
}

std::shared_ptr<TransformDefinition> TransformDefinition::Clone() const {
  try {
    return std::make_shared<TransformDefinition>(wrapper_->CopyNodeIntoNewWrapper("/"));
  } catch (...) {
    ErrorInRethrow("TransformDefinition.Clone()", {});
  }
}

void TransformDefinition::SetOptions(const TransformDefinition& other) {
  try {
    Ref<XMLWrapper> copy = other.wrapper_->CopyNodeIntoNewWrapper("/");
    xmlNodePtr source = xmlDocGetRootElement(other.wrapper_->DOMDocument());
    xmlNodePtr target = xmlDocGetRootElement(wrapper_->DOMDocument());
    if (source != nullptr && target != nullptr) {
      for (xmlAttrPtr attr = source->properties; attr; attr = attr->next) {
        xmlChar* value = xmlNodeListGetString(source->doc, attr->children, 1);
        xmlSetProp(target, attr->name, value ? value : BAD_CAST "");
        xmlFree(value);
      }
    }
    optionsWrapper_ = std::move(copy);
    bag_ = PropertyBagHelper();
    bag_.Initialise(*optionsWrapper_);
  } catch (...) {
    ErrorInRethrow("TransformDefinition.SetOptions(oTfmDefinition)", {});
  }
}

bool TransformDefinition::HasRecord(std::string_view tranId) {
  try {
    return wrapper_->GetNodesFromXPath(RecordById(tranId), RecordsNode()).size() == 1;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.HasRecord(sTranId)", {Variant(std::string(tranId))});
  }
}

xmlNodePtr TransformDefinition::RecordNode(std::string_view tranId) {
  try {
    auto found = recordCache_.find(std::string(tranId));
    if (found != recordCache_.end()) return found->second;
    std::string query = IsWholeNumber(tranId) ? "RECORD[" + std::string(tranId) + "]" : RecordById(tranId);
    xmlNodePtr node = wrapper_->GetNodeFromXPath(query, RecordsNode());
    recordCache_.emplace(std::string(tranId), node);
    return node;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordNode(vTranID)", {Variant(std::string(tranId))});
  }
}

xmlNodePtr TransformDefinition::RecordNodeByRecordId(std::string_view tranId) {
  try {
    // Keyed apart from RecordNode so that a numeric id never meets a position.
    std::string key = "\x01" + std::string(tranId);
    auto found = recordCache_.find(key);
    if (found != recordCache_.end()) return found->second;
    xmlNodePtr node = wrapper_->GetNodeFromXPath(RecordById(tranId), RecordsNode());
    recordCache_.emplace(std::move(key), node);
    return node;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordNodeByRecordId(sTranID)", {Variant(std::string(tranId))});
  }
}

long TransformDefinition::RecordCount() {
  try {
    return static_cast<long>(wrapper_->GetNodesFromXPath("RECORD", RecordsNode()).size());
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordCount()", {});
  }
}

std::string TransformDefinition::RecordId(xmlNodePtr node) {
  try {
    return wrapper_->GetAttributeFromNode(node, "id");
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordId(nodRecord)", {});
  }
}

std::string TransformDefinition::RecordParentId(xmlNodePtr node) { return OptionalAttribute(node, "parentid"); }

std::string TransformDefinition::HashCode(xmlNodePtr node) { return OptionalAttribute(node, "hashcode"); }

std::vector<xmlNodePtr> TransformDefinition::RecordDescendents(std::string_view parent) {
  try {
    return wrapper_->GetNodesFromXPath("RECORD[@parentid='" + std::string(parent) + "']", RecordsNode());
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordDescendents(sParent)", {Variant(std::string(parent))});
  }
}

std::vector<std::string> TransformDefinition::RecordDirectDescendentIDs(xmlNodePtr node) {
  try {
    std::vector<std::string> ids;
    for (xmlNodePtr child : RecordDescendents(RecordId(node))) ids.push_back(RecordId(child));
    return ids;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordDirectDescendentIDs(nodRecord)", {});
  }
}

std::vector<std::string> TransformDefinition::RecordAllDescendentIDs(std::string_view parent) {
  try {
    std::vector<std::string> ids;
    for (xmlNodePtr child : RecordDescendents(parent)) ids.push_back(RecordId(child));
    const size_t direct = ids.size();
    for (size_t i = 0; i < direct; ++i) {
      // Depth is bounded by the cycle check of the read transforms; guard anyway.
      if (ids.size() > 100000) break;
      for (std::string& id : RecordAllDescendentIDs(std::string(ids[i]))) ids.push_back(std::move(id));
    }
    return ids;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordAllDescendentIDs(sParent)", {Variant(std::string(parent))});
  }
}

bool TransformDefinition::IsRecordDescendent(std::string_view parent, std::string_view child) {
  try {
    std::vector<std::string> pending{std::string(parent)};
    std::unordered_set<std::string> seen;
    while (!pending.empty()) {
      std::string current = std::move(pending.back());
      pending.pop_back();
      if (!seen.insert(current).second) continue;  // a cycle must not loop for ever
      std::vector<xmlNodePtr> children = RecordDescendents(current);
      for (auto it = children.rbegin(); it != children.rend(); ++it) {
        std::string id = RecordId(*it);
        if (id == child) return true;
        pending.push_back(std::move(id));
      }
    }
    return false;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.IsRecordDescendent(sParent, sChild)",
            {Variant(std::string(parent)), Variant(std::string(child))});
  }
}

std::vector<xmlNodePtr> TransformDefinition::RecordNodes() {
  try {
    std::vector<xmlNodePtr> nodes;
    for (xmlNodePtr child = RecordsNode()->children; child; child = child->next) {
      if (child->type == XML_ELEMENT_NODE) nodes.push_back(child);
    }
    return nodes;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordNodes()", {});
  }
}

Variant TransformDefinition::Property(std::string_view name) {
  try {
    if (bag_.PropertyIsList(name)) {
      std::vector<std::string> values = bag_.GetList(name);
      std::vector<Variant> items;
      items.reserve(values.size());
      for (std::string& value : values) items.emplace_back(std::move(value));
      return Variant::FromVector(std::move(items));
    }
    return Variant(bag_.Property(name));
  } catch (...) {
    ErrorInRethrow("TransformDefinition.Property(sName)", {Variant(std::string(name))});
  }
}

std::string TransformDefinition::PropertyOr(std::string_view name, std::string_view fallback) {
  if (!bag_.HasProperty(name)) return std::string(fallback);
  return bag_.Property(name);
}

xmlNodePtr TransformDefinition::RecordsNode() {
  try {
    if (recordsNode_ == nullptr) recordsNode_ = wrapper_->GetNodeFromXPath("/TRANSFORM/TRANSFORMDETAIL/RECORDS");
    return recordsNode_;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordsNode()", {});
  }
}

std::string TransformDefinition::RootAttribute(const char* name) {
  return wrapper_->GetAttributeFromNode(TransformRootNode(), name);
}

std::string TransformDefinition::TransformId() {
  try {
    return RootAttribute("id");
  } catch (...) {
    ErrorInRethrow("TransformDefinition.TransformId()", {});
  }
}

std::string TransformDefinition::TransformParentId() {
  try {
    return RootAttribute("parentid");
  } catch (...) {
    ErrorInRethrow("TransformDefinition.TransformParentId()", {});
  }
}

int16_t TransformDefinition::TransformType() {
  try {
    return Variant(RootAttribute("type")).ToInteger();
  } catch (...) {
    ErrorInRethrow("TransformDefinition.TransformType()", {});
  }
}

std::string TransformDefinition::GenerateXPathFromTranId(std::string_view tranId) {
  try {
    std::string path = "[@id='" + std::string(tranId) + "']";
    std::string current(tranId);
    std::unordered_set<std::string> seen;
    while (true) {
      Check(seen.insert(current).second, kErrCyclicalRecord,
            "Cyclical reference record found for record ID [%1] encountered.", {Variant(current)});
      std::string parent = RecordParentId(RecordNodeByRecordId(current));
      path.insert(0, "/RECORDS");
      if (parent.empty()) {
        path.insert(0, "/DATA");
        return path;
      }
      path.insert(0, "/RECORD");
      current = std::move(parent);
    }
  } catch (...) {
    ErrorInRethrow("TransformDefinition.GenerateXPathFromTranId(sTransactionId)", {Variant(std::string(tranId))});
  }
}

bool TransformDefinition::RecordsAreNonCyclical() {
  try {
    std::vector<xmlNodePtr> records = RecordNodes();
    std::unordered_map<std::string, xmlNodePtr> byId;
    for (xmlNodePtr record : records) byId.emplace(OptionalAttribute(record, "id"), record);
    for (xmlNodePtr record : records) {
      std::unordered_set<std::string> hashes{HashCode(record)};
      std::string parentId = RecordParentId(record);
      while (!parentId.empty()) {
        auto parent = byId.find(parentId);
        if (parent == byId.end()) break;
        Check(hashes.insert(HashCode(parent->second)).second, kErrCyclicalRecord,
              "Cyclical reference record found for record ID [%1] encountered.", {Variant(parentId)});
        parentId = RecordParentId(parent->second);
      }
    }
    return true;
  } catch (...) {
    ErrorInRethrow("TransformDefinition.RecordsAreNonCyclical()", {});
  }
}

xmlNodePtr TransformDefinition::TransformRootNode() {
  try {
    return wrapper_->GetNodeFromXPath("/TRANSFORM");
  } catch (...) {
    ErrorInRethrow("TransformDefinition.TransformRootNode()", {});
  }
}

}  // namespace tessel
