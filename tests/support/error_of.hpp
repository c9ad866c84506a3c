// The error that an action ends in.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "timing/error.hpp"

namespace zelk::test_support {

// Fails the test when `action` throws no Error.
inline timing::Error error_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const timing::Error& error) {
    return error;
  }
  ADD_FAILURE() << "no error was thrown";
  return {"none", 0};
}

}  // namespace zelk::test_support
