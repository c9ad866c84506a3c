// Texts of statuses: this library's own, which are fixed and never null, those
// that say why it opened no device, and those of statuses that come from
// elsewhere. Usable from any thread.
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

// The longest text that says why no device was opened.
inline constexpr std::size_t max_refusal_bytes = 1500;

// Texts for statuses that come from elsewhere, from a tapped library or from a
// recording, and for failed opens, where no device exists to hold a last error.
// The C interface asks for a status's text without naming a device, so this is
// the one state that belongs to the whole process: for each status the text of
// whoever answered with it last. A host asks right after the failed call, and
// so hears the text that belongs to it, also where two devices number their
// failures differently.
class StatusTexts {
 public:
  // The process's own.
  static StatusTexts& instance();

  // A device elsewhere answered `status`, whose text is this one. Where
  // memory is short, or there are too many already, the status keeps this library's text.
  void answered_elsewhere(std::int32_t status, std::string_view text) noexcept;

  // This library opened no device, or discovered none, for this reason. It is
  // told in one line of at most max_refusal_bytes. Where memory is short, or
  // there are too many already, the status keeps this library's text.
  void refused_without_device(std::int32_t status, std::string_view reason) noexcept;

  // The simulated unit or this library itself answered `status` otherwise.
  void answered_here(std::int32_t status) noexcept;

  // Never null; valid as long as the object.
  const char* text(std::int32_t status) noexcept;

 private:
  // Hosts may keep a text as long as they like, so texts are never dropped,
  // and a recording full of different ones, or of different statuses, must not
  // take all memory.
  static constexpr std::size_t max_texts = 1000;
  static constexpr std::size_t max_statuses = 100'000;

  using Texts = std::set<std::string, std::less<>>;

  void give(std::int32_t status, Texts& texts, std::string_view text);

  std::mutex mutex_;
  // Apart, so that neither kind leaves no room for the other.
  Texts from_elsewhere_;
  Texts refusals_;
  std::map<std::int32_t, const char*> given_;  // into these two
};

// A request that a device elsewhere refused while it was being opened.
class ForwardedFailure : public Failure {
 public:
  ForwardedFailure(std::int32_t status, const std::string& status_text)
      : Failure(static_cast<Status>(status), status_text) {}

  [[nodiscard]] const char* status_text() const noexcept { return what(); }
};

}  // namespace zelk::simulator
