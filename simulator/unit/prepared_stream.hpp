// A stream of which all bytes are made before it begins, so that a read costs
// little more than a copy. It is as long as it was asked to be; after that reads
// bring nothing.
//
// Nothing is lost: the FIFO and the host's buffer have no end. In real time the
// link brings the bytes at its rate, whether the host reads or not. A host that
// reads late finds all that has come meanwhile. At the pace of the host's reads
// everything is there at once.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "simulator/ports/port_keys.hpp"
#include "simulator/settings.hpp"
#include "simulator/unit/link.hpp"
#include "simulator/unit/read_sizes.hpp"
#include "simulator/unit/running_stream.hpp"
#include "simulator/unit/signal.hpp"
#include "simulator/unit/stream_clock.hpp"
#include "simulator/unit/stream_maker.hpp"

namespace zelk::simulator {

// The bytes of a whole stream, in pieces, so that they never move and no memory
// is kept that they do not fill. A plain value inside the stream.
class PreparedBytes {
 public:
  // Where bytes are appended. Good until the next call.
  [[nodiscard]] std::vector<std::uint8_t>& tail();

  // All that were appended, handed over or not.
  [[nodiscard]] std::size_t size() const;

  [[nodiscard]] std::size_t handed_over() const { return handed_over_; }
  [[nodiscard]] std::size_t waiting() const { return size() - handed_over_; }

  // Copies the next bytes; at least as many are waiting.
  void hand_over(std::span<std::uint8_t> buffer);

 private:
  std::vector<std::vector<std::uint8_t>> pieces_;
  std::size_t before_tail_ = 0;  // bytes in all pieces but the last
  std::size_t handed_over_ = 0;
  std::size_t piece_ = 0;  // where the next byte to be handed over is, ...
  std::size_t place_ = 0;  // ... and where in that piece
};

class PreparedStream final : public RunningStream {
 public:
  // Makes the bytes of the first `length_ps`, above 0; then stream time begins.
  // Of `link` only the rate and the kind of reads count. Throws Failure when
  // the bytes are more than `max_bytes`.
  PreparedStream(Signal signal, const FrontEndSettings& front_end,
                 std::unique_ptr<StreamEncoder> encoder, std::int64_t length_ps,
                 const LinkSettings& link = {}, std::uint64_t read_seed = 0,
                 std::int64_t max_bytes = max_prepared_bytes);

  std::size_t read(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout) override;

 private:
  using Clock = StreamClock::Clock;

  void make_until(StreamMaker& maker, std::int64_t before_ps);
  std::size_t arrived(Clock::time_point now);
  [[nodiscard]] Clock::time_point next_arrival(Clock::time_point deadline) const;

  Pace pace_;
  std::int64_t max_bytes_;
  PreparedBytes bytes_;
  std::vector<std::uint32_t> bytes_of_tick_;  // in real time
  std::size_t next_tick_ = 0;                 // the first tick that the link has not seen
  Link link_;                                 // in real time; its time begins at 0
  StreamClock clock_;                         // its time begins at 0, too
  ReadSizes read_sizes_;
};

}  // namespace zelk::simulator
