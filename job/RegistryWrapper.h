// RegistryWrapper: where the machine's configuration folder is found.
//
// The engine reads one machine-wide value, "AppConfig", the folder holding
// appconfig.xml. It is, in this order: the folder given to the tessel command
// with --config (which sets TESSEL_APPCONFIG for the process), the environment
// variable TESSEL_APPCONFIG, or /etc/tessel.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

class RegistryWrapper {
 public:
  static constexpr const char* kEnvironmentVariable = "TESSEL_APPCONFIG";
  static constexpr const char* kDefaultFolder = "/etc/tessel";

  // Only the value "AppConfig" exists; any other name raises 9660.
  std::string GetRegistryKey(std::string_view subKey, std::string_view valueName) const;
  // The configuration folder.
  static std::string AppConfigFolder();
};

}  // namespace tessel
