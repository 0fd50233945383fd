#include "scripting/vbs/BuiltinEnumerator.h"

#include "core/RuntimeError.h"

namespace tessel::vbs {

bool BuiltinEnumerator::Next(Variant& out) {
  if (next_ >= items_.size()) return false;
  out = items_[next_++];
  return true;
}

void CheckArgumentCount(std::span<Variant> args, size_t min, size_t max) {
  if (args.size() < min || args.size() > max) ThrowRuntimeError(450);
}

}  // namespace tessel::vbs
