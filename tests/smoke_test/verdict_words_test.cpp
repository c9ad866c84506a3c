// The verdict in words, from figures set by hand.
#include "smoke_test/verdict_words.hpp"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdint>

namespace {

using zelk::timing::Format;

// What the channels saw; the pair is the default one, of channels 0 and 1.
Analysis analysis_of(const std::array<std::uint64_t, 4>& tags, std::uint64_t coincidences = 0) {
  Analysis analysis;
  for (std::size_t channel = 0; channel < tags.size(); ++channel) {
    analysis.channels[channel].tags = tags[channel];
    analysis.tags_total += tags[channel];
  }
  analysis.pair.tags_a = tags[0];
  analysis.pair.tags_b = tags[1];
  analysis.pair.coincidences = coincidences;
  return analysis;
}

Analysis good_analysis() {
  Analysis analysis = analysis_of({5000, 4990, 0, 0}, 4978);
  analysis.pair.offset = {.offset_ps = 24, .valid = true};
  analysis.pair.rms_ps = 6.74;
  return analysis;
}

Config config_with_mask(std::uint8_t mask) {
  Config config;
  config.channel_mask = mask;
  return config;
}

Config external_with_mask(std::uint8_t mask) {
  Config config = config_with_mask(mask);
  config.mode = StreamMode::external;
  return config;
}

std::string passed(const Analysis& analysis, LimitCounts limits = {}) {
  return verdict_in_words(config_with_mask(0x03), analysis, 0, 0, limits);
}

std::string failed(const Config& config, const Analysis& analysis) {
  return verdict_in_words(config, analysis, 0, 3);
}

TEST(PassInWords, GivesTheFiguresOfThePair) {
  EXPECT_EQ(passed(good_analysis()), "PASS: 4978 coincidences, offset 24 ps, rms 6.7 ps");
}

TEST(PassInWords, KeepsTheSignOfTheOffsetAndCountsOne) {
  Analysis analysis = analysis_of({1, 1, 0, 0}, 1);
  analysis.pair.offset = {.offset_ps = -100, .valid = true};
  EXPECT_EQ(passed(analysis), "PASS: 1 coincidence, offset -100 ps, rms 0.0 ps");
}

// Of many tags only some are tried for the offset.
TEST(PassInWords, LeavesOutAnOffsetThatWasNotFound) {
  EXPECT_EQ(passed(analysis_of({9000, 9000, 0, 0}, 2)), "PASS: 2 coincidences");
}

TEST(PassInWords, StaysAPassWhenTagsWereDropped) {
  Analysis analysis = good_analysis();
  analysis.reader_dropped = 1234;
  EXPECT_EQ(passed(analysis),
            "PASS: 4978 coincidences, offset 24 ps, rms 6.7 ps; 1234 tags dropped by this machine "
            "(reader_dropped)");
}

TEST(PassInWords, StaysAPassWhenTimesRunBackwards) {
  Analysis analysis = good_analysis();
  analysis.reader_dropped = 1;
  analysis.channels[0].monotonic_violations = 2;
  analysis.channels[3].monotonic_violations = 3;
  EXPECT_EQ(passed(analysis),
            "PASS: 4978 coincidences, offset 24 ps, rms 6.7 ps; 1 tag dropped by this machine "
            "(reader_dropped); 5 tags out of order (monotonic_violations)");
}

TEST(PassInWords, IsTheSameWithLimitsThatAreMet) {
  EXPECT_EQ(passed(good_analysis(), {.given = 5, .not_met = 0}), passed(good_analysis()));
}

TEST(LimitsInWords, CountThoseNotMet) {
  const auto words = [](const Analysis& analysis, LimitCounts limits) {
    return verdict_in_words(config_with_mask(0x03), analysis, 0, 4, limits);
  };
  EXPECT_EQ(words(good_analysis(), {.given = 5, .not_met = 2}), "FAIL: 2 of 5 limits not met");
  EXPECT_EQ(words(good_analysis(), {.given = 1, .not_met = 1}), "FAIL: 1 of 1 limit not met");
  Analysis dropping = good_analysis();
  dropping.reader_dropped = 7;
  EXPECT_EQ(words(dropping, {.given = 5, .not_met = 2}),
            "FAIL: 2 of 5 limits not met; 7 tags dropped by this machine (reader_dropped)");
}

TEST(LimitsInWords, StandBehindAnotherReason) {
  EXPECT_EQ(verdict_in_words(config_with_mask(0x03), analysis_of({9, 8, 0, 0}), 0, 3,
                             {.given = 2, .not_met = 2}),
            "FAIL: channels 0 and 1 saw 9 and 8 tags, but no coincidences: try a wider "
            "coincidence_window_ps than 1000, or compare the delays of the two cables; 2 of 2 "
            "limits not met");
}

// The default mask streams other channels than the default pair.
TEST(ChannelNotStreamed, IsNamedWithAPairThatSawTags) {
  EXPECT_EQ(failed({}, analysis_of({0, 0, 4960, 4960})),
            "FAIL: channel 0 saw no tags; channel_mask streams only channels 2 and 3: try "
            "channel_a=2 channel_b=3");
  EXPECT_EQ(failed(config_with_mask(0x0B), analysis_of({5, 0, 0, 0})).substr(0, 27),
            "FAIL: channel 1 saw no tags");
}

TEST(ChannelNotStreamed, TakesThePairFromThoseThatSawTags) {
  Config config = config_with_mask(0x0D);
  EXPECT_EQ(failed(config, analysis_of({5, 0, 0, 7})),
            "FAIL: channel 1 saw no tags; channel_mask streams only channels 0, 2 and 3: try "
            "channel_a=0 channel_b=3");
  config.channel_mask = 0x0E;
  EXPECT_EQ(failed(config, analysis_of({0, 5, 6, 7})),
            "FAIL: channel 0 saw no tags; channel_mask streams only channels 1, 2 and 3: try "
            "channel_a=1 channel_b=2");
}

TEST(ChannelNotStreamed, IsToBeStreamedWhenNoOtherPairSawTags) {
  EXPECT_EQ(failed(config_with_mask(0x04), analysis_of({0, 0, 9, 0})),
            "FAIL: channel 0 saw no tags; channel_mask streams only channel 2: try "
            "channel_mask=0x07");
  EXPECT_EQ(failed(config_with_mask(0x0C), analysis_of({0, 0, 0, 9})),
            "FAIL: channel 0 saw no tags; channel_mask streams only channels 2 and 3: try "
            "channel_mask=0x0F");
  EXPECT_EQ(failed({}, analysis_of({})),
            "FAIL: no channel saw tags; channel_mask streams only channels 2 and 3: try "
            "channel_mask=0x0F");
  EXPECT_EQ(failed(config_with_mask(0x00), analysis_of({})),
            "FAIL: no channel saw tags; channel_mask streams no channel: try channel_mask=0x03");
}

// A damaged stream can hold tags of channels that it should not.
TEST(ChannelNotStreamed, IsNoPairToTryWhateverItSaw) {
  EXPECT_EQ(failed(config_with_mask(0x01), analysis_of({9, 0, 9, 9})),
            "FAIL: channel 1 saw no tags; channel_mask streams only channel 0: try "
            "channel_mask=0x03");
}

TEST(SilentChannel, OfRealSignalsHasItsInputToLookAt) {
  EXPECT_EQ(failed(external_with_mask(0x03), analysis_of({9, 0, 0, 0})),
            "FAIL: channel 1 saw no tags: look at the signal, its cable and threshold_v");
  EXPECT_EQ(failed(external_with_mask(0x07), analysis_of({0, 0, 9, 0})),
            "FAIL: channels 0 and 1 saw no tags: look at the signal, its cable and threshold_v");
}

TEST(SilentChannel, OfTheCalibrationSourceMayWantTheExternalMode) {
  EXPECT_EQ(failed(config_with_mask(0x03), analysis_of({9, 0, 0, 0})),
            "FAIL: channel 1 saw no tags: look at threshold_v, or try mode=external for signals "
            "from outside");
}

TEST(NoTagsAtAll, PointToWhatShowsMore) {
  Config config = external_with_mask(0x03);
  EXPECT_EQ(failed(config, analysis_of({})),
            "FAIL: no channel saw tags: look at the signal, its cable and threshold_v; "
            "with format=raw64 even a single live channel shows");
  config.format = Format::raw64;
  EXPECT_EQ(failed(config, analysis_of({})),
            "FAIL: no channel saw tags: look at the signal, its cable and threshold_v; "
            "byte_probe=1 shows whether any byte arrives");
  config.mode = StreamMode::internal;
  EXPECT_EQ(failed(config, analysis_of({})),
            "FAIL: no channel saw tags: look at threshold_v and cal_freq_hz, or try mode=external "
            "for signals from outside; byte_probe=1 shows whether any byte arrives");
}

TEST(NoTagsAtAll, AreNoWonderInNoTime) {
  Config config = external_with_mask(0x03);
  config.capture_s = 0.0;
  EXPECT_EQ(failed(config, analysis_of({})),
            "FAIL: no channel saw tags: capture_s leaves no time for any");
}

TEST(NoCoincidences, NameTheWindowAndTheCables) {
  Config config = config_with_mask(0x0F);
  config.channel_a = 3;
  config.channel_b = 1;
  config.coincidence_window_ps = 250;
  Analysis analysis = analysis_of({0, 4955, 0, 4960});
  analysis.pair.tags_a = 4960;
  analysis.pair.tags_b = 4955;
  analysis.channels[1].monotonic_violations = 1;
  EXPECT_EQ(failed(config, analysis),
            "FAIL: channels 3 and 1 saw 4960 and 4955 tags, but no coincidences: try a wider "
            "coincidence_window_ps than 250, or compare the delays of the two cables; 1 tag out "
            "of order (monotonic_violations)");
}

TEST(EndInWords, NamesTheSignal) {
  const Config config = config_with_mask(0x03);
  EXPECT_EQ(verdict_in_words(config, good_analysis(), SIGINT, 130),
            "ENDED EARLY by SIGINT: 4978 coincidences, offset 24 ps, rms 6.7 ps");
  EXPECT_EQ(verdict_in_words(config, good_analysis(), SIGTERM, 143),
            "ENDED EARLY by SIGTERM: 4978 coincidences, offset 24 ps, rms 6.7 ps");
  EXPECT_EQ(verdict_in_words(config, good_analysis(), SIGHUP, 129),
            "ENDED EARLY by SIGHUP: 4978 coincidences, offset 24 ps, rms 6.7 ps");
  EXPECT_EQ(verdict_in_words(config, good_analysis(), 60, 188).substr(0, 25),
            "ENDED EARLY by signal 60:");
}

TEST(EndInWords, SaysWhatWasSeenSoFarAndGivesNoAdvice) {
  EXPECT_EQ(verdict_in_words({}, analysis_of({}), SIGINT, 130),
            "ENDED EARLY by SIGINT: no channel saw tags");
  EXPECT_EQ(verdict_in_words(config_with_mask(0x03), analysis_of({9, 0, 0, 0}), SIGINT, 130),
            "ENDED EARLY by SIGINT: channel 1 saw no tags");
  EXPECT_EQ(verdict_in_words(config_with_mask(0x03), analysis_of({9, 8, 0, 0}), SIGINT, 130,
                             {.given = 3, .not_met = 1}),
            "ENDED EARLY by SIGINT: channels 0 and 1 saw 9 and 8 tags, but no coincidences; "
            "1 of 3 limits not met");
}

TEST(FailedRunInWords, HasItsOwnLineAlready) {
  EXPECT_EQ(verdict_in_words({}, good_analysis(), 0, 2), "");
}

TEST(ByteProbeInWords, CountsBytesAndTags) {
  ByteProbe probe;
  EXPECT_EQ(byte_probe_in_words(probe), "FAIL: not one byte arrived");
  probe.payload_bytes = 123456;
  probe.decoded_total = 4960;
  EXPECT_EQ(byte_probe_in_words(probe), "PASS: 123456 bytes arrived, 4960 tags decoded");
  probe.interrupting_signal = SIGTERM;
  EXPECT_EQ(byte_probe_in_words(probe),
            "ENDED EARLY by SIGTERM: 123456 bytes arrived, 4960 tags decoded");
}

TEST(ByteProbeInWords, CountsOneByteAndTellsOfNoneAfterASignal) {
  ByteProbe probe;
  probe.payload_bytes = 1;
  EXPECT_EQ(byte_probe_in_words(probe), "PASS: 1 byte arrived, 0 tags decoded");
  probe = {};
  probe.interrupting_signal = SIGINT;
  EXPECT_EQ(byte_probe_in_words(probe), "ENDED EARLY by SIGINT: not one byte arrived");
}

}  // namespace
