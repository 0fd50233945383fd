// RegExpMatch: one match of a regular expression (the script's Match object),
// and RegExpSubMatches, its captured groups.
//
// Immutable values made by RegExp::Execute. FirstIndex counts UTF-16 units
// from 0; a group that took no part in the match is Empty.
#pragma once

#include <string>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"

namespace tessel::vbs {

class RegExpSubMatches : public Object {
 public:
  enum Member : DispId { kItem = kDispIdDefault, kCount = 1 };

  explicit RegExpSubMatches(std::vector<Variant> groups) : groups_(std::move(groups)) {}

  std::string TypeName() const override { return "ISubMatches"; }
  DispId GetMemberId(std::string_view name) override;
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;
  Ref<Object> NewEnum() override;

  int32_t Count() const noexcept { return static_cast<int32_t>(groups_.size()); }
  // Raises 5 for an index outside 0..Count-1.
  const Variant& Item(int32_t index) const;

 private:
  std::vector<Variant> groups_;
};

class RegExpMatch : public Object {
 public:
  enum Member : DispId { kValue = kDispIdDefault, kFirstIndex = 1, kLength, kSubMatches };

  RegExpMatch(std::string value, int32_t firstIndex, int32_t length, std::vector<Variant> groups)
      : value_(std::move(value)),
        firstIndex_(firstIndex),
        length_(length),
        groups_(std::move(groups)) {}

  std::string TypeName() const override { return "IMatch2"; }
  DispId GetMemberId(std::string_view name) override;
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;

  const std::string& Value() const noexcept { return value_; }
  int32_t FirstIndex() const noexcept { return firstIndex_; }
  int32_t Length() const noexcept { return length_; }
  Ref<RegExpSubMatches> SubMatches() const;

 private:
  std::string value_;
  int32_t firstIndex_;
  int32_t length_;
  std::vector<Variant> groups_;
};

}  // namespace tessel::vbs
