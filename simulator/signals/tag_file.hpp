// Tags from a file, in time order, and the source that plays them. The file is
// a text file with the header line "channel,timestamp_ps" and one tag per line,
// or a NumPy array file with one tag per row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "simulator/signals/file_tags.hpp"
#include "simulator/signals/signal_source.hpp"

namespace zelk::simulator {

// Reads the whole file. Lines of text end in LF or CR LF; empty lines may end
// the file and stand nowhere else. Throws Failure with the number of the line or
// row that is wrong.
FileTags read_tag_file(const std::string& path);

// Plays the tags of a file, which it shares with the unit that read it.
class TagFileSource final : public SignalSource {
 public:
  // Once.
  explicit TagFileSource(std::shared_ptr<const FileTags> tags) : tags_(std::move(tags)) {}

  // Again and again: each round's first tag comes `gap_ps`, above 0, after the
  // last tag of the round before.
  TagFileSource(std::shared_ptr<const FileTags> tags, std::int64_t gap_ps)
      : tags_(std::move(tags)), gap_ps_(gap_ps) {}

  const Event* peek() override {
    if (next_ == tags_->size() && !start_again()) {
      return nullptr;
    }
    const FileTag tag = (*tags_)[next_];
    event_ = {shift_ps_ + tag.time_ps(), input_pulse_v, tag.channel()};
    return &event_;
  }

  void pop() override { ++next_; }

  std::size_t take(std::span<Event> events, std::int64_t before_ps) override;

 private:
  bool start_again();

  std::shared_ptr<const FileTags> tags_;
  std::int64_t gap_ps_ = 0;    // 0: once
  std::int64_t shift_ps_ = 0;  // of this round against the file
  std::size_t next_ = 0;
  Event event_;
};

}  // namespace zelk::simulator
