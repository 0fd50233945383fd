// FormatValue: VB's Format(value, pattern), for the function library.
//
// Named formats: General Number, Currency, Fixed, Standard, Percent,
// Scientific, Yes/No, True/False, On/Off, General Date, Long Date, Medium
// Date, Short Date, Long Time, Medium Time, Short Time (names compare without
// regard to case). Any other pattern is user-defined:
//   numbers: 0 # . , % E+ E- e+ e-, "text", \c, up to four sections
//            (positive;negative;zero;null) separated by ';'
//   dates:   d dd ddd dddd ddddd dddddd w ww m mm mmm mmmm q y yy yyyy
//            h hh n nn s ss ttttt c AM/PM am/pm A/P a/p AMPM / :
//   text:    @ & < > !
// Output follows the English (United States) locale. The result is a String,
// or Null for a Null value without a fourth section. A value that the pattern
// cannot read (text that is no number for a number pattern) comes back as its
// own text.
#pragma once

#include <string_view>

#include "core/Variant.h"

namespace tessel::vbs {

Variant FormatValue(const Variant& value, std::string_view pattern);
// With the first day of the week (1 = Sunday) and first week of the year
// (1..3) that the w and ww date placeholders use.
Variant FormatValue(const Variant& value, std::string_view pattern, int firstDayOfWeek,
                    int firstWeekOfYear);

}  // namespace tessel::vbs
