#include "smoke_test/results/figures.hpp"

#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <type_traits>
#include <vector>

#include "smoke_test/nearest_word.hpp"
#include "smoke_test/results/run_record.hpp"
#include "smoke_test/text.hpp"

namespace {

using Shape = Figure::Shape;
using Value = std::optional<std::string>;

constexpr int report_decimals = 3;
constexpr int share_decimals = 6;

std::string printed(double value, int decimals = report_decimals) {
  return fixed_text(value, decimals);
}

template <typename Number>
requires std::is_integral_v<Number> std::string printed(Number value) {
  return std::to_string(value);
}

Value printed(const std::optional<double>& value, int decimals = report_decimals) {
  return value ? Value(printed(*value, decimals)) : std::nullopt;
}

std::string printed_mask(std::uint32_t value) {
  constexpr std::size_t room = 16;
  std::array<char, room> text{};
  const int length = std::snprintf(text.data(), text.size(), "0x%x", value);
  return {text.data(), static_cast<std::size_t>(length)};
}

// What the set-up learned.
template <auto member>
constexpr auto of_settings = [](const RunRecord& record, std::size_t /*channel*/) {
  return Value(printed(std::invoke(member, record.settings)));
};

// What the device said about its reference clock.
template <auto member>
constexpr auto of_reference = [](const RunRecord& record, std::size_t /*channel*/) {
  const auto& reference = record.settings.reference;
  return reference ? Value(printed(std::invoke(member, *reference))) : std::nullopt;
};

template <auto member>
constexpr auto of_analysis = [](const RunRecord& record, std::size_t /*channel*/) {
  return Value(printed(std::invoke(member, *record.analysis)));
};

template <auto member>
constexpr auto of_bins = [](const RunRecord& record, std::size_t /*channel*/) {
  return Value(printed(std::invoke(member, record.analysis->bins)));
};

template <auto member>
constexpr auto of_channel = [](const RunRecord& record, std::size_t channel) {
  return Value(printed(std::invoke(member, record.analysis->channels[channel])));
};

// What needs two tags.
template <auto member>
constexpr auto of_steps = [](const RunRecord& record, std::size_t channel) {
  const ChannelAnalysis& of = record.analysis->channels[channel];
  return of.tags >= 2 ? Value(printed(std::invoke(member, of))) : std::nullopt;
};

template <std::size_t limit>
constexpr auto steps_below = [](const RunRecord& record, std::size_t channel) {
  return Value(printed(record.analysis->channels[channel].steps.below[limit]));
};

template <auto member>
constexpr auto of_residues = [](const RunRecord& record, std::size_t channel) {
  return Value(printed(std::invoke(member, record.analysis->channels[channel].residues)));
};

template <auto member>
constexpr auto of_pair = [](const RunRecord& record, std::size_t /*channel*/) {
  return Value(printed(std::invoke(member, record.analysis->pair)));
};

// What needs a pair of tags within the window.
template <auto member>
constexpr auto of_correlation = [](const RunRecord& record, std::size_t /*channel*/) {
  const PairAnalysis& pair = record.analysis->pair;
  return pair.offset.valid ? Value(printed(std::invoke(member, pair))) : std::nullopt;
};

constexpr std::string_view no_clock_control = "the reference clock cannot be controlled";
constexpr std::string_view no_pairs = "no tags of the pair within the window";
constexpr std::string_view no_tags = "no tag on the channel";
constexpr std::string_view one_tag = "fewer than two tags on the channel";

constexpr Figure figure_table[] = {
    {"ref_external_present", Shape::single, "", "an external reference is there: 1 or 0",
     no_clock_control, of_reference<&zelk::timing::ReferenceClockStatus::external_present>},
    {"ref_external_locked", Shape::single, "", "the unit runs locked to it: 1 or 0",
     no_clock_control, of_reference<&zelk::timing::ReferenceClockStatus::external_locked>},
    {"ref_fallback", Shape::single, "", "the unit fell back to its own clock: 1 or 0",
     no_clock_control, of_reference<&zelk::timing::ReferenceClockStatus::fallback>},
    {"ref_missing_warning", Shape::single, "", "the unit warns of a missing reference: 1 or 0",
     no_clock_control, of_reference<&zelk::timing::ReferenceClockStatus::missing_warning>},
    {"ref_raw", Shape::single, "", "the unit's status word", no_clock_control,
     [](const RunRecord& record, std::size_t /*channel*/) {
       const auto& reference = record.settings.reference;
       return reference ? Value(printed_mask(reference->raw)) : std::nullopt;
     }},
    {"ref_active", Shape::single, "",
     "the running reference: 0 automatic, 1 internal, 2 external, -1 not known", "",
     of_settings<&DeviceSettings::active_reference>},
    {"divider", Shape::single, "", "what makes the calibration frequency; 0 in external mode", "",
     of_settings<&DeviceSettings::calibration_divider>},
    {"calibration_loaded", Shape::single, "", "the unit loaded its calibration: 1 or 0", "",
     of_settings<&DeviceSettings::calibration_loaded>},
    {"tdl_masks", Shape::per_channel, "", "the active delay lines", "",
     [](const RunRecord& record, std::size_t channel) {
       return Value(printed_mask(record.settings.tdl_masks[channel]));
     }},
    {"dead_time_ps", Shape::single, "ps", "the dead time that the unit applied",
     "no dead time was set",
     [](const RunRecord& record, std::size_t /*channel*/) {
       return record.config.dead_time_ps >= 0 ? Value(printed(record.settings.applied_dead_time_ps))
                                              : std::nullopt;
     }},

    {"tags_total", Shape::single, "", "tags captured", "", of_analysis<&Analysis::tags_total>},
    {"ch%", Shape::channel_name, "", "tags of the channel", "", of_channel<&ChannelAnalysis::tags>},

    {"coincidences", Shape::single, "", "tags of channel_a with a partner on channel_b", "",
     of_pair<&PairAnalysis::coincidences>},
    {"xcorr_offset_ps", Shape::single, "ps", "how much later channel_b is", no_pairs,
     of_correlation<[](const PairAnalysis& pair) { return pair.offset.offset_ps; }>},
    {"xcorr_peak_count", Shape::single, "", "pairs in the fullest bin", no_pairs,
     of_correlation<[](const PairAnalysis& pair) { return pair.peak.count; }>},
    {"xcorr_peak_center_ps", Shape::single, "ps", "where it is, from the offset", no_pairs,
     of_correlation<[](const PairAnalysis& pair) { return pair.peak.center_ps; }>},
    {"xcorr_rms_ps", Shape::single, "ps", "spread of the histogram", no_pairs,
     of_correlation<&PairAnalysis::rms_ps>},
    {"xcorr_fwhm_est_ps", Shape::single, "ps", "the same times 2.355", no_pairs,
     of_correlation<&PairAnalysis::fwhm_estimate_ps>},
    {"xcorr_minus3333_window_pm40ps", Shape::single, "", "pairs one clock period too early",
     no_pairs, of_correlation<&PairAnalysis::minus_period_window>},
    {"xcorr_plus3333_window_pm40ps", Shape::single, "", "pairs one clock period too late", no_pairs,
     of_correlation<&PairAnalysis::plus_period_window>},

    {"reader_dropped", Shape::single, "", "tags that the program could not keep up with", "",
     of_analysis<&Analysis::reader_dropped>},
    {"monotonic_violations", Shape::per_channel, "", "tags earlier than the one before", "",
     of_channel<&ChannelAnalysis::monotonic_violations>},
    {"max_gap_ms", Shape::per_channel, "ms", "longest time between neighbouring tags", one_tag,
     of_steps<&ChannelAnalysis::max_gap_ms>},
    {"min_dt_ps", Shape::per_channel, "ps", "shortest time between neighbouring tags", one_tag,
     of_steps<[](const ChannelAnalysis& channel) { return channel.steps.min_step_ps; }>},
    {"dt_lt_10ns", Shape::per_channel, "", "tags within 10 ns of the one before", "",
     steps_below<0>},
    {"dt_lt_100ns", Shape::per_channel, "", "tags within 100 ns of the one before", "",
     steps_below<1>},
    {"dt_lt_500ns", Shape::per_channel, "", "tags within 500 ns of the one before", "",
     steps_below<2>},
    {"dt_lt_900ns", Shape::per_channel, "", "tags within 900 ns of the one before", "",
     steps_below<3>},
    {"ch%_mod3333_unique", Shape::channel_name, "", "positions in the clock period that occur", "",
     of_residues<&ResidueStatistics::unique>},
    {"ch%_mod3333_exact_zero", Shape::channel_name, "", "tags exactly on the coarse grid", "",
     of_residues<&ResidueStatistics::exact_zero>},
    {"bins_s", Shape::single, "s", "width of one report bin", "", of_bins<&TimeBins::width_s>},
    {"bin_overflow_tags", Shape::single, "", "tags beyond the last report bin", "",
     of_bins<&TimeBins::overflow>},

    {"rate_hz", Shape::per_channel, "Hz", "steps over the time from the first tag to the last",
     "fewer than two tags on the channel, or the last not later than the first",
     of_channel<&ChannelAnalysis::rate_hz>},
    {"silent_tail_s", Shape::per_channel, "s",
     "from the last tag to the end of the capture, by the host's clock", no_tags,
     [](const RunRecord& record, std::size_t channel) {
       return printed(record.analysis->silent_tail_s[channel]);
     }},
    {"violations_share", Shape::per_channel, "", "monotonic_violations per tag", no_tags,
     [](const RunRecord& record, std::size_t channel) {
       return printed(record.analysis->channels[channel].violations_share, share_decimals);
     }},
    {"coincidence_share", Shape::single, "", "coincidences per tag of the rarer channel",
     "a channel of the pair without tags",
     [](const RunRecord& record, std::size_t /*channel*/) {
       return printed(record.analysis->pair.coincidence_share, share_decimals);
     }},
    {"elapsed_s", Shape::single, "s", "length of the capture, by the host's clock", "",
     of_analysis<&Analysis::elapsed_s>},
    {"host_pause_ms", Shape::single, "ms",
     "longest time between two reads, for which this machine kept the stream waiting", "",
     of_analysis<&Analysis::host_pause_ms>},
};

// Under how many names it is known.
std::size_t count_of_names(const Figure& figure) {
  return figure.shape == Shape::channel_name ? zelk::timing::channel_count : 1;
}

}  // namespace

std::span<const Figure> figures() {
  return figure_table;
}

std::string figure_name(const Figure& figure, std::size_t channel) {
  std::string name(figure.name);
  if (figure.shape == Shape::channel_name) {
    name.replace(name.find('%'), 1, std::to_string(channel));
  }
  return name;
}

NamedFigure find_figure(std::string_view name) {
  for (const Figure& figure : figures()) {
    for (std::size_t channel = 0; channel < count_of_names(figure); ++channel) {
      if (name == figure_name(figure, channel)) {
        const bool named = figure.shape == Shape::channel_name;
        return {.figure = &figure, .channel = named ? std::optional(channel) : std::nullopt};
      }
    }
  }
  return {};
}

std::string nearest_figure(std::string_view name) {
  std::vector<std::string> names;
  for (const Figure& figure : figures()) {
    for (std::size_t channel = 0; channel < count_of_names(figure); ++channel) {
      names.push_back(figure_name(figure, channel));
    }
  }
  return nearest_word(name, names);
}
