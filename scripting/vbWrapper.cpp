#include "scripting/vbWrapper.h"

#include <time.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <utility>

#include "audit/HuntErr.h"
#include "audit/IEvent.h"
#include "audit/IntegrationLogEntry.h"
#include "core/RuntimeError.h"
#include "core/SafeArray.h"
#include "job/AppConfig.h"
#include "job/RegistryWrapper.h"
#include "job/Session.h"
#include "scripting/EEScriptControl.h"
#include "scripting/FormulaPlan.h"
#include "scripting/Functions.h"
#include "scripting/vbs/CompiledExpression.h"
#include "scripting/vbs/Engine.h"
#include "services/FileSystemWrapper.h"
#include "store/Transaction.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {

constexpr std::string_view kErrorInSource = "HuntERR.ErrorIn";
constexpr int16_t kStringFieldType = 3;
constexpr int64_t kMinimumLogSpaceMB = 20;
constexpr const char* kFunctionLibraryFile = "functionh.xml";
constexpr int32_t kMissingFile = 7705;

// The folders a wrapper reads: the thread's session's, or, for a host
// without a job (a designer, `tessel eval`, a file-name evaluation in a
// tool), those of the machine's configuration.
struct HostFolders {
  std::string debugPath;
  std::string jobConfPath;
};

HostFolders ReadHostFolders() {
  if (Session* session = CurrentSession()) return {session->DebugPath(), session->JobConfPath()};
  AppConfig config = AppConfig::Load(RegistryWrapper::AppConfigFolder());
  return {config.DebugPath(), config.JobConfPath()};
}

// Raises the error in flight again with `description` in place of its own,
// adding the frame of `method`. The new description starts a fresh trace, so
// that what a template quotes is not quoted twice.
[[noreturn]] void RethrowWithDescription(std::string description, std::string_view method,
                                         std::initializer_list<Variant> args) {
  Error current = CurrentError();
  std::string source = current.source() == kErrorInSource ? "vbWrapper" : current.source();
  try {
    throw Error(current.number(), std::move(description), std::move(source), current.helpFile(),
                current.helpContext());
  } catch (...) {
    ErrorInRethrow(method, std::span<const Variant>(args.begin(), args.size()));
  }
}

// Raises the error in flight again with the engine's details of its last
// failure joined to it (behind its description, or as trace lines when the
// description is a trace already), adding the frame of `method`.
[[noreturn]] void RethrowWithEngineDetails(const vbs::Engine* engine, std::string_view method,
                                           std::initializer_list<Variant> args) {
  const std::span<const Variant> values(args.begin(), args.size());
  std::string details = engine ? EEScriptControl().Extract(*engine) : std::string();
  if (details.empty()) ErrorInRethrow(method, values);
  Error current = CurrentError();
  if (current.source() == kErrorInSource) {
    ErrInsertTrace(details);
    ErrorInRethrow(method, values);
  }
  std::string description = current.description();
  description.append("\r\n").append(details);
  try {
    throw Error(current.number(), std::move(description), current.source(), current.helpFile(),
                current.helpContext());
  } catch (...) {
    ErrorInRethrow(method, values);
  }
}

std::string NowText() {
  time_t now = time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  char text[32];
  size_t n = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return std::string(text, n);
}

Variant TransactionArg(Transaction* transaction) {
  return transaction ? Variant(Ref<Object>(transaction)) : Variant::Nothing();
}

}  // namespace

vbWrapper::vbWrapper() = default;

vbWrapper::~vbWrapper() { CloseWrapper(); }

Functions* vbWrapper::FunctionLibrary() const { return functions_.get(); }

vbs::Engine& vbWrapper::RequireEngine() const {
  if (!engine_) ThrowRuntimeError(91);
  return *engine_;
}

void vbWrapper::Initialize(const std::string& transformId, bool verboseLog, IEvent* event, int32_t timeOutSeconds) {
  try {
    event_ = event;
    verboseLog_ = verboseLog;
    HostFolders folders = ReadHostFolders();
    if (verboseLog_) {
      logFileSystem_ = std::make_unique<FileSystemWrapper>();
      // A debug folder that cannot be asked (it is missing, say) has no room
      // for the log either: the job runs on without it.
      int64_t freeMB = 0;
      try {
        freeMB = logFileSystem_->GetDriveSpaceMB(folders.debugPath);
      } catch (...) {
        ErrClear();
      }
      if (freeMB >= kMinimumLogSpaceMB) {
        // The log's name is a single blank in the debug folder.
        std::string logPath = FileSystemWrapper::BuildPath(folders.debugPath, " ");
        if (logFileSystem_->FileExists(logPath)) {
          logHandle_ = logFileSystem_->OpenTextStream(logPath, true, "unicode", true);
        } else {
          logHandle_ = logFileSystem_->CreateTextStream(" ", false, folders.debugPath, true, "unicode", true);
        }
      } else if (event_ != nullptr) {
        // The transform id is not known yet here; the entry goes without it.
        IntegrationLogEntry entry;
        entry.TransformId = transformId_;
        entry.ReasonCode = "-1";
        entry.Reason = "Logging turned off due to insufficient disk space.";
        event_->WriteSingleAuditMessage(std::move(entry));
      }
    }
    transformId_ = transformId;

    plans_.clear();
    engine_ = std::make_unique<vbs::Engine>();
    terminators_ = {"\n", ">", "<", "=", "&", "+", "-", "*", "/", "(", ")", " ", ",", "\""};
    isTerminator_.fill(false);
    for (const std::string& terminator : terminators_) {
      isTerminator_[static_cast<unsigned char>(terminator[0])] = true;
    }
    engine_->SetLanguage("VBScript");
    // A time-out beyond what milliseconds can count is no limit in practice.
    const int64_t milliseconds = std::min<int64_t>(int64_t{timeOutSeconds} * 1000, INT32_MAX);
    engine_->SetTimeout(static_cast<int32_t>(milliseconds));
    engine_->SetAllowUI(false);
    LoadFunctions(folders.jobConfPath);
  } catch (...) {
    ErrorInRethrow("vbWrapper.Initialize(sTransformId, bVerboseLog, oEvent, lTimeOutSeconds)",
                   {Variant(transformId), Variant(verboseLog), Variant(), Variant(timeOutSeconds)});
  }
}

void vbWrapper::LoadFunctions(const std::string& jobConfPath) {
  try {
    functions_ = MakeRef<Functions>();
    functions_->Initialise(*this);
    const std::string libraryPath = FileSystemWrapper::BuildPath(jobConfPath, kFunctionLibraryFile);
    Check(FileSystemWrapper().FileExists(libraryPath), kMissingFile,
          "Could not open file [%1]: the script function library is missing (an empty library is <FUNCTIONS/>).",
          Variant(libraryPath));
    auto library = MakeRef<XMLWrapper>();
    library->OpenXMLDocument(libraryPath);
    for (xmlNodePtr piece : library->GetNodesFromXPath("FUNCTIONS/*")) {
      AddCodeToEngine(XMLWrapper::NodeText(piece));
    }
    engine_->AddObject("objFunctions", functions_, true);
    AddCodeToEngine(
        "Function IIf(sExpr, sTruePart, sFalsePart)\r\n"
        "If sExpr Then IIf = sTruePart Else IIf = sFalsePart\r\n"
        "End Function");
  } catch (...) {
    ErrorInRethrow("vbWrapper.LoadFunctions()", {});
  }
}

// --- Evaluation ------------------------------------------------------------------------

Variant vbWrapper::Evaluate(const std::string& evaluation, Transaction* transaction, const std::string& field,
                            bool forceEval) {
  // The outermost evaluation reuses one buffer; a library function that
  // evaluates again while it runs gets a buffer of its own.
  std::string nested;
  std::string& text = evaluationDepth_ == 0 ? buffer_ : nested;
  ++evaluationDepth_;
  struct DepthGuard {
    int& depth;
    ~DepthGuard() { --depth; }
  } guard{evaluationDepth_};
  bool resolved = false;
  try {
    if (verboseLog_) WriteVerboseLog("PRERESOLUTION:", evaluation);
    if (functions_) functions_->SetCurrentTransaction(Ref<Transaction>(transaction));
    // Mostly the formula was parsed before and takes this record's values in
    // its slots; the text is written out only for a report.
    // (Without an engine the text's way reports it, with the text written out.)
    FormulaPlan* plan = verboseLog_ || !engine_ ? nullptr : PlanFor(evaluation);
    if (plan != nullptr && plan->Bind(transaction)) {
      plan->inUse = true;
      struct InUse {
        FormulaPlan& plan;
        ~InUse() { plan.inUse = false; }
      } inUse{*plan};
      // One reference captured: the function object then needs no heap.
      struct Report {
        FormulaPlan& plan;
        std::string& text;
        bool& resolved;
      } report{*plan, text, resolved};
      return EvaluatePlan(*plan, [&report] {
        report.text = report.plan.WrittenOut();
        report.resolved = true;
        return report.text;
      });
    }
    ResolveInto(evaluation, transaction, text);
    resolved = true;
    if (CodeNeedsWrapper(text)) {
      std::string functionName = field;
      AddCode(functionName, text);
      text.assign(functionName);
    }
    if (verboseLog_) WriteVerboseLog("POSTRESOLUTION:", text);
    Variant result = EvaluateText(text);
    if (verboseLog_) WriteVerboseValue("POSTEVALUATION:", result);
    return result;
  } catch (...) {
    // A failed substitution leaves nothing resolved to show: the expression
    // as written stands in.
    if (!resolved) text = evaluation;
    std::string reason = ErrTraceFreeDescription();
    std::string recordType;
    if (transaction != nullptr) {
      try {
        recordType = transaction->TransactionId();
      } catch (...) {
      }
    }
    std::string message =
        BuildCheckMessage("Error whilst evaluating field [%1] on transaction type [%2]. ||Resolved Function - %3 ||Error - %4",
                          {Variant(field), Variant(recordType), Variant(text), Variant(reason)});
    RethrowWithDescription(std::move(message), "vbWrapper.Evaluate(sEvaluation, oTransaction, sField, bForceEval)",
                           {Variant(evaluation), TransactionArg(transaction), Variant(field), Variant(forceEval)});
  }
}

Variant vbWrapper::SimpleEvaluate(const Variant& expression) {
  if (expression.IsString()) return EvaluateText(expression.StringValue());
  std::string text;
  try {
    text = expression.ToString();
  } catch (...) {
    ErrorInRethrow("vbWrapper.SimpleEvaluate(vExpression)", {expression});
  }
  return EvaluateText(text);
}

Variant vbWrapper::EvaluatePlan(const FormulaPlan& plan, const std::function<std::string()>& writtenOut) {
  std::string written;
  try {
    return RequireEngine().Eval(plan.Expression(), [&] {
      written = writtenOut();
      return written;
    });
  } catch (...) {
    RethrowWithEngineDetails(engine_.get(), "vbWrapper.SimpleEvaluate(vExpression)", {Variant(written)});
  }
}

Variant vbWrapper::EvaluateText(std::string_view expression) {
  try {
    return RequireEngine().Eval(expression);
  } catch (...) {
    RethrowWithEngineDetails(engine_.get(), "vbWrapper.SimpleEvaluate(vExpression)", {Variant(expression)});
  }
}

std::string vbWrapper::ResolveSubstitutions(const std::string& evaluation, Transaction* transaction) {
  std::string out;
  out.reserve(evaluation.size() + 32);
  ResolveInto(evaluation, transaction, out);
  return out;
}

size_t vbWrapper::BareNameEnd(std::string_view text, size_t from) const {
  while (from < text.size() && !isTerminator_[static_cast<unsigned char>(text[from])]) ++from;
  return from;
}

// The scan works on `evaluation` and writes the working text into `out` as it
// goes: everything up to a reference, then its replacement. The characters it
// skips behind a replacement are copied with the next piece of text. Where
// the rules speak of the working text, its parts still to come are those of
// `evaluation` from the end of the last reference on.
template <class Sink>
void vbWrapper::ScanFormula(std::string_view evaluation, Sink& sink) const {
  const size_t length = evaluation.size();
  size_t copied = 0;  // evaluation[0, copied) has gone to the sink
  size_t scan = 0;    // the next '%' is looked for from here
  while (scan < length) {
    const size_t percent = evaluation.find('%', scan);
    if (percent == std::string_view::npos) break;
    sink.Text(evaluation.substr(copied, percent - copied));
    // A '%' at the very end has no form to read.
    if (percent + 1 >= length) ThrowRuntimeError(5);

    size_t referenceEnd;
    size_t skip;
    const char first = evaluation[percent + 1];
    const bool authorQuoted = percent > 0 && evaluation[percent - 1] == '"';
    if (first == '[') {
      const size_t close = evaluation.find(']', percent + 2);
      Check(close != std::string_view::npos, kUnenclosedFieldName, "Unenclosed field name.");
      sink.Reference(evaluation.substr(percent + 2, close - percent - 2), authorQuoted);
      referenceEnd = close + 1;
      skip = 2;
    } else if (first == '%') {
      // The escape: the token starts with the second '%' and goes in as a
      // string literal; no field is read.
      const size_t end = BareNameEnd(evaluation, percent + 1);
      sink.Escape(evaluation.substr(percent + 1, end - percent - 1));
      referenceEnd = end;
      skip = 1;
    } else {
      const size_t end = BareNameEnd(evaluation, percent + 1);
      sink.Reference(evaluation.substr(percent + 1, end - percent - 1), authorQuoted);
      referenceEnd = end;
      skip = 1;
    }
    copied = referenceEnd;
    scan = referenceEnd + skip;
    // The scan stops when its position reaches the last character.
    if (scan + 1 == length) break;
  }
  if (copied < length) sink.Text(evaluation.substr(copied));
}

void vbWrapper::ResolveInto(std::string_view evaluation, Transaction* transaction, std::string& out) {
  struct Writer {
    vbWrapper& wrapper;
    Transaction* transaction;
    std::string& out;
    void Text(std::string_view text) { out.append(text); }
    void Reference(std::string_view name, bool authorQuoted) {
      wrapper.AppendFieldValue(name, transaction, authorQuoted, out);
    }
    void Escape(std::string_view word) {
      out.push_back('"');
      out.append(word);
      out.push_back('"');
    }
  } writer{*this, transaction, out};
  try {
    out.clear();
    ScanFormula(evaluation, writer);
  } catch (...) {
    std::string message = BuildCheckMessage("Error resolving formula. %1||", {Variant(ErrShortDescription())});
    RethrowWithDescription(std::move(message), "vbWrapper.ResolveSubstitutions(sEvaluation, oTransaction)",
                           {Variant(evaluation), TransactionArg(transaction)});
  }
}

FormulaPlan* vbWrapper::PlanFor(const std::string& evaluation) {
  auto found = plans_.find(evaluation);
  if (found == plans_.end()) {
    auto plan = std::make_unique<FormulaPlan>();
    struct Recorder {
      FormulaPlan& plan;
      void Text(std::string_view text) { plan.AddText(text); }
      void Reference(std::string_view name, bool authorQuoted) { plan.AddReference(name, authorQuoted); }
      void Escape(std::string_view word) { plan.AddEscape(word); }
    } recorder{*plan};
    try {
      ScanFormula(evaluation, recorder);
      plan->Compile();
    } catch (...) {
      // The scan itself fails: the text reports it, record by record.
    }
    if (plans_.size() >= kMaxPlans) {
      // Made anew when needed again; a plan an outer evaluation is running
      // on stays.
      for (auto it = plans_.begin(); it != plans_.end();) {
        it = it->second->inUse ? std::next(it) : plans_.erase(it);
      }
    }
    found = plans_.emplace(evaluation, std::move(plan)).first;
  }
  FormulaPlan* plan = found->second.get();
  return plan->Usable() && !plan->inUse ? plan : nullptr;
}

void vbWrapper::AppendFieldValue(std::string_view name, Transaction* transaction, bool authorQuoted,
                                 std::string& out) {
  if (transaction == nullptr) ThrowRuntimeError(91);
  // A field as it mostly stands, one value of text, is read in place.
  if (const char* single = transaction->SingleValueText(name)) {
    const bool quote = !authorQuoted && transaction->GetType(name) == kStringFieldType;
    FormulaPlan::AppendLiteral(single, quote, out);
    return;
  }
  const Variant value = transaction->GetFieldValues(name, 0);
  const bool isString = transaction->GetType(name) == kStringFieldType;

  if (value.IsArray()) {
    // Element 0 is left out, and nothing is escaped here.
    if (isString) out.push_back('"');
    std::span<const Variant> values = value.ArrayValue().Elements();
    for (size_t i = 1; i < values.size(); ++i) {
      if (values[i].IsString()) {
        out.append(values[i].StringValue());
      } else {
        out.append(values[i].ToString());
      }
    }
    if (isString) out.push_back('"');
    return;
  }

  std::string converted;
  std::string_view text;
  if (value.IsString()) {
    text = value.StringValue();
  } else {
    converted = value.ToString();
    text = converted;
  }
  if (text.empty()) {
    out.append("\"\"");
    return;
  }
  FormulaPlan::AppendLiteral(text, isString && !authorQuoted, out);
}


// --- Code ----------------------------------------------------------------------------------

bool vbWrapper::CodeNeedsWrapper(std::string_view functionBody) const {
  return functionBody.find('\n') != std::string_view::npos;
}

void vbWrapper::AddCode(std::string& functionName, const std::string& code) {
  try {
    for (char& c : functionName) {
      if (c == ' ') c = '_';
    }
    AddCodeToEngine(CreateCodeWrapper(functionName, code));
  } catch (...) {
    ErrorInRethrow("vbWrapper.AddCode(sFunctionName, sCode)", {Variant(functionName), Variant(code)});
  }
}

void vbWrapper::AddCodeToEngine(const std::string& code) {
  try {
    RequireEngine().AddCode(code);
  } catch (...) {
    RethrowWithEngineDetails(engine_.get(), "vbWrapper.AddCodeToEngine(sCode)", {Variant(code)});
  }
}

namespace {

std::vector<std::string_view> SplitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t start = 0;
  while (true) {
    size_t lf = text.find('\n', start);
    if (lf == std::string_view::npos) {
      lines.push_back(text.substr(start));
      return lines;
    }
    lines.push_back(text.substr(start, lf - start));
    start = lf + 1;
  }
}

// Only blanks count: a carriage return keeps a line from being blank.
std::string_view TrimBlanks(std::string_view text) {
  size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  size_t last = text.find_last_not_of(' ');
  return text.substr(first, last - first + 1);
}

}  // namespace

bool vbWrapper::IsLineFunctionResult(const std::vector<std::string_view>& lines, size_t linePos, size_t arraySize) {
  for (size_t l = linePos;; ++l) {
    if (l >= arraySize) return true;
    bool restBlank = true;
    for (size_t k = l + 1; k <= arraySize && restBlank; ++k) restBlank = TrimBlanks(lines[k]).empty();
    if (restBlank) return true;
    std::string_view line = TrimBlanks(lines[l]);
    if (line.size() < 2 || line.substr(line.size() - 2) != " _") return false;
  }
}

std::string vbWrapper::CreateCodeWrapper(const std::string& functionName, const std::string& functionBody) const {
  std::vector<std::string_view> lines = SplitLines(functionBody);
  const size_t last = lines.size() - 1;
  std::string wrapped;
  wrapped.reserve(functionBody.size() + 2 * functionName.size() + 48);
  wrapped.append("Function ").append(functionName).append("()\r\n").append("\r\n");
  bool resultFound = false;
  for (size_t i = 0; i <= last; ++i) {
    if (!resultFound && IsLineFunctionResult(lines, i, last)) {
      resultFound = true;
      wrapped.append(functionName).append(" = ");
    }
    wrapped.append(lines[i]).append("\r\n");
  }
  wrapped.append("End Function\r\n").append("\r\n");
  return wrapped;
}

void vbWrapper::ExposeDataObjects(const std::string& name, Ref<Object> object, bool addMembers) {
  try {
    RequireEngine().AddObject(name, std::move(object), addMembers);
  } catch (...) {
    ErrorInRethrow("vbWrapper.ExposeDataObjects(sName, oObject, bAddMembers)",
                   {Variant(name), Variant(), Variant(addMembers)});
  }
}

void vbWrapper::CloseWrapper() {
  // The plans go before the engine whose names they hold; the engine goes
  // before the library object, which it holds too.
  plans_.clear();
  try {
    engine_.reset();
  } catch (...) {
  }
  functions_ = nullptr;
}

void vbWrapper::WriteVerboseValue(std::string_view label, const Variant& value) {
  // A value without text (Null, an array, an object) logs as empty text.
  std::string text;
  try {
    if (!value.IsNull()) text = value.ToString();
  } catch (...) {
  }
  WriteVerboseLog(label, text);
}

void vbWrapper::WriteVerboseLog(std::string_view label, std::string_view text) {
  try {
    std::string line = NowText();
    line.push_back('\t');
    line.append(label).push_back('\t');
    line.append(text).append("\r\n");
    logFileSystem_->WriteToFile(logHandle_, line);
    // The log is read when something went wrong: each line reaches the file
    // at once, not when the transform ends.
    logFileSystem_->FlushFile(logHandle_);
  } catch (...) {
    // The log is a diagnostic aid: a failure in it must not touch the
    // evaluation, nor the error record.
  }
}

}  // namespace tessel
