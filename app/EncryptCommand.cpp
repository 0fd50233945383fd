#include <iostream>
#include <iterator>

#include "app/Commands.h"
#include "job/AppConfig.h"
#include "job/RegistryWrapper.h"
#include "services/PasswordCipher.h"

namespace tessel::app {

int RunEncrypt() {
  try {
    AppConfig config = AppConfig::Load(RegistryWrapper::AppConfigFolder());
    PasswordCipher cipher;
    cipher.Initialise(config.Value(PasswordCipher::kConfigKey));
    std::string text((std::istreambuf_iterator<char>(std::cin)), {});
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text.back() == '\r') text.pop_back();
    std::cout << cipher.Encrypt(text) << '\n';
    return 0;
  } catch (...) {
    return ReportFailure();
  }
}

}  // namespace tessel::app
