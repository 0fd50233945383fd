// Shared set-up of the data transform tests: definitions and factories built
// from RECORD lists, an event sink that keeps what it is told, and whole job
// runs through the coordinator (CSV read, data transforms, CSV write) in a
// JobEnvironment.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/CatchError.h"
#include "audit/IEvent.h"
#include "core/Error.h"
#include "job/TesselSession.h"
#include "job/TransformCoordinator.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"
#include "tests/support/JobEnvironment.h"

namespace tessel::test {

using OptionMap = std::map<std::string, std::string>;

// Keeps the events of a run.
class RecordingEvent : public IEvent {
 public:
  std::vector<std::string> processed;  // record ids, in order
  std::vector<std::string> deleted;    // record id and first field value
  std::vector<IntegrationLogEntry> errors;
  std::vector<IntegrationLogEntry> messages;  // single audit messages
  void SetDataFile(const std::string&, bool) override {}
  void FlagTransformDefReady(const std::string&, bool) override {}
  void OnError(const std::string&, LogEntries& entries, Transaction*) override {
    errors.insert(errors.end(), entries.begin(), entries.end());
  }
  void OnWarning(const std::string&, LogEntries&, Transaction*) override {}
  void OnProcess(const std::string&, Transaction* transaction, std::string&) override {
    processed.push_back(transaction->TransactionId());
  }
  void OnInsert(const std::string&, Transaction*, std::string&) override {}
  void OnUpdate(const std::string&, Transaction*, std::string&) override {}
  void OnDelete(const std::string&, Transaction* transaction, std::string&) override {
    deleted.push_back(transaction->TransactionId() + ":" + transaction->GetFieldValues(transaction->FieldName(1)).ToString());
  }
  void OnComplete(const std::string&) override {}
  int64_t GetEventCount(const std::string&, const std::string&, const std::string&) override { return 0; }
  void WriteAuditLogNoTransaction(const std::string&, LogEntries& entries, Transaction*, bool) override {
    errors.insert(errors.end(), entries.begin(), entries.end());
  }
  void WriteSingleAuditMessage(IntegrationLogEntry entry) override { messages.push_back(std::move(entry)); }
};

inline std::string OptionsXml(const OptionMap& options) {
  std::string xml = "<OPTIONS>";
  for (const auto& [name, value] : options) xml += "<OPTION name=\"" + name + "\" value=\"" + value + "\"/>";
  return xml + "</OPTIONS>";
}

// A TRANSFORM element with options, an AUDIT node and records.
inline std::string TransformXml(const std::string& id, int type, const OptionMap& options, const std::string& records,
                                OptionMap audit = {}) {
  audit.emplace("rptwarnings", "True");
  return "<TRANSFORM id=\"" + id + "\" parentid=\"\" type=\"" + std::to_string(type) + "\">" + OptionsXml(options) +
         "<TRANSFORMDETAIL><RECORDS>" + records + "</RECORDS></TRANSFORMDETAIL><AUDIT>" + OptionsXml(audit) +
         "</AUDIT></TRANSFORM>";
}

inline std::shared_ptr<TransformDefinition> DefinitionOf(const std::string& xml) {
  auto wrapper = MakeRef<XMLWrapper>();
  wrapper->LoadXML(xml);
  return std::make_shared<TransformDefinition>(wrapper);
}

inline std::shared_ptr<TransactionFactory> FactoryOf(std::shared_ptr<TransformDefinition> definition,
                                                     Ref<XMLWrapper> data = {}) {
  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(std::move(definition));
  if (data) factory->SetData(std::move(data));
  return factory;
}

// Adds a record of `id` under the context with the field values given in
// field order of `names`; returns it.
inline Ref<Transaction> AddRecord(TransactionFactory& factory, TransactionContext& context, const std::string& id,
                                  const std::vector<std::pair<std::string, std::string>>& values) {
  Ref<Transaction> record = factory.CreateTransaction(id);
  for (const auto& [name, value] : values) record->SetFieldValue(name, Variant(value));
  factory.AddTransaction(*record, context);
  return record;
}

inline Ref<TransactionContext> TopOf(TransactionFactory& factory) {
  Ref<TransactionContext> context = factory.Data()->CreateContext();
  factory.SetContextToTopDataNode(*context);
  return context;
}

inline std::vector<std::string> Texts(XMLWrapper& doc, const std::string& xpath) {
  std::vector<std::string> out;
  for (xmlNodePtr node : doc.GetNodesFromXPath(xpath)) out.push_back(XMLWrapper::NodeText(node));
  return out;
}


// Whole jobs: read CSV files from in/, run the transforms given, write CSV to
// out/result.csv.
class JobRun {
 public:
  JobRun() {
    std::filesystem::create_directories(env_.Folder() / "in");
    std::filesystem::create_directories(env_.Folder() / "out");
  }

  void Input(const std::string& name, const std::string& text) {
    std::ofstream(env_.Folder() / "in" / name, std::ios::binary) << text;
  }

  // A read transform "read" (hierarchical when `onChangePos` is not 0), the
  // middle transforms in a chain below it, and a write "write" at the end.
  // Returns the job's error number, 0 on success.
  int32_t Run(const std::string& readRecords, int onChangePos, std::vector<TransformSpec> middle,
              const std::string& writeRecords, const OptionMap& jobOptions = {}) {
    jobId_ = env_.JobId("xform" + std::to_string(++runs_));
    OptionMap readOptions{{"readtype", "1"}, {"delimiter", ","}, {"headerlength", "1"},
                          {"heircarchical", onChangePos ? "1" : "0"}};
    if (onChangePos) readOptions["onchangefieldpos"] = std::to_string(onChangePos);
    TransformSpec read("read", "", 1, "", readOptions);
    read.records = readRecords;
    std::vector<TransformSpec> all{read};
    std::string parent = "read";
    for (TransformSpec& step : middle) {
      step.parentId = parent;
      parent = step.id;
      all.push_back(step);
    }
    TransformSpec write("write", parent, 2, "",
                        {{"writetype", "1"}, {"committran", ""}, {"delimiter", ","}, {"quotestrings", "False"},
                         {"newline", "1"}, {"writeheaders", "True"}});
    write.records = writeRecords;
    all.push_back(write);
    std::string document = JobDocument(jobId_, all, jobOptions);
    AddStream(document, "read", (env_.Folder() / "in").string(), "*.csv", "");
    AddStream(document, "write", (env_.Folder() / "out").string(), "result.csv", "True");
    env_.AddJob(jobId_, document);

    std::filesystem::remove(env_.Folder() / "out" / "result.csv");
    int32_t number = 0;
    TransformCoordinator coordinator;
    std::unique_ptr<TesselSession> session = coordinator.CreateSession();
    try {
      coordinator.Initialise(session->InitialiseSession(jobId_, false, false, "client"));
      coordinator.Process();
    } catch (const Error& error) {
      number = error.number();
    }
    return number;
  }

  std::string Output() {
    std::ifstream in(env_.Folder() / "out" / "result.csv", std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  std::vector<std::string> Reasons() { return env_.AuditReasons(jobId_); }
  std::vector<std::string> Column(const std::string& column) { return env_.AuditColumn(jobId_, column); }
  std::string AllReasons() {
    std::string all;
    for (const std::string& reason : Reasons()) all += reason + "\n";
    return all;
  }
  // Reasons of the entries with a RESULTCODE.
  std::vector<std::string> ReasonsWithCode(const std::string& code) {
    std::vector<std::string> codes = Column("RESULTCODE");
    std::vector<std::string> reasons = Reasons();
    std::vector<std::string> out;
    for (size_t i = 0; i < codes.size() && i < reasons.size(); ++i) {
      if (codes[i] == code) out.push_back(reasons[i]);
    }
    return out;
  }

  JobEnvironment& Environment() { return env_; }

 private:
  static void AddStream(std::string& document, const std::string& id, const std::string& dir,
                        const std::string& filter, const std::string& overwrite) {
    const size_t at = document.find("<TRANSFORM id=\"" + id + "\"");
    std::string options = "<OPTION name=\"filedir\" value=\"" + dir + "\"/><OPTION name=\"filter\" value=\"" +
                          filter + "\"/>";
    if (!overwrite.empty()) options += "<OPTION name=\"overwrite\" value=\"" + overwrite + "\"/>";
    document.insert(document.find("<TRANSFORMDETAIL>", at),
                    "<INPUTSTREAM type=\"1\"><OPTIONS>" + options + "</OPTIONS></INPUTSTREAM>");
  }

  JobEnvironment env_;
  std::string jobId_;
  int runs_ = 0;
};

// Orders read from CSV lines "type,order,item,qty": H lines and their L lines.
inline const char* kOrderReadRecords =
    "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"H\"/>"
    "<FIELD name=\"ORD\" type=\"3\" position=\"2\" key=\"1\"/></RECORD>"
    "<RECORD id=\"L\" parentid=\"H\" hashcode=\"2\">"
    "<FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"L\"/>"
    "<FIELD name=\"ORD\" type=\"3\" position=\"2\" key=\"1\"/>"
    "<FIELD name=\"ITEM\" type=\"3\" position=\"3\" key=\"2\"/>"
    "<FIELD name=\"QTY\" type=\"1\" position=\"4\"/></RECORD>";

}  // namespace tessel::test
