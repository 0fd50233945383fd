// TransformTaskFieldReplacement: one token of a task statement ("%ORDER.NUMBER",
// "%[Order No]") and the value that takes its place.
//
// The audit logger's event counters are handed to the task list generator in
// this form too (TransactionId the record, FieldId the event, value the count),
// so that summary texts resolve their tokens the same way task statements do.
// A plain value; positions are 1-based and inclusive, as statements count them.
#pragma once

#include <cstdint>
#include <string>

#include "core/Variant.h"

namespace tessel {

struct TransformTaskFieldReplacement {
  bool IsCustomReplacement = false;
  std::string TransactionId;
  std::string FieldId;
  bool LongFieldName = false;   // written %[...]: one character longer at each end
  int32_t ReplacementStart = 0;
  int32_t ReplacementEnd = 0;
  Variant value;
  bool HasField = false;        // the record of the definition has this field
  bool IsReplacement = false;   // replaced in the current pass
};

}  // namespace tessel
