// FileIOController: the IInputOutputController for files.
//
// On input it turns the options filedir and filter (a name pattern with * and
// ?) into a file set, listed once in Initialise in the order the directory
// listing gives, and hands out one whole file per FetchNextDataSet: decoded
// text, or with the run-time option bintype a byte array. On output every
// WriteDataSet creates one file named by filter (an expression when evaluate
// is set) in filedir. It knows nothing of records; character sets are the
// FileSystemWrapper's business.
//
// Ownership: the controller owns its FileSystemWrapper (which closes whatever
// is left open) and keeps the options wrapper it was initialised with.
//
// Errors: 8500 fetch past the end of the file set; 8501 filedir does not
// exist (during Initialise); the file system's errors on read and write, an
// I/O error on write carrying the file's name as additional text.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "input/IInputOutputController.h"
#include "services/FileSystemWrapper.h"
#include "store/XMLWrapper.h"

namespace tessel {

class FileIOController : public IInputOutputController {
 public:
  static constexpr int32_t kPastEnd = 8500;

  FileIOController();
  ~FileIOController() override;

  void Initialise(Ref<XMLWrapper> wrapper) override;
  void BeginTransaction() override {}
  void Commit() override {}
  Variant FetchNextDataSet() override;
  bool EOF_() override;
  // Only bintype is known: it sets binary reading and writing.
  void SetOption(std::string_view name, const Variant& value) override;
  Variant GetOption(std::string_view name) override;
  // The file last fetched; "File Set Not Open." past the end; fails before
  // the first fetch.
  std::string CurrentSource() override;
  void WriteDataSet(const Variant& data, Transaction* transaction) override;
  std::string OutputId() override { return {}; }
  std::string EncodingMethod() override { return encoding_; }

  // The file set as listed by Initialise.
  const std::vector<std::string>& Files() const { return files_; }

 private:
  std::vector<std::string> GetFiles();
  std::string GetFilePath();
  std::string FileFilter();
  // The option's value, or Empty when the option is absent.
  Variant GetProperty(std::string_view name);
  bool BooleanProperty(std::string_view name);
  void HandleIOError(int32_t number, const std::string& description, const std::string& file);

  bool binary_ = false;
  std::string encoding_;
  size_t fileIndex_ = 1;  // 1-based position of the next file
  Ref<XMLWrapper> options_;
  FileSystemWrapper fileSystem_;
  std::vector<std::string> files_;
  bool haveFileSet_ = false;
};

}  // namespace tessel
