#include "scripting/vbs/ScriptObject.h"

#include <cctype>

#include "core/RuntimeError.h"
#include "scripting/vbs/Machine.h"

namespace tessel::vbs {

ScriptObject::ScriptObject(std::shared_ptr<Machine*> machine, const ClassDef& cls, std::shared_ptr<Code> code)
    : machine_(std::move(machine)), cls_(cls), code_(std::move(code)), fields_(cls.fieldCount) {
  for (const auto& m : cls.members) {
    if (m.kind == ClassMember::Field && m.isArray) {
      std::vector<Variant::Bound> bounds;
      int64_t total = 1;
      for (int32_t d : m.dims) {
        bounds.push_back({0, d});
        total *= int64_t{d} + 1;
        if (total > (int64_t{1} << 24) || d < -1) ThrowRuntimeError(total > 0 ? 7 : 9);
      }
      fields_[m.fieldIndex] = Variant::NewArray(bounds);
      if (!m.dims.empty()) fields_[m.fieldIndex].MutableArray().Lock();
    }
  }
}

DispId ScriptObject::GetMemberId(std::string_view name) {
  std::string lower(name);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  int index = cls_.Find(lower);
  if (index < 0 || !cls_.members[index].isPublic) return kDispIdUnknown;
  return index + 1;
}

Variant ScriptObject::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  int index = id == kDispIdDefault ? cls_.defaultMember : id - 1;
  if (index < 0 || index >= static_cast<int>(cls_.members.size())) ThrowRuntimeError(438);
  Machine* machine = *machine_;
  if (!machine) ThrowRuntimeError(424);
  return machine->InvokeMember(*this, index, kind, args);
}

void ScriptObject::Terminate() noexcept {
  Machine* machine = *machine_;
  if (machine && initialized_ && cls_.terminate) machine->RunTerminate(*this);
}

}  // namespace tessel::vbs
