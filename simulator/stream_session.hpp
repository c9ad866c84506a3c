// One running stream, from its start to its stop: it draws events from the
// signal while the host reads, turns them into bytes and hands these over.
// There is no thread behind it; everything happens inside read(), on the
// reader's thread. The link loses nothing: a host that reads too slowly sees
// the stream fall behind, and only the bytes of one read are ever held.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "simulator/front_end.hpp"
#include "simulator/scenario.hpp"
#include "simulator/signal_source.hpp"
#include "simulator/stream_clock.hpp"
#include "simulator/stream_encoder.hpp"

namespace zelk::simulator {

class StreamSession {
 public:
  // Stream time begins now. Without an encoder the stream carries no bytes.
  StreamSession(Signal signal, const FrontEndSettings& front_end,
                std::unique_ptr<StreamEncoder> encoder);

  // Waits until stream bytes have arrived, at most for `timeout`, copies what
  // is there and fits, and returns its size; 0 when nothing arrived in time.
  std::size_t read(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout);

 private:
  using Clock = StreamClock::Clock;

  void fill(std::size_t wanted_bytes, Clock::time_point deadline);
  std::size_t hand_over(std::span<std::uint8_t> buffer);
  Clock::time_point next_arrival(Clock::time_point deadline);

  std::unique_ptr<SignalSource> source_;
  StreamClock clock_;
  FrontEnd front_end_;
  std::unique_ptr<StreamEncoder> encoder_;
  std::vector<std::uint8_t> bytes_;
  std::size_t handed_over_ = 0;  // bytes at the front of bytes_
};

}  // namespace zelk::simulator
