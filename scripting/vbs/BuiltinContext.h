// BuiltinContext: the per-engine state of the built-in functions.
//
// Each script engine owns one and hands it to every built-in call; built-ins
// keep no state of their own, so engines on different threads never share
// anything. What lives here is the random-number generator of Rnd and
// Randomize (a 24-bit linear congruential sequence that reproduces the
// script language's own numbers for a given seed) and the clock that Date,
// Time, Now, Timer and Randomize read: the local system clock unless the
// owner sets another (a test pinning the time, a host replaying a run).
#pragma once

#include <cstdint>
#include <functional>

namespace tessel::vbs {

class BuiltinContext {
 public:
  BuiltinContext() = default;

  // Rnd(number): < 0 reseeds from the number's bits and steps; 0 repeats the
  // last value; > 0 (or no argument) steps.
  float NextRandom(float number = 1.0f) noexcept;
  // Randomize number: folds the number's bits into the seed.
  void Randomize(double number) noexcept;

  uint32_t Seed() const noexcept { return seed_; }

  // The current local time as a date serial (days since 1899-12-30).
  double Now() const;
  // Replaces the clock; an empty function restores the system clock.
  void SetClock(std::function<double()> clock) { clock_ = std::move(clock); }

 private:
  void Step() noexcept;

  uint32_t seed_ = 0x50000;
  std::function<double()> clock_;
};

}  // namespace tessel::vbs
