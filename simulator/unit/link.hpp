// The link between unit and host, in numbers of bytes: a FIFO in the unit that
// the link empties at its own rate, and a buffer of the host behind it. While
// the host's buffer is full the link stands still; while the FIFO is full the
// unit has nowhere to put its tags. A plain value inside the running stream;
// the bytes themselves stay there.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "simulator/settings.hpp"

namespace zelk::simulator {

class Link {
 public:
  // The link's own time begins at `start_ps`.
  Link(const LinkSettings& settings, std::int64_t start_ps)
      : settings_(settings),
        ps_per_byte_(std::llround(1e12 / static_cast<double>(settings.rate_bytes_per_s))),
        carried_until_ps_(start_ps) {}

  // Carries what the link can carry until `time_ps`, which never falls from call
  // to call.
  void advance_to(std::int64_t time_ps) {
    if (in_fifo_ != 0) {
      const std::int64_t possible = (time_ps - carried_until_ps_) / ps_per_byte_;
      const std::int64_t room = settings_.host_buffer_bytes - in_host_buffer_;
      const std::int64_t carried = std::min({possible, in_fifo_, room});
      in_fifo_ -= carried;
      in_host_buffer_ += carried;
      carried_until_ps_ += carried * ps_per_byte_;
      if (carried == possible) {
        return;  // a byte is on its way
      }
    }
    carried_until_ps_ = time_ps;  // nothing to carry, or nowhere to
  }

  // Whether the unit can write a tag. The FIFO takes the tag as a whole.
  [[nodiscard]] bool has_room() const { return in_fifo_ < settings_.fifo_bytes; }

  void write(std::size_t bytes) { in_fifo_ += static_cast<std::int64_t>(bytes); }

  [[nodiscard]] bool is_empty() const { return in_fifo_ == 0; }

  // What the host can read.
  [[nodiscard]] std::size_t readable() const { return static_cast<std::size_t>(in_host_buffer_); }

  void read(std::size_t bytes) { in_host_buffer_ -= static_cast<std::int64_t>(bytes); }

 private:
  LinkSettings settings_;
  std::int64_t ps_per_byte_;
  std::int64_t carried_until_ps_;
  std::int64_t in_fifo_ = 0;
  std::int64_t in_host_buffer_ = 0;
};

}  // namespace zelk::simulator
