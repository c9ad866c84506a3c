// What the program does while the device streams, until the time is up: it
// captures tags, or probes bytes.
#pragma once

#include "smoke_test/active_stream.hpp"
#include "smoke_test/byte_probe.hpp"
#include "smoke_test/capture_statistics.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/watchdog.hpp"
#include "timing/device.hpp"
#include "timing/stream_header.hpp"

// Captures for config.capture_s seconds, then stops the reader and the stream.
// Tags still queued at that moment are not counted: the capture is exactly as
// long as the loop. Rethrows what ended the reader thread; memory that does not
// suffice becomes a std::runtime_error. Keeps the watchdog kicked.
Capture capture_tags(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                     const zelk::timing::StreamFileHeader& header, Watchdog& watchdog);

// Reads and decodes on this thread for config.capture_s seconds, without the
// reader and its queue, then stops the stream. Throws zelk::timing::Error when
// a read fails. Keeps the watchdog kicked.
ByteProbe probe_bytes(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                      const zelk::timing::StreamFileHeader& header, Watchdog& watchdog);
