#include "input/CSVReader.h"

#include <algorithm>

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "input/IInputOutputController.h"
#include "job/TransformDefinition.h"
#include "services/FileSystemWrapper.h"
#include "store/Attributes.h"

namespace tessel {

namespace {

// Length of the UTF-8 sequence that starts with this byte (1 for a stray byte).
size_t Utf8Length(unsigned char lead) {
  if (lead >= 0xF0 && lead < 0xF8) return 4;
  if (lead >= 0xE0) return lead < 0xF0 ? 3 : 1;
  if (lead >= 0xC0) return 2;
  return 1;
}

}  // namespace

CSVReader::CSVReader() = default;
CSVReader::~CSVReader() = default;

void CSVReader::InitClass(std::shared_ptr<TransformDefinition> definition,
                          std::shared_ptr<IInputOutputController> controller, bool testMode) {
  try {
    if (!definition || !controller) ThrowRuntimeError(91);
    definition_ = std::move(definition);
    controller_ = std::move(controller);
    testMode_ = testMode;
    DelimiterChar();
    SetHeaderLength();
    MoveNextFile();
    if (!PrivateEOF()) Read();
    // Steps over an empty or header-only first file.
    if (PrivateEOF()) MoveNext();
  } catch (...) {
    ErrorInRethrow("CSVReader.IImportReader_InitClass(oTransformDefinition, oController, bTestMode)",
                   {Variant(), Variant(), Variant(testMode)});
  }
}

void CSVReader::DelimiterChar() {
  const std::string text = definition_->Property("delimiter").ToString();
  delimiter_.clear();
  if (!text.empty()) {
    delimiter_ = text.substr(0, std::min(text.size(), Utf8Length(static_cast<unsigned char>(text[0]))));
  }
}

void CSVReader::SetHeaderLength() { headerLength_ = definition_->Property("headerlength").ToLong(); }

void CSVReader::MoveNextFile() {
  lineIndex_ = 0;
  Variant input;
  if (!controller_->EOF_()) input = controller_->FetchNextDataSet();
  inputEmpty_ = !input.IsString() || input.StringValue().empty();
  if (inputEmpty_ && !input.IsEmpty() && !input.IsNull() && !input.IsString()) {
    // A byte array or other value: read as its text.
    std::string converted = input.ToString();
    inputEmpty_ = converted.empty();
    if (!inputEmpty_) input = Variant(std::move(converted));
  }
  if (inputEmpty_) return;  // the previous file's lines stay, as documented

  // The values are views into the text they were parsed from, which goes
  // now: they keep copies of their own, since an empty file further on
  // reads them again.
  std::vector<std::string> kept(values_.begin(), values_.begin() + static_cast<std::ptrdiff_t>(valueCount_));
  keptValues_.swap(kept);
  for (size_t i = 0; i < valueCount_; ++i) values_[i] = keptValues_[i];
  text_.assign(input.StringValue());
  input = Variant();
  const std::string_view text(text_);
  const std::string_view delimiter = FileSystemWrapper::DetectLineDelimiter(text);
  lines_.clear();
  if (delimiter.empty()) {
    lines_.push_back(Line{0, text.size()});
  } else {
    size_t start = 0;
    for (;;) {
      size_t found = text.find(delimiter, start);
      if (found == std::string_view::npos) {
        lines_.push_back(Line{start, text.size() - start});
        break;
      }
      lines_.push_back(Line{start, found - start});
      start = found + delimiter.size();
    }
  }
  dimensioned_ = true;
  lineIndex_ = headerLength_;
}

std::string_view CSVReader::LineAt(int64_t index) const {
  if (index < 0 || index >= static_cast<int64_t>(lines_.size())) ThrowRuntimeError(9);
  const Line& line = lines_[static_cast<size_t>(index)];
  return std::string_view(text_).substr(line.offset, line.length);
}

bool CSVReader::EndOfFile(std::string_view line) {
  return line.empty() || line == "\r" || line == "\n" || line == "\r\n";
}

bool CSVReader::PrivateEOF() {
  if (!dimensioned_) return true;
  if (lineIndex_ > static_cast<int64_t>(lines_.size()) - 1) return true;
  if (EndOfFile(LineAt(lineIndex_))) return true;
  return TestLimitReached();
}

void CSVReader::Read() {
  if (inputEmpty_) return;
  ++linesRead_;
  std::string_view line = LineAt(lineIndex_);
  if (!EndOfFile(line)) valueCount_ = ParseString(line, delimiter_, values_);
}

void CSVReader::MoveNext() {
  try {
    ++lineIndex_;
    while (PrivateEOF()) {
      // Once the test limit is reached no further file can add a record.
      if (controller_->EOF_() || TestLimitReached()) break;
      MoveNextFile();
    }
    if (!PrivateEOF()) Read();
  } catch (...) {
    ErrorInRethrow("CSVReader.IImportReader_MoveNext()", {});
  }
}

bool CSVReader::EOF_() {
  try {
    return PrivateEOF() && (controller_->EOF_() || TestLimitReached());
  } catch (...) {
    ErrorInRethrow("CSVReader.IImportReader_EOF()", {});
  }
}

int32_t CSVReader::Position(xmlNodePtr fieldNode) {
  auto found = positions_.find(fieldNode);
  if (found != positions_.end()) return found->second;
  if (fieldNode == nullptr) ThrowRuntimeError(91);
  xmlChar* value = xmlGetProp(fieldNode, reinterpret_cast<const xmlChar*>("position"));
  Check(value != nullptr, 7701, "No matching attribute [%1] could be found in the node.", Variant("position"));
  const std::string text(reinterpret_cast<const char*>(value));
  xmlFree(value);
  const int32_t position = Variant(text).ToLong();
  positions_.emplace(fieldNode, position);
  return position;
}

Variant CSVReader::Item(xmlNodePtr fieldNode) {
  try {
    const int64_t index = static_cast<int64_t>(Position(fieldNode)) - 1;
    if (index < 0 || index >= static_cast<int64_t>(valueCount_)) ThrowRuntimeError(9);
    return Variant(values_[static_cast<size_t>(index)]);
  } catch (...) {
    ErrorInRethrow("CSVReader.IImportReader_Item(oFieldNode)", {});
  }
}

bool CSVReader::ItemText(xmlNodePtr fieldNode, std::string_view& text) {
  try {
    const int64_t index = static_cast<int64_t>(Position(fieldNode)) - 1;
    if (index < 0 || index >= static_cast<int64_t>(valueCount_)) ThrowRuntimeError(9);
    text = values_[static_cast<size_t>(index)];
    return true;
  } catch (...) {
    ErrorInRethrow("CSVReader.IImportReader_Item(oFieldNode)", {});
  }
}

Variant CSVReader::FieldByPosition(int32_t position) {
  try {
    if (position < 0 || static_cast<size_t>(position) >= valueCount_) ThrowRuntimeError(9);
    return Variant(values_[static_cast<size_t>(position)]);
  } catch (...) {
    ErrorInRethrow("CSVReader.IImportReader_FieldByPosition(lPosition)", {Variant(position)});
  }
}

std::string CSVReader::Source() {
  try {
    return controller_->CurrentSource();
  } catch (...) {
    ErrorInRethrow("CSVReader.IImportReader_Source()", {});
  }
}

void CSVReader::FieldAttributes(std::string_view transactionId, xmlNodePtr fieldNode, Attributes& attributes) {
  try {
    attributes.Add("position", Variant(Position(fieldNode)));
  } catch (...) {
    ErrorInRethrow("CSVReader.IMetaDataBuilder_FieldAttributes(sTransactionId, oFieldNode, oAttributes)",
                   {Variant(std::string(transactionId))});
  }
}

std::vector<std::string> CSVReader::CurrentValues() const {
  return std::vector<std::string>(values_.begin(), values_.begin() + static_cast<std::ptrdiff_t>(valueCount_));
}

size_t CSVReader::ParseString(std::string_view line, std::string_view delimiter,
                              std::vector<std::string_view>& values) {
  // States: 0 between fields, 1 in an unquoted value or after a closing
  // quote, 2 inside quotes. `trim` counts bytes to drop at a value's end:
  // trailing spaces, or the closing quote.
  int state = 0;
  size_t start = 0;
  size_t trim = 0;
  size_t count = 0;
  auto store = [&](size_t end) {
    if (count == values.size()) values.resize(values.size() + 64);
    const size_t stop = end >= start + trim ? end - trim : start;
    values[count++] = std::string_view(line.data() + start, stop >= start ? stop - start : 0);
  };
  const size_t size = line.size();
  const bool singleByte = delimiter.size() == 1;
  const char delim = singleByte ? delimiter[0] : '\0';
  size_t i = 0;
  while (i < size) {
    if (state == 0 && singleByte) {
      // A value mostly starts with a run of bytes that are neither delimiter,
      // quote nor blank: the machine would only enter state 1 at the first
      // and stay there, so the run is stepped over at once.
      size_t end = i;
      while (end < size && line[end] != delim && line[end] != '"' && line[end] != ' ') ++end;
      if (end > i) {
        state = 1;
        start = i;
        trim = 0;
        i = end;
        continue;
      }
    }
    const char c = line[i];
    const bool isDelimiter = singleByte ? c == delim
                                        : !delimiter.empty() && line.compare(i, delimiter.size(), delimiter) == 0;
    if (isDelimiter) {
      if (state == 0) {
        start = i;
        trim = 0;
        store(i);
        start = i + delimiter.size();
      } else if (state == 1) {
        state = 0;
        store(i);
        start = i + delimiter.size();
        trim = 0;
      }
      i += delimiter.size();
      continue;
    }
    if (c == ' ') {
      if (state == 1) ++trim;
    } else if (c == '"') {
      if (state == 0) {
        state = 2;
        start = i + 1;
      } else if (state == 2) {
        state = 1;
        trim = 1;
      }
    } else {
      if (state == 0) {
        state = 1;
        start = i;
      }
      trim = 0;
    }
    ++i;
  }
  if (start > size) start = size;
  store(size);
  return count;
}

}  // namespace tessel
