#include "simulator/status_texts.hpp"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace zelk::simulator {
namespace {

TEST(StatusTexts, WithoutAnAnswerFromElsewhereAreThisLibrarys) {
  StatusTexts texts;
  for (int status = -300; status <= 300; ++status) {
    EXPECT_STREQ(texts.text(status), status_text(status)) << status;
  }
}

TEST(StatusTexts, AreThoseOfWhoAnsweredLast) {
  StatusTexts texts;
  texts.answered_elsewhere(-6, "pipe stalled");
  EXPECT_STREQ(texts.text(-6), "pipe stalled");
  EXPECT_STREQ(texts.text(-9), status_text(-9));
  texts.answered_elsewhere(-6, "cable unplugged");
  EXPECT_STREQ(texts.text(-6), "cable unplugged");
  texts.answered_here(-6);
  EXPECT_STREQ(texts.text(-6), status_text(-6));
}

TEST(StatusTexts, StayWhereTheyAreOnceGiven) {
  StatusTexts texts;
  texts.answered_elsewhere(-6, "pipe stalled");
  const char* const given = texts.text(-6);
  texts.answered_here(-6);
  for (int i = 0; i < 5000; ++i) {
    texts.answered_elsewhere(i, "text " + std::to_string(i));
    ASSERT_NE(texts.text(i), nullptr);
  }
  EXPECT_STREQ(given, "pipe stalled");
}

// Beyond a thousand texts there are this library's own only, for good.
TEST(StatusTexts, DoNotTakeAllMemory) {
  StatusTexts texts;
  for (int i = 1; i <= 1000; ++i) {
    texts.answered_elsewhere(i, "text " + std::to_string(i));
  }
  EXPECT_STREQ(texts.text(1000), "text 1000");
  texts.answered_elsewhere(1001, "one more");
  EXPECT_STREQ(texts.text(1001), status_text(1001));
  texts.answered_elsewhere(1001, "text 7");
  EXPECT_STREQ(texts.text(1001), "text 7");
}

// Nor does one text for ever more statuses; those that have one may change it.
TEST(StatusTexts, AreGivenToAHundredThousandStatusesAtMost) {
  StatusTexts texts;
  for (int i = 1; i <= 100'001; ++i) {
    texts.answered_elsewhere(i, "odd");
  }
  EXPECT_STREQ(texts.text(100'000), "odd");
  EXPECT_STREQ(texts.text(100'001), status_text(100'001));
  texts.answered_elsewhere(7, "even");
  EXPECT_STREQ(texts.text(7), "even");
  texts.answered_here(7);
  texts.answered_elsewhere(100'001, "odd");
  EXPECT_STREQ(texts.text(100'001), "odd");
}

TEST(StatusTexts, SayWhyNoDeviceWasOpenedUntilTheStatusIsAnsweredAgain) {
  StatusTexts texts;
  texts.refused_without_device(-23, "unknown key `a`");
  EXPECT_STREQ(texts.text(-23), "unknown key `a`");
  EXPECT_STREQ(texts.text(-24), status_text(-24));
  const char* const given = texts.text(-23);
  texts.refused_without_device(-23, "unknown key `b`");
  EXPECT_STREQ(texts.text(-23), "unknown key `b`");
  texts.answered_elsewhere(-23, "pipe stalled");
  EXPECT_STREQ(texts.text(-23), "pipe stalled");
  texts.refused_without_device(-23, "unknown key `c`");
  texts.answered_here(-23);
  EXPECT_STREQ(texts.text(-23), status_text(-23));
  EXPECT_STREQ(given, "unknown key `a`");
}

TEST(StatusTexts, OfRefusalsAreOneLineOfBoundedLength) {
  StatusTexts texts;
  texts.refused_without_device(-30, "cannot open a\nb\x1b");
  EXPECT_STREQ(texts.text(-30), "cannot open a\\nb\\x1b");
  texts.refused_without_device(-30, std::string(100'000, 'x'));
  EXPECT_EQ(std::string(texts.text(-30)).size(), 1500U);
}

// A host that tries ports must not take the texts of the tapped library away,
// nor the other way round.
TEST(StatusTexts, OfRefusalsLeaveRoomForThoseFromElsewhere) {
  StatusTexts texts;
  for (int i = 0; i < 1000; ++i) {
    texts.refused_without_device(-23, "refusal " + std::to_string(i));
  }
  EXPECT_STREQ(texts.text(-23), "refusal 999");
  texts.refused_without_device(-23, "one more");
  EXPECT_STREQ(texts.text(-23), status_text(-23));
  texts.refused_without_device(-23, "refusal 7");
  EXPECT_STREQ(texts.text(-23), "refusal 7");
  for (int i = 0; i < 1000; ++i) {
    texts.answered_elsewhere(-6, "text " + std::to_string(i));
  }
  EXPECT_STREQ(texts.text(-6), "text 999");
}

TEST(StatusTexts, MayBeAskedForAndChangedFromAnyThread) {
  StatusTexts texts;
  std::vector<std::thread> threads;
  for (int k = 0; k < 4; ++k) {
    threads.emplace_back([&texts, k] {
      for (int i = 0; i < 1000; ++i) {
        texts.answered_elsewhere(-1 - i % 3, "text " + std::to_string(k));
        EXPECT_NE(texts.text(-1 - i % 3), nullptr);
        texts.refused_without_device(-1 - i % 3, "refusal " + std::to_string(k));
        EXPECT_NE(texts.text(-1 - i % 3), nullptr);
        texts.answered_here(-1 - i % 3);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace zelk::simulator
