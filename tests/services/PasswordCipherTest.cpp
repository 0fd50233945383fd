// Passwords encrypted with the installation's key come back unchanged; any
// other text, a changed cipher text or another key fails with a number.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "core/Error.h"
#include "services/PasswordCipher.h"
#include "tests/support/TempDir.h"

namespace tessel::test {
namespace {

int32_t ErrorNumber(const std::function<void()>& body) {
  try {
    body();
  } catch (const Error& error) {
    return error.number();
  }
  return 0;
}

TEST(PasswordCipherTest, RoundTripsAndRefusesWhatItDidNotWrite) {
  TempDir dir;
  std::string keyFile = (dir / "cipher.key").string();
  PasswordCipher::CreateKeyFile(keyFile);
  struct stat info {};
  ASSERT_EQ(0, ::stat(keyFile.c_str(), &info));
  EXPECT_EQ(0600u, info.st_mode & 0777);

  PasswordCipher cipher;
  cipher.Initialise(keyFile);
  for (std::string text : {std::string(), std::string("s3cret"), std::string("pässwörd with blanks & <marks>"),
                           std::string(1000, 'x')}) {
    std::string stored = cipher.Encrypt(text);
    EXPECT_TRUE(PasswordCipher::IsCipherText(stored));
    EXPECT_EQ(text, cipher.Decrypt(stored));
  }
  EXPECT_NE(cipher.Encrypt("same"), cipher.Encrypt("same"));

  std::string stored = cipher.Encrypt("s3cret");
  std::string changed = stored;
  const size_t at = PasswordCipher::kPrefix.size() + 20;  // inside the encrypted text
  changed[at] = changed[at] == 'A' ? 'B' : 'A';
  EXPECT_EQ(9590, ErrorNumber([&] { cipher.Decrypt(changed); }));
  EXPECT_EQ(9590, ErrorNumber([&] { cipher.Decrypt("s3cret"); }));
  EXPECT_EQ(9590, ErrorNumber([&] { cipher.Decrypt("tessel:v1:%%%"); }));

  std::string otherKey = (dir / "other.key").string();
  PasswordCipher::CreateKeyFile(otherKey);
  PasswordCipher other;
  other.Initialise(otherKey);
  EXPECT_EQ(9590, ErrorNumber([&] { other.Decrypt(stored); }));

  std::ofstream(dir / "short.key") << "too short";
  PasswordCipher broken;
  EXPECT_EQ(9591, ErrorNumber([&] { broken.Initialise((dir / "short.key").string()); }));
  EXPECT_EQ(9591, ErrorNumber([&] { broken.Initialise((dir / "missing.key").string()); }));
  EXPECT_EQ(9591, ErrorNumber([&] { broken.Encrypt("x"); }));
}

}  // namespace
}  // namespace tessel::test
