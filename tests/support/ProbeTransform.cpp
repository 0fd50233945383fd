#include "tests/support/ProbeTransform.h"

#include <filesystem>

#include "core/Error.h"
#include "db/Connection.h"
#include "job/Session.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

namespace tessel::test {

std::vector<std::string> ProbeJournal::Ids() const {
  std::vector<std::string> ids;
  for (const ProbeRun& run : runs) ids.push_back(run.transformId);
  return ids;
}

Ref<XMLWrapper> ProbeTransform::TransformedData() { return factory_->Data(); }
std::shared_ptr<tessel::TransformDefinition> ProbeTransform::TransformDefinition() {
  return factory_->TransformDefinition();
}
std::shared_ptr<tessel::TransactionFactory> ProbeTransform::TransactionFactory() { return factory_; }

void ProbeTransform::CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                                      std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) {
  factory_ = std::move(factory);
  event_ = &event;
  hadPrevious_ = previous != nullptr;
  if (factory_->TransformDefinition()->HasProperty("failcreate")) throw Error(10599, "probe could not configure");
}

void ProbeTransform::Process() {
  tessel::TransformDefinition& definition = *factory_->TransformDefinition();
  XMLWrapper& data = *factory_->Data();
  xmlNodePtr root = data.GetNodeFromXPath("/DATA");

  ProbeRun run;
  run.transformId = definition.TransformId();
  run.document = &data;
  run.hadPreviousDefinition = hadPrevious_;
  xmlChar* marks = xmlGetProp(root, BAD_CAST "marks");
  run.marksOnArrival = marks ? reinterpret_cast<const char*>(marks) : "";
  xmlFree(marks);
  if (Session* session = CurrentSession()) {
    std::filesystem::path folder =
        std::filesystem::path(session->DebugPath()) / (session->JobId() + "-" + std::to_string(session->JobInstance()));
    run.instancedFolderHadCopy = std::filesystem::exists(folder) && !std::filesystem::is_empty(folder);
  }
  journal_->runs.push_back(run);

  if (definition.HasProperty("sql")) {
    CurrentSession()->GetDatabaseLink()->Execute(definition.Property("sql").ToString());
  }
  if (definition.HasProperty("mark")) {
    std::string updated = run.marksOnArrival + run.transformId + ";";
    xmlSetProp(root, BAD_CAST "marks", BAD_CAST updated.c_str());
  }
  if (definition.HasProperty("records")) {
    int count = std::stoi(definition.Property("records").ToString());
    std::string top = definition.RecordId(definition.RecordDescendents("").front());
    Ref<TransactionContext> context = data.CreateContext();
    for (int i = 0; i < count; ++i) {
      factory_->SetContextToTopDataNode(*context);
      Ref<Transaction> record = factory_->CreateTransaction(top);
      factory_->AddTransaction(*record, *context);
    }
  }
  if (definition.HasProperty("process")) {
    int count = std::stoi(definition.Property("process").ToString());
    std::string tranId = "R";
    for (int i = 0; i < count; ++i) event_->OnProcess(run.transformId, nullptr, tranId);
  }
  if (definition.HasProperty("fail")) {
    throw Error(std::stoi(definition.Property("fail").ToString()), "probe failure in " + run.transformId);
  }
}

TransformTypeTable ProbeTypes(const std::shared_ptr<ProbeJournal>& journal) {
  TransformTypeTable table = TransformTypeTable::Standard();
  auto maker = [journal] { return std::make_shared<ProbeTransform>(journal); };
  table.Register(kProbeType, "ProbeTransform", maker);
  table.Register(1, "ProbeTransform", maker);
  return table;
}

}  // namespace tessel::test
