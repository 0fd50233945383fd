#include "scripting/vbs/ProcedureRef.h"

#include "core/RuntimeError.h"
#include "scripting/vbs/Machine.h"

namespace tessel::vbs {

Variant ProcedureRef::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  if (id != kDispIdDefault || kind == InvokeKind::PropertyLet || kind == InvokeKind::PropertySet)
    ThrowRuntimeError(438);
  Machine* machine = *machine_;
  if (!machine) ThrowRuntimeError(424);
  return machine->CallProcedure(proto_, args);
}

}  // namespace tessel::vbs
