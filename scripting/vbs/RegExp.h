// RegExp: the script's regular expression object (New RegExp,
// CreateObject("VBScript.RegExp")), on PCRE2.
//
// Properties Pattern, Global, IgnoreCase and Multiline; methods Test, Execute
// (a RegExpMatchCollection) and Replace (with $1..$99, $&, $`, $' and $$ in
// the replacement). The pattern compiles lazily on first use after a change
// and the compiled code is kept. Outside Multiline, ^ and $ match only at the
// ends of the text; "." never matches a line break. Positions count UTF-16
// units. A bad pattern raises 5017 (or 5018-5021 for the specific faults); a
// match that runs away raises 5 instead of hanging.
//
// Owns its compiled pattern; not shared between threads.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/Object.h"
#include "core/Variant.h"
#include "scripting/vbs/RegExpMatchCollection.h"

namespace tessel::vbs {

class RegExp : public Object {
 public:
  enum Member : DispId {
    kPattern = 1,
    kIgnoreCase,
    kGlobal,
    kMultiline,
    kTest,
    kExecute,
    kReplace,
  };

  RegExp();
  ~RegExp() override;

  std::string TypeName() const override { return "IRegExp2"; }
  DispId GetMemberId(std::string_view name) override;
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;

  const std::string& Pattern() const noexcept { return pattern_; }
  void SetPattern(std::string pattern);
  bool IgnoreCase() const noexcept { return ignoreCase_; }
  void SetIgnoreCase(bool value);
  bool Global() const noexcept { return global_; }
  void SetGlobal(bool value) { global_ = value; }
  bool Multiline() const noexcept { return multiline_; }
  void SetMultiline(bool value);

  bool Test(std::string_view text);
  Ref<RegExpMatchCollection> Execute(std::string_view text);
  std::string Replace(std::string_view text, std::string_view replacement);

 private:
  struct Compiled;
  struct Span;
  const Compiled& Code();
  // Calls onMatch(groups) for each match (all with Global, else the first).
  template <class F>
  void ForEachMatch(std::string_view text, F onMatch);

  std::string pattern_;
  bool ignoreCase_ = false;
  bool global_ = false;
  bool multiline_ = false;
  std::unique_ptr<Compiled> code_;
};

// What New RegExp and CreateObject("VBScript.RegExp") return.
Ref<Object> CreateRegExp();

}  // namespace tessel::vbs
