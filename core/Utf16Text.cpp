#include "core/Utf16Text.h"

#include <cstdint>

namespace tessel::Utf16Text {

namespace {
void PutUnit(std::string& out, uint16_t unit) {
  out.push_back(static_cast<char>(unit & 0xFF));
  out.push_back(static_cast<char>(unit >> 8));
}

// Decodes one code point at text[i], advancing i; U+FFFD for a bad sequence.
uint32_t NextCodePoint(std::string_view text, size_t& i) {
  const auto byte = [&](size_t k) { return static_cast<uint8_t>(text[k]); };
  uint8_t lead = byte(i++);
  if (lead < 0x80) return lead;
  int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : -1;
  if (extra < 0 || lead > 0xF4 || i + extra > text.size()) return 0xFFFD;
  uint32_t code = lead & (0x3F >> extra);
  for (int k = 0; k < extra; ++k) {
    uint8_t next = byte(i);
    if ((next & 0xC0) != 0x80) return 0xFFFD;
    code = (code << 6) | (next & 0x3F);
    ++i;
  }
  return code > 0x10FFFF ? 0xFFFD : code;
}
}  // namespace

std::string FromUtf8LE(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size() * 2);
  for (size_t i = 0; i < utf8.size();) {
    uint32_t code = NextCodePoint(utf8, i);
    if (code >= 0x10000) {
      code -= 0x10000;
      PutUnit(out, static_cast<uint16_t>(0xD800 + (code >> 10)));
      PutUnit(out, static_cast<uint16_t>(0xDC00 + (code & 0x3FF)));
    } else {
      PutUnit(out, static_cast<uint16_t>(code));
    }
  }
  return out;
}

}  // namespace tessel::Utf16Text
