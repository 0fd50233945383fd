#include "job/RegistryWrapper.h"

#include <cctype>
#include <cstdlib>

#include "audit/HuntErr.h"

namespace tessel {

namespace {
constexpr int32_t kErrRegistry = 9660;

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  }
  return true;
}
}  // namespace

std::string RegistryWrapper::AppConfigFolder() {
  const char* folder = std::getenv(kEnvironmentVariable);
  if (folder != nullptr && *folder != '\0') return folder;
  return kDefaultFolder;
}

std::string RegistryWrapper::GetRegistryKey(std::string_view subKey, std::string_view valueName) const {
  try {
    Check(EqualsNoCase(valueName, "AppConfig"), kErrRegistry, "An error occurred whilst reading from the registry.");
    return AppConfigFolder();
  } catch (...) {
    ErrorInRethrow("RegistryWrapper.GetRegistryKey(sSubKey, sValueName)",
            {Variant(std::string(subKey)), Variant(std::string(valueName))});
  }
}

}  // namespace tessel
