// FormulaPlan: a job's formula parsed once, for all the records it is
// evaluated on.
//
// vbWrapper writes each `%` reference of a formula into its text as a literal
// of the record's value and evaluates the text; parsing that text anew for
// every record costs more than evaluating it. A plan holds the formula parsed
// with a slot where each reference goes (vbs::CompiledExpression) and fills
// the slots from each record.
//
// A slot gives what the written-out text gives only where the value, written
// out, is one literal that cannot run into the text around it:
// - a string field's value (written in quotes) without a line break or a
//   carriage return, not next to a quote or '#', and not inside quotes the
//   author wrote;
// - a numeric field's value (written as it stands) that reads as exactly one
//   number, between blanks, brackets, commas, operators or the ends of the
//   formula.
// A formula with a line break, a syntax error, two references side by side,
// the byte 0x01, a comparison with an operand the written-out text would fold
// into one literal, or more than kMaxReferences references gets no usable
// plan; a reference or value outside these rules makes Bind say no for that
// record. vbWrapper then takes the way of the text, which stays the one definition of a formula's
// meaning.
//
// The plan belongs to the vbWrapper that made it and to that wrapper's
// engine; it must go before the engine does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store/FieldNameNode.h"

namespace tessel {

namespace vbs {
class CompiledExpression;
}

class FieldDictionary;
class Transaction;

class FormulaPlan {
 public:
  static constexpr size_t kMaxReferences = 255;

  // A value's text as the substitution writes it into a formula: quotes
  // doubled, line breaks joined in as vbCrLf, and in quotes of its own when
  // `quote`.
  static void AppendLiteral(std::string_view text, bool quote, std::string& out);

  FormulaPlan();
  ~FormulaPlan();
  FormulaPlan(const FormulaPlan&) = delete;
  FormulaPlan& operator=(const FormulaPlan&) = delete;

  // The pieces of the formula in the order the substitution scan meets
  // them: text copied as it stands, a field reference, an escaped word
  // (written as a string literal).
  void AddText(std::string_view text);
  void AddReference(std::string_view field, bool authorQuoted);
  void AddEscape(std::string_view word);

  // Parses the formula with its slots; Usable tells whether it worked.
  void Compile();
  bool Usable() const { return expression_ != nullptr; }

  // Puts the record's values into the slots; false when one of them cannot
  // stand in a slot (the record's formula must then be written out).
  bool Bind(Transaction* record);
  // The formula with the values of the last Bind written out, as the
  // substitution writes them: what a report of a failure shows. Taken from
  // the values bound, not from the record, which the formula may change.
  std::string WrittenOut() const;
  const vbs::CompiledExpression& Expression() const { return *expression_; }

  // Set while an evaluation runs on the plan: an evaluation nested in it
  // must not change its slots.
  bool inUse = false;

 private:
  struct Reference {
    std::string field;
    bool stringFits = false;   // neighbours allow a quoted value
    bool numberFits = false;   // neighbours allow a bare number
    // The field's place and type in the dictionary of the records bound
    // last, kept (and the dictionary held) so that records of that type
    // are read without asking it.
    std::shared_ptr<const FieldDictionary> dictionary;
    size_t place = 0;
    int16_t type = 0;
    FieldNameNode known;  // the field's name node in the records bound so far
  };

  std::string template_;       // the formula, a slot marker for each reference
  std::vector<Reference> references_;
  struct Written {
    std::string text;     // the value's text as the record held it
    bool quoted = false;  // written out as a string literal
  };
  std::vector<Written> written_;  // each slot's value as the last Bind took it
  bool fits_ = true;           // false once a piece rules the plan out
  bool lastWasReference_ = false;
  std::unique_ptr<vbs::CompiledExpression> expression_;
};

}  // namespace tessel
