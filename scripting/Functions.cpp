#include "scripting/Functions.h"

#include <algorithm>
#include <ctime>
#include <string_view>
#include <utility>
#include <vector>

#include "audit/HuntErr.h"
#include "core/DateTime.h"
#include "core/RuntimeError.h"
#include "job/TransformDefinition.h"
#include "scripting/vbs/BuiltinCalendar.h"
#include "scripting/vbs/BuiltinText.h"
#include "scripting/vbs/Dictionary.h"
#include "scripting/vbs/FormatValue.h"
#include "services/FileSystemWrapper.h"
#include "services/PasswordCipher.h"
#include "store/FieldMetaData.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/TransactionSelector.h"
#include "store/XMLWrapper.h"

namespace tessel {
namespace {

constexpr std::string_view kCurrentRecord = ".";
constexpr int64_t kSecondsPerDay = 86400;

// A field or record id written as a reference loses one leading '%'.
std::string DeReference(const std::string& id) {
  if (id.empty()) ThrowRuntimeError(5);
  return id.front() == '%' ? id.substr(1) : id;
}

void CheckNotBinary(tessel::Transaction& record, const std::string& field, std::string_view function) {
  Check(record.GetType(field) != kFieldBinary, Functions::kBinaryNotAllowed, "%1 function cannot work on Binary type.",
        {Variant(std::string(function))});
}

// The field's type, once it is known to be summable.
int16_t CheckSummable(tessel::Transaction& record, const std::string& field) {
  const int16_t type = record.GetType(field);
  Check(type == kFieldDecimal || type == kFieldLong || type == kFieldBoolean, Functions::kSumNotNumeric,
        "Function Sum can only accept types Decimal, Integer or Boolean fields.");
  return type;
}

// A value of a summable field as a number; Boolean text ("True") counts as
// the language's True, -1.
double SumTerm(const Variant& value, int16_t type) {
  if (type == kFieldBoolean && value.IsString()) return value.ToBool() ? -1.0 : 0.0;
  return value.ToDouble();
}

// The script language's DateSerial: 16-bit arguments, two-digit years in
// the window of the runtime, months and days carried into the next unit.
double DateSerial(int32_t year, int32_t month, int32_t day) {
  int64_t y = Variant(year).ToInteger();
  const int64_t m = Variant(month).ToInteger();
  const int64_t d = Variant(day).ToInteger();
  if (y >= 0 && y <= 99) y = DateTime::ExpandYear(static_cast<int>(y));
  const double serial = static_cast<double>(vbs::calendar::DaysFromCivil(y, m, d));
  if (!vbs::calendar::InRange(serial)) ThrowRuntimeError(5);
  return serial;
}

// Seconds to add to a UTC time to get the machine's local time, now.
int64_t PresentLocalOffset() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) return 0;
  return static_cast<int64_t>(timegm(&local)) - static_cast<int64_t>(now);
}

bool IsWordSeparator(unsigned char c) {
  return c == 0 || c == ' ' || (c >= '\t' && c <= '\r');
}

// Length in bytes of the UTF-8 sequence led by `lead`.
size_t SequenceLength(unsigned char lead) {
  if (lead < 0xC0) return 1;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  return 4;
}

// One element of a Like pattern: each matches exactly one character, except
// a star (any run) and an empty list "[]" (nothing at all).
struct PatternItem {
  enum Kind { Literal, AnyChar, Digit, List, Star, Nothing } kind = Literal;
  char16_t unit = 0;
  bool negated = false;
  std::vector<std::pair<char16_t, char16_t>> ranges;

  bool Matches(char16_t c) const {
    switch (kind) {
      case Literal: return c == unit;
      case AnyChar: return true;
      case Digit: return c >= u'0' && c <= u'9';
      case List: {
        bool in = false;
        for (const auto& [low, high] : ranges) in = in || (c >= low && c <= high);
        return in != negated;
      }
      default: return false;
    }
  }
};

// 93 "Invalid pattern string" for an unclosed list or a descending range.
std::vector<PatternItem> ParsePattern(const std::u16string& pattern) {
  std::vector<PatternItem> items;
  for (size_t i = 0; i < pattern.size(); ++i) {
    PatternItem item;
    const char16_t c = pattern[i];
    if (c == u'?') {
      item.kind = PatternItem::AnyChar;
    } else if (c == u'*') {
      item.kind = PatternItem::Star;
    } else if (c == u'#') {
      item.kind = PatternItem::Digit;
    } else if (c == u'[') {
      size_t close = pattern.find(u']', i + 1);
      if (close == std::u16string::npos) ThrowRuntimeError(93);
      size_t p = i + 1;
      if (close == p) {
        item.kind = PatternItem::Nothing;
      } else {
        item.kind = PatternItem::List;
        if (pattern[p] == u'!') {
          item.negated = true;
          ++p;
        }
        while (p < close) {
          char16_t low = pattern[p];
          char16_t high = low;
          if (p + 2 < close && pattern[p + 1] == u'-') {
            high = pattern[p + 2];
            if (high < low) ThrowRuntimeError(93);
            p += 3;
          } else {
            ++p;
          }
          item.ranges.emplace_back(low, high);
        }
      }
      i = close;
    } else {
      item.unit = c;
    }
    if (item.kind == PatternItem::Nothing) continue;
    if (item.kind == PatternItem::Star && !items.empty() && items.back().kind == PatternItem::Star) continue;
    items.push_back(std::move(item));
  }
  return items;
}

// Every item but a star takes one character, so a star need only be retried
// from the last one seen.
bool MatchPattern(const std::u16string& text, const std::vector<PatternItem>& items) {
  size_t t = 0, p = 0;
  size_t starItem = std::u16string::npos, starText = 0;
  while (t < text.size()) {
    if (p < items.size() && items[p].kind == PatternItem::Star) {
      starItem = p++;
      starText = t;
    } else if (p < items.size() && items[p].Matches(text[t])) {
      ++p;
      ++t;
    } else if (starItem != std::u16string::npos) {
      p = starItem + 1;
      t = ++starText;
    } else {
      return false;
    }
  }
  while (p < items.size() && items[p].kind == PatternItem::Star) ++p;
  return p == items.size();
}

}  // namespace

void Functions::Bind(vbs::ClassBinding<Functions>& binding) {
  binding.TypeName("Functions")
      .Property("Transaction", &Functions::Transaction, &Functions::SetTransaction)
      .Method("Format", &Functions::Format)
      .Method("TitleCase", &Functions::TitleCase)
      .Method("FindReplace", &Functions::FindReplace)
      .Method("StringLike", &Functions::StringLike)
      .Method("EncryptString", &Functions::EncryptString)
      .Method("LastDayInMonth", &Functions::LastDayInMonth)
      .Method("NumberToDate", &Functions::NumberToDate)
      .Method("ISO8601ToDate", &Functions::ISO8601ToDate)
      .Method("UTCToLocalTime", &Functions::UTCToLocalTime)
      .Method("LocalToUTCTime", &Functions::LocalToUTCTime)
      .Method("Count", &Functions::Count)
      .Method("DistinctCount", &Functions::DistinctCount)
      .Method("Sum", &Functions::Sum)
      .Method("Minimum", &Functions::Minimum)
      .Method("Maximum", &Functions::Maximum)
      .Method("Concatenate", &Functions::Concatenate)
      .Method("IsFieldNull", &Functions::IsFieldNull)
      .Method("SetFieldNull", &Functions::SetFieldNull)
      .Method("NextRecord", &Functions::NextRecord)
      .Method("PreviousRecord", &Functions::PreviousRecord)
      .Method("SubPushDown", &Functions::SubPushDown)
      .Method("GetParent", &Functions::GetParent)
      .Method("RegisterValue", &Functions::NotAvailable<"RegisterValue">)
      .Method("RegisterGlobalValue", &Functions::NotAvailable<"RegisterGlobalValue">)
      .Method("GetRegisteredValue", &Functions::NotAvailable<"GetRegisteredValue">)
      .Method("GetGlobalValue", &Functions::NotAvailable<"GetGlobalValue">)
      .Method("Lookup", &Functions::NotAvailable<"Lookup">)
      .Method("CountryNameLookup", &Functions::NotAvailable<"CountryNameLookup">)
      .Method("CountryTableLookup", &Functions::NotAvailable<"CountryTableLookup">)
      .Method("FuzzyCountryNameLookup", &Functions::NotAvailable<"FuzzyCountryNameLookup">)
      .Method("GetCounterSequence", &Functions::NotAvailable<"GetCounterSequence">)
      .Method("WriteToLog", &Functions::NotAvailable<"WriteToLog">)
      .Method("FilePath", &Functions::FilePath)
      .Method("FileName", &Functions::FileName)
      .Method("BuildPath", &Functions::BuildPath)
      .Method("FileExists", &Functions::FileExists)
      .Method("ReadTextFile", &Functions::ReadTextFile)
      .Method("WriteTextFile", &Functions::WriteTextFile)
      .Method("AccpacFiscalYear", &Functions::NotAvailable<"AccpacFiscalYear">)
      .Method("AccpacFiscalPeriod", &Functions::NotAvailable<"AccpacFiscalPeriod">)
      .Method("AccpacIsPeriodOpen", &Functions::NotAvailable<"AccpacIsPeriodOpen">)
      .Method("AccpacRecordExists", &Functions::NotAvailable<"AccpacRecordExists">)
      .Method("AccpacERPLookup", &Functions::NotAvailable<"AccpacERPLookup">)
      .Method("SageCRMLookup", &Functions::NotAvailable<"SageCRMLookup">)
      .Method("SageCRMLookupReturnMultipleValues", &Functions::NotAvailable<"SageCRMLookupReturnMultipleValues">)
      .Method("SageCRMLookupCustomWhere", &Functions::NotAvailable<"SageCRMLookupCustomWhere">)
      .Method("SageCRMValidateDropDown", &Functions::NotAvailable<"SageCRMValidateDropDown">)
      .Method("SageCRMTranslateDropDownValue", &Functions::NotAvailable<"SageCRMTranslateDropDownValue">);
}

Functions::Functions() = default;
Functions::~Functions() = default;

void Functions::Initialise(vbWrapper& wrapper) { wrapper_ = &wrapper; }

void Functions::SetCurrentTransaction(Ref<tessel::Transaction> transaction) {
  transaction_ = std::move(transaction);
}

Ref<Object> Functions::Transaction() const { return Ref<Object>(transaction_); }

void Functions::SetTransaction(Ref<Object> transaction) {
  try {
    Ref<tessel::Transaction> record = RefCast<tessel::Transaction>(transaction);
    if (transaction && !record) ThrowRuntimeError(13);
    transaction_ = std::move(record);
  } catch (...) {
    ErrorInRethrow("Functions.Transaction(oTransaction)", {});
  }
}

void Functions::RaiseNotAvailable(std::string_view member) {
  try {
    Check(false, kNotAvailable, "Function [%1] is not available in this engine yet.",
          {Variant(std::string(member))});
  } catch (...) {
    ErrorInRethrow("Functions." + std::string(member) + "()", {});
  }
  ThrowRuntimeError(5);  // not reached
}

tessel::Transaction& Functions::Current() const {
  if (!transaction_) ThrowRuntimeError(91);
  return *transaction_;
}

FileSystemWrapper& Functions::FileSystem() {
  if (!fileSystem_) fileSystem_ = std::make_unique<FileSystemWrapper>();
  return *fileSystem_;
}

Ref<TransactionSelector> Functions::OpenScope(const std::string& tranId) {
  tessel::Transaction& record = Current();
  Ref<TransactionContext> context = record.Context();
  Ref<TransactionSelector> selector = record.Factory()->CreateTransactionSelector(nullptr, context.get());
  selector->SetReturnTransaction(tranId);
  selector->AddSearch(tranId, "*");
  selector->OpenResultset();
  selector->MoveFirst();
  return selector;
}

// --- Values ----------------------------------------------------------------------------

std::string Functions::Format(const Variant& value, const std::string& formatString) {
  try {
    return vbs::FormatValue(value, formatString).ToString();
  } catch (...) {
    ErrorInRethrow("Functions.Format(vVal, sFormatString)", {value, Variant(formatString)});
  }
}

Variant Functions::TitleCase(const std::string& text) {
  try {
    std::string lower = vbs::text::ToLower(text);
    std::string out;
    out.reserve(lower.size());
    bool wordStart = true;
    for (size_t i = 0; i < lower.size();) {
      const unsigned char lead = static_cast<unsigned char>(lower[i]);
      const size_t length = std::min(SequenceLength(lead), lower.size() - i);
      std::string_view character(lower.data() + i, length);
      out += wordStart ? vbs::text::ToUpper(character) : std::string(character);
      wordStart = length == 1 && IsWordSeparator(lead);
      i += length;
    }
    return Variant(std::move(out));
  } catch (...) {
    ErrorInRethrow("Functions.TitleCase(sString)", {Variant(text)});
  }
}

Variant Functions::FindReplace(const Variant& text, const std::string& find, const std::string& replace,
                               const Variant& start, const Variant& count) {
  try {
    const int64_t from = start.IsMissing() ? 1 : start.ToLong();
    const int64_t times = count.IsMissing() ? -1 : count.ToLong();
    if (from < 1 || times < -1) ThrowRuntimeError(5);
    if (text.IsNull()) ThrowRuntimeError(94);
    return Variant(vbs::text::Replace(text.ToString(), find, replace, from - 1, times, false));
  } catch (...) {
    ErrorInRethrow("Functions.FindReplace(sString, sFind, sReplace, lStart, lCount)",
                   {text, Variant(find), Variant(replace), start, count});
  }
}

bool Functions::StringLike(const Variant& compare, const Variant& pattern) {
  try {
    if (compare.IsNull() || pattern.IsNull()) ThrowRuntimeError(94);
    std::vector<PatternItem> items = ParsePattern(vbs::text::ToUtf16(pattern.ToString()));
    return MatchPattern(vbs::text::ToUtf16(compare.ToString()), items);
  } catch (...) {
    ErrorInRethrow("Functions.StringLike(sCompareString, sToCompare)", {compare, pattern});
  }
}

std::string Functions::EncryptString(const std::string& text) {
  try {
    PasswordCipher cipher;
    cipher.InitialiseFromSession();
    return cipher.Encrypt(text);
  } catch (...) {
    // The text is a password: it stays out of the trace.
    ErrorInRethrow("Functions.EncryptString(sString)", {});
  }
}

int32_t Functions::LastDayInMonth(int32_t month, int32_t year) {
  try {
    // The day before the first of the next month; month 13 carries into the
    // next year.
    const double serial = DateSerial(year, month + 1, 1) - 1;
    return DateTime::Split(serial).day;
  } catch (...) {
    ErrorInRethrow("Functions.LastDayInMonth(lMonthValue, lYearValue)", {Variant(month), Variant(year)});
  }
}

Variant Functions::NumberToDate(int32_t number) {
  try {
    if (number == 0) return Variant::FromDate(DateSerial(1900, 1, 1));
    const std::string digits = std::to_string(number);
    auto part = [&](size_t from, size_t length) {
      return Variant(from < digits.size() ? digits.substr(from, length) : std::string()).ToLong();
    };
    return Variant::FromDate(DateSerial(part(0, 4), part(4, 2), part(6, 2)));
  } catch (...) {
    ErrorInRethrow("Functions.NumberToDate(lNum)", {Variant(number)});
  }
}

Variant Functions::ISO8601ToDate(const std::string& iso) {
  try {
    const size_t end = iso.size();
    size_t tPos = iso.find('T');
    if (tPos == std::string::npos) tPos = end;
    size_t zonePos = iso.find('Z');
    if (zonePos == std::string::npos) zonePos = iso.find('+');
    if (zonePos == std::string::npos) zonePos = iso.find('-', tPos);
    if (zonePos == std::string::npos) zonePos = end;
    if (zonePos == tPos) ++zonePos;
    // A zone sign ahead of the T leaves the time part a negative length.
    if (zonePos < tPos + 1) ThrowRuntimeError(5);

    const std::string datePart = iso.substr(0, tPos);
    std::string timePart = tPos + 1 <= end ? iso.substr(tPos + 1, zonePos - tPos - 1) : std::string();
    if (size_t dot = timePart.find('.'); dot != std::string::npos) timePart.erase(dot);

    int64_t seconds = vbs::calendar::SerialDay(Variant(datePart).ToDate()) * kSecondsPerDay;
    if (!timePart.empty()) {
      seconds += vbs::calendar::SerialToSeconds(vbs::calendar::SerialTime(Variant(timePart).ToDate()));
    }

    const std::string zone = zonePos < end ? iso.substr(zonePos) : std::string();
    if (!zone.empty() && zone.front() != 'Z') {
      const size_t colon = zone.find(':');
      const std::string hours = colon == std::string::npos ? std::string() : zone.substr(1, colon - 1);
      const std::string minutes = colon == std::string::npos ? std::string() : zone.substr(colon + 1);
      int64_t offset = int64_t{Variant(hours).ToLong()} * 60 + Variant(minutes).ToLong();
      if (zone.front() == '+') offset = -offset;
      seconds += offset * 60;
    }
    const double utc = vbs::calendar::SecondsToSerial(seconds);
    if (!vbs::calendar::InRange(utc)) ThrowRuntimeError(5);
    return LocalUTCTimeConversion(Variant::FromDate(utc), true);
  } catch (...) {
    ErrorInRethrow("Functions.ISO8601ToDate(iso)", {Variant(iso)});
  }
}

Variant Functions::UTCToLocalTime(const Variant& time) {
  try {
    return LocalUTCTimeConversion(time, true);
  } catch (...) {
    ErrorInRethrow("Functions.UTCToLocalTime(dtTime)", {time});
  }
}

Variant Functions::LocalToUTCTime(const Variant& time) {
  try {
    return LocalUTCTimeConversion(time, false);
  } catch (...) {
    ErrorInRethrow("Functions.LocalToUTCTime(dtTime)", {time});
  }
}

Variant Functions::LocalUTCTimeConversion(const Variant& time, bool utcToLocal) {
  try {
    const int64_t offset = PresentLocalOffset();
    const int64_t seconds = vbs::calendar::SerialToSeconds(time.ToDate()) + (utcToLocal ? offset : -offset);
    const double serial = vbs::calendar::SecondsToSerial(seconds);
    if (!vbs::calendar::InRange(serial)) ThrowRuntimeError(5);
    return Variant::FromDate(serial);
  } catch (...) {
    ErrorInRethrow("Functions.LocalUTCTimeConversion(dtTime, bUTCToLocal)", {time, Variant(utcToLocal)});
  }
}

// --- Records ---------------------------------------------------------------------------

int32_t Functions::Count(const std::string& field) {
  try {
    Ref<TransactionSelector> scope = OpenScope(DeReference(field));
    int32_t count = 0;
    for (; !scope->EOF_(); scope->MoveNext()) ++count;
    return count;
  } catch (...) {
    ErrorInRethrow("Functions.Count(sField)", {Variant(field)});
  }
}

int32_t Functions::DistinctCount(const std::string& field, const std::string& transactionId) {
  try {
    const std::string name = DeReference(field);
    vbs::Dictionary values;
    if (transactionId == kCurrentRecord) {
      tessel::Transaction& record = Current();
      CheckNotBinary(record, name, "DistinctCount");
      // Added without a test: a value met twice fails as a duplicate key.
      Variant value = record.GetFieldValues(name, 0);
      if (value.IsArray()) {
        for (const Variant& item : value.ArrayValue().Elements()) values.Add(item, Variant());
      } else {
        values.Add(value, Variant());
      }
      return values.Count();
    }
    Ref<TransactionSelector> scope = OpenScope(DeReference(transactionId));
    for (bool first = true; !scope->EOF_(); scope->MoveNext(), first = false) {
      Ref<tessel::Transaction> record = scope->Item();
      if (first) CheckNotBinary(*record, name, "DistinctCount");
      Variant value = record->GetFieldValues(name, 0);
      if (!values.Exists(value)) values.Add(value, Variant());
    }
    return values.Count();
  } catch (...) {
    ErrorInRethrow("Functions.DistinctCount(sField, sTransactionId)", {Variant(field), Variant(transactionId)});
  }
}

double Functions::Sum(const std::string& field, const std::string& tranId) {
  try {
    const std::string name = DeReference(field);
    double total = 0;
    if (tranId == kCurrentRecord) {
      tessel::Transaction& record = Current();
      const int16_t type = CheckSummable(record, name);
      Variant value = record.GetFieldValues(name, 0);
      if (value.IsArray()) {
        for (const Variant& item : value.ArrayValue().Elements()) total += SumTerm(item, type);
      } else {
        total = SumTerm(value, type);
      }
      return total;
    }
    Ref<TransactionSelector> scope = OpenScope(DeReference(tranId));
    int16_t type = kFieldDecimal;
    for (bool first = true; !scope->EOF_(); scope->MoveNext(), first = false) {
      Ref<tessel::Transaction> record = scope->Item();
      if (first) type = CheckSummable(*record, name);
      // A record with several values fails here: an array is no number.
      total += SumTerm(record->GetFieldValues(name, 0), type);
    }
    return total;
  } catch (...) {
    ErrorInRethrow("Functions.Sum(sField, sTranId)", {Variant(field), Variant(tranId)});
  }
}

Variant Functions::Extreme(const std::string& field, const std::string& transactionId, bool minimum) {
  const char* function = minimum ? "Minimum" : "Maximum";
  const CompareResult replaceWhen = minimum ? CompareResult::Greater : CompareResult::Less;
  const std::string name = DeReference(field);
  if (transactionId == kCurrentRecord) {
    tessel::Transaction& record = Current();
    CheckNotBinary(record, name, function);
    Variant value = record.GetFieldValues(name, 0);
    if (!value.IsArray()) return value;
    std::span<const Variant> items = value.ArrayValue().Elements();
    Variant result = items.empty() ? Variant() : items[0];
    for (size_t i = 1; i < items.size(); ++i) {
      if (Compare(result, items[i]) == replaceWhen) result = items[i];
    }
    return result;
  }
  Ref<TransactionSelector> scope = OpenScope(DeReference(transactionId));
  Variant result;
  for (bool first = true; !scope->EOF_(); scope->MoveNext(), first = false) {
    Ref<tessel::Transaction> record = scope->Item();
    if (first) CheckNotBinary(*record, name, function);
    Variant value = record->GetFieldValueCastType(name, 0);
    if (first || Compare(result, value) == replaceWhen) result = std::move(value);
  }
  return result;
}

Variant Functions::Minimum(const std::string& field, const std::string& transactionId) {
  try {
    return Extreme(field, transactionId, true);
  } catch (...) {
    ErrorInRethrow("Functions.Minimum(sField, sTransactionId)", {Variant(field), Variant(transactionId)});
  }
}

Variant Functions::Maximum(const std::string& field, const std::string& transactionId) {
  try {
    return Extreme(field, transactionId, false);
  } catch (...) {
    ErrorInRethrow("Functions.Maximum(sField, sTransactionId)", {Variant(field), Variant(transactionId)});
  }
}

std::string Functions::Concatenate(const std::string& field, const std::string& transactionId,
                                   const std::string& separator) {
  try {
    if (transactionId == kCurrentRecord) {
      // The name is taken as it came, and a field with several values gives
      // "": its values do not concatenate.
      Variant value = Current().GetFieldValues(field, 0);
      return value.IsArray() ? std::string() : value.ToString();
    }
    const std::string name = DeReference(field);
    Ref<TransactionSelector> scope = OpenScope(DeReference(transactionId));
    std::string result;
    bool started = false;
    for (; !scope->EOF_() && !scope->BOF(); scope->MoveNext()) {
      std::string value = scope->Item()->GetFieldValues(name, 0).ToString();
      if (value.empty()) continue;
      if (started) result += separator;
      result += value;
      started = true;
    }
    return result;
  } catch (...) {
    ErrorInRethrow("Functions.Concatenate(sField, sTransactionId, sSeparator)",
                   {Variant(field), Variant(transactionId), Variant(separator)});
  }
}

bool Functions::IsFieldNull(const std::string& fieldId) {
  try {
    return !Current().IsFieldSet(fieldId);
  } catch (...) {
    ErrorInRethrow("Functions.IsFieldNull(sFieldId)", {Variant(fieldId)});
  }
}

std::string Functions::SetFieldNull(const std::string& fieldId) {
  try {
    Current().UnsetField(fieldId);
    return {};
  } catch (...) {
    ErrorInRethrow("Functions.SetFieldNull(sFieldId)", {Variant(fieldId)});
  }
}

Variant Functions::NextRecord(const std::string& fieldId) {
  try {
    Ref<tessel::Transaction> next = Current().NextTransaction();
    return next ? next->GetFieldValues(fieldId, 0) : Variant();
  } catch (...) {
    ErrorInRethrow("Functions.NextRecord(sFieldId)", {Variant(fieldId)});
  }
}

Variant Functions::PreviousRecord(const std::string& fieldId) {
  try {
    Ref<tessel::Transaction> previous = Current().PreviousTransaction();
    return previous ? previous->GetFieldValues(fieldId, 0) : Variant();
  } catch (...) {
    ErrorInRethrow("Functions.PreviousRecord(sFieldId)", {Variant(fieldId)});
  }
}

void Functions::SubPushDown(const std::string& fieldId, const std::string& viewId, const Variant& value) {
  try {
    Ref<TransactionSelector> scope = OpenScope(DeReference(viewId));
    for (; !scope->EOF_() && !scope->BOF(); scope->MoveNext()) {
      scope->Item()->SetFieldValue(fieldId, value, false);
    }
  } catch (...) {
    ErrorInRethrow("Functions.SubPushDown(sFieldID, sViewID, vValue)", {Variant(fieldId), Variant(viewId), value});
  }
}

Variant Functions::GetParent(const std::string& fieldId, const std::string& transactionId) {
  try {
    const std::string parentId = DeReference(transactionId);
    tessel::Transaction& record = Current();
    const std::string currentId = record.TransactionId();
    TransformDefinition& definition = *record.Factory()->TransformDefinition();
    Check(definition.HasRecord(parentId), kInvalidParent, "Transaction [%1] is invalid.", {Variant(parentId)});
    Check(definition.IsRecordDescendent(parentId, currentId), kInvalidParent,
          "Transaction [%1] is not a parent of [%2].", {Variant(parentId), Variant(currentId)});
    for (Ref<tessel::Transaction> up = record.ParentTransaction(); up; up = up->ParentTransaction()) {
      if (up->TransactionId() == parentId) return up->GetFieldValues(fieldId, 0);
    }
    return Variant();
  } catch (...) {
    ErrorInRethrow("Functions.GetParent(sFieldId, sTransactionId)", {Variant(fieldId), Variant(transactionId)});
  }
}

// --- Files -----------------------------------------------------------------------------

std::string Functions::FilePath(const std::string& path) {
  try {
    return FileSystemWrapper::FilePath(path);
  } catch (...) {
    ErrorInRethrow("Functions.FilePath(sPath)", {Variant(path)});
  }
}

std::string Functions::FileName(const std::string& path) {
  try {
    return FileSystemWrapper::FileName(path);
  } catch (...) {
    ErrorInRethrow("Functions.FileName(sPath)", {Variant(path)});
  }
}

std::string Functions::BuildPath(const std::string& path, const std::string& file) {
  try {
    return FileSystemWrapper::BuildPath(path, file);
  } catch (...) {
    ErrorInRethrow("Functions.BuildPath(sPath, sFile)", {Variant(path), Variant(file)});
  }
}

bool Functions::FileExists(const std::string& path) {
  try {
    return FileSystem().FileExists(path);
  } catch (...) {
    ErrorInRethrow("Functions.FileExists(sPath)", {Variant(path)});
  }
}

std::string Functions::ReadTextFile(const std::string& file, const Variant& throwOnError) {
  std::string handle;
  try {
    const bool raise = throwOnError.IsMissing() || throwOnError.ToBool();
    try {
      FileSystemWrapper& files = FileSystem();
      handle = files.OpenTextStream(file, false, "utf-8", false);
      std::string text = files.ReadFile(handle);
      std::string done = std::exchange(handle, std::string());
      files.CloseFile(done);
      return text;
    } catch (...) {
      if (!handle.empty()) {
        try {
          FileSystem().CloseFile(handle);
        } catch (...) {
          // The failure being reported is the read's, not the close's.
        }
      }
      if (raise) throw;
      return {};
    }
  } catch (...) {
    ErrorInRethrow("Functions.ReadTextFile(sFile, bThrowOnError)", {Variant(file), throwOnError});
  }
}

std::string Functions::WriteTextFile(const std::string& file, const std::string& text) {
  std::string handle;
  try {
    FileSystemWrapper& files = FileSystem();
    handle = files.OpenTextStream(file, true, "utf-8", false);
    files.WriteToFile(handle, text);
    std::string done = std::exchange(handle, std::string());
    files.CloseFile(done);
    return {};
  } catch (...) {
    if (!handle.empty()) {
      try {
        FileSystem().CloseFile(handle);
      } catch (...) {
        // The failure being reported is the write's, not the close's.
      }
    }
    ErrorInRethrow("Functions.WriteTextFile(sFile, sText)", {Variant(file), Variant(text)});
  }
}

}  // namespace tessel
