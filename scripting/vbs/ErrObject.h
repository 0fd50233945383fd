// ErrObject: the script's Err object, one per engine.
//
// Holds the last runtime error that On Error Resume Next swallowed (or that
// the script raised with Err.Raise and caught). Members: Number (default),
// Description, Source, HelpFile, HelpContext, Raise, Clear. The machine owns
// the object and fills it through Set; scripts reach it through the name Err.
#pragma once

#include <string>

#include "core/Error.h"
#include "core/Object.h"
#include "core/Variant.h"

namespace tessel::vbs {

class ErrObject : public Object {
 public:
  std::string TypeName() const override { return "ErrObject"; }
  DispId GetMemberId(std::string_view name) override;
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;

  int32_t Number() const { return number_; }
  const std::string& Description() const { return description_; }
  const std::string& Source() const { return source_; }

  // Records a caught error.
  void Set(const Error& error);
  void Clear();
  // Err.Raise: builds the error (standard text for known numbers when no
  // description is given) and throws it.
  [[noreturn]] void Raise(int32_t number, const Variant* source, const Variant* description,
                          const Variant* helpFile, const Variant* helpContext);

 private:
  int32_t number_ = 0;
  std::string description_;
  std::string source_;
  std::string helpFile_;
  int32_t helpContext_ = 0;
};

}  // namespace tessel::vbs
