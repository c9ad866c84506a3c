// Texts of statuses: this library's own, which are fixed and never null, and
// those of statuses that come from elsewhere. Usable from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "simulator/failure.hpp"

namespace zelk::simulator {

inline constexpr const char* unknown_status_text = "unknown status";

// This library's own text for `status`; unknown_status_text for any other.
const char* status_text(std::int32_t status) noexcept;

// Texts for statuses that come from elsewhere: from a tapped library or from a
// recording. The C interface asks for a status's text without naming a device,
// so this is the one state that belongs to the whole process: for each status
// the text of whoever answered with it last. A host asks right after the
// failed call, and so hears the text that belongs to it, also where two
// devices number their failures differently.
class StatusTexts {
 public:
  // The process's own.
  static StatusTexts& instance();

  // A device elsewhere answered `status`, whose text is this one. Where
  // memory is short, or there are too many already, the status keeps this library's text.
  void answered_elsewhere(std::int32_t status, std::string_view text) noexcept;

  // The simulated unit or this library itself answered `status`.
  void answered_here(std::int32_t status) noexcept;

  // Never null; valid as long as the object.
  const char* text(std::int32_t status) noexcept;

 private:
  // Hosts may keep a text as long as they like, so texts are never dropped,
  // and a recording full of different ones, or of different statuses, must not
  // take all memory.
  static constexpr std::size_t max_texts = 1000;
  static constexpr std::size_t max_statuses = 100'000;

  std::mutex mutex_;
  std::set<std::string, std::less<>> texts_;
  std::map<std::int32_t, const char*> elsewhere_;  // into texts_
};

// A request that a device elsewhere refused while it was being opened.
class ForwardedFailure : public Failure {
 public:
  ForwardedFailure(std::int32_t status, const std::string& status_text)
      : Failure(static_cast<Status>(status), status_text) {}

  [[nodiscard]] const char* status_text() const noexcept { return what(); }
};

}  // namespace zelk::simulator
