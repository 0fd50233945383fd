// Shared set-up of the input tests: CSV files in a temp folder, a read
// transform definition over them, a factory, and an event sink that counts
// what the reader reports.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "audit/IEvent.h"
#include "core/Error.h"
#include "input/TransformRead.h"
#include "job/TransformDefinition.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"
#include "tests/support/TempDir.h"

namespace tessel::test {

using OptionMap = std::map<std::string, std::string>;

class CountingEvent : public IEvent {
 public:
  int processed = 0;
  int inserted = 0;
  void SetDataFile(const std::string&, bool) override {}
  void FlagTransformDefReady(const std::string&, bool) override {}
  void OnError(const std::string&, LogEntries&, Transaction*) override {}
  void OnWarning(const std::string&, LogEntries&, Transaction*) override {}
  void OnProcess(const std::string&, Transaction*, std::string&) override { ++processed; }
  void OnInsert(const std::string&, Transaction*, std::string&) override { ++inserted; }
  void OnUpdate(const std::string&, Transaction*, std::string&) override {}
  void OnDelete(const std::string&, Transaction*, std::string&) override {}
  void OnComplete(const std::string&) override {}
  int64_t GetEventCount(const std::string&, const std::string&, const std::string&) override { return 0; }
  void WriteAuditLogNoTransaction(const std::string&, LogEntries&, Transaction*, bool) override {}
  void WriteSingleAuditMessage(IntegrationLogEntry) override {}
};

inline std::string XmlEscape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

inline std::string OptionsXml(const OptionMap& options) {
  std::string xml = "<OPTIONS>";
  for (const auto& [name, value] : options) {
    xml += "<OPTION name=\"" + XmlEscape(name) + "\" value=\"" + XmlEscape(value) + "\"/>";
  }
  return xml + "</OPTIONS>";
}

// The INPUTSTREAM element of a file read.
inline std::string FileStream(const std::string& dir, const std::string& filter, int type = 1) {
  return "<INPUTSTREAM type=\"" + std::to_string(type) + "\">" +
         OptionsXml({{"filedir", dir}, {"filter", filter}}) + "</INPUTSTREAM>";
}

// A TRANSFORM element of a CSV read; `options` override the flat defaults.
inline std::string ReadTransformXml(const std::string& id, const std::string& stream, const OptionMap& options,
                                    const std::string& records) {
  OptionMap all{{"readtype", "1"}, {"delimiter", ","}, {"headerlength", "0"}, {"heircarchical", "0"}};
  for (const auto& [name, value] : options) {
    if (value == "<absent>") {
      all.erase(name);
    } else {
      all[name] = value;
    }
  }
  return "<TRANSFORM id=\"" + id + "\" parentid=\"\" type=\"1\">" + OptionsXml(all) + stream +
         "<TRANSFORMDETAIL><RECORDS>" + records + "</RECORDS></TRANSFORMDETAIL></TRANSFORM>";
}

// Three string fields A, B, C at positions 1 to 3.
inline const char* kFlatRecords =
    "<RECORD id=\"R\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"A\" type=\"3\" position=\"1\"/><FIELD name=\"B\" type=\"3\" position=\"2\"/>"
    "<FIELD name=\"C\" type=\"3\" position=\"3\"/></RECORD>";

// Orders: H lines (type, order) with L lines (type, order, item, qty) below,
// recognised by the first field.
inline const char* kOrderRecords =
    "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"H\"/>"
    "<FIELD name=\"ORD\" type=\"3\" position=\"2\" key=\"1\"/></RECORD>"
    "<RECORD id=\"L\" parentid=\"H\" hashcode=\"2\">"
    "<FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"L\"/>"
    "<FIELD name=\"ORD\" type=\"3\" position=\"2\" key=\"1\"/>"
    "<FIELD name=\"ITEM\" type=\"3\" position=\"3\" key=\"2\"/>"
    "<FIELD name=\"QTY\" type=\"3\" position=\"4\"/></RECORD>";

inline std::shared_ptr<TransformDefinition> DefinitionFrom(const std::string& xml) {
  auto wrapper = MakeRef<XMLWrapper>();
  wrapper->LoadXML(xml);
  return std::make_shared<TransformDefinition>(wrapper);
}

// Texts of the nodes a query finds in a document.
inline std::vector<std::string> Texts(XMLWrapper& doc, const std::string& xpath) {
  std::vector<std::string> out;
  for (xmlNodePtr node : doc.GetNodesFromXPath(xpath)) {
    xmlChar* text = xmlNodeGetContent(node);
    out.emplace_back(text ? reinterpret_cast<const char*>(text) : "");
    if (text) xmlFree(text);
  }
  return out;
}

// Runs a read transform over a definition; keeps the error, if any.
struct ReadRun {
  std::shared_ptr<TransactionFactory> factory = std::make_shared<TransactionFactory>();
  CountingEvent events;
  TransformRead read;
  int32_t error = 0;
  std::string description;
  bool failedInCreate = false;

  ReadRun(const std::string& transformXml, bool testMode = false) {
    factory->SetTransformDefinition(DefinitionFrom(transformXml));
    try {
      failedInCreate = true;
      read.CreateController(nullptr, events, factory, testMode);
      failedInCreate = false;
      read.Process();
    } catch (const Error& e) {
      error = e.number();
      description = e.description();
    }
  }

  XMLWrapper& Data() { return *factory->Data(); }
  std::vector<std::string> Field(const std::string& recordPath, const std::string& field) {
    return Texts(Data(), recordPath + "/FIELD[@name='" + field + "']/VALUES/VALUE");
  }
};

}  // namespace tessel::test
