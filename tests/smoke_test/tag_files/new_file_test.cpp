#include "smoke_test/tag_files/new_file.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "tests/support/file_content.hpp"
#include "tests/support/temporary_directory.hpp"

namespace {

namespace fs = std::filesystem;
using zelk::test_support::file_content;
using zelk::test_support::TemporaryDirectory;

class NewFileTest : public testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return directory_.path() / name; }

  static std::error_code refusal(const std::string& place) {
    try {
      const NewFile file(place);
    } catch (const std::system_error& error) {
      return error.code();
    }
    return {};
  }

 private:
  TemporaryDirectory directory_;
};

TEST_F(NewFileTest, HoldsWhatIsWritten) {
  NewFile file(path("f"));
  file.keep();
  const NewFile::Written written = file.write_at(0, "0123456789");
  EXPECT_EQ(written.bytes, 10U);
  EXPECT_FALSE(written.error);
  file.write_at(2, "xy");
  file.cut(6);
  EXPECT_EQ(file_content(path("f")), "01xy45");
  EXPECT_FALSE(file.close());
}

TEST_F(NewFileTest, StaysOnlyWhenItIsKept) {
  { const NewFile file(path("f")); }
  EXPECT_FALSE(fs::exists(path("f")));
  {
    NewFile file(path("f"));
    file.keep();
  }
  EXPECT_TRUE(fs::exists(path("f")));
}

TEST_F(NewFileTest, LeavesAloneWhatHasItsNameMeanwhile) {
  {
    const NewFile file(path("f"));
    fs::rename(path("f"), path("elsewhere"));
    std::ofstream(path("f")) << "another one's";
  }
  EXPECT_EQ(file_content(path("f")), "another one's");
}

TEST_F(NewFileTest, TouchesNothingThatExists) {
  std::ofstream(path("f")) << "precious";
  fs::create_symlink("f", path("link"));
  fs::create_symlink("nowhere", path("dangling"));
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  for (const char* name : {"f", "link", "dangling", "pipe", "."}) {
    EXPECT_EQ(refusal(path(name)), std::errc::file_exists) << name;
    EXPECT_TRUE(fs::exists(fs::symlink_status(path(name)))) << name;
  }
  EXPECT_EQ(file_content(path("f")), "precious");
  EXPECT_FALSE(fs::exists(path("nowhere")));
}

TEST_F(NewFileTest, SaysWhyItCannotBeMade) {
  EXPECT_EQ(refusal(path("none/f")), std::errc::no_such_file_or_directory);
  EXPECT_EQ(refusal(path(std::string(300, 'f'))), std::errc::filename_too_long);
}

TEST_F(NewFileTest, IsFoundByEveryPathThatLeadsToIt) {
  fs::create_symlink("f", path("link"));
  const NewFile file(path("f"));
  EXPECT_TRUE(file.is_at(path("link")));
  EXPECT_TRUE(file.is_at(path("./f")));
  std::ofstream(path("g")) << "";
  EXPECT_FALSE(file.is_at(path("g")));
  EXPECT_FALSE(file.is_at(path("none")));
  EXPECT_FALSE(file.is_at(""));
}

TEST_F(NewFileTest, HasTheModeThatTheUmaskLeaves) {
  const mode_t before = umask(0027);
  const NewFile file(path("f"));
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(path("f").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

}  // namespace
