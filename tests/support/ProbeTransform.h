// ProbeTransform: a transform for tests of the job spine. What it does is told
// by its options:
//   records = N   adds N records of the definition's first top record
//   mark          appends its id to the "marks" attribute of the DATA root
//   fail = NUMBER raises that error number from Process
//   failcreate    raises 10599 from CreateController
//   process = N  reports N processed records of type R
//   sql = TEXT    runs the statement on the job database
// Every run is written to the shared ProbeJournal: the transform id, the data
// document it worked on and the marks it found on arrival.
#pragma once

#include "store/XMLWrapper.h"
#include <memory>
#include <string>
#include <vector>

#include "audit/IEvent.h"
#include "job/ITransformController.h"
#include "job/TransformTypeTable.h"

namespace tessel::test {

struct ProbeRun {
  std::string transformId;
  const void* document = nullptr;  // identity of the data document
  std::string marksOnArrival;
  bool hadPreviousDefinition = false;
  bool instancedFolderHadCopy = false;  // the run's folder held a branch copy
};

struct ProbeJournal {
  std::vector<ProbeRun> runs;
  std::vector<std::string> Ids() const;
};

class ProbeTransform : public ITransformController {
 public:
  explicit ProbeTransform(std::shared_ptr<ProbeJournal> journal) : journal_(std::move(journal)) {}

  Ref<XMLWrapper> TransformedData() override;
  std::shared_ptr<tessel::TransformDefinition> TransformDefinition() override;
  std::shared_ptr<tessel::TransactionFactory> TransactionFactory() override;
  void CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                        std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) override;
  void Process() override;

 private:
  std::shared_ptr<ProbeJournal> journal_;
  std::shared_ptr<tessel::TransactionFactory> factory_;
  IEvent* event_ = nullptr;
  bool hadPrevious_ = false;
};

// The standard table with ProbeTransform registered as `type` (and as 1, the
// read type, so that the no-data test applies to it).
TransformTypeTable ProbeTypes(const std::shared_ptr<ProbeJournal>& journal);

inline constexpr int kProbeType = 999;

}  // namespace tessel::test
