#include "smoke_test/results/json_output.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "smoke_test/conversions.hpp"
#include "smoke_test/options.hpp"
#include "smoke_test/results/run_document.hpp"
#include "smoke_test/sudden_end.hpp"

namespace {

// A signal handler can reach nothing but globals of lock-free types.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<ResultFile*> result_file{nullptr};
std::atomic<const JsonOutput::Prepared*> prepared_text{nullptr};
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
static_assert(std::atomic<ResultFile*>::is_always_lock_free &&
              std::atomic<const JsonOutput::Prepared*>::is_always_lock_free);

// The end of a document, put together without memory of its own.
class SuddenTail {
 public:
  SuddenTail(int exit_status, int signal) {
    append(document_error_key);
    if (signal == 0) {
      append("\"the device library does not answer\"");
    } else {
      append("\"ended by signal ");
      append(signal);
      append("\"");
    }
    append(document_status_key);
    append(exit_status);
    append(document_end);
  }

  [[nodiscard]] std::string_view text() const { return {room_.data(), length_}; }

 private:
  void append(std::string_view text) {
    const std::size_t count = std::min(text.size(), room_.size() - length_);
    std::copy_n(text.begin(), count, room_.begin() + static_cast<std::ptrdiff_t>(length_));
    length_ += count;
  }

  // Statuses and signals have three digits at most.
  void append(int number) {
    for (const int unit : {100, 10, 1}) {
      if (number >= unit || unit == 1) {
        const char digit = static_cast<char>('0' + number / unit % 10);
        append(std::string_view(&digit, 1));
      }
    }
  }

  std::array<char, 160> room_{};
  std::size_t length_ = 0;
};

// A document that names this end is whole; any other one gets another end.
void write_before_sudden_end(int exit_status, int signal) {
  ResultFile* file = result_file;
  const JsonOutput::Prepared* prepared = prepared_text;
  if (file == nullptr || prepared == nullptr) {
    return;
  }
  if (signal != 0 || prepared->exit_status != exit_status) {
    file->write_suddenly(prepared->head, SuddenTail(exit_status, signal).text());
  } else if (!file->is_written()) {
    file->write_suddenly(prepared->whole, {});
  }
}

std::string random_id() {
  std::array<std::uint8_t, 16> bytes{};
  if (getentropy(bytes.data(), bytes.size()) != 0) {
    throw std::runtime_error("the system gives no random numbers");
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);  // version 4: random
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) {
      text += '-';
    }
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 0x0FU];
  }
  return text;
}

}  // namespace

JsonOutput::JsonOutput(RunRecord& record) : record_(record) {
  std::optional<std::string> path;
  std::string note;
  std::vector<std::string> inputs;
  for (const std::string& argument : record.arguments) {
    const SplitArgument split = split_argument(argument);
    if (!split.value) {
      continue;
    }
    const std::string key = lower_ascii(std::string(split.key));
    if (key == "json") {
      path = *split.value;
    } else if (key == "note") {
      note = *split.value;
    } else if (key == "limits") {
      inputs.emplace_back(*split.value);
    }
  }
  if (!path) {
    return;
  }
  record.run_id = random_id();
  record.config.json_file = *path;
  record.config.note = note;
  file_ = std::make_unique<ResultFile>(*path, record.run_id, inputs);
  prepare();
  result_file = file_.get();
  set_before_sudden_end(&write_before_sudden_end);
}

JsonOutput::~JsonOutput() {
  if (file_) {
    set_before_sudden_end(nullptr);
    result_file = nullptr;
    prepared_text = nullptr;
  }
}

void JsonOutput::prepare() {
  if (file_ && !is_over_) {
    publish({.head = document_head(record_), .whole = {}});
  }
}

void JsonOutput::conclude() {
  if (!file_ || std::exchange(is_over_, true)) {
    return;
  }
  const std::string head = document_head(record_);
  publish({.head = head,
           .whole = head + document_tail(record_),
           .exit_status = record_.exit_status.value_or(-1)});
  try {
    file_->write(prepared_.back()->whole);
  } catch (...) {
    set_before_sudden_end(nullptr);  // what cannot be written now cannot be written then
    throw;
  }
}

void JsonOutput::publish(Prepared text) {
  prepared_.push_back(std::make_unique<const Prepared>(std::move(text)));
  prepared_text = prepared_.back().get();
}
