#include "simulator/recordings/loaded_library.hpp"

#include <dlfcn.h>
#include <sys/stat.h>

#include "simulator/failure.hpp"
#include "simulator/shown_text.hpp"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZELK_INTERCEPTED_LOADER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZELK_INTERCEPTED_LOADER 1
#endif
#endif

namespace zelk::simulator {
namespace {

#if defined(RTLD_DEEPBIND) && !defined(ZELK_INTERCEPTED_LOADER)
constexpr int own_names_first = RTLD_DEEPBIND;
#else
constexpr int own_names_first = 0;
#endif

// Without a slash the loader would search its directories for the name, and
// might return the library that is loaded already. The code stays where it is
// until the process ends, as that of a library which the host is linked with:
// threads of the library's own may still run in it after the last device is
// closed.
void* load(const std::string& path) {
  const std::string file = path.find('/') == path.npos ? "./" + path : path;
  // The loader would wait for the writer of a pipe.
  struct stat about {};
  if (::stat(file.c_str(), &about) == 0 && !S_ISREG(about.st_mode)) {
    throw Failure(Status::cannot_load_library,
                  "cannot load the tapped library " + named(path) + ": it is no plain file");
  }
  return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE | own_names_first);
}

std::string loader_error() {
  const char* const text = dlerror();
  return text != nullptr ? text : "unknown error of the loader";
}

}  // namespace

const bool LoadedLibrary::finds_own_names_first = own_names_first != 0;

void LoadedLibrary::Unload::operator()(void* library) const noexcept {
  dlclose(library);
}

LoadedLibrary::LoadedLibrary(const std::string& path) : library_(load(path)) {
  if (!library_) {
    throw Failure(Status::cannot_load_library,
                  "cannot load the tapped library " + named(path) + ": " + loader_error());
  }
  const auto find = [this, &path]<typename Function>(Function& function, const char* name) {
    function = reinterpret_cast<Function>(dlsym(library_.get(), name));
    if (function == nullptr) {
      throw Failure(Status::library_lacks_function,
                    "the tapped library " + named(path) + " lacks the function " + name);
    }
  };
  find(open_serial, "qx_open_serial");
  find(open, "qx_open");
  find(close, "qx_close");
  find(identify, "qx_identify");
  find(status_string, "qx_status_string");
  find(last_error, "qx_last_error");
  find(load_calibration, "qx_load_calibration");
  find(get_reference_clock_status, "qx_get_reference_clock_status");
  find(set_reference_clock, "qx_set_reference_clock");
  find(set_tdl_active_masks, "qx_set_tdl_active_masks");
  find(get_tdl_active_masks, "qx_get_tdl_active_masks");
  find(set_dac_codes, "qx_set_dac_codes");
  find(set_input_dead_time, "qx_set_input_dead_time");
  find(set_packed_delta_config, "qx_set_packed_delta_config");
  find(set_stream_interface, "qx_set_stream_interface");
  find(set_stream_channel_mask, "qx_set_stream_channel_mask");
  find(set_calibration_freq, "qx_set_calibration_freq");
  find(enable_calibration_source, "qx_enable_calibration_source");
  find(disable_calibration_source, "qx_disable_calibration_source");
  find(start_stream_mode, "qx_start_stream_mode");
  find(stop_stream_mode, "qx_stop_stream_mode");
  find(read_stream_bytes, "qx_read_stream_bytes");
}

}  // namespace zelk::simulator
