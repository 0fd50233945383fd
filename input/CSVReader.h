// CSVReader: the IImportReader for delimited text.
//
// It fetches one whole file at a time from its controller, splits it into
// lines on the line break found first in the file (CR LF, CR, LF, form feed,
// U+0085, U+2028, U+2029 by precedence; none: the file is one line), skips
// headerlength lines at the top of each file, and parses the current line
// into fields on the first character of the delimiter option.
//
// Rules kept on purpose, as users' files depend on them:
// - a blank line ends its file; the lines after it are ignored;
// - there is no escape for a quote: "ab""cd" reads as ab""cd";
// - surrounding spaces of a value are dropped, spaces inside quotes kept;
// - a line break inside quotes ends the record (lines are split first);
// - an empty file after a non-empty one replays the previous file's lines
//   with the values last parsed;
// - in a test run at most 400 records are delivered across all files.
//
// Ownership: the reader shares its controller with the transform and keeps
// the definition; the text of the current file is held whole, lines are
// offsets into it.
//
// Errors: 9 "Subscript out of range" for a position the line does not have;
// 13 for a non-numeric position; 7701 for a field without one; 7703 when the
// delimiter or headerlength option is missing.
#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "input/IImportReader.h"
#include "input/IMetaDataBuilder.h"

namespace tessel {

class CSVReader : public IImportReader, public IMetaDataBuilder {
 public:
  static constexpr int64_t kTestRecordLimit = 400;

  CSVReader();
  ~CSVReader() override;

  // IImportReader
  void InitClass(std::shared_ptr<TransformDefinition> definition,
                 std::shared_ptr<IInputOutputController> controller, bool testMode) override;
  void MoveNext() override;
  Variant Item(xmlNodePtr fieldNode) override;
  bool ItemText(xmlNodePtr fieldNode, std::string_view& text) override;
  Variant FieldByPosition(int32_t position) override;
  bool EOF_() override;
  void ValidateRecord(xmlNodePtr recordNode) override {}
  std::string Source() override;

  // IMetaDataBuilder
  void Initialise(const Variant& source) override {}
  void TransactionAttributes(std::string_view transactionId, std::string_view parentId,
                             Attributes& attributes) override {}
  void FieldAttributes(std::string_view transactionId, xmlNodePtr fieldNode, Attributes& attributes) override;

  // Parses one line into `values`, views into `line` (the vector grows as
  // needed and is not shrunk), and returns the number of values;
  // `delimiter` empty means no field delimiter.
  static size_t ParseString(std::string_view line, std::string_view delimiter,
                            std::vector<std::string_view>& values);
  // A blank line: empty, CR, LF or CR LF.
  static bool EndOfFile(std::string_view line);

  // The parsed values of the current record.
  std::vector<std::string> CurrentValues() const;
  int64_t LinesRead() const { return linesRead_; }

 private:
  struct Line {
    size_t offset;
    size_t length;
  };

  void MoveNextFile();
  void Read();
  bool PrivateEOF();
  void DelimiterChar();
  void SetHeaderLength();
  std::string_view LineAt(int64_t index) const;
  bool TestLimitReached() const { return testMode_ && linesRead_ >= kTestRecordLimit + 1; }
  int32_t Position(xmlNodePtr fieldNode);

  std::shared_ptr<TransformDefinition> definition_;
  std::shared_ptr<IInputOutputController> controller_;
  bool testMode_ = false;

  int64_t lineIndex_ = 0;
  bool inputEmpty_ = true;  // the last fetch gave nothing
  std::string text_;        // the file the lines point into
  std::vector<Line> lines_;
  bool dimensioned_ = false;
  // The current line's values: views into text_, or into keptValues_ once
  // another file's text has taken text_'s place.
  std::vector<std::string_view> values_;
  std::vector<std::string> keptValues_;
  size_t valueCount_ = 0;
  std::string delimiter_;  // the delimiter's first character, as UTF-8
  int32_t headerLength_ = 0;
  int64_t linesRead_ = 0;
  std::unordered_map<xmlNodePtr, int32_t> positions_;
};

}  // namespace tessel
