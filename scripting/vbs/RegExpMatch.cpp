#include "scripting/vbs/RegExpMatch.h"

#include "core/RuntimeError.h"
#include "scripting/vbs/BuiltinEnumerator.h"

namespace tessel::vbs {

namespace {

constexpr BuiltinMember kSubMatchMembers[] = {{"Item", RegExpSubMatches::kItem},
                                              {"Count", RegExpSubMatches::kCount}};
constexpr BuiltinMember kMatchMembers[] = {{"Value", RegExpMatch::kValue},
                                           {"FirstIndex", RegExpMatch::kFirstIndex},
                                           {"Length", RegExpMatch::kLength},
                                           {"SubMatches", RegExpMatch::kSubMatches}};

bool IsGet(InvokeKind kind) {
  return kind == InvokeKind::Method || kind == InvokeKind::PropertyGet;
}

}  // namespace

DispId RegExpSubMatches::GetMemberId(std::string_view name) {
  return FindMember(kSubMatchMembers, name);
}

const Variant& RegExpSubMatches::Item(int32_t index) const {
  if (index < 0 || index >= Count()) ThrowRuntimeError(5);
  return groups_[static_cast<size_t>(index)];
}

Variant RegExpSubMatches::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  if (!IsGet(kind)) ThrowMemberNotFound();
  switch (id) {
    case kItem:
      CheckArgumentCount(args, 1, 1);
      return Item(args[0].ToLong());
    case kCount:
      CheckArgumentCount(args, 0, 0);
      return Variant(Count());
    default:
      ThrowMemberNotFound();
  }
}

Ref<Object> RegExpSubMatches::NewEnum() { return MakeRef<BuiltinEnumerator>(groups_); }

DispId RegExpMatch::GetMemberId(std::string_view name) { return FindMember(kMatchMembers, name); }

Ref<RegExpSubMatches> RegExpMatch::SubMatches() const { return MakeRef<RegExpSubMatches>(groups_); }

Variant RegExpMatch::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  if (!IsGet(kind)) ThrowMemberNotFound();
  CheckArgumentCount(args, 0, 0);
  switch (id) {
    case kValue:
      return Variant(value_);
    case kFirstIndex:
      return Variant(firstIndex_);
    case kLength:
      return Variant(length_);
    case kSubMatches:
      return Variant(SubMatches());
    default:
      ThrowMemberNotFound();
  }
}

}  // namespace tessel::vbs
