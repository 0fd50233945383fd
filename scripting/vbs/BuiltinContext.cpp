#include "scripting/vbs/BuiltinContext.h"

#include <cstring>

#include "core/DateTime.h"

namespace tessel::vbs {

void BuiltinContext::Step() noexcept { seed_ = (seed_ * 0x43FD43FDu + 0xC39EC3u) & 0xFFFFFFu; }

float BuiltinContext::NextRandom(float number) noexcept {
  if (number < 0) {
    uint32_t bits;
    std::memcpy(&bits, &number, sizeof bits);
    seed_ = ((bits & 0xFFFFFFu) + (bits >> 24)) & 0xFFFFFFu;
    Step();
  } else if (number > 0 || number != number) {
    Step();
  }
  return static_cast<float>(seed_) / 16777216.0f;
}

double BuiltinContext::Now() const { return clock_ ? clock_() : DateTime::Now(); }

void BuiltinContext::Randomize(double number) noexcept {
  uint64_t bits;
  std::memcpy(&bits, &number, sizeof bits);
  uint32_t hi = static_cast<uint32_t>(bits >> 32);
  uint32_t mixed = ((hi & 0xFFFFu) ^ (hi >> 16)) << 8;
  seed_ = (seed_ & 0xFFu) | (mixed & 0xFFFF00u);
}

}  // namespace tessel::vbs
