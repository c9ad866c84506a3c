#include "simulator/unit/stream_maker.hpp"

#include <utility>

namespace zelk::simulator {
namespace {

constexpr std::size_t max_events = 4096;

}  // namespace

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
  std::size_t events = 0;
  for (; events < max_events; ++events) {
    const Event* const event = source_->peek();
    if (event == nullptr || event->time_ps >= before_ps) {
      break;
    }
    timing::TimeTag tag;
    if (front_end_.detect(*event, time_base_.shown_at(event->time_ps), tag)) {
      encoder_->append(tag, bytes);
    }
    source_->pop();
  }
  return events;
}

std::size_t StreamMaker::make(std::int64_t before_ps, Bytes& bytes, Link& link) {
  std::size_t events = 0;
  for (; events < max_events; ++events) {
    const Event* const event = source_->peek();
    if (event == nullptr || event->time_ps >= before_ps) {
      break;
    }
    link.advance_to(event->time_ps);
    timing::TimeTag tag;
    if (front_end_.detect(*event, time_base_.shown_at(event->time_ps), tag) && link.has_room()) {
      const std::size_t before = bytes.size();
      encoder_->append(tag, bytes);
      link.write(bytes.size() - before);
    }
    source_->pop();
  }
  return events;
}

}  // namespace zelk::simulator
