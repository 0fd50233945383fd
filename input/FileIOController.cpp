#include "input/FileIOController.h"

#include "audit/HuntErr.h"
#include "core/BooleanText.h"
#include "core/RuntimeError.h"
#include "job/PropertyBagHelper.h"

namespace tessel {

FileIOController::FileIOController() = default;
FileIOController::~FileIOController() = default;

void FileIOController::Initialise(Ref<XMLWrapper> wrapper) {
  try {
    if (!wrapper) ThrowRuntimeError(91);
    options_ = std::move(wrapper);
    encoding_ = GetProperty("encoding").ToString();
    files_ = GetFiles();
    fileIndex_ = 1;
  } catch (...) {
    ErrorInRethrow("FileIOController.IInputOutputController_Initialise(oWrapper)", {});
  }
}

Variant FileIOController::GetProperty(std::string_view name) {
  PropertyBagHelper bag(*options_);
  if (!bag.HasProperty(name)) return Variant();
  return Variant(bag.Property(name));
}

bool FileIOController::BooleanProperty(std::string_view name) {
  Variant value = GetProperty(name);
  if (value.IsEmpty()) return false;
  const std::string text = value.ToString();
  return !text.empty() && BooleanText::Parse(text);
}

std::string FileIOController::GetFilePath() { return GetProperty("filedir").ToString(); }
std::string FileIOController::FileFilter() { return GetProperty("filter").ToString(); }

std::vector<std::string> FileIOController::GetFiles() {
  try {
    const std::string filter = FileFilter();
    haveFileSet_ = !filter.empty();
    if (!haveFileSet_) return {};
    return fileSystem_.GetMatchingFiles(FileSystemWrapper::BuildPath(GetFilePath(), filter));
  } catch (...) {
    ErrorInRethrow("FileIOController.GetFiles()", {});
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
        std::string handle = fileSystem_.OpenTextStream(path, false, encoding_, false);
        std::string text = fileSystem_.ReadFile(handle);
        fileSystem_.CloseFile(handle);
        result = Variant(std::move(text));
      } else {
        std::string handle = fileSystem_.OpenBinaryStream(path, false);
        Bytes bytes = fileSystem_.ReadBinaryFile(handle);
        fileSystem_.CloseFile(handle);
        std::vector<Variant> elements;
        elements.reserve(bytes.size());
        for (uint8_t b : bytes) elements.push_back(Variant::FromByte(b));
        result = Variant::FromVector(std::move(elements));
      }
    }
    ++fileIndex_;
    return result;
  } catch (...) {
    ErrorInRethrow("FileIOController.IInputOutputController_FetchNextDataSet()", {});
  }
}

void FileIOController::SetOption(std::string_view name, const Variant& value) {
  try {
    if (name == "bintype") binary_ = value.IsEmpty() ? false : value.ToBool();
  } catch (...) {
    ErrorInRethrow("FileIOController.IInputOutputController_SetOption(sName, vValue)",
                   {Variant(std::string(name)), value});
  }
}

Variant FileIOController::GetOption(std::string_view name) {
  if (name == "bintype") return Variant(binary_);
  return Variant();
}

std::string FileIOController::CurrentSource() {
  try {
    const size_t last = fileIndex_ - 1;
    if (last == 0 || last > files_.size()) {
      if (last == 0) ThrowRuntimeError(9);
      return "File Set Not Open.";
    }
    return files_[last - 1];
  } catch (...) {
    ErrorInRethrow("FileIOController.IInputOutputController_CurrentSource()", {});
  }
}

void FileIOController::HandleIOError(int32_t number, const std::string& description, const std::string& file) {
  ErrInsertTrace(BuildCheckMessage("Error whilst performing file operation on file [%1].||||Error [%2] - %3",
                                   {Variant(file), Variant(number), Variant(description)}));
}

void FileIOController::WriteDataSet(const Variant& data, Transaction* transaction) {
  std::string fileName;
  std::string directory;
  try {
    fileName = FileFilter();
    directory = GetFilePath();
    const bool evaluate = BooleanProperty("evaluate");
    const bool overwrite = BooleanProperty("overwrite");
    const bool checkContents = BooleanProperty("checkcontents");
    const bool writeBom = BooleanProperty("writebom");
    bool write = true;
    if (checkContents && overwrite && !binary_) {
      // Only an existing empty file survives; the new data is not compared.
      const std::string existing = FileSystemWrapper::BuildPath(directory, fileName);
      if (fileSystem_.FileExists(existing)) {
        std::string handle = fileSystem_.OpenTextStream(existing, false, encoding_, false);
        std::string text = fileSystem_.ReadFile(handle);
        fileSystem_.CloseFile(handle);
        if (text.empty()) write = false;
      }
    }
    if (write) {
      if (binary_) {
        std::string handle = fileSystem_.CreateBinaryStream(fileName, evaluate, directory, overwrite, transaction);
        fileSystem_.WriteToBinaryFile(handle, data);
        fileSystem_.CloseFile(handle);
      } else {
        std::string handle = fileSystem_.CreateTextStream(fileName, evaluate, directory, overwrite, encoding_,
                                                          writeBom, transaction);
        if (data.IsString()) {
          fileSystem_.WriteToFile(handle, data.StringValue());
        } else {
          fileSystem_.WriteToFile(handle, data.IsEmpty() || data.IsNull() ? std::string() : data.ToString());
        }
        fileSystem_.CloseFile(handle);
      }
    }
  } catch (...) {
    Error current = CurrentError();
    if (FileSystemWrapper::IsIOError(current.number())) {
      HandleIOError(current.number(), ShortDescription(current), FileSystemWrapper::BuildPath(directory, fileName));
    }
    ErrorInRethrow("FileIOController.IInputOutputController_WriteDataSet(vData, oTransaction)", {});
  }
}

}  // namespace tessel
