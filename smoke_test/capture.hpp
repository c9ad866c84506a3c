// What the program does while the device streams, until the time is up: it
// captures tags, or probes bytes.
#pragma once

#include "smoke_test/active_stream.hpp"
#include "smoke_test/byte_probe.hpp"
#include "smoke_test/capture_statistics.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/run_watch.hpp"
#include "smoke_test/tag_sink.hpp"
#include "timing/device.hpp"
#include "timing/stream_header.hpp"

// Captures for config.capture_s seconds, or until config.stop_tags tags are
// counted, then stops the reader and the stream. Tags still queued at that moment are not counted:
// the capture is exactly as long as the loop. `sink`, if there is one, gets the tags that are
// counted, all of them and no others. Throws FailedRun when something ended the reader
// thread, when that cannot be started, memory does not suffice or the sink fails; the error was
// printed while the reader was still there. Throws zelk::timing::Error when the stream does not
// stop. From its end on a signal ends the program at once.
Capture capture_tags(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                     const zelk::timing::StreamFileHeader& header, RunWatch& watch,
                     TagSink* sink = nullptr);

// Reads and decodes on this thread for config.capture_s seconds, without the
// reader and its queue, then stops the stream. Throws zelk::timing::Error when
// a read fails. From its end on a signal ends the program at once.
ByteProbe probe_bytes(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                      const zelk::timing::StreamFileHeader& header, RunWatch& watch);
