#include "scripting/vbs/ScriptFactories.h"

namespace tessel::vbs {

Ref<Object> CreateScriptingObject(const std::string& lowerProgId) {
  (void)lowerProgId;
  return nullptr;
}

}  // namespace tessel::vbs
