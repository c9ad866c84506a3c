#include "tests/scripted_device/library.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <thread>
#include <utility>

#include "tests/scripted_device/scripted_device.hpp"

namespace scripted_device {
namespace {

std::string text_of_file(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// What the script says for the next call of this function; the last one stays.
template <typename Number>
Number for_call(const std::map<std::string, std::vector<Number>>& script,
                const std::string& function, std::map<std::string, std::size_t>& made) {
  const auto found = script.find(function);
  if (found == script.end() || found->second.empty()) {
    return 0;
  }
  return found->second[std::min(made[function]++, found->second.size() - 1)];
}

}  // namespace

void load(Script script) {
  Library::instance().load(std::move(script));
}

std::vector<std::string> calls() {
  return Library::instance().calls();
}

Library& Library::instance() {
  static Library library;
  return library;
}

Library::Library() {
  if (const char* path = std::getenv("ZELK_SCRIPT"); path != nullptr) {
    script_ = parse_script(text_of_file(path));
  }
  if (const char* path = std::getenv("ZELK_SCRIPT_LOG"); path != nullptr) {
    log_file_.open(path, std::ios::app);
  }
}

void Library::load(Script script) {
  const std::lock_guard lock(mutex_);
  script_ = std::move(script);
  calls_made_.clear();
  delays_taken_.clear();
  reads_taken_ = 0;
  left_over_.clear();
  status_texts_.clear();
  devices_.clear();
  lists_.clear();
  log_.clear();
  masks = {};
}

std::vector<std::string> Library::calls() {
  const std::lock_guard lock(mutex_);
  return log_;
}

qx_status Library::next_status(const std::string& function) {
  std::this_thread::sleep_for(std::chrono::milliseconds(next_delay_ms(function)));
  const std::lock_guard lock(mutex_);
  return for_call(script_.statuses, function, calls_made_);
}

int Library::next_delay_ms(const std::string& function) {
  const std::lock_guard lock(mutex_);
  return for_call(script_.delays_ms, function, delays_taken_);
}

void Library::log(const qx_device* device, const std::string& line) {
  const std::lock_guard lock(mutex_);
  append(line + note_on(device));
}

void Library::log(const std::string& line) {
  const std::lock_guard lock(mutex_);
  append(line);
}

// Flushed line by line: a program that a signal ends leaves its whole log.
void Library::append(const std::string& line) {
  log_.push_back(line + (reads_under_way_ != 0 ? " during_read" : ""));
  if (log_file_.is_open()) {
    log_file_ << log_.back() << std::endl;
  }
}

Read Library::next_read(std::size_t capacity) {
  const std::lock_guard lock(mutex_);
  Read read;
  if (!left_over_.empty()) {
    read.bytes = std::exchange(left_over_, {});
  } else {
    read = reads_taken_ < script_.reads.size() ? script_.reads[reads_taken_++] : script_.forever;
  }
  if (read.bytes.size() > capacity) {
    left_over_.assign(read.bytes.begin() + static_cast<std::ptrdiff_t>(capacity), read.bytes.end());
    read.bytes.resize(capacity);
  }
  return read;
}

qx_device* Library::open_device() {
  const std::lock_guard lock(mutex_);
  return &devices_.emplace_back(qx_device{.open = true});
}

void Library::close_device(qx_device* device) {
  const std::lock_guard lock(mutex_);
  const std::string note = note_on(device);
  append("qx_close" + note);
  if (note.empty()) {
    device->open = false;
  }
}

qx_discovery* Library::discover() {
  const std::lock_guard lock(mutex_);
  return &lists_.emplace_back();
}

void Library::free_discovery(qx_discovery* list) {
  const std::string note = note_on(list);
  log("qx_discover_free" + note);
  if (note.empty()) {
    const std::lock_guard lock(mutex_);
    list->freed = true;
  }
}

std::string Library::note_on(const qx_discovery* list) {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(lists_.begin(), lists_.end(),
                                  [&](const qx_discovery& known) { return &known == list; });
  return found == lists_.end() ? " list=foreign" : found->freed ? " list=freed" : "";
}

std::string Library::note_on(const qx_device* device) {
  const auto found = std::find_if(devices_.begin(), devices_.end(),
                                  [&](const qx_device& known) { return &known == device; });
  return found == devices_.end() ? " device=foreign" : !found->open ? " device=closed" : "";
}

const char* Library::status_text(qx_status status) {
  const std::lock_guard lock(mutex_);
  const auto scripted = script_.status_texts.find(status);
  const auto text = status_texts_.try_emplace(status, scripted != script_.status_texts.end()
                                                          ? scripted->second
                                                          : "status " + std::to_string(status));
  return text.first->second.c_str();
}

}  // namespace scripted_device
