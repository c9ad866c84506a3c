// A capture of a few tags whose figures are worked out by hand, and the settings of
// its device.
#pragma once

#include <vector>

#include "smoke_test/capture_statistics.hpp"
#include "smoke_test/device_settings.hpp"
#include "timing/time_tag.hpp"

// Bins of a millisecond; the base time is 10 ps, the first tag's.
inline CaptureStatistics small_capture() {
  CaptureStatistics statistics(0.001);
  for (const zelk::timing::TimeTag& tag :
       std::vector<zelk::timing::TimeTag>{{1, 10},
                                          {0, 0},  // before the base time: bin 0
                                          {0, 3'333},
                                          {1, 3'353},
                                          {7, 4'000},  // no such channel
                                          {0, 1'234'567'000},
                                          {1, 1'234'567'010},
                                          {0, 1'234'566'000},      // 1 ns back
                                          {2, 5'000'000'000'000},  // bin 4999: overflow
                                          {2, 5'000'000'700'000},  // 700 ns later
                                          {3, 3'500'000'000},      // bin 3
                                          {3, 3'500'250'000}}) {   // 250 ns later
    statistics.add(tag);
  }
  return statistics;
}

inline DeviceSettings small_settings() {
  DeviceSettings settings;
  settings.identity.text_a = "not printed";
  settings.identity.device_text = "Unit 12 rev B";
  settings.calibration_path = "/home/lab/.zelk.timing/calibrations/A-7.cal";
  settings.calibration_loaded = true;
  settings.active_reference = 2;
  settings.tdl_masks = {0x00, 0x07, 0x1F, 0xFF};
  settings.applied_dead_time_ps = 26'664;
  settings.calibration_divider = 4'294'967'295;
  return settings;
}
