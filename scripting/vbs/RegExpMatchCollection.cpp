#include "scripting/vbs/RegExpMatchCollection.h"

#include "core/RuntimeError.h"
#include "scripting/vbs/BuiltinEnumerator.h"

namespace tessel::vbs {

namespace {
constexpr BuiltinMember kMembers[] = {{"Item", RegExpMatchCollection::kItem},
                                      {"Count", RegExpMatchCollection::kCount}};
}

DispId RegExpMatchCollection::GetMemberId(std::string_view name) {
  return FindMember(kMembers, name);
}

const Ref<RegExpMatch>& RegExpMatchCollection::Item(int32_t index) const {
  if (index < 0 || index >= Count()) ThrowRuntimeError(5);
  return matches_[static_cast<size_t>(index)];
}

Variant RegExpMatchCollection::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  if (kind != InvokeKind::Method && kind != InvokeKind::PropertyGet) ThrowMemberNotFound();
  switch (id) {
    case kItem:
      CheckArgumentCount(args, 1, 1);
      return Variant(Item(args[0].ToLong()));
    case kCount:
      CheckArgumentCount(args, 0, 0);
      return Variant(Count());
    default:
      ThrowMemberNotFound();
  }
}

Ref<Object> RegExpMatchCollection::NewEnum() {
  std::vector<Variant> items;
  items.reserve(matches_.size());
  for (const Ref<RegExpMatch>& m : matches_) items.emplace_back(m);
  return MakeRef<BuiltinEnumerator>(std::move(items));
}

}  // namespace tessel::vbs
