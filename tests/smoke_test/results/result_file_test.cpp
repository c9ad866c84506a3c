#include "smoke_test/results/result_file.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/file_content.hpp"
#include "tests/support/temporary_directory.hpp"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zelk::test_support::file_content;
using zelk::test_support::TemporaryDirectory;

constexpr const char* run_id = "0123";

void put(const fs::path& file, const std::string& text) {
  std::ofstream(file) << text;
}

std::string error_of_writing(ResultFile& file) {
  try {
    file.write("text");
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

class ResultFileTest : public testing::Test {
 protected:
  [[nodiscard]] fs::path path(const std::string& name) const { return directory_.path() / name; }

  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(directory_.path())) {
      found.push_back(entry.path().filename().string());
    }
    std::ranges::sort(found);
    return found;
  }

  static std::string refusal(const std::string& place,
                             const std::vector<std::string>& inputs = {}) {
    try {
      const ResultFile file(place, run_id, inputs);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "not refused";
  }

 private:
  TemporaryDirectory directory_;
};

TEST_F(ResultFileTest, AppearsOnlyWhenItIsWritten) {
  {
    ResultFile file(path("run.json"), run_id, {});
    EXPECT_THAT(names(), ElementsAre(".zelk-0123.json"));
    EXPECT_FALSE(file.is_written());
    file.write("all of it\n");
    EXPECT_TRUE(file.is_written());
    EXPECT_THAT(names(), ElementsAre("run.json"));
  }
  EXPECT_EQ(file_content(path("run.json")), "all of it\n");
}

TEST_F(ResultFileTest, LeavesNothingWhenItIsNotWritten) {
  { const ResultFile file(path("run.json"), run_id, {}); }
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ResultFileTest, RemovesTheOlderOneAtOnce) {
  put(path("run.json"), "older");
  ResultFile file(path("run.json"), run_id, {});
  EXPECT_THAT(names(), ElementsAre(".zelk-0123.json"));
  file.write("newer");
  EXPECT_EQ(file_content(path("run.json")), "newer");
}

TEST_F(ResultFileTest, FollowsLinksToTheirLastTarget) {
  fs::create_directory(path("results"));
  put(path("results/run.json"), "older");
  fs::create_symlink("results/run.json", path("relative"));
  fs::create_symlink(path("relative"), path("absolute"));
  ResultFile file(path("absolute"), run_id, {});
  EXPECT_FALSE(fs::exists(path("results/run.json")));
  file.write("newer");
  EXPECT_TRUE(fs::is_symlink(path("absolute")));
  EXPECT_TRUE(fs::is_symlink(path("relative")));
  EXPECT_EQ(fs::symlink_status(path("results/run.json")).type(), fs::file_type::regular);
  EXPECT_EQ(file_content(path("results/run.json")), "newer");
}

TEST_F(ResultFileTest, MakesWhatADanglingLinkNames) {
  fs::create_symlink("not_there.json", path("link"));
  ResultFile file(path("link"), run_id, {});
  file.write("text");
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(file_content(path("not_there.json")), "text");
}

TEST_F(ResultFileTest, IsMadeInTheWorkingDirectoryByABareName) {
  const fs::path before = fs::current_path();
  fs::current_path(path("."));
  {
    ResultFile file("bare.json", run_id, {});
    fs::current_path(before);  // what happens to it meanwhile does not matter
    file.write("text");
  }
  EXPECT_EQ(file_content(path("bare.json")), "text");
}

TEST_F(ResultFileTest, HasTheModeThatTheUmaskLeaves) {
  for (const mode_t mask : {0022U, 0077U, 0000U}) {
    const mode_t before = umask(mask);
    {
      ResultFile file(path("run.json"), run_id, {});
      file.write("text");
    }
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(path("run.json").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0666 & ~mask);
  }
}

TEST_F(ResultFileTest, ATextThatWasWrittenIsNotRemovedByAnotherRunThatFails) {
  {
    ResultFile file(path("run.json"), run_id, {});
    file.write("text");
    EXPECT_THAT(refusal(path("missing/run.json")), HasSubstr("No such file or directory"));
  }
  EXPECT_EQ(file_content(path("run.json")), "text");
}

TEST_F(ResultFileTest, RefusesPlacesThatCannotBeWritten) {
  const std::string place = "cannot write the JSON document to ";
  EXPECT_EQ(refusal(""), "json= needs the name of a file");
  EXPECT_EQ(refusal(path(".")), place + path(".").string() + ": it is a directory");
  EXPECT_EQ(refusal(path("") / "new" / ""),
            place + (path("") / "new" / "").string() + ": No such file or directory");
  EXPECT_EQ(refusal(path("missing/run.json")),
            place + path("missing/run.json").string() + ": No such file or directory");
  EXPECT_EQ(refusal(path(std::string(300, 'a'))),
            place + path(std::string(300, 'a')).string() + ": File name too long");
  EXPECT_THAT(refusal("/proc/run.json"), testing::StartsWith(place + "/proc/run.json: "));
  fs::create_symlink("loop", path("loop"));
  EXPECT_THAT(refusal(path("loop")), HasSubstr("Too many levels of symbolic links"));
  put(path("plain"), "");
  EXPECT_THAT(refusal(path("plain/run.json")), HasSubstr("Not a directory"));
  EXPECT_THAT(names(), ElementsAre("loop", "plain"));
}

// Root may write anywhere: somebody else tries.
int refusals_of_nobody(const std::vector<std::string>& places) {
  constexpr uid_t nobody = 65534;
  if (geteuid() == 0 && seteuid(nobody) != 0) {
    return -1;
  }
  int refused = 0;
  for (const std::string& place : places) {
    try {
      const ResultFile file(place, run_id, {});
    } catch (const std::runtime_error& error) {
      refused += std::string(error.what()).ends_with(": Permission denied") ? 1 : 0;
    }
  }
  return refused;
}

TEST_F(ResultFileTest, RefusesWhatMayNotBeWrittenAndLeavesItAlone) {
  fs::create_directory(path("closed"));
  fs::create_directory(path("open"));
  put(path("closed/run.json"), "older");
  put(path("open/run.json"), "older");
  chmod(path("closed/run.json").c_str(), 0666);
  chmod(path("open/run.json").c_str(), 0444);
  chmod(path("closed").c_str(), 0555);
  chmod(path("open").c_str(), 0777);
  chmod(path("").c_str(), 0755);
  const std::vector<std::string> places{path("closed/run.json"), path("closed/new.json"),
                                        path("open/run.json")};
  EXPECT_EXIT(_exit(refusals_of_nobody(places)), testing::ExitedWithCode(3), "");
  EXPECT_EQ(file_content(path("closed/run.json")), "older");
  EXPECT_EQ(file_content(path("open/run.json")), "older");
  EXPECT_THAT(names(), ElementsAre("closed", "open"));
  chmod(path("closed").c_str(), 0755);
}

TEST_F(ResultFileTest, IsNoFileThatTheRunReads) {
  put(path("limits.txt"), "coincidences>=1\n");
  fs::create_symlink("limits.txt", path("link"));
  fs::create_hard_link(path("limits.txt"), path("other_name"));
  const std::vector<std::string> inputs{path("missing"), path("limits.txt")};
  for (const char* name : {"limits.txt", "link", "other_name"}) {
    EXPECT_EQ(refusal(path(name), inputs), "cannot write the JSON document to " +
                                               path(name).string() + ": the run reads it, too");
  }
  EXPECT_EQ(file_content(path("limits.txt")), "coincidences>=1\n");
  EXPECT_THAT(names(), ElementsAre("limits.txt", "link", "other_name"));
}

// A standard stream that goes to the file, for as long as the object exists.
class Redirected {
 public:
  Redirected(int descriptor, const fs::path& file)
      : descriptor_(descriptor), before_(dup(descriptor)) {
    const int opened = open(file.c_str(), O_RDWR | O_CREAT, 0666);
    dup2(opened, descriptor);
    close(opened);
  }
  ~Redirected() {
    dup2(before_, descriptor_);
    close(before_);
  }
  Redirected(const Redirected&) = delete;
  Redirected& operator=(const Redirected&) = delete;

 private:
  int descriptor_;
  int before_;
};

TEST_F(ResultFileTest, IsNeitherStandardOutputNorStandardError) {
  for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    std::string by_name;
    std::string by_number;
    {
      const Redirected redirected(descriptor, path("report"));
      by_name = refusal(path("report"));
      by_number = refusal("/dev/fd/" + std::to_string(descriptor));
    }
    const std::string name = descriptor == STDOUT_FILENO ? "output" : "error";
    EXPECT_THAT(by_name, testing::EndsWith(": it is standard " + name));
    EXPECT_THAT(by_number, testing::EndsWith(": it is standard " + name));
    EXPECT_TRUE(fs::exists(path("report")));
  }
}

TEST_F(ResultFileTest, MayBeTheDeviceThatAStandardStreamIs) {
  std::string by_name;
  std::string by_link;
  {
    const Redirected redirected(STDOUT_FILENO, "/dev/null");
    by_name = refusal("/dev/null");
    by_link = refusal("/dev/stdout");
  }
  EXPECT_EQ(by_name, "not refused");
  EXPECT_EQ(by_link, "not refused");
}

TEST_F(ResultFileTest, GoesStraightIntoADevice) {
  ResultFile file("/dev/null", run_id, {});
  file.write("text");
  EXPECT_TRUE(file.is_written());
  struct stat status {};
  ASSERT_EQ(stat("/dev/null", &status), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
}

TEST_F(ResultFileTest, SaysWhenTheDeviceIsFull) {
  ResultFile file("/dev/full", run_id, {});
  EXPECT_EQ(error_of_writing(file),
            "cannot write the JSON document to /dev/full: No space left on device");
  EXPECT_FALSE(file.is_written());
}

TEST_F(ResultFileTest, RefusesAPipeThatNobodyReads) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0666), 0);
  EXPECT_EQ(refusal(path("pipe")),
            "cannot write the JSON document to " + path("pipe").string() + ": nobody reads it");
}

TEST_F(ResultFileTest, WaitsForTheReaderOfAPipe) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0666), 0);
  const int reader = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  fcntl(reader, F_SETFL, 0);
  const std::string text(1'000'000, 'x');  // far more than a pipe takes
  std::string read_text;
  // Before anybody has opened it for writing, the pipe is at its end.
  auto file = std::make_unique<ResultFile>(path("pipe"), run_id, std::span<const std::string>{});
  std::thread reading([&] {
    std::vector<char> buffer(10'000);
    for (ssize_t count = 0; (count = read(reader, buffer.data(), buffer.size())) > 0;) {
      read_text.append(buffer.data(), static_cast<std::size_t>(count));
    }
  });
  file->write(text);
  file.reset();
  reading.join();
  close(reader);
  EXPECT_EQ(read_text, text);
}

TEST_F(ResultFileTest, SaysWhenTheReaderOfAPipeHasGone) {
  struct sigaction ignore {};
  struct sigaction before {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, &before);
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0666), 0);
  const int reader = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ResultFile file(path("pipe"), run_id, {});
  close(reader);
  EXPECT_THAT(error_of_writing(file), testing::EndsWith(": Broken pipe"));
  sigaction(SIGPIPE, &before, nullptr);
}

TEST_F(ResultFileTest, GoesStraightIntoADescriptorWhereItStands) {
  put(path("log"), "before ");
  const int log = open(path("log").c_str(), O_WRONLY | O_APPEND);
  ASSERT_GE(log, 0);
  {
    ResultFile file("/dev/fd/" + std::to_string(log), run_id, {});
    file.write("text");
  }
  EXPECT_NE(fcntl(log, F_GETFD), -1);
  close(log);
  EXPECT_EQ(file_content(path("log")), "before text");
  EXPECT_THAT(names(), ElementsAre("log"));
}

TEST_F(ResultFileTest, RefusesADescriptorThatTakesNothing) {
  put(path("log"), "");
  const int log = open(path("log").c_str(), O_RDONLY);
  const std::string name = "/dev/fd/" + std::to_string(log);
  EXPECT_THAT(refusal(name), testing::EndsWith(": it is open for reading only"));
  close(log);
  EXPECT_THAT(refusal(name), testing::EndsWith(": Bad file descriptor"));
}

TEST_F(ResultFileTest, SuddenlyIsWholeToo) {
  ResultFile file(path("run.json"), run_id, {});
  file.write_suddenly("head ", "tail");
  EXPECT_EQ(file_content(path("run.json")), "head tail");
  EXPECT_THAT(names(), ElementsAre("run.json"));
}

TEST_F(ResultFileTest, SuddenlyHasTheLastWord) {
  ResultFile file(path("run.json"), run_id, {});
  file.write("earlier");
  file.write_suddenly("head ", "tail");
  EXPECT_EQ(file_content(path("run.json")), "head tail");
  file.write_suddenly("one more ", "tail");
  EXPECT_EQ(file_content(path("run.json")), "head tail");
  EXPECT_THAT(names(), ElementsAre("run.json"));
}

TEST_F(ResultFileTest, IsNotReplacedByATextThatCameTooLate) {
  ResultFile file(path("run.json"), run_id, {});
  file.write_suddenly("head ", "tail");
  file.write("too late");
  EXPECT_EQ(file_content(path("run.json")), "head tail");
}

// Whichever of the two is first: it is whole, and the last word is the handler's.
TEST_F(ResultFileTest, SuddenlyOnAnotherThreadIsWholeToo) {
  const std::string text(100'000, 'x');
  for (int i = 0; i < 200; ++i) {
    ResultFile file(path("run.json"), run_id, {});
    std::thread other([&] { file.write_suddenly("head ", "tail"); });
    file.write(text);
    other.join();
    ASSERT_EQ(file_content(path("run.json")), "head tail");
    ASSERT_THAT(names(), ElementsAre("run.json"));
  }
}

TEST_F(ResultFileTest, SuddenlyWritesNothingBehindAStraightText) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const std::string name = "/dev/fd/" + std::to_string(ends[1]);
  {
    ResultFile file(name, run_id, {});
    file.write("text ");
    file.write_suddenly("head", "tail");
  }
  {
    ResultFile file(name, run_id, {});
    file.write_suddenly("head ", "tail");
    file.write("text");
  }
  close(ends[1]);
  std::array<char, 100> buffer{};
  const ssize_t count = read(ends[0], buffer.data(), buffer.size());
  close(ends[0]);
  EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))),
            "text head tail");
}

TEST_F(ResultFileTest, SuddenlyWaitsForNobody) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  ResultFile file("/dev/fd/" + std::to_string(ends[1]), run_id, {});
  file.write_suddenly(std::string(1'000'000, 'x'), "tail");  // returns
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
