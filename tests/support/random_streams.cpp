#include "tests/support/random_streams.hpp"

#include <algorithm>
#include <array>

namespace zelk::test_support {

namespace {

constexpr std::uint64_t epoch_ps = 14'315'125'997'568;
constexpr std::uint64_t half_epoch_ps = 7'157'562'998'784;
constexpr std::uint64_t span_ps = 2'199'023'255'552;

Bytes appended(Bytes out, const Bytes& more) {
  out.insert(out.end(), more.begin(), more.end());
  return out;
}

}  // namespace

Bytes RandomStreams::ps_records(std::size_t count) {
  Bytes out;
  std::uint64_t last = below(epoch_ps);
  for (std::size_t n = 0; n < count; ++n) {
    const std::uint64_t back_by_half = last + epoch_ps - half_epoch_ps;
    const std::uint64_t time =
        one_of<std::uint64_t>({last + below(1'000'000), back_by_half - 1, back_by_half,
                               back_by_half + 1, any(), 0, epoch_ps - 1, epoch_ps, 0xFFFFFFFFFFF});
    last = time % (std::uint64_t{1} << 44) % epoch_ps;
    // A reduced time may also be sent unreduced when 44 bits hold it.
    const bool unreduced = last + epoch_ps < (std::uint64_t{1} << 44) && one_in(4);
    append_big_endian(
        out, ps_record(static_cast<unsigned>(below(4)), unreduced ? last + epoch_ps : last), 8);
  }
  return out;
}

Bytes RandomStreams::cf_records(std::size_t count) {
  Bytes out;
  std::uint64_t last = any();
  for (std::size_t n = 0; n < count; ++n) {
    const std::uint64_t half_around = last + 0x80000000;
    last = one_of<std::uint64_t>(
        {last + below(1000), half_around - 1, half_around, half_around + 1, any(), 0, 0xFFFFFFFF});
    const std::uint64_t fine = one_of<std::uint64_t>({0, 1, 2, 180, 181, 8191, below(8192)});
    append_big_endian(out, cf_record(static_cast<unsigned>(below(4)), last, fine), 8);
  }
  return out;
}

Bytes RandomStreams::raw64_noise(std::size_t size) {
  constexpr std::array<std::uint8_t, 14> alphabet = {0x00, 0x00, 0x00, 0x20, 0x40, 0x60, 0x0F,
                                                     0x14, 0x34, 0x74, 0xB8, 0xB8, 0x60, 0x7F};
  Bytes out;
  while (out.size() < size) {
    out.push_back(one_in(8) ? static_cast<std::uint8_t>(any()) : alphabet[below(alphabet.size())]);
  }
  return out;
}

RandomStreams::Delta32Recording RandomStreams::delta32_recording(std::size_t tag_count) {
  Delta32Recording recording;
  // Late enough that most recordings leave the first span of the counter.
  std::uint64_t now = span_ps - 10'000 - below(span_ps / 16);
  std::array<std::uint64_t, 4> last{};
  const auto announce = [&] {
    recording.bytes = appended(recording.bytes, d32_announce(now % span_ps));
  };
  const auto emit = [&](unsigned channel) {
    last.at(channel) = now;
    recording.tags.push_back({static_cast<std::uint8_t>(channel), static_cast<std::int64_t>(now)});
  };
  // A base for each channel, so that every tag from here on has a time.
  for (unsigned channel = 0; channel < 4; ++channel) {
    now += 1 + below(1'000);
    announce();
    append_big_endian(recording.bytes, d32_tag(channel, 0), 4);
    emit(channel);
  }
  while (recording.tags.size() < tag_count) {
    const auto channel = static_cast<unsigned>(below(4));
    now += one_of<std::uint64_t>(
        {1, 1 + below(5'000), 1 + below(40'000'000), 1 + below(10'000'000'000)});
    if (one_in(16)) {
      // A word that is to be skipped.
      append_big_endian(recording.bytes, d32_control(3, static_cast<std::uint32_t>(below(1000))),
                        4);
    }
    if (one_in(8)) {
      announce();
      const std::uint64_t later = below(33'554'432);
      now += later;
      append_big_endian(recording.bytes, d32_tag(channel, static_cast<std::uint32_t>(later)), 4);
    } else {
      recording.bytes = appended(recording.bytes, d32_step(channel, now - last.at(channel)));
    }
    emit(channel);
  }
  return recording;
}

std::uint64_t RandomStreams::base_time() {
  return one_of<std::uint64_t>({0, 1, any(), below(10'000), span_ps - 1, span_ps / 2,
                                1'078'036'791'296, 1'078'036'791'297 + below(3),
                                1'088'036'791'296 + below(3)});
}

Bytes RandomStreams::delta32_group() {
  const auto channel = static_cast<unsigned>(below(4));
  const std::uint64_t kind = below(8);
  const std::uint64_t base = base_time();
  const std::uint64_t nearby = below(4);
  switch (kind) {
    case 0:
    case 1:
      return appended(d32_announce(base),
                      big_endian_32({d32_tag(channel, static_cast<std::uint32_t>(any()))}));
    case 2:
      return d32_announce(base);
    case 3:
      // A step around the wrap excess, and around the bound for small ones.
      return d32_step(channel,
                      nearby + one_of<std::uint64_t>({1'078'036'791'295, 1'088'036'791'295}));
    case 4:
      return d32_step(channel, below(2 * epoch_ps));
    case 5:
      return big_endian_32({d32_overflow(static_cast<std::uint32_t>(below(65536)))});
    default:
      return big_endian_32({d32_tag(
          channel, one_of<std::uint32_t>({0, 1, 0x1FFFFFF, static_cast<std::uint32_t>(any())}))});
  }
}

std::uint32_t RandomStreams::delta32_stray_word() {
  const auto payload = static_cast<std::uint32_t>(any());
  switch (below(5)) {
    case 0:
      return d32_control(static_cast<unsigned>(below(4)), payload);
    case 1:
      return d32_control(static_cast<unsigned>(below(4)), payload & 0xFFFF);
    case 2:
      return d32_sync;
    case 3:
      // Ends with the beginning of a sync word.
      return 0x00EB5A55;
    default:
      return payload;
  }
}

Bytes RandomStreams::delta32_words(std::size_t count) {
  Bytes out;
  while (out.size() < 4 * count) {
    if (one_in(12)) {
      append_big_endian(out, delta32_stray_word(), 4);
    } else {
      out = appended(out, delta32_group());
    }
  }
  return out;
}

Bytes RandomStreams::delta32_noise(std::size_t size) {
  constexpr std::array<std::uint8_t, 4> sync_bytes = {0xEB, 0x5A, 0x55, 0xAA};
  Bytes out;
  while (out.size() < size) {
    if (one_in(3)) {
      const auto end = static_cast<std::ptrdiff_t>(1 + below(4));
      out.insert(out.end(), sync_bytes.begin(), sync_bytes.begin() + end);
    } else if (one_in(2)) {
      append_big_endian(out, delta32_stray_word(), 4);
    } else {
      out.push_back(one_of<std::uint8_t>({0xEB, 0x5A, 0x55, 0xAA, 0x14, 0xAA, 0x00}));
    }
  }
  return out;
}

Bytes RandomStreams::damaged(const Bytes& bytes, std::uint64_t spacing) {
  Bytes out;
  for (const std::uint8_t byte : bytes) {
    if (!one_in(spacing)) {
      out.push_back(byte);
      continue;
    }
    switch (below(3)) {
      case 0:
        out.push_back(static_cast<std::uint8_t>(byte ^ 1U << below(8)));
        break;
      case 1:
        out.push_back(static_cast<std::uint8_t>(any()));
        out.push_back(byte);
        break;
      default:
        break;  // removed
    }
  }
  return out;
}

std::vector<std::size_t> RandomStreams::chunk_sizes(std::size_t total, std::size_t longest) {
  std::vector<std::size_t> sizes;
  while (total > 0) {
    sizes.push_back(std::min(total, 1 + static_cast<std::size_t>(below(longest))));
    total -= sizes.back();
  }
  return sizes;
}

}  // namespace zelk::test_support
