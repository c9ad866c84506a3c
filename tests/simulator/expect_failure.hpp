// Expects a request to be refused with a certain status.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "simulator/status_texts.hpp"

namespace zelk::simulator {

// Runs `request` and returns the text of its failure, which must have `status`.
template <typename Request>
std::string failure_text(Status status, Request&& request) {
  try {
    request();
  } catch (const Failure& failure) {
    EXPECT_EQ(status_text(static_cast<std::int32_t>(failure.status())),
              std::string(status_text(static_cast<std::int32_t>(status))))
        << failure.what();
    return failure.what();
  }
  ADD_FAILURE() << "not refused; expected: " << status_text(static_cast<std::int32_t>(status));
  return {};
}

}  // namespace zelk::simulator
