#include "simulator/ports/port_values.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/ports/device_port.hpp"
#include "simulator/ports/recording_ports.hpp"
#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

// Each kind of port, with what it needs.
struct PortKind {
  std::uint32_t bit;
  const char* port;
};

constexpr PortKind port_kinds[] = {
    {ports::unit, "ftdi://?"},        {ports::tags, "sim://tags?file=x"},
    {ports::pulses, "sim://pulses?"}, {ports::random, "sim://random?"},
    {ports::pairs, "sim://pairs?"},   {ports::burst, "sim://burst?"},
    {ports::silent, "sim://silent?"}, {ports::tap, "tap://x?library=x&port=x"},
    {ports::replay, "replay://x?"},
};

std::string port_with(const PortKind& kind, std::string_view key, const std::string& value) {
  const std::string port = kind.port;
  const std::string name(key);
  // How long goes with when.
  const bool is_length = name.ends_with("_for_s");
  const std::string when = is_length ? name.substr(0, name.size() - 5) + "at_s=0&" : "";
  return port + (port.back() == '?' ? "" : "&") + when + name + '=' + value;
}

// The text of the status that refuses `port`; empty when it is taken.
std::string refusal_of(const std::string& port) {
  try {
    if (!parse_tap_port(port) && !parse_replay_port(port)) {
      parse_device_port(port);
    }
    return {};
  } catch (const Failure& failure) {
    return status_text(static_cast<std::int32_t>(failure.status()));
  }
}

constexpr std::size_t seed_row = key_row("seed");

TEST(PortKeys, HaveNamesOfTheirOwnAndSayWhatTheyMean) {
  std::set<std::string_view> names;
  for (const PortKey& key : port_keys) {
    SCOPED_TRACE(key.name);
    EXPECT_TRUE(names.insert(key.name).second);
    EXPECT_FALSE(key.meaning.empty());
    EXPECT_EQ(key.meaning.find('\n'), key.meaning.npos);
    EXPECT_NE(key.ports, 0U);
    if (key.kind == KeyKind::words) {
      EXPECT_FALSE(key.unit.empty());
    } else {
      EXPECT_LT(key.lowest, key.highest);
    }
  }
}

TEST(PortKeys, DefaultsAreInRange) {
  PortQuery nothing("");
  for (std::size_t row = 0; row < port_keys.size(); ++row) {
    SCOPED_TRACE(port_keys[row].name);
    if (port_keys[row].standard.empty()) {
      EXPECT_EQ(take_words(nothing, row), std::nullopt);
    } else if (port_keys[row].kind == KeyKind::whole) {
      EXPECT_NO_THROW(take_whole(nothing, row));
    } else if (port_keys[row].kind == KeyKind::number) {
      EXPECT_NO_THROW(take_number(nothing, row));
    }
  }
}

// A value that the key takes.
std::string value_for(const PortKey& key) {
  constexpr std::pair<std::string_view, const char*> words[] = {
      {"file", "x"}, {"fail", "identify:-1"}, {"reference_unavailable", "-7"}};
  for (const auto& [name, value] : words) {
    if (key.name == name) {
      return value;
    }
  }
  return key.standard.empty() ? std::to_string(key.lowest) : std::string(key.standard);
}

TEST(PortKeys, EveryPortTakesItsKeysAndNoOthers) {
  for (const PortKey& key : port_keys) {
    for (const PortKind& kind : port_kinds) {
      if (std::string_view(kind.port).find(std::string(key.name) + '=') != std::string_view::npos) {
        continue;  // already there
      }
      const std::string port = port_with(kind, key.name, value_for(key));
      EXPECT_EQ(refusal_of(port),
                (key.ports & kind.bit) != 0
                    ? ""
                    : "port key " + std::string(key.name) + " does not go with this port")
          << port;
    }
  }
}

TEST(PortKeys, NumbersAreTakenUpToTheEndsOfTheirRangeByEveryPort) {
  for (const PortKey& key : port_keys) {
    if (key.kind == KeyKind::words) {
      continue;
    }
    for (const PortKind& kind : port_kinds) {
      if ((key.ports & kind.bit) == 0) {
        continue;
      }
      for (const std::int64_t good : {key.lowest, key.highest}) {
        EXPECT_EQ(refusal_of(port_with(kind, key.name, std::to_string(good))), "");
      }
      for (const std::int64_t bad : {key.lowest - 1, key.highest + 1}) {
        const std::string port = port_with(kind, key.name, std::to_string(bad));
        EXPECT_EQ(refusal_of(port).find("port key " + std::string(key.name) + " takes a "), 0U)
            << port;
      }
      const std::string port = port_with(kind, key.name, "nan");
      EXPECT_EQ(refusal_of(port).find("port key " + std::string(key.name) + " takes a "), 0U);
    }
  }
}

TEST(PortKeys, OnlyNumbersForChannelsMayBeFour) {
  for (const PortKey& key : port_keys) {
    if (key.kind == KeyKind::words) {
      continue;
    }
    const std::string one = std::to_string(key.lowest);
    for (const PortKind& kind : port_kinds) {
      if ((key.ports & kind.bit) != 0) {
        const std::string port = port_with(kind, key.name, one + ',' + one + ',' + one + ',' + one);
        EXPECT_EQ(refusal_of(port).empty(), key.per_channel) << port;
      }
    }
  }
}

TEST(PortKeys, WholeNumbersAreTakenInTheirRangeAndNowhereElse) {
  const auto seed = [](const std::string& text) {
    PortQuery query("seed=" + text);
    return take_whole(query, seed_row);
  };
  EXPECT_EQ(seed("0"), 0);
  EXPECT_EQ(seed("4294967295"), 4294967295);
  for (const char* const bad : {"4294967296", "-1", "", "1.5", "1e3", "+1", " 1", "1 ", "0x1",
                                "99999999999999999999", "nan"}) {
    SCOPED_TRACE(bad);
    PortQuery query(std::string("seed=") + bad);
    const Status status = bad_value(seed_row, bad).status();
    const std::string text = failure_text(status, [&] { take_whole(query, seed_row); });
    EXPECT_EQ(text, "port key seed takes a whole number from 0 to 4294967295, not \"" +
                        std::string(bad) + '"');
  }
}

TEST(PortKeys, FourNumbersOrOneForAllChannels) {
  const auto numbers = [](const std::string& text) {
    PortQuery query("seed=" + text);
    return take_channel_numbers(query, seed_row);
  };
  using Numbers = std::array<double, timing::channel_count>;
  EXPECT_EQ(numbers("2.5"), (Numbers{2.5, 2.5, 2.5, 2.5}));
  EXPECT_EQ(numbers("1,2,0,1e3"), (Numbers{1, 2, 0, 1000}));
  for (const char* const bad : {"1,2", "1,2,3", "1,2,3,4,5", "1,2,3,", ",1,2,3", "1,,2,3", ",,,",
                                "1,2,3,-4", "1,2,3,nan", "inf", "1, 2,3,4"}) {
    SCOPED_TRACE(bad);
    failure_text(bad_value(seed_row, bad).status(), [&] { numbers(bad); });
  }
}

TEST(PortKeys, StatusesNameTheKeyOnly) {
  EXPECT_EQ(key_status_text(-99), nullptr);
  EXPECT_STREQ(key_status_text(-100), "port key file takes a path");
  EXPECT_STREQ(key_status_text(-200), "port key file does not go with this port");
  const auto keys = static_cast<std::int32_t>(port_keys.size());
  EXPECT_NE(key_status_text(-100 - keys + 1), nullptr);
  EXPECT_EQ(key_status_text(-100 - keys), nullptr);
  EXPECT_NE(key_status_text(-200 - keys + 1), nullptr);
  EXPECT_EQ(key_status_text(-200 - keys), nullptr);
}

}  // namespace
}  // namespace zelk::simulator
