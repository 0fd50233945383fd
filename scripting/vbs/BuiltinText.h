// BuiltinText: character-level helpers for the string built-ins.
//
// Script strings are UTF-8, but positions and lengths are counted the way the
// scripting language counts them: in UTF-16 code units. A character outside
// the Basic Multilingual Plane therefore counts two, and Mid may cut a pair;
// a lone surrogate half is kept as its three-byte generalised UTF-8 form so
// that no unit is lost on the round trip. Pure ASCII text (the common case in
// record fields) takes byte-indexed fast paths throughout.
//
// All functions are pure and work on caller-owned views; results are new
// strings. Indexes are 0-based unit offsets; callers translate from the
// 1-based positions scripts use.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::vbs::text {

bool IsAscii(std::string_view s) noexcept;

// Number of UTF-16 units in s.
int64_t Length(std::string_view s) noexcept;

std::u16string ToUtf16(std::string_view s);
std::string FromUtf16(std::u16string_view s);
void AppendUnit(std::string& out, char16_t unit);

// Units [start, start + count) of s, clamped to the string.
std::string Substring(std::string_view s, int64_t start, int64_t count);

std::string ToUpper(std::string_view s);
std::string ToLower(std::string_view s);

// -1, 0 or 1. Binary compares code units; text compares case-insensitively.
int Compare(std::string_view a, std::string_view b, bool textCompare);

// Unit index of the first occurrence of needle at or after start, or -1.
int64_t Find(std::string_view haystack, std::string_view needle, int64_t start, bool textCompare);

// Unit index of the last occurrence of needle that ends at or before end
// (exclusive unit bound), or -1.
int64_t FindLast(std::string_view haystack, std::string_view needle, int64_t end, bool textCompare);

// Replaces up to count (-1: all) occurrences of find in s, scanning from unit
// start; the result starts at start, as the built-in Replace does. A result
// beyond 1 GB raises 7 "Out of memory".
std::string Replace(std::string_view s, std::string_view find, std::string_view with, int64_t start,
                    int64_t count, bool textCompare);

std::string Reverse(std::string_view s);

// Windows-1252 code page conversions used by Asc and Chr. AnsiToUnit maps a
// byte; UnitToAnsi gives '?' (63) for a unit the code page lacks.
char16_t AnsiToUnit(uint8_t byte) noexcept;
int UnitToAnsi(char16_t unit) noexcept;

// First UTF-16 unit of s; s must not be empty.
char16_t FirstUnit(std::string_view s) noexcept;

}  // namespace tessel::vbs::text
