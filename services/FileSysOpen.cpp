#include "services/FileSysOpen.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "audit/HuntErr.h"
#include "core/Variant.h"

namespace tessel {

namespace {

constexpr size_t kWriteBufferSize = 64 * 1024;
constexpr size_t kReadChunkSize = 256 * 1024;

// Finds which line break a text uses, fed in pieces. Break kinds in order of
// precedence: CR LF beats everything, so the scan stops at the first one; once
// a lone CR or an LF has been seen only CR can still change the answer, and
// the scan looks for nothing else.
class BreakScanner {
 public:
  // `unicode`: the pieces are UTF-8, so U+0085, U+2028 and U+2029 count.
  explicit BreakScanner(bool unicode) : unicode_(unicode) {}

  bool Decided() const { return crlf_; }

  void Feed(const char* p, size_t n) {
    if (n == 0 || crlf_) return;
    if (pendingCR_) {
      pendingCR_ = false;
      if (p[0] == '\n') {
        crlf_ = true;
        return;
      }
      cr_ = true;
    }
    if (unicode_ && !tail_.empty()) {
      // A multi-byte break cut by the end of the previous piece.
      std::string joined = tail_ + std::string(p, std::min<size_t>(n, 2));
      for (size_t i = 0; i < tail_.size(); ++i) MatchUnicode(joined.data() + i, joined.size() - i);
      tail_.clear();
    }
    size_t i = 0;
    if (!cr_ && !lf_) {
      for (; i < n; ++i) {
        const char c = p[i];
        if (c == '\r') {
          if (i + 1 == n) {
            pendingCR_ = true;
            return;
          }
          if (p[i + 1] == '\n') {
            crlf_ = true;
            return;
          }
          cr_ = true;
          ++i;
          break;
        }
        if (c == '\n') {
          lf_ = true;
          ++i;
          break;
        }
        if (c == '\f') {
          ff_ = true;
        } else if (unicode_ && (c == '\xC2' || c == '\xE2')) {
          // Near the end of the piece this may be a break the next piece finishes.
          if (!MatchUnicode(p + i, n - i) && n - i < 3) tail_.assign(p + i, n - i);
        }
      }
    }
    // Only CR can still change the answer.
    while (i < n) {
      const void* hit = std::memchr(p + i, '\r', n - i);
      if (!hit) return;
      size_t at = static_cast<size_t>(static_cast<const char*>(hit) - p);
      if (at + 1 == n) {
        pendingCR_ = true;
        return;
      }
      if (p[at + 1] == '\n') {
        crlf_ = true;
        return;
      }
      cr_ = true;
      i = at + 1;
    }
  }

  void End() {
    if (pendingCR_) cr_ = true;
    pendingCR_ = false;
  }

  std::string_view Result() const {
    if (crlf_) return "\r\n";
    if (cr_) return "\r";
    if (lf_) return "\n";
    if (ff_) return "\f";
    if (nel_) return "\xC2\x85";
    if (ls_) return "\xE2\x80\xA8";
    if (ps_) return "\xE2\x80\xA9";
    return {};
  }

 private:
  bool MatchUnicode(const char* p, size_t n) {
    if (n >= 2 && p[0] == '\xC2' && p[1] == '\x85') return nel_ = true;
    if (n >= 3 && p[0] == '\xE2' && p[1] == '\x80') {
      if (p[2] == '\xA8') return ls_ = true;
      if (p[2] == '\xA9') return ps_ = true;
    }
    return false;
  }

  bool unicode_;
  bool crlf_ = false, cr_ = false, lf_ = false, ff_ = false, nel_ = false, ls_ = false, ps_ = false;
  bool pendingCR_ = false;
  std::string tail_;
};

}  // namespace

// Reading state of ReadLine.
struct FileSysOpen::LineState {
  uint64_t fileSize = 0;
  uint64_t readOffset = 0;  // next byte of the file to read
  bool fresh = true;        // raw holds the first chunk, not decoded yet
  bool rawEnd = false;      // every byte has been decoded
  bool done = false;
  std::string raw;   // bytes read, not decoded yet
  std::string text;  // decoded text; lines are cut from textPos on
  size_t textPos = 0;
  size_t scanFrom = 0;  // no break starts before this position
  std::string delimiter;
};

FileSysOpen::FileSysOpen(std::string handle) : handle_(std::move(handle)) {}

FileSysOpen::~FileSysOpen() {
  if (fd_ >= 0) {
    try {
      Flush();
    } catch (...) {
    }
    ::close(fd_);
  }
}

void FileSysOpen::SetCharset(const std::string& charset) {
  auto wrapper = std::make_unique<CharacterSetWrapper>(charset);
  charset_ = std::move(wrapper);
}

CharacterSetWrapper& FileSysOpen::Charset() {
  Check(charset_ != nullptr, kCharsetNotInitialised, "Encoding method for text file is not initialised.");
  return *charset_;
}

int FileSysOpen::Open(const std::string& path, OpenMode mode) {
  int flags = O_CLOEXEC;
  switch (mode) {
    case OpenMode::kCreateOverwrite: flags |= O_WRONLY | O_CREAT | O_TRUNC; break;
    case OpenMode::kCreateNew: flags |= O_WRONLY | O_CREAT | O_EXCL; break;
    case OpenMode::kRead: flags |= O_RDONLY; break;
    case OpenMode::kReadWrite: flags |= O_RDWR | O_CREAT; break;
  }
  if (path.empty()) return ENOENT;
  int fd;
  do {
    fd = ::open(path.c_str(), flags, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return errno;
  struct stat st;
  if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    int error = S_ISDIR(st.st_mode) ? EISDIR : errno;
    ::close(fd);
    return error;
  }
  if (mode == OpenMode::kRead) ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
  writable_ = mode != OpenMode::kRead;
  fileName_ = path;
  writeBuffer_.clear();
  lines_.reset();
  return 0;
}

void FileSysOpen::RaiseSystemError(std::string_view action, int error) const {
  Check(false, kFileAccessFailed, "Cannot %1 file [%2]: %3",
        {Variant(action), Variant(fileName_), Variant(std::strerror(error))});
  throw Error(kFileAccessFailed, "unreachable");
}

void FileSysOpen::CheckOpenResult(int error, const std::string& path) const {
  if (error == 0) return;
  Check(false, kFileAccessFailed, "Cannot open file [%1]: %2", {Variant(path), Variant(std::strerror(error))});
}

void FileSysOpen::Close() {
  if (fd_ < 0) return;
  int error = 0;
  try {
    Flush();
  } catch (...) {
    ::close(fd_);
    fd_ = -1;
    throw;
  }
  if (::close(fd_) != 0 && errno != EINTR) error = errno;
  fd_ = -1;
  lines_.reset();
  if (error != 0) RaiseSystemError("close", error);
}

void FileSysOpen::Flush() {
  if (fd_ < 0 || writeBuffer_.empty()) return;
  try {
    WriteAll(writeBuffer_);
  } catch (...) {
    writeBuffer_.clear();
    throw;
  }
  writeBuffer_.clear();
}

void FileSysOpen::WriteAll(std::string_view bytes) {
  const char* p = bytes.data();
  size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd_, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      RaiseSystemError("write", errno);
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
}

uint64_t FileSysOpen::Size() {
  Check(fd_ >= 0, kFileAccessFailed, "Cannot read file [%1]: the file is closed", Variant(fileName_));
  Flush();
  struct stat st;
  if (::fstat(fd_, &st) != 0) RaiseSystemError("read", errno);
  return static_cast<uint64_t>(st.st_size);
}

size_t FileSysOpen::ReadAt(uint64_t offset, char* buffer, size_t size) {
  size_t total = 0;
  while (total < size) {
    ssize_t n = ::pread(fd_, buffer + total, size - total, static_cast<off_t>(offset + total));
    if (n < 0) {
      if (errno == EINTR) continue;
      RaiseSystemError("read", errno);
    }
    if (n == 0) break;
    total += static_cast<size_t>(n);
  }
  return total;
}

template <class Buffer>
Buffer FileSysOpen::ReadWhole() {
  const uint64_t size = Size();
  Buffer bytes(size, 0);
  size_t got = size ? ReadAt(0, reinterpret_cast<char*>(bytes.data()), bytes.size()) : 0;
  Check(size == 0 || got > 0, kFileAccessFailed, "Cannot read file [%1]: no data could be read",
        Variant(fileName_));
  bytes.resize(got);
  return bytes;
}

Bytes FileSysOpen::ReadAll() { return ReadWhole<Bytes>(); }

std::string FileSysOpen::ReadText() {
  CharacterSetWrapper& charset = Charset();
  return charset.ConvertToText(ReadWhole<std::string>());
}

void FileSysOpen::Write(std::span<const uint8_t> bytes) {
  Check(fd_ >= 0, kFileAccessFailed, "Cannot write file [%1]: the file is closed", Variant(fileName_));
  Check(writable_, kFileAccessFailed, "Cannot write file [%1]: the file is open for reading only",
        Variant(fileName_));
  if (bytes.empty()) return;
  if (writeBuffer_.size() + bytes.size() > kWriteBufferSize) Flush();
  if (bytes.size() >= kWriteBufferSize) {
    writeBuffer_.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    Flush();
    return;
  }
  writeBuffer_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void FileSysOpen::WriteText(std::string_view text) {
  Check(fd_ >= 0, kFileAccessFailed, "Cannot write file [%1]: the file is closed", Variant(fileName_));
  Check(writable_, kFileAccessFailed, "Cannot write file [%1]: the file is open for reading only",
        Variant(fileName_));
  if (text.empty()) return;
  CharacterSetWrapper& charset = Charset();
  // A large text that needs no conversion goes to the file as it stands,
  // without a copy the size of the text.
  if (text.size() >= kWriteBufferSize && charset.EncodesAsItself(text)) {
    Flush();
    WriteAll(text);
    return;
  }
  const size_t before = writeBuffer_.size();
  try {
    charset.AppendData(text, writeBuffer_);
  } catch (...) {
    writeBuffer_.resize(before);
    throw;
  }
  if (writeBuffer_.size() >= kWriteBufferSize) Flush();
}

void FileSysOpen::WritePreamble() {
  const Bytes preamble = Charset().Preamble();
  Write(preamble);
}

void FileSysOpen::SeekToEnd() {
  Flush();
  if (::lseek(fd_, 0, SEEK_END) < 0) RaiseSystemError("seek in", errno);
}

std::string_view FileSysOpen::DetectLineDelimiter(std::string_view text) {
  BreakScanner scanner(true);
  scanner.Feed(text.data(), text.size());
  scanner.End();
  return scanner.Result();
}

void FileSysOpen::StartLines() {
  lines_ = std::make_unique<LineState>();
  LineState& s = *lines_;
  CharacterSetWrapper& charset = Charset();
  s.fileSize = Size();
  if (s.fileSize <= 1) {
    s.done = true;
    return;
  }
  s.raw.resize(std::min<uint64_t>(kReadChunkSize, s.fileSize));
  s.raw.resize(ReadAt(0, s.raw.data(), s.raw.size()));
  s.readOffset = s.raw.size();
  const auto* head = reinterpret_cast<const uint8_t*>(s.raw.data());
  charset.ResolveAutoDetect(std::span<const uint8_t>(head, s.raw.size()), s.readOffset >= s.fileSize);
  uint64_t bodyOffset = 0;
  if (charset.TextHasPreamble(std::span<const uint8_t>(head, s.raw.size()))) {
    bodyOffset = charset.Preamble().size();
    s.raw.erase(0, bodyOffset);
  }
  s.delimiter = DetectFileLineDelimiter(bodyOffset);
}

std::string FileSysOpen::DetectFileLineDelimiter(uint64_t bodyOffset) {
  CharacterSetWrapper& charset = Charset();
  std::string chunk(kReadChunkSize, '\0');
  if (charset.LineBreaksAreBytes()) {
    // CR, LF and form feed can be found without decoding.
    const bool utf8 = charset.IsUtf8();
    BreakScanner scanner(utf8);
    uint64_t offset = bodyOffset;
    while (!scanner.Decided()) {
      size_t got = ReadAt(offset, chunk.data(), chunk.size());
      if (got == 0) break;
      scanner.Feed(chunk.data(), got);
      offset += got;
    }
    scanner.End();
    std::string_view found = scanner.Result();
    if (!found.empty() || utf8) return std::string(found);
  }
  // Decode with a converter of its own, so that the reading one keeps its state.
  CharacterSetWrapper probe(charset.Charset());
  BreakScanner scanner(true);
  std::string carry;
  std::string text;
  uint64_t offset = bodyOffset;
  bool final = false;
  while (!final && !scanner.Decided()) {
    size_t got = ReadAt(offset, chunk.data(), chunk.size());
    offset += got;
    final = got == 0;
    carry.append(chunk.data(), got);
    text.clear();
    size_t used = probe.AppendText(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(carry.data()), carry.size()), final, text);
    carry.erase(0, used);
    scanner.Feed(text.data(), text.size());
  }
  scanner.End();
  return std::string(scanner.Result());
}

bool FileSysOpen::FillText() {
  LineState& s = *lines_;
  if (s.rawEnd) return false;
  if (s.textPos > 0) {
    s.text.erase(0, s.textPos);
    s.scanFrom -= s.textPos;
    s.textPos = 0;
  }
  bool final;
  if (s.fresh) {
    s.fresh = false;
    final = s.readOffset >= s.fileSize;
  } else {
    const size_t old = s.raw.size();
    s.raw.resize(old + kReadChunkSize);
    const size_t got = ReadAt(s.readOffset, s.raw.data() + old, kReadChunkSize);
    s.raw.resize(old + got);
    s.readOffset += got;
    final = got == 0;
  }
  const size_t used = Charset().AppendText(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(s.raw.data()), s.raw.size()), final, s.text);
  s.raw.erase(0, used);
  if (final) s.rawEnd = true;
  return true;
}

bool FileSysOpen::ReadLine(std::string& line) {
  Check(fd_ >= 0, kFileAccessFailed, "Cannot read file [%1]: the file is closed", Variant(fileName_));
  if (!lines_) {
    Flush();
    StartLines();
  }
  LineState& s = *lines_;
  if (!s.done) {
    const std::string& d = s.delimiter;
    for (;;) {
      if (!d.empty()) {
        const size_t found = d.size() == 1 ? s.text.find(d[0], s.scanFrom) : s.text.find(d, s.scanFrom);
        if (found != std::string::npos) {
          line.assign(s.text, s.textPos, found - s.textPos);
          s.textPos = found + d.size();
          s.scanFrom = s.textPos;
          return true;
        }
        const size_t keep = d.size() - 1;
        s.scanFrom = std::max(s.textPos, s.text.size() > keep ? s.text.size() - keep : size_t{0});
      } else {
        s.scanFrom = s.text.size();
      }
      if (!FillText()) break;
    }
    s.done = true;
    if (s.textPos < s.text.size()) {
      line.assign(s.text, s.textPos, std::string::npos);
      s.textPos = s.text.size();
      return true;
    }
  }
  line.clear();
  return false;
}

}  // namespace tessel
