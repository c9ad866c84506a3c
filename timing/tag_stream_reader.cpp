#include "timing/tag_stream_reader.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "timing/stream_decoder.hpp"

namespace zelk::timing {

TagStreamReader::~TagStreamReader() {
  try {
    stop();
  } catch (...) {  // NOLINT(bugprone-empty-catch): nobody is left to tell
  }
}

void TagStreamReader::start(const StreamFileHeader& header, std::size_t read_chunk,
                            std::size_t limit) {
  stop_requested = true;
  if (thread.joinable()) {
    thread.join();
  }
  running = false;
  rethrow_stored_error();
  {
    const std::lock_guard lock(mutex);
    queue.clear();
    error = nullptr;
  }
  queue_limit = std::max(limit, min_queue_limit);
  dropped = 0;
  stop_requested = false;
  running = true;
  try {
    thread = std::thread(&TagStreamReader::run, this, header, std::max(read_chunk, min_read_chunk));
  } catch (...) {
    running = false;
    throw;
  }
}

void TagStreamReader::stop() {
  stop_requested = true;
  if (thread.joinable()) {
    thread.join();
  }
  running = false;
  rethrow_stored_error();
}

void TagStreamReader::drain(std::vector<TimeTag>& batch) {
  batch.clear();
  std::exception_ptr stored;
  {
    const std::lock_guard lock(mutex);
    stored = error;
    while (batch.size() < max_drain && !queue.empty()) {
      const std::span<const TimeTag> tags = queue.take_front(max_drain - batch.size());
      batch.insert(batch.end(), tags.begin(), tags.end());
    }
  }
  if (stored) {
    std::rethrow_exception(stored);
  }
}

std::span<const TimeTag> TagStreamReader::drain() {
  std::span<const TimeTag> tags;
  std::exception_ptr stored;
  {
    const std::lock_guard lock(mutex);
    stored = error;
    tags = queue.take_front(max_drain);
  }
  if (stored) {
    std::rethrow_exception(stored);
  }
  return tags;
}

void TagStreamReader::rethrow_stored_error() {
  std::exception_ptr stored;
  {
    const std::lock_guard lock(mutex);
    stored = error;
  }
  if (stored) {
    std::rethrow_exception(stored);
  }
}

// The thread's body. Whatever goes wrong is left for the consumer to find.
void TagStreamReader::run(StreamFileHeader header, std::size_t read_chunk) {
  try {
    read_until_stopped(header, read_chunk);
  } catch (...) {
    const std::lock_guard lock(mutex);
    error = std::current_exception();
  }
  running = false;
}

void TagStreamReader::read_until_stopped(const StreamFileHeader& header, std::size_t read_chunk) {
  StreamDecoder decoder(header);
  std::vector<std::uint8_t> buffer(read_chunk);
  std::vector<TimeTag> tags;
  while (!stop_requested) {
    const std::optional<std::size_t> received = device->read_stream_bytes(buffer);
    if (!received) {
      continue;
    }
    decoder.feed(buffer.data(), *received, tags);
    if (!tags.empty()) {
      append(tags);
    }
  }
}

// Under overload the newest tags are kept: the queue is cut back from the front.
void TagStreamReader::append(std::vector<TimeTag>& tags) {
  const std::lock_guard lock(mutex);
  queue.append(tags);
  if (queue.size() > queue_limit) {
    const std::size_t surplus = queue.size() - queue_limit;
    queue.erase_front(surplus);
    dropped += surplus;
  }
}

}  // namespace zelk::timing
