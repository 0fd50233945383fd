// ScriptObject: an instance of a script Class (what `New` creates).
//
// Holds the instance's fields and a reference to the Code that defines the
// class, so the class outlives a later redefinition while instances remain.
// Members are reached through the ordinary dispatch interface (public members
// only; the DispId of member i is i + 1, 0 is the default member); the machine
// that created the instance runs the bodies. Class_Terminate runs when the
// last reference goes. An instance the host keeps after its engine is gone
// raises 424 on every call and terminates silently.
#pragma once

#include <memory>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"
#include "scripting/vbs/Code.h"

namespace tessel::vbs {

class Machine;

class ScriptObject : public Object {
 public:
  ScriptObject(std::shared_ptr<Machine*> machine, const ClassDef& cls, std::shared_ptr<Code> code);

  std::string TypeName() const override { return cls_.name; }
  DispId GetMemberId(std::string_view name) override;
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;

  const ClassDef& Class() const { return cls_; }
  std::vector<Variant>& Fields() { return fields_; }
  // Set once Class_Initialize has run; Class_Terminate only runs after it.
  void MarkInitialized() { initialized_ = true; }
  bool Initialized() const { return initialized_; }

 protected:
  void Terminate() noexcept override;

 private:
  std::shared_ptr<Machine*> machine_;
  const ClassDef& cls_;
  std::shared_ptr<Code> code_;
  std::vector<Variant> fields_;
  bool initialized_ = false;
};

}  // namespace tessel::vbs
