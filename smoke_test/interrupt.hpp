// Ctrl-C and SIGTERM as a polite request to end the capture early.
#pragma once

// While an InterruptWatch exists, the first SIGINT or SIGTERM is remembered
// instead of ending the program; the second one has its ordinary effect and
// ends it at once. A signal that was ignored before stays ignored. One watch
// at a time, on the main thread.
class InterruptWatch {
 public:
  InterruptWatch();
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  // The number of the signal that arrived, or 0.
  [[nodiscard]] int signal_number() const;
};

// A write to a closed pipe becomes an error of the stream instead of a signal
// that ends the program without a word.
void ignore_closed_pipes();
