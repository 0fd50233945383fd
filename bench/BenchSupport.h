// BenchSupport: what the plain-main benchmarks share: CPU time of the process
// (the machine is shared, so wall time alone would measure the neighbours as
// well), its peak resident memory, and a run of each size in a process of its
// own, so that one size's peak memory does not stand in the next one's figures.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace tessel::bench {

inline double CpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// CPU time of the calling thread alone: the work on the path the caller
// waits for, without what helper threads (the heap's page populator) do
// beside it.
inline double ThreadCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// User time of the calling thread: its own work, without the kernel's (page
// faults above all, whose price depends on the machine's memory).
inline double ThreadUserSeconds() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec) + static_cast<double>(usage.ru_utime.tv_usec) * 1e-6;
}

// VmHWM of /proc/self/status, in bytes.
inline long PeakResidentBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6)) * 1024;
  }
  return 0;
}

// Runs `run` once per size, each in a forked child: the sizes of the command
// line, else `defaults`. Returns 1 when a run failed, else 0.
inline int RunSizesInOwnProcesses(int argc, char** argv, std::vector<long> defaults,
                                  const std::function<void(long)>& run) {
  std::vector<long> sizes;
  for (int i = 1; i < argc; ++i) sizes.push_back(std::atol(argv[i]));
  if (sizes.empty()) sizes = std::move(defaults);
  int status = 0;
  for (long n : sizes) {
    pid_t child = fork();
    if (child == 0) {
      run(n);
      std::_Exit(0);
    }
    int childStatus = 0;
    waitpid(child, &childStatus, 0);
    if (!WIFEXITED(childStatus) || WEXITSTATUS(childStatus) != 0) status = 1;
  }
  return status;
}

// As RunSizesInOwnProcesses, for runs that measure themselves: each run
// returns its figures (wall seconds, say), and after the last one each size's
// figures are printed against the first size's, as ratios.
inline int RunSizesAndCompare(int argc, char** argv, std::vector<long> defaults,
                              const std::function<std::vector<double>(long)>& run,
                              const std::vector<std::string>& figureNames) {
  std::vector<long> sizes;
  for (int i = 1; i < argc; ++i) sizes.push_back(std::atol(argv[i]));
  if (sizes.empty()) sizes = std::move(defaults);
  int status = 0;
  std::vector<std::vector<double>> results;
  for (long n : sizes) {
    int channel[2];
    if (pipe(channel) != 0) return 1;
    pid_t child = fork();
    if (child == 0) {
      close(channel[0]);
      const std::vector<double> figures = run(n);
      const ssize_t size = static_cast<ssize_t>(figures.size() * sizeof(double));
      const bool sent = write(channel[1], figures.data(), static_cast<size_t>(size)) == size;
      std::_Exit(sent ? 0 : 1);
    }
    close(channel[1]);
    std::vector<double> figures(figureNames.size());
    const ssize_t size = static_cast<ssize_t>(figures.size() * sizeof(double));
    const bool received = read(channel[0], figures.data(), static_cast<size_t>(size)) == size;
    close(channel[0]);
    int childStatus = 0;
    waitpid(child, &childStatus, 0);
    if (!received || !WIFEXITED(childStatus) || WEXITSTATUS(childStatus) != 0) {
      status = 1;
      continue;
    }
    results.push_back(std::move(figures));
  }
  if (status == 0) {
    for (size_t i = 1; i < results.size(); ++i) {
      std::printf("N=%ld against N=%ld:", sizes[i], sizes[0]);
      for (size_t f = 0; f < figureNames.size(); ++f) {
        std::printf("%s %.1fx %s", f == 0 ? "" : ",", results[0][f] > 0 ? results[i][f] / results[0][f] : 0.0,
                    figureNames[f].c_str());
      }
      std::printf("\n");
    }
  }
  return status;
}

}  // namespace tessel::bench
