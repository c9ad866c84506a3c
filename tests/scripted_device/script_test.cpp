#include "tests/scripted_device/script.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <stdexcept>

#include "tests/support/temporary_directory.hpp"

namespace scripted_device {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

bool same(const qx_identity& left, const qx_identity& right) {
  return std::memcmp(&left, &right, sizeof left) == 0;
}

bool same(const Read& left, const Read& right) {
  return left.bytes == right.bytes && left.status == right.status &&
         left.delay_ms == right.delay_ms;
}

TEST(ScriptText, CarriesEveryField) {
  const Script script{
      .statuses = {{"qx_identify", {0, -7}}, {"qx_open", {2147483647}}},
      .status_texts = {{-7, " two  words "}, {0, ""}},
      .last_error = "",
      .identity = make_identity("a", "\xFF\n", std::string(16, 's'), std::string(48, 'd')),
      .discovered = {{"usb://1", make_identity("", "", "x", "")},
                     {std::nullopt, std::nullopt},
                     {"", {}}},
      .reference_clock = {1, 2, 3, 4, 5, 6, 7, 8, 0xFFFFFFFF},
      .accepted_packed = {{255, 65535}},
      .applied_dead_time_ps = INT64_MIN,
      .read_back_masks = {{0, 1, 2, 255}},
      .divider = 4294967295,
      .reads = {{.bytes = {0x00, 0xAB}, .status = 0, .delay_ms = 5}, {.bytes = {}, .status = -3}},
      .forever = {.bytes = {1}, .status = -12, .delay_ms = 7}};
  const Script copy = parse_script(to_text(script));
  EXPECT_EQ(copy.statuses, script.statuses);
  EXPECT_EQ(copy.status_texts, script.status_texts);
  EXPECT_EQ(copy.last_error, "");
  EXPECT_TRUE(same(copy.identity, script.identity));
  ASSERT_EQ(copy.discovered.size(), 3u);
  EXPECT_EQ(copy.discovered[0].port, "usb://1");
  EXPECT_TRUE(same(copy.discovered[0].identity.value(), *script.discovered[0].identity));
  EXPECT_EQ(copy.discovered[1].port, std::nullopt);
  EXPECT_FALSE(copy.discovered[1].identity.has_value());
  EXPECT_EQ(copy.discovered[2].port, "");
  EXPECT_EQ(copy.reference_clock, script.reference_clock);
  EXPECT_EQ(copy.accepted_packed, script.accepted_packed);
  EXPECT_EQ(copy.applied_dead_time_ps, script.applied_dead_time_ps);
  EXPECT_EQ(copy.read_back_masks, script.read_back_masks);
  EXPECT_EQ(copy.divider, script.divider);
  ASSERT_EQ(copy.reads.size(), 2u);
  EXPECT_TRUE(same(copy.reads[0], script.reads[0]));
  EXPECT_TRUE(same(copy.reads[1], script.reads[1]));
  EXPECT_TRUE(same(copy.forever, script.forever));
}

TEST(ScriptText, WithoutItemsIsTheDefaultScript) {
  const Script script = parse_script("# nothing\n\n");
  EXPECT_EQ(script.last_error, std::nullopt);
  EXPECT_EQ(script.accepted_packed, std::nullopt);
  EXPECT_THAT(script.reads, IsEmpty());
  EXPECT_TRUE(same(script.forever, Script{}.forever));
}

TEST(ScriptText, ReadMayTakeItsBytesFromAFile) {
  const zelk::test_support::TemporaryDirectory directory;
  const auto file = directory.path() / "stream.bin";
  std::ofstream(file, std::ios::binary) << std::string("\x00\x0A\xFF", 3);
  const Script script = parse_script("read status=0 file=" + file.string() + "\n");
  ASSERT_EQ(script.reads.size(), 1u);
  EXPECT_THAT(script.reads[0].bytes, ElementsAre(0x00, 0x0A, 0xFF));
}

TEST(ScriptText, UnknownLineIsRefused) {
  EXPECT_THROW(parse_script("divder 5\n"), std::runtime_error);
  EXPECT_THROW(parse_script("read stats=0\n"), std::runtime_error);
  EXPECT_THROW(parse_script("read bytes=0g\n"), std::runtime_error);
  EXPECT_THROW(parse_script("read file=/nowhere/at/all\n"), std::runtime_error);
}

TEST(LogFilters, RemoveOnlyStreamReads) {
  const std::vector<std::string> log{
      "qx_set_reference_clock source=1 signal=0 record=zeroed -> -3 ",
      "qx_read_stream_bytes capacity=1 timeout=20 -> -3 received=0",
      "qx_read_stream_bytes capacity=1 timeout=20 -> 0 received=1", "qx_close"};
  EXPECT_THAT(without_timeouts(log), ElementsAre(log[0], log[2], log[3]));
  EXPECT_THAT(without_reads(log), ElementsAre(log[0], log[3]));
}

}  // namespace
}  // namespace scripted_device
