// One stream of a recording while it is played: the chunks as they were read,
// one per read, the failures between them, and nothing in between. Refers to the
// recording, which must outlive it; used by one thread at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/recordings/recording_file.hpp"
#include "simulator/settings.hpp"
#include "simulator/waiting_bytes.hpp"

namespace zelk::simulator {

class RecordedStream {
 public:
  // Stream time begins now, with the answer to `start`.
  RecordedStream(const RecordingFile& recording, const RecordingFile::IndexedCall& start,
                 Pace pace);

  // Answers a read as the recorded device did, in real time when that is the
  // pace. A chunk that `buffer` cannot take at once is handed over by the next
  // reads. Waits at most `timeout` and leaves `received` 0 when nothing came.
  // The answer lives until the next call. Throws Failure when the file was
  // damaged since it was opened.
  const RecordedAnswer& read(std::span<std::uint8_t> buffer, std::size_t& received,
                             std::chrono::milliseconds timeout);

 private:
  using Clock = std::chrono::steady_clock;

  struct Due {
    std::uint64_t time_ns;
    std::vector<std::uint8_t> bytes{};
    std::optional<RecordedAnswer> failure{};
  };

  void look_ahead(Clock::time_point deadline);
  [[nodiscard]] Clock::time_point arrival(std::uint64_t time_ns) const;

  const RecordingFile& recording_;
  RecordPlace place_;
  std::uint64_t start_ns_;
  Pace pace_;
  Clock::time_point started_ = Clock::now();

  bool over_ = false;       // nothing after due_
  std::optional<Due> due_;  // what comes next
  WaitingBytes bytes_;      // of the chunk that came last
  RecordedAnswer success_;
  RecordedAnswer quiet_;                   // to a read that nothing arrives for
  std::optional<RecordedAnswer> failure_;  // the last answer, when it was one
};

}  // namespace zelk::simulator
