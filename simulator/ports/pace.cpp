#include "simulator/ports/pace.hpp"

#include <cstddef>
#include <string>

#include "simulator/ports/port_values.hpp"

namespace zelk::simulator {

Pace take_pace(PortQuery& query) {
  constexpr std::size_t row = key_row("pace");
  const std::string text = take_words(query, row).value();
  if (text == "max") {
    return Pace::as_read;
  }
  if (text != "real") {
    throw bad_value(row, text);
  }
  return Pace::real_time;
}

}  // namespace zelk::simulator
