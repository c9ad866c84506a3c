// What Device::open_first makes of discovery and of "fine_lut.bin" in the
// working directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/scripted_device/scripted_device.hpp"
#include "tests/support/temporary_directory.hpp"
#include "timing/device.hpp"
#include "timing/error.hpp"

namespace zelk::timing {
namespace {

using scripted_device::Script;
using testing::ElementsAre;

class OpenFirst : public testing::Test {
 protected:
  OpenFirst() {
    std::filesystem::current_path(directory_.path());
    scripted_device::load(Script{.discovered = {{"usb://1", {}}, {"usb://2", {}}}});
  }
  ~OpenFirst() override { std::filesystem::current_path(former_directory_); }

  static Device open() { return Device::open_first(3'000'000); }

 private:
  std::filesystem::path former_directory_ = std::filesystem::current_path();
  test_support::TemporaryDirectory directory_;
};

// Writes "fine_lut.bin" piece by piece.
class FineTableFile {
 public:
  explicit FineTableFile(const std::string& magic = "TLUT", std::uint32_t version = 1)
      : out_("fine_lut.bin", std::ios::binary) {
    out_ << magic;
    number(version);
  }

  template <typename T>
  FineTableFile& number(T value) {
    out_.write(reinterpret_cast<const char*>(&value), sizeof value);
    return *this;
  }

  FineTableFile& table(const std::vector<std::int64_t>& entries) {
    number(static_cast<std::uint32_t>(entries.size()));
    for (const std::int64_t entry : entries) {
      number(entry);
    }
    return *this;
  }

 private:
  std::ofstream out_;
};

bool has_default_tables(const Device& device) {
  bool all = true;
  for (const std::vector<std::int64_t>& table : device.fine_lut) {
    all = all && table.size() == 8192 && table[1] == 19 && table[8191] == 3332;
  }
  return all;
}

TEST_F(OpenFirst, OpensTheFirstEntryAtTheStandardRate) {
  open();
  EXPECT_THAT(
      scripted_device::calls(),
      ElementsAre("qx_discover -> 0", "qx_discover_count -> 2",
                  "qx_discover_port index=0 -> usb://1", "qx_discover_identity index=0 -> null",
                  "qx_discover_port index=1 -> usb://2", "qx_discover_identity index=1 -> null",
                  "qx_discover_free", "qx_open_serial port=usb://1 -> 0", "qx_close"));
}

TEST_F(OpenFirst, AnyOtherRateIsPassedOn) {
  scripted_device::load(Script{.discovered = {{"usb://1", {}}}});
  Device::open_first(9600);
  EXPECT_THAT(scripted_device::calls(), testing::Contains("qx_open port=usb://1 rate=9600 -> 0"));
}

TEST_F(OpenFirst, NullPortOfTheFirstEntryOpensTheEmptyPort) {
  scripted_device::load(Script{.discovered = {{std::nullopt, {}}, {"usb://2", {}}}});
  open();
  EXPECT_THAT(scripted_device::calls(), testing::Contains("qx_open_serial port= -> 0"));
}

TEST_F(OpenFirst, NoFurtherEntryIsTriedAfterAFailure) {
  scripted_device::load(Script{.statuses = {{"qx_open_serial", {-2, 0}}},
                               .status_texts = {{-2, "in use"}},
                               .discovered = {{"usb://1", {}}, {"usb://2", {}}}});
  try {
    open();
    FAIL() << "no error was thrown";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "open: in use");
    EXPECT_EQ(error.status, -2);
  }
  EXPECT_THAT(scripted_device::calls(),
              testing::Not(testing::Contains("qx_open_serial port=usb://2 -> 0")));
}

TEST_F(OpenFirst, NothingAttachedIsAnErrorWithoutALibraryCall) {
  scripted_device::load({});
  try {
    open();
    FAIL() << "no error was thrown";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "open_first: no ZELK device found");
    EXPECT_EQ(error.status, -5);
  }
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_discover -> 0", "qx_discover_count -> 0", "qx_discover_free"));
}

TEST_F(OpenFirst, MissingFileKeepsTheDefaults) {
  EXPECT_TRUE(has_default_tables(open()));
}

TEST_F(OpenFirst, TablesOfAnyLengthAreTaken) {
  FineTableFile()
      .table({1})
      .table({-5, INT64_MAX})
      .table(std::vector<std::int64_t>(9000, 7))
      .table({INT64_MIN, 0, 4});
  const Device device = open();
  EXPECT_THAT(device.fine_lut[0], ElementsAre(1));
  EXPECT_THAT(device.fine_lut[1], ElementsAre(-5, INT64_MAX));
  EXPECT_EQ(device.fine_lut[2], std::vector<std::int64_t>(9000, 7));
  EXPECT_THAT(device.fine_lut[3], ElementsAre(INT64_MIN, 0, 4));
}

TEST_F(OpenFirst, BytesBehindTheFourthTableAreIgnored) {
  FineTableFile().table({1}).table({2}).table({3}).table({4}).number('x');
  EXPECT_THAT(open().fine_lut[3], ElementsAre(4));
}

TEST_F(OpenFirst, OpeningByPortDoesNotReadTheFile) {
  FineTableFile().table({1}).table({2}).table({3}).table({4});
  EXPECT_TRUE(has_default_tables(Device::open("usb://1", 3'000'000)));
}

TEST_F(OpenFirst, WrongMagicKeepsTheDefaults) {
  FineTableFile("TLUX").table({1}).table({2}).table({3}).table({4});
  EXPECT_TRUE(has_default_tables(open()));
}

TEST_F(OpenFirst, VersionOtherThanOneKeepsTheDefaults) {
  for (const std::uint32_t version : {0U, 2U, 0x01000000U}) {
    FineTableFile("TLUT", version).table({1}).table({2}).table({3}).table({4});
    EXPECT_TRUE(has_default_tables(open())) << version;
  }
}

TEST_F(OpenFirst, ShortHeaderKeepsTheDefaults) {
  for (const std::string& content :
       {std::string(), std::string("TLU"), std::string("TLUT"), std::string("TLUT\x01\0\0", 7)}) {
    std::ofstream("fine_lut.bin", std::ios::binary) << content;
    EXPECT_TRUE(has_default_tables(open())) << content.size();
  }
}

TEST_F(OpenFirst, ThreeCompleteTablesKeepAllFourDefaults) {
  FineTableFile().table({1}).table({2}).table({3});
  EXPECT_TRUE(has_default_tables(open()));
}

TEST_F(OpenFirst, FourthTableCutShortKeepsAllFourDefaults) {
  FineTableFile().table({1}).table({2}).table({3}).number(std::uint32_t{2}).number(std::int64_t{4});
  EXPECT_TRUE(has_default_tables(open()));
}

TEST_F(OpenFirst, CountOfZeroKeepsAllFourDefaults) {
  FineTableFile().table({1}).table({}).table({3}).table({4});
  EXPECT_TRUE(has_default_tables(open()));
}

TEST_F(OpenFirst, LargestCountIsAccepted) {
  FineTableFile().table(std::vector<std::int64_t>(1'048'576, 6)).table({2}).table({3}).table({4});
  EXPECT_EQ(open().fine_lut[0], std::vector<std::int64_t>(1'048'576, 6));
}

TEST_F(OpenFirst, OneMoreThanTheLargestCountIsRefused) {
  FineTableFile().table(std::vector<std::int64_t>(1'048'577, 6)).table({2}).table({3}).table({4});
  EXPECT_TRUE(has_default_tables(open()));
}

TEST_F(OpenFirst, DirectoryInTheFilesPlaceKeepsTheDefaults) {
  std::filesystem::create_directory("fine_lut.bin");
  EXPECT_TRUE(has_default_tables(open()));
}

// Opening it would wait for somebody who writes.
TEST_F(OpenFirst, LeavesAPipeAlone) {
  ASSERT_EQ(mkfifo("fine_lut.bin", 0666), 0);
  EXPECT_TRUE(has_default_tables(open()));
}

}  // namespace
}  // namespace zelk::timing
