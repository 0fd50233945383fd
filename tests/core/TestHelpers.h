// Helpers shared by the core tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "core/Error.h"

namespace tessel::testing {

// Runs `f` and returns the number of the tessel::Error it raised (0 if none).
inline int32_t ErrorNumberOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const Error& e) {
    return e.number();
  }
  return 0;
}

}  // namespace tessel::testing
