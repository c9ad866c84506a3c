// From the signal at a unit's inputs to the bytes of its stream: draws events,
// makes tags of them, and encodes these. Belongs to one running stream and the
// thread that reads it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "simulator/encoders/stream_encoder.hpp"
#include "simulator/signals/signal_source.hpp"
#include "simulator/unit/front_end.hpp"
#include "simulator/unit/link.hpp"
#include "simulator/unit/signal.hpp"
#include "simulator/unit/time_base.hpp"

namespace zelk::simulator {

class StreamMaker {
 public:
  using Bytes = std::vector<std::uint8_t>;

  // Neither the signal's source nor the encoder is null.
  StreamMaker(Signal signal, const FrontEndSettings& front_end,
              std::unique_ptr<StreamEncoder> encoder);

  // When the next event comes; none when the signal has ended.
  [[nodiscard]] std::optional<std::int64_t> next_event_ps();

  // Appends the bytes of the next events before `before_ps`, of some
  // hundred at most. Returns the number of these events, which need not make a tag; 0
  // when there are none.
  std::size_t make(std::int64_t before_ps, Bytes& bytes);

  // The same for bytes that go into the FIFO of `link`, each tag at the time of
  // its event. A tag that finds it full is lost.
  std::size_t make(std::int64_t before_ps, Bytes& bytes, Link& link);

  // Completes the last byte, as StreamEncoder::flush() does.
  void flush(Bytes& bytes) { encoder_->flush(bytes); }

 private:
  std::unique_ptr<SignalSource> source_;
  TimeBase time_base_;
  FrontEnd front_end_;
  std::unique_ptr<StreamEncoder> encoder_;

  // A few events at a time go from the source through the front end to the
  // encoder. Handed on one by one, they took two to three times as long.
  static constexpr std::size_t max_events = 512;
  std::array<Event, max_events> events_;
  std::array<timing::TimeTag, max_events> tags_;
};

}  // namespace zelk::simulator
