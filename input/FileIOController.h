// FileIOController: the controller of files, on both sides of a job.
//
// Input: the options filedir and filter (a name pattern with * and ?) give an
// ordered file set, listed once in Initialise; each FetchNextDataSet hands out
// one file's whole content, decoded text or with the run-time option bintype
// a byte array. Output: each WriteDataSet writes one new file named by filter
// (a plain name, or with evaluate an expression) in filedir; overwrite,
// encoding, writebom and checkcontents shape the write. All file access and
// character-set work goes through the FileSystemWrapper the controller owns.
//
// Errors: 8500 fetch past the end of the file set, 8501 a missing directory
// (from Initialise); I/O failures of a write gain the file's name in their
// text and pass on.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "input/IInputOutputController.h"
#include "services/FileSystemWrapper.h"
#include "store/XMLWrapper.h"

namespace tessel {

class FileIOController : public IInputOutputController {
 public:
  static constexpr int32_t kPastEnd = 8500;

  FileIOController() = default;

  void Initialise(Ref<XMLWrapper> wrapper) override;
  void BeginTransaction() override {}
  void Commit() override {}
  Variant FetchNextDataSet() override;
  bool EOF_() override;
  void SetOption(std::string_view name, const Variant& value) override;
  Variant GetOption(std::string_view name) override;
  std::string CurrentSource() override;
  void WriteDataSet(const Variant& data, Transaction* transaction) override;
  std::string OutputId() override { return {}; }
  std::string EncodingMethod() override { return encoding_; }

  // The file set as listed by Initialise.
  const std::vector<std::string>& Files() const { return files_; }

 private:
  void GetFiles();
  std::string GetFilePath();
  std::string FileFilter();
  // The option's text, or "" when the option is absent.
  std::string GetProperty(std::string_view name);
  bool GetBooleanProperty(std::string_view name);
  void HandleIOError(int32_t number, const std::string& file, const std::string& description);

  bool binary_ = false;
  std::string encoding_;
  size_t fileIndex_ = 1;  // 1-based position of the next file
  Ref<XMLWrapper> options_;
  FileSystemWrapper fileSystem_;
  std::vector<std::string> files_;
  bool haveFileSet_ = false;
};

}  // namespace tessel
