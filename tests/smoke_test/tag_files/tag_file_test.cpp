#include "smoke_test/tag_files/tag_file.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "smoke_test/tag_files/npy_rows.hpp"
#include "tests/support/file_content.hpp"
#include "tests/support/temporary_directory.hpp"

namespace {

namespace fs = std::filesystem;
using zelk::test_support::TemporaryDirectory;
using zelk::timing::TimeTag;

// No file of this process grows beyond it while it exists.
class LargestFile {
 public:
  explicit LargestFile(rlim_t bytes) : signal_before_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~LargestFile() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_before_);
  }
  LargestFile(const LargestFile&) = delete;
  LargestFile& operator=(const LargestFile&) = delete;

 private:
  void (*signal_before_)(int);
  rlimit before_{};
};

// Tags in turn on the four channels, each a microsecond after the one before.
std::vector<TimeTag> tags_in_turn(std::size_t count) {
  std::vector<TimeTag> tags;
  for (std::size_t i = 0; i < count; ++i) {
    tags.push_back({static_cast<std::uint8_t>(i % 4), static_cast<std::int64_t>(i) * 1'000'000});
  }
  return tags;
}

std::string npy_text(const std::vector<TimeTag>& tags) {
  std::string rows(tags.size() * 16, '?');
  npy::put_rows(tags, rows.data());
  return npy::header(tags.size()) + rows;
}

std::string csv_text(const std::vector<TimeTag>& tags) {
  std::string text = "channel,timestamp_ps\n";
  for (const TimeTag& tag : tags) {
    text += std::to_string(tag.channel) + "," + std::to_string(tag.timestamp_ps) + "\n";
  }
  return text;
}

class TagFileTest : public testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return directory_.path() / name; }

  [[nodiscard]] std::string content_of(const std::string& name) const {
    return zelk::test_support::file_content(path(name));
  }

  // The line without the folder.
  template <typename Action>
  [[nodiscard]] std::string error_of(const Action& action) const {
    try {
      action();
    } catch (const std::runtime_error& error) {
      std::string line = error.what();
      const std::string folder = path("");
      if (const std::size_t at = line.find(folder); at != std::string::npos) {
        line.erase(at, folder.size());
      }
      return line;
    }
    return "no error";
  }

  [[nodiscard]] std::string refusal(const std::string& name, const std::string& result = {}) const {
    return error_of([&] { const TagFile file(path(name), result); });
  }

 private:
  TemporaryDirectory directory_;
};

TEST_F(TagFileTest, IsWholeBeforeItsFirstTag) {
  TagFile npy(path("t.npy"), "");
  TagFile csv(path("t.csv"), "");
  EXPECT_EQ(content_of("t.npy"), npy_text({}));
  EXPECT_EQ(content_of("t.csv"), csv_text({}));
}

TEST_F(TagFileTest, IsWholeAfterEveryBatch) {
  TagFile npy(path("t.npy"), "");
  TagFile csv(path("t.csv"), "");
  std::vector<TimeTag> all;
  for (const std::size_t count : {1U, 0U, 8191U, 8192U, 8193U, 65536U, 3U}) {
    const std::vector<TimeTag> batch = tags_in_turn(count);
    all.insert(all.end(), batch.begin(), batch.end());
    npy.add(batch);
    csv.add(batch);
    EXPECT_TRUE(content_of("t.npy") == npy_text(all)) << count;
    EXPECT_TRUE(content_of("t.csv") == csv_text(all)) << count;
  }
  npy.finish();
  csv.finish();
  EXPECT_TRUE(content_of("t.npy") == npy_text(all));
  EXPECT_TRUE(content_of("t.csv") == csv_text(all));
}

TEST_F(TagFileTest, DoesNotCountTagsThatItLeavesOut) {
  TagFile file(path("t.npy"), "");
  file.add(std::vector<TimeTag>{{7, 1}});
  EXPECT_EQ(content_of("t.npy"), npy_text({}));
  file.add(std::vector<TimeTag>{{7, 1}, {2, 5}, {4, 2}});
  EXPECT_EQ(content_of("t.npy"), npy_text({{2, 5}}));
}

TEST_F(TagFileTest, StaysOnceTheCaptureHasBegun) {
  for (const bool begun : {false, true}) {
    {
      TagFile file(path("t.npy"), "");
      if (begun) {
        file.begin_capture();
      }
    }
    EXPECT_EQ(fs::exists(path("t.npy")), begun);
  }
}

TEST_F(TagFileTest, IsRefusedWithItsNameAndTheReason) {
  std::ofstream(path("t.npy")) << "precious";
  EXPECT_EQ(refusal("t.npy"), "cannot write the tags to t.npy: it exists already");
  EXPECT_EQ(content_of("t.npy"), "precious");
  EXPECT_EQ(refusal("none/t.csv"),
            "cannot write the tags to none/t.csv: No such file or directory");
}

TEST_F(TagFileTest, IsRefusedAtThePlaceOfTheResult) {
  fs::create_symlink("t.npy", path("link"));
  EXPECT_EQ(refusal("t.npy", path("link")),
            "cannot write the tags to t.npy: the run writes its document there");
  EXPECT_FALSE(fs::exists(path("t.npy")));
}

TEST_F(TagFileTest, IsRefusedAndRemovedWhenNotEvenItsHeaderFits) {
  const LargestFile limit(191);
  EXPECT_EQ(refusal("t.npy"), "cannot write the tags to t.npy: File too large");
  EXPECT_FALSE(fs::exists(path("t.npy")));
}

// The limit lies in the midst of the row behind the hundredth, of the second batch.
TEST_F(TagFileTest, KeepsTheWholeRowsThatADiskTook) {
  const std::vector<TimeTag> tags = tags_in_turn(150);
  TagFile file(path("t.npy"), "");
  file.begin_capture();
  {
    const LargestFile limit(192 + 100 * 16 + 7);
    file.add(std::span(tags).first(60));
    EXPECT_EQ(error_of([&] { file.add(std::span(tags).subspan(60)); }),
              "cannot write the tags to t.npy: File too large");
  }
  EXPECT_TRUE(content_of("t.npy") == npy_text({tags.begin(), tags.begin() + 100}));
}

// What a limit in the midst of a line would leave of it can be read, and wrongly.
TEST_F(TagFileTest, KeepsTheWholeLinesThatADiskTook) {
  const std::vector<TimeTag> tags = tags_in_turn(150);
  const std::string some = csv_text({tags.begin(), tags.begin() + 100});
  for (const std::size_t more : {0U, 1U, 5U}) {
    const std::string name = std::to_string(more) + ".csv";
    TagFile file(path(name), "");
    file.begin_capture();
    {
      const LargestFile limit(some.size() + more);
      EXPECT_EQ(error_of([&] { file.add(tags); }),
                "cannot write the tags to " + name + ": File too large");
    }
    EXPECT_TRUE(content_of(name) == some) << more;
  }
}

}  // namespace
