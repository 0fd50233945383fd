// TempDir: a fresh folder under the system temp folder for one test, removed
// with everything in it when the object goes.
#pragma once

#include <filesystem>
#include <string>

namespace tessel::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& leaf) const { return path_ / leaf; }

 private:
  std::filesystem::path path_;
};

// Whole contents of a file, or an empty string when it cannot be read.
std::string ReadFileText(const std::filesystem::path& file);
void WriteFileText(const std::filesystem::path& file, const std::string& text);

}  // namespace tessel::test
