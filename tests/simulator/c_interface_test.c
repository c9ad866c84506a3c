/* Drives the whole C interface from a plain C program, as a host in C would:
 * on a simulated unit, on one behind a tap, and on its recording. The argument
 * is the path of the library, which the tap loads. Says nothing on standard
 * output unless something is wrong. */
#define _XOPEN_SOURCE 700
#include <float.h>
#include <math.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "timing/c_api/zelk_timing.h"

static int failures = 0;

static void check_at(bool ok, const char* what, int line) {
  if (!ok) {
    ++failures;
    fprintf(stderr, "line %d: %s\n", line, what);
  }
}

#define CHECK(condition) check_at((condition), #condition, __LINE__)

/* The last call failed and left a last error with `word` in it. */
static bool says(const qx_device* device, const char* word) {
  const char* text = qx_last_error(device);
  return text != NULL && strstr(text, word) != NULL;
}

static bool has_no_error(const qx_device* device) {
  const char* text = qx_last_error(device);
  return text == NULL || text[0] == '\0';
}

static void check_null_pointers(void) {
  qx_device* device = NULL;
  uint8_t masks[4] = {0};
  uint16_t codes[4] = {0};
  int64_t applied = 0;
  uint8_t bits = 0;
  uint16_t quantum = 0;
  uint32_t divider = 0;
  uint8_t buffer[8];
  size_t received = 0;
  qx_identity identity;
  qx_reference_clock clock;

  CHECK(qx_discover(NULL) != 0);
  CHECK(qx_discover_count(NULL) == 0);
  CHECK(qx_discover_port(NULL, 0) == NULL);
  CHECK(qx_discover_identity(NULL, 0) == NULL);
  qx_discover_free(NULL);
  CHECK(qx_open_serial(NULL, "ftdi://") != 0);
  CHECK(qx_open_serial(&device, NULL) != 0 && device == NULL);
  CHECK(qx_open(NULL, NULL, 1) != 0);
  qx_close(NULL);
  CHECK(qx_last_error(NULL) == NULL || qx_last_error(NULL)[0] == '\0');

  CHECK(qx_identify(NULL, &identity) != 0);
  CHECK(qx_load_calibration(NULL, 1) != 0);
  CHECK(qx_get_reference_clock_status(NULL, &clock) != 0);
  CHECK(qx_set_reference_clock(NULL, 1, 0, &clock) != 0);
  CHECK(qx_set_tdl_active_masks(NULL, masks) != 0);
  CHECK(qx_get_tdl_active_masks(NULL, masks) != 0);
  CHECK(qx_set_dac_codes(NULL, codes) != 0);
  CHECK(qx_set_input_dead_time(NULL, 0, &applied) != 0);
  CHECK(qx_set_packed_delta_config(NULL, 16, 8, &bits, &quantum) != 0);
  CHECK(qx_set_stream_interface(NULL, 1, 0) != 0);
  CHECK(qx_set_stream_channel_mask(NULL, 1) != 0);
  CHECK(qx_set_calibration_freq(NULL, 1e3, &divider) != 0);
  CHECK(qx_enable_calibration_source(NULL) != 0);
  CHECK(qx_disable_calibration_source(NULL) != 0);
  CHECK(qx_start_stream_mode(NULL, 0, 0) != 0);
  CHECK(qx_stop_stream_mode(NULL, true) != 0);
  CHECK(qx_read_stream_bytes(NULL, buffer, sizeof buffer, &received, 0) != 0);

  CHECK(qx_open_serial(&device, "ftdi://") == 0);
  CHECK(qx_identify(device, NULL) != 0 && says(device, "identity"));
  CHECK(qx_get_reference_clock_status(device, NULL) != 0 && says(device, "status"));
  CHECK(qx_set_reference_clock(device, 1, 0, NULL) != 0 && says(device, "status"));
  CHECK(qx_set_tdl_active_masks(device, NULL) != 0 && says(device, "masks"));
  CHECK(qx_get_tdl_active_masks(device, NULL) != 0 && says(device, "masks"));
  CHECK(qx_set_dac_codes(device, NULL) != 0 && says(device, "codes"));
  CHECK(qx_set_input_dead_time(device, 0, NULL) != 0 && says(device, "applied_ps"));
  CHECK(qx_set_packed_delta_config(device, 16, 8, NULL, &quantum) != 0 && says(device, "bits"));
  CHECK(qx_set_packed_delta_config(device, 16, 8, &bits, NULL) != 0 && says(device, "quantum"));
  CHECK(qx_set_calibration_freq(device, 1e3, NULL) != 0 && says(device, "divider"));
  CHECK(qx_read_stream_bytes(device, NULL, 8, &received, 0) != 0 && says(device, "buffer"));
  CHECK(qx_read_stream_bytes(device, buffer, 8, NULL, 0) != 0 && says(device, "received"));
  qx_close(device);
}

static void check_discovery(void) {
  qx_discovery* list = NULL;
  CHECK(qx_discover(&list) == 0);
  CHECK(qx_discover_count(list) == 1);
  CHECK(qx_discover_port(list, 1) == NULL);
  CHECK(qx_discover_identity(list, 1) == NULL);
  const char* port = qx_discover_port(list, 0);
  const qx_identity* identity = qx_discover_identity(list, 0);
  CHECK(port != NULL && identity != NULL);

  qx_device* device = NULL;
  CHECK(qx_open(&device, port, 115200) == 0);
  qx_identity own;
  memset(&own, 0, sizeof own);
  CHECK(sizeof own == 96);
  CHECK(qx_identify(device, &own) == 0);
  CHECK(identity != NULL && memcmp(identity, &own, sizeof own) == 0);
  qx_close(device);
  qx_discover_free(list);
}

#define ALL_PORTS                                                                               \
  "; there are ftdi://, ftdi://ZK4-0001, sim://tags, sim://pulses, sim://random, sim://pairs, " \
  "sim://burst, sim://silent, tap://FILE and replay://FILE"

static void check_failed_opens(void) {
  static const struct {
    const char* port;
    const char* text;
  } cases[] = {
      {"", "no such unit: ``" ALL_PORTS},
      {"ftdi://elsewhere", "no such unit: `ftdi://elsewhere`" ALL_PORTS},
      {"ftdi://\n", "malformed port: `ftdi://\\n` holds a line feed; a value holds it as %0A"},
      {"sim://tags?file", "malformed port: `file` is not key=value"},
      {"sim://nothing", "unknown scenario `sim://nothing`" ALL_PORTS},
      {"sim://tags?file=x&y=1",
       "unknown key `y` (if it belongs to the path before it, write `file=x%26y=1`): sim://tags "
       "takes file, loop, loop_gap_ps, pace, seed, background_hz, amplitude_v, efficiency, "
       "detector_dead_time_ps, afterpulse_percent, afterpulse_tau_ps, drift_ppm, start_epoch, "
       "bin_nonuniformity_percent, fifo_bytes, link_bytes_per_s, host_buffer_bytes, short_reads, "
       "start_bits, prepared_s, fail, silent_at_s, silent_for_s, empty_at_s, empty_for_s, "
       "hang_at_s, vanish_at_s, flip_bits, lose_bytes, insert_bytes, remove_bits, insert_bits, "
       "remove_bit_at_s, insert_bit_at_s, zeros_at_s, ones_at_s, reference_unavailable, "
       "external_reference and reference_lost_at_s"},
      {"sim://tags", "missing key `file`: sim://tags needs file=PATH"},
      {"sim://tags?file=x&pace=0", "port key pace takes real or max, not \"0\""},
      {"sim://tags?file=/nonexistent/tags.csv",
       "cannot open the tag file `/nonexistent/tags.csv`: No such file or directory"},
      {"sim://tags?file=/", "cannot read the tag file `/`: it is no plain file"},
      {"sim://tags?file=/dev/null", "cannot read the tag file `/dev/null`: it is no plain file"},
      {"tap://", "the port string names no recording file: tap://FILE?library=PATH&port=PORT"},
      {"tap:///nonexistent/a.rec?port=ftdi://",
       "missing key `library`: tap://FILE needs library=PATH"},
      {"tap:///nonexistent/a.rec?library=/nonexistent&port=ftdi://",
       "cannot load the tapped library `/nonexistent`: /nonexistent: cannot open shared object "
       "file: No such file or directory"},
      {"replay://", "the port string names no recording file: replay://FILE"},
      {"replay:///nonexistent/a.rec",
       "cannot open the recording `/nonexistent/a.rec`: No such file or directory"},
      {"replay:///", "cannot read the recording `/`: it is no plain file"},
      {"replay://a.rec?pace=0", "port key pace takes real or max, not \"0\""},
      {"ftdi://?fail=open:-23:never shown", "unknown key in port string"},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    qx_device* device = (qx_device*)&device;
    const qx_status status = qx_open_serial(&device, cases[i].port);
    check_at(status != 0 && device == NULL, cases[i].port, __LINE__);
    check_at(strcmp(qx_status_string(status), cases[i].text) == 0, cases[i].text, __LINE__);
  }
  qx_device* device = NULL;
  CHECK(qx_open(&device, "ftdi://", 0) == -1 && device == NULL);
  CHECK(strcmp(qx_status_string(-1), "the line rate must be above 0, not 0") == 0);
  /* A call on no device answers the same number. */
  CHECK(qx_load_calibration(NULL, 1) == -1);
  CHECK(strcmp(qx_status_string(-1), "invalid argument") == 0);
}

static void check_settings(qx_device* device) {
  CHECK(qx_load_calibration(device, 1) == 0);

  qx_reference_clock clock;
  memset(&clock, 0xFF, sizeof clock);
  CHECK(qx_get_reference_clock_status(device, &clock) == 0);
  CHECK(clock.requested == 1 && clock.active == 1 && clock.raw == 0);
  CHECK(qx_set_reference_clock(device, 3, 0, &clock) != 0 && says(device, "3"));
  CHECK(qx_set_reference_clock(device, 2, 1, &clock) == 0 && has_no_error(device));
  CHECK(clock.requested == 2 && clock.active == 1 && clock.signal == 1);
  CHECK(clock.fallback != 0 && clock.missing_warning != 0 && clock.external_present == 0);

  const uint8_t masks[4] = {7, 0, 31, 255};
  uint8_t read_back[4] = {0};
  CHECK(qx_set_tdl_active_masks(device, masks) == 0);
  CHECK(qx_get_tdl_active_masks(device, read_back) == 0);
  CHECK(read_back[0] == 7 && read_back[1] == 0 && read_back[2] == 31 && read_back[3] == 31);

  const uint16_t codes[4] = {0xC000, 0xC000, 0xC000, 0xC000};
  CHECK(qx_set_dac_codes(device, codes) == 0);

  int64_t applied = 77;
  CHECK(qx_set_input_dead_time(device, 10000, &applied) == 0 && applied == 13332);
  CHECK(qx_set_input_dead_time(device, -2, &applied) != 0 && says(device, "-2"));
  CHECK(qx_set_input_dead_time(device, INT64_MAX, &applied) != 0 && says(device, "9223372036854"));
  CHECK(qx_set_input_dead_time(device, 0, &applied) == 0 && applied == 0);

  uint8_t bits = 0;
  uint16_t quantum = 0;
  CHECK(qx_set_packed_delta_config(device, 2, 100, &bits, &quantum) == 0);
  CHECK(bits == 4 && quantum == 64);

  CHECK(qx_set_stream_interface(device, 0, 0) == -4 && says(device, "uart"));
  CHECK(qx_set_stream_interface(device, 1, 9) != 0 && says(device, "9"));
  CHECK(qx_set_stream_interface(device, 1, 0) == 0 && has_no_error(device));
  CHECK(qx_set_stream_channel_mask(device, 0x1F) != 0 && says(device, "31"));
  CHECK(qx_set_stream_channel_mask(device, 0x05) == 0);

  uint32_t divider = 0;
  CHECK(qx_set_calibration_freq(device, NAN, &divider) != 0 && says(device, "nan"));
  CHECK(qx_set_calibration_freq(device, -1.0, &divider) != 0 && says(device, "-1"));
  CHECK(qx_set_calibration_freq(device, DBL_MAX, &divider) != 0 && says(device, "e+308"));
  CHECK(qx_set_calibration_freq(device, 10000.0, &divider) == 0 && divider == 30003);
}

/* Reads until `wanted` bytes have come; false when a read fails. */
static bool read_all(qx_device* device, uint8_t* bytes, size_t wanted) {
  size_t have = 0;
  while (have < wanted) {
    size_t received = 0;
    const qx_status status =
        qx_read_stream_bytes(device, bytes + have, wanted - have, &received, 1000);
    if (status != 0) {
      return false;
    }
    have += received;
  }
  return true;
}

static void check_streaming(qx_device* device) {
  uint8_t first[64];
  uint8_t second[64];
  size_t received = 99;

  CHECK(qx_stop_stream_mode(device, true) == 0);
  CHECK(qx_read_stream_bytes(device, first, sizeof first, &received, 1) != 0);
  CHECK(received == 0 && says(device, "start a stream"));

  CHECK(qx_disable_calibration_source(device) == 0);
  CHECK(qx_start_stream_mode(device, 0, 0) == 0);
  CHECK(qx_read_stream_bytes(device, first, sizeof first, &received, 5) == -3);
  CHECK(strcmp(qx_status_string(-3), "timed out") == 0);
  CHECK(qx_stop_stream_mode(device, false) == 0);

  CHECK(qx_enable_calibration_source(device) == 0);
  CHECK(qx_start_stream_mode(device, 5, 0) != 0 && says(device, "5"));
  CHECK(qx_start_stream_mode(device, 0, 0) == 0);
  CHECK(qx_start_stream_mode(device, 0, 0) != 0 && says(device, "stop the stream"));
  CHECK(qx_set_stream_channel_mask(device, 1) != 0 && says(device, "stop the stream"));
  CHECK(read_all(device, first, sizeof first));
  CHECK(has_no_error(device));
  CHECK(qx_read_stream_bytes(device, second, 0, &received, 1000) == 0 && received == 0);
  CHECK(qx_stop_stream_mode(device, true) == 0);
  CHECK(qx_stop_stream_mode(device, true) == 0);

  /* A second run begins anew. Channels 0 and 2 are on: bits 62..61. */
  CHECK(qx_start_stream_mode(device, 0, 0) == 0);
  CHECK(read_all(device, second, sizeof second));
  CHECK(memcmp(first, second, sizeof first) == 0);
  for (size_t i = 0; i < sizeof first; i += 8) {
    CHECK((first[i] & 0x60) == 0x00 || (first[i] & 0x60) == 0x40);
    CHECK((first[i] & 0x9F) == 0x14);
  }
}

/* The settings and the beginning of a stream, as a recording host makes them
 * and a replaying one has to make them again. */
static void check_recorded_run(qx_device* device, uint8_t* bytes, size_t wanted) {
  qx_identity identity;
  memset(&identity, 0, sizeof identity);
  CHECK(qx_identify(device, &identity) == 0);
  CHECK(memcmp(identity.serial, "ZK4-0001", 8) == 0);
  CHECK(qx_load_calibration(device, 1) == 0);

  qx_reference_clock clock;
  memset(&clock, 0, sizeof clock);
  CHECK(qx_get_reference_clock_status(device, &clock) == 0 && clock.requested == 1);
  CHECK(qx_set_reference_clock(device, 7, 0, &clock) == -9);
  CHECK(strcmp(qx_status_string(-9), "value out of range") == 0 && says(device, "7"));
  CHECK(qx_set_reference_clock(device, 2, 1, &clock) == 0 && has_no_error(device));
  CHECK(clock.requested == 2 && clock.active == 1 && clock.signal == 1 && clock.raw == 0xC);

  const uint8_t masks[4] = {7, 0, 31, 255};
  uint8_t read_back[4] = {0};
  const uint16_t codes[4] = {0xC000, 0xC001, 0xC002, 0xC003};
  CHECK(qx_set_tdl_active_masks(device, masks) == 0);
  CHECK(qx_get_tdl_active_masks(device, read_back) == 0);
  CHECK(read_back[0] == 7 && read_back[1] == 0 && read_back[2] == 31 && read_back[3] == 31);
  CHECK(qx_set_dac_codes(device, codes) == 0);

  int64_t applied = 0;
  uint8_t bits = 0;
  uint16_t quantum = 0;
  uint32_t divider = 0;
  CHECK(qx_set_input_dead_time(device, 10000, &applied) == 0 && applied == 13332);
  CHECK(qx_set_packed_delta_config(device, 2, 100, &bits, &quantum) == 0);
  CHECK(bits == 4 && quantum == 64);
  CHECK(qx_set_stream_interface(device, 1, 0) == 0);
  CHECK(qx_set_stream_channel_mask(device, 5) == 0);
  CHECK(qx_set_calibration_freq(device, 10000.0, &divider) == 0 && divider == 30003);
  CHECK(qx_disable_calibration_source(device) == 0);
  CHECK(qx_enable_calibration_source(device) == 0);
  CHECK(qx_start_stream_mode(device, 0, 0) == 0);
  CHECK(read_all(device, bytes, wanted));
  CHECK(qx_stop_stream_mode(device, true) == 0);
  size_t received = 99;
  CHECK(qx_read_stream_bytes(device, bytes, wanted, &received, 1) == -8 && received == 0);
  CHECK(says(device, "start a stream"));
}

/* A replay on which things go wrong. */
static void check_faults_of_a_replay(const char* file, const uint8_t* recorded, size_t size) {
  char port[4096];
  uint8_t bytes[64];
  qx_device* device = NULL;
  const uint16_t codes[4] = {0, 0, 0, 0};
  snprintf(port, sizeof port, "replay://%s?pace=max&flip_bits=1&fail=set_dac_codes#1:-7:DAC 2",
           file);
  CHECK(qx_open_serial(&device, port) == 0 && device != NULL);
  CHECK(qx_set_dac_codes(device, codes) == -7 && says(device, "DAC 2"));
  CHECK(strcmp(qx_status_string(-7), "not available on this unit") == 0);
  CHECK(qx_set_dac_codes(device, codes) == -72 && says(device, "the recording has"));
  check_recorded_run(device, bytes, size);
  for (size_t i = 0; i < size; ++i) {
    CHECK((bytes[i] ^ recorded[i]) == 0xFF);
  }
  qx_close(device);

  snprintf(port, sizeof port, "replay://%s?fail=open:-321", file);
  CHECK(qx_open_serial(&device, port) == -321 && device == NULL);
}

static void check_tap_and_replay(const char* library) {
  char directory[] = "/tmp/zelk-c-test-XXXXXX";
  char file[64];
  char port[4096];
  uint8_t recorded[64];
  uint8_t played[64];
  qx_device* device = NULL;
  CHECK(mkdtemp(directory) != NULL);
  snprintf(file, sizeof file, "%s/a.rec", directory);

  snprintf(port, sizeof port, "tap://%s?library=%s&port=ftdi%%3A//", file, library);
  CHECK(qx_open(&device, port, 115200) == 0 && device != NULL);
  check_recorded_run(device, recorded, sizeof recorded);
  CHECK(qx_identify(device, NULL) != 0 && says(device, "identity"));
  CHECK(qx_read_stream_bytes(device, NULL, 8, NULL, 0) != 0 && says(device, "received"));
  qx_close(device);
  CHECK(qx_open_serial(&device, port) != 0 && device == NULL);

  static const char* const paces[] = {"real", "max"};
  for (size_t i = 0; i < sizeof paces / sizeof paces[0]; ++i) {
    snprintf(port, sizeof port, "replay://%s?pace=%s", file, paces[i]);
    CHECK(qx_open_serial(&device, port) == 0 && device != NULL);
    CHECK(qx_set_stream_channel_mask(device, 6) != 0);
    CHECK(says(device, "set_stream_channel_mask(6)") && says(device, "set_stream_channel_mask(5)"));
    check_recorded_run(device, played, sizeof played);
    CHECK(memcmp(recorded, played, sizeof played) == 0);
    qx_close(device);
  }
  check_faults_of_a_replay(file, recorded, sizeof recorded);
  unlink(file);
  rmdir(directory);
}

int main(int argc, char** argv) {
  check_null_pointers();
  check_discovery();
  check_failed_opens();

  qx_device* device = NULL;
  CHECK(qx_open_serial(&device, "ftdi://") == 0 && device != NULL);
  if (device != NULL) {
    check_settings(device);
    check_streaming(device);
    qx_close(device); /* while streaming */
  }
  CHECK(argc == 2);
  if (argc == 2) {
    check_tap_and_replay(argv[1]);
  }
  for (qx_status status = -300; status <= 300; ++status) {
    CHECK(qx_status_string(status) != NULL && qx_status_string(status)[0] != '\0');
  }
  return failures == 0 ? 0 : 1;
}
