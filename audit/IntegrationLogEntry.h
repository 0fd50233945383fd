// IntegrationLogEntry: one row of the audit log.
//
// An entry is a plain value: it is built by whoever reports (the coordinator,
// a transform, the audit logger), travels through the log queue in its
// serialised RECORD form, and ends as one row of AUDITLOG. Creation stamps
// AuditDate with the present time ("yyyy-mm-dd hh:mm:ss:mmm").
#pragma once

#include <cstdint>
#include <string>

#include "store/XMLWrapper.h"

namespace tessel {

// LOGTYPE values of an entry.
enum LogType : int32_t {
  kLogTypeNone = 0,       // not yet typed; written as kLogTypeDetail
  kLogTypeDetail = 1,     // a record's error or warning, or a transform event
  kLogTypeSummary = 2,    // a transform's summary
  kLogTypeJobStart = 4,
  kLogTypeJobEnd = 5,     // completed, aborted or no input
};

class IntegrationLogEntry {
 public:
  IntegrationLogEntry();

  int32_t LogType = kLogTypeNone;   // LOGTYPE
  std::string JobId;                // PROCESSID
  std::string Source;               // SOURCE: log key of the record, or a class name
  std::string Reason;               // RESULTREASON
  std::string TransformId;          // TFORMID
  std::string AuditDate;            // TIMESTAMP
  int32_t InstanceID = 0;           // INSTANCEID
  std::string ReasonCode;           // RESULTCODE: error number as text
  std::string UniqueId;             // UNIQUEID

  // The entry as a document: root RECORD with one FIELD per column, in the
  // fixed column order, each with a name attribute and the value as text.
  Ref<XMLWrapper> Serialise() const;
  // Reads back what Serialise wrote; unknown fields are ignored.
  static IntegrationLogEntry Deserialise(const std::string& recordXml);
};

}  // namespace tessel
