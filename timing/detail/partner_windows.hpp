// The walk along two ascending lists of times that finds, for every time of the
// one, where its window of partners in the other begins. Pure functions, usable
// from any thread.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "timing/detail/wrapping.hpp"

namespace zelk::timing::detail {

// Whether x + offset - range and x + offset + range stay inside 64 bits for
// every x of an ascending list that is not empty.
inline bool windows_stay_in_range(std::span<const std::int64_t> times, std::int64_t offset_ps,
                                  std::int64_t range_ps) {
  std::int64_t first = 0;
  std::int64_t last = 0;
  return !__builtin_add_overflow(times.front(), offset_ps, &first) &&
         !__builtin_add_overflow(times.back(), offset_ps, &last) &&
         !__builtin_sub_overflow(first, range_ps, &first) &&
         !__builtin_add_overflow(last, range_ps, &last);
}

// The list is cut into this many parts of equal length.
inline constexpr std::size_t partner_lanes = 4;

// Calls visit(lane, x, first) for the times x of `times`: `first` points at the
// first of `partners` that is not before x + low_ps. Times behind all partners
// are left out. Both lists ascend, and x + low_ps must stay inside 64 bits for
// every x (though low_ps itself may have wrapped around). The order of the calls is ascending
// within a lane, 0 to 3, only.
//
// Which partner comes next is a coin toss where tags were lost, and a processor
// that guesses it wrong loses more time than the whole step takes. So the
// cursor moves without a branch over up to three partners; more are rare. Each
// step must then wait for the one before. Four parts of the list, walked in
// turns, fill that time with each other's steps. Against the plain walk, with
// every second tag lost, that is five times as fast for coincidences, and 1.5
// times where none is lost and every guess is right.
template <typename Visit>
void for_each_window(std::span<const std::int64_t> times, std::span<const std::int64_t> partners,
                     std::int64_t low_ps, Visit visit) {
  constexpr std::size_t looked_ahead = 3;
  // Cursors of the first `safe` times stop before the last three partners.
  std::size_t safe = 0;
  if (partners.size() > looked_ahead) {
    const std::int64_t limit = partners[partners.size() - 1 - looked_ahead];
    const auto end = std::ranges::partition_point(
        times, [=](std::int64_t x) { return wrap_add(x, low_ps) <= limit; });
    safe = static_cast<std::size_t>(end - times.begin());
  }
  const std::size_t lane_size = safe / partner_lanes;

  std::array<const std::int64_t*, partner_lanes> cursors{};
  for (std::size_t lane = 0; lane < partner_lanes; ++lane) {
    cursors[lane] = partners.data();
    if (lane_size > 0) {
      cursors[lane] +=
          std::ranges::lower_bound(partners, wrap_add(times[lane * lane_size], low_ps)) -
          partners.begin();
    }
  }
  const auto step = [&](std::size_t lane, std::size_t i) {
    const std::int64_t x = times[lane * lane_size + i];
    const std::int64_t low = wrap_add(x, low_ps);
    const std::int64_t* cursor = cursors[lane];
    cursor += (cursor[0] < low ? 1 : 0) + (cursor[1] < low ? 1 : 0) + (cursor[2] < low ? 1 : 0);
    while (*cursor < low) {
      ++cursor;
    }
    cursors[lane] = cursor;
    visit(lane, x, cursor);
  };
  for (std::size_t i = 0; i < lane_size; ++i) {
    step(0, i);
    step(1, i);
    step(2, i);
    step(3, i);
  }

  constexpr std::size_t last_lane = partner_lanes - 1;
  const std::int64_t* cursor = cursors[last_lane];
  const std::int64_t* const end = partners.data() + partners.size();
  for (const std::int64_t x : times.subspan(partner_lanes * lane_size)) {
    while (cursor != end && *cursor < wrap_add(x, low_ps)) {
      ++cursor;
    }
    if (cursor == end) {
      return;
    }
    visit(last_lane, x, cursor);
  }
}

}  // namespace zelk::timing::detail
