#include "simulator/status_texts.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <set>
#include <string>

namespace zelk::simulator {
namespace {

TEST(StatusText, IsNeverNullForAnyNumber) {
  for (int status = -300; status <= 300; ++status) {
    ASSERT_NE(status_text(status), nullptr) << status;
    EXPECT_STRNE(status_text(status), "") << status;
  }
  EXPECT_STREQ(status_text(std::numeric_limits<std::int32_t>::min()), "unknown status");
  EXPECT_STREQ(status_text(std::numeric_limits<std::int32_t>::max()), "unknown status");
}

TEST(StatusText, KnownStatusesHaveTextsOfTheirOwn) {
  std::set<std::string> texts;
  int known = 0;
  for (int status = -300; status <= 0; ++status) {
    const std::string text = status_text(status);
    if (text != "unknown status") {
      ++known;
      texts.insert(text);
    }
  }
  EXPECT_GT(known, 20);
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(known));
}

TEST(StatusText, NamesTheStatusesThatHostsKnow) {
  EXPECT_STREQ(status_text(0), "success");
  EXPECT_STREQ(status_text(-3), "timed out");
  EXPECT_STREQ(status_text(-4), "not supported");
  EXPECT_STREQ(status_text(-5), "no device found");
  EXPECT_STREQ(status_text(-7), "not available on this unit");
}

}  // namespace
}  // namespace zelk::simulator
