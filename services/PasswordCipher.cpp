#include "services/PasswordCipher.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <vector>

#include "audit/HuntErr.h"
#include "job/Session.h"

namespace tessel {

namespace {
constexpr int32_t kErrBadCipherText = 9590;
constexpr int32_t kErrKeyFile = 9591;
constexpr size_t kNonceSize = 12;
constexpr size_t kTagSize = 16;

struct ContextDeleter {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, ContextDeleter>;

std::string Base64Encode(const std::vector<uint8_t>& bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3), '\0');
  int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                               static_cast<int>(bytes.size()));
  text.resize(static_cast<size_t>(length));
  return text;
}

bool Base64Decode(std::string_view text, std::vector<uint8_t>& bytes) {
  if (text.size() % 4 != 0) return false;
  bytes.assign(3 * text.size() / 4, 0);
  int length = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                               static_cast<int>(text.size()));
  if (length < 0) return false;
  size_t padding = 0;
  if (!text.empty() && text.back() == '=') ++padding;
  if (text.size() > 1 && text[text.size() - 2] == '=') ++padding;
  bytes.resize(static_cast<size_t>(length) - padding);
  return true;
}
}  // namespace

void PasswordCipher::CreateKeyFile(const std::string& keyFile) {
  try {
    std::array<uint8_t, 32> key{};
    Check(RAND_bytes(key.data(), static_cast<int>(key.size())) == 1, kErrKeyFile,
          "No random key could be made for [%1].", {Variant(keyFile)});
    int fd = ::open(keyFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    Check(fd >= 0, kErrKeyFile, "The key file [%1] could not be written.", {Variant(keyFile)});
    ::fchmod(fd, 0600);
    bool written = ::write(fd, key.data(), key.size()) == static_cast<ssize_t>(key.size());
    written = (::close(fd) == 0) && written;
    Check(written, kErrKeyFile, "The key file [%1] could not be written.", {Variant(keyFile)});
  } catch (...) {
    ErrorInRethrow("PasswordCipher.CreateKeyFile(sKeyFile)", {Variant(keyFile)});
  }
}

void PasswordCipher::Initialise(const std::string& keyFile) {
  try {
    std::ifstream in(keyFile, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
    Check(in.good() || in.eof(), kErrKeyFile, "The key file [%1] could not be read.", {Variant(keyFile)});
    Check(bytes.size() == key_.size(), kErrKeyFile, "The key file [%1] does not hold a 32-byte key.",
          {Variant(keyFile)});
    std::copy(bytes.begin(), bytes.end(), key_.begin());
    initialised_ = true;
  } catch (...) {
    ErrorInRethrow("PasswordCipher.Initialise(sKeyFile)", {Variant(keyFile)});
  }
}

void PasswordCipher::InitialiseFromSession() {
  try {
    Session* session = CurrentSession();
    std::string keyFile = session != nullptr ? session->ConfigValue(kConfigKey) : std::string();
    Check(!keyFile.empty(), kErrKeyFile, "The configuration names no key file (%1).", {Variant(kConfigKey)});
    Initialise(keyFile);
  } catch (...) {
    ErrorInRethrow("PasswordCipher.InitialiseFromSession()", {});
  }
}

std::string PasswordCipher::Encrypt(std::string_view text) const {
  try {
    Check(initialised_, kErrKeyFile, "The password cipher has no key.");
    std::vector<uint8_t> out(kNonceSize + text.size() + kTagSize);
    Check(RAND_bytes(out.data(), kNonceSize) == 1, kErrKeyFile, "No random nonce could be made.");
    CipherContext context(EVP_CIPHER_CTX_new());
    int length = 0;
    bool ok = context && EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key_.data(), out.data()) == 1 &&
              EVP_EncryptUpdate(context.get(), out.data() + kNonceSize, &length,
                                reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())) == 1 &&
              EVP_EncryptFinal_ex(context.get(), out.data() + kNonceSize + length, &length) == 1 &&
              EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kTagSize,
                                  out.data() + kNonceSize + text.size()) == 1;
    Check(ok, kErrBadCipherText, "The text could not be encrypted.");
    return std::string(kPrefix) + Base64Encode(out);
  } catch (...) {
    ErrorInRethrow("PasswordCipher.Encrypt(sText)", {});
  }
}

std::string PasswordCipher::Decrypt(std::string_view cipherText) const {
  try {
    Check(initialised_, kErrKeyFile, "The password cipher has no key.");
    std::vector<uint8_t> bytes;
    bool readable = IsCipherText(cipherText) && Base64Decode(cipherText.substr(kPrefix.size()), bytes) &&
                    bytes.size() >= kNonceSize + kTagSize;
    Check(readable, kErrBadCipherText, "The stored text is not a password encrypted by this installation.");
    size_t size = bytes.size() - kNonceSize - kTagSize;
    std::string text(size, '\0');
    CipherContext context(EVP_CIPHER_CTX_new());
    int length = 0;
    bool ok = context && EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key_.data(), bytes.data()) == 1 &&
              EVP_DecryptUpdate(context.get(), reinterpret_cast<unsigned char*>(text.data()), &length,
                                bytes.data() + kNonceSize, static_cast<int>(size)) == 1 &&
              EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, bytes.data() + kNonceSize + size) == 1 &&
              EVP_DecryptFinal_ex(context.get(), reinterpret_cast<unsigned char*>(text.data()) + length, &length) == 1;
    Check(ok, kErrBadCipherText,
          "The stored password could not be decrypted: it was changed, or encrypted with another key.");
    return text;
  } catch (...) {
    ErrorInRethrow("PasswordCipher.Decrypt(sCipherText)", {});
  }
}

}  // namespace tessel
