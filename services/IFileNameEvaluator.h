// IFileNameEvaluator: turns a file-name expression into a file name for
// FileSystemWrapper. The script host implements it (ScriptFileNameEvaluator);
// FileSystemWrapper owns the evaluator it was given or made itself.
#pragma once

#include <string>

namespace tessel {

class Transaction;

class IFileNameEvaluator {
 public:
  virtual ~IFileNameEvaluator() = default;
  // Evaluates `expression` as a script expression. Without a transaction the
  // expression has no record tokens (FileSystemWrapper checks that before the
  // call); with one, its % tokens are replaced from that record. Raises the
  // evaluation's own error on failure.
  virtual std::string Evaluate(const std::string& expression, Transaction* transaction) = 0;
};

}  // namespace tessel
