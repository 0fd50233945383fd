// vbWrapper: the one gateway from a job to the VBScript engine.
//
// Every expression a job author writes (map formula, filter condition, counter
// key, file-name expression, task script) goes through Evaluate: `%` field
// references are replaced by literal values of the current record, multi-line
// code is wrapped into a function named after the field, and the text is
// evaluated. The rules of the substitution scan (which characters end a bare
// name, which characters behind a reference are skipped, when quotes are added)
// are a contract with existing job documents and are kept exactly, quirks
// included.
//
// Initialize creates the engine, loads functionh.xml from the job
// configuration folder into it and publishes the Functions library as
// "objFunctions" with its members as bare names. The folders (job
// configuration, debug) are the thread's session's, or without a session
// those of appconfig.xml in the configuration folder, so hosts without a job
// see the same library. With the verbose flag each evaluation logs its steps
// to the file named " " in the debug folder. One wrapper serves one
// transform on one thread; two wrappers share nothing. The wrapper owns its
// engine and its Functions object; the IEvent it is given is borrowed and must
// outlive it. CloseWrapper (or destruction) releases the engine.
//
// Errors: Evaluate raises the failure with the description "Error whilst
// evaluating field [...] on transaction type [...]. ..." holding the resolved
// text and the engine's message with line and column; substitution failures
// read "Error resolving formula. ...". An unknown field is 8103, an unclosed
// `%[` 9651, a `%` ending the text 5; a missing functionh.xml is 7705 naming
// its path. A failure inside the engine carries the engine's details (source
// line, caret, line and column; see EEScriptControl) behind its description.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"

namespace tessel {

namespace vbs {
class Engine;
}

class FileSystemWrapper;
class FormulaPlan;
class Functions;
class IEvent;
class Transaction;

class vbWrapper {
 public:
  static constexpr int32_t kUnenclosedFieldName = 9651;

  vbWrapper();
  ~vbWrapper();
  vbWrapper(const vbWrapper&) = delete;
  vbWrapper& operator=(const vbWrapper&) = delete;

  // Must be the first call. `event` may be null.
  void Initialize(const std::string& transformId, bool verboseLog, IEvent* event, int32_t timeOutSeconds);

  // Substitutes, wraps multi-line code (named after `field`) and evaluates.
  // `forceEval` is accepted and has no effect.
  Variant Evaluate(const std::string& evaluation, Transaction* transaction, const std::string& field,
                   bool forceEval = false);
  // Evaluates the expression as it stands: no substitution.
  Variant SimpleEvaluate(const Variant& expression);
  // Substitution only.
  std::string ResolveSubstitutions(const std::string& evaluation, Transaction* transaction);

  bool CodeNeedsWrapper(std::string_view functionBody) const;
  // Wraps `code` into a function and adds it to the engine. Blanks in
  // `functionName` become `_`; the caller gets the changed name back.
  void AddCode(std::string& functionName, const std::string& code);
  std::string CreateCodeWrapper(const std::string& functionName, const std::string& functionBody) const;
  // Publishes a host object to scripts.
  void ExposeDataObjects(const std::string& name, Ref<Object> object, bool addMembers);
  // Releases the engine and the Functions object; never raises.
  void CloseWrapper();

  const std::string& TransformId() const { return transformId_; }
  // The library object scripts see as objFunctions; null after CloseWrapper.
  Functions* FunctionLibrary() const;
  IEvent* Event() const { return event_; }
  // The engine, for hosts that add objects or read its last error; null
  // before Initialize and after CloseWrapper.
  vbs::Engine* ScriptEngine() const { return engine_.get(); }

 private:
  void LoadFunctions(const std::string& jobConfPath);
  void AddCodeToEngine(const std::string& code);
  void WriteVerboseLog(std::string_view label, std::string_view text);
  void WriteVerboseValue(std::string_view label, const Variant& value);
  // SimpleEvaluate of text at hand.
  Variant EvaluateText(std::string_view expression);
  // The same for a plan with its slots bound; a failure is reported as for
  // the text `writtenOut` gives.
  Variant EvaluatePlan(const FormulaPlan& plan, const std::function<std::string()>& writtenOut);
  // Substitution into `out`; on failure `out` holds the text as far as the
  // scan got.
  void ResolveInto(std::string_view evaluation, Transaction* transaction, std::string& out);
  // The substitution scan: hands `sink` the pieces of `evaluation` in order
  // (Text, Reference with its name and whether the author quoted it, Escape
  // with its word); raises as the substitution does.
  template <class Sink>
  void ScanFormula(std::string_view evaluation, Sink& sink) const;
  // The plan of a formula, made on first use; null when the formula has no
  // usable plan or its plan is running.
  FormulaPlan* PlanFor(const std::string& evaluation);
  void AppendFieldValue(std::string_view name, Transaction* transaction, bool authorQuoted, std::string& out);
  size_t BareNameEnd(std::string_view text, size_t from) const;
  // True when line `linePos` starts the last statement of `lines`.
  static bool IsLineFunctionResult(const std::vector<std::string_view>& lines, size_t linePos, size_t arraySize);
  vbs::Engine& RequireEngine() const;

  std::string transformId_;
  Ref<Functions> functions_;
  std::vector<std::string> terminators_;
  // terminators_ as a byte table, for the scan of every evaluation.
  std::array<bool, 256> isTerminator_{};
  bool verboseLog_ = false;
  std::unique_ptr<FileSystemWrapper> logFileSystem_;
  std::string logHandle_;
  IEvent* event_ = nullptr;
  std::unique_ptr<vbs::Engine> engine_;
  // Plans of the formulas evaluated so far, by their text. Declared after
  // the engine, whose names their trees hold, so that they go first.
  static constexpr size_t kMaxPlans = 512;
  std::unordered_map<std::string, std::unique_ptr<FormulaPlan>> plans_;
  // The working text of the outermost Evaluate, kept to save an allocation
  // per record.
  std::string buffer_;
  int evaluationDepth_ = 0;
};

}  // namespace tessel
