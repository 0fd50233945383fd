#include "tests/support/ProbeTransform.h"

#include <filesystem>

#include "core/Error.h"
#include "db/Connection.h"
#include "job/Session.h"
#include "job/TransformDefinition.h"
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
    xmlNodePtr container = nullptr;
    for (xmlNodePtr child = root->children; child; child = child->next) {
      if (child->type == XML_ELEMENT_NODE && xmlStrEqual(child->name, BAD_CAST "RECORDS")) container = child;
    }
    if (container == nullptr) {
      container = xmlNewChild(root, nullptr, BAD_CAST "RECORDS", nullptr);
      xmlSetProp(container, BAD_CAST "id", BAD_CAST top.c_str());
    }
    // Records as the store makes them: one FIELD each (the default record type
    // has the field F), since the top record count only sees records with content.
    for (int i = 0; i < count; ++i) {
      xmlNodePtr record = xmlNewChild(container, nullptr, BAD_CAST "RECORD", nullptr);
      xmlNodePtr field = xmlNewChild(record, nullptr, BAD_CAST "FIELD", nullptr);
      xmlSetProp(field, BAD_CAST "name", BAD_CAST "F");
      xmlNewChild(field, nullptr, BAD_CAST "VALUES", nullptr);
    }
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
