// Functions: the function library every script of a job sees.
//
// The script host publishes one Functions object per engine as "objFunctions"
// with its members as bare global names, so a formula may say
// `TitleCase(%Name)` or `objFunctions.Sum("%Amount", "LINE")`. Members work on
// values (Format, TitleCase, dates), on files (through one FileSystemWrapper
// made at first use) and on records: the current record is Transaction, which
// vbWrapper::Evaluate sets before each evaluation, and record members reach
// other records relative to it through a TransactionSelector.
//
// Record ids and field names may be written as references ("%Amount"): one
// leading '%' is stripped where a member dereferences its argument. The
// aggregate members (DistinctCount, Sum, Minimum, Maximum, Concatenate) take
// the record id "." for the values of a multi-valued field of the current
// record; otherwise they walk the records of that id below the current one.
//
// Members whose work needs lookups, counters, registered values or an ERP are
// bound as well and raise 10503 until the engine has them.
//
// Ownership: the wrapper that Initialise names owns this object (through a
// Ref) and outlives every call; the current record is held by a Ref.
// Errors: 10000 (Sum on a non-numeric field), 10001 (binary fields),
// 10006 (GetParent on an unknown or non-parent record id), 10503 (members not
// available yet); errors of the classes below pass through with each member's
// frame.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "core/Object.h"
#include "core/Variant.h"
#include "scripting/vbs/ClassBinding.h"

namespace tessel {

class FileSystemWrapper;
class Transaction;
class TransactionSelector;
class vbWrapper;

class Functions : public vbs::BoundObject<Functions> {
 public:
  static constexpr int32_t kSumNotNumeric = 10000;
  static constexpr int32_t kBinaryNotAllowed = 10001;
  static constexpr int32_t kInvalidParent = 10006;
  static constexpr int32_t kNotAvailable = 10503;

  static void Bind(vbs::ClassBinding<Functions>& binding);

  Functions();
  ~Functions() override;

  // Keeps the wrapper that owns this object (not owned).
  void Initialise(vbWrapper& wrapper);

  // The current record; may be null.
  const Ref<tessel::Transaction>& CurrentTransaction() const { return transaction_; }
  void SetCurrentTransaction(Ref<tessel::Transaction> transaction);

  // The Transaction property as scripts see it: Nothing when there is no
  // current record; setting anything but a Transaction or Nothing raises 13.
  Ref<Object> Transaction() const;
  void SetTransaction(Ref<Object> transaction);

  // --- Values ----------------------------------------------------------------------
  std::string Format(const Variant& value, const std::string& formatString);
  // First letter of each word upper case, the rest lower case; words are
  // separated by blanks, tabs, line breaks and NUL.
  Variant TitleCase(const std::string& text);
  // Replace with a binary comparison; the result starts at `start` (default
  // 1) and `count` -1 (the default) replaces all.
  Variant FindReplace(const Variant& text, const std::string& find, const std::string& replace,
                      const Variant& start, const Variant& count);
  // `compare` matched against `pattern`: ? one character, * any run, # one
  // digit, [list] / [!list] with ranges a-z; binary comparison. 93 for a
  // malformed list.
  bool StringLike(const Variant& compare, const Variant& pattern);
  // Cipher text of the password cipher keyed by the session's configuration.
  std::string EncryptString(const std::string& text);
  int32_t LastDayInMonth(int32_t month, int32_t year);
  // yyyymmdd to a date; 0 is 1900-01-01; months and days carry over.
  Variant NumberToDate(int32_t number);
  // ISO 8601 text to local time; text without a zone is taken as UTC.
  Variant ISO8601ToDate(const std::string& iso);
  // Conversions by the machine's present offset from UTC; milliseconds are
  // dropped.
  Variant UTCToLocalTime(const Variant& time);
  Variant LocalToUTCTime(const Variant& time);

  // --- Records ---------------------------------------------------------------------
  int32_t Count(const std::string& field);
  int32_t DistinctCount(const std::string& field, const std::string& transactionId);
  double Sum(const std::string& field, const std::string& tranId);
  Variant Minimum(const std::string& field, const std::string& transactionId);
  Variant Maximum(const std::string& field, const std::string& transactionId);
  std::string Concatenate(const std::string& field, const std::string& transactionId, const std::string& separator);
  bool IsFieldNull(const std::string& fieldId);
  // Unsets the field of the current record; returns "" so that a map formula
  // writes nothing over it.
  std::string SetFieldNull(const std::string& fieldId);
  Variant NextRecord(const std::string& fieldId);
  Variant PreviousRecord(const std::string& fieldId);
  // Sets the field in every record of `viewId` below the current record,
  // without overwriting.
  void SubPushDown(const std::string& fieldId, const std::string& viewId, const Variant& value);
  // The field of the nearest ancestor of the current record of that id.
  Variant GetParent(const std::string& fieldId, const std::string& transactionId);

  // --- Files -----------------------------------------------------------------------
  std::string FilePath(const std::string& path);
  std::string FileName(const std::string& path);
  std::string BuildPath(const std::string& path, const std::string& file);
  bool FileExists(const std::string& path);
  // The whole UTF-8 file; with `throwOnError` false (the default is true) a
  // failure gives "".
  std::string ReadTextFile(const std::string& file, const Variant& throwOnError);
  // Appends the text to the file (made when missing); returns "".
  std::string WriteTextFile(const std::string& file, const std::string& text);

 private:
  template <size_t N>
  struct MemberName {
    constexpr MemberName(const char (&name)[N]) {
      for (size_t i = 0; i < N; ++i) text[i] = name[i];
    }
    char text[N];
  };
  // Members of the library that this engine does not have yet.
  template <MemberName Name>
  Variant NotAvailable(std::span<Variant>) {
    RaiseNotAvailable(Name.text);
  }
  [[noreturn]] static void RaiseNotAvailable(std::string_view member);

  tessel::Transaction& Current() const;
  // The records of `tranId` below the current record, positioned on the first.
  Ref<TransactionSelector> OpenScope(const std::string& tranId);
  Variant Extreme(const std::string& field, const std::string& transactionId, bool minimum);
  Variant LocalUTCTimeConversion(const Variant& time, bool utcToLocal);
  FileSystemWrapper& FileSystem();

  vbWrapper* wrapper_ = nullptr;
  Ref<tessel::Transaction> transaction_;
  std::unique_ptr<FileSystemWrapper> fileSystem_;
};

}  // namespace tessel
