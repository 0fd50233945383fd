// CatchError: runs a body that must raise a tessel::Error and hands the error
// back for its number and text; a body that raises nothing fails the test.
#pragma once

#include <gtest/gtest.h>

#include "core/Error.h"

namespace tessel::test {

template <class F>
Error CatchError(F&& body) {
  try {
    body();
  } catch (const Error& e) {
    return e;
  }
  ADD_FAILURE() << "no error was raised";
  return Error(0, "");
}

}  // namespace tessel::test
