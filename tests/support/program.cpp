#include "tests/support/program.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace zelk::test_support {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {
    if (number_ < 0) {
      fail("descriptor");
    }
  }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() { close(); }

  [[nodiscard]] int get() const { return number_; }
  void close() {
    if (number_ >= 0) {
      ::close(std::exchange(number_, -1));
    }
  }

 private:
  int number_ = -1;
};

// Our end to read and the program's end to write.
struct Channel {
  Descriptor ours;
  Descriptor theirs;
};

Channel make_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    fail("pipe2");
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// Raw mode: the bytes arrive as the program wrote them.
Channel make_terminal(unsigned short columns) {
  Descriptor ours(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (grantpt(ours.get()) != 0 || unlockpt(ours.get()) != 0) {
    fail("pseudo-terminal");
  }
  Descriptor theirs(open(ptsname(ours.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios settings{};
  tcgetattr(theirs.get(), &settings);
  cfmakeraw(&settings);
  tcsetattr(theirs.get(), TCSANOW, &settings);
  const winsize size{.ws_row = 0, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
  ioctl(theirs.get(), TIOCSWINSZ, &size);
  return {std::move(ours), std::move(theirs)};
}

void fill(int pipe) {
  const int flags = fcntl(pipe, F_GETFL);
  fcntl(pipe, F_SETFL, flags | O_NONBLOCK);
  const std::array<char, 4096> page{};
  while (write(pipe, page.data(), page.size()) > 0) {
  }
  fcntl(pipe, F_SETFL, flags);
}

Channel make_output(Program::Output output, const std::filesystem::path& directory) {
  using enum Program::Output;
  if (output == full_device) {
    return {Descriptor(), Descriptor(open("/dev/full", O_WRONLY | O_CLOEXEC))};
  }
  if (output == file) {
    const std::filesystem::path path = directory / "output";
    return {Descriptor(),
            Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666))};
  }
  if (output == closed) {
    return {};
  }
  Channel channel = make_pipe();
  if (output == closed_pipe) {
    channel.ours.close();
  } else if (output == full_pipe) {
    fill(channel.theirs.get());
  }
  return channel;
}

// Our end of a pipe that stays open as long as the program runs, and unread.
Descriptor end_to_keep(Channel& channel, Program::Output output) {
  using enum Program::Output;
  return output == unread_pipe || output == full_pipe ? std::move(channel.ours) : Descriptor();
}

// In the child, before it becomes the program.
bool connect(int descriptor, int standard_descriptor) {
  return descriptor < 0 ? close(standard_descriptor) == 0
                        : dup2(descriptor, standard_descriptor) >= 0;
}

void block_alarm() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGALRM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

// Between fork and exec only calls that are safe after a fork are made, so the
// texts are laid out before.
pid_t start(const Program& program, int output, int error) {
  std::vector<std::string> arguments{program.file.string()};
  arguments.insert(arguments.end(), program.arguments.begin(), program.arguments.end());
  std::vector<std::string> environment;
  for (const auto& [name, value] : program.environment) {
    environment.push_back(name + "=" + value);
  }
  const std::vector<char*> argv = pointers(arguments);
  const std::vector<char*> envp = pointers(environment);

  const pid_t child = fork();
  if (child < 0) {
    fail("fork");
  }
  if (child > 0) {
    return child;
  }
  signal(SIGINT, program.ignore_interrupt ? SIG_IGN : SIG_DFL);
  signal(SIGHUP, program.ignore_hangup ? SIG_IGN : SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  signal(SIGPIPE, SIG_DFL);
  signal(SIGXFSZ, SIG_DFL);
  if (program.block_alarm) {
    block_alarm();
  }
  if (program.largest_file_bytes) {
    const rlimit limit{*program.largest_file_bytes, *program.largest_file_bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  if (!connect(output, STDOUT_FILENO) || !connect(error, STDERR_FILENO) ||
      (!program.directory.empty() && chdir(program.directory.c_str()) != 0)) {
    _exit(126);
  }
  execve(argv.front(), argv.data(), envp.data());
  _exit(127);
}

bool contains(const std::filesystem::path& file, const std::string& text) {
  std::ifstream in(file, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  return content.find(text) != std::string::npos;
}

class Running {
 public:
  Running(const Program& program, Clock::time_point started, pid_t child, Descriptor output,
          Descriptor error, Descriptor terminal)
      : program_(program),
        started_(started),
        child_(child),
        output_(std::move(output)),
        error_(std::move(error)),
        terminal_(std::move(terminal)) {}

  ProgramResult finish() {
    int status = 0;
    while (waitpid(child_, &status, WNOHANG) == 0) {
      collect();
      send_due_signals();
      stop_and_release_terminal();
      if (!result_.killed_by_watchdog && Clock::now() - started_ > program_.watchdog) {
        result_.killed_by_watchdog = true;
        kill(child_, SIGKILL);
      }
    }
    result_.duration =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_);
    terminal_.close();
    while (output_.get() >= 0 || error_.get() >= 0) {
      collect();
    }
    if (WIFEXITED(status)) {
      result_.exit_status = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
      result_.ended_by_signal = WTERMSIG(status);
    }
    return std::move(result_);
  }

 private:
  // Waits a moment for output and takes what is there.
  void collect() {
    constexpr int wait_ms = 2;
    std::array<pollfd, 2> sources{pollfd{output_.get(), POLLIN, 0},
                                  pollfd{error_.get(), POLLIN, 0}};
    poll(sources.data(), sources.size(), wait_ms);
    take(output_, sources[0].revents, result_.output);
    take(error_, sources[1].revents, result_.error);
  }

  static void take(Descriptor& source, short events, std::string& text) {
    if (events == 0) {
      return;
    }
    std::array<char, 4096> buffer{};
    // A terminal whose other end has gone reports an error instead of an end.
    const ssize_t count = read(source.get(), buffer.data(), buffer.size());
    if (count > 0) {
      text.append(buffer.data(), static_cast<std::size_t>(count));
    } else {
      source.close();
    }
  }

  void send_due_signals() {
    if (signals_sent_ == program_.signals.size()) {
      return;
    }
    const SignalPlan& plan = program_.signals[signals_sent_];
    if (!condition_met_ && (plan.file.empty() || contains(plan.file, plan.text))) {
      condition_met_ = Clock::now();
    }
    if (condition_met_ && Clock::now() - *condition_met_ >= plan.delay) {
      kill(child_, plan.signal);
      ++signals_sent_;
      condition_met_.reset();
    }
  }

  void stop_and_release_terminal() {
    if (!program_.terminal_stop || terminal_.get() < 0) {
      return;
    }
    const Clock::duration now = Clock::now() - started_;
    if (!terminal_stopped_ && now >= program_.terminal_stop->from) {
      tcflow(terminal_.get(), TCOOFF);
      terminal_stopped_ = true;
    }
    if (terminal_stopped_ && now >= program_.terminal_stop->to) {
      tcflow(terminal_.get(), TCOON);
      terminal_.close();
    }
  }

  const Program& program_;
  Clock::time_point started_;  // before the child was, so that no run looks too short
  pid_t child_;
  Descriptor output_;
  Descriptor error_;
  Descriptor terminal_;  // the program's end, as long as it may be stopped
  bool terminal_stopped_ = false;
  ProgramResult result_;
  std::size_t signals_sent_ = 0;
  std::optional<Clock::time_point> condition_met_;
};

}  // namespace

ProgramResult run(const Program& program) {
  Channel output = make_output(program.output, program.directory);
  Channel error = program.error_on_terminal ? make_terminal(program.terminal_columns)
                                            : make_output(program.error, program.directory);
  const Clock::time_point started = Clock::now();
  const pid_t child = start(program, output.theirs.get(), error.theirs.get());
  output.theirs.close();
  Descriptor terminal;
  if (program.terminal_stop) {
    terminal = std::move(error.theirs);
  }
  error.theirs.close();
  const Descriptor unread_output = end_to_keep(output, program.output);
  const Descriptor unread_error = end_to_keep(error, program.error);
  return Running(program, started, child, std::move(output.ours), std::move(error.ours),
                 std::move(terminal))
      .finish();
}

std::map<std::string, std::string> sanitizer_environment() {
  std::map<std::string, std::string> environment;
  for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name); value != nullptr) {
      environment[name] = value;
    }
  }
  return environment;
}

}  // namespace zelk::test_support
