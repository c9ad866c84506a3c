/*
 * The C interface of the device library, libzelk_timing.so.0.
 *
 * Every function that returns a qx_status reports 0 for success; any other
 * value is a failure whose text qx_status_string() gives and whose details
 * qx_last_error() may add. A device handle and a discovery list belong to the
 * library; the caller holds the pointer and releases it with qx_close() or
 * qx_discover_free(). One handle may be read from one thread while another
 * thread makes no call on it.
 */
#ifndef ZELK_TIMING_C_API_ZELK_TIMING_H
#define ZELK_TIMING_C_API_ZELK_TIMING_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t qx_status;
typedef struct qx_device qx_device;
typedef struct qx_discovery qx_discovery;

/* Identity record, 96 bytes. Text fields are padded with NUL bytes and carry
 * no terminator when full. */
typedef struct qx_identity {
  char text_a[16];
  char text_b[16];
  char serial[16];
  char device_text[48];
} qx_identity;

/* State of the reference clock, nine 32-bit words. Sources: 0 auto,
 * 1 internal, 2 external. Signals: 0 10 MHz, 1 one pulse per second. The flag
 * words are true when non-zero. */
typedef struct qx_reference_clock {
  int32_t requested;
  int32_t active;
  int32_t signal;
  uint32_t external_present;
  uint32_t external_locked;
  uint32_t reserved_flag;
  uint32_t fallback;
  uint32_t missing_warning;
  uint32_t raw;
} qx_reference_clock;

/* Discovery. The list is owned by the caller until qx_discover_free(). Entry
 * pointers may be null and live as long as the list. */
qx_status qx_discover(qx_discovery** list);
size_t qx_discover_count(const qx_discovery* list);
const char* qx_discover_port(const qx_discovery* list, size_t index);
const qx_identity* qx_discover_identity(const qx_discovery* list, size_t index);
void qx_discover_free(qx_discovery* list);

/* Opening and closing. `port` is NUL-terminated, `rate` is the line rate in
 * bits per second; qx_open_serial() opens at the standard rate. */
qx_status qx_open_serial(qx_device** device, const char* port);
qx_status qx_open(qx_device** device, const char* port, int rate);
void qx_close(qx_device* device);

/* Fills the record, which the caller has zeroed. */
qx_status qx_identify(qx_device* device, qx_identity* identity);

/* Short fixed text for a status, never null. */
const char* qx_status_string(qx_status status);

/* Details of the device's last failure; null or empty when there are none.
 * Lives until the next call on the device. */
const char* qx_last_error(const qx_device* device);

/* Set-up. */
qx_status qx_load_calibration(qx_device* device, int flag);
qx_status qx_get_reference_clock_status(qx_device* device, qx_reference_clock* status);
qx_status qx_set_reference_clock(qx_device* device, uint32_t source, uint32_t signal,
                                 qx_reference_clock* status);
/* Four masks, one per channel; bit n enables delay line n. */
qx_status qx_set_tdl_active_masks(qx_device* device, const uint8_t* masks);
qx_status qx_get_tdl_active_masks(qx_device* device, uint8_t* masks);
/* Four threshold codes, one per channel; read as signed 16-bit numbers they
 * rise from -32768 (0 V) to 32767 (4 V). */
qx_status qx_set_dac_codes(qx_device* device, const uint16_t* codes);
/* Dead time in ps; `applied_ps` receives what the device made of it. */
qx_status qx_set_input_dead_time(qx_device* device, int64_t dead_time_ps, int64_t* applied_ps);
qx_status qx_set_packed_delta_config(qx_device* device, uint8_t bits, uint16_t quantum_ps,
                                     uint8_t* accepted_bits, uint16_t* accepted_quantum_ps);
/* Transports: 0 uart, 1 usb. Formats: 0 raw64, 1 delta32, 2 packed_delta. */
qx_status qx_set_stream_interface(qx_device* device, uint32_t transport, uint32_t format);
/* Bit n enables channel n. */
qx_status qx_set_stream_channel_mask(qx_device* device, uint8_t mask);
/* Calibration source; `divider` receives the divider of the device clock that
 * comes nearest to `frequency_hz`. */
qx_status qx_set_calibration_freq(qx_device* device, double frequency_hz, uint32_t* divider);
qx_status qx_enable_calibration_source(qx_device* device);
qx_status qx_disable_calibration_source(qx_device* device);

/* Streaming. Modes: 0 internal, 1 external. */
qx_status qx_start_stream_mode(qx_device* device, uint32_t mode, uint32_t flags);
qx_status qx_stop_stream_mode(qx_device* device, bool flag);
/* Copies at most `capacity` stream bytes into `buffer` and stores their number
 * in `received`. Status -3 means that nothing arrived within `timeout`. */
qx_status qx_read_stream_bytes(qx_device* device, uint8_t* buffer, size_t capacity,
                               size_t* received, int timeout);

#ifdef __cplusplus
}
#endif

#endif
