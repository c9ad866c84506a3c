#include "timing/error.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <type_traits>

#include "tests/scripted_device/scripted_device.hpp"
#include "tests/support/error_of.hpp"

namespace zelk::timing {
namespace {

using scripted_device::Script;
using testing::ElementsAre;
using zelk::test_support::error_of;

static_assert(std::is_base_of_v<std::runtime_error, Error>);
static_assert(std::has_virtual_destructor_v<Error>);

void load_with_last_error(std::optional<std::string> last_error) {
  scripted_device::load(Script{.status_texts = {{-9, "link lost"}, {0, "no error"}},
                               .last_error = std::move(last_error)});
}

qx_device* open_device() {
  qx_device* device = nullptr;
  qx_open_serial(&device, "ftdi://");
  return device;
}

TEST(ThrowStatus, MessageNamesTheOperationAndTheStatusText) {
  load_with_last_error("unused");
  const Error error = error_of([] { detail::throw_status(-9, "open", nullptr); });
  EXPECT_STREQ(error.what(), "open: link lost");
  EXPECT_EQ(error.status, -9);
}

TEST(ThrowStatus, DetailFollowsInParentheses) {
  load_with_last_error(std::nullopt);
  const Error error = error_of([] { detail::throw_status(-9, "identify", "cable pulled"); });
  EXPECT_STREQ(error.what(), "identify: link lost (cable pulled)");
}

TEST(ThrowStatus, EmptyDetailCountsAsNone) {
  load_with_last_error(std::nullopt);
  const Error error = error_of([] { detail::throw_status(-9, "identify", ""); });
  EXPECT_STREQ(error.what(), "identify: link lost");
}

TEST(ThrowStatus, StatusZeroThrowsToo) {
  load_with_last_error(std::nullopt);
  const Error error = error_of([] { detail::throw_status(0, "identify", nullptr); });
  EXPECT_STREQ(error.what(), "identify: no error");
  EXPECT_EQ(error.status, 0);
}

TEST(ThrowStatus, ExtremeStatusesAreKeptUnchanged) {
  load_with_last_error(std::nullopt);
  for (const qx_status status : {INT32_MIN, INT32_MAX, -5, -3, 1}) {
    EXPECT_EQ(error_of([=] { detail::throw_status(status, "x", nullptr); }).status, status);
  }
}

TEST(Check, DetailIsTheDevicesLastError) {
  load_with_last_error("cable pulled");
  qx_device* device = open_device();
  const Error error = error_of([=] { detail::check(-9, "set_dac_codes", device); });
  EXPECT_STREQ(error.what(), "set_dac_codes: link lost (cable pulled)");
  EXPECT_EQ(error.status, -9);
}

TEST(Check, NullAndEmptyLastErrorsGiveNoParentheses) {
  for (const auto& none : {std::optional<std::string>(), std::optional<std::string>("")}) {
    load_with_last_error(none);
    qx_device* device = open_device();
    const Error error = error_of([=] { detail::check(-9, "set_dac_codes", device); });
    EXPECT_STREQ(error.what(), "set_dac_codes: link lost");
  }
}

TEST(Check, NullDeviceIsNotAskedForItsLastError) {
  load_with_last_error("cable pulled");
  const Error error = error_of([] { detail::check(-9, "identify", nullptr); });
  EXPECT_STREQ(error.what(), "identify: link lost");
  EXPECT_THAT(scripted_device::calls(), ElementsAre("qx_status_string status=-9"));
}

TEST(Check, StatusZeroThrowsToo) {
  load_with_last_error(std::nullopt);
  EXPECT_EQ(error_of([] { detail::check(0, "identify", nullptr); }).status, 0);
}

}  // namespace
}  // namespace zelk::timing
