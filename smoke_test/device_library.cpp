#include "smoke_test/device_library.hpp"

#include <dlfcn.h>

#include <cstdlib>
#include <memory>

namespace {

// What the simulated library exports besides the interface.
constexpr const char* mark_of_the_simulated_library = "zelk_simulated_library";

// The file that the name was found in, as the loader knows it.
std::optional<Dl_info> origin_of(const char* name) {
  Dl_info info{};
  const void* const address = dlsym(RTLD_DEFAULT, name);
  const bool is_known =
      address != nullptr && dladdr(address, &info) != 0 && info.dli_fname != nullptr;
  return is_known ? std::optional(info) : std::nullopt;
}

}  // namespace

std::optional<DeviceLibrary> loaded_device_library() {
  const std::optional<Dl_info> library = origin_of("qx_identify");
  if (!library) {
    return std::nullopt;
  }
  const std::optional<Dl_info> simulated = origin_of(mark_of_the_simulated_library);
  const std::unique_ptr<char, decltype(&std::free)> path(realpath(library->dli_fname, nullptr),
                                                         &std::free);
  return DeviceLibrary{.path = path ? path.get() : library->dli_fname,
                       .is_simulated = simulated && simulated->dli_fbase == library->dli_fbase};
}
