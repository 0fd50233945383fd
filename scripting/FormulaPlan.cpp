#include "scripting/FormulaPlan.h"

#include <cstring>

#include "core/Variant.h"
#include "scripting/vbs/CompiledExpression.h"
#include "store/Transaction.h"

namespace tessel {
namespace {

constexpr int16_t kStringFieldType = 3;
constexpr char kSlotMarker = '\x01';

// Characters that end any token before them and start none that could take
// in a number written next to them.
bool NumberMayTouch(char c) {
  switch (c) {
    case ' ': case '\t': case '(': case ')': case ',': case '+': case '-': case '*':
    case '/': case '\\': case '^': case '=': case '<': case '>': case '&':
      return true;
    default:
      return false;
  }
}

// A quoted value ends where its closing quote is not doubled, and starts a
// token of its own unless a quote, date or bracketed name is open before it.
bool StringMayFollow(char c) { return c != '"' && c != '#' && c != '['; }
bool StringMayPrecede(char c) { return c != '"'; }

constexpr std::string_view kLineBreakInLiteral = "\" & vbCrLf & \"";

}  // namespace

void FormulaPlan::AppendLiteral(std::string_view text, bool quote, std::string& out) {
  if (quote) out.push_back('"');
  for (;;) {
    const size_t special = text.find_first_of("\"\n");
    out.append(text.substr(0, special));
    if (special == std::string_view::npos) break;
    out.append(text[special] == '"' ? std::string_view("\"\"") : kLineBreakInLiteral);
    text.remove_prefix(special + 1);
  }
  if (quote) out.push_back('"');
}

FormulaPlan::FormulaPlan() = default;
FormulaPlan::~FormulaPlan() = default;

void FormulaPlan::AddText(std::string_view text) {
  if (text.empty()) return;
  // A line break makes the formula code to wrap; a marker byte of the
  // author's own would pass for a slot.
  if (text.find_first_of("\n\x01") != std::string_view::npos) fits_ = false;
  if (lastWasReference_) {
    Reference& last = references_.back();
    last.numberFits = last.numberFits && NumberMayTouch(text.front());
    last.stringFits = last.stringFits && StringMayPrecede(text.front());
  }
  template_.append(text);
  lastWasReference_ = false;
}

void FormulaPlan::AddReference(std::string_view field, bool authorQuoted) {
  if (references_.size() >= kMaxReferences) fits_ = false;
  Reference reference;
  reference.field = std::string(field);
  if (!authorQuoted && !lastWasReference_) {
    const bool atStart = template_.empty();
    reference.numberFits = atStart || NumberMayTouch(template_.back());
    reference.stringFits = atStart || StringMayFollow(template_.back());
  }
  if (lastWasReference_) references_.back().numberFits = references_.back().stringFits = false;
  template_.push_back(kSlotMarker);
  template_.push_back(static_cast<char>(references_.size() + 1));
  references_.push_back(std::move(reference));
  lastWasReference_ = true;
}

void FormulaPlan::AddEscape(std::string_view word) {
  std::string written;
  written.reserve(word.size() + 2);
  written.push_back('"');
  written.append(word);
  written.push_back('"');
  AddText(written);
}

void FormulaPlan::Compile() {
  expression_.reset();
  if (!fits_) return;
  try {
    auto expression = std::make_unique<vbs::CompiledExpression>(template_);
    if (expression->HasSlots(references_.size())) expression_ = std::move(expression);
  } catch (...) {
    // Not an expression as it stands (or its values would have to make it
    // one): the text shows what it is, record by record.
  }
}

bool FormulaPlan::Bind(Transaction* record) {
  if (references_.empty()) return true;
  if (record == nullptr) return false;
  written_.resize(references_.size());
  try {
    for (size_t i = 0; i < references_.size(); ++i) {
      Reference& reference = references_[i];
      if (!reference.stringFits && !reference.numberFits) return false;
      Written& written = written_[i];
      int16_t type = -1;
      const char* text = nullptr;
      const std::shared_ptr<const FieldDictionary>& dictionary = record->FieldMetaDataDictionary();
      if (dictionary != nullptr && dictionary == reference.dictionary) {
        text = record->SingleValueTextAt(reference.field, reference.place, reference.known);
        type = reference.type;
      } else {
        text = record->SingleValueText(reference.field, &type);
        if (const FieldMetaData* meta = dictionary != nullptr ? dictionary->Find(reference.field) : nullptr) {
          reference.dictionary = dictionary;
          reference.place = dictionary->PlaceOf(*meta);
          reference.type = meta->FieldType;
        }
      }
      if (text == nullptr) {
        // No value is written as "" whatever the type; several values, or no
        // such field, are for the text to tell.
        if (!reference.stringFits) return false;
        const Variant values = record->GetFieldValues(reference.field, 0);
        if (!values.IsEmpty() && !(values.IsString() && values.StringValue().empty())) return false;
        expression_->SetSlotText(i, {});
        written.text.clear();
        written.quoted = true;
      } else if (type == kStringFieldType) {
        if (!reference.stringFits || std::strpbrk(text, "\r\n") != nullptr) return false;
        // Kept as it stands: it is quoted only for a report.
        written.text.assign(text);
        written.quoted = true;
        expression_->SetSlotText(i, written.text);
      } else {
        Variant number;
        if (!reference.numberFits || !vbs::CompiledExpression::NumberLiteral(text, number)) return false;
        expression_->SetSlot(i, std::move(number));
        written.text.assign(text);
        written.quoted = false;
      }
    }
    return true;
  } catch (...) {
    return false;
  }
}

std::string FormulaPlan::WrittenOut() const {
  std::string text;
  text.reserve(template_.size() + 16 * written_.size());
  for (size_t i = 0; i < template_.size(); ++i) {
    if (template_[i] == kSlotMarker && i + 1 < template_.size()) {
      const size_t slot = static_cast<unsigned char>(template_[i + 1]) - 1;
      if (slot < written_.size()) AppendLiteral(written_[slot].text, written_[slot].quoted, text);
      ++i;
    } else {
      text.push_back(template_[i]);
    }
  }
  return text;
}

}  // namespace tessel
