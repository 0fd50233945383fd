#include "services/FileSystemWrapper.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "core/SafeArray.h"
#include "scripting/ScriptFileNameEvaluator.h"

namespace fs = std::filesystem;

namespace tessel {

namespace {

// Raises the runtime's file error for a failed folder or file operation.
[[noreturn]] void RaiseFileError(const std::error_code& ec, bool folder) {
  int32_t number;
  switch (ec.value()) {
    case ENOENT:
    case ENOTDIR: number = folder ? 76 : 53; break;
    case EEXIST:
    case ENOTEMPTY: number = 58; break;
    case ENOSPC:
    case EDQUOT: number = 61; break;
    case EACCES:
    case EPERM:
    case EROFS: number = 70; break;
    case EIO: number = 57; break;
    default: number = 75; break;
  }
  ThrowRuntimeError(number);
}

// Code points of a file name; a byte that is not UTF-8 stands for itself as
// U+DC80..U+DCFF so that any name on disk can be compared.
std::u32string LooseCodePoints(std::string_view text) {
  std::u32string result;
  result.reserve(text.size());
  const auto* p = reinterpret_cast<const uint8_t*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    const uint8_t c = p[i];
    size_t len = c < 0x80 ? 1 : (c >= 0xC2 && c <= 0xDF) ? 2 : (c >= 0xE0 && c <= 0xEF) ? 3
                                                                : (c >= 0xF0 && c <= 0xF4) ? 4 : 0;
    char32_t cp = 0;
    bool ok = len > 0 && i + len <= n;
    if (ok) {
      cp = len == 1 ? c : len == 2 ? (c & 0x1F) : len == 3 ? (c & 0x0F) : (c & 0x07);
      for (size_t k = 1; k < len && ok; ++k) {
        if ((p[i + k] & 0xC0) != 0x80) ok = false;
        cp = (cp << 6) | (p[i + k] & 0x3F);
      }
      if (ok && ((len == 3 && cp < 0x800) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) ||
                 (cp >= 0xD800 && cp <= 0xDFFF))) {
        ok = false;
      }
    }
    if (!ok) {
      result.push_back(0xDC00 + c);
      ++i;
      continue;
    }
    result.push_back(cp);
    i += len;
  }
  return result;
}

std::u32string Folded(std::string_view text) {
  std::u32string points = LooseCodePoints(text);
  for (char32_t& cp : points) {
    if (cp < 0x80) {
      if (cp >= 'A' && cp <= 'Z') cp += 'a' - 'A';
    } else if (cp < 0xDC00 || cp > 0xDCFF) {
      cp = static_cast<char32_t>(u_foldCase(static_cast<UChar32>(cp), U_FOLD_CASE_DEFAULT));
    }
  }
  return points;
}

// The wildcard match of CompareFileName over case-folded code points, with the
// outcome of each (name position, filter position) remembered so that runs of
// '*' and '?' cannot make the search explode.
class WildcardMatcher {
 public:
  WildcardMatcher(std::u32string name, std::u32string filter)
      : name_(std::move(name)), filter_(std::move(filter)),
        memo_((name_.size() + 1) * (filter_.size() + 1), -1) {}

  bool Match(size_t np, size_t fp) {
    int8_t& known = memo_[np * (filter_.size() + 1) + fp];
    if (known < 0) known = Compute(np, fp) ? 1 : 0;
    return known == 1;
  }

 private:
  bool Compute(size_t np, size_t fp) {
    const size_t nameEnd = name_.size();
    const size_t filterEnd = filter_.size();
    if (fp == filterEnd) return np == nameEnd;
    const size_t rest = filterEnd - fp;
    if (rest == 2 && filter_[fp] == U'.' && filter_[fp + 1] == U'*' && np == nameEnd) return true;
    if (rest == 1 && filter_[fp] == U'.') return np == nameEnd;
    const char32_t c = filter_[fp];
    if (c == U'*') return Star(np, fp);
    if (c == U'?') {
      if (np == nameEnd || name_[np] == U'.') return Match(np, fp + 1);
      return Match(np + 1, fp + 1) || Match(np, fp + 1);
    }
    return np < nameEnd && name_[np] == c && Match(np + 1, fp + 1);
  }

  bool Star(size_t np0, size_t fp0) {
    size_t fp = fp0;
    while (fp < filter_.size() && (filter_[fp] == U'*' || filter_[fp] == U'?')) ++fp;
    if (fp == filter_.size()) return true;
    const char32_t c = filter_[fp];
    if (c == U'.') {
      if (fp + 1 < filter_.size() && filter_[fp + 1] == U'*') return true;
      if (fp + 1 == filter_.size()) return name_.find(U'.', np0) == std::u32string::npos;
    }
    for (size_t np = np0; np < name_.size(); ++np) {
      if (name_[np] == c && Match(np, fp)) return true;
    }
    return false;
  }

  std::u32string name_;
  std::u32string filter_;
  std::vector<int8_t> memo_;
};

// Characters of the Windows Western set above U+00FF.
bool InWindows1252(char32_t cp) {
  if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return true;
  switch (cp) {
    case 0x20AC: case 0x201A: case 0x0192: case 0x201E: case 0x2026: case 0x2020: case 0x2021:
    case 0x02C6: case 0x2030: case 0x0160: case 0x2039: case 0x0152: case 0x017D: case 0x2018:
    case 0x2019: case 0x201C: case 0x201D: case 0x2022: case 0x2013: case 0x2014: case 0x02DC:
    case 0x2122: case 0x0161: case 0x203A: case 0x0153: case 0x017E: case 0x0178:
      return true;
    default:
      return false;
  }
}

std::string StripTrailingSlashes(const std::string& path) {
  size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return path.empty() ? path : std::string("/");
  return path.substr(0, end + 1);
}

std::string FirstCodePoints(const std::string& text, size_t count) {
  size_t i = 0;
  size_t seen = 0;
  while (i < text.size()) {
    if ((static_cast<uint8_t>(text[i]) & 0xC0) != 0x80) {
      if (seen == count) break;
      ++seen;
    }
    ++i;
  }
  return text.substr(0, i);
}

std::string LowerAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

}  // namespace

FileSystemWrapper::FileSystemWrapper() : random_(std::random_device{}()) {}

FileSystemWrapper::~FileSystemWrapper() {
  lastHandle_ = nullptr;
  lastFile_ = nullptr;
  files_.clear();  // each file closes itself, errors ignored
}

// --- Handles ------------------------------------------------------------------------------

FileSysOpen& FileSystemWrapper::GetFile(const std::string& handle) {
  if (lastHandle_ && *lastHandle_ == handle) return *lastFile_;
  auto it = files_.find(handle);
  Check(it != files_.end(), kUnknownHandle, "Handle [%1] does not exist.", Variant(handle));
  lastHandle_ = &it->first;
  lastFile_ = it->second.get();
  return *lastFile_;
}

FileSysOpen& FileSystemWrapper::GenerateFileOpenObject() {
  std::string handle;
  do {
    handle = std::to_string(random_());
  } while (files_.count(handle) != 0);
  auto file = std::make_unique<FileSysOpen>(handle);
  FileSysOpen& result = *file;
  files_.emplace(std::move(handle), std::move(file));
  return result;
}

void FileSystemWrapper::RemoveFile(const std::string& handle) {
  if (lastHandle_ && *lastHandle_ == handle) {
    lastHandle_ = nullptr;
    lastFile_ = nullptr;
  }
  files_.erase(handle);
}

// --- Streams ------------------------------------------------------------------------------

void FileSystemWrapper::CreateNewFile(FileSysOpen& file, const std::string& fileName, bool evaluateFile,
                                      const std::string& outputDirectory, bool overWrite, Transaction* transaction) {
  // A name taken between the check and the open is made afresh; other failures
  // do not go away by trying again.
  constexpr int kMaxAttempts = 100;
  for (int attempt = 1;; ++attempt) {
    const std::string path = GenerateFileName(fileName, evaluateFile, outputDirectory, overWrite, transaction);
    const int error =
        file.Open(path, overWrite ? FileSysOpen::OpenMode::kCreateOverwrite : FileSysOpen::OpenMode::kCreateNew);
    if (error == 0) return;
    if (error == EEXIST && !overWrite && attempt < kMaxAttempts) continue;
    file.CheckOpenResult(error, path);
  }
}

std::string FileSystemWrapper::CreateTextStream(const std::string& fileName, bool evaluateFile,
                                                const std::string& outputDirectory, bool overWrite,
                                                const std::string& characterSet, bool writePreamble,
                                                Transaction* transaction) {
  try {
    FileSysOpen& file = GenerateFileOpenObject();
    const std::string handle = file.Handle();
    try {
      file.SetCharset(characterSet);
      CreateNewFile(file, fileName, evaluateFile, outputDirectory, overWrite, transaction);
      if (writePreamble) file.WritePreamble();
    } catch (...) {
      RemoveFile(handle);
      throw;
    }
    return handle;
  } catch (...) {
    ErrorInRethrow(
        "FileSystemWrapper.CreateTextStream(sFileName, bEvaluateFile, sOutputDirectory, bOverWrite, "
        "sCharacterSet, bWritePreamble)",
        {Variant(fileName), Variant(evaluateFile), Variant(outputDirectory), Variant(overWrite),
         Variant(characterSet), Variant(writePreamble)});
  }
}

std::string FileSystemWrapper::CreateBinaryStream(const std::string& fileName, bool evaluateFile,
                                                  const std::string& outputDirectory, bool overWrite,
                                                  Transaction* transaction) {
  try {
    FileSysOpen& file = GenerateFileOpenObject();
    const std::string handle = file.Handle();
    try {
      CreateNewFile(file, fileName, evaluateFile, outputDirectory, overWrite, transaction);
    } catch (...) {
      RemoveFile(handle);
      throw;
    }
    return handle;
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.CreateBinaryStream(sFileName, bEvaluateFile, sOutputDirectory, bOverWrite)",
                   {Variant(fileName), Variant(evaluateFile), Variant(outputDirectory), Variant(overWrite)});
  }
}

std::string FileSystemWrapper::OpenTextStream(const std::string& filePath, bool write,
                                              const std::string& characterSet, bool writePreamble) {
  try {
    FileSysOpen& file = GenerateFileOpenObject();
    const std::string handle = file.Handle();
    try {
      const int error =
          file.Open(filePath, write ? FileSysOpen::OpenMode::kReadWrite : FileSysOpen::OpenMode::kRead);
      file.CheckOpenResult(error, filePath);
      file.SetCharset(characterSet);
      if (write) {
        const bool empty = file.Size() == 0;
        file.SeekToEnd();
        if (empty && writePreamble) file.WritePreamble();
      }
    } catch (...) {
      RemoveFile(handle);
      throw;
    }
    return handle;
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.OpenTextStream(sFilePath, bWrite, sCharacterSet, bWritePreamble)",
                   {Variant(filePath), Variant(write), Variant(characterSet), Variant(writePreamble)});
  }
}

std::string FileSystemWrapper::OpenBinaryStream(const std::string& filePath, bool write) {
  try {
    FileSysOpen& file = GenerateFileOpenObject();
    const std::string handle = file.Handle();
    try {
      const int error =
          file.Open(filePath, write ? FileSysOpen::OpenMode::kReadWrite : FileSysOpen::OpenMode::kRead);
      file.CheckOpenResult(error, filePath);
    } catch (...) {
      RemoveFile(handle);
      throw;
    }
    return handle;
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.OpenBinaryStream(sFilePath, bWrite)", {Variant(filePath), Variant(write)});
  }
}

std::string FileSystemWrapper::ReadFile(const std::string& handle) {
  try {
    return GetFile(handle).ReadText();
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.ReadFile(sHandle)", {Variant(handle)});
  }
}

Bytes FileSystemWrapper::ReadBinaryFile(const std::string& handle) {
  try {
    return GetFile(handle).ReadAll();
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.ReadBinaryFile(sHandle)", {Variant(handle)});
  }
}

bool FileSystemWrapper::ReadLine(const std::string& handle, std::string& line) {
  try {
    return GetFile(handle).ReadLine(line);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.ReadLine(sHandle)", {Variant(handle)});
  }
}

void FileSystemWrapper::WriteToFile(const std::string& handle, std::string_view data) {
  try {
    GetFile(handle).WriteText(data);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.WriteToFile(sHandle, sData)", {Variant(handle), Variant(data.substr(0, 200))});
  }
}

void FileSystemWrapper::FlushFile(const std::string& handle) {
  try {
    GetFile(handle).Flush();
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.FlushFile(sHandle)", {Variant(handle)});
  }
}

void FileSystemWrapper::WriteToBinaryFile(const std::string& handle, std::span<const uint8_t> data) {
  try {
    GetFile(handle).Write(data);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.WriteToBinaryFile(sHandle, vData)", {Variant(handle)});
  }
}

void FileSystemWrapper::WriteToBinaryFile(const std::string& handle, const Variant& data) {
  try {
    FileSysOpen& file = GetFile(handle);
    if (data.IsEmpty() || data.IsNull()) return;
    if (data.IsString()) {
      const std::string_view text = data.StringValue();
      file.Write(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
      return;
    }
    if (!data.IsArray()) ThrowRuntimeError(13);
    const auto elements = data.ArrayValue().Elements();
    Bytes bytes;
    bytes.reserve(elements.size());
    for (const Variant& element : elements) bytes.push_back(element.ToByte());
    file.Write(bytes);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.WriteToBinaryFile(sHandle, vData)", {Variant(handle)});
  }
}

void FileSystemWrapper::CloseFile(const std::string& handle) {
  try {
    FileSysOpen& file = GetFile(handle);
    try {
      file.Close();
    } catch (...) {
      RemoveFile(handle);
      throw;
    }
    RemoveFile(handle);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.CloseFile(sHandle)", {Variant(handle)});
  }
}

const std::string& FileSystemWrapper::OpenFileName(const std::string& handle) {
  try {
    return GetFile(handle).FileName();
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.OpenFileName(sHandle)", {Variant(handle)});
  }
}

CharacterSetWrapper& FileSystemWrapper::Charset(const std::string& handle) {
  try {
    return GetFile(handle).Charset();
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.Charset(sHandle)", {Variant(handle)});
  }
}

// --- Names --------------------------------------------------------------------------------

std::string FileSystemWrapper::GenerateFileName(const std::string& fileName, bool evaluateFile,
                                                const std::string& outputDirectory, bool overWrite,
                                                Transaction* transaction) {
  try {
    std::string name = evaluateFile ? GenerateVBScriptFile(fileName, transaction) : fileName;
    // Checked before the unique name too: a bad name must not be taken apart
    // as if it were a path.
    Check(CheckFileNameIsValid(name), kInvalidFileName, "Error generating filename [%1] has invalid characters.",
          Variant(name));
    const std::string path = BuildPath(outputDirectory, name);
    if (!overWrite && (FileExists(path) || FolderExists(path))) {
      name = GenerateUniqueFileName(outputDirectory, name);
    }
    Check(CheckFileNameIsValid(name), kInvalidFileName, "Error generating filename [%1] has invalid characters.",
          Variant(name));
    return BuildPath(outputDirectory, name);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.GenerateFileName(sFileName, bEvaluateFile, sOutputDirectory, bOverWrite)",
                   {Variant(fileName), Variant(evaluateFile), Variant(outputDirectory), Variant(overWrite)});
  }
}

std::string FileSystemWrapper::GenerateVBScriptFile(const std::string& fileName, Transaction* transaction) {
  try {
    if (!transaction) {
      Check(fileName.find('%') == std::string::npos, kTokensNotAllowed,
            "Transaction replacement tokens are not allowed in file evaluation strings.");
    }
    if (!evaluator_) evaluator_ = std::make_unique<ScriptFileNameEvaluator>();
    try {
      return evaluator_->Evaluate(fileName, transaction);
    } catch (...) {
      ErrInsertTrace(BuildCheckMessage("Error whilst evaluating the filename.||||Error - %1",
                                       {Variant(ErrTraceFreeDescription())}));
      throw;
    }
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.GenerateVBScriptFile(sFileName)", {Variant(fileName)});
  }
}

std::string FileSystemWrapper::GenerateUniqueFileName(const std::string& path, const std::string& fileName) {
  try {
    std::string base = BaseName(fileName);
    const std::string extension = FileExtension(fileName);
    // Look for an underscore among the last five characters of the base.
    const std::u32string points = LooseCodePoints(base);
    size_t underscore = std::u32string::npos;
    for (size_t back = 0; back < 5 && back < points.size(); ++back) {
      if (points[points.size() - 1 - back] == U'_') {
        underscore = points.size() - 1 - back;
        break;
      }
    }
    Check(underscore != std::u32string::npos || points.size() > 4, kNoUniqueName,
          "Cannot make a unique file name from [%1]: a base name of four characters or fewer needs an underscore.",
          Variant(fileName));
    if (underscore != std::u32string::npos) base = FirstCodePoints(base, underscore);
    for (uint64_t number = 1;; ++number) {
      std::string candidate = fmt::format("{}_{}.{}", base, number, extension);
      const std::string full = BuildPath(path, candidate);
      if (!FileExists(full) && !FolderExists(full)) return candidate;
    }
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.GenerateUniqueFileName(sPath, sFileName)", {Variant(path), Variant(fileName)});
  }
}

bool FileSystemWrapper::CheckFileNameIsValid(std::string_view fileName) {
  for (char c : fileName) {
    switch (c) {
      case '\r': case '\n': case '\t': case '"': case '\\': case '/': case ':': case '*': case '?':
      case '<': case '>': case '|': case '\0':
        return false;
      default:
        break;
    }
  }
  // The name must survive the Windows Western set unchanged.
  for (char32_t cp : LooseCodePoints(fileName)) {
    if (!InWindows1252(cp)) return false;
  }
  return true;
}

bool FileSystemWrapper::FileExists(const std::string& path) const {
  if (path.empty()) return false;
  std::error_code ec;
  return fs::is_regular_file(fs::path(path), ec);
}

bool FileSystemWrapper::FolderExists(const std::string& path) const {
  if (path.empty()) return false;
  std::error_code ec;
  return fs::is_directory(fs::path(path), ec);
}

std::string FileSystemWrapper::BuildPath(const std::string& path, const std::string& file) {
  if (path.empty()) return file;
  if (file.empty()) return path;
  std::string result = path;
  if (result.back() != '/') result += '/';
  const size_t start = file.find_first_not_of('/');
  if (start != std::string::npos) result.append(file, start, std::string::npos);
  return result;
}

std::string FileSystemWrapper::FilePath(const std::string& path) {
  const std::string trimmed = StripTrailingSlashes(path);
  if (trimmed == "/") return {};
  const size_t slash = trimmed.rfind('/');
  if (slash == std::string::npos) return {};
  if (slash == 0) return "/";
  return StripTrailingSlashes(trimmed.substr(0, slash));
}

std::string FileSystemWrapper::FileName(const std::string& path) {
  const std::string trimmed = StripTrailingSlashes(path);
  if (trimmed == "/") return {};
  const size_t slash = trimmed.rfind('/');
  return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}

std::string FileSystemWrapper::BaseName(const std::string& path) {
  const std::string name = FileName(path);
  const size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string FileSystemWrapper::FileExtension(const std::string& path) {
  const std::string name = FileName(path);
  const size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

// --- Listing ------------------------------------------------------------------------------

bool FileSystemWrapper::CompareFileName(std::string_view name, std::string_view filter) {
  WildcardMatcher matcher(Folded(name), Folded(filter));
  return matcher.Match(0, 0);
}

std::vector<std::string> FileSystemWrapper::GetMatchingFiles(const std::string& path) {
  try {
    const std::string pattern = path.empty() ? std::string("*.*") : path;
    std::string parent;
    std::string filter;
    if (FolderExists(pattern)) {
      parent = pattern;
      filter = "*";
    } else {
      parent = FilePath(pattern);
      if (parent.empty()) parent = ".";
      filter = FileName(pattern);
      if (filter.empty()) filter = "*";
    }
    Check(FolderExists(parent), kPathDoesNotExist, "Path does not exist [%1]", Variant(parent));

    const std::u32string foldedFilter = Folded(filter);
    struct Found {
      std::string key;
      std::string name;
    };
    std::vector<Found> found;
    std::error_code ec;
    fs::directory_iterator it(fs::path(parent), ec);
    if (ec) RaiseFileError(ec, true);
    for (; it != fs::directory_iterator(); it.increment(ec)) {
      if (ec) RaiseFileError(ec, true);
      std::error_code typeError;
      if (!it->is_regular_file(typeError)) continue;
      std::string name = it->path().filename().string();
      WildcardMatcher matcher(Folded(name), foldedFilter);
      if (!matcher.Match(0, 0)) continue;
      found.push_back({LowerAscii(name), std::move(name)});
    }
    if (ec) RaiseFileError(ec, true);
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
      return a.key != b.key ? a.key < b.key : a.name < b.name;
    });
    const std::string folder = fs::absolute(fs::path(parent)).lexically_normal().string();
    std::vector<std::string> result;
    result.reserve(found.size());
    for (const Found& f : found) result.push_back(BuildPath(folder, f.name));
    return result;
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.GetMatchingFiles(sPath)", {Variant(path)});
  }
}

// --- Queries ------------------------------------------------------------------------------

int64_t FileSystemWrapper::GetDriveSpaceMB(const std::string& path) const {
  try {
    struct statvfs info;
    Check(!path.empty() && ::statvfs(path.c_str(), &info) == 0, kPathDoesNotExist, "Path does not exist [%1]",
          Variant(path));
    const uint64_t bytes = static_cast<uint64_t>(info.f_bavail) * static_cast<uint64_t>(info.f_frsize);
    return static_cast<int64_t>(bytes / 1048576);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.GetDriveSpaceMB(sPath)", {Variant(path)});
  }
}

std::string FileSystemWrapper::GetTempFileName(const std::string& path, const std::string& prefix) {
  try {
    const std::string start = FirstCodePoints(prefix, 3);
    const uint32_t first = random_() & 0xFFFF;
    for (uint32_t i = 0; i <= 0xFFFF; ++i) {
      const uint32_t unique = (first + i) & 0xFFFF;
      if (unique == 0) continue;
      const std::string full = BuildPath(path, fmt::format("{}{:04X}.TMP", start, unique));
      const int fd = ::open(full.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd >= 0) {
        ::close(fd);
        return full;
      }
      if (errno != EEXIST) break;
    }
    Check(false, kNoTempFile, "Cannot create temp file in [%1].", Variant(path));
    return {};
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.GetTempFileName(sPath, sPrefix)", {Variant(path), Variant(prefix)});
  }
}

bool FileSystemWrapper::IsIOError(int32_t error) {
  switch (error) {
    case 55: case 57: case 58: case 61: case 70: case 71:
      return true;
    default:
      return false;
  }
}

// --- Changes ------------------------------------------------------------------------------

void FileSystemWrapper::DeleteFile(const std::string& file) {
  try {
    if (file.empty()) return;
    std::error_code ec;
    const fs::file_status status = fs::symlink_status(fs::path(file), ec);
    if (ec || !fs::exists(status) || fs::is_directory(status)) return;
    if (!fs::remove(fs::path(file), ec) && ec) RaiseFileError(ec, false);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.DeleteFile(sFile)", {Variant(file)});
  }
}

void FileSystemWrapper::DeleteFolder(const std::string& folder) {
  try {
    if (!FolderExists(folder)) return;
    std::error_code ec;
    fs::remove_all(fs::path(folder), ec);
    if (ec) RaiseFileError(ec, true);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.DeleteFolder(sFolder)", {Variant(folder)});
  }
}

void FileSystemWrapper::MoveFolder(const std::string& fromLocation, const std::string& toLocation) {
  try {
    if (!FolderExists(fromLocation)) return;
    // A target ending in '/' is the folder to move into.
    std::string target = toLocation;
    if (!target.empty() && target.back() == '/') target = BuildPath(target, FileName(fromLocation));
    std::error_code ec;
    if (fs::exists(fs::path(target), ec)) RaiseFileError(std::make_error_code(std::errc::file_exists), true);
    fs::rename(fs::path(fromLocation), fs::path(target), ec);
    if (ec.value() == EXDEV) {
      ec.clear();
      fs::copy(fs::path(fromLocation), fs::path(target), fs::copy_options::recursive, ec);
      if (!ec) fs::remove_all(fs::path(fromLocation), ec);
    }
    if (ec) RaiseFileError(ec, true);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.MoveFolder(sFromLocation, sToLocation)",
                   {Variant(fromLocation), Variant(toLocation)});
  }
}

void FileSystemWrapper::CreateFolder(const std::string& folder) {
  try {
    if (FolderExists(folder)) return;
    std::error_code ec;
    fs::create_directories(fs::path(folder), ec);
    if (ec) RaiseFileError(ec, true);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.CreateFolder(sFolder)", {Variant(folder)});
  }
}

void FileSystemWrapper::ProcessFiles(bool copyFile, const std::string& pattern, const std::string& toFolder,
                                     const std::string& newName) {
  if (!newName.empty()) {
    Check(CheckFileNameIsValid(newName), kInvalidFileName, "Error generating filename [%1] has invalid characters.",
          Variant(newName));
  }
  if (!FolderExists(toFolder)) ThrowRuntimeError(76);
  for (const std::string& source : GetMatchingFiles(pattern)) {
    if (!FileExists(source)) continue;
    std::string target = newName.empty() ? FileName(source) : newName;
    const std::string wanted = BuildPath(toFolder, target);
    if (FileExists(wanted) || FolderExists(wanted)) target = GenerateUniqueFileName(toFolder, target);
    const fs::path destination(BuildPath(toFolder, target));
    std::error_code ec;
    if (copyFile) {
      fs::copy_file(fs::path(source), destination, fs::copy_options::overwrite_existing, ec);
    } else {
      fs::rename(fs::path(source), destination, ec);
      if (ec.value() == EXDEV) {
        ec.clear();
        fs::copy_file(fs::path(source), destination, fs::copy_options::overwrite_existing, ec);
        if (!ec) fs::remove(fs::path(source), ec);
      }
    }
    if (ec) RaiseFileError(ec, false);
  }
}

void FileSystemWrapper::MoveFiles(const std::string& pattern, const std::string& toFolder,
                                  const std::string& newName) {
  try {
    ProcessFiles(false, pattern, toFolder, newName);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.MoveFiles(sPattern, sToFolder, sNewName)",
                   {Variant(pattern), Variant(toFolder), Variant(newName)});
  }
}

void FileSystemWrapper::CopyFiles(const std::string& pattern, const std::string& toFolder,
                                  const std::string& newName) {
  try {
    ProcessFiles(true, pattern, toFolder, newName);
  } catch (...) {
    ErrorInRethrow("FileSystemWrapper.CopyFiles(sPattern, sToFolder, sNewName)",
                   {Variant(pattern), Variant(toFolder), Variant(newName)});
  }
}

// --- Evaluation seam ----------------------------------------------------------------------

void FileSystemWrapper::SetFileNameEvaluator(std::unique_ptr<IFileNameEvaluator> evaluator) {
  evaluator_ = std::move(evaluator);
}

}  // namespace tessel
