// Utf16Text: UTF-8 to UTF-16 conversion for the few files the engine writes in
// the "unicode" encoding of its log fall-backs. Invalid UTF-8 bytes become
// U+FFFD rather than failing: these files are written when something has
// already gone wrong.
#pragma once

#include <string>
#include <string_view>

namespace tessel::Utf16Text {

inline constexpr std::string_view kByteOrderMarkLE{"\xFF\xFE", 2};

// Little-endian UTF-16 bytes of the text, without a byte order mark.
std::string FromUtf8LE(std::string_view utf8);

}  // namespace tessel::Utf16Text
