#include "simulator/recordings/recording_writer.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <new>
#include <system_error>

#include "simulator/failure.hpp"
#include "simulator/recordings/crc32.hpp"
#include "simulator/shown_text.hpp"

namespace zelk::simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

void put(Bytes& out, std::uint64_t value, std::size_t byte_count) {
  for (std::size_t k = 0; k < byte_count; ++k) {
    out.push_back(static_cast<std::uint8_t>(value >> (8 * k)));
  }
}

void put32(Bytes& out, std::uint32_t value) {
  put(out, value, 4);
}

void put64(Bytes& out, std::uint64_t value) {
  put(out, value, 8);
}

void put_text(Bytes& out, std::string_view text) {
  text = text.substr(0, recording_format::max_text_bytes);
  put32(out, static_cast<std::uint32_t>(text.size()));
  out.insert(out.end(), text.begin(), text.end());
}

void put_text(Bytes& out, const std::optional<std::string>& text) {
  if (text) {
    put_text(out, std::string_view(*text));
  } else {
    put32(out, recording_format::null_text);
  }
}

void put_answer(Bytes& out, const RecordedAnswer& answer) {
  put32(out, static_cast<std::uint32_t>(answer.status));
  put_text(out, answer.status_text);
  put_text(out, answer.last_error);
}

void overwrite32(Bytes& out, std::size_t at, std::uint32_t value) {
  for (std::size_t k = 0; k < 4; ++k) {
    out[at + k] = static_cast<std::uint8_t>(value >> (8 * k));
  }
}

std::string error_text(int number) {
  return std::generic_category().message(number);
}

// While it exists, a write beyond the process's limit on file sizes fails as on
// a full disk does, and the signal that would end the host is taken away.
class NoFileSizeSignal {
 public:
  NoFileSizeSignal() noexcept {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &signal_, &former_mask_);
  }
  ~NoFileSizeSignal() {
    if (sigismember(&former_mask_, SIGXFSZ) == 0) {
      const timespec at_once{};
      while (sigtimedwait(&signal_, nullptr, &at_once) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr);
  }
  NoFileSizeSignal(const NoFileSizeSignal&) = delete;
  NoFileSizeSignal& operator=(const NoFileSizeSignal&) = delete;

 private:
  sigset_t signal_{};
  sigset_t former_mask_{};
};

}  // namespace

RecordingWriter::RecordingWriter(const std::string& path, const RecordedOpening& opening)
    : file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)), path_(path) {
  if (!file_.is_open()) {
    const int reason = errno;
    if (reason == EEXIST) {
      throw Failure(Status::recording_exists,
                    "the recording file " + named(path) + " exists already");
    }
    throw Failure(Status::cannot_create_recording,
                  "cannot create the recording file " + named(path) + ": " + error_text(reason));
  }
  bytes_.assign(recording_format::magic.begin(), recording_format::magic.end());
  put32(bytes_, recording_format::version);
  write_out();
  append(RecordType::opening, [&](Bytes& out) {
    put_text(out, std::string_view(opening.library));
    put_text(out, std::string_view(opening.port));
    put32(out, static_cast<std::uint32_t>(opening.rate));
  });
  if (!error_.empty()) {
    ::unlink(path.c_str());
    throw Failure(Status::cannot_write_recording, error_);
  }
}

void RecordingWriter::add(const RecordedCall& call) noexcept {
  append(RecordType::call, [&](Bytes& out) {
    const CallShape& shape = shape_of(call.call.kind);
    put64(out, call.time_ns);
    put32(out, static_cast<std::uint32_t>(call.call.kind));
    put_answer(out, call.answer);
    for (std::size_t i = 0; i < shape.arguments; ++i) {
      put64(out, call.call.arguments[i]);
    }
    for (std::size_t i = 0; i < shape.results; ++i) {
      put64(out, call.call.results[i]);
    }
  });
}

void RecordingWriter::add(const RecordedQuiet& quiet) noexcept {
  append(RecordType::quiet_reads, [&](Bytes& out) {
    put64(out, quiet.first_ns);
    put64(out, quiet.last_ns);
    put64(out, quiet.count);
    put_answer(out, quiet.answer);
  });
}

void RecordingWriter::add(const RecordedFailedRead& failed) noexcept {
  append(RecordType::failed_read, [&](Bytes& out) {
    put64(out, failed.time_ns);
    put_answer(out, failed.answer);
  });
}

void RecordingWriter::add_chunk(std::uint64_t time_ns,
                                std::span<const std::uint8_t> bytes) noexcept {
  while (!bytes.empty()) {
    const auto part = bytes.first(std::min(bytes.size(), recording_format::max_chunk_bytes));
    append(RecordType::chunk, [&](Bytes& out) {
      put64(out, time_ns);
      out.insert(out.end(), part.begin(), part.end());
    });
    bytes = bytes.subspan(part.size());
  }
}

void RecordingWriter::finish(std::uint64_t time_ns) noexcept {
  append(RecordType::end, [&](Bytes& out) { put64(out, time_ns); });
}

void RecordingWriter::fail(const char* reason) noexcept {
  if (!error_.empty()) {
    return;
  }
  try {
    error_ = "cannot write " + path_ + ": " + reason;
  } catch (const std::bad_alloc&) {
    error_ = "cannot write";  // short enough to need no memory
  }
}

template <typename Fill>
void RecordingWriter::append(RecordType type, Fill fill) noexcept {
  if (!error_.empty()) {
    return;
  }
  try {
    bytes_.clear();
    put32(bytes_, next_number_);
    put32(bytes_, static_cast<std::uint32_t>(type));
    bytes_.resize(recording_format::record_header_bytes);
    fill(bytes_);
    const auto payload =
        std::span<const std::uint8_t>(bytes_).subspan(recording_format::record_header_bytes);
    overwrite32(bytes_, 8, static_cast<std::uint32_t>(payload.size()));
    overwrite32(bytes_, 12, crc32(payload));
    overwrite32(bytes_, 16, crc32(std::span<const std::uint8_t>(bytes_).first(16)));
    ++next_number_;
    write_out();
  } catch (const std::bad_alloc&) {
    fail("out of memory");
  }
}

// A record is one write unless the system takes only a part of it.
void RecordingWriter::write_out() {
  const NoFileSizeSignal no_signal;
  std::size_t written = 0;
  while (written < bytes_.size()) {
    const ssize_t count = ::write(file_.get(), bytes_.data() + written, bytes_.size() - written);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      fail(error_text(count == 0 ? ENOSPC : errno).c_str());
      // Should this fail too, the recording reads as cut short, which it is.
      [[maybe_unused]] const int cut = ::ftruncate(file_.get(), static_cast<off_t>(file_bytes_));
      return;
    }
    written += static_cast<std::size_t>(count);
  }
  file_bytes_ += bytes_.size();
}

}  // namespace zelk::simulator
