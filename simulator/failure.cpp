#include "simulator/failure.hpp"

#include "simulator/port_keys.hpp"

namespace zelk::simulator {

const char* status_text(std::int32_t status) noexcept {
  switch (static_cast<Status>(status)) {
    case Status::success:
      return "success";
    case Status::invalid_argument:
      return "invalid argument";
    case Status::out_of_memory:
      return "out of memory";
    case Status::timed_out:
      return "timed out";
    case Status::not_supported:
      return "not supported";
    case Status::no_device:
      return "no device found";
    case Status::busy:
      return "busy: the unit is streaming";
    case Status::not_available:
      return "not available on this unit";
    case Status::not_streaming:
      return "the unit is not streaming";
    case Status::out_of_range:
      return "value out of range";
    case Status::internal_error:
      return "internal error of the device library";
    case Status::no_such_unit:
      return "no such unit";
    case Status::malformed_port:
      return "malformed port string";
    case Status::unknown_scenario:
      return "unknown scenario in port string";
    case Status::unknown_port_key:
      return "unknown key in port string";
    case Status::missing_port_key:
      return "missing key in port string";
    case Status::repeated_port_key:
      return "repeated key in port string";
    case Status::cannot_open_tag_file:
      return "cannot open the tag file";
    case Status::cannot_read_tag_file:
      return "cannot read the tag file";
    case Status::malformed_tag_line:
      return "malformed line in the tag file";
    case Status::tag_out_of_order:
      return "tag file not in time order";
    case Status::tag_channel_out_of_range:
      return "channel out of range in the tag file";
  }
  const char* const of_key = key_status_text(status);
  return of_key != nullptr ? of_key : "unknown status";
}

}  // namespace zelk::simulator
