// FileSysOpen: one open file behind a FileSystemWrapper handle: the file
// descriptor, the path it was opened with, and for text files the character
// set that converts its bytes.
//
// Writes are buffered (64 KiB) and reach the file when the buffer fills, on
// Flush, on a read through the same object, and on Close. Reads never move the
// write position: ReadAll, ReadText and ReadLine read the file from its start
// with positional reads, so a file opened for reading and writing appends at
// whatever position the writes are at. ReadLine decodes in chunks of 256 KiB
// and hands out one line at a time; nothing is read per line.
//
// Line breaks for ReadLine are decided once per file by the first of these
// that occurs anywhere in it: CR LF; CR; LF; form feed; U+0085; U+2028;
// U+2029. A file with CR LF anywhere is split on CR LF only. With none of them
// the whole file is one line. A break at the very end of the file does not
// begin another line, an empty file has no lines, and (as with ConvertToText)
// neither has a file of one byte.
//
// The object owns its descriptor and closes it when it goes, dropping buffered
// data it cannot write. Failures of the system calls raise 9542 with the
// system's reason. Not for use on two threads at once.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "services/CharacterSetWrapper.h"

namespace tessel {

class FileSysOpen {
 public:
  static constexpr int32_t kFileAccessFailed = 9542;
  static constexpr int32_t kCharsetNotInitialised = 9543;

  enum class OpenMode {
    kCreateOverwrite,  // write; created, or emptied when it exists
    kCreateNew,        // write; fails with EEXIST when it exists
    kRead,             // read; must exist
    kReadWrite,        // read and write; created when missing
  };

  explicit FileSysOpen(std::string handle);
  ~FileSysOpen();
  FileSysOpen(const FileSysOpen&) = delete;
  FileSysOpen& operator=(const FileSysOpen&) = delete;

  const std::string& Handle() const { return handle_; }
  // The path the file was opened with.
  const std::string& FileName() const { return fileName_; }
  bool IsOpen() const { return fd_ >= 0; }

  // Creates the character set wrapper of a text file (9532 for an unknown set).
  void SetCharset(const std::string& charset);
  bool HasCharset() const { return charset_ != nullptr; }
  // 9543 "Encoding method for text file is not initialised." for a binary file.
  CharacterSetWrapper& Charset();

  // Opens `path`. Returns 0, or the errno of the failure with the object left
  // closed (the creating loop of FileSystemWrapper retries on EEXIST). A folder
  // opened for reading fails with EISDIR.
  int Open(const std::string& path, OpenMode mode);
  // Raises 9542 for a failed Open result.
  void CheckOpenResult(int error, const std::string& path) const;
  // Writes what is buffered and closes; 9542 when either fails (the descriptor
  // is closed all the same).
  void Close();

  // Size of the file including buffered writes.
  uint64_t Size();
  // Every byte of the file.
  Bytes ReadAll();
  // The whole file decoded (CharacterSetWrapper::ConvertToText).
  std::string ReadText();
  // The next line into `line`; false, with `line` emptied, after the last.
  bool ReadLine(std::string& line);

  // Buffered write of bytes at the write position.
  void Write(std::span<const uint8_t> bytes);
  // Encodes `text` in the file's set and writes it; empty text writes nothing.
  void WriteText(std::string_view text);
  // The preamble of the file's set.
  void WritePreamble();
  // Moves the write position to the end of the file.
  void SeekToEnd();
  void Flush();

  // The line break of `text` by the rule above; empty when it has none.
  static std::string_view DetectLineDelimiter(std::string_view text);

 private:
  struct LineState;

  [[noreturn]] void RaiseSystemError(std::string_view action, int error) const;
  size_t ReadAt(uint64_t offset, char* buffer, size_t size);
  // The file's bytes from its start, in a Bytes or a std::string.
  template <class Buffer>
  Buffer ReadWhole();
  // Writes all of `bytes` at the file position, past the buffer.
  void WriteAll(std::string_view bytes);
  void StartLines();
  std::string DetectFileLineDelimiter(uint64_t bodyOffset);
  bool FillText();

  std::string handle_;
  std::string fileName_;
  int fd_ = -1;
  bool writable_ = false;
  std::unique_ptr<CharacterSetWrapper> charset_;
  std::string writeBuffer_;
  std::unique_ptr<LineState> lines_;
};

}  // namespace tessel
