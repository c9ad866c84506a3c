#include "tests/reference/literal_delta32.hpp"

#include <algorithm>

namespace zelk::reference {

namespace {

constexpr std::uint64_t two_to_16 = 65536;
constexpr std::uint64_t two_to_25 = 33554432;
constexpr std::uint64_t two_to_40 = 1099511627776;
constexpr std::uint64_t two_to_41 = 2199023255552;
constexpr std::uint64_t epoch_ps = 14315125997568;
constexpr std::uint64_t excess_ps = 1078036791296;
constexpr std::uint64_t ten_ms_in_ps = 10000000000;
constexpr std::uint32_t sync = 0xEB5A55AA;

constexpr std::array<std::uint8_t, 4> sync_bytes = {0xEB, 0x5A, 0x55, 0xAA};

bool is_control(std::uint32_t v, std::uint32_t subtype) {
  return v >> 31 == 1 && ((v >> 29) & 3) == subtype && ((v >> 25) & 15) == 5;
}

bool is_tag(std::uint32_t v) {
  return v >> 31 == 0 && ((v >> 25) & 15) == 10;
}

std::uint32_t payload_of(std::uint32_t v) {
  return v & 0x1FFFFFF;
}

bool has_short_payload(std::uint32_t v) {
  return payload_of(v) < two_to_16;
}

// The channel's last time as the rules use it: a negative one counts as 0.
std::uint64_t not_negative(std::int64_t last_ps) {
  return last_ps < 0 ? 0 : static_cast<std::uint64_t>(last_ps);
}

// True when a step of `step` ps from `prev` reaches into the next epoch.
bool crosses_epoch(std::uint64_t prev, std::uint64_t step) {
  return prev % epoch_ps + step >= epoch_ps;
}

std::uint64_t without_excess(std::uint64_t d, std::uint64_t prev) {
  if (d > excess_ps) {
    const std::uint64_t d2 = d - excess_ps;
    if (d2 <= ten_ms_in_ps) {
      return d2;
    }
    if (crosses_epoch(prev, d2)) {
      return d2;
    }
  }
  return d;
}

std::uint64_t lifted(std::uint64_t base, std::uint64_t prev) {
  base += prev - prev % two_to_41;
  if (base + two_to_40 < prev) {
    base += two_to_41;
  }
  if (prev < base && base - prev > excess_ps) {
    const std::uint64_t d8 = base - prev - excess_ps;
    if (d8 <= ten_ms_in_ps || crosses_epoch(prev, d8)) {
      base = prev + d8;
    }
  }
  return base;
}

}  // namespace

std::optional<std::size_t> LiteralDelta32::find_sync(std::size_t from) const {
  for (std::size_t p = from; p + 4 <= pending.size(); ++p) {
    if (pending[p] == sync_bytes[0] && pending[p + 1] == sync_bytes[1] &&
        pending[p + 2] == sync_bytes[2] && pending[p + 3] == sync_bytes[3]) {
      return p;
    }
  }
  return std::nullopt;
}

std::uint32_t LiteralDelta32::word_at(std::size_t offset) const {
  std::uint32_t v = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    v = v * 256 + pending[offset + k];
  }
  return v;
}

void LiteralDelta32::erase_front(std::size_t count) {
  pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(count));
}

void LiteralDelta32::clear_base_and_overflow() {
  d32_base = 0;
  d32_base_valid = false;
  d32_overflow = 0;
}

void LiteralDelta32::lose_lock() {
  d32_locked = false;
  d32_state = 0;
  clear_base_and_overflow();
}

void LiteralDelta32::handle_expecting_low(std::uint32_t v) {
  if (is_control(v, 1)) {
    d32_base_low = payload_of(v);
    d32_state = 2;
  } else if (v == sync) {
    clear_base_and_overflow();
  } else {
    lose_lock();
  }
}

void LiteralDelta32::handle_expecting_high(std::uint32_t v) {
  if (is_control(v, 2) && has_short_payload(v)) {
    d32_base = payload_of(v) * two_to_25 + d32_base_low;
    d32_base_valid = true;
    d32_state = 0;
    d32_overflow = 0;
  } else if (v == sync) {
    d32_state = 1;
    clear_base_and_overflow();
  } else {
    lose_lock();
  }
}

void LiteralDelta32::handle_data(std::uint32_t v, std::vector<timing::TimeTag>& tags) {
  if (is_tag(v)) {
    handle_tag(v, tags);
  } else if (is_control(v, 3)) {
    if (payload_of(v) == 0x15A55AA) {
      d32_state = 1;
      clear_base_and_overflow();
    }
  } else if (is_control(v, 0) && has_short_payload(v) && !d32_base_valid) {
    d32_overflow += payload_of(v);
  } else {
    lose_lock();
  }
}

void LiteralDelta32::handle_tag(std::uint32_t v, std::vector<timing::TimeTag>& tags) {
  const std::uint64_t delta = d32_overflow * two_to_25 + payload_of(v);
  d32_overflow = 0;
  const std::size_t ch = (v >> 29) & 3;
  if (d32_base_valid) {
    handle_based_tag(ch, delta, tags);
  } else {
    handle_relative_tag(ch, delta, tags);
  }
}

void LiteralDelta32::handle_relative_tag(std::size_t ch, std::uint64_t delta,
                                         std::vector<timing::TimeTag>& tags) {
  if (!has_time[ch]) {
    return;
  }
  const std::uint64_t step = without_excess(delta, not_negative(last_ps[ch]));
  last_ps[ch] = static_cast<std::int64_t>(static_cast<std::uint64_t>(last_ps[ch]) + step);
  tags.push_back({static_cast<std::uint8_t>(ch), last_ps[ch]});
}

void LiteralDelta32::handle_based_tag(std::size_t ch, std::uint64_t delta,
                                      std::vector<timing::TimeTag>& tags) {
  std::uint64_t base = d32_base % two_to_41;
  if (has_time[ch]) {
    base = lifted(base, not_negative(last_ps[ch]));
  }
  const auto time = static_cast<std::int64_t>(delta + base);
  if (has_time[ch] && time <= last_ps[ch]) {
    lose_lock();
    return;
  }
  last_ps[ch] = time;
  has_time[ch] = true;
  d32_base_valid = false;
  d32_base = 0;
  tags.push_back({static_cast<std::uint8_t>(ch), time});
}

std::vector<timing::TimeTag> LiteralDelta32::feed(const std::uint8_t* data, std::size_t size) {
  if (data != nullptr && size != 0) {
    pending.insert(pending.end(), data, data + size);
  }
  std::vector<timing::TimeTag> tags;
  std::size_t i = 0;
  for (;;) {
    if (!d32_locked) {
      const std::optional<std::size_t> p = find_sync(i);
      if (!p) {
        erase_front(pending.size() - std::min<std::size_t>(3, pending.size()));
        return tags;
      }
      erase_front(*p + 4);
      d32_locked = true;
      d32_state = 1;
      clear_base_and_overflow();
      i = 0;
    }
    while (d32_locked && pending.size() - i >= 4) {
      const std::uint32_t v = word_at(i);
      if (d32_state == 1) {
        handle_expecting_low(v);
      } else if (d32_state == 2) {
        handle_expecting_high(v);
      } else {
        handle_data(v, tags);
      }
      i += 4;
    }
    if (d32_locked) {
      erase_front(i);
      return tags;
    }
  }
}

}  // namespace zelk::reference
