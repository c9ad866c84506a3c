// What a host measures on a simulated unit against what was asked of it. Every
// bound is 4 standard deviations of the measured figure, from the statistics of
// the process itself; seeds make each run repeatable.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "simulator/random_numbers.hpp"
#include "simulator/unit/delay_line.hpp"
#include "tests/simulator/unit_streams.hpp"

namespace zelk::simulator {
namespace {

class Physics : public testing::TestWithParam<Wire> {
 protected:
  static constexpr double sigmas = 4;
};

struct Moments {
  double mean = 0;
  double rms = 0;  // around the mean
};

Moments moments_of(const std::vector<double>& values) {
  Moments moments;
  for (const double value : values) {
    moments.mean += value / static_cast<double>(values.size());
  }
  for (const double value : values) {
    const double off = value - moments.mean;
    moments.rms += off * off / static_cast<double>(values.size());
  }
  moments.rms = std::sqrt(moments.rms);
  return moments;
}

double size_of(const std::vector<std::int64_t>& times) {
  return static_cast<double>(times.size());
}

TEST_P(Physics, RandomEventsAndBackgroundHaveTheirRates) {
  const auto times = times_before(
      "sim://random?pace=max&seed=11&rate_hz=1000,5000,20000,0&background_hz=500,0,5000,200",
      GetParam(), 10 * second_ps);
  const std::array<double, 4> expected{15'000, 50'000, 250'000, 2'000};
  for (std::size_t channel = 0; channel < 4; ++channel) {
    // A Poisson count N spreads by sqrt(N).
    EXPECT_NEAR(size_of(times[channel]), expected[channel], sigmas * std::sqrt(expected[channel]))
        << channel;
    // A share s = 1/e of the waits is longer than the mean; of N it spreads by
    // sqrt(N s (1 - s)).
    const double mean_wait_ps = 10.0 * second_ps / expected[channel];
    double long_waits = 0;
    for (std::size_t i = 1; i < times[channel].size(); ++i) {
      const auto wait_ps = static_cast<double>(times[channel][i] - times[channel][i - 1]);
      long_waits += wait_ps > mean_wait_ps ? 1 : 0;
    }
    const double count = size_of(times[channel]);
    const double share = std::exp(-1.0);
    // The count enters twice, because its own mean is the one asked for.
    EXPECT_NEAR(long_waits / count, share,
                sigmas * std::sqrt((share * (1 - share) + share) / count))
        << channel;
  }
}

TEST_P(Physics, PairsHaveTheirRateDelayJitterAndEfficiency) {
  const auto times = times_before(
      "sim://pairs?pace=max&seed=12&channel_a=2&channel_b=0&pair_rate_hz=20000&pair_delay_ps=-1500"
      "&jitter_ps=100&efficiency=0.5,1,0.8,1",
      GetParam(), 5 * second_ps);
  const double pairs = 100'000;
  EXPECT_TRUE(times[1].empty());
  EXPECT_TRUE(times[3].empty());
  // A Poisson process of which a share is taken stays one.
  EXPECT_NEAR(size_of(times[0]), pairs * 0.5, sigmas * std::sqrt(pairs * 0.5));
  EXPECT_NEAR(size_of(times[2]), pairs * 0.8, sigmas * std::sqrt(pairs * 0.8));

  // Neighbours within 3 ns around the delay; accidental ones are 5 in number.
  std::vector<double> delays;
  for (const std::int64_t time_ps : times[0]) {
    const auto after = std::lower_bound(times[2].begin(), times[2].end(), time_ps - 1500);
    for (auto near = after; near != times[2].end() && *near <= time_ps + 4500; ++near) {
      delays.push_back(static_cast<double>(time_ps - *near));
    }
  }
  const double both = pairs * 0.5 * 0.8;
  EXPECT_NEAR(static_cast<double>(delays.size()), both + 5, sigmas * std::sqrt(both));
  std::erase_if(delays, [](double delay) { return std::abs(delay + 1500) > 1000; });
  // Two jitters of 100 ps add up to 141; a mean of n values spreads by
  // 141 / sqrt(n), their rms by at most 141 / sqrt(2 n), as this jitter has
  // less of a tail than a bell curve.
  const double rms = 100 * std::sqrt(2.0);
  const Moments measured = moments_of(delays);
  EXPECT_NEAR(measured.mean, -1500, sigmas * rms / std::sqrt(both));
  EXPECT_NEAR(measured.rms, rms, sigmas * rms / std::sqrt(2 * both));
}

TEST_P(Physics, PulsesHaveTheirFrequencyDelaysAndJitter) {
  const auto times = times_before(
      "sim://pulses?pace=max&seed=13&frequency_hz=50000&delay_ps=0,100,2000,1000000&jitter_ps=25",
      GetParam(), second_ps);
  const std::array<double, 4> delays_ps{0, 100, 2'000, 1'000'000};
  for (std::size_t channel = 0; channel < 4; ++channel) {
    // Pulse n comes n times 20 us after the start.
    EXPECT_NEAR(size_of(times[channel]), 49'999, 1);
    std::vector<double> offsets;
    for (const std::int64_t time_ps : times[channel]) {
      offsets.push_back(static_cast<double>(
          time_ps - 20'000'000 * static_cast<std::int64_t>(offsets.size() + 1)));
    }
    const Moments measured = moments_of(offsets);
    const double count = size_of(times[channel]);
    EXPECT_NEAR(measured.mean, delays_ps[channel], sigmas * 25 / std::sqrt(count));
    EXPECT_NEAR(measured.rms, 25, sigmas * 25 / std::sqrt(2 * count));
  }
}

TEST_P(Physics, DeadTimeOfTheDetectorTakesItsShareOfTheRate) {
  // The second channel is for packed_delta, where a host finds its place by two.
  const double dead_ps = 500'000;
  const double wait_ps = 1'000'000;
  const auto times = times_before(
      "sim://random?pace=max&seed=14&rate_hz=1e6,1000,0,0&detector_dead_time_ps=500000", GetParam(),
      second_ps / 5);
  // Waits are the dead time and then a random one: mean 1.5 us, spread 1 us.
  // Their number in a time T is T / mean, with a spread of
  // sqrt(T / mean) spread / mean.
  const double expected = 0.2 * second_ps / (dead_ps + wait_ps);
  EXPECT_NEAR(size_of(times[0]), expected,
              sigmas * std::sqrt(expected) * wait_ps / (dead_ps + wait_ps));
  std::int64_t shortest_ps = second_ps;
  std::vector<double> rests;
  for (std::size_t i = 1; i < times[0].size(); ++i) {
    const std::int64_t step_ps = times[0][i] - times[0][i - 1];
    shortest_ps = std::min(shortest_ps, step_ps);
    rests.push_back(static_cast<double>(step_ps) - dead_ps);
  }
  // The shortest of n random waits is 1/n of their mean, and so is its spread.
  EXPECT_GE(static_cast<double>(shortest_ps), dead_ps);
  EXPECT_LE(static_cast<double>(shortest_ps), dead_ps + (1 + sigmas) * wait_ps / expected);
  EXPECT_NEAR(moments_of(rests).mean, wait_ps, sigmas * wait_ps / std::sqrt(expected));
}

TEST_P(Physics, DeadTimeOfTheUnitActsBehindTheDetectors) {
  UnitClient unit(parse_device_port("sim://random?pace=max&rate_hz=1e6"));
  unit.set_dead_time(333'300);
  start(unit, GetParam());
  timing::StreamDecoder decoder = decoder_for(GetParam());
  std::array<std::int64_t, 4> last_ps{-second_ps, -second_ps, -second_ps, -second_ps};
  for (int i = 0; i < 10; ++i) {
    const auto bytes = read_some(unit, 65536, std::chrono::milliseconds(1000));
    for (const timing::TimeTag& tag : decoder.feed(bytes.data(), bytes.size())) {
      EXPECT_GE(tag.timestamp_ps - last_ps[tag.channel], 333'300);
      last_ps[tag.channel] = tag.timestamp_ps;
    }
  }
  EXPECT_GT(last_ps[0], 0);
}

TEST_P(Physics, AfterpulsesHaveTheirProbabilityAndTimeConstant) {
  const auto times = times_before(
      "sim://pulses?pace=max&seed=15&frequency_hz=20000&jitter_ps=0&afterpulse_percent=15"
      "&afterpulse_tau_ps=60000&detector_dead_time_ps=20000",
      GetParam(), second_ps);
  const double tau_ps = 60'000;
  double pulses = 0;
  std::vector<double> waits;  // from the end of the dead time to the first afterpulse
  for (const auto& channel : times) {
    for (std::size_t i = 0; i + 1 < channel.size(); ++i) {
      if (channel[i] % 50'000'000 == 0) {
        ++pulses;
        const auto wait_ps = static_cast<double>(channel[i + 1] - channel[i]) - 20'000;
        if (wait_ps < 40e6) {
          waits.push_back(wait_ps);
        }
      }
    }
  }
  EXPECT_NEAR(pulses, 4 * 19'999, 8);
  // The dead time hides all that come in its 20 ns: what is left is the share
  // exp(-20/60). Of n pulses, a share s spreads by sqrt(n s (1 - s)).
  const double share = 0.15 * std::exp(-20.0 / 60);
  const auto count = static_cast<double>(waits.size());
  EXPECT_NEAR(count, pulses * share, sigmas * std::sqrt(pulses * share * (1 - share)));
  // An exponential wait has no memory: its mean counts from the dead time's end
  // on, and spreads by tau / sqrt(n).
  EXPECT_NEAR(moments_of(waits).mean, tau_ps, sigmas * tau_ps / std::sqrt(count));
}

TEST_P(Physics, DriftOfTheClockStretchesAllTimes) {
  for (const double drift_ppm : {-300.0, 0.0, 12.5}) {
    const auto times = times_before(
        "sim://pulses?pace=max&seed=16&frequency_hz=20000&jitter_ps=50"
        "&drift_ppm=" +
            std::to_string(drift_ppm),
        GetParam(), 2 * second_ps);
    for (const auto& channel : times) {
      // First and last pulse spread by 50 ps each.
      const double elapsed_ps = (size_of(channel) - 1) * 50e6;
      const auto shown_ps = static_cast<double>(channel.back() - channel.front());
      EXPECT_NEAR((shown_ps / elapsed_ps - 1) * 1e6, drift_ppm,
                  sigmas * 50 * std::sqrt(2.0) / elapsed_ps * 1e6);
    }
  }
}

// How many times fell to each picosecond of the clock period.
std::map<std::int64_t, double> residues_of(const std::vector<std::int64_t>& times) {
  std::map<std::int64_t, double> residues;
  for (const std::int64_t time_ps : times) {
    ++residues[time_ps % 3333];
  }
  return residues;
}

TEST_P(Physics, BinsTakeTagsByTheirWidths) {
  const auto times =
      times_before("sim://random?pace=max&seed=17&rate_hz=200000&bin_nonuniformity_percent=60",
                   GetParam(), second_ps / 2);
  std::array<double, 180> first_widths{};
  for (std::size_t channel = 0; channel < 4; ++channel) {
    const double count = size_of(times[channel]);
    const auto residues = residues_of(times[channel]);
    EXPECT_LE(residues.size(), 180U);
    double squares = 0;
    double noise = 0;
    bool differs = false;
    for (std::size_t tap = 0; tap < 180; ++tap) {
      // Tap n stands 18.5 n ps before a clock edge.
      const auto place_ps = static_cast<std::int64_t>((37 * tap + 1) / 2);
      const auto found = residues.find((3333 - place_ps) % 3333);
      const double share = found == residues.end() ? 0 : found->second / count;
      const double width_ps = share * 3333;
      const double spread_ps = std::sqrt(std::max(share, 1 / count) / count) * 3333;
      // 40 % to 160 % of 18.5 ps, stretched by at most 11 % (180 widths with
      // 6.4 ps rms each add up to within 86 ps rms of the period), and of whole
      // picoseconds.
      EXPECT_GE(width_ps, 0.4 * 18.5 * 0.89 - 1 - sigmas * spread_ps);
      EXPECT_LE(width_ps, 1.6 * 18.5 * 1.11 + 1 + sigmas * spread_ps);
      squares += (width_ps - 3333.0 / 180) * (width_ps - 3333.0 / 180);
      noise += spread_ps * spread_ps;
      differs = differs || std::abs(width_ps - first_widths[tap]) > sigmas * 2 * spread_ps;
      if (channel == 0) {
        first_widths[tap] = width_ps;
      }
    }
    // An even distribution from -60 % to 60 % has 60 % / sqrt(3) rms. Its sample
    // variance over n bins spreads by sqrt(0.8 / n) of itself, the rms by half
    // of that.
    const double asked = 0.6 * 3333 / 180 / std::sqrt(3.0);
    EXPECT_NEAR(std::sqrt((squares - noise) / 180), asked,
                sigmas * asked * std::sqrt(0.8 / 180) / 2)
        << channel;
    EXPECT_TRUE(differs) << "a line like that of channel 0";
  }
}

TEST_P(Physics, BinsAreThoseOfTheUnitsDelayLines) {
  const std::uint32_t seed = 18;
  const auto times =
      times_before("sim://random?pace=max&seed=18&rate_hz=200000&bin_nonuniformity_percent=100",
                   GetParam(), second_ps / 2);
  for (std::size_t channel = 0; channel < 4; ++channel) {
    const DelayLine line(1, stream_seed(seed, RandomPurpose::delay_line, channel));
    std::map<std::int64_t, double> widths_ps;
    for (std::int64_t time_ps = 0; time_ps < 3333; ++time_ps) {
      ++widths_ps[line.measured_ps(time_ps) % 3333];
    }
    auto residues = residues_of(times[channel]);
    double chi_squared = 0;
    for (const auto& [residue, width_ps] : widths_ps) {
      const double expected = size_of(times[channel]) * width_ps / 3333;
      const double off = residues[residue] - expected;
      chi_squared += off * off / expected;
    }
    EXPECT_EQ(residues.size(), widths_ps.size());
    // A sum of n such terms has the mean n and a spread of sqrt(2 n).
    const auto terms = static_cast<double>(widths_ps.size() - 1);
    EXPECT_NEAR(chi_squared, terms, sigmas * std::sqrt(2 * terms));
  }
}

TEST_P(Physics, WithoutNonuniformityTimesAreExact) {
  const auto times =
      times_before("sim://random?pace=max&rate_hz=200000", GetParam(), second_ps / 2);
  // Each of 3333 places is missed with a chance of exp(-30).
  EXPECT_EQ(residues_of(times[0]).size(), 3333U);
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, Physics, testing::Values(raw64, delta32, packed_delta),
                         wire_name);

// The calibration source, for which raw64 has its layout of coarse and fine
// counts.
class CalibrationPhysics : public testing::TestWithParam<Wire> {
 protected:
  static Wire internal() {
    Wire wire = GetParam();
    wire.mode = timing::StreamMode::internal;
    return wire;
  }
};

TEST_P(CalibrationPhysics, PulsesKeepTheUnitsOwnTimeWhateverItsDrift) {
  const auto times =
      times_before("sim://silent?pace=max&drift_ppm=1000", internal(), second_ps / 2);
  const std::array<double, 4> skews_ps{0, 25, 40, 65};
  for (std::size_t channel = 0; channel < 4; ++channel) {
    std::vector<double> offsets;
    for (const std::int64_t time_ps : times[channel]) {
      offsets.push_back(static_cast<double>(
          time_ps - 3000 * 3333 * static_cast<std::int64_t>(offsets.size() + 1)));
    }
    ASSERT_GT(offsets.size(), 49'000U);
    const Moments measured = moments_of(offsets);
    // 4 ps rms, to whole taps of 18.5 ps in raw64: off by at most half a tap,
    // which jitter of that size does not average out.
    const bool taps = GetParam().format == timing::Format::raw64;
    EXPECT_NEAR(measured.mean, skews_ps[channel], taps ? 9.25 : 4 * 4 / std::sqrt(49'000));
    if (!taps) {
      EXPECT_NEAR(measured.rms, 4, 4 * 4 / std::sqrt(2 * 49'000.0) + 0.02);  // whole ps
    }
  }
}

TEST_P(CalibrationPhysics, BinsShowInThePulsesToo) {
  const auto times = times_before("sim://silent?pace=max&bin_nonuniformity_percent=50", internal(),
                                  second_ps / 10);
  for (const auto& channel : times) {
    for (const auto& [residue, count] : residues_of(channel)) {
      // On the place of a tap, 18.5 ps apart, halves rounded up.
      const std::int64_t before_edge_ps = (3333 - residue) % 3333;
      EXPECT_TRUE(before_edge_ps % 37 == 0 || before_edge_ps % 37 == 19) << residue;
    }
    EXPECT_LE(residues_of(channel).size(), 6U);  // 29 ps of jitter
  }
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, CalibrationPhysics,
                         testing::Values(raw64, delta32, packed_delta), wire_name);

}  // namespace
}  // namespace zelk::simulator
