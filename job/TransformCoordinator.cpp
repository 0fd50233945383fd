#include "job/TransformCoordinator.h"

#include <charconv>
#include <filesystem>

#include "audit/AuditLogDefinition.h"
#include "audit/AuditLogger.h"
#include "audit/HuntErr.h"
#include "core/BooleanText.h"
#include "core/Error.h"
#include "core/TimeText.h"
#include "db/Connection.h"
#include "job/ITransformController.h"
#include "job/PropertyBagHelper.h"
#include "job/RunProgress.h"
#include "job/Session.h"
#include "job/TesselSession.h"
#include "job/TransformDefinition.h"
#include "store/TransactionFactory.h"
#include "store/TransactionSelector.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {
constexpr int32_t kErrTerminated = 10500;
constexpr int32_t kErrNotInitialised = 10502;
constexpr int32_t kErrNoDataCache = 10504;
constexpr int32_t kErrUnknownType = 10505;
constexpr int32_t kErrWorkflowUnavailable = 10506;
constexpr int32_t kErrCancelled = 10511;
constexpr int32_t kErrInvalidSession = 7002;
constexpr int32_t kErrFileNotFound = 7705;

constexpr int kEventJobStart = 1;
constexpr int kEventJobComplete = 2;
constexpr int kEventJobAborted = 3;
constexpr int kEventNoInput = 4;
constexpr int kEventTransformStarted = 1;
constexpr int kEventTransformComplete = 2;

// Transforms that report no summary at their end.
bool HasNoSummary(int type) {
  switch (type) {
    case 12: case 51: case 52: case 54: case 55: case 56: case 57: case 90: case 100: case 101: case 102:
      return true;
    default:
      return false;
  }
}

// A whole number of at most 16 bits with optional blanks around it.
bool ParseSmallInteger(std::string_view text, int16_t& value) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return ec == std::errc() && end == text.data() + text.size() && !text.empty();
}

}  // namespace

TransformCoordinator::TransformCoordinator(TransformTypeTable types) : types_(std::move(types)) {}

TransformCoordinator::~TransformCoordinator() {
  try {
    CleanJobData();
  } catch (...) {
  }
  jobConfig_.reset();
  event_ = nullptr;
  auditLogger_.reset();
  if (session_ != nullptr && session_ == CurrentSession()) {
    try {
      session_->ReleaseLock();
    } catch (...) {
    }
  }
}

std::unique_ptr<TesselSession> TransformCoordinator::CreateSession() { return std::make_unique<TesselSession>(); }

void TransformCoordinator::Initialise(const std::string& sessionId) {
  try {
    Session* session = CurrentSession();
    Check(session != nullptr, kErrInvalidSession, "Session [%1] is not valid.", {Variant(sessionId)});
    session->CheckSession(sessionId);
    session_ = session;
    instancedFolder_ = GetInstancedFolder();
    dataServiceMode_ = session->DataServiceMode();
    jobConfig_ = session->JobConfig();
    auditLogger_ = session->AuditLoggerPtr();
    event_ = auditLogger_.get();
    auditLogger_->SetProgress(progress_);
    SetOptions();
    LogJobEvent(kEventJobStart, 0);
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.Initialise(sSessionId)", {Variant(sessionId)});
  }
}

void TransformCoordinator::SetOptions() {
  try {
    PropertyBagHelper bag(*jobConfig_);
    jobId_ = bag.Property("id");
    auto action = [&](const char* key, const char* missingMessage) -> int16_t {
      int16_t value = 0;
      if (bag.HasProperty(key) && ParseSmallInteger(bag.Property(key), value)) return value;
      LogAuditEntry(-1, missingMessage, "");
      return 1;
    };
    transformErrorAction_ = action("actiontransformerror",
                                   "Transform Error Property Condition not found. Setting to abort tranform on error.");
    transformFailAction_ = action("actiontransformfail",
                                  "Transform Failure property not found. Setting to abort job on transform failure.");
    auditReportMode_ = action("sendauditreport", "Audit Report Send property not found. Setting to send audit report.");
    auditReportAlways_ = auditReportMode_ == 1;
    auto flag = [&](const char* key) {
      if (!bag.HasProperty(key)) return true;
      std::string text = bag.Property(key);
      return text.empty() ? true : BooleanText::Parse(text);
    };
    continueNoData_ = flag("continuenodata");
    writeDebug_ = flag("writedebug");
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.SetOptions()", {});
  }
}

bool TransformCoordinator::CanRunTransform(const std::string& parentTransform) {
  return std::filesystem::exists(GenerateXMLDebugOutput(true, parentTransform)) &&
         std::filesystem::exists(GenerateXMLDebugOutput(false, parentTransform));
}

bool TransformCoordinator::ReportDue(bool aborted) const {
  switch (auditReportMode_) {
    case 1: return true;
    case 4: return false;
    case 2: return aborted || (!noInputData_ && ranDataTransform_);
    default: return aborted;
  }
}

void TransformCoordinator::Process() {
  try {
    Check(jobConfig_ != nullptr, kErrNotInitialised,
          "Transform Coordinator is not initialised. Call Initialise to initialise the process prior to calling Process.");
    auditReportSent_ = false;
    lastData_.reset();
    try {
      Controller previous;
      RunTransformStream("", previous);
      if (previous) lastData_ = previous->TransformedData();
      LogJobEvent(kEventJobComplete, 0);
      if (ReportDue(false)) {
        auditLogger_->GenerateAuditReports();
        auditReportSent_ = true;
      }
      LogJobEndSuccess();
    } catch (...) {
      Error error = CurrentError();
      LogJobEvent(kEventJobAborted, error.number());
      if (ReportDue(true)) {
        try {
          auditLogger_->GenerateAuditReports();
          auditReportSent_ = true;
        } catch (...) {
          // The job's own failure is what the host must hear of.
        }
      }
      throw;
    }
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.Process()", {});
  }
}

template <class Step>
void TransformCoordinator::WalkStep(Step&& step) {
  try {
    failureLogged_ = false;
    step();
  } catch (...) {
    if (transformFailAction_ != 2) throw;
    // Passed over: the walk goes on at the next step. Failures of transforms
    // are in the log already; those of the walk itself are logged here.
    if (!failureLogged_) {
      Error error = CurrentError();
      LogAuditEntry(error.number(), ShortDescription(error), "");
    }
    failureLogged_ = false;
  }
}

void TransformCoordinator::RunTransformStream(const std::string& parentTransform, Controller& previous) {
  try {
    std::string currentId = parentTransform;
    std::shared_ptr<TransformDefinition> definition;
    Ref<XMLWrapper> data;
    bool stop = false;
    while (!stop && HasNextTransform(currentId)) {
      if (previous) {
        definition = previous->TransformDefinition();
        data = previous->TransformedData();
        previous.reset();
      }
      std::vector<xmlNodePtr> nodes = GetNextTransform(currentId);
      if (nodes.size() == 1) {
        currentId = TransactionID(nodes.front());
        WalkStep([&] {
          previous = definition ? RunTransform(nodes.front(), currentId, definition, data)
                                : RunTransform(nodes.front(), currentId, nullptr, nullptr);
        });
        NoDataTest(previous, stop);
        continue;
      }

      // The tree branches here: every child runs on its own copy of the data.
      if (data) {
        WalkStep([&] { PersistData(currentId, *data); });
        data.reset();
      }
      for (size_t i = 0; i < nodes.size(); ++i) {
        xmlNodePtr chosen = nullptr;
        WalkStep([&] {
          for (xmlNodePtr node : nodes) {
            int32_t priority = Variant(jobConfig_->GetAttributeFromNode(node, "priority")).ToLong();
            if (priority == static_cast<int32_t>(i + 1)) {
              chosen = node;
              break;
            }
          }
        });
        if (chosen == nullptr) continue;
        std::string childId = TransactionID(chosen);
        previous.reset();
        if (!definition) {
          WalkStep([&] { previous = RunTransform(chosen, childId, nullptr, nullptr); });
        } else {
          std::shared_ptr<TransformDefinition> childDefinition;
          Ref<XMLWrapper> childData;
          WalkStep([&] {
            childDefinition = definition->Clone();
            childData = RetrieveDataCopy(definition->TransformId());
          });
          if (childData) WalkStep([&] { previous = RunTransform(chosen, childId, childDefinition, childData); });
        }
        if (NoDataTest(previous, stop)) continue;
        RunTransformStream(childId, previous);
      }
      stop = true;
    }
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.RunTransformStream(sParentTransform, oPrevious)", {Variant(parentTransform)});
  }
}

bool TransformCoordinator::NoDataTest(const Controller& previous, bool& stop) {
  try {
    // Without a controller (a failed transform) the type cannot be read, so
    // the test applies, and the count cannot be taken, so it counts as 0.
    if (previous && previous->TransformDefinition()->TransformType() != 1) return false;
    if (continueNoData_ && auditReportAlways_) return false;
    long count = previous ? TransactionCount(previous) : 0;
    if (count != 0) return false;
    if (!continueNoData_) {
      stop = true;
      LogJobEvent(kEventNoInput, 0);
    }
    noInputData_ = true;
    return true;
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.NoDataTest(oPrevious)", {});
  }
}

long TransformCoordinator::TransactionCount(const Controller& controller) {
  try {
    std::shared_ptr<TransformDefinition> definition = controller->TransformDefinition();
    std::vector<xmlNodePtr> tops = definition->RecordDescendents("");
    if (tops.empty()) return 0;
    std::string topId = definition->RecordId(tops.front());
    Ref<TransactionSelector> selector = controller->TransactionFactory()->CreateTransactionSelector();
    selector->SetReturnTransaction(topId);
    selector->AddSearch(topId, "*");
    selector->OpenResultset();
    selector->MoveFirst();
    return static_cast<long>(selector->Count());
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.TransactionCount(oController)", {});
  }
}

std::shared_ptr<TransformDefinition> TransformCoordinator::MakeTransformDefinition(xmlNodePtr node) {
  try {
    XMLWrapper source;
    source.LoadXML(XMLWrapper::NodeXml(node));
    return std::make_shared<TransformDefinition>(source.CopyNodeIntoNewWrapper("/"));
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.TransformDefinition(nodTransform)", {});
  }
}

TransformCoordinator::Controller TransformCoordinator::RunTransform(
    xmlNodePtr node, const std::string& transformId, const std::shared_ptr<TransformDefinition>& previousDefinition,
    const Ref<XMLWrapper>& previousData) {
  std::string definitionId = transformId;
  try {
    return RunTransformSteps(node, transformId, previousDefinition, previousData, definitionId);
  } catch (...) {
    Error error = CurrentError();
    if (progress_ != nullptr) {
      progress_->TransformFinished(transformId, true, ShortDescription(error), auditLogger_->Tally(transformId));
    }
    LogAuditEntry(error.number(),
                  BuildCheckMessage("Error occurred whilst processing transform [%1].||%2",
                                {Variant(transformId), Variant(error.description())}),
                  transformId);
    if (error.number() == kErrCancelled) return nullptr;
    failureLogged_ = true;
    LogAuditEntry(kErrTerminated, BuildCheckMessage("Transformation [%1] has terminated.", {Variant(definitionId)}),
                  transformId);
    ErrorInRethrow("TransformCoordinator.RunTransform(nodTransform, sTransformId, oPreviousDefinition, oPreviousData)",
            {Variant(transformId)});
  }
}

TransformCoordinator::Controller TransformCoordinator::RunTransformSteps(
    xmlNodePtr node, const std::string& transformId, const std::shared_ptr<TransformDefinition>& previousDefinition,
    const Ref<XMLWrapper>& previousData, std::string& definitionId) {
  std::shared_ptr<TransformDefinition> definition = MakeTransformDefinition(node);
  definitionId = definition->TransformId();
  auto auditDefinition = std::make_shared<AuditLogDefinition>();
  auditDefinition->SetTransformId(transformId);
  auditDefinition->SetOptions(*definition);

  const int type = definition->TransformType();
  if (type < 100) ranDataTransform_ = true;
  auditDefinition->InitialiseRecordCache(*definition);
  auditLogger_->AddAuditLogDefinition(auditDefinition);
  definition->GetAuditLogDefinition().SetTransformErrorActionIfNone(transformErrorAction_);

  Controller controller = types_.Create(type, transformId);
  if (auditDefinition->LogStart()) LogTransformEvent(transformId, kEventTransformStarted);

  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(definition);
  if (previousData) factory->SetData(previousData);

  Check(!definition->SupportsWorkflow(), kErrWorkflowUnavailable,
        "Transform [%1] asks for workflow capture, which this engine does not provide.", {Variant(transformId)});
  Check(controller != nullptr, kErrUnknownType,
        "Transform [%1] could not be created: the transform type [%2] is unknown.",
        {Variant(transformId), Variant(static_cast<int32_t>(type))});

  if (progress_ != nullptr) progress_->TransformStarting(transformId, type);
  controller->CreateController(previousDefinition, *event_, factory, session_->TestMode());
  event_->FlagTransformDefReady(transformId, false);
  controller->Process();
  if (dataServiceMode_) event_->OnComplete(transformId);
  if (auditDefinition->LogEnd()) LogTransformEvent(transformId, kEventTransformComplete);
  if (!HasNoSummary(type)) auditLogger_->AddTransformSummaries(transformId, controller->TransactionFactory());
  if (writeDebug_) OutputTransform(*controller, transformId);
  if (progress_ != nullptr) {
    progress_->TransformFinished(transformId, false, std::string(), auditLogger_->Tally(transformId));
  }
  return controller;
}

void TransformCoordinator::OutputTransform(ITransformController& controller, const std::string& transformId) {
  try {
    Ref<XMLWrapper> data = controller.TransformedData();
    if (data) data->SaveDocument(GenerateXMLDebugOutput(true, transformId));
    controller.TransformDefinition()->TransformDefinitionXWrapper()->SaveDocument(
        GenerateXMLDebugOutput(false, transformId));
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.OutputTransform(oController, sTransformId)", {Variant(transformId)});
  }
}

std::string TransformCoordinator::TransactionID(xmlNodePtr node) {
  try {
    return jobConfig_->GetAttributeFromNode(node, "id");
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.TransactionID(nodTransform)", {});
  }
}

xmlNodePtr TransformCoordinator::TransformsNode() {
  try {
    if (transformsNode_ == nullptr) transformsNode_ = jobConfig_->GetNodeFromXPath("/MAPPING/TRANSFORMS");
    return transformsNode_;
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.TransformsNode()", {});
  }
}

std::vector<xmlNodePtr> TransformCoordinator::TransformEntryPoints() { return GetNextTransform(""); }

std::vector<xmlNodePtr> TransformCoordinator::GetNextTransform(const std::string& parentId) {
  try {
    return jobConfig_->GetNodesFromXPath("TRANSFORM[@parentid='" + parentId + "']", TransformsNode());
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.GetNextTransform(sParentID)", {Variant(parentId)});
  }
}

bool TransformCoordinator::HasNextTransform(const std::string& parentId) { return !GetNextTransform(parentId).empty(); }

std::string TransformCoordinator::PreviousTransformId(const std::string& transformId) {
  try {
    xmlNodePtr node = jobConfig_->GetNodeFromXPath("TRANSFORM[@id='" + transformId + "']", TransformsNode());
    return jobConfig_->GetAttributeFromNode(node, "parentid");
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.PreviousTransformId(sTransformId)", {Variant(transformId)});
  }
}

void TransformCoordinator::LogJobEvent(int event, int32_t reasonCode) {
  IntegrationLogEntry entry;
  entry.JobId = jobId_;
  entry.Source = "TransformCoordinator";
  entry.ReasonCode = std::to_string(reasonCode);
  switch (event) {
    case kEventJobStart:
      entry.Reason = "Starting job.";
      entry.LogType = kLogTypeJobStart;
      break;
    case kEventJobComplete:
      entry.Reason = "Job completed successfully.";
      entry.LogType = kLogTypeJobEnd;
      break;
    case kEventJobAborted:
      entry.Reason = BuildCheckMessage("Job [%1] has aborted due to a transform failure.", {Variant(jobId_)});
      entry.LogType = kLogTypeJobEnd;
      break;
    default:
      entry.Reason = BuildCheckMessage("No input data to start job. Job will terminate.%1",
                                   {Variant(auditReportAlways_ ? "" : " No audit report will be sent.")});
      entry.LogType = kLogTypeJobEnd;
      break;
  }
  event_->WriteSingleAuditMessage(std::move(entry));
}

void TransformCoordinator::LogTransformEvent(const std::string& transformId, int event) {
  IntegrationLogEntry entry;
  entry.Reason = BuildCheckMessage(event == kEventTransformStarted ? "Transform Started [%1]" : "Transform Complete [%1]",
                               {Variant(transformId)});
  entry.ReasonCode = "-1";
  entry.TransformId = transformId;
  auditLogger_->LogAuditMessage(std::move(entry));
}

void TransformCoordinator::LogAuditEntry(int32_t number, const std::string& description,
                                         const std::string& transformId) {
  IntegrationLogEntry entry;
  entry.ReasonCode = std::to_string(number);
  entry.Reason = description;
  entry.TransformId = transformId;
  event_->WriteSingleAuditMessage(std::move(entry));
}

void TransformCoordinator::LogJobEndSuccess() {
  try {
    std::unique_ptr<db::Connection> link = session_->GetDatabaseLink();
    link->Execute("UPDATE JOBDETAIL SET LASTRUNDATE = ? WHERE JOBID = ?",
                  {TimeText::DateAndTime(), jobId_});
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.LogJobEndSuccess()", {});
  }
}

std::string TransformCoordinator::GetInstancedFolder() const {
  return (std::filesystem::path(session_->DebugPath()) /
          (session_->JobId() + "-" + std::to_string(session_->JobInstance())))
      .string();
}

std::string TransformCoordinator::CreateInstancedCacheFolder(bool createData, const std::string& transformId) {
  std::filesystem::path folder = GetInstancedFolder();
  std::filesystem::create_directories(folder);
  return (folder / ((createData ? "Data" : "MetaData") + transformId + ".xml")).string();
}

std::string TransformCoordinator::GenerateXMLDebugOutput(bool createData, const std::string& transformId) const {
  return (std::filesystem::path(session_->DebugPath()) /
          ((createData ? "Data" : "MetaData") + jobId_ + "-" + transformId + ".xml"))
      .string();
}

void TransformCoordinator::PersistData(const std::string& transformId, XMLWrapper& data) {
  try {
    data.SaveDocument(CreateInstancedCacheFolder(true, transformId));
    dataCacheOnDisk_[transformId] = true;
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.PersistData(sTfmId, oData)", {Variant(transformId)});
  }
}

Ref<XMLWrapper> TransformCoordinator::RetrieveDataCopy(const std::string& transformId) {
  try {
    Check(dataCacheOnDisk_.count(transformId) != 0, kErrNoDataCache, "The data cache for transform [%1] does not exist.",
          {Variant(transformId)});
    auto copy = MakeRef<XMLWrapper>();
    try {
      copy->OpenXMLDocument(CreateInstancedCacheFolder(true, transformId));
    } catch (const Error& error) {
      Check(error.number() != kErrFileNotFound, kErrFileNotFound,
            "The cached data file for transform [%1] could not be loaded.", {Variant(transformId)});
      throw;
    }
    return copy;
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.RetrieveDataCopy(sTfmId)", {Variant(transformId)});
  }
}

void TransformCoordinator::CleanJobData() {
  // The session may be closed by now (a host drops it before the
  // coordinator), so the folder is the one noted when the run began.
  if (instancedFolder_.empty()) return;
  std::error_code ec;
  std::filesystem::remove_all(instancedFolder_, ec);
}

}  // namespace tessel
