// A port string, calls on the unit behind it and reads of its stream, through the
// C interface. Every status is a documented one and has a text, a failure says
// why, a read keeps to its buffer, settings come back as the page of the unit has
// them, and a unit that nothing hurries gives the same bytes when all of it is
// done again.
//
// The input: the port in one line, the line rate (one byte, 0: the standard one),
// and the calls (see Host::make_call()). The tag file "tags.csv" is there.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.hpp"
#include "fuzz/scratch_file.hpp"
#include "simulator/failure.hpp"
#include "simulator/ports/device_port.hpp"
#include "simulator/ports/recording_ports.hpp"
#include "timing/c_api/zelk_timing.h"

namespace zelk::fuzz {
namespace {

constexpr int max_calls = 60;
constexpr int max_reads = 12;

// The statuses of the unit: of the calls, and of what a fault does to any call.
constexpr qx_status timed_out = -3;
constexpr qx_status not_supported = -4;
constexpr qx_status busy = -6;
constexpr qx_status not_streaming = -8;
constexpr qx_status out_of_range = -9;
constexpr qx_status vanished = -41;

// What the text of a port says about it.
struct Port {
  explicit Port(const std::string& line) : text(line) {
    const auto has = [&](std::string_view part) { return text.find(part) != text.npos; };
    any_status = has("fail=");
    may_vanish = has("vanish_at_s=");
    may_lack_reference = has("reference_unavailable=");
    is_deterministic = has("pace=max") && !has("_at_s=") && !has("@");
  }

  std::string text;
  bool any_status;
  bool may_vanish;
  bool may_lack_reference;
  bool is_deterministic;
};

// What a port is not asked for: reads that never come back, long prepared
// streams, and files elsewhere.
struct Limits {
  bool may_open = true;
  bool may_start = true;
  bool may_read = true;
};

Limits limits_of(const std::string& port) {
  try {
    if (simulator::parse_tap_port(port)) {
      return {.may_open = false};  // loads a library and writes a file
    }
    if (const auto replay = simulator::parse_replay_port(port)) {
      return {.may_open = replay->recording.find('/') == std::string::npos};
    }
    const simulator::DevicePort unit = simulator::parse_device_port(port);
    constexpr std::int64_t longest_prepared_ps = 2'000'000'000;
    return {.may_open = unit.tag_file.find('/') == std::string::npos,
            .may_start = unit.prepared_ps <= longest_prepared_ps,
            .may_read = !unit.faults.hang_at_s};
  } catch (const simulator::Failure& failure) {
    expect(*failure.what() != '\0', "a refused port has a reason");
    return {};
  }
}

bool is_one_of(qx_status status, std::initializer_list<qx_status> statuses) {
  return std::ranges::find(statuses, status) != statuses.end();
}

std::string text_of(qx_status status) {
  const char* const text = qx_status_string(status);
  expect(text != nullptr && *text != '\0', "a status has a text");
  constexpr std::size_t longest_bytes = 1500;
  expect(std::strlen(text) <= longest_bytes, "the text of a status has a bounded length");
  expect(std::none_of(text, text + std::strlen(text),
                      [](unsigned char c) { return c < 0x20 || c == 0x7F; }),
         "the text of a status is one line");
  return text;
}

// One pass over the calls.
class Host {
 public:
  Host(const Port& port, const Limits& limits, Input input)
      : port_(port), limits_(limits), input_(input) {
    open();
    for (int call = 0; device_ != nullptr && call < max_calls && !input_.empty(); ++call) {
      make_call();
    }
  }
  ~Host() { qx_close(device_); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  std::vector<std::int64_t> results;  // statuses and what else came back, reads apart
  std::vector<Bytes> streams;         // what was read of each stream

 private:
  void open() {
    const std::uint8_t rate_byte = input_.byte();
    const int rate = rate_byte == 255 ? -1 : rate_byte == 254 ? 0 : rate_byte * 1200;
    const bool standard = rate_byte == 0;
    const qx_status status = standard ? qx_open_serial(&device_, port_.text.c_str())
                                      : qx_open(&device_, port_.text.c_str(), rate);
    results.push_back(status);
    expect_equal("a device exactly after success", status == 0, device_ != nullptr);
    const std::string text = text_of(status);
    if (status == 0 || port_.any_status) {
      return;
    }
    const bool is_key = status <= -100 && text.starts_with("port key ");
    expect(is_key || (status <= -20 && status >= -25) || (status <= -30 && status >= -34) ||
               (status <= -65 && status >= -71) || (status == -1 && !standard && rate <= 0),
           "the status of an open is a documented one");
    expect(text != "unknown status", "the status of an open has a text of its own");
  }

  // Judges the status of a call that may succeed or have one of these.
  qx_status judge(const char* name, qx_status status, std::initializer_list<qx_status> allowed) {
    const std::string text = text_of(status);
    const char* const error = qx_last_error(device_);
    if (status == 0) {
      expect(error != nullptr && *error == '\0', "a success clears the last error");
      return status;
    }
    const bool documented =
        is_one_of(status, allowed) || port_.any_status || (status == vanished && port_.may_vanish);
    if (!documented) {
      report_finding(std::string(name) + " gives " + std::to_string(status) + ", " + text);
    }
    expect(port_.any_status || (error != nullptr && *error != '\0'), "a failure says why");
    return status;
  }

  void keep(qx_status status, std::initializer_list<std::int64_t> values = {}) {
    results.push_back(status);
    results.insert(results.end(), values);
  }

  void make_call() {
    switch (input_.below(18)) {
      case 0:
        return identify();
      case 1:
        return keep(judge("load_calibration", qx_load_calibration(device_, input_.byte()), {busy}));
      case 2:
        return reference_clock(false);
      case 3:
        return reference_clock(true);
      case 4:
        return set_delay_lines();
      case 5:
        return get_delay_lines();
      case 6:
        return set_thresholds();
      case 7:
        return set_dead_time();
      case 8:
        return set_packed_delta();
      case 9:
        return set_interface();
      case 10:
        return keep(judge("set_stream_channel_mask",
                          qx_set_stream_channel_mask(device_, input_.byte()),
                          {busy, out_of_range}));
      case 11:
        return set_calibration();
      case 12:
        return keep(
            judge("enable_calibration_source", qx_enable_calibration_source(device_), {busy}));
      case 13:
        return keep(
            judge("disable_calibration_source", qx_disable_calibration_source(device_), {busy}));
      case 14:
        return start();
      case 15:
        return keep(judge("stop_stream_mode", qx_stop_stream_mode(device_, input_.flag()), {}));
      default:
        return read();
    }
  }

  void identify() {
    qx_identity identity{};
    keep(judge("identify", qx_identify(device_, &identity), {}));
    for (const char c : std::string_view(identity.device_text, sizeof identity.device_text)) {
      results.push_back(c);
    }
  }

  void reference_clock(bool set) {
    qx_reference_clock clock{};
    const std::uint32_t source = set ? input_.byte() % 4U : 0;
    const std::uint32_t signal = set ? input_.byte() % 3U : 0;
    const qx_status status = set ? qx_set_reference_clock(device_, source, signal, &clock)
                                 : qx_get_reference_clock_status(device_, &clock);
    if (port_.may_lack_reference && is_one_of(status, {-3, -4, -7})) {
      return keep(status);
    }
    keep(judge("reference clock", status,
               set ? std::initializer_list<qx_status>{busy, out_of_range}
                   : std::initializer_list<qx_status>{}),
         {clock.requested, clock.active, clock.signal, clock.external_present,
          clock.external_locked, clock.fallback, clock.missing_warning, clock.raw});
    if (set && status == 0) {
      expect_equal("requested source", static_cast<std::int32_t>(source), clock.requested);
      expect_equal("reference signal", static_cast<std::int32_t>(signal), clock.signal);
    }
  }

  void set_delay_lines() {
    std::array<std::uint8_t, 4> masks{};
    std::ranges::generate(masks, [&] { return input_.byte(); });
    const qx_status status = qx_set_tdl_active_masks(device_, masks.data());
    keep(judge("set_tdl_active_masks", status, {busy}));
    if (status == 0) {
      masks_ = masks;
    }
  }

  void get_delay_lines() {
    std::array<std::uint8_t, 4> masks{};
    const qx_status status = qx_get_tdl_active_masks(device_, masks.data());
    keep(judge("get_tdl_active_masks", status, {}));
    for (std::size_t ch = 0; status == 0 && ch < masks.size(); ++ch) {
      expect_equal("delay-line mask", masks_[ch] & 0x1F, int{masks[ch]});
    }
  }

  void set_thresholds() {
    std::array<std::uint16_t, 4> codes{};
    std::ranges::generate(codes, [&] { return input_.number<std::uint16_t>(); });
    keep(judge("set_dac_codes", qx_set_dac_codes(device_, codes.data()), {busy}));
  }

  // Rounded up to clock periods, of which 24 bits count.
  void set_dead_time() {
    constexpr std::int64_t longest_ps = 55'918'457'595;
    const std::int64_t wanted_ps = input_.number<std::int64_t>() >> input_.below(64);
    std::int64_t applied_ps = 0;
    const qx_status status = qx_set_input_dead_time(device_, wanted_ps, &applied_ps);
    keep(judge("set_input_dead_time", status, {busy, out_of_range}), {applied_ps});
    if (status == 0) {
      expect(wanted_ps >= 0 && wanted_ps <= longest_ps, "a dead time is in range");
      expect_equal("applied dead time", (wanted_ps + 3332) / 3333 * 3333, applied_ps);
    }
  }

  void set_packed_delta() {
    const std::uint8_t bits = input_.byte();
    const auto quantum = input_.number<std::uint16_t>();
    std::uint8_t accepted_bits = 16;
    std::uint16_t accepted_quantum = 8;
    const qx_status status =
        qx_set_packed_delta_config(device_, bits, quantum, &accepted_bits, &accepted_quantum);
    keep(judge("set_packed_delta_config", status, {busy}), {accepted_bits, accepted_quantum});
    if (status != 0) {
      return;
    }
    expect_equal("accepted bits", bits < 4 ? 4 : bits > 24 ? 24 : int{bits}, int{accepted_bits});
    int power = 1;
    while (power < 1024 && 2 * power <= quantum) {
      power *= 2;
    }
    expect_equal("accepted quantum", power, int{accepted_quantum});
  }

  void set_interface() {
    const std::uint32_t transport = input_.byte() % 4U;
    const std::uint32_t format = input_.byte() % 5U;
    const qx_status status = qx_set_stream_interface(device_, transport, format);
    keep(judge("set_stream_interface", status, {not_supported, busy, out_of_range}));
    if (status == 0) {
      expect(transport == 1 && format <= 2, "only known streams are accepted");
    }
  }

  void set_calibration() {
    const bool any_double = input_.flag();
    const double frequency = any_double ? std::bit_cast<double>(input_.number<std::uint64_t>())
                                        : input_.number<std::uint32_t>();
    std::uint32_t divider = 0;
    const qx_status status = qx_set_calibration_freq(device_, frequency, &divider);
    keep(judge("set_calibration_freq", status, {busy, out_of_range}), {divider});
    if (status == 0) {
      const double exact = 1e12 / 3333 / frequency;
      expect(std::fabs(divider - exact) <= 0.5 + 1e-9 * exact, "the divider is the nearest one");
    }
  }

  void start() {
    const std::uint32_t mode = input_.byte() % 3U;
    const std::uint32_t flags = input_.byte() == 255 ? 1 : 0;
    if (!limits_.may_start) {
      return;
    }
    const qx_status status = qx_start_stream_mode(device_, mode, flags);
    keep(judge("start_stream_mode", status, {busy, out_of_range}));
    if (status == 0) {
      streams.emplace_back();
    }
  }

  void read() {
    const std::size_t capacity = input_.number<std::uint16_t>();
    const std::uint8_t wait = input_.byte();
    const int timeout_ms = wait == 255 ? -1 : wait % 3;
    if (!limits_.may_read || ++reads_ > max_reads) {
      return;
    }
    // Of this very size, so that a byte too many is noticed.
    const std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[capacity]);
    std::size_t received = 77;
    const qx_status status =
        qx_read_stream_bytes(device_, buffer.get(), capacity, &received, timeout_ms);
    judge("read_stream_bytes", status, {timed_out, not_streaming});
    if (streams.empty()) {
      expect(status != 0, "nothing is read before a stream");
    }
    if (status != 0) {
      return;
    }
    expect(received <= capacity, "a read keeps to its buffer");
    streams.back().insert(streams.back().end(), buffer.get(), buffer.get() + received);
  }

  const Port& port_;
  Limits limits_;
  Input input_;
  qx_device* device_ = nullptr;
  int reads_ = 0;
  std::array<std::uint8_t, 4> masks_{0x1F, 0x1F, 0x1F, 0x1F};
};

// A slow machine may have read less.
void expect_same_streams(const std::vector<Bytes>& first, const std::vector<Bytes>& second) {
  expect_equal("streams in number", first.size(), second.size());
  for (std::size_t i = 0; i < first.size(); ++i) {
    const std::size_t common = std::min(first[i].size(), second[i].size());
    expect(std::equal(first[i].begin(), first[i].begin() + static_cast<std::ptrdiff_t>(common),
                      second[i].begin()),
           "the same port streams the same bytes");
  }
}

void discover(const std::string& port) {
  setenv("ZELK_SIM_DISCOVERY", ("port:" + port).c_str(), 1);
  qx_discovery* list = nullptr;
  expect_equal("status of discovery", 0, qx_discover(&list));
  expect_equal("units", std::size_t{1}, qx_discover_count(list));
  expect_equal("port of the unit", port, std::string(qx_discover_port(list, 0)));
  qx_discover_free(list);
}

void run(Input input) {
  static ScratchFile tags("tags.csv");
  const std::string text = "channel,timestamp_ps\n0,1000\n1,1000\n1,5000\n3,9999999999\n";
  tags.fill({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});

  const std::string line = input.text_until('\n');
  const Port port(line.c_str());  // no zero byte, as in any argument
  discover(port.text);
  const Limits limits = limits_of(port.text);
  if (!limits.may_open) {
    return;
  }
  const WorkingDirectory directory(tags.directory());
  const Host first(port, limits, input);
  if (!port.is_deterministic) {
    return;
  }
  const Host second(port, limits, input);
  expect_equal_lists("what came back", first.results, second.results);
  expect_same_streams(first.streams, second.streams);
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
