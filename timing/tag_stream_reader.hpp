// Moves stream data off the device on a background thread, so that the
// consumer never waits for the device.
//
// Two threads touch a reader: the consumer (start, drain, stop, destruction)
// and the reader thread (run). `mutex` guards `queue` and `error` and is held
// only for short moves; the three atomics are read without it. The Device is
// borrowed and must outlive the reader.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "timing/device.hpp"
#include "timing/stream_header.hpp"
#include "timing/tag_queue.hpp"
#include "timing/time_tag.hpp"

namespace zelk::timing {

class TagStreamReader {
 public:
  // The most tags that one drain() takes: it bounds the time for which the
  // reader thread can be kept waiting for the lock.
  static constexpr std::size_t max_drain = 65536;
  static constexpr std::size_t min_queue_limit = 1024;
  static constexpr std::size_t min_read_chunk = 4096;

  explicit TagStreamReader(Device& stream_device) : device(&stream_device) {}

  // Stops and joins the thread; swallows a stored error.
  ~TagStreamReader();
  TagStreamReader(const TagStreamReader&) = delete;
  TagStreamReader& operator=(const TagStreamReader&) = delete;

  // Starts reading the stream that `header` describes, `read_chunk` bytes per
  // device read (at least min_read_chunk), keeping at most `limit` tags queued
  // (at least min_queue_limit). A thread that still runs is stopped and joined
  // first. The queue and the count of dropped tags begin anew. A reader whose
  // thread has failed cannot be started again: the stored exception is rethrown.
  // Throws std::system_error when the system has no thread to give.
  void start(const StreamFileHeader& header, std::size_t read_chunk, std::size_t limit);

  // Ends the thread after its current read. Rethrows the exception that ended
  // the thread, if any. Queued tags stay drainable.
  void stop();

  // Replaces the contents of `batch` by the oldest queued tags, at most
  // max_drain. Then rethrows the exception that ended the thread, if any.
  void drain(std::vector<TimeTag>& batch);

  // The same without a copy: the oldest queued tags, at most max_drain and not
  // beyond the end of their block, so that there may be more. They stay
  // readable until the next drain or start. An exception comes in their place.
  std::span<const TimeTag> drain();

  Device* device;
  std::thread thread;  // not joinable when idle
  std::atomic<bool> stop_requested{false};
  std::atomic<bool> running{false};       // until the thread has left its loop
  std::atomic<std::uint64_t> dropped{0};  // tags discarded by the queue limit
  std::mutex mutex;
  TagQueue queue;                       // oldest in front
  std::size_t queue_limit = 8'388'608;  // most tags held after an append
  // How long an append that would discard tags waits at most for a consumer that
  // found nothing last time, and so most likely sleeps for a moment. Set it before
  // start().
  std::chrono::microseconds consumer_patience{3000};
  // The longest time between two reads, for which the host itself kept the stream
  // waiting. Valid once the thread has ended.
  std::chrono::steady_clock::duration longest_pause{};
  std::exception_ptr error;  // what ended the thread, or empty

 private:
  void run(StreamFileHeader header, std::size_t read_chunk);
  void read_until_stopped(const StreamFileHeader& header, std::size_t read_chunk);
  void append(std::vector<TimeTag>& tags);
  void wait_for_sleeping_consumer(std::unique_lock<std::mutex>& lock, std::size_t count);
  void rethrow_stored_error();

  bool consumer_sleeps_ = false;  // guarded by `mutex`: the last drain found nothing
};

}  // namespace zelk::timing
