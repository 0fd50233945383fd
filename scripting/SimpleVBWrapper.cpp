#include "scripting/SimpleVBWrapper.h"

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "scripting/vbWrapper.h"

namespace tessel {

SimpleVBWrapper::SimpleVBWrapper() = default;
SimpleVBWrapper::~SimpleVBWrapper() = default;

vbWrapper& SimpleVBWrapper::RequireWrapper() {
  if (!wrapper_) ThrowRuntimeError(91);
  return *wrapper_;
}

void SimpleVBWrapper::Initialise() {
  try {
    if (wrapper_) return;
    auto wrapper = std::make_unique<vbWrapper>();
    wrapper->Initialize("", false, nullptr, kTimeOutSeconds);
    wrapper_ = std::move(wrapper);
  } catch (...) {
    ErrorInRethrow("SimpleVBWrapper.Initialise()", {});
  }
}

std::string SimpleVBWrapper::SimpleEvaluate(const std::string& code) {
  try {
    return RequireWrapper().SimpleEvaluate(Variant(code)).ToString();
  } catch (...) {
    ErrorInRethrow("SimpleVBWrapper.SimpleEvaluate(sCode)", {Variant(code)});
  }
}

bool SimpleVBWrapper::CodeNeedsWrapper(const std::string& code) {
  try {
    return RequireWrapper().CodeNeedsWrapper(code);
  } catch (...) {
    ErrorInRethrow("SimpleVBWrapper.CodeNeedsWrapper(sCode)", {Variant(code)});
  }
}

std::string SimpleVBWrapper::AddCode(const std::string& functionName, const std::string& code) {
  try {
    std::string name = functionName;
    RequireWrapper().AddCode(name, code);
    return name;
  } catch (...) {
    ErrorInRethrow("SimpleVBWrapper.AddCode(sFunctionName, sCode)", {Variant(functionName), Variant(code)});
  }
}

}  // namespace tessel
