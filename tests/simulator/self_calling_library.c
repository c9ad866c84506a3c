/* A device library in which nothing works but the failing of an open, with
 * status -77 or, when it is negative, the rate. Opening at the standard rate
 * goes through qx_open(), by its name, as a library may do with its own
 * functions. Most functions are there only to be found; their arguments are
 * left out, which the header with the right ones would forbid. */
#include <stddef.h>

int qx_open(void** device, const char* port, int rate);

/* Called through a pointer that the loader fills in, so that no compiler can
 * decide which function it is. */
static int (*volatile open_by_name)(void**, const char*, int) = qx_open;

int qx_open(void** device, const char* port, int rate) {
  (void)port;
  *device = NULL;
  return rate < 0 ? rate : -77;
}

int qx_open_serial(void** device, const char* port) {
  return open_by_name(device, port, 3000000);
}

/* A null text, which no library should give. */
const char* qx_status_string(int status) {
  (void)status;
  return NULL;
}

#ifndef ZELK_WITHOUT_LAST_ERROR
void qx_last_error(void) {}
#endif
void qx_close(void) {}
void qx_identify(void) {}
void qx_load_calibration(void) {}
void qx_get_reference_clock_status(void) {}
void qx_set_reference_clock(void) {}
void qx_set_tdl_active_masks(void) {}
void qx_get_tdl_active_masks(void) {}
void qx_set_dac_codes(void) {}
void qx_set_input_dead_time(void) {}
void qx_set_packed_delta_config(void) {}
void qx_set_stream_interface(void) {}
void qx_set_stream_channel_mask(void) {}
void qx_set_calibration_freq(void) {}
void qx_enable_calibration_source(void) {}
void qx_disable_calibration_source(void) {}
void qx_start_stream_mode(void) {}
void qx_stop_stream_mode(void) {}
void qx_read_stream_bytes(void) {}
