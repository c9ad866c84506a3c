#include "timing/stream_decoder.hpp"

#include "timing/wire_format.hpp"

namespace zelk::timing {

StreamDescription::StreamDescription(const StreamFileHeader& header)
    : format(header.format),
      mode(header.mode),
      transport(header.transport),
      channel_mask(header.channel_mask),
      packed_bits(header.packed_bits != 0 ? header.packed_bits : wire::packed_delta::default_bits),
      packed_quantum_ps(header.packed_quantum_ps != 0 ? header.packed_quantum_ps
                                                      : wire::packed_delta::default_quantum_ps),
      timestamp_layout(timestamp_layout_for(header.format, header.mode)),
      fine_correction_ps(wire::default_fine_correction_table()) {}

StreamDecoder::StreamDecoder(const StreamFileHeader& header) : StreamDescription(header) {
  packed_shift = wire::packed_delta::quantum_shift(packed_quantum_ps);
}

std::vector<TimeTag> StreamDecoder::feed(const std::uint8_t* data, std::size_t size) {
  std::vector<TimeTag> tags;
  feed(data, size, tags);
  return tags;
}

void StreamDecoder::feed(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& tags) {
  const FreshBytes fresh(data, data != nullptr ? size : 0);
  switch (format) {
    case Format::raw64:
      return feed_raw64(fresh, tags);
    case Format::delta32:
      return feed_delta32(fresh, tags);
    case Format::packed_delta:
      return feed_packed_delta(fresh, tags);
  }
  tags.clear();
  pending.insert(pending.end(), fresh.begin(), fresh.end());
}

std::vector<TimeTag> StreamDecoder::feed_raw64() {
  std::vector<TimeTag> tags;
  feed_raw64({}, tags);
  return tags;
}

std::vector<TimeTag> StreamDecoder::feed_delta32() {
  std::vector<TimeTag> tags;
  feed_delta32({}, tags);
  return tags;
}

std::vector<TimeTag> StreamDecoder::feed_packed_delta() {
  std::vector<TimeTag> tags;
  feed_packed_delta({}, tags);
  return tags;
}

}  // namespace zelk::timing
