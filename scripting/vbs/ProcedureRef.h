// ProcedureRef: what GetRef returns — an object whose default member calls a
// global Sub or Function of the engine that made it.
//
// Holds the Code of the procedure so that it survives a redefinition. Once
// its engine is gone, calls raise 424.
#pragma once

#include <memory>

#include "core/Object.h"
#include "core/Variant.h"
#include "scripting/vbs/Code.h"

namespace tessel::vbs {

class Machine;

class ProcedureRef : public Object {
 public:
  ProcedureRef(std::shared_ptr<Machine*> machine, const FunctionProto& proto, std::shared_ptr<Code> code)
      : machine_(std::move(machine)), proto_(proto), code_(std::move(code)) {}

  std::string TypeName() const override { return "Object"; }
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;

 private:
  std::shared_ptr<Machine*> machine_;
  const FunctionProto& proto_;
  std::shared_ptr<Code> code_;
};

}  // namespace tessel::vbs
