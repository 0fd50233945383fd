// SimpleVBWrapper: the script host for callers without a job, such as a
// designer testing a formula or the `tessel eval` command.
//
// It owns one vbWrapper, made by the first Initialise with no transform id,
// no verbose log, no event and a time-out of 60 seconds, so expressions see
// the same function library (functionh.xml) that jobs see. There are no
// records here: expressions are evaluated as they stand.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace tessel {

class vbWrapper;

class SimpleVBWrapper {
 public:
  static constexpr int32_t kTimeOutSeconds = 60;

  SimpleVBWrapper();
  ~SimpleVBWrapper();
  SimpleVBWrapper(const SimpleVBWrapper&) = delete;
  SimpleVBWrapper& operator=(const SimpleVBWrapper&) = delete;

  // Makes the wrapper when there is none yet; later calls do nothing.
  void Initialise();
  // The expression's value as text.
  std::string SimpleEvaluate(const std::string& code);
  bool CodeNeedsWrapper(const std::string& code);
  // Adds `code` wrapped as a function; returns the function's name (blanks
  // become '_').
  std::string AddCode(const std::string& functionName, const std::string& code);

  // Null before Initialise.
  vbWrapper* Wrapper() const { return wrapper_.get(); }

 private:
  vbWrapper& RequireWrapper();

  std::unique_ptr<vbWrapper> wrapper_;
};

}  // namespace tessel
