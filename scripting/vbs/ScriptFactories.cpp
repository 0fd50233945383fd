#include "scripting/vbs/ScriptFactories.h"

#include "scripting/vbs/Dictionary.h"
#include "scripting/vbs/RegExp.h"

namespace tessel::vbs {

Ref<Object> CreateScriptingObject(const std::string& lowerProgId) {
  if (lowerProgId == "scripting.dictionary") return CreateDictionary();
  if (lowerProgId == "vbscript.regexp") return CreateRegExp();
  return nullptr;
}

}  // namespace tessel::vbs
