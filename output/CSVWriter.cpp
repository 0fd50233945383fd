#include "output/CSVWriter.h"

#include <libxml/tree.h>

#include <cstdlib>
#include <new>

#include "audit/HuntErr.h"
#include "input/IInputOutputController.h"
#include "job/TransformDefinition.h"
#include "output/WriteRecordCache.h"
#include "store/Transaction.h"

namespace tessel {

namespace {

// Lines written before the unit is sized by their length.
constexpr int32_t kSampleLines = 256;

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// The attribute's text, "" when the element has none.
std::string Attribute(xmlNodePtr node, const char* name) {
  xmlChar* value = xmlGetProp(node, BAD_CAST name);
  if (value == nullptr) return {};
  std::string text(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return text;
}

bool IsElement(xmlNodePtr node, const char* name) {
  return node->type == XML_ELEMENT_NODE && xmlStrcmp(node->name, BAD_CAST name) == 0;
}

}  // namespace

std::string CSVWriter::GetLineDelimiter(std::string_view code) {
  try {
    const std::string text(Trim(code));
    char* end = nullptr;
    const double value = text.empty() ? 0 : std::strtod(text.c_str(), &end);
    // Only decimal text counts as numeric: no hex, infinities or NaN.
    const bool numeric = !text.empty() && end == text.c_str() + text.size() &&
                         text.find_first_of("xXiInN") == std::string::npos;
    std::string result;
    if (numeric) {
      if (value == 1) result = "\r\n";
      else if (value == 2) result = "\r";
      else if (value == 3) result = "\n";
      else if (value == 4) result = "\xC2\x85";
      else if (value == 5) result = "\f";
      else if (value == 6) result = "\xE2\x80\xA9";
      else if (value == 7) result = "\xE2\x80\xA8";
    }
    Check(!result.empty(), kInvalidLineDelimiter, "Line Delimiter Option [%1] is invalid.", Variant(code));
    return result;
  } catch (...) {
    ErrorInRethrow("CSVWriter.GetLineDelimiter(sLineDelimiter)", {Variant(code)});
  }
}

void CSVWriter::InitClass(std::shared_ptr<TransformDefinition> definition,
                          std::shared_ptr<IInputOutputController> controller, const std::vector<std::string>& tranOrder,
                          std::shared_ptr<WriteRecordCache> writeCache) {
  try {
    definition_ = std::move(definition);
    controller_ = std::move(controller);
    tranOrder_ = tranOrder;
    cache_ = std::move(writeCache);
    SetOptions();
    GenerateCache();
    if (writeHeaders_) WriteHeaders();
    StartUnit();
  } catch (...) {
    ErrorInRethrow("CSVWriter.IOutputWriter_InitClass(oTransformDefinition, oController, sTranOrder, oWriteCache)");
  }
}

void CSVWriter::SetOptions() {
  try {
    delimiter_ = definition_->Property("delimiter").ToString();
    quoteStrings_ = definition_->Property("quotestrings").ToBool();
    lineDelimiter_ = GetLineDelimiter(definition_->Property("newline").ToString());
    writeHeaders_ = definition_->Property("writeheaders").ToBool();
  } catch (...) {
    ErrorInRethrow("CSVWriter.SetOptions()");
  }
}

void CSVWriter::GenerateCache() {
  try {
    layouts_.clear();
    for (xmlNodePtr record : definition_->RecordNodes()) {
      RecordLayout layout;
      for (xmlNodePtr field = record->children; field != nullptr; field = field->next) {
        if (!IsElement(field, "FIELD")) continue;
        const std::string exportText = Attribute(field, "export");
        if (exportText.empty() || !Variant(exportText).ToBool()) continue;
        layout.names.push_back(Attribute(field, "name"));
        if (quoteStrings_) {
          const std::string type = Attribute(field, "type");
          layout.quoted.push_back(!type.empty() && Variant(type).ToInteger() == 3);
        } else {
          layout.quoted.push_back(false);
        }
      }
      layout.known.resize(layout.names.size());
      layout.exported = !layout.names.empty();
      layouts_[definition_->RecordId(record)] = std::move(layout);
    }
  } catch (...) {
    ErrorInRethrow("CSVWriter.GenerateCache()");
  }
}

void CSVWriter::WriteHeaders() {
  try {
    header_.clear();
    for (const std::string& id : tranOrder_) {
      auto found = layouts_.find(id);
      if (found == layouts_.end() || !found->second.exported) continue;
      const std::vector<std::string>& names = found->second.names;
      for (size_t i = 0; i < names.size(); ++i) {
        if (i > 0) header_ += delimiter_;
        header_ += names[i];
      }
      header_ += lineDelimiter_;
    }
  } catch (...) {
    ErrorInRethrow("CSVWriter.WriteHeaders()");
  }
}

void CSVWriter::StartUnit() {
  unit_.clear();
  unit_ += header_;
  lineCount_ = 0;
}

void CSVWriter::SizeUnit() {
  // Growing a large unit by doubling copies it again and again, each time
  // into memory the system has to supply anew.
  if (expectedLines_ <= kSampleLines) return;
  const size_t lineBytes = (unit_.size() - header_.size()) / kSampleLines + 1;
  const auto lines = static_cast<size_t>(expectedLines_);
  if (lines > unit_.max_size() / 2 / lineBytes) return;
  try {
    unit_.reserve(unit_.size() + (lines - kSampleLines) * lineBytes * 9 / 8);
  } catch (const std::bad_alloc&) {
    // Only a hint: the unit grows as it must.
  }
}

void CSVWriter::WriteRecord(Transaction& transaction) {
  const size_t lineStart = unit_.size();
  try {
    auto found = layouts_.find(transaction.TransactionId());
    if (found == layouts_.end() || !found->second.exported) return;
    RecordLayout& layout = found->second;
    for (size_t i = 0; i < layout.names.size(); ++i) {
      if (i > 0) unit_ += delimiter_;
      const bool quoted = layout.quoted[i] != 0;
      if (quoted) unit_ += '"';
      if (const char* text = transaction.SingleValueText(layout.names[i], layout.known[i])) {
        unit_ += text;
      } else if (const Variant value = transaction.GetFieldValues(layout.names[i], 0); value.IsString()) {
        unit_ += value.StringValue();
      } else {
        unit_ += value.ToString();
      }
      if (quoted) unit_ += '"';
    }
    if (cache_) cache_->SetCacheData(found->first, Variant(unit_.substr(lineStart)));
    unit_ += lineDelimiter_;
    if (++lineCount_ == kSampleLines) SizeUnit();
  } catch (...) {
    unit_.resize(lineStart);  // no half line stays in the unit
    ErrorInRethrow("CSVWriter.IOutputWriter_WriteRecord(oTransaction)");
  }
}

void CSVWriter::Commit(Transaction* transaction) {
  try {
    Variant output(std::move(unit_));
    StartUnit();
    controller_->WriteDataSet(output, transaction);
  } catch (...) {
    ErrorInRethrow("CSVWriter.IOutputWriter_Commit(oTransaction)");
  }
}

void CSVWriter::WriteCachedRecords() {
  try {
    if (!cache_ || !cache_->EntryItem()) return;
    // Repeating the ancestors of a commit record below the top is not
    // something this format can do: the unit would never be finished.
    Check(false, kCommitBelowTop,
          "The CSV writer cannot repeat the records above commit record [%1] in each output file. "
          "Set the commit record (option committran) to the top record [%2].",
          {Variant(definition_->PropertyOr("committran", "")), Variant(cache_->EntryItem()->TransactionId())});
  } catch (...) {
    ErrorInRethrow("CSVWriter.IOutputWriter_WriteCachedRecords()");
  }
}

}  // namespace tessel
