// FileSystemWrapper: the one place through which the engine touches files.
//
// Open files are named by handle strings (a random number as text) and kept
// in the wrapper's table; each is a FileSysOpen owned by the table until
// CloseFile, or until the wrapper goes, which closes what is still open and
// ignores errors in doing so. Text streams convert through the
// CharacterSetWrapper of their set; text is UTF-8 on this side. Streams are
// buffered: writes reach the disk when the buffer fills and at CloseFile, and
// ReadLine reads in large chunks.
//
// Path forms are POSIX ('/'). Output names are checked for characters that
// no file name may hold (9544); a name that exists already and must not be
// overwritten becomes a unique one: `report.csv`, then `report_1.csv`,
// `report_2.csv`, ... (a trailing `_<digits>` within the last five characters
// of the base is replaced, so `report_7.csv` also gives `report_1.csv`).
//
// File-name expressions (bEvaluateFile) are evaluated by an IFileNameEvaluator:
// the one given by SetFileNameEvaluator, or else a script host of the
// wrapper's own (ScriptFileNameEvaluator), made on the first evaluation and
// kept for the wrapper's life.
//
// Errors: 8501 a path to list does not exist; 9540 record tokens in an
// expression without a record; 9541 unknown handle; 9542 a file cannot be
// opened, read or written (text carries the system's reason); 9543 text
// operation on a binary stream; 9544 invalid characters in a file name; 9545 a
// unique name cannot be made from a base of four characters or fewer without an
// underscore; 9546 no temp file. A file-name expression that fails raises the
// script host's error.
// Folder and copy operations raise the runtime's file errors: 53 file not
// found, 58 file already exists, 61 disk full, 70 permission denied, 75
// path/file access error, 76 path not found.
//
// A wrapper belongs to the thread that made it; nothing is locked.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Variant.h"
#include "services/CharacterSetWrapper.h"
#include "services/FileSysOpen.h"
#include "services/IFileNameEvaluator.h"

namespace tessel {

class Transaction;

class FileSystemWrapper {
 public:
  static constexpr int32_t kPathDoesNotExist = 8501;
  static constexpr int32_t kTokensNotAllowed = 9540;
  static constexpr int32_t kUnknownHandle = 9541;
  static constexpr int32_t kFileAccessFailed = 9542;
  static constexpr int32_t kCharsetNotInitialised = 9543;
  static constexpr int32_t kInvalidFileName = 9544;
  static constexpr int32_t kNoUniqueName = 9545;
  static constexpr int32_t kNoTempFile = 9546;

  FileSystemWrapper();
  ~FileSystemWrapper();
  FileSystemWrapper(const FileSystemWrapper&) = delete;
  FileSystemWrapper& operator=(const FileSystemWrapper&) = delete;

  // --- Streams ----------------------------------------------------------------------

  // Creates a new text file named by GenerateFileName and returns its handle;
  // writes the set's preamble when `writePreamble`.
  std::string CreateTextStream(const std::string& fileName, bool evaluateFile, const std::string& outputDirectory,
                               bool overWrite, const std::string& characterSet, bool writePreamble,
                               Transaction* transaction = nullptr);
  std::string CreateBinaryStream(const std::string& fileName, bool evaluateFile, const std::string& outputDirectory,
                                 bool overWrite, Transaction* transaction = nullptr);
  // Opens an existing text file for reading, or with `write` for reading and
  // appending (created when missing; the preamble is written when `writePreamble`
  // and the file is empty).
  std::string OpenTextStream(const std::string& filePath, bool write, const std::string& characterSet,
                             bool writePreamble);
  // Opens a file for reading, or with `write` for reading and writing from its
  // first byte on (created when missing, never truncated).
  std::string OpenBinaryStream(const std::string& filePath, bool write);

  // The whole file decoded.
  std::string ReadFile(const std::string& handle);
  // The whole file.
  Bytes ReadBinaryFile(const std::string& handle);
  // The next line of a text file (see FileSysOpen for the line-break rule);
  // false after the last line.
  bool ReadLine(const std::string& handle, std::string& line);
  // Encodes and writes at the write position; an empty text writes nothing.
  void WriteToFile(const std::string& handle, std::string_view data);
  // Hands what was written so far to the system: a log that must survive
  // its writer's crash flushes after each entry.
  void FlushFile(const std::string& handle);
  void WriteToBinaryFile(const std::string& handle, std::span<const uint8_t> data);
  // A byte array, an array of numbers 0-255, or a string (its UTF-8 bytes);
  // Empty and Null write nothing; anything else raises 13.
  void WriteToBinaryFile(const std::string& handle, const Variant& data);
  // Writes what is buffered, closes and forgets the handle.
  void CloseFile(const std::string& handle);

  // The path behind a handle.
  const std::string& OpenFileName(const std::string& handle);
  // The character set of a text stream (after an autodetected read it names
  // the detected set); 9543 for a binary stream.
  CharacterSetWrapper& Charset(const std::string& handle);

  // --- Names and queries -------------------------------------------------------------

  // The output path for `fileName` in `outputDirectory`: evaluated first when
  // `evaluateFile`, made unique when it exists and `overWrite` is false, and
  // checked (9544). Only the name is checked, not the directory.
  std::string GenerateFileName(const std::string& fileName, bool evaluateFile, const std::string& outputDirectory,
                               bool overWrite, Transaction* transaction = nullptr);
  // The first of base_1.ext, base_2.ext, ... that does not exist in `path`.
  std::string GenerateUniqueFileName(const std::string& path, const std::string& fileName);
  // False when the name holds CR, LF, tab, '"', one of \ / : * ? < > |, or a
  // character that the Windows Western set cannot hold.
  static bool CheckFileNameIsValid(std::string_view fileName);

  bool FileExists(const std::string& path) const;
  bool FolderExists(const std::string& path) const;
  // `path` and `file` joined by one '/'.
  static std::string BuildPath(const std::string& path, const std::string& file);
  // Parent folder of a path ("" for a bare name).
  static std::string FilePath(const std::string& path);
  // Last component.
  static std::string FileName(const std::string& path);
  // Last component without its extension.
  static std::string BaseName(const std::string& path);
  // Extension without the dot ("" when none).
  static std::string FileExtension(const std::string& path);

  // Full paths of the files matching the last component of `path` as a
  // wildcard (CompareFileName), in name order without regard to case; a folder
  // path lists all its files; "" lists "*.*" of the current folder. Subfolders
  // are not entered. 8501 when the folder does not exist.
  std::vector<std::string> GetMatchingFiles(const std::string& path);
  // Wildcard match without regard to case: '*' any run; '?' one character
  // other than '.', or none (so `a?c` matches `ac` and `abc`, not `a.c`);
  // `*.` matches names without a dot; `*.*` matches every name.
  static bool CompareFileName(std::string_view name, std::string_view filter);

  // Free space for the caller on the file system of `path`, in whole MiB;
  // 8501 when the path does not exist.
  int64_t GetDriveSpaceMB(const std::string& path) const;
  // Creates an empty file <path>/<first 3 characters of prefix><4 hex digits>.TMP
  // and returns its path; 9546 when it cannot.
  std::string GetTempFileName(const std::string& path, const std::string& prefix);
  // The line break ReadLine would use for a file holding `text` (CR LF, CR,
  // LF, form feed, U+0085, U+2028, U+2029 by precedence); empty when none.
  static std::string_view DetectLineDelimiter(std::string_view text) {
    return FileSysOpen::DetectLineDelimiter(text);
  }
  // True for the runtime's I/O error numbers 55, 57, 58, 61, 70, 71.
  static bool IsIOError(int32_t error);

  // --- Changes -----------------------------------------------------------------------

  // Removes a file; nothing happens when there is none.
  void DeleteFile(const std::string& file);
  // Removes a folder with everything in it; nothing happens when there is none.
  void DeleteFolder(const std::string& folder);
  // Moves or renames a folder; nothing happens when the source is missing.
  void MoveFolder(const std::string& fromLocation, const std::string& toLocation);
  // Creates a folder and any missing parents; nothing happens when it exists.
  void CreateFolder(const std::string& folder);
  // Moves/copies each file matching `pattern` into `toFolder`, named `newName`
  // if given, else by its own name; a name taken in `toFolder` becomes unique.
  void MoveFiles(const std::string& pattern, const std::string& toFolder, const std::string& newName = {});
  void CopyFiles(const std::string& pattern, const std::string& toFolder, const std::string& newName = {});

  // --- Evaluation seam ---------------------------------------------------------------

  // Replaces the script host for file-name expressions.
  void SetFileNameEvaluator(std::unique_ptr<IFileNameEvaluator> evaluator);

 private:
  FileSysOpen& GetFile(const std::string& handle);
  FileSysOpen& GenerateFileOpenObject();
  void RemoveFile(const std::string& handle);
  void CreateNewFile(FileSysOpen& file, const std::string& fileName, bool evaluateFile,
                     const std::string& outputDirectory, bool overWrite, Transaction* transaction);
  std::string GenerateVBScriptFile(const std::string& fileName, Transaction* transaction);
  void ProcessFiles(bool copyFile, const std::string& pattern, const std::string& toFolder,
                    const std::string& newName);

  std::unordered_map<std::string, std::unique_ptr<FileSysOpen>> files_;
  // The handle looked up last: a stream read or written line by line asks for
  // the same handle again and again.
  const std::string* lastHandle_ = nullptr;
  FileSysOpen* lastFile_ = nullptr;
  std::mt19937 random_;
  std::unique_ptr<IFileNameEvaluator> evaluator_;
};

}  // namespace tessel
