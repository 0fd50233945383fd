#include "scripting/vbs/ErrObject.h"

#include <cstdlib>
#include <strings.h>

#include "core/RuntimeError.h"

namespace tessel::vbs {

namespace {
enum Member : DispId { kNumber = 0, kDescription, kSource, kHelpFile, kHelpContext, kRaise, kClear };
constexpr const char* kNames[] = {"Number", "Description", "Source", "HelpFile", "HelpContext", "Raise", "Clear"};

bool Given(const Variant* v) { return v && !v->IsMissing(); }

// Err.Raise of a failure code (an HRESULT) that stands for a runtime error
// raises that error: the script runtime's own facility, and the system codes
// the runtime knows. Codes of the object facility (vbObjectError + n) stay
// as they are; they are the scripts' own errors.
int32_t RuntimeNumberOf(int32_t number) {
  const uint32_t code = static_cast<uint32_t>(number);
  if ((code & 0xFFFF0000u) == 0x800A0000u) return static_cast<int32_t>(code & 0xFFFFu);
  struct Mapping {
    uint32_t code;
    int32_t number;
  };
  static constexpr Mapping kKnown[] = {
      {0x80004001u, 445}, {0x80004002u, 430}, {0x80020003u, 438}, {0x80020005u, 13},
      {0x80020006u, 438}, {0x8002000Au, 6},   {0x8002000Bu, 9},   {0x8002000Eu, 450},
      {0x8002000Fu, 449}, {0x80070005u, 70},  {0x8007000Eu, 7},   {0x80070057u, 5},
  };
  for (const Mapping& m : kKnown)
    if (m.code == code) return m.number;
  return number;
}
}  // namespace

DispId ErrObject::GetMemberId(std::string_view name) {
  for (DispId i = 0; i < 7; ++i) {
    std::string_view n = kNames[i];
    if (n.size() == name.size() && strncasecmp(n.data(), name.data(), n.size()) == 0) return i;
  }
  return kDispIdUnknown;
}

Variant ErrObject::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  const bool put = kind == InvokeKind::PropertyLet || kind == InvokeKind::PropertySet;
  if (put) {
    if (args.size() != 1) ThrowRuntimeError(450);
    const Variant& v = args[0];
    switch (id) {
      case kNumber: number_ = v.ToLong(); return {};
      case kDescription: description_ = v.ToString(); return {};
      case kSource: source_ = v.ToString(); return {};
      case kHelpFile: helpFile_ = v.ToString(); return {};
      case kHelpContext: helpContext_ = v.ToLong(); return {};
      default: ThrowRuntimeError(438);
    }
  }
  switch (id) {
    case kNumber: return Variant::FromLong(number_);
    case kDescription: return Variant(description_);
    case kSource: return Variant(source_);
    case kHelpFile: return Variant(helpFile_);
    case kHelpContext: return Variant::FromLong(helpContext_);
    case kClear:
      Clear();
      return {};
    case kRaise: {
      if (args.empty() || args.size() > 5) ThrowRuntimeError(450);
      auto at = [&](size_t i) -> const Variant* { return i < args.size() ? &args[i] : nullptr; };
      Raise(args[0].ToLong(), at(1), at(2), at(3), at(4));
    }
    default:
      ThrowRuntimeError(438);
  }
}

void ErrObject::Set(const Error& error) {
  number_ = error.number();
  description_ = error.description();
  source_ = error.source();
  helpFile_ = error.helpFile();
  helpContext_ = static_cast<int32_t>(std::strtol(error.helpContext().c_str(), nullptr, 10));
}

void ErrObject::Clear() {
  number_ = 0;
  description_.clear();
  source_.clear();
  helpFile_.clear();
  helpContext_ = 0;
}

void ErrObject::Raise(int32_t number, const Variant* source, const Variant* description,
                      const Variant* helpFile, const Variant* helpContext) {
  // Numbers are 16-bit codes or failure codes; 0 and larger values are not.
  if (number == 0 || number > 0xFFFF) ThrowRuntimeError(5);
  number = RuntimeNumberOf(number);
  // An argument left out takes the value the Err object still holds from an
  // error not yet cleared; only what is empty falls back to the standard.
  std::string text;
  if (Given(description)) {
    text = description->ToString();
  } else if (!description_.empty()) {
    text = description_;
  } else {
    std::string_view standard = RuntimeErrorText(number);
    text = standard.empty() ? "Unknown runtime error" : std::string(standard);
  }
  std::string src = Given(source)        ? source->ToString()
                    : !source_.empty()   ? source_
                                         : std::string(kScriptRuntimeSource);
  std::string file = Given(helpFile) ? helpFile->ToString() : helpFile_;
  std::string context = std::to_string(Given(helpContext) ? helpContext->ToLong() : helpContext_);
  throw Error(number, std::move(text), std::move(src), std::move(file), std::move(context));
}

}  // namespace tessel::vbs
