#include "scripting/vbs/ErrObject.h"

#include <cstdlib>
#include <strings.h>

#include "core/RuntimeError.h"

namespace tessel::vbs {

namespace {
enum Member : DispId { kNumber = 0, kDescription, kSource, kHelpFile, kHelpContext, kRaise, kClear };
constexpr const char* kNames[] = {"Number", "Description", "Source", "HelpFile", "HelpContext", "Raise", "Clear"};

bool Given(const Variant* v) { return v && !v->IsMissing(); }
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
  if (number == 0) ThrowRuntimeError(5);
  std::string text;
  if (Given(description)) {
    text = description->ToString();
  } else {
    std::string_view standard = RuntimeErrorText(number);
    text = standard.empty() ? "Unknown runtime error" : std::string(standard);
  }
  std::string src = Given(source) ? source->ToString() : std::string(kScriptRuntimeSource);
  std::string file = Given(helpFile) ? helpFile->ToString() : std::string();
  std::string context = Given(helpContext) ? std::to_string(helpContext->ToLong()) : std::string("0");
  throw Error(number, std::move(text), std::move(src), std::move(file), std::move(context));
}

}  // namespace tessel::vbs
