// Command-line arguments against a literal reading of their rules: the settings
// that come of them, and the exception that ends them.
//
// The input: arguments, one per line.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.hpp"
#include "fuzz/literal_arguments.hpp"
#include "smoke_test/argument_check.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/options.hpp"

namespace zelk::fuzz {
namespace {

// How a run of arguments ended: not at all, or with an exception.
struct End {
  enum Kind { none, runtime_error, invalid_argument, out_of_range, other };
  Kind kind = none;
  std::string text;
};

// A key of the table that these rules do not know would be a finding only when an
// input happens to name it. It is one at the start.
bool every_key_is_known() {
  for (const Option& option : options()) {
    for (const std::string_view key : option.keys) {
      bool known = key.empty();
      try {
        LiteralSettings unused;
        known = known || apply_literally(unused, std::string(key), "raw64");
      } catch (const std::exception&) {
        known = true;
      }
      expect(known, "the key " + std::string(key) + " is known to the rules");
    }
  }
  return true;
}

template <typename Action>
End end_of(Action action) {
  try {
    action();
    return {};
  } catch (const std::invalid_argument& error) {
    return {End::invalid_argument, error.what()};
  } catch (const std::out_of_range& error) {
    return {End::out_of_range, error.what()};
  } catch (const std::runtime_error& error) {
    return {End::runtime_error, error.what()};
  } catch (const std::exception& error) {
    return {End::other, error.what()};
  }
}

// Bit by bit, but for a number that is none.
void expect_same_double(std::string_view what, double expected, double actual) {
  const bool both_none = std::isnan(expected) && std::isnan(actual);
  if (!both_none && (expected != actual || std::signbit(expected) != std::signbit(actual))) {
    expect_equal(what, expected, actual);
    report_finding(std::string(what) + ": the sign of 0");
  }
}

void expect_same(const LiteralSettings& s, const Config& c) {
  expect_equal("port", s.port, c.port);
  expect_equal("port given", s.port_given, c.port_given);
  expect_equal("serial", s.serial, c.serial);
  expect_equal("list", s.list, c.list);
  expect_equal("transport", s.transport, static_cast<int>(c.transport));
  expect_equal("format", s.format, static_cast<int>(c.format));
  expect_equal("mode", s.mode, static_cast<int>(c.mode));
  expect_same_double("capture_s", s.capture_s, c.capture_s);
  expect_same_double("cal_freq_hz", s.cal_freq_hz, c.cal_freq_hz);
  expect_same_double("threshold_v", s.threshold_v, c.threshold_v);
  expect_equal("channel_mask", s.channel_mask, unsigned{c.channel_mask});
  expect_equal("channel_a", s.channel_a, std::int64_t{c.channel_a});
  expect_equal("channel_b", s.channel_b, std::int64_t{c.channel_b});
  expect_equal("coincidence_window_ps", s.coincidence_window_ps, c.coincidence_window_ps);
  expect_equal("packed_bits", s.packed_bits, unsigned{c.packed_bits});
  expect_equal("packed_quantum_ps", s.packed_quantum_ps, unsigned{c.packed_quantum_ps});
  expect_same_double("bin_s", s.bin_s, c.bin_s);
  expect_equal("queue_limit", s.queue_limit, c.queue_limit);
  if (s.dead_time_ps) {
    expect_equal("dead_time_ps", *s.dead_time_ps, c.dead_time_ps);
  } else {
    expect(c.dead_time_ps < 0, "a dead time that does not fit leaves the device's alone");
  }
  expect_equal("load_calibration", s.load_calibration, c.load_calibration);
  expect_equal("tdl_mask", s.tdl_mask, unsigned{c.tdl_mask});
  expect_equal("set_reference", s.set_reference, c.set_reference);
  expect_equal("ref_source", s.ref_source, static_cast<int>(c.ref_source));
  expect_equal("ref_signal", s.ref_signal, static_cast<int>(c.ref_signal));
  expect_equal("byte_probe", s.byte_probe, c.byte_probe);
  expect_equal("strict", s.strict, c.strict);
  expect_equal("stop_tags", s.stop_tags, c.stop_tags);
  expect(s.required == c.required, "each condition is kept, in order");
  expect(s.limits_files == c.limits_files, "each file of conditions is kept, in order");
  expect_equal("json_file", s.json_file, c.json_file);
  expect_equal("note", s.note, c.note);
  expect_equal("tags_file", s.tags_file, c.tags_file);
}

// Whatever ends in the name of a conversion has a remark that says more, and a
// word that is rejected has none.
void expect_remark(const std::string& argument) {
  const bool has_remark = check_argument(argument).has_value();
  Config config;
  const End end = end_of([&] { apply_argument(config, argument); });
  if (end.kind == End::invalid_argument || end.kind == End::out_of_range) {
    expect(has_remark, "a number that cannot be read has a remark");
  } else if (end.kind == End::runtime_error) {
    expect(!has_remark, "a word that is rejected has no remark");
  }
}

void run(Input input) {
  [[maybe_unused]] static const bool known = every_key_is_known();
  std::vector<std::string> arguments;
  while (!input.empty()) {
    // As the system hands arguments over, none holds a zero byte.
    const std::string line = input.text_until('\n');
    arguments.emplace_back(line.c_str());
  }
  LiteralSettings settings;
  const End expected = end_of([&] { apply_all_literally(settings, arguments); });
  Config config;
  const End actual = end_of([&] {
    for (const std::string& argument : arguments) {
      apply_argument(config, argument);
    }
    validate(config);
  });
  expect_equal("kind of exception", int{expected.kind}, int{actual.kind});
  expect_equal("text of the exception", expected.text, actual.text);
  expect_same(settings, config);
  for (const std::string& argument : arguments) {
    expect_remark(argument);
  }
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
