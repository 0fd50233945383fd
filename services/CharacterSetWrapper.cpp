#include "services/CharacterSetWrapper.h"

#include <iconv.h>
#include <unicode/ucsdet.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <unordered_map>

#include <fmt/format.h>

#include "audit/HuntErr.h"
#include "core/Variant.h"
#include "job/Session.h"

namespace tessel {

namespace {

constexpr std::string_view kAutoDetect = "autodetect";
// ICU reads at most this much of a sample; its answer does not improve with more.
constexpr size_t kDetectSampleLimit = 64 * 1024;

std::string Lower(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

std::string Trimmed(std::string_view text) {
  size_t b = text.find_first_not_of(" \t");
  if (b == std::string_view::npos) return {};
  size_t e = text.find_last_not_of(" \t");
  return std::string(text.substr(b, e - b + 1));
}

// The iconv name of a conversion name, and whether the set is UTF-8.
std::string IconvName(const std::string& conversionName) {
  const std::string key = Lower(conversionName);
  if (key == "unicode" || key == "utf-16le") return "UTF-16LE";
  if (key == "utf-16be" || key == "unicodefffe" || key == "bigendianunicode") return "UTF-16BE";
  if (key == "utf-32" || key == "utf-32le") return "UTF-32LE";
  if (key == "utf-32be") return "UTF-32BE";
  if (key == "utf-8" || key == "utf8") return "UTF-8";
  if (key == "ansi") return "WINDOWS-1252";
  return key;
}

Bytes PreambleOf(const std::string& conversionName) {
  const std::string key = Lower(conversionName);
  if (key == "utf-8" || key == "utf8") return {0xEF, 0xBB, 0xBF};
  if (key == "unicode" || key == "utf-16le") return {0xFF, 0xFE};
  if (key == "utf-16be" || key == "unicodefffe" || key == "bigendianunicode") return {0xFE, 0xFF};
  if (key == "utf-32" || key == "utf-32le") return {0xFF, 0xFE, 0x00, 0x00};
  if (key == "utf-32be") return {0x00, 0x00, 0xFE, 0xFF};
  return {};
}

// Length of the longest valid UTF-8 prefix of p[0, n). `incomplete` is set when
// what follows that prefix is the unfinished start of a valid sequence that the
// end of the input cut off.
size_t ValidUtf8Prefix(const uint8_t* p, size_t n, bool* incomplete) {
  *incomplete = false;
  size_t i = 0;
  while (i < n) {
    if (i + 8 <= n) {
      uint64_t word;
      std::memcpy(&word, p + i, 8);
      if ((word & 0x8080808080808080ULL) == 0) {
        i += 8;
        continue;
      }
    }
    const uint8_t c = p[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t len;
    uint8_t lo = 0x80;
    uint8_t hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2;
    } else if (c == 0xE0) {
      len = 3;
      lo = 0xA0;
    } else if ((c >= 0xE1 && c <= 0xEC) || c == 0xEE || c == 0xEF) {
      len = 3;
    } else if (c == 0xED) {
      len = 3;
      hi = 0x9F;
    } else if (c == 0xF0) {
      len = 4;
      lo = 0x90;
    } else if (c >= 0xF1 && c <= 0xF3) {
      len = 4;
    } else if (c == 0xF4) {
      len = 4;
      hi = 0x8F;
    } else {
      return i;
    }
    for (size_t k = 1; k < len; ++k) {
      if (i + k >= n) {
        *incomplete = true;
        return i;
      }
      const uint8_t b = p[i + k];
      if (b < (k == 1 ? lo : 0x80) || b > (k == 1 ? hi : 0xBF)) return i;
    }
    i += len;
  }
  return n;
}

// Reads the code point at p (valid UTF-8) and advances p past it.
char32_t NextCodePoint(const uint8_t*& p) {
  const uint8_t c = *p++;
  if (c < 0x80) return c;
  if (c < 0xE0) {
    char32_t cp = (c & 0x1F) << 6;
    return cp | (*p++ & 0x3F);
  }
  if (c < 0xF0) {
    char32_t cp = (c & 0x0F) << 12;
    cp |= (*p++ & 0x3F) << 6;
    return cp | (*p++ & 0x3F);
  }
  char32_t cp = (c & 0x07) << 18;
  cp |= (*p++ & 0x3F) << 12;
  cp |= (*p++ & 0x3F) << 6;
  return cp | (*p++ & 0x3F);
}

size_t CodePointCount(const char* p, size_t n) {
  size_t count = 0;
  for (size_t i = 0; i < n; ++i) {
    if ((static_cast<uint8_t>(p[i]) & 0xC0) != 0x80) ++count;
  }
  return count;
}

[[noreturn]] void RaiseConversionFailed(const std::string& name) {
  Check(false, CharacterSetWrapper::kConversionFailed,
        "The encoding conversion from encoding [%1] failed.", Variant(name));
  throw Error(CharacterSetWrapper::kConversionFailed, "unreachable");
}

[[noreturn]] void RaiseComponent(const std::string& text) {
  throw Error(CharacterSetWrapper::kConversionComponent, text, "CharacterSetWrapper");
}

// Owns one iconv descriptor.
class IconvDescriptor {
 public:
  IconvDescriptor() = default;
  ~IconvDescriptor() {
    if (valid()) iconv_close(cd_);
  }
  void Open(const char* to, const char* from) {
    if (valid()) iconv_close(cd_);
    cd_ = iconv_open(to, from);
  }
  IconvDescriptor(const IconvDescriptor&) = delete;
  IconvDescriptor& operator=(const IconvDescriptor&) = delete;
  bool valid() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return cd_; }
  void Reset() { iconv(cd_, nullptr, nullptr, nullptr, nullptr); }

 private:
  iconv_t cd_ = reinterpret_cast<iconv_t>(-1);
};

}  // namespace

// The converter of one determined set.
struct CharacterSetWrapper::Codec {
  enum class Kind { kUtf8, kWide, kTable, kIconv };

  Kind kind = Kind::kIconv;
  // kWide: UTF-16 or UTF-32 in either byte order.
  size_t unitSize = 2;
  bool bigEndian = false;
  std::string name;  // as given, for messages
  // kTable: the UTF-8 form of each byte (length 0: the byte has no character).
  std::array<std::array<char, 4>, 256> decode{};
  std::array<uint8_t, 256> decodeLength{};
  bool asciiIdentity = false;
  // Code point -> byte: a direct table for the low code points (-1: none),
  // a map for the few above.
  static constexpr char32_t kDirectEncodeLimit = 0x3000;
  std::vector<int16_t> encodeLow;
  std::unordered_map<char32_t, uint8_t> encodeHigh;
  // kIconv.
  IconvDescriptor toUtf8;
  IconvDescriptor fromUtf8;
  int lineBreaksAreBytes = -1;

  char32_t GetUnit(const uint8_t* p, size_t size) const {
    if (size == 2) return bigEndian ? (p[0] << 8 | p[1]) : (p[1] << 8 | p[0]);
    return bigEndian ? (char32_t(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3])
                     : (char32_t(p[3]) << 24 | p[2] << 16 | p[1] << 8 | p[0]);
  }

  void PutUnit(uint8_t* o, char32_t unit, size_t size) const {
    for (size_t k = 0; k < size; ++k) {
      const size_t shift = 8 * (bigEndian ? size - 1 - k : k);
      o[k] = static_cast<uint8_t>(unit >> shift);
    }
  }

  static char* PutUtf8(char* o, char32_t cp) {
    if (cp < 0x80) {
      *o++ = static_cast<char>(cp);
    } else if (cp < 0x800) {
      *o++ = static_cast<char>(0xC0 | (cp >> 6));
      *o++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      *o++ = static_cast<char>(0xE0 | (cp >> 12));
      *o++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      *o++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      *o++ = static_cast<char>(0xF0 | (cp >> 18));
      *o++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      *o++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      *o++ = static_cast<char>(0x80 | (cp & 0x3F));
    }
    return o;
  }

  // Builds the byte table when every byte of the set is a character of its own
  // (or no character); false for multi-byte and stateful sets.
  bool BuildTable() {
    for (int b = 0; b < 256; ++b) {
      toUtf8.Reset();
      char in = static_cast<char>(b);
      char* inPtr = &in;
      size_t inLeft = 1;
      char out[16];
      char* outPtr = out;
      size_t outLeft = sizeof out;
      size_t r = iconv(toUtf8.get(), &inPtr, &inLeft, &outPtr, &outLeft);
      if (r == static_cast<size_t>(-1)) {
        if (errno == EILSEQ) {
          decodeLength[b] = 0;
          continue;
        }
        return false;
      }
      if (iconv(toUtf8.get(), nullptr, nullptr, &outPtr, &outLeft) == static_cast<size_t>(-1)) return false;
      size_t len = sizeof out - outLeft;
      if (len == 0 || len > 4 || CodePointCount(out, len) != 1) return false;
      std::memcpy(decode[b].data(), out, len);
      decodeLength[b] = static_cast<uint8_t>(len);
    }
    toUtf8.Reset();
    asciiIdentity = true;
    for (int b = 0; b < 0x80; ++b) {
      if (decodeLength[b] != 1 || decode[b][0] != static_cast<char>(b)) asciiIdentity = false;
    }
    encodeLow.assign(kDirectEncodeLimit, -1);
    for (int b = 255; b >= 0; --b) {
      if (decodeLength[b] == 0) continue;
      const uint8_t* p = reinterpret_cast<const uint8_t*>(decode[b].data());
      const char32_t cp = NextCodePoint(p);  // the lowest byte of a code point wins
      if (cp < kDirectEncodeLimit) {
        encodeLow[cp] = static_cast<int16_t>(b);
      } else {
        encodeHigh[cp] = static_cast<uint8_t>(b);
      }
    }
    return true;
  }

  static std::unique_ptr<Codec> Make(const std::string& givenName, const std::string& conversionName) {
    auto codec = std::make_unique<Codec>();
    codec->name = givenName;
    const std::string iconvName = IconvName(conversionName);
    if (iconvName == "UTF-8") {
      codec->kind = Kind::kUtf8;
      return codec;
    }
    if (iconvName == "UTF-16LE" || iconvName == "UTF-16BE" || iconvName == "UTF-32LE" || iconvName == "UTF-32BE") {
      codec->kind = Kind::kWide;
      codec->unitSize = iconvName[4] == '1' ? 2 : 4;
      codec->bigEndian = iconvName.back() == 'E' && iconvName[iconvName.size() - 2] == 'B';
      return codec;
    }
    codec->toUtf8.Open("UTF-8", iconvName.c_str());
    codec->fromUtf8.Open(iconvName.c_str(), "UTF-8");
    if (!codec->toUtf8.valid() || !codec->fromUtf8.valid()) {
      RaiseComponent(fmt::format("The character set [{}] is not supported.", givenName));
    }
    codec->kind = codec->BuildTable() ? Kind::kTable : Kind::kIconv;
    return codec;
  }

  [[noreturn]] void RaiseUnencodable(std::string_view text, size_t offset) {
    bool incomplete = false;
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    const size_t valid = offset < text.size() ? ValidUtf8Prefix(p + offset, text.size() - offset, &incomplete) : 0;
    if (valid == 0) {
      RaiseComponent(fmt::format("The text holds bytes that are not UTF-8 and cannot be written in [{}].", name));
    }
    const uint8_t* q = p + offset;
    char32_t cp = NextCodePoint(q);
    RaiseComponent(fmt::format("The character U+{:04X} cannot be written in [{}].",
                               static_cast<uint32_t>(cp), name));
  }

  void CheckUtf8(std::string_view text) {
    bool incomplete = false;
    const size_t valid = ValidUtf8Prefix(reinterpret_cast<const uint8_t*>(text.data()), text.size(), &incomplete);
    if (valid != text.size()) RaiseUnencodable(text, valid);
  }

  void Encode(std::string_view text, std::string& out) {
    const size_t start = out.size();
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    const size_t n = text.size();
    if (kind == Kind::kUtf8) {
      CheckUtf8(text);
      out.append(text);
      return;
    }
    if (kind == Kind::kWide) {
      bool incomplete = false;
      size_t valid = ValidUtf8Prefix(p, n, &incomplete);
      if (valid != n) RaiseUnencodable(text, valid);
      out.resize(start + n * unitSize);
      uint8_t* o = reinterpret_cast<uint8_t*>(out.data() + start);
      const uint8_t* q = p;
      const uint8_t* end = p + n;
      while (q < end) {
        const char32_t cp = *q < 0x80 ? *q++ : NextCodePoint(q);
        if (unitSize == 4) {
          PutUnit(o, cp, 4);
          o += 4;
        } else if (cp >= 0x10000) {
          PutUnit(o, 0xD800 + ((cp - 0x10000) >> 10), 2);
          PutUnit(o + 2, 0xDC00 + ((cp - 0x10000) & 0x3FF), 2);
          o += 4;
        } else {
          PutUnit(o, cp, 2);
          o += 2;
        }
      }
      out.resize(static_cast<size_t>(reinterpret_cast<char*>(o) - out.data()));
      return;
    }
    if (kind == Kind::kTable) {
      bool incomplete = false;
      size_t valid = ValidUtf8Prefix(p, n, &incomplete);
      if (valid != n) RaiseUnencodable(text, valid);
      out.resize(start + n);
      char* o = out.data() + start;
      const uint8_t* q = p;
      const uint8_t* end = p + n;
      while (q < end) {
        if (*q < 0x80 && asciiIdentity) {
          *o++ = static_cast<char>(*q++);
          continue;
        }
        const uint8_t* at = q;
        const char32_t cp = NextCodePoint(q);
        int byte = -1;
        if (cp < kDirectEncodeLimit) {
          byte = encodeLow[cp];
        } else if (auto it = encodeHigh.find(cp); it != encodeHigh.end()) {
          byte = it->second;
        }
        if (byte < 0) {
          out.resize(start);
          RaiseUnencodable(text, static_cast<size_t>(at - p));
        }
        *o++ = static_cast<char>(byte);
      }
      out.resize(static_cast<size_t>(o - out.data()));
      return;
    }
    // iconv: room for four bytes a character to begin with, grown on demand.
    fromUtf8.Reset();
    char* in = const_cast<char*>(text.data());
    size_t inLeft = n;
    size_t pos = start;
    out.resize(start + n * 2 + 16);
    for (;;) {
      char* o = out.data() + pos;
      size_t outLeft = out.size() - pos;
      size_t r = iconv(fromUtf8.get(), inLeft ? &in : nullptr, inLeft ? &inLeft : nullptr, &o, &outLeft);
      pos = static_cast<size_t>(o - out.data());
      if (r != static_cast<size_t>(-1)) {
        if (inLeft == 0) {
          // Back to the initial shift state so that the piece stands alone.
          o = out.data() + pos;
          outLeft = out.size() - pos;
          if (iconv(fromUtf8.get(), nullptr, nullptr, &o, &outLeft) == static_cast<size_t>(-1) &&
              errno == E2BIG) {
            out.resize(out.size() * 2);
            continue;
          }
          pos = static_cast<size_t>(o - out.data());
          break;
        }
        continue;
      }
      if (errno == E2BIG) {
        out.resize(out.size() * 2);
        continue;
      }
      const size_t offset = n - inLeft;
      out.resize(start);
      fromUtf8.Reset();
      RaiseUnencodable(text, offset);
    }
    out.resize(pos);
  }

  // For UTF-8: raises as a final Decode would when the bytes are not text.
  void CheckDecodable(std::span<const uint8_t> bytes) {
    bool incomplete = false;
    if (ValidUtf8Prefix(bytes.data(), bytes.size(), &incomplete) != bytes.size()) RaiseConversionFailed(name);
  }

  size_t Decode(std::span<const uint8_t> bytes, bool final, std::string& out) {
    const size_t start = out.size();
    const uint8_t* p = bytes.data();
    const size_t n = bytes.size();
    if (kind == Kind::kUtf8) {
      bool incomplete = false;
      size_t valid = ValidUtf8Prefix(p, n, &incomplete);
      if (valid != n && (!incomplete || final)) RaiseConversionFailed(name);
      out.append(reinterpret_cast<const char*>(p), valid);
      return valid;
    }
    if (kind == Kind::kWide) {
      out.resize(start + n * 2 + 8);
      char* o = out.data() + start;
      size_t i = 0;
      while (i + unitSize <= n) {
        char32_t cp = GetUnit(p + i, unitSize);
        if (unitSize == 2 && cp >= 0xD800 && cp <= 0xDFFF) {
          if (cp >= 0xDC00) {
            out.resize(start);
            RaiseConversionFailed(name);
          }
          if (i + 4 > n) break;  // the pair's second half is still to come
          const char32_t low = GetUnit(p + i + 2, 2);
          if (low < 0xDC00 || low > 0xDFFF) {
            out.resize(start);
            RaiseConversionFailed(name);
          }
          cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
          i += 2;
        } else if (unitSize == 4 && (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))) {
          out.resize(start);
          RaiseConversionFailed(name);
        }
        i += unitSize;
        o = PutUtf8(o, cp);
      }
      out.resize(static_cast<size_t>(o - out.data()));
      if (final && i != n) {
        out.resize(start);
        RaiseConversionFailed(name);
      }
      return i;
    }
    if (kind == Kind::kTable) {
      // Sized exactly first (which also finds bytes without a character), so
      // that a large input is not zero-filled at four times its size.
      size_t length = 0;
      for (size_t i = 0; i < n; ++i) {
        if (asciiIdentity && i + 8 <= n) {
          uint64_t word;
          std::memcpy(&word, p + i, 8);
          if ((word & 0x8080808080808080ULL) == 0) {
            length += 8;
            i += 7;
            continue;
          }
        }
        const uint8_t len = decodeLength[p[i]];
        if (len == 0) RaiseConversionFailed(name);
        length += len;
      }
      out.resize(start + length);
      char* o = out.data() + start;
      for (size_t i = 0; i < n; ++i) {
        if (asciiIdentity && i + 8 <= n) {
          uint64_t word;
          std::memcpy(&word, p + i, 8);
          if ((word & 0x8080808080808080ULL) == 0) {
            std::memcpy(o, &word, 8);
            o += 8;
            i += 7;
            continue;
          }
        }
        const uint8_t b = p[i];
        const uint8_t len = decodeLength[b];
        if (len == 1) {
          *o++ = decode[b][0];
        } else {
          std::memcpy(o, decode[b].data(), len);
          o += len;
        }
      }
      return n;
    }
    char* in = reinterpret_cast<char*>(const_cast<uint8_t*>(p));
    size_t inLeft = n;
    size_t pos = start;
    out.resize(start + n * 2 + 16);
    for (;;) {
      char* o = out.data() + pos;
      size_t outLeft = out.size() - pos;
      size_t r = iconv(toUtf8.get(), &in, &inLeft, &o, &outLeft);
      pos = static_cast<size_t>(o - out.data());
      if (r != static_cast<size_t>(-1)) break;
      if (errno == E2BIG) {
        out.resize(out.size() * 2);
        continue;
      }
      if (errno == EINVAL) break;  // unfinished character at the end
      out.resize(start);
      toUtf8.Reset();
      RaiseConversionFailed(name);
    }
    if (final) {
      if (inLeft != 0) {
        out.resize(start);
        toUtf8.Reset();
        RaiseConversionFailed(name);
      }
      for (;;) {
        char* o = out.data() + pos;
        size_t outLeft = out.size() - pos;
        if (iconv(toUtf8.get(), nullptr, nullptr, &o, &outLeft) != static_cast<size_t>(-1)) {
          pos = static_cast<size_t>(o - out.data());
          break;
        }
        if (errno != E2BIG) break;
        out.resize(out.size() * 2);
      }
    }
    out.resize(pos);
    return n - inLeft;
  }

  bool LineBreaksAreBytes() {
    if (lineBreaksAreBytes < 0) {
      bool same = false;
      if (kind == Kind::kUtf8) {
        same = true;
      } else if (kind == Kind::kTable) {
        same = decodeLength['\r'] == 1 && decode['\r'][0] == '\r' && decodeLength['\n'] == 1 &&
               decode['\n'][0] == '\n' && decodeLength['\f'] == 1 && decode['\f'][0] == '\f';
        for (int b = 0; same && b < 256; ++b) {
          if (b == '\r' || b == '\n' || b == '\f' || decodeLength[b] != 1) continue;
          const char c = decode[b][0];
          if (c == '\r' || c == '\n' || c == '\f') same = false;
        }
      } else {
        std::string encoded;
        try {
          Encode("\r\n\f", encoded);
          same = encoded == "\r\n\f";
        } catch (const Error&) {
          same = false;
        }
      }
      lineBreaksAreBytes = same ? 1 : 0;
    }
    return lineBreaksAreBytes == 1;
  }
};

CharacterSetWrapper::CharacterSetWrapper() = default;

CharacterSetWrapper::CharacterSetWrapper(const std::string& charset) { Init(charset); }

CharacterSetWrapper::~CharacterSetWrapper() = default;

void CharacterSetWrapper::Init(const std::string& charset) {
  try {
    const std::string name = Trimmed(charset);
    const std::string key = Lower(name);
    charset_ = name;
    conversionName_ = key == "utf-16" ? std::string("unicode") : name;
    autoDetect_ = key.empty() || key == kAutoDetect;
    codec_.reset();
    if (!autoDetect_) codec_ = Codec::Make(charset_, conversionName_);
  } catch (...) {
    ErrorInRethrow("CharacterSetWrapper.Init(sCharset)", {Variant(charset)});
  }
}

CharacterSetWrapper::Codec& CharacterSetWrapper::GetCodec() {
  if (!codec_) codec_ = Codec::Make(charset_, conversionName_);
  return *codec_;
}

std::string CharacterSetWrapper::WriteName() const {
  std::string name;
  if (const Session* session = CurrentSession()) name = Trimmed(session->DefaultCharSet());
  if (name.empty() || Lower(name) == kAutoDetect) name = "utf-8";
  return name;
}

Bytes CharacterSetWrapper::Preamble() const {
  if (autoDetect_) {
    if (!charset_.empty()) return {};
    const std::string name = WriteName();
    return PreambleOf(Lower(name) == "utf-16" ? std::string("unicode") : name);
  }
  return PreambleOf(conversionName_);
}

bool CharacterSetWrapper::TextHasPreamble(std::span<const uint8_t> bytes) const {
  if (autoDetect_) return false;
  const Bytes preamble = PreambleOf(conversionName_);
  if (preamble.empty() || bytes.size() < preamble.size()) return false;
  return std::memcmp(bytes.data(), preamble.data(), preamble.size()) == 0;
}

void CharacterSetWrapper::AppendData(std::string_view text, std::string& out) {
  if (text.empty()) return;
  if (autoDetect_) {
    Check(charset_.empty(), kCannotEncodeUndetermined, "Cannot convert to encoding method [%1]",
          Variant(std::string(kAutoDetect)));
    Init(WriteName());
  }
  GetCodec().Encode(text, out);
}

bool CharacterSetWrapper::EncodesAsItself(std::string_view text) {
  if (autoDetect_) {
    Check(charset_.empty(), kCannotEncodeUndetermined, "Cannot convert to encoding method [%1]",
          Variant(std::string(kAutoDetect)));
    Init(WriteName());
  }
  Codec& codec = GetCodec();
  if (codec.kind != Codec::Kind::kUtf8) return false;
  codec.CheckUtf8(text);
  return true;
}

Bytes CharacterSetWrapper::ConvertToData(std::string_view text) {
  try {
    std::string out;
    AppendData(text, out);
    return Bytes(out.begin(), out.end());
  } catch (...) {
    ErrorInRethrow("CharacterSetWrapper.ConvertToData(sText)", {Variant(text.substr(0, 200))});
  }
}

size_t CharacterSetWrapper::AppendText(std::span<const uint8_t> bytes, bool final, std::string& out) {
  Check(!autoDetect_, kCannotDetect, "The string encoding method could not be determined.");
  return GetCodec().Decode(bytes, final, out);
}

void CharacterSetWrapper::ResolveAutoDetect(std::span<const uint8_t> sample, bool complete) {
  if (!autoDetect_) return;
  const std::string detected = DetectCharset(sample, complete);
  Check(!detected.empty(), kCannotDetect, "The string encoding method could not be determined.");
  Init(detected);
}

std::string CharacterSetWrapper::ConvertToText(std::span<const uint8_t> bytes) {
  try {
    if (bytes.size() <= 1) return {};
    ResolveAutoDetect(bytes, true);
    std::span<const uint8_t> body = bytes;
    if (TextHasPreamble(bytes)) body = bytes.subspan(PreambleOf(conversionName_).size());
    std::string text;
    text.reserve(body.size());
    GetCodec().Decode(body, true, text);
    return text;
  } catch (...) {
    ErrorInRethrow("CharacterSetWrapper.ConvertToText(aBytes)", {Variant(static_cast<int32_t>(bytes.size()))});
  }
}

std::string CharacterSetWrapper::ConvertToText(std::string&& bytes) {
  const std::span<const uint8_t> view(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  try {
    if (bytes.size() <= 1) return {};
    ResolveAutoDetect(view, true);
    Codec& codec = GetCodec();
    const size_t preamble = TextHasPreamble(view) ? PreambleOf(conversionName_).size() : 0;
    if (codec.kind != Codec::Kind::kUtf8) {
      std::string text;
      text.reserve(view.size() - preamble);
      codec.Decode(view.subspan(preamble), true, text);
      return text;
    }
    codec.CheckDecodable(view.subspan(preamble));
    bytes.erase(0, preamble);
    return std::move(bytes);
  } catch (...) {
    ErrorInRethrow("CharacterSetWrapper.ConvertToText(aBytes)", {Variant(static_cast<int32_t>(bytes.size()))});
  }
}

bool CharacterSetWrapper::LineBreaksAreBytes() {
  Check(!autoDetect_, kCannotDetect, "The string encoding method could not be determined.");
  return GetCodec().LineBreaksAreBytes();
}

bool CharacterSetWrapper::IsUtf8() {
  return !autoDetect_ && GetCodec().kind == Codec::Kind::kUtf8;
}

// --- Detection ----------------------------------------------------------------------------

namespace {

// True when the bytes decode in the iconv set `iconvName` (an unfinished
// character at the end is allowed when the sample is not complete).
bool DecodesAs(std::span<const uint8_t> bytes, const std::string& name, bool complete) {
  try {
    CharacterSetWrapper probe(name);
    std::string out;
    probe.AppendText(bytes, complete, out);
    return true;
  } catch (const Error&) {
    return false;
  }
}

// Control bytes that plain text does not hold (tab, line breaks, form feed,
// escape and the old end-of-file mark are text).
bool HasBinaryControls(std::span<const uint8_t> bytes) {
  for (uint8_t b : bytes) {
    if (b < 0x20 && b != '\t' && b != '\n' && b != 0x0B && b != '\f' && b != '\r' && b != 0x1A && b != 0x1B) {
      return true;
    }
  }
  return false;
}

// UTF-16 or UTF-32 without a mark, told by where the zero bytes of Latin text
// fall. Empty when the bytes do not look like either.
std::string DetectWideUnicode(std::span<const uint8_t> bytes, bool complete) {
  const size_t n = bytes.size();
  if (n >= 8) {
    size_t units = n / 4;
    size_t le = 0, be = 0;
    for (size_t i = 0; i < units; ++i) {
      const uint8_t* u = bytes.data() + i * 4;
      if (u[0] != 0 && u[1] == 0 && u[2] == 0 && u[3] == 0) ++le;
      if (u[0] == 0 && u[1] == 0 && u[2] == 0 && u[3] != 0) ++be;
    }
    if (le * 10 >= units * 6 && DecodesAs(bytes, "utf-32", complete)) return "utf-32";
    if (be * 10 >= units * 6 && DecodesAs(bytes, "utf-32be", complete)) return "utf-32be";
  }
  if (n >= 2) {
    size_t units = n / 2;
    size_t hiZero = 0, loZero = 0, bothZero = 0;
    for (size_t i = 0; i < units; ++i) {
      const uint8_t lo = bytes[i * 2];
      const uint8_t hi = bytes[i * 2 + 1];
      if (lo == 0 && hi == 0) {
        ++bothZero;
      } else if (hi == 0) {
        ++hiZero;
      } else if (lo == 0) {
        ++loZero;
      }
    }
    if (bothZero * 10 <= units) {
      if (hiZero * 10 >= units * 4 && loZero * 10 <= units && DecodesAs(bytes, "utf-16", complete)) return "utf-16";
      if (loZero * 10 >= units * 4 && hiZero * 10 <= units && DecodesAs(bytes, "utf-16be", complete)) return "utf-16be";
    }
  }
  return {};
}

struct IcuCandidate {
  std::string name;
  int32_t confidence;
};

std::vector<IcuCandidate> IcuCandidates(std::span<const uint8_t> bytes) {
  std::vector<IcuCandidate> result;
  UErrorCode status = U_ZERO_ERROR;
  UCharsetDetector* detector = ucsdet_open(&status);
  if (U_FAILURE(status)) return result;
  const size_t size = std::min(bytes.size(), kDetectSampleLimit);
  ucsdet_setText(detector, reinterpret_cast<const char*>(bytes.data()), static_cast<int32_t>(size), &status);
  int32_t count = 0;
  const UCharsetMatch** matches = U_SUCCESS(status) ? ucsdet_detectAll(detector, &count, &status) : nullptr;
  if (U_SUCCESS(status) && matches) {
    for (int32_t i = 0; i < count; ++i) {
      UErrorCode s = U_ZERO_ERROR;
      const char* name = ucsdet_getName(matches[i], &s);
      const int32_t confidence = ucsdet_getConfidence(matches[i], &s);
      if (U_FAILURE(s) || !name) continue;
      std::string key = Lower(name);
      if (key == "utf-16le") key = "utf-16";
      if (key == "utf-32le") key = "utf-32";
      // Latin-1 text is read as its superset, the Windows Western set.
      if (key == "iso-8859-1") key = "windows-1252";
      result.push_back({key, confidence});
    }
  }
  ucsdet_close(detector);
  return result;
}

}  // namespace

std::string CharacterSetWrapper::DetectCharset(std::span<const uint8_t> bytes, bool complete) {
  const size_t n = bytes.size();
  if (n == 0) return {};
  const uint8_t* p = bytes.data();
  if (n >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF) return "utf-8";
  if (n >= 4 && p[0] == 0xFF && p[1] == 0xFE && p[2] == 0 && p[3] == 0) return "utf-32";
  if (n >= 4 && p[0] == 0 && p[1] == 0 && p[2] == 0xFE && p[3] == 0xFF) return "utf-32be";
  if (n >= 2 && p[0] == 0xFF && p[1] == 0xFE) return "utf-16";
  if (n >= 2 && p[0] == 0xFE && p[1] == 0xFF) return "utf-16be";

  // UTF-16 and UTF-32 text without a preamble shows itself by its zero
  // bytes; without any, the counts below would all come to nothing.
  const bool hasNul = std::memchr(p, 0, n) != nullptr;
  if (hasNul) {
    std::string wide = DetectWideUnicode(bytes, complete);
    if (!wide.empty()) return wide;
  }
  if (!hasNul) {
    bool incomplete = false;
    size_t valid = ValidUtf8Prefix(p, n, &incomplete);
    if (valid == n || (!complete && incomplete)) return "utf-8";
  }

  const std::vector<IcuCandidate> candidates = IcuCandidates(bytes);
  const bool binary = HasBinaryControls(bytes);
  auto usable = [&](const IcuCandidate& c) {
    if (c.name == "utf-8") return false;  // already ruled out above
    const bool wideSet = c.name.rfind("utf-16", 0) == 0 || c.name.rfind("utf-32", 0) == 0;
    if (wideSet && c.confidence < 50) return false;
    if (!wideSet && binary) return false;
    return DecodesAs(bytes, c.name, complete);
  };
  for (const IcuCandidate& c : candidates) {
    if (c.confidence >= 30 && usable(c)) return c.name;
  }
  if (!binary && !hasNul && DecodesAs(bytes, "windows-1252", complete)) return "windows-1252";
  for (const IcuCandidate& c : candidates) {
    if (c.confidence >= 10 && usable(c)) return c.name;
  }
  return {};
}

}  // namespace tessel
