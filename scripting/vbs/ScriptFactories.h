// ScriptFactories: the objects CreateObject can make.
//
// Maps a lowercase ProgID ("scripting.dictionary", "vbscript.regexp") to a new
// object; null when the ProgID is unknown (the caller raises 429).
#pragma once

#include <string>

#include "core/Object.h"

namespace tessel::vbs {

Ref<Object> CreateScriptingObject(const std::string& lowerProgId);

}  // namespace tessel::vbs
