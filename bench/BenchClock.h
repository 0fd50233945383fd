// BenchClock: what the plain-main benchmarks measure: CPU time of the process
// (the machine is shared, so wall time alone would measure the neighbours as
// well) and its peak resident memory.
#pragma once

#include <time.h>

#include <fstream>
#include <string>

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

}  // namespace tessel::bench
