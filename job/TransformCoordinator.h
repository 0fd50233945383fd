// TransformCoordinator: runs a job, the tree of TRANSFORM elements of its job
// document.
//
// A host makes the coordinator, calls CreateSession and InitialiseSession on
// the returned TesselSession, then Initialise with the session id, then
// Process. The walk starts at the transforms with an empty parentid. A chain
// of transforms shares one data document; where the tree branches the
// document goes once to a file in the run's folder and every child, in
// priority order, runs on its own copy read back from it.
//
// The coordinator owns the controllers for as long as their data is needed and
// borrows the session, its logger and the job document. Dropping it deletes
// the run's folder and frees the job's concurrency slot; debug files stay.
#pragma once

#include "store/XMLWrapper.h"
#include <libxml/tree.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "job/TransformTypeTable.h"

namespace tessel {

class AuditLogger;
class IEvent;
class ITransformController;
class RunProgress;
class Session;
class TesselSession;
class TransformDefinition;


class TransformCoordinator {
 public:
  explicit TransformCoordinator(TransformTypeTable types = TransformTypeTable::Standard());
  ~TransformCoordinator();
  TransformCoordinator(const TransformCoordinator&) = delete;
  TransformCoordinator& operator=(const TransformCoordinator&) = delete;

  std::unique_ptr<TesselSession> CreateSession();
  // Binds to the thread's session; 7002 for another session's id.
  void Initialise(const std::string& sessionId);
  // True when both debug files of the transform exist.
  bool CanRunTransform(const std::string& parentTransform);
  // Runs the job; 10502 before Initialise. A failure is logged and raised.
  void Process();

  // Optional watcher of the run; borrowed, must outlive the run. Set it before Initialise.
  void SetProgress(RunProgress* progress) { progress_ = progress; }

  const std::string& JobId() const { return jobId_; }
  int16_t TransformErrorAction() const { return transformErrorAction_; }
  int16_t TransformFailAction() const { return transformFailAction_; }
  int16_t AuditReportMode() const { return auditReportMode_; }
  bool ContinueNoData() const { return continueNoData_; }
  bool WriteDebug() const { return writeDebug_; }
  bool NoInputData() const { return noInputData_; }
  // Whether the audit report went out at the end of the last Process.
  bool AuditReportSent() const { return auditReportSent_; }

  // File of a transform's data ("Data...") or definition ("MetaData...") in the debug folder.
  std::string GenerateXMLDebugOutput(bool createData, const std::string& transformId) const;
  // The run's own folder under the debug folder: <job>-<instance>.
  std::string GetInstancedFolder() const;

 private:
  using Controller = std::shared_ptr<ITransformController>;

  void SetOptions();
  void RunTransformStream(const std::string& parentTransform, Controller& previous);
  Controller RunTransform(xmlNodePtr node, const std::string& transformId,
                          const std::shared_ptr<TransformDefinition>& previousDefinition,
                          const Ref<XMLWrapper>& previousData);
  Controller RunTransformSteps(xmlNodePtr node, const std::string& transformId,
                               const std::shared_ptr<TransformDefinition>& previousDefinition,
                               const Ref<XMLWrapper>& previousData, std::string& definitionId);
  // Runs one step of the walk; under fail action 2 a failure is passed over.
  template <class Step>
  void WalkStep(Step&& step);
  // The no-data test after a transform has run; true when it found no data.
  bool NoDataTest(const Controller& previous, bool& stop);
  long TransactionCount(const Controller& controller);
  void OutputTransform(ITransformController& controller, const std::string& transformId);
  std::shared_ptr<TransformDefinition> MakeTransformDefinition(xmlNodePtr node);

  std::string TransactionID(xmlNodePtr node);
  std::vector<xmlNodePtr> TransformEntryPoints();
  std::vector<xmlNodePtr> GetNextTransform(const std::string& parentId);
  bool HasNextTransform(const std::string& parentId);
  std::string PreviousTransformId(const std::string& transformId);
  xmlNodePtr TransformsNode();

  void LogJobEvent(int event, int32_t reasonCode);
  void LogTransformEvent(const std::string& transformId, int event);
  void LogAuditEntry(int32_t number, const std::string& description, const std::string& transformId);
  void LogJobEndSuccess();
  bool ReportDue(bool aborted) const;

  void PersistData(const std::string& transformId, XMLWrapper& data);
  Ref<XMLWrapper> RetrieveDataCopy(const std::string& transformId);
  void CleanJobData();
  std::string CreateInstancedCacheFolder(bool createData, const std::string& transformId);

  TransformTypeTable types_;
  Session* session_ = nullptr;
  std::string instancedFolder_;  // the run's folder in DEBUGPATH, noted at Initialise
  bool dataServiceMode_ = false;
  Ref<XMLWrapper> jobConfig_;
  std::shared_ptr<AuditLogger> auditLogger_;
  IEvent* event_ = nullptr;
  RunProgress* progress_ = nullptr;

  std::string jobId_;
  int16_t transformErrorAction_ = 1;
  int16_t transformFailAction_ = 1;
  int16_t auditReportMode_ = 1;
  bool auditReportAlways_ = true;
  bool continueNoData_ = true;
  bool writeDebug_ = true;
  bool noInputData_ = false;
  bool ranDataTransform_ = false;
  bool auditReportSent_ = false;
  bool failureLogged_ = false;  // the failure in flight was logged where it happened
  std::map<std::string, bool> dataCacheOnDisk_;
  xmlNodePtr transformsNode_ = nullptr;
  // The data of the last transform of the last Process, kept to the next
  // Process or the end of the coordinator: freeing its nodes one at a time is
  // much of the cost of a large run, and a process that ends with the run
  // need not pay it (the command line leaves without destroying this).
  Ref<XMLWrapper> lastData_;
};

}  // namespace tessel
