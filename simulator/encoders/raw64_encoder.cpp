#include "simulator/encoders/raw64_encoder.hpp"

#include <algorithm>
#include <cstdlib>

#include "timing/wire_format.hpp"

namespace zelk::simulator {

namespace raw64 = timing::wire::raw64;

namespace {

std::uint64_t ps_record(const timing::TimeTag& tag) {
  const auto time_ps = static_cast<std::uint64_t>(tag.timestamp_ps % timing::coarse_epoch_ps);
  return raw64::ps_fixed_value | std::uint64_t{tag.channel} << raw64::channel_shift | time_ps;
}

}  // namespace

void Raw64Encoder::append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) {
  append_big_endian(ps_record(tag), bytes);
}

std::size_t Raw64Encoder::append_near(std::span<const timing::TimeTag> tags,
                                      std::vector<std::uint8_t>& bytes) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written before it is read
  std::array<std::uint8_t, tags_per_block * raw64::record_bytes> block;
  tags = tags.first(std::min(tags.size(), tags_per_block));
  std::uint8_t* end = block.data();
  for (const timing::TimeTag& tag : tags) {
    put_big_endian(ps_record(tag), end);
    end += raw64::record_bytes;
  }
  bytes.insert(bytes.end(), block.data(), end);
  return tags.size();
}

CoarseFineEncoder::CoarseFineEncoder() {
  std::uint16_t code = 0;
  for (std::int64_t remainder_ps = 0; remainder_ps < timing::clock_period_ps; ++remainder_ps) {
    const auto error_ps = [remainder_ps](std::uint16_t candidate) {
      return std::abs(timing::wire::default_fine_correction_ps(candidate) - remainder_ps);
    };
    // Corrections rise with the code, so the nearest one never lies behind.
    while (error_ps(static_cast<std::uint16_t>(code + 1)) < error_ps(code)) {
      ++code;
    }
    code_of_remainder_[static_cast<std::size_t>(remainder_ps)] = code;
  }
}

void CoarseFineEncoder::append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) {
  constexpr std::int64_t period_ps = timing::clock_period_ps;
  const std::int64_t edge = (tag.timestamp_ps + period_ps - 1) / period_ps;
  const auto remainder_ps = static_cast<std::size_t>(edge * period_ps - tag.timestamp_ps);
  const std::uint64_t coarse = static_cast<std::uint64_t>(edge) & raw64::cf_coarse_mask;
  append_big_endian(raw64::cf_fixed_value | std::uint64_t{tag.channel} << raw64::channel_shift |
                        coarse << raw64::cf_coarse_shift | code_of_remainder_[remainder_ps],
                    bytes);
}

}  // namespace zelk::simulator
