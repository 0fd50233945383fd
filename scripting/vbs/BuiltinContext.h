// BuiltinContext: the per-engine state of the built-in functions.
//
// Each script engine owns one and hands it to every built-in call; built-ins
// keep no state of their own, so engines on different threads never share
// anything. What lives here is the random-number generator of Rnd and
// Randomize (a 24-bit linear congruential sequence that reproduces the
// script language's own numbers for a given seed) and the last value Rnd gave.
#pragma once

#include <cstdint>

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

 private:
  void Step() noexcept;

  uint32_t seed_ = 0x50000;
};

}  // namespace tessel::vbs
