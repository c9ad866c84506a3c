// The stream as a whole, as a host reads it: what a seed names, wraps of the
// coarse counter, bursts, the link and the sizes of reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <thread>

#include "tests/simulator/unit_streams.hpp"

namespace zelk::simulator {
namespace {

using namespace std::chrono_literals;
using timing::TimeTag;
using Bytes = std::vector<std::uint8_t>;

constexpr Wire default_packed_delta{.name = "packed_delta_16_8",
                                    .format = timing::Format::packed_delta,
                                    .bits = 16,
                                    .quantum_ps = 8};

const std::array<std::string, 5> random_ports{
    "ftdi://?pace=max", "sim://random?pace=max&afterpulse_percent=5",
    "sim://pairs?pace=max&efficiency=0.7", "sim://pulses?pace=max&background_hz=1e4",
    "sim://silent?pace=max&background_hz=1e5&bin_nonuniformity_percent=30"};

class Stream : public testing::TestWithParam<Wire> {};

TEST_P(Stream, ASeedNamesTheBytes) {
  for (const std::string& port : random_ports) {
    SCOPED_TRACE(port);
    const Bytes bytes = first_bytes(port + "&seed=5", GetParam(), 100'000);
    EXPECT_EQ(bytes.size(), 100'000U);
    EXPECT_EQ(first_bytes(port + "&seed=5", GetParam(), 100'000), bytes);
    EXPECT_NE(first_bytes(port + "&seed=6", GetParam(), 100'000), bytes);
  }
  Wire internal = GetParam();
  internal.mode = timing::StreamMode::internal;
  const Bytes bytes = first_bytes("ftdi://?pace=max&seed=5", internal, 100'000);
  EXPECT_EQ(first_bytes("ftdi://?pace=max&seed=5", internal, 100'000), bytes);
  EXPECT_NE(first_bytes("ftdi://?pace=max&seed=6", internal, 100'000), bytes);
}

TEST_P(Stream, EveryStartOfAUnitGivesTheSameBytes) {
  UnitClient unit(parse_device_port("sim://random?pace=max&afterpulse_percent=5"));
  Bytes first;
  for (int run = 0; run < 2; ++run) {
    start(unit, GetParam());
    const Bytes bytes = read_some(unit, 65'536, 1000ms);
    EXPECT_EQ(bytes.size(), 65'536U);
    EXPECT_TRUE(run == 0 || bytes == first);
    first = bytes;
    unit.stop_stream(true);
  }
}

// A stream that begins before the wrap is the same stream, later.
TEST_P(Stream, RunsAcrossTheWrapOfTheCoarseCounter) {
  const std::string port = "sim://random?pace=max&rate_hz=20000&seed=3";
  for (const timing::StreamMode mode :
       {timing::StreamMode::external, timing::StreamMode::internal}) {
    Wire wire = GetParam();
    wire.mode = mode;
    // The first time is seen modulo the counter of the format: 20 ms, in whole
    // clock periods, before the end of an epoch.
    const std::int64_t epoch_ps = 14'315'125'997'568;
    const std::int64_t start_ps = epoch_ps - 20'000'000'000 / 3333 * 3333;
    const bool whole = wire.format == timing::Format::raw64 || wire.quantum_ps == 8;
    const std::int64_t seen_start_ps = whole ? start_ps : start_ps % (std::int64_t{1} << 41);
    const auto plain = tags_before(port, wire, second_ps / 10);
    const auto wrapping =
        tags_before(port + "&start_epoch=20", wire, seen_start_ps + second_ps / 10 + 8);
    ASSERT_GT(plain.size(), 1000U);
    ASSERT_GE(wrapping.size(), plain.size());
    const std::int64_t shift_ps = wrapping[0].timestamp_ps - plain[0].timestamp_ps;
    EXPECT_NEAR(static_cast<double>(shift_ps), static_cast<double>(seen_start_ps), 8);
    // Times in ticks of 8 ps shift by whole ticks; whether a time comes before
    // or after the end of one depends on where it begins.
    const std::int64_t rounding_ps =
        wire.format == timing::Format::packed_delta ? wire.quantum_ps - 1 : 0;
    for (std::size_t i = 0; i < plain.size(); ++i) {
      ASSERT_EQ(wrapping[i].channel, plain[i].channel);
      ASSERT_LE(std::abs(wrapping[i].timestamp_ps - plain[i].timestamp_ps - shift_ps), rounding_ps);
    }
  }
}

TEST_P(Stream, BurstsFillTheLinkAndPauseBetween) {
  UnitClient unit(parse_device_port("sim://burst?pace=max&burst_us=20000&pause_us=30000"));
  start(unit, GetParam());
  const int bits = bits_per_tag(GetParam().format, {GetParam().bits, GetParam().quantum_ps});
  timing::StreamDecoder decoder = decoder_for(GetParam());
  std::vector<std::int64_t> tags_of_train(1);
  std::array<std::int64_t, 4> counts{};
  std::int64_t last_ps = 0;
  while (tags_of_train.size() < 3) {
    const Bytes bytes = read_some(unit, 262'144, 1000ms);
    ASSERT_FALSE(bytes.empty());
    for (const TimeTag& tag : decoder.feed(bytes.data(), bytes.size())) {
      if (tag.timestamp_ps - last_ps > 1'000'000'000) {
        EXPECT_GE(tag.timestamp_ps,
                  49'999'000'000 * static_cast<std::int64_t>(tags_of_train.size()));
        tags_of_train.push_back(0);
      }
      ++tags_of_train.back();
      ++counts[tag.channel];
      last_ps = tag.timestamp_ps;
    }
  }
  // 40 MB/s for 20 ms; 0.1 % is left for words without tags.
  for (int train = 0; train < 2; ++train) {
    const double bytes =
        static_cast<double>(tags_of_train[static_cast<std::size_t>(train)]) * bits / 8;
    EXPECT_GE(bytes, 800'000 * 0.998);
    EXPECT_LE(bytes, 800'000);
  }
  for (const std::int64_t count : counts) {
    EXPECT_NEAR(static_cast<double>(count), static_cast<double>(counts[0]), 2);
  }
}

// What a unit with a link that is too slow sends, against the same unit
// without a link: some tags are missing, all others are there.
TEST_P(Stream, OverflowLosesWholeTagsAndTheRestIsDecoded) {
  const std::string port = "sim://random?seed=8&rate_hz=100000&fifo_bytes=4096";
  UnitClient unit(parse_device_port(port + "&link_bytes_per_s=200000"));
  start(unit, GetParam());
  timing::StreamDecoder decoder = decoder_for(GetParam());
  std::vector<TimeTag> seen;
  const auto end = std::chrono::steady_clock::now() + 150ms;
  while (std::chrono::steady_clock::now() < end) {
    const Bytes bytes = read_some(unit, 65'536, 20ms);
    const auto tags = decoder.feed(bytes.data(), bytes.size());
    seen.insert(seen.end(), tags.begin(), tags.end());
  }
  ASSERT_GT(seen.size(), 500U);
  const auto sent = tags_before(port + "&pace=max", GetParam(), seen.back().timestamp_ps + 1);
  std::set<std::pair<std::int64_t, int>> known;
  for (const TimeTag& tag : sent) {
    known.emplace(tag.timestamp_ps, tag.channel);
  }
  std::int64_t last_ps = 0;
  for (const TimeTag& tag : seen) {
    EXPECT_EQ(known.count({tag.timestamp_ps, tag.channel}), 1U);
    EXPECT_GE(tag.timestamp_ps, last_ps);
    last_ps = tag.timestamp_ps;
  }
  // 400 000 tags per second of 19 bits or more make 950 kB/s, of which the link
  // carries 200.
  EXPECT_LT(static_cast<double>(seen.size()), 0.5 * static_cast<double>(sent.size()));
}

TEST_P(Stream, AHostThatPausesLosesWhatTheBuffersCannotHold) {
  const std::string port =
      "sim://random?seed=9&rate_hz=25000&fifo_bytes=4096&host_buffer_bytes=8192";
  UnitClient unit(parse_device_port(port));
  start(unit, GetParam());
  timing::StreamDecoder decoder = decoder_for(GetParam());
  std::this_thread::sleep_for(200ms);  // 20 000 tags
  std::vector<TimeTag> seen;
  for (int i = 0; i < 20; ++i) {
    const Bytes bytes = read_some(unit, 65'536, 5000ms);
    const auto tags = decoder.feed(bytes.data(), bytes.size());
    seen.insert(seen.end(), tags.begin(), tags.end());
  }
  const auto sent = tags_before(port + "&pace=max", GetParam(), seen.back().timestamp_ps + 1);
  // Up to the gap nothing is missing, and the gap is one.
  const auto [lost, before] = std::mismatch(sent.begin(), sent.end(), seen.begin(), seen.end());
  ASSERT_NE(lost, sent.end());
  const auto buffered = static_cast<double>(before - seen.begin());
  const int bits = bits_per_tag(GetParam().format, {GetParam().bits, GetParam().quantum_ps});
  EXPECT_LE(buffered * bits, 8.0 * (8192 + 4096 + 64));
  EXPECT_GE(buffered * bits, 8.0 * (8192 + 4096) / 3);  // with overflows and bases
  EXPECT_GT(before->timestamp_ps - lost->timestamp_ps, 100'000'000'000);
}

TEST_P(Stream, AsFastAsTheHostReadsNothingIsLost) {
  const std::string port = "sim://random?seed=9&rate_hz=1e6&pace=max";
  EXPECT_EQ(first_bytes(port, GetParam(), 300'000),
            first_bytes(port + "&fifo_bytes=512&link_bytes_per_s=1000&host_buffer_bytes=4096",
                        GetParam(), 300'000));
}

TEST_P(Stream, ReadsAreWholePacketsUnlessLessIsThere) {
  UnitClient unit(parse_device_port("sim://random?pace=max"));
  start(unit, GetParam());
  using Sizes = std::pair<std::size_t, std::size_t>;
  for (const auto& [capacity, size] :
       {Sizes{65'536, 65'536}, Sizes{1000, 512}, Sizes{1024, 1024}, Sizes{512, 512},
        Sizes{511, 511}, Sizes{7, 7}, Sizes{1'000'000, 262'144}}) {
    EXPECT_EQ(read_some(unit, capacity, 5000ms).size(), size);
  }
}

TEST_P(Stream, RealTimeReadsAreWhatHasGathered) {
  UnitClient unit(parse_device_port("sim://random?rate_hz=10000"));
  start(unit, GetParam());
  std::this_thread::sleep_for(10ms);
  EXPECT_EQ(read_some(unit, 800, 5000ms).size(), 512U);  // of 400 tags or more
  std::size_t odd = 0;
  for (int i = 0; i < 20; ++i) {
    odd += read_some(unit, 262'144, 5000ms).size() % 512 != 0 ? 1U : 0U;
  }
  EXPECT_GT(odd, 10U);
}

// What fills the last byte of a packed_delta stream at each tick does not depend
// on who looks.
TEST_P(Stream, BytesInRealTimeDoNotDependOnTheReads) {
  const std::string port = "sim://random?rate_hz=2000&seed=4";
  std::array<Bytes, 2> streams;
  for (Bytes& bytes : streams) {
    const bool is_patient = &bytes != streams.data();
    UnitClient unit(parse_device_port(port));
    start(unit, GetParam());
    while (bytes.size() < 2000) {
      std::this_thread::sleep_for(is_patient ? 37ms : 0ms);
      const Bytes part = read_some(unit, 65'536, 5000ms);
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
    bytes.resize(2000);
  }
  EXPECT_EQ(streams[0], streams[1]);
}

TEST_P(Stream, ShortReadsCutTheSameBytesAnywhere) {
  const std::string port = "sim://random?rate_hz=100000&pace=max";
  const Bytes whole = first_bytes(port, GetParam(), 200'000);
  UnitClient unit(parse_device_port(port + "&short_reads=1"));
  start(unit, GetParam());
  Bytes bytes;
  std::set<std::size_t> sizes;
  while (bytes.size() < whole.size()) {
    const Bytes part = read_some(unit, 65'536, 1000ms);
    ASSERT_FALSE(part.empty());
    sizes.insert(part.size());
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  bytes.resize(whole.size());
  EXPECT_EQ(bytes, whole);
  EXPECT_EQ(sizes, (std::set<std::size_t>{1, 2, 3, 5, 7, 13, 63, 257, 511, 513, 1021, 4099}));
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, Stream,
                         testing::Values(raw64, delta32, packed_delta, default_packed_delta),
                         wire_name);

TEST(RawStream, TheCoarseCounterWrapsWhereStartEpochSays) {
  // Each record's low 44 bits are its time in the epoch.
  const Bytes bytes = first_bytes("sim://random?pace=max&start_epoch=7.5", raw64, 8 * 1000);
  std::int64_t before_ps = -1;
  std::int64_t after_ps = -1;
  for (std::size_t at = 0; at < bytes.size() && after_ps < 0; at += 8) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < 8; ++i) {
      word = word << 8 | bytes[at + i];
    }
    const auto time_ps = static_cast<std::int64_t>(word & 0xFFFFFFFFFFFU);
    if (time_ps < before_ps) {
      after_ps = time_ps;
    } else {
      before_ps = time_ps;
    }
    EXPECT_GE(before_ps, 14'315'125'997'568 - 7'500'001'666);
  }
  // 40 kHz in all: the tags beside the wrap are some 25 us from it.
  EXPECT_GT(before_ps, 14'315'125'997'568 - 1'000'000'000);
  EXPECT_GE(after_ps, 0);
  EXPECT_LT(after_ps, 1'000'000'000);
}

}  // namespace
}  // namespace zelk::simulator
