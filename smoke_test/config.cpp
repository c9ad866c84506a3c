#include "smoke_test/config.hpp"

#include <stdexcept>

void validate(const Config& config) {
  const auto is_channel = [](std::int32_t channel) {
    return channel >= 0 && channel < zelk::timing::channel_count;
  };
  if (!is_channel(config.channel_a) || !is_channel(config.channel_b) ||
      config.channel_a == config.channel_b) {
    throw std::runtime_error("channel_a/channel_b must be distinct and in 0..3");
  }
  if (config.transport == zelk::timing::Transport::uart) {
    throw std::runtime_error("this GUI-live smoke test is intended for USB FIFO modes");
  }
  if (config.list || config.byte_probe) {
    const std::string replaces = std::string(config.list ? "list" : "byte_probe") + "=1 replaces";
    if (!config.required.empty() || !config.limits_files.empty()) {
      throw std::runtime_error("require and limits judge the report, which " + replaces);
    }
    if (!config.tags_file.empty()) {
      throw std::runtime_error("save_tags keeps the tags of the capture, which " + replaces);
    }
  }
  if (config.port_given && !config.serial.empty()) {
    throw std::runtime_error("port and serial both choose the unit: give one of them");
  }
}
