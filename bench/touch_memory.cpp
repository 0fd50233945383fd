// Times the first touch of fresh memory: the work the kernel (and, in a
// virtual machine, its host) does for every new page a program writes, which
// any program holding that many bytes pays whatever it does with them.
// Usage: touch_memory [MEGABYTES] (1024 unless given); prints the seconds.
#include <sys/mman.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  const unsigned long long megabytes = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1024;
  const size_t bytes = static_cast<size_t>(megabytes) << 20;
  if (bytes == 0) {
    std::fprintf(stderr, "touch_memory: give a number of megabytes above 0\n");
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    std::perror("touch_memory: mmap");
    return 1;
  }
  auto* bytePointer = static_cast<volatile char*>(memory);
  for (size_t offset = 0; offset < bytes; offset += 4096) bytePointer[offset] = 1;
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("touched %llu MB of fresh memory in %.2f s (%.2f s per GB)\n", megabytes, seconds,
              seconds * 1024.0 / static_cast<double>(megabytes));
  munmap(memory, bytes);
  return 0;
}
