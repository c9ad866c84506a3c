#include "tests/whole_program/expected_report.hpp"

namespace zelk::test_support {
namespace {

std::string line(const std::string& key, const std::string& value) {
  return key + "=" + value + "\n";
}

}  // namespace

std::string ExpectedReport::text() const {
  std::string all = reference_line + line("device", device) + line("port", port) +
                    line("ref_active", ref_active) + line("calibration_path", calibration_path) +
                    line("calibration_loaded", calibration_loaded) + line("tdl_masks", tdl_masks);
  if (dead_time_ps) {
    all += line("dead_time_ps", *dead_time_ps);
  }
  all += line("tags_total", tags_total) + line("ch0", counts[0]) + line("ch1", counts[1]) +
         line("ch2", counts[2]) + line("ch3", counts[3]) + line("coincidences", coincidences) +
         line("xcorr_offset_ps", offset) + line("xcorr_peak_count", peak_count) +
         line("xcorr_peak_center_ps", peak_center) + line("xcorr_rms_ps", rms) +
         line("xcorr_fwhm_est_ps", fwhm) + line("xcorr_minus3333_window_pm40ps", minus_window) +
         line("xcorr_plus3333_window_pm40ps", plus_window) + line("xcorr_top_bins", top_bins) +
         line("reader_dropped", dropped) + line("monotonic_violations", violations) +
         line("max_gap_ms", max_gap_ms) + line("min_dt_ps", min_dt) +
         line("dt_lt_10ns", below_10ns) + line("dt_lt_100ns", below_100ns) +
         line("dt_lt_500ns", below_500ns) + line("dt_lt_900ns", below_900ns);
  for (std::size_t channel = 0; channel < residues.size(); ++channel) {
    const std::string prefix = "ch" + std::to_string(channel) + "_mod3333_";
    all += line(prefix + "unique", residues[channel].unique) +
           line(prefix + "exact_zero", residues[channel].exact_zero) +
           line(prefix + "top", residues[channel].top);
  }
  all += line("bins_s", bins_s) + line("bin_overflow_tags", bin_overflow);
  for (std::size_t i = 0; i < bins.size(); ++i) {
    all += "bin " + std::to_string(i) + " " + bins[i] + "\n";
  }
  return all;
}

}  // namespace zelk::test_support
