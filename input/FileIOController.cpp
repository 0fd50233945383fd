#include "input/FileIOController.h"

#include "audit/HuntErr.h"
#include "core/BooleanText.h"
#include "core/RuntimeError.h"
#include "job/PropertyBagHelper.h"

namespace tessel {

void FileIOController::Initialise(Ref<XMLWrapper> wrapper) {
  try {
    options_ = std::move(wrapper);
    encoding_ = GetProperty("encoding");
    GetFiles();
    fileIndex_ = 1;
  } catch (...) {
    ErrorInRethrow("FileIOController.IInputOutputController_Initialise(oWrapper)");
  }
}

std::string FileIOController::GetProperty(std::string_view name) {
  try {
    if (!options_) ThrowRuntimeError(91);
    PropertyBagHelper helper(*options_);
    if (!helper.HasProperty(name)) return {};
    return helper.Property(name);
  } catch (...) {
    ErrorInRethrow("FileIOController.GetProperty(sName)", {Variant(name)});
  }
}

bool FileIOController::GetBooleanProperty(std::string_view name) {
  const std::string text = GetProperty(name);
  if (text.empty()) return false;
  return BooleanText::Parse(text);
}

std::string FileIOController::GetFilePath() { return GetProperty("filedir"); }
std::string FileIOController::FileFilter() { return GetProperty("filter"); }

void FileIOController::GetFiles() {
  try {
    files_.clear();
    const std::string filter = FileFilter();
    haveFileSet_ = !filter.empty();
    if (!haveFileSet_) return;
    files_ = fileSystem_.GetMatchingFiles(FileSystemWrapper::BuildPath(GetFilePath(), filter));
  } catch (...) {
    ErrorInRethrow("FileIOController.GetFiles()");
  }
}

bool FileIOController::EOF_() { return !haveFileSet_ || fileIndex_ > files_.size(); }

Variant FileIOController::FetchNextDataSet() {
  try {
    Check(!EOF_(), kPastEnd, "Cannot move past end of controller queue.");
    const std::string& path = files_[fileIndex_ - 1];
    Variant result;
    if (fileSystem_.FileExists(path)) {
      if (!binary_) {
        const std::string handle = fileSystem_.OpenTextStream(path, false, encoding_, false);
        result = Variant(fileSystem_.ReadFile(handle));
        fileSystem_.CloseFile(handle);
      } else {
        const std::string handle = fileSystem_.OpenBinaryStream(path, false);
        Bytes bytes = fileSystem_.ReadBinaryFile(handle);
        std::vector<Variant> elements;
        elements.reserve(bytes.size());
        for (uint8_t byte : bytes) elements.push_back(Variant::FromByte(byte));
        result = Variant::FromVector(std::move(elements));
        fileSystem_.CloseFile(handle);
      }
    }
    ++fileIndex_;
    return result;
  } catch (...) {
    ErrorInRethrow("FileIOController.IInputOutputController_FetchNextDataSet()");
  }
}

std::string FileIOController::CurrentSource() {
  try {
    // Before the first fetch there is no source: the file set has no item 0.
    if (fileIndex_ < 2 || !haveFileSet_) ThrowRuntimeError(9);
    if (fileIndex_ - 1 <= files_.size()) return files_[fileIndex_ - 2];
    return "File Set Not Open.";
  } catch (...) {
    ErrorInRethrow("FileIOController.IInputOutputController_CurrentSource()");
  }
}

void FileIOController::SetOption(std::string_view name, const Variant& value) {
  try {
    if (name == "bintype") binary_ = value.ToBool();
  } catch (...) {
    ErrorInRethrow("FileIOController.IInputOutputController_SetOption(sName, vValue)", {Variant(name), value});
  }
}

Variant FileIOController::GetOption(std::string_view name) {
  if (name == "bintype") return Variant(binary_);
  return Variant();
}

void FileIOController::HandleIOError(int32_t number, const std::string& file, const std::string& description) {
  ErrInsertTrace(BuildCheckMessage("Error whilst performing file operation on file [%1].||||Error [%2] - %3",
                                   {Variant(file), Variant(number), Variant(description)}));
}

void FileIOController::WriteDataSet(const Variant& data, Transaction* transaction) {
  std::string fileName;
  std::string directory;
  try {
    fileName = GetProperty("filter");
    directory = GetProperty("filedir");
    const bool evaluate = GetBooleanProperty("evaluate");
    const bool overwrite = GetBooleanProperty("overwrite");
    const bool checkContents = GetBooleanProperty("checkcontents");
    const bool writeBom = GetBooleanProperty("writebom");

    bool write = true;
    if (checkContents && overwrite && !binary_) {
      // Only an existing empty file is kept; the new data is not compared.
      const std::string existing = FileSystemWrapper::BuildPath(directory, fileName);
      if (fileSystem_.FileExists(existing)) {
        const std::string handle = fileSystem_.OpenTextStream(existing, false, encoding_, false);
        if (fileSystem_.ReadFile(handle).empty()) write = false;
        fileSystem_.CloseFile(handle);
      }
    }
    if (!write) return;
    if (binary_) {
      const std::string handle = fileSystem_.CreateBinaryStream(fileName, evaluate, directory, overwrite, transaction);
      fileSystem_.WriteToBinaryFile(handle, data);
      fileSystem_.CloseFile(handle);
    } else {
      const std::string handle =
          fileSystem_.CreateTextStream(fileName, evaluate, directory, overwrite, encoding_, writeBom, transaction);
      if (data.IsString()) {
        fileSystem_.WriteToFile(handle, data.StringValue());
      } else {
        fileSystem_.WriteToFile(handle, data.ToString());
      }
      fileSystem_.CloseFile(handle);
    }
  } catch (...) {
    const Error current = CurrentError();
    if (FileSystemWrapper::IsIOError(current.number())) {
      HandleIOError(current.number(), FileSystemWrapper::BuildPath(directory, fileName),
                    ErrTraceFreeDescription());
    }
    ErrorInRethrow("FileIOController.IInputOutputController_WriteDataSet(vData, oTransaction)");
  }
}

}  // namespace tessel
