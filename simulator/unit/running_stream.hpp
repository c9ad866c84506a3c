// A stream from its start to its stop, as the unit that runs it sees it. There is
// no thread behind it; everything happens inside read(), on the reader's thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zelk::simulator {

class RunningStream {
 public:
  RunningStream() = default;
  RunningStream(const RunningStream&) = delete;
  RunningStream& operator=(const RunningStream&) = delete;
  virtual ~RunningStream() = default;

  // Waits until stream bytes have arrived, at most for `timeout`, copies what
  // is there and fits, and returns its size; 0 when nothing arrived in time.
  // A buffer of a packet or more gets whole packets only, unless less is there.
  virtual std::size_t read(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout) = 0;
};

}  // namespace zelk::simulator
