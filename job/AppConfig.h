// AppConfig: the machine's configuration, appconfig.xml in the configuration
// folder (see RegistryWrapper).
//
// The file is an option list: a root element with OPTIONS/OPTION name/value
// pairs. Required keys: DEFCHARSET, DEBUGPATH, WORKPATH, JOBCONFPATH, DBCONAX
// (a missing one raises 7703 when it is read). Optional: ACCPACTRACE, and
// LOGQUEUE (default "embedded:" + DBCONAX). Relative folders are taken from
// the configuration folder.
#pragma once

#include <map>
#include <memory>
#include <string>

namespace tessel {

class AppConfig {
 public:
  static constexpr const char* kFileName = "appconfig.xml";

  // Reads the file of the folder: 7705 when it is missing, 7704 when it is
  // not well-formed, 7703 for a missing required key.
  static AppConfig Load(const std::string& folder);
  // Writes a new file with these values, in the order given by the map.
  static void Write(const std::string& folder, const std::map<std::string, std::string>& values);

  const std::string& Folder() const { return folder_; }
  const std::string& DefaultCharSet() const { return defaultCharSet_; }
  const std::string& DebugPath() const { return debugPath_; }
  const std::string& WorkPath() const { return workPath_; }
  const std::string& JobConfPath() const { return jobConfPath_; }
  const std::string& DatabaseText() const { return databaseText_; }
  const std::string& QueueText() const { return queueText_; }
  bool AccpacTrace() const { return accpacTrace_; }
  // Any key, or fallback when the file lacks it.
  std::string Value(const std::string& key, const std::string& fallback = "") const;

 private:
  std::string folder_;
  std::string defaultCharSet_;
  std::string debugPath_;
  std::string workPath_;
  std::string jobConfPath_;
  std::string databaseText_;
  std::string queueText_;
  bool accpacTrace_ = false;
  std::map<std::string, std::string> values_;
};

}  // namespace tessel
