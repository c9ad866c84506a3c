// A stream whose bytes are made while the host reads it: it draws events from the
// signal, turns them into bytes and hands these over as the link delivers them,
// from the time that has passed.
//
// In real time the bytes go through the link: a host that reads too slowly, or
// a signal too fast for it, makes the unit lose whole tags before they are
// encoded, so what arrives can always be decoded. A machine too slow to make
// the signal in its own time sees the stream fall behind instead: the time that
// the making takes does not count as time in which the host did not read. At the
// pace of the host's reads nothing is lost.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "simulator/unit/link.hpp"
#include "simulator/unit/read_sizes.hpp"
#include "simulator/unit/running_stream.hpp"
#include "simulator/unit/signal.hpp"
#include "simulator/unit/stream_clock.hpp"
#include "simulator/unit/stream_maker.hpp"
#include "simulator/waiting_bytes.hpp"

namespace zelk::simulator {

class StreamSession final : public RunningStream {
 public:
  // Stream time begins now. `encoder` is not null; `read_seed` decides the
  // sizes of short reads.
  StreamSession(Signal signal, const FrontEndSettings& front_end,
                std::unique_ptr<StreamEncoder> encoder, const LinkSettings& link = {},
                std::uint64_t read_seed = 0);

  std::size_t read(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout) override;

 private:
  using Clock = StreamClock::Clock;

  void fill_real_time(Clock::time_point deadline);
  void make_events(std::int64_t before_ps, Clock::time_point deadline);
  bool begin_tick(std::int64_t before_ps);
  void fill_as_read(std::size_t wanted_bytes, Clock::time_point deadline);
  void flush();
  [[nodiscard]] std::size_t readable() const;
  std::size_t hand_over(std::span<std::uint8_t> buffer);
  bool catch_up();
  Clock::time_point next_arrival(Clock::time_point deadline);

  StreamClock clock_;
  std::optional<Link> link_;       // in real time
  std::int64_t next_tick_ps_ = 0;  // in real time: the tick after the last event made
  Clock::duration behind_{0};      // how late the stream is against its clock
  StreamMaker maker_;
  ReadSizes read_sizes_;
  WaitingBytes bytes_;
};

}  // namespace zelk::simulator
