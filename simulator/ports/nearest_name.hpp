// What somebody who mistyped a name may have meant.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace zelk::simulator {

// The one of `names` that differs from `wrong` by the fewest letters, a third of
// its letters at most, or else the only one that holds all of `wrong`. None
// when two are as near. Capitals make no difference.
std::optional<std::string_view> nearest_name(std::string_view wrong,
                                             std::span<const std::string_view> names);

}  // namespace zelk::simulator
