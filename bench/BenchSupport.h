// BenchSupport: what the plain-main benchmarks share: CPU time of the process
// (the machine is shared, so wall time alone would measure the neighbours as
// well), its peak resident memory, and a run of each size in a process of its
// own, so that one size's peak memory does not stand in the next one's figures.
#pragma once

#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
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

}  // namespace tessel::bench
