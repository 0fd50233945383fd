// JobDatabaseSchema: the tables of the job database, created on demand.
//
// Create() makes every table the engine reads or writes in the job database
// when it is missing, and leaves existing tables and their rows alone, so it
// may run at every start. Names are upper case; on PostgreSQL they are
// created unquoted, so that queries may write them in any case.
//
//   JOBDETAIL   jobs: JOBID, JOBDESC, JOBCONFIG, NEXTNO, MAXINSTANCE, LASTRUNDATE
//   SYSTEMS     connectors: SYSID, CONNECTSTR, USERNAME, PASSWORD, ORGID, SYSTYPE
//   DBCONNECT   managed connections: ID, CONNECTSTR
//   LOOKUPS     lookup definitions: LOOKUPID, INTLOOKUP, INTLKUPTABLE, SQLSELECT,
//               SQLFROM, SQLWHERE, DBCONNECT
//   LOOKUP      internal lookup rows: LOOKUPID, LKUPKEY, LKUPVALUE
//   COUNTERS    number series: COUNTERID, PREFIX, SUFFIX, EVALKEY, EVALFORMULA,
//               STEP, STARTNUM, LENGTH
//   CTRKEYS     next number per series and key: COUNTERID, CTRKEY, NEXTNUM
//   ISOCOUNTRY  countries: CURRENCY, IANA_TLD, ISO2, ISO3, NUMBER_CODE, PHONE_PFX
//               and <lang>_NAME, <lang>_DEMONYM, <lang>_SYNONYMS for ARA ENG DEU
//               FRA JPN POR SPA RUS ZHO
//   AUDITLOG    log entries: LOGID (ascending in insertion order), LOGTYPE,
//               PROCESSID, SOURCE, RESULTREASON, TFORMID, TIMESTAMP, INSTANCEID,
//               RESULTCODE, UNIQUEID
//   EMAILGROUP  mail recipients: EMAILID, MAILSERVID, EMLFROM, EMLTO, EMLCC, EMLBCC
//
// Flags (INTLOOKUP, EVALKEY) are small integers 0/1; times (LASTRUNDATE,
// TIMESTAMP) are text in the engine's own "yyyy-mm-dd hh:mm:ss:mmm" form.
#pragma once

#include <string>
#include <vector>

#include "db/Connection.h"

namespace tessel::db {

class JobDatabaseSchema {
 public:
  // Creates the missing tables and their indexes. Raises what the connection
  // raises.
  static void Create(Connection& connection);

  // The names of the tables Create makes, in creation order.
  static const std::vector<std::string>& TableNames();

  // The statements Create runs for that dialect.
  static std::vector<std::string> Statements(SqlDialect dialect);
};

}  // namespace tessel::db
