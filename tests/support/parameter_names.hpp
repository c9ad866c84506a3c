// Names for the parameters of a suite, as INSTANTIATE_TEST_SUITE_P takes them. Without
// them a test has a number for its name, or the bytes of its parameter.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <string>

namespace zelk::test_support {

// What the parameter prints, with what no name may hold left out: `("raw64", ".npy")` is
// raw64_npy. One that goes on for longer is told apart by its number.
inline constexpr auto printed_parameter = [](const auto& parameter) {
  constexpr std::size_t longest = 32;
  std::string name;
  for (const char c : testing::PrintToString(parameter.param)) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
      name += c;
    } else if (!name.empty() && name.back() != '_') {
      name += '_';
    }
  }
  if (name.ends_with('_')) {
    name.pop_back();
  }
  return name.size() <= longest ? name
                                : name.substr(0, longest) + "_" + std::to_string(parameter.index);
};

inline constexpr auto signal_name = [](const testing::TestParamInfo<int>& parameter) {
  return std::string("SIG") + sigabbrev_np(parameter.param);
};

}  // namespace zelk::test_support
