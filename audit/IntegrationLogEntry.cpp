#include "audit/IntegrationLogEntry.h"

#include "audit/HuntErr.h"
#include "core/TimeText.h"

namespace tessel {

namespace {
void AddFieldToXML(xmlNodePtr record, const char* name, const std::string& value) {
  xmlNodePtr field = xmlNewChild(record, nullptr, BAD_CAST "FIELD", nullptr);
  xmlSetProp(field, BAD_CAST "name", BAD_CAST name);
  xmlNodeAddContentLen(field, BAD_CAST value.data(), static_cast<int>(value.size()));
}

}  // namespace

IntegrationLogEntry::IntegrationLogEntry() : AuditDate(TimeText::DateAndTime()) {}

Ref<XMLWrapper> IntegrationLogEntry::Serialise() const {
  try {
    Ref<XMLWrapper> document = MakeRef<XMLWrapper>();
    document->CreateDocument();
    xmlNodePtr record = xmlNewDocNode(document->DOMDocument(), nullptr, BAD_CAST "RECORD", nullptr);
    xmlAddChild(reinterpret_cast<xmlNodePtr>(document->DOMDocument()), record);
    AddFieldToXML(record, "LOGTYPE", std::to_string(LogType));
    AddFieldToXML(record, "PROCESSID", JobId);
    AddFieldToXML(record, "SOURCE", Source);
    AddFieldToXML(record, "RESULTREASON", Reason);
    AddFieldToXML(record, "TFORMID", TransformId);
    AddFieldToXML(record, "TIMESTAMP", AuditDate);
    AddFieldToXML(record, "INSTANCEID", std::to_string(InstanceID));
    AddFieldToXML(record, "RESULTCODE", ReasonCode);
    AddFieldToXML(record, "UNIQUEID", UniqueId);
    return document;
  } catch (...) {
    ErrorInRethrow("IntegrationLogEntry.Serialise()", {});
  }
}

IntegrationLogEntry IntegrationLogEntry::Deserialise(const std::string& recordXml) {
  try {
    XMLWrapper document;
    document.LoadXML(recordXml);
    IntegrationLogEntry entry;
    for (xmlNodePtr field : document.GetNodesFromXPath("/RECORD/FIELD")) {
      std::string name = document.GetAttributeFromNode(field, "name");
      std::string value = XMLWrapper::NodeText(field);
      if (name == "LOGTYPE") entry.LogType = std::stoi(value);
      else if (name == "PROCESSID") entry.JobId = value;
      else if (name == "SOURCE") entry.Source = value;
      else if (name == "RESULTREASON") entry.Reason = value;
      else if (name == "TFORMID") entry.TransformId = value;
      else if (name == "TIMESTAMP") entry.AuditDate = value;
      else if (name == "INSTANCEID") entry.InstanceID = std::stoi(value);
      else if (name == "RESULTCODE") entry.ReasonCode = value;
      else if (name == "UNIQUEID") entry.UniqueId = value;
    }
    return entry;
  } catch (...) {
    ErrorInRethrow("IntegrationLogEntry.Deserialise(sXML)", {});
  }
}

}  // namespace tessel
