#include "timing/tag_stream_reader.hpp"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "timing/stream_decoder.hpp"

namespace zelk::timing {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::microseconds consumer_wait_step{250};

}  // namespace

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
    consumer_sleeps_ = false;
    error = nullptr;
  }
  queue_limit = std::max(limit, min_queue_limit);
  dropped = 0;
  longest_pause = {};
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
    consumer_sleeps_ = batch.empty();
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
    consumer_sleeps_ = tags.empty();
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
  std::optional<Clock::time_point> last_read_end;
  while (!stop_requested) {
    if (last_read_end) {
      longest_pause = std::max(longest_pause, Clock::now() - *last_read_end);
    }
    const std::optional<std::size_t> received = device->read_stream_bytes(buffer);
    last_read_end = Clock::now();
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
  std::unique_lock lock(mutex);
  wait_for_sleeping_consumer(lock, tags.size());
  queue.append(tags);
  if (queue.size() > queue_limit) {
    const std::size_t surplus = queue.size() - queue_limit;
    queue.erase_front(surplus);
    dropped += surplus;
  }
}

// What arrives while this thread is kept from running comes all at once, and may
// come within one short sleep of a consumer that is fast enough: a single read then
// fills most of a queue that still holds the tags before it. Such a consumer gets
// its turn before tags are discarded, once for each time that it falls asleep. One
// that is too slow finds tags at every drain, and is never waited for.
void TagStreamReader::wait_for_sleeping_consumer(std::unique_lock<std::mutex>& lock,
                                                 std::size_t count) {
  const Clock::time_point end = Clock::now() + consumer_patience;
  while (consumer_sleeps_ && !queue.empty() && queue.size() + count > queue_limit &&
         !stop_requested) {
    if (Clock::now() >= end) {
      consumer_sleeps_ = false;
      return;
    }
    lock.unlock();
    std::this_thread::sleep_for(consumer_wait_step);
    lock.lock();
  }
}

}  // namespace zelk::timing
