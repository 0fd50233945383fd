#include "store/TransactionSelectStringBldr.h"

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "job/TransformDefinition.h"
#include "scripting/StringTokeniser.h"
#include "store/DataNodes.h"
#include "store/XMLWrapper.h"

namespace tessel {
namespace {

constexpr int kMaxChain = 64;

std::string Trim(std::string_view text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  size_t end = text.find_last_not_of(" \t");
  return std::string(text.substr(begin, end - begin + 1));
}

// The tokens of one parse, in order of appearance.
std::vector<Ref<Token>> Tokens(std::string_view delimiters, std::string_view text) {
  StringTokeniser tokeniser;
  tokeniser.SetTokens(delimiters);
  tokeniser.ParseString(text);
  std::vector<Ref<Token>> tokens(static_cast<size_t>(tokeniser.StackSize()));
  for (size_t i = tokens.size(); i > 0; --i) tokens[i - 1] = tokeniser.PopFromStack();
  return tokens;
}

// One condition "field op value" as an XPath step; "" for anything else.
std::string ConditionPath(std::string_view condition) {
  std::vector<Ref<Token>> parts = Tokens("=|<>|>|<", condition);
  if (parts.size() != 3) return {};
  std::string field = Trim(parts[0]->Text());
  std::string op = Trim(parts[1]->Text());
  std::string value = Trim(parts[2]->Text());
  if (value == "''") return "FIELD[@name='" + field + "']/VALUES";
  std::string literal =
      XMLWrapper::GenerateConcatForXPath(TransactionSelectStringBldr::DeEscapeValue(value), true);
  // XPath writes "not equal" as "!=".
  if (op == "<>") op = "!=";
  return "FIELD[@name='" + field + "']/VALUES/VALUE[." + op + literal + "]";
}

}  // namespace

TransactionSelectStringBldr::TransactionSelectStringBldr(std::shared_ptr<TransformDefinition> definition)
    : definition_(std::move(definition)) {}

std::string TransactionSelectStringBldr::EscapeValue(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (char c : value) {
    if (c == '\'' || c == '"') out.push_back('\\');
    out.push_back(c);
  }
  return out;
}

std::string TransactionSelectStringBldr::DeEscapeValue(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\' && i + 1 < value.size() && (value[i + 1] == '\'' || value[i + 1] == '"')) continue;
    out.push_back(value[i]);
  }
  return out;
}

std::string TransactionSelectStringBldr::GenerateQueryForTran(std::string_view transactionId,
                                                              std::string_view statement) {
  std::string path = "RECORDS[@id='" + std::string(transactionId) + "']/RECORD";
  std::vector<Ref<Token>> tokens = Tokens(" and | or ", statement);
  std::string result;
  for (const Ref<Token>& token : tokens) {
    result += " ";
    result += token->TokenType() == Token::kOperand ? ConditionPath(token->Text()) : token->Text();
  }
  if (Trim(result).empty()) result = tokens.empty() ? std::string() : tokens.back()->Text();
  if (!result.empty()) path += "[./" + result + "]";
  return path;
}

const std::string* TransactionSelectStringBldr::SearchFor(const std::string& transactionId) const {
  for (const auto& [id, query] : searches_) {
    if (id == transactionId) return &query;
  }
  return nullptr;
}

std::string TransactionSelectStringBldr::GetParentTranID(const std::string& transactionId) {
  return definition_->RecordParentId(definition_->RecordNode(transactionId));
}

bool TransactionSelectStringBldr::IsBelowContext(std::string_view transactionId) {
  if (contextRecordId_.empty()) return true;
  std::string current(transactionId);
  for (int i = 0; i < kMaxChain && !current.empty(); ++i) {
    if (current == contextRecordId_) return true;
    current = GetParentTranID(current);
  }
  return false;
}

void TransactionSelectStringBldr::SetReturnTransaction(std::string_view transactionId) {
  try {
    if (!definition_) ThrowRuntimeError(91);
    Check(IsBelowContext(transactionId), Error::kGeneral,
          "Cannot set the return transaction which is parent to the current context.");
    returnTransaction_ = std::string(transactionId);
  } catch (...) {
    ErrorInRethrow("TransactionSelectStringBldr.ReturnTransaction(sTransactionId)", {Variant(transactionId)});
  }
}

void TransactionSelectStringBldr::AddSearch(std::string_view transactionId, std::string_view query) {
  try {
    if (!definition_) ThrowRuntimeError(91);
    Check(IsBelowContext(transactionId), 8153, "Cannot add a search which is a parent to the current context.");
    std::string id(transactionId);
    for (auto& entry : searches_) {
      if (entry.first == id) {
        entry.second = std::string(query);
        return;
      }
    }
    searches_.emplace_back(std::move(id), std::string(query));
  } catch (...) {
    ErrorInRethrow("TransactionSelectStringBldr.AddSearch(sTransactionId, sQuery)",
                   {Variant(transactionId), Variant(query)});
  }
}

void TransactionSelectStringBldr::SetDataNode(xmlNodePtr node) {
  try {
    xmlNodePtr up = node;
    for (int i = 0; i < 4 && up != nullptr; ++i) {
      up = up->type == XML_DOCUMENT_NODE ? nullptr : up->parent;
      if (DataNodes::IsElement(up, "RECORDS")) {
        xmlAttrPtr id = DataNodes::FindAttribute(up, "id");
        Check(id != nullptr, 7701, "No matching attribute [%1] could be found in the node.", Variant("id"));
        contextRecordId_ = DataNodes::AttributeValue(id);
        return;
      }
    }
    Check(false, 8151,
          "Cannot determine transaction ID. Either the node is nested too deep, is the root node or orphaned.");
  } catch (...) {
    ErrorInRethrow("TransactionSelectStringBldr.SetDataNode(nodData)", {});
  }
}

std::string TransactionSelectStringBldr::GetDeepestDescendent(const std::string& transactionId, int& maxDepth,
                                                              int currentDepth) {
  ++currentDepth;
  Check(currentDepth <= kMaxChain, 8203,
        "XML data instance has too many levels of nested nodes. Maximum allowed depth is %1 levels.",
        Variant(int32_t{kMaxChain}));
  std::vector<std::string> children = definition_->RecordDirectDescendentIDs(definition_->RecordNode(transactionId));
  std::vector<std::string> searched;
  for (const std::string& child : children) {
    if (SearchFor(child) != nullptr) searched.push_back(child);
  }
  if (!searched.empty()) children.swap(searched);
  if (children.empty()) {
    if (currentDepth > maxDepth) {
      maxDepth = currentDepth;
      return transactionId;
    }
    return {};
  }
  std::string answer;
  for (const std::string& child : children) {
    std::string found = GetDeepestDescendent(child, maxDepth, currentDepth);
    if (!found.empty()) answer = std::move(found);
  }
  return answer;
}

std::string TransactionSelectStringBldr::GenerateConditionString() {
  int maxDepth = 0;
  std::string current = GetDeepestDescendent(returnTransaction_, maxDepth, 0);
  const std::string& stop = contextRecordId_;
  std::string path;
  bool belowReturn = true;
  bool inPredicate = false;
  const std::string topNode = contextRecordId_.empty() ? "/DATA" : "";
  for (int guard = 0; current != stop && !current.empty(); ++guard) {
    Check(guard < kMaxChain, 8203,
          "XML data instance has too many levels of nested nodes. Maximum allowed depth is %1 levels.",
          Variant(int32_t{kMaxChain}));
    if (current == returnTransaction_) belowReturn = false;
    if (!belowReturn && inPredicate) {
      path += "]";
      inPredicate = false;
    }
    if (const std::string* search = SearchFor(current)) {
      if (belowReturn && !inPredicate) {
        path += "[./";
        inPredicate = true;
      }
      if (!(path.empty() && !contextRecordId_.empty()) && (path.empty() || path.back() != '/')) path += "/";
      path += GenerateQueryForTran(current, *search);
    } else if (!path.empty()) {
      if (path.front() != '[' && path.front() != '/') path = "/" + path;
      path = "RECORDS/RECORD" + path;
    }
    current = GetParentTranID(current);
  }
  if (!topNode.empty() && !path.empty()) {
    if (path.front() != '[' && path.front() != '/') path = "/" + path;
    return topNode + path;
  }
  return topNode.empty() ? path : path;
}

std::string TransactionSelectStringBldr::XPath() {
  try {
    if (!definition_) ThrowRuntimeError(91);
    return GenerateConditionString();
  } catch (...) {
    ErrorInRethrow("TransactionSelectStringBldr.XPath()", {});
  }
}

}  // namespace tessel
