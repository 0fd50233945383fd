// BuiltinEnumerator: the For Each enumerator of the built-in objects.
//
// Walks a snapshot of Variants taken when the loop starts, so that changing
// the collection inside the loop (Dictionary.Remove, say) cannot invalidate
// the walk. Owns its snapshot.
#pragma once

#include <string_view>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"

namespace tessel::vbs {

class BuiltinEnumerator : public Enumerator {
 public:
  explicit BuiltinEnumerator(std::vector<Variant> items) : items_(std::move(items)) {}
  bool Next(Variant& out) override;

 private:
  std::vector<Variant> items_;
  size_t next_ = 0;
};

// One member of a built-in object's dispatch table.
struct BuiltinMember {
  std::string_view name;
  DispId id;
};

// Case-insensitive lookup in a member table; kDispIdUnknown when absent.
template <size_t N>
DispId FindMember(const BuiltinMember (&members)[N], std::string_view name) {
  for (const BuiltinMember& m : members) {
    if (m.name.size() != name.size()) continue;
    bool same = true;
    for (size_t i = 0; i < name.size() && same; ++i) {
      char a = m.name[i], b = name[i];
      if (a >= 'A' && a <= 'Z') a = static_cast<char>(a + 32);
      if (b >= 'A' && b <= 'Z') b = static_cast<char>(b + 32);
      same = a == b;
    }
    if (same) return m.id;
  }
  return kDispIdUnknown;
}

// Raises 450 unless args holds between min and max arguments.
void CheckArgumentCount(std::span<Variant> args, size_t min, size_t max);

}  // namespace tessel::vbs
