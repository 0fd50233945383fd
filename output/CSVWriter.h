// CSVWriter: the output writer of delimited text.
//
// Each record becomes one line: its exported fields, in definition order,
// joined by the delimiter (used whole, any length). With quotestrings, string
// fields are enclosed in double quotes; quotes inside a value are written as
// they are, neither doubled nor escaped, and nothing else is ever quoted.
// With writeheaders every unit opens with one header line per exported record
// type, in export order. A unit is built in one buffer and handed to the
// controller as one text at Commit; every line, the last included, ends in the
// line delimiter.
//
// A unit cannot repeat the records above the commit record: a job with this
// writer must commit on its top record, and a second unit below another
// record raises 9002.
//
// Errors: 9001 a newline option that is no line delimiter code, 9002 see
// above; field and write failures pass on from the store and the controller.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "output/IOutputWriter.h"
#include "store/FieldNameNode.h"

namespace tessel {

class CSVWriter : public IOutputWriter {
 public:
  static constexpr int32_t kInvalidLineDelimiter = 9001;
  static constexpr int32_t kCommitBelowTop = 9002;

  void InitClass(std::shared_ptr<TransformDefinition> definition, std::shared_ptr<IInputOutputController> controller,
                 const std::vector<std::string>& tranOrder, std::shared_ptr<WriteRecordCache> writeCache) override;
  void ExpectRecords(int64_t topRecords) override { expectedLines_ = topRecords; }
  void BeginTransaction() override {}
  void Commit(Transaction* transaction) override;
  void WriteRecord(Transaction& transaction) override;
  void WriteCachedRecords() override;

  // The line delimiter of a newline code: 1 CR LF, 2 CR, 3 LF, 4 U+0085,
  // 5 form feed, 6 U+2029, 7 U+2028 (as UTF-8). 9001 for anything else.
  static std::string GetLineDelimiter(std::string_view code);

  const std::string& Header() const { return header_; }
  const std::string& LineDelimiter() const { return lineDelimiter_; }
  // Lines buffered in the unit in progress.
  int32_t LineCount() const { return lineCount_; }

 private:
  struct RecordLayout {
    bool exported = false;
    std::vector<std::string> names;
    std::vector<char> quoted;  // per field: a string field with quotestrings on (not bits: read per value)
    std::vector<FieldNameNode> known;  // per field: its name node in the records written so far
  };

  void SetOptions();
  void GenerateCache();
  void WriteHeaders();
  void StartUnit();
  void SizeUnit();

  std::shared_ptr<TransformDefinition> definition_;
  std::shared_ptr<IInputOutputController> controller_;
  std::vector<std::string> tranOrder_;
  std::shared_ptr<WriteRecordCache> cache_;

  bool quoteStrings_ = false;
  bool writeHeaders_ = false;
  std::string delimiter_;
  std::string lineDelimiter_;
  std::string header_;
  std::unordered_map<std::string, RecordLayout> layouts_;
  // The unit in progress: the header, then each line with its delimiter.
  std::string unit_;
  int32_t lineCount_ = 0;
  // ExpectRecords' hint for the unit in progress; the unit's buffer is sized
  // by it once the first lines show how long a line is.
  int64_t expectedLines_ = 0;
};

}  // namespace tessel
