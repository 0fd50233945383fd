#include "db/JobDatabaseSchema.h"

namespace tessel::db {

namespace {

enum class Kind { Key, Text, LongText, Int, Flag, AutoId };

struct Column {
  const char* name;
  Kind kind;
  int size = 0;
  const char* defaultValue = nullptr;
};

struct Table {
  std::string name;
  std::vector<Column> columns;
  std::vector<const char*> primaryKey;  // empty when a column is AutoId
  std::vector<std::vector<const char*>> indexes;
};

const std::vector<Table>& Tables() {
  static const std::vector<Table> tables = [] {
    std::vector<Table> t;
    t.push_back({"JOBDETAIL",
                 {{"JOBID", Kind::Key, 100},
                  {"JOBDESC", Kind::Text, 255},
                  {"JOBCONFIG", Kind::Text, 500},
                  {"NEXTNO", Kind::Int, 0, "1"},
                  {"MAXINSTANCE", Kind::Int, 0, "0"},
                  {"LASTRUNDATE", Kind::Text, 30}},
                 {"JOBID"},
                 {}});
    t.push_back({"SYSTEMS",
                 {{"SYSID", Kind::Key, 100},
                  {"CONNECTSTR", Kind::Text, 2000},
                  {"USERNAME", Kind::Text, 255},
                  {"PASSWORD", Kind::Text, 255},
                  {"ORGID", Kind::Text, 255},
                  {"SYSTYPE", Kind::Int, 0, "0"}},
                 {"SYSID"},
                 {}});
    t.push_back({"DBCONNECT", {{"ID", Kind::Key, 100}, {"CONNECTSTR", Kind::Text, 2000}}, {"ID"}, {}});
    t.push_back({"LOOKUPS",
                 {{"LOOKUPID", Kind::Key, 100},
                  {"INTLOOKUP", Kind::Flag, 0, "0"},
                  {"INTLKUPTABLE", Kind::Text, 100},
                  {"SQLSELECT", Kind::Text, 2000},
                  {"SQLFROM", Kind::Text, 2000},
                  {"SQLWHERE", Kind::Text, 2000},
                  {"DBCONNECT", Kind::Text, 2000}},
                 {"LOOKUPID"},
                 {}});
    t.push_back({"LOOKUP",
                 {{"LOOKUPID", Kind::Key, 100}, {"LKUPKEY", Kind::Key, 255}, {"LKUPVALUE", Kind::Text, 2000}},
                 {"LOOKUPID", "LKUPKEY"},
                 {}});
    t.push_back({"COUNTERS",
                 {{"COUNTERID", Kind::Key, 100},
                  {"PREFIX", Kind::Text, 50},
                  {"SUFFIX", Kind::Text, 50},
                  {"EVALKEY", Kind::Flag, 0, "0"},
                  {"EVALFORMULA", Kind::Text, 2000},
                  {"STEP", Kind::Int, 0, "1"},
                  {"STARTNUM", Kind::Int, 0, "1"},
                  {"LENGTH", Kind::Int, 0, "0"}},
                 {"COUNTERID"},
                 {}});
    t.push_back({"CTRKEYS",
                 {{"COUNTERID", Kind::Key, 100}, {"CTRKEY", Kind::Key, 255}, {"NEXTNUM", Kind::Int, 0, "0"}},
                 {"COUNTERID", "CTRKEY"},
                 {}});

    Table country{"ISOCOUNTRY",
                  {{"ISO2", Kind::Key, 2},
                   {"ISO3", Kind::Text, 3},
                   {"NUMBER_CODE", Kind::Text, 3},
                   {"CURRENCY", Kind::Text, 10},
                   {"IANA_TLD", Kind::Text, 10},
                   {"PHONE_PFX", Kind::Text, 20}},
                  {"ISO2"},
                  {{"ISO3"}, {"NUMBER_CODE"}}};
    static const std::vector<std::string> names = [] {
      std::vector<std::string> n;
      for (const char* language : {"ARA", "ENG", "DEU", "FRA", "JPN", "POR", "SPA", "RUS", "ZHO"}) {
        n.push_back(std::string(language) + "_NAME");
        n.push_back(std::string(language) + "_DEMONYM");
        n.push_back(std::string(language) + "_SYNONYMS");
      }
      return n;
    }();
    for (const std::string& name : names) {
      bool synonyms = name.ends_with("_SYNONYMS");
      country.columns.push_back({name.c_str(), synonyms ? Kind::LongText : Kind::Text, 255});
    }
    t.push_back(std::move(country));

    t.push_back({"AUDITLOG",
                 {{"LOGID", Kind::AutoId},
                  {"LOGTYPE", Kind::Int},
                  {"PROCESSID", Kind::Text, 100},
                  {"SOURCE", Kind::Text, 1000},
                  {"RESULTREASON", Kind::LongText},
                  {"TFORMID", Kind::Text, 100},
                  {"TIMESTAMP", Kind::Text, 30},
                  {"INSTANCEID", Kind::Int},
                  {"RESULTCODE", Kind::Text, 50},
                  {"UNIQUEID", Kind::Text, 255}},
                 {},
                 {{"PROCESSID", "INSTANCEID"}}});
    t.push_back({"EMAILGROUP",
                 {{"EMAILID", Kind::Key, 100},
                  {"MAILSERVID", Kind::Text, 100},
                  {"EMLFROM", Kind::Text, 1000},
                  {"EMLTO", Kind::Text, 2000},
                  {"EMLCC", Kind::Text, 2000},
                  {"EMLBCC", Kind::Text, 2000}},
                 {"EMAILID"},
                 {}});
    return t;
  }();
  return tables;
}

std::string TypeOf(const Column& column, SqlDialect dialect) {
  bool server = dialect == SqlDialect::SqlServer;
  std::string varchar = server ? "NVARCHAR(" : "VARCHAR(";
  switch (column.kind) {
    case Kind::Key: return varchar + std::to_string(column.size) + ") NOT NULL";
    case Kind::Text: return varchar + std::to_string(column.size) + ")";
    case Kind::LongText: return server ? "NVARCHAR(MAX)" : "TEXT";
    case Kind::Int: return "INTEGER";
    case Kind::Flag: return "SMALLINT";
    case Kind::AutoId:
      switch (dialect) {
        case SqlDialect::Sqlite: return "INTEGER PRIMARY KEY AUTOINCREMENT";
        case SqlDialect::SqlServer: return "BIGINT IDENTITY(1,1) PRIMARY KEY";
        case SqlDialect::PostgreSql: return "BIGSERIAL PRIMARY KEY";
        case SqlDialect::Other: return "BIGINT GENERATED ALWAYS AS IDENTITY PRIMARY KEY";
      }
  }
  return "VARCHAR(255)";
}

std::string Join(const std::vector<const char*>& names, const char* separator) {
  std::string out;
  for (const char* name : names) {
    if (!out.empty()) out += separator;
    out += name;
  }
  return out;
}

}  // namespace

const std::vector<std::string>& JobDatabaseSchema::TableNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> n;
    for (const Table& table : Tables()) n.push_back(table.name);
    return n;
  }();
  return names;
}

std::vector<std::string> JobDatabaseSchema::Statements(SqlDialect dialect) {
  bool server = dialect == SqlDialect::SqlServer;
  std::vector<std::string> statements;
  for (const Table& table : Tables()) {
    std::string body;
    for (const Column& column : table.columns) {
      if (!body.empty()) body += ", ";
      body += std::string(column.name) + " " + TypeOf(column, dialect);
      if (column.defaultValue) body += std::string(" DEFAULT ") + column.defaultValue;
    }
    if (!table.primaryKey.empty()) body += ", PRIMARY KEY (" + Join(table.primaryKey, ", ") + ")";
    if (server) {
      statements.push_back("IF OBJECT_ID(N'" + table.name + "', N'U') IS NULL CREATE TABLE " + table.name + " (" +
                           body + ")");
    } else {
      statements.push_back("CREATE TABLE IF NOT EXISTS " + table.name + " (" + body + ")");
    }
    for (const auto& index : table.indexes) {
      std::string name = "IX_" + table.name + "_" + Join(index, "_");
      std::string columns = Join(index, ", ");
      if (server) {
        statements.push_back("IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = N'" + name +
                             "') CREATE INDEX " + name + " ON " + table.name + " (" + columns + ")");
      } else {
        statements.push_back("CREATE INDEX IF NOT EXISTS " + name + " ON " + table.name + " (" + columns + ")");
      }
    }
  }
  return statements;
}

void JobDatabaseSchema::Create(Connection& connection) {
  for (const std::string& statement : Statements(connection.Dialect())) connection.Execute(statement);
}

}  // namespace tessel::db
