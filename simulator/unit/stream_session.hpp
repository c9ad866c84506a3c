// One running stream, from its start to its stop: it draws events from the
// signal, turns them into bytes and hands these over as the link delivers them.
// There is no thread behind it; everything happens inside read(), on the
// reader's thread, from the time that has passed.
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

#include "simulator/encoders/stream_encoder.hpp"
#include "simulator/signals/random_numbers.hpp"
#include "simulator/signals/signal_source.hpp"
#include "simulator/unit/front_end.hpp"
#include "simulator/unit/link.hpp"
#include "simulator/unit/signal.hpp"
#include "simulator/unit/stream_clock.hpp"
#include "simulator/unit/time_base.hpp"
#include "simulator/waiting_bytes.hpp"

namespace zelk::simulator {

// The link carries whole packets, and what has come together at each tick of
// its latency timer.
inline constexpr std::size_t usb_packet_bytes = 512;

class StreamSession {
 public:
  // Stream time begins now. `encoder` is not null; `read_seed` decides the
  // sizes of short reads.
  StreamSession(Signal signal, const FrontEndSettings& front_end,
                std::unique_ptr<StreamEncoder> encoder, const LinkSettings& link = {},
                std::uint64_t read_seed = 0);

  // Waits until stream bytes have arrived, at most for `timeout`, copies what
  // is there and fits, and returns its size; 0 when nothing arrived in time.
  // A buffer of a packet or more gets whole packets only, unless less is there.
  std::size_t read(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout);

 private:
  using Clock = StreamClock::Clock;

  void fill_real_time(Clock::time_point deadline);
  void make_events(std::int64_t before_ps, Clock::time_point deadline);
  void fill_as_read(std::size_t wanted_bytes, Clock::time_point deadline);
  void write(const Event& event);
  void flush();
  [[nodiscard]] std::size_t readable() const;
  std::size_t hand_over(std::span<std::uint8_t> buffer);
  bool catch_up();
  Clock::time_point next_arrival(Clock::time_point deadline);

  std::unique_ptr<SignalSource> source_;
  StreamClock clock_;
  TimeBase time_base_;
  FrontEnd front_end_;
  std::unique_ptr<StreamEncoder> encoder_;
  std::optional<Link> link_;       // in real time
  std::int64_t next_tick_ps_ = 0;  // in real time: the tick after the last event made
  Clock::duration behind_{0};      // how late the stream is against its clock
  bool short_reads_;
  RandomNumbers read_sizes_;
  WaitingBytes bytes_;
};

}  // namespace zelk::simulator
