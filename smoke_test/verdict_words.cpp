#include "smoke_test/verdict_words.hpp"

#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <vector>

#include "smoke_test/standard_streams.hpp"
#include "smoke_test/text.hpp"
#include "smoke_test/verdict.hpp"

namespace {

using Channels = std::vector<std::int32_t>;

std::string count_of(std::uint64_t count, const char* thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string signal_name(int signal) {
  switch (signal) {
    case SIGHUP:
      return "SIGHUP";
    case SIGINT:
      return "SIGINT";
    case SIGTERM:
      return "SIGTERM";
    default:
      return "signal " + std::to_string(signal);
  }
}

// "channel 2", "channels 2 and 3", "channels 0, 2 and 3".
std::string in_words(const Channels& channels) {
  std::vector<std::string> numbers;
  for (const std::int32_t channel : channels) {
    numbers.push_back(std::to_string(channel));
  }
  return (channels.size() == 1 ? "channel " : "channels ") + enumerated(numbers);
}

// A capture whose pair saw no coincidences, and what may have kept it from them.
class Failure {
 public:
  Failure(const Config& config, const Analysis& analysis)
      : config_(config), analysis_(analysis), mask_(config.channel_mask) {
    for (std::int32_t channel = 0; channel < zelk::timing::channel_count; ++channel) {
      if (is_streamed(channel)) {
        streamed_.push_back(channel);
        if (analysis.channels[static_cast<std::size_t>(channel)].tags != 0) {
          alive_.push_back(channel);
        }
      }
    }
    if (analysis.pair.tags_a == 0) {
      silent_.push_back(config.channel_a);
    }
    if (analysis.pair.tags_b == 0) {
      silent_.push_back(config.channel_b);
    }
  }

  [[nodiscard]] std::string what_happened() const {
    if (silent_.empty()) {
      return in_words({config_.channel_a, config_.channel_b}) + " saw " +
             std::to_string(analysis_.pair.tags_a) + " and " +
             count_of(analysis_.pair.tags_b, "tag") + ", but no coincidences";
    }
    if (analysis_.tags_total == 0) {
      return "no channel saw tags";
    }
    return in_words(first_not_streamed().empty() ? silent_ : first_not_streamed()) + " saw no tags";
  }

  [[nodiscard]] std::string what_to_try() const {
    if (silent_.empty()) {
      return ": try a wider coincidence_window_ps than " +
             std::to_string(config_.coincidence_window_ps) +
             ", or compare the delays of the two cables";
    }
    if (!(config_.capture_s > 0)) {
      return ": capture_s leaves no time for any";
    }
    return first_not_streamed().empty() ? for_silent_inputs() : for_channels_not_streamed();
  }

 private:
  [[nodiscard]] bool is_streamed(std::int32_t channel) const {
    return (mask_ >> channel & 1U) != 0;
  }

  // The first silent channel of the pair that is not in the stream, if there is one.
  [[nodiscard]] Channels first_not_streamed() const {
    for (const std::int32_t channel : silent_) {
      if (!is_streamed(channel)) {
        return {channel};
      }
    }
    return {};
  }

  [[nodiscard]] std::string for_channels_not_streamed() const {
    const std::string streamed = streamed_.empty() ? "no channel" : "only " + in_words(streamed_);
    const std::string text = "; channel_mask streams " + streamed + ": try ";
    if (alive_.size() >= 2) {
      return text + "channel_a=" + std::to_string(alive_[0]) +
             " channel_b=" + std::to_string(alive_[1]);
    }
    const unsigned with_pair = mask_ | 1U << config_.channel_a | 1U << config_.channel_b;
    return text + "channel_mask=0x0" + "0123456789ABCDEF"[with_pair & 0xFU];
  }

  [[nodiscard]] std::string for_silent_inputs() const {
    const bool no_tags = analysis_.tags_total == 0;
    std::string text = ": look at ";
    if (config_.mode == StreamMode::internal) {
      text += no_tags ? "threshold_v and cal_freq_hz" : "threshold_v";
      text += ", or try mode=external for signals from outside";
    } else {
      text += "the signal, its cable and threshold_v";
    }
    if (no_tags) {
      // A packed_delta stream of several channels is read only when two are alive.
      const bool one_hides_another =
          config_.format == zelk::timing::Format::packed_delta && streamed_.size() >= 2;
      text += one_hides_another ? "; with format=raw64 even a single live channel shows"
                                : "; byte_probe=1 shows whether any byte arrives";
    }
    return text;
  }

  const Config& config_;
  const Analysis& analysis_;
  unsigned mask_;
  Channels streamed_;
  Channels alive_;   // streamed, and saw tags
  Channels silent_;  // of the pair
};

// What the pair saw; an offset that none of the tags tried could give is left out.
std::string figures(const PairAnalysis& pair) {
  std::string text = count_of(pair.coincidences, "coincidence");
  if (pair.offset.valid) {
    text += ", offset " + std::to_string(pair.offset.offset_ps) + " ps, rms " +
            fixed_text(pair.rms_ps, 1) + " ps";
  }
  return text;
}

std::string limits_not_met(LimitCounts limits) {
  return std::to_string(limits.not_met) + " of " + count_of(limits.given, "limit") + " not met";
}

// What does not change the verdict, but may explain it.
std::string other_facts(const Analysis& analysis) {
  std::string text;
  if (analysis.reader_dropped != 0) {
    text += "; " + count_of(analysis.reader_dropped, "tag") +
            " dropped by this machine (reader_dropped)";
  }
  std::uint64_t violations = 0;
  for (const ChannelAnalysis& channel : analysis.channels) {
    violations += channel.monotonic_violations;
  }
  if (violations != 0) {
    text += "; " + count_of(violations, "tag") + " out of order (monotonic_violations)";
  }
  return text;
}

std::string arrived(const ByteProbe& probe) {
  return probe.payload_bytes == 0 ? "not one byte arrived"
                                  : count_of(probe.payload_bytes, "byte") + " arrived, " +
                                        count_of(probe.decoded_total, "tag") + " decoded";
}

}  // namespace

std::string verdict_in_words(const Config& config, const Analysis& analysis,
                             int interrupting_signal, int exit_status, LimitCounts limits) {
  const bool coincide = analysis.pair.coincidences != 0;
  const std::string also_limits = limits.not_met != 0 ? "; " + limits_not_met(limits) : "";
  const std::string also = also_limits + other_facts(analysis);
  if (interrupting_signal != 0) {
    const std::string seen =
        coincide ? figures(analysis.pair) : Failure(config, analysis).what_happened();
    return "ENDED EARLY by " + signal_name(interrupting_signal) + ": " + seen + also;
  }
  if (exit_status == exit_failure) {
    return "";
  }
  if (exit_status == exit_success) {
    return "PASS: " + figures(analysis.pair) + also;
  }
  if (exit_status == exit_no_coincidences) {
    const Failure failure(config, analysis);
    return "FAIL: " + failure.what_happened() + failure.what_to_try() + also;
  }
  return "FAIL: " + limits_not_met(limits) + other_facts(analysis);
}

std::string byte_probe_in_words(const ByteProbe& probe) {
  const std::string outcome = probe.interrupting_signal != 0
                                  ? "ENDED EARLY by " + signal_name(probe.interrupting_signal)
                                  : std::string(probe.payload_bytes != 0 ? "PASS" : "FAIL");
  return outcome + ": " + arrived(probe);
}

void show_verdict(const std::string& line) {
  if (!line.empty() && isatty(STDERR_FILENO) != 0) {
    print_if_ready(line + '\n');
  }
}
