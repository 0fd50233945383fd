// ScriptFileNameEvaluator: evaluates file-name expressions for a
// FileSystemWrapper through a script host of its own.
//
// The evaluator owns one vbWrapper, initialised when the evaluator is made
// (no transform id, no verbose log, no event, a time-out of 60 seconds), so a
// file name may use the language and the function library. An expression
// without a record is evaluated as it stands; with one, its `%` references are
// replaced from the record first. The result is the value as text.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "services/IFileNameEvaluator.h"

namespace tessel {

class vbWrapper;

class ScriptFileNameEvaluator : public IFileNameEvaluator {
 public:
  static constexpr int32_t kTimeOutSeconds = 60;

  ScriptFileNameEvaluator();
  ~ScriptFileNameEvaluator() override;

  std::string Evaluate(const std::string& expression, Transaction* transaction) override;

 private:
  std::unique_ptr<vbWrapper> wrapper_;
};

}  // namespace tessel
