#include "simulator/unit/stream_maker.hpp"

#include <span>
#include <utility>

namespace zelk::simulator {

StreamMaker::StreamMaker(Signal signal, const FrontEndSettings& front_end,
                         std::unique_ptr<StreamEncoder> encoder)
    : source_(std::move(signal.source)),
      time_base_(signal.time_base),
      front_end_(front_end),
      encoder_(std::move(encoder)) {}

std::optional<std::int64_t> StreamMaker::next_event_ps() {
  const Event* const event = source_->peek();
  return event == nullptr ? std::nullopt : std::optional(event->time_ps);
}

std::size_t StreamMaker::make(std::int64_t before_ps, Bytes& bytes) {
  const std::size_t count = source_->take(events_, before_ps);
  const std::size_t tags = front_end_.detect(std::span(events_).first(count), time_base_, tags_);
  encoder_->append_all(std::span(tags_).first(tags), bytes);
  return count;
}

// One by one: what the FIFO has room for depends on the bytes of the tags before.
std::size_t StreamMaker::make(std::int64_t before_ps, Bytes& bytes, Link& link) {
  const std::size_t count = source_->take(events_, before_ps);
  for (const Event& event : std::span(events_).first(count)) {
    link.advance_to(event.time_ps);
    timing::TimeTag tag;
    if (front_end_.detect(event, time_base_.shown_at(event.time_ps), tag) && link.has_room()) {
      const std::size_t before = bytes.size();
      encoder_->append(tag, bytes);
      link.write(bytes.size() - before);
    }
  }
  return count;
}

}  // namespace zelk::simulator
