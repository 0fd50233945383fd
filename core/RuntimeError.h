// RuntimeError: the script language's runtime errors as tessel::Error values.
//
// Numbers and texts are VBScript's own ("Type mismatch" is 13, ...); the
// source is "Microsoft VBScript runtime error". Used by core conversions and by
// the script engine's built-ins.
#pragma once

#include <cstdint>
#include <string_view>

#include "core/Error.h"

namespace tessel {

inline constexpr std::string_view kScriptRuntimeSource = "Microsoft VBScript runtime error";

// The standard text of a runtime error number; empty when it has none.
std::string_view RuntimeErrorText(int32_t number);
Error RuntimeError(int32_t number);
[[noreturn]] void ThrowRuntimeError(int32_t number);

}  // namespace tessel
