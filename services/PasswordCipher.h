// PasswordCipher: turns passwords kept in appconfig.xml, the SYSTEMS table and
// job documents into cipher text and back.
//
// AES-256-GCM with a 32-byte key read from a key file (owner-only permissions,
// made by `tessel init`). Cipher text is "tessel:v1:" followed by the base64 of
// a 12-byte random nonce, the encrypted text and the 16-byte tag, so the same
// text encrypts differently each time and any change to the stored text fails
// to decrypt (9590) instead of giving a wrong password.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tessel {

class PasswordCipher {
 public:
  static constexpr std::string_view kPrefix = "tessel:v1:";
  // The appconfig.xml key naming the key file.
  static constexpr const char* kConfigKey = "CIPHERKEYFILE";

  // Reads the key; 9591 when the file is missing, unreadable or not 32 bytes.
  void Initialise(const std::string& keyFile);
  // The key file of the running session's configuration (9591 without one).
  void InitialiseFromSession();
  std::string Encrypt(std::string_view text) const;
  // 9590 for text that is not cipher text of this key.
  std::string Decrypt(std::string_view cipherText) const;
  static bool IsCipherText(std::string_view text) { return text.substr(0, kPrefix.size()) == kPrefix; }

  // Writes a new random key file readable by its owner only; 9591 on failure.
  static void CreateKeyFile(const std::string& keyFile);

 private:
  std::array<uint8_t, 32> key_{};
  bool initialised_ = false;
};

}  // namespace tessel
