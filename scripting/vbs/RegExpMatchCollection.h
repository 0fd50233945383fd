// RegExpMatchCollection: the matches RegExp::Execute found (the script's
// Matches collection), in order. Holds references to its RegExpMatch objects.
#pragma once

#include <vector>

#include "core/Object.h"
#include "core/Variant.h"
#include "scripting/vbs/RegExpMatch.h"

namespace tessel::vbs {

class RegExpMatchCollection : public Object {
 public:
  enum Member : DispId { kItem = kDispIdDefault, kCount = 1 };

  explicit RegExpMatchCollection(std::vector<Ref<RegExpMatch>> matches)
      : matches_(std::move(matches)) {}

  std::string TypeName() const override { return "IMatchCollection2"; }
  DispId GetMemberId(std::string_view name) override;
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;
  Ref<Object> NewEnum() override;

  int32_t Count() const noexcept { return static_cast<int32_t>(matches_.size()); }
  // Raises 5 for an index outside 0..Count-1.
  const Ref<RegExpMatch>& Item(int32_t index) const;

 private:
  std::vector<Ref<RegExpMatch>> matches_;
};

}  // namespace tessel::vbs
