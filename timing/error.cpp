#include "timing/error.hpp"

namespace zelk::timing::detail {

void throw_status(qx_status status, const char* what, const char* detail) {
  std::string message = what;
  message += ": ";
  message += qx_status_string(status);
  if (detail != nullptr && *detail != '\0') {
    message += " (";
    message += detail;
    message += ")";
  }
  throw Error(message, status);
}

void check(qx_status status, const char* what, const qx_device* device) {
  throw_status(status, what, device != nullptr ? qx_last_error(device) : nullptr);
}

}  // namespace zelk::timing::detail
