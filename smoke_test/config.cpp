#include "smoke_test/config.hpp"

#include <cctype>
#include <stdexcept>
#include <utility>

#include "smoke_test/options.hpp"

using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::Transport;

void apply_arg(Config& config, std::string key, std::string value) {
  if (const Option* option = find_option(lower_ascii(std::move(key)))) {
    option->apply(config, value);
  }
}

void apply_argument(Config& config, std::string_view argument) {
  if (argument.starts_with("--")) {
    argument.remove_prefix(2);
  }
  if (const auto equals = argument.find('='); equals != std::string_view::npos) {
    apply_arg(config, std::string(argument.substr(0, equals)),
              std::string(argument.substr(equals + 1)));
  }
}

void validate(const Config& config) {
  const auto is_channel = [](std::int32_t channel) {
    return channel >= 0 && channel < zelk::timing::channel_count;
  };
  if (!is_channel(config.channel_a) || !is_channel(config.channel_b) ||
      config.channel_a == config.channel_b) {
    throw std::runtime_error("channel_a/channel_b must be distinct and in 0..3");
  }
  if (config.transport == Transport::uart) {
    throw std::runtime_error("this GUI-live smoke test is intended for USB FIFO modes");
  }
}

std::string lower_ascii(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

std::uint32_t parse_u32(std::string text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  return static_cast<std::uint32_t>(std::stoul(text, nullptr, hexadecimal ? 16 : 10));
}

const char* transport_name(Transport transport) {
  switch (transport) {
    case Transport::uart:
      return "uart";
    case Transport::usb:
      return "usb";
    case Transport::usb_async:
      return "unsupported";
  }
  return "unknown";
}

const char* format_name(Format format) {
  switch (format) {
    case Format::raw64:
      return "raw64";
    case Format::delta32:
      return "delta32";
    case Format::packed_delta:
      return "packed_delta";
  }
  return "unknown";
}

const char* ref_source_name(ReferenceClockSource source) {
  switch (source) {
    case ReferenceClockSource::automatic:
      return "auto";
    case ReferenceClockSource::internal:
      return "internal";
    case ReferenceClockSource::external:
      return "external";
  }
  return "unknown";
}

const char* ref_signal_name(ReferenceSignal signal) {
  switch (signal) {
    case ReferenceSignal::ten_mhz:
      return "10mhz";
    case ReferenceSignal::one_pps:
      return "1pps";
  }
  return "unknown";
}
