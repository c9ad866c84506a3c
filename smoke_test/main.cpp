// The smoke test as a table of contents: arguments, device, stream, capture,
// analysis, report, verdict.
#include <algorithm>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "smoke_test/active_stream.hpp"
#include "smoke_test/analysis.hpp"
#include "smoke_test/arguments.hpp"
#include "smoke_test/byte_probe.hpp"
#include "smoke_test/capture.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/device_setup.hpp"
#include "smoke_test/help.hpp"
#include "smoke_test/report.hpp"
#include "smoke_test/results/json_output.hpp"
#include "smoke_test/results/limits.hpp"
#include "smoke_test/results/run_record.hpp"
#include "smoke_test/run_watch.hpp"
#include "smoke_test/standard_streams.hpp"
#include "smoke_test/tag_files/tag_file.hpp"
#include "smoke_test/unit_list.hpp"
#include "smoke_test/verdict.hpp"
#include "smoke_test/verdict_words.hpp"

namespace {

// The line of an error, and the note that belongs to it.
void print_refusal(const std::exception& error) {
  print_error(error.what());
  if (const auto* noted = dynamic_cast<const NotedError*>(&error)) {
    print_note(noted->note());
  }
}

// The run as a record says it, from its arguments on.
class Run {
 public:
  explicit Run(const std::vector<std::string_view>& arguments) : record_(record_of(arguments)) {}

  // Returns the exit status. Throws FailedRun for a failure that was printed, and
  // others before anything is opened.
  int run() {
    accept_arguments();
    RunWatch watch([this](int status, const std::string& error) { conclude(status, error); },
                   [this] { json_.prepare(); });
    if (config_.list) {
      return watch.attempt("the list of units", [&] { return list_units(watch); });
    }
    zelk::timing::Device device = watch.attempt("the set-up", [&] {
      choose_unit(config_, &watch);
      return open_device(config_, &watch);
    });
    return watch.attempt("the set-up", [&] { return test_device(device, watch); });
  }

 private:
  static RunRecord record_of(const std::vector<std::string_view>& arguments) {
    RunRecord record;
    record.arguments.assign(arguments.begin(), arguments.end());
    return record;
  }

  // Their refusal is worth a document, too.
  void accept_arguments() {
    try {
      parse_arguments();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& error) {
      print_refusal(error);
      conclude(exit_failure, error.what());
      throw FailedRun(exit_failure);
    }
  }

  void parse_arguments() {
    apply_arguments(config_, record_.arguments);
    validate(config_);
    for (const std::string& texts : config_.required) {
      add_limits(read_conditions(texts));
    }
    for (const std::string& path : config_.limits_files) {
      add_limits(read_limits_file(path));
    }
    if (!config_.tags_file.empty()) {
      tag_file_.emplace(config_.tags_file, config_.json_file);
    }
  }

  int list_units(RunWatch& watch) {
    record_.units = zelk::timing::Device::discover(&watch);
    watch.interrupt.end_at_once_from_now_on();
    watch.interrupt.check();  // a signal that arrived during discovery
    print_units(record_.units);
    finish_report();
    watch.conclude(exit_success);
    return exit_success;
  }

  int test_device(zelk::timing::Device& device, RunWatch& watch) {
    set_up_device(device, config_, record_.settings);
    record_.set_up_is_done = true;
    device.start_stream(config_.mode);
    ActiveStream stream(device);
    return watch.attempt("the analysis", [&] {
      const int status = test_stream(device, stream, watch);
      watch.conclude(status);
      return status;
    });
  }

  int test_stream(zelk::timing::Device& device, ActiveStream& stream, RunWatch& watch) {
    watch.end_set_up();
    const zelk::timing::StreamFileHeader header = stream_header(config_, record_.settings);
    if (config_.byte_probe) {
      return report_byte_probe(probe_bytes(device, stream, config_, header, watch));
    }
    if (tag_file_) {
      tag_file_->begin_capture();
    }
    TagSink* const sink = tag_file_ ? &*tag_file_ : nullptr;
    return report_capture(capture_tags(device, stream, config_, header, watch, sink));
  }

  int report_capture(const Capture& capture) {
    const Analysis& analysis = record_.analysis.emplace(
        analyse(capture, config_.channel_a, config_.channel_b, config_.coincidence_window_ps));
    json_.prepare();
    print_report(config_, record_.settings, analysis);
    finish_report();
    for (Limit& limit : record_.limits) {
      limit.outcome = judge(limit.condition, record_);
    }
    const std::size_t not_met = print_limits_not_met(record_.limits);
    const int signal = capture.interrupting_signal;
    const int status = verdict(analysis.pair.tags_a, analysis.pair.tags_b,
                               analysis.pair.coincidences, signal, not_met);
    show_verdict(verdict_in_words(config_, analysis, signal, status,
                                  {.given = record_.limits.size(), .not_met = not_met}));
    return status;
  }

  int report_byte_probe(const ByteProbe& probe) {
    record_.byte_probe = probe;
    json_.prepare();
    print_byte_probe(config_, record_.settings.identity, probe);
    finish_report();
    show_verdict(byte_probe_in_words(probe));
    return byte_probe_verdict(probe.payload_bytes, probe.interrupting_signal);
  }

  // A run that has an error already cannot fail here: the first error counts.
  void conclude(int status, const std::string& error) {
    try {
      record_.exit_status = status;
      record_.error = error;
      json_.conclude();
    } catch (const std::exception&) {
      if (error.empty()) {
        throw;
      }
    }
  }

  void add_limits(std::vector<Condition> conditions) {
    for (Condition& condition : conditions) {
      record_.limits.push_back({.condition = std::move(condition)});
    }
  }

  RunRecord record_;
  Config& config_ = record_.config;
  JsonOutput json_{record_};
  std::optional<TagFile> tag_file_;
};

int run(const std::vector<std::string_view>& arguments) {
  const auto given = [&arguments](std::string_view flag) {
    return std::ranges::find(arguments, flag) != arguments.end();
  };
  const bool help = given("--help") || given("-h");
  if (help || given("--version")) {
    help ? print_help() : print_version();
    finish_report();
    return exit_success;
  }
  return Run(arguments).run();
}

}  // namespace

int main(int argc, char** argv) {
  prepare_standard_streams();
  try {
    return run({argv + std::min(argc, 1), argv + argc});
  } catch (const FailedRun& failed) {
    return failed.status;
  } catch (const std::bad_alloc&) {
    print_error("not enough memory for the arguments");
    return exit_failure;
  } catch (const std::exception& error) {
    print_error(error.what());
    return exit_failure;
  }
}
