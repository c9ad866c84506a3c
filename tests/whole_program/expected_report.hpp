// The report that a run is expected to print, line by line. Every value is the
// text behind its "="; what is not set is what a run without a single tag
// prints. Nothing is calculated here.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace zelk::test_support {

inline constexpr const char* internal_reference_line =
    "ref_requested=internal ref_active=internal ref_signal=10mhz ref_external_present=0 "
    "ref_external_locked=0 ref_fallback=0 ref_missing_warning=0 ref_raw=0x0\n";

struct ExpectedReport {
  struct Residues {
    std::string unique = "0";
    std::string exact_zero = "0";
    std::string top{};
  };

  std::string reference_line = internal_reference_line;
  std::string device = "scripted device";
  std::string port = "ftdi:// transport=usb format=raw64 mode=external";
  std::string ref_active = "1 divider=0";
  std::string calibration_path = "/home/operator/.zelk.timing/calibrations/zelk_cal_SN1.cal";
  std::string calibration_loaded = "1";
  std::string tdl_masks = "0x7,0x7,0x7,0x7";
  std::optional<std::string> dead_time_ps{};  // none: no such line
  std::string tags_total = "0";
  std::array<std::string, 4> counts{"0", "0", "0", "0"};
  std::string coincidences = "0";
  std::string offset = "0";
  std::string peak_count = "0";
  std::string peak_center = "-1000";
  std::string rms = "0.000";
  std::string fwhm = "0.000";
  std::string minus_window = "0";
  std::string plus_window = "0";
  std::string top_bins = "-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0,-928:0";
  std::string dropped = "0";
  std::string violations = "0,0,0,0";
  std::string max_gap_ms = "0.000,0.000,0.000,0.000";
  std::string min_dt = "0,0,0,0";
  std::string below_10ns = "0,0,0,0";
  std::string below_100ns = "0,0,0,0";
  std::string below_500ns = "0,0,0,0";
  std::string below_900ns = "0,0,0,0";
  std::array<Residues, 4> residues{};
  std::string bins_s = "0.100";
  std::string bin_overflow = "0";
  std::vector<std::string> bins{};  // "ch0=... ch3=..." of each row

  // All of standard output.
  [[nodiscard]] std::string text() const;
};

}  // namespace zelk::test_support
