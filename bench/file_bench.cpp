// Writes and reads a 1,000,000-line text file line by line through
// FileSystemWrapper, in UTF-8 and in Windows-1252, and prints MB/s of file
// bytes and nanoseconds per line.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "services/FileSystemWrapper.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void Run(const std::filesystem::path& folder, const char* charset, int lines) {
  tessel::FileSystemWrapper files;
  // Typical CSV lines of about 65 characters, some accented, made beforehand
  // so that only the wrapper is timed.
  std::vector<std::string> pool;
  for (int i = 0; i < 1000; ++i) {
    pool.push_back("ORD" + std::to_string(100000 + i) + ",Caf\xC3\xA9 M\xC3\xBCller,Gen\xC3\xA8ve," +
                   std::to_string(i % 977) + ".50,2024-01-31,\"note, quoted\"\r\n");
  }
  std::string line;
  auto start = Clock::now();
  const std::string handle =
      files.CreateTextStream("bench.csv", false, folder.string(), true, charset, true);
  for (int i = 0; i < lines; ++i) files.WriteToFile(handle, pool[static_cast<size_t>(i) % pool.size()]);
  files.CloseFile(handle);
  const double writeSeconds = Seconds(start);
  const double megabytes =
      static_cast<double>(std::filesystem::file_size(folder / "bench.csv")) / (1024.0 * 1024.0);

  start = Clock::now();
  const std::string reader = files.OpenTextStream((folder / "bench.csv").string(), false, charset, false);
  size_t count = 0;
  size_t chars = 0;
  while (files.ReadLine(reader, line)) {
    ++count;
    chars += line.size();
  }
  files.CloseFile(reader);
  const double readSeconds = Seconds(start);

  start = Clock::now();
  const std::string whole = files.OpenTextStream((folder / "bench.csv").string(), false, charset, false);
  const size_t wholeSize = files.ReadFile(whole).size();
  files.CloseFile(whole);
  const double readAllSeconds = Seconds(start);

  std::printf("%-13s %8.1f MB file  write %7.1f MB/s (%5.0f ns/line)  ReadLine %7.1f MB/s (%5.0f ns/line)  "
              "ReadFile %7.1f MB/s  [%zu lines, %zu+%zu chars]\n",
              charset, megabytes, megabytes / writeSeconds, writeSeconds * 1e9 / lines, megabytes / readSeconds,
              readSeconds * 1e9 / lines, megabytes / readAllSeconds, count, chars, wholeSize);
}

}  // namespace

int main() {
  const auto folder = std::filesystem::temp_directory_path() / "tessel-file-bench";
  std::filesystem::create_directories(folder);
  constexpr int kLines = 1000000;
  for (const char* charset : {"utf-8", "windows-1252", "unicode"}) Run(folder, charset, kLines);
  std::filesystem::remove_all(folder);
  return 0;
}
