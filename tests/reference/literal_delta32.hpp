// The delta32 path of the stream decoder, written for plainness and for
// nothing else: one word at a time, every number spelt out here. Tests hold it
// against the real decoder, so it shares no constant and no code with it. One
// object serves one stream and belongs to one thread.
//
// Times, bases and deltas that can't be negative are kept unsigned, which makes
// each comparison exact and each overflow a wrap.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::reference {

struct LiteralDelta32 {
  std::vector<std::uint8_t> pending;  // bytes not yet consumed

  std::array<std::int64_t, 4> last_ps{};  // last emitted time
  std::array<bool, 4> has_time{};         // the channel has emitted a time

  bool d32_locked = false;         // the word alignment is known
  std::uint32_t d32_state = 0;     // 0 data, 1 expects a base's low part, 2 its high part
  std::uint32_t d32_base_low = 0;  // low 25 bits of the announced base
  std::uint64_t d32_base = 0;      // announced base, ps
  bool d32_base_valid = false;     // the base waits for the next tag
  std::uint64_t d32_overflow = 0;  // units of 2^25 ps that wait for the next tag

  // Appends the bytes, if there are any, and returns the tags they complete.
  std::vector<timing::TimeTag> feed(const std::uint8_t* data, std::size_t size);

 private:
  [[nodiscard]] std::optional<std::size_t> find_sync(std::size_t from) const;
  [[nodiscard]] std::uint32_t word_at(std::size_t offset) const;
  void erase_front(std::size_t count);

  void clear_base_and_overflow();
  void lose_lock();
  void handle_expecting_low(std::uint32_t v);
  void handle_expecting_high(std::uint32_t v);
  void handle_data(std::uint32_t v, std::vector<timing::TimeTag>& tags);
  void handle_tag(std::uint32_t v, std::vector<timing::TimeTag>& tags);
  void handle_relative_tag(std::size_t ch, std::uint64_t delta, std::vector<timing::TimeTag>& tags);
  void handle_based_tag(std::size_t ch, std::uint64_t delta, std::vector<timing::TimeTag>& tags);
};

}  // namespace zelk::reference
