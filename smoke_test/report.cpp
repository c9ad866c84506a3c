#include "smoke_test/report.hpp"

#include <functional>
#include <iomanip>
#include <iostream>
#include <stdexcept>

#include "smoke_test/words.hpp"

namespace {

// Writes the values of a range, separated by commas.
template <typename Range, typename Write>
void print_list(const char* key, const Range& values, Write write) {
  std::cout << key;
  const char* separator = "";
  for (const auto& value : values) {
    std::cout << separator;
    write(value);
    separator = ",";
  }
  std::cout << '\n';
}

// The same figure of every channel.
template <typename Figure>
void print_per_channel(const char* key, const Analysis& analysis, Figure figure) {
  print_list(key, analysis.channels,
             [&](const ChannelAnalysis& channel) { std::cout << std::invoke(figure, channel); });
}

void print_ranking(const char* key, const std::vector<Ranked>& ranking) {
  print_list(key, ranking,
             [](const Ranked& entry) { std::cout << entry.first << ':' << entry.second; });
}

void print_settings(const Config& config, const DeviceSettings& settings) {
  std::cout << "ref_active=" << settings.active_reference
            << " divider=" << settings.calibration_divider << '\n'
            << "calibration_path=" << settings.calibration_path << '\n'
            << "calibration_loaded=" << settings.calibration_loaded << '\n'
            << std::hex;
  print_list("tdl_masks=", settings.tdl_masks,
             [](std::uint8_t mask) { std::cout << "0x" << static_cast<unsigned>(mask); });
  std::cout << std::dec;
  if (config.dead_time_ps >= 0) {
    std::cout << "dead_time_ps=" << settings.applied_dead_time_ps << '\n';
  }
}

void print_counts(const Analysis& analysis) {
  std::cout << "tags_total=" << analysis.tags_total << '\n';
  for (std::size_t channel = 0; channel < analysis.channels.size(); ++channel) {
    std::cout << "ch" << channel << '=' << analysis.channels[channel].tags << '\n';
  }
}

void print_pair(const PairAnalysis& pair) {
  std::cout << "coincidences=" << pair.coincidences << '\n'
            << "xcorr_offset_ps=" << pair.offset.offset_ps << '\n'
            << "xcorr_peak_count=" << pair.peak.count << '\n'
            << "xcorr_peak_center_ps=" << pair.peak.center_ps << '\n'
            << "xcorr_rms_ps=" << pair.rms_ps << '\n'
            << "xcorr_fwhm_est_ps=" << pair.fwhm_estimate_ps << '\n'
            << "xcorr_minus3333_window_pm40ps=" << pair.minus_period_window << '\n'
            << "xcorr_plus3333_window_pm40ps=" << pair.plus_period_window << '\n';
  print_ranking("xcorr_top_bins=", pair.top);
}

void print_stream_health(const Analysis& analysis) {
  constexpr std::array<const char*, StepStatistics::limits_ps.size()> limit_keys{
      "dt_lt_10ns=", "dt_lt_100ns=", "dt_lt_500ns=", "dt_lt_900ns="};
  std::cout << "reader_dropped=" << analysis.reader_dropped << '\n';
  print_per_channel("monotonic_violations=", analysis, &ChannelAnalysis::monotonic_violations);
  print_per_channel("max_gap_ms=", analysis, &ChannelAnalysis::max_gap_ms);
  print_per_channel("min_dt_ps=", analysis, [](const auto& c) { return c.steps.min_step_ps; });
  for (std::size_t k = 0; k < limit_keys.size(); ++k) {
    print_per_channel(limit_keys[k], analysis, [k](const auto& c) { return c.steps.below[k]; });
  }
}

void print_residues(std::size_t channel, const ResidueStatistics& residues) {
  const std::string prefix = "ch" + std::to_string(channel) + "_mod3333_";
  std::cout << prefix << "unique=" << residues.unique << '\n'
            << prefix << "exact_zero=" << residues.exact_zero << '\n';
  print_ranking((prefix + "top=").c_str(), residues.top);
}

void print_bins(const TimeBins& bins) {
  std::cout << "bins_s=" << bins.width_s() << '\n'
            << "bin_overflow_tags=" << bins.overflow() << '\n';
  std::size_t index = 0;
  for (const TimeBins::Row& row : bins.rows()) {
    std::cout << "bin " << index++;
    for (std::size_t channel = 0; channel < row.size(); ++channel) {
      std::cout << " ch" << channel << '=' << row[channel];
    }
    std::cout << '\n';
  }
}

}  // namespace

void print_ref_status(const zelk::timing::ReferenceClockStatus& status, const char* prefix) {
  if (prefix == nullptr) {
    std::cout.setstate(std::ios::badbit);
    return;
  }
  std::cout << prefix << "_requested=" << ref_source_name(status.requested) << ' '  //
            << prefix << "_active=" << ref_source_name(status.active) << ' '        //
            << prefix << "_signal=" << ref_signal_name(status.signal) << ' '        //
            << prefix << "_external_present=" << status.external_present << ' '     //
            << prefix << "_external_locked=" << status.external_locked << ' '       //
            << prefix << "_fallback=" << status.fallback << ' '                     //
            << prefix << "_missing_warning=" << status.missing_warning << ' '       //
            << prefix << "_raw=0x" << std::hex << status.raw << std::dec << std::endl;
}

void print_ref_unavailable() {
  std::cout << "reference_clock_control=unavailable; fixed_internal_clock_assumed=1" << std::endl;
}

std::string bytes_to_hex(const std::vector<std::uint8_t>& bytes) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text;
  text.reserve(3 * bytes.size());
  for (const std::uint8_t byte : bytes) {
    if (!text.empty()) {
      text += ' ';
    }
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

void print_device_and_stream(const Config& config, const zelk::timing::Identity& identity) {
  std::cout << "device=" << identity.device_text << '\n'
            << "port=" << config.port << " transport=" << transport_name(config.transport)
            << " format=" << format_name(config.format) << " mode=" << mode_name(config.mode)
            << '\n';
}

void print_mod_stats(const std::array<std::vector<std::int64_t>, 4>& per_channel) {
  for (std::size_t channel = 0; channel < per_channel.size(); ++channel) {
    print_residues(channel, residue_statistics(per_channel[channel]));
  }
}

void print_report(const Config& config, const DeviceSettings& settings, const Analysis& analysis) {
  std::cout << std::fixed << std::setprecision(3);
  print_device_and_stream(config, settings.identity);
  print_settings(config, settings);
  print_counts(analysis);
  print_pair(analysis.pair);
  print_stream_health(analysis);
  for (std::size_t channel = 0; channel < analysis.channels.size(); ++channel) {
    print_residues(channel, analysis.channels[channel].residues);
  }
  print_bins(analysis.bins);
}

void print_byte_probe(const Config& config, const zelk::timing::Identity& identity,
                      const ByteProbe& probe) {
  print_device_and_stream(config, identity);
  std::cout << "byte_probe_payload_bytes=" << probe.payload_bytes << '\n'
            << "byte_probe_nonzero_bytes=" << probe.nonzero_bytes << '\n'
            << "byte_probe_first_nonzero_offset=" << probe.first_nonzero_offset << '\n'
            << "byte_probe_first_bytes=" << bytes_to_hex(probe.first_bytes) << '\n'
            << "byte_probe_decoded_total=" << probe.decoded_total << '\n';
  for (std::size_t channel = 0; channel < probe.decoded.size(); ++channel) {
    std::cout << "byte_probe_ch" << channel << '=' << probe.decoded[channel] << '\n';
  }
}

void finish_report() {
  if (!std::cout.flush()) {
    throw std::runtime_error("cannot write the report to standard output");
  }
}
