#include "tests/reference/literal_raw64.hpp"

#include <cctype>

namespace zelk::reference {

namespace {

constexpr std::uint64_t two_to_31 = 2147483648;
constexpr std::uint64_t two_to_32 = 4294967296;
constexpr std::uint64_t epoch_ps = 3333 * two_to_32;
constexpr std::uint64_t half_an_epoch_ps = 3333 * two_to_31;

std::uint64_t as_unsigned(std::int64_t value) {
  return static_cast<std::uint64_t>(value);
}

std::int64_t as_signed(std::uint64_t value) {
  return static_cast<std::int64_t>(value);
}

}  // namespace

void LiteralRaw64::fill_fine_corrections() {
  fine_correction_ps.clear();
  for (std::int64_t i = 0; i < 8192; ++i) {
    const std::int64_t nearest = (1 + 37 * i) >> 1;
    fine_correction_ps.push_back(nearest > 3332 ? 3332 : nearest);
  }
}

std::uint64_t LiteralRaw64::word_at(std::size_t offset) const {
  std::uint64_t w = 0;
  for (std::size_t k = 0; k < 8; ++k) {
    w = w * 256 + pending[offset + k];
  }
  return w;
}

bool LiteralRaw64::is_coarse_fine() const {
  std::string name = timestamp_layout;
  for (char& letter : name) {
    letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }
  return name == "raw_cf";
}

timing::TimeTag LiteralRaw64::read_ps(std::uint64_t w) {
  const std::uint64_t ch = (w >> 61) & 3;
  const std::uint64_t raw = (w & 0x00000FFFFFFFFFFF) % epoch_ps;
  if (has_last[ch] && raw < last_raw[ch] && last_raw[ch] - raw > half_an_epoch_ps) {
    epoch_offset_ps[ch] = as_signed(as_unsigned(epoch_offset_ps[ch]) + epoch_ps);
  }
  last_raw[ch] = raw;
  has_last[ch] = true;
  return {static_cast<std::uint8_t>(ch), as_signed(raw + as_unsigned(epoch_offset_ps[ch]))};
}

timing::TimeTag LiteralRaw64::read_coarse_fine(std::uint64_t w) {
  const std::uint64_t ch = (w >> 61) & 3;
  const std::uint64_t coarse = (w >> 13) & 0xFFFFFFFF;
  const std::uint64_t fine = w & 0x1FFF;
  if (has_last[ch] && coarse < last_raw[ch] && last_raw[ch] - coarse > two_to_31) {
    epoch_offset_ps[ch] = as_signed(as_unsigned(epoch_offset_ps[ch]) + two_to_32);
  }
  last_raw[ch] = coarse;
  has_last[ch] = true;
  std::uint64_t time = (coarse + as_unsigned(epoch_offset_ps[ch])) * 3333;
  if (fine < fine_correction_ps.size()) {
    time -= as_unsigned(fine_correction_ps[fine]);
  }
  return {static_cast<std::uint8_t>(ch), as_signed(time)};
}

std::vector<timing::TimeTag> LiteralRaw64::feed(const std::uint8_t* data, std::size_t size) {
  if (data != nullptr && size != 0) {
    pending.insert(pending.end(), data, data + size);
  }
  std::vector<timing::TimeTag> tags;
  std::size_t offset = 0;
  while (pending.size() - offset >= 8) {
    const std::uint64_t w = word_at(offset);
    if (is_coarse_fine()) {
      if ((w & 0x9FFFE00000000000) != 0x14B8600000000000) {
        offset += 1;
        continue;
      }
      tags.push_back(read_coarse_fine(w));
    } else {
      if ((w & 0x9FFFF00000000000) != 0) {
        offset += 1;
        continue;
      }
      tags.push_back(read_ps(w));
    }
    offset += 8;
  }
  pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(offset));
  return tags;
}

}  // namespace zelk::reference
