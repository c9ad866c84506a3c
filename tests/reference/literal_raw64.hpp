// The raw64 path of the stream decoder, written for plainness and for nothing
// else: one record at a time, every number spelt out here. Tests hold it
// against the real decoder, so it shares no constant and no code with it. One
// object serves one stream and belongs to one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::reference {

struct LiteralRaw64 {
  std::string timestamp_layout = "ps";
  std::vector<std::int64_t> fine_correction_ps;  // ps to subtract per fine code

  std::vector<std::uint8_t> pending;              // bytes not yet consumed
  std::array<std::uint64_t, 4> last_raw{};        // ps within the epoch, or clock periods
  std::array<bool, 4> has_last{};                 // the channel's last_raw means something
  std::array<std::int64_t, 4> epoch_offset_ps{};  // ps, or clock periods in "raw_cf"

  // The 8192 corrections that every stream starts with.
  void fill_fine_corrections();

  // Appends the bytes, if there are any, and returns the tags they complete.
  std::vector<timing::TimeTag> feed(const std::uint8_t* data, std::size_t size);

 private:
  [[nodiscard]] std::uint64_t word_at(std::size_t offset) const;
  [[nodiscard]] bool is_coarse_fine() const;
  timing::TimeTag read_ps(std::uint64_t w);
  timing::TimeTag read_coarse_fine(std::uint64_t w);
};

}  // namespace zelk::reference
