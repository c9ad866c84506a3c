#include "simulator/status_texts.hpp"

#include <new>

namespace zelk::simulator {
namespace {

// Made when the library is loaded and not when first used: it so outlives the
// host's own global objects, which may still hold a device.
StatusTexts process_texts;

}  // namespace

StatusTexts& StatusTexts::instance() {
  return process_texts;
}

void StatusTexts::answered_elsewhere(std::int32_t status, std::string_view text) noexcept {
  const std::lock_guard lock(mutex_);
  try {
    auto kept = texts_.find(text);
    if (kept == texts_.end()) {
      if (texts_.size() >= max_texts) {
        elsewhere_.erase(status);
        return;
      }
      kept = texts_.emplace(text).first;
    }
    if (elsewhere_.size() < max_statuses || elsewhere_.contains(status)) {
      elsewhere_[status] = kept->c_str();
    }
  } catch (const std::bad_alloc&) {
    elsewhere_.erase(status);
  }
}

void StatusTexts::answered_here(std::int32_t status) noexcept {
  const std::lock_guard lock(mutex_);
  elsewhere_.erase(status);
}

const char* StatusTexts::text(std::int32_t status) noexcept {
  const std::lock_guard lock(mutex_);
  const auto found = elsewhere_.find(status);
  return found != elsewhere_.end() ? found->second : status_text(status);
}

}  // namespace zelk::simulator
