// The list of attached units, and the choice of one by its serial number.
#include "smoke_test/unit_list.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/cout_capture.hpp"

namespace {

using zelk::test_support::CoutCapture;
using zelk::timing::DiscoveredDevice;

using Units = std::vector<DiscoveredDevice>;

DiscoveredDevice unit(const std::string& port, const std::string& serial,
                      const std::string& text = "unit") {
  return {.port = port,
          .identity = {.text_a = "", .text_b = "", .serial = serial, .device_text = text}};
}

std::string printed(const Units& units) {
  const CoutCapture output;
  print_units(units);
  return output.text();
}

std::string refusal(const Units& units, const std::string& serial) {
  try {
    return "port " + port_of_unit(units, serial);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST(UnitList, IsOneLinePerUnitInTheirOrder) {
  EXPECT_EQ(printed({unit("usb://2", "B2", "second one"), unit("usb://1", "A1", "first one")}),
            "port=usb://2 serial=B2 text=second one\n"
            "port=usb://1 serial=A1 text=first one\n");
}

TEST(UnitList, IsEmptyWithoutUnits) {
  EXPECT_EQ(printed({}), "");
}

TEST(UnitList, ShowsAUnitThatSaysNothingOfItself) {
  EXPECT_EQ(printed({unit("", "", "")}), "port= serial= text=\n");
}

TEST(UnitList, WritesControlCharactersOut) {
  EXPECT_EQ(printed({unit("a\nb", "c\x1b[2J", "d\r\t\x7f")}),
            "port=a\\nb serial=c\\x1b[2J text=d\\r\\t\\x7f\n");
}

TEST(UnitChoice, TakesThePortOfTheUnitWithTheSerial) {
  const Units units{unit("usb://1", "A1"), unit("usb://2", "B2")};
  EXPECT_EQ(port_of_unit(units, "A1"), "usb://1");
  EXPECT_EQ(port_of_unit(units, "B2"), "usb://2");
}

TEST(UnitChoice, ComparesTheSerialByteByByte) {
  const Units units{unit("usb://1", "A1"), unit("usb://2", "a1"), unit("usb://3", "A1 ")};
  EXPECT_EQ(port_of_unit(units, "a1"), "usb://2");
  EXPECT_EQ(port_of_unit(units, "A1 "), "usb://3");
}

TEST(UnitChoice, NamesTheSerialsThatThereAre) {
  EXPECT_EQ(refusal({unit("usb://1", "A1")}, "C3"), "no unit with serial C3: attached is A1");
  EXPECT_EQ(refusal({unit("usb://1", "A1"), unit("usb://2", "B2")}, "A"),
            "no unit with serial A: attached are A1 and B2");
  EXPECT_EQ(refusal({unit("usb://1", "A1"), unit("usb://2", ""), unit("usb://3", "B2")}, "C3"),
            "no unit with serial C3: attached are A1, one without a serial number and B2");
  EXPECT_EQ(refusal({}, "C3"), "no unit with serial C3: no unit is attached");
}

TEST(UnitChoice, IsRefusedBetweenTwoOfTheSameSerial) {
  EXPECT_EQ(refusal({unit("usb://1", "A1"), unit("usb://2", "B2"), unit("usb://3", "A1")}, "A1"),
            "2 units with serial A1, at usb://1 and usb://3: choose one with port=");
}

TEST(UnitChoice, PassesOverEntriesWithoutAPort) {
  EXPECT_EQ(port_of_unit({unit("", "A1"), unit("usb://2", "A1")}, "A1"), "usb://2");
  EXPECT_EQ(refusal({unit("", "A1"), unit("usb://2", "B2")}, "A1"),
            "no unit with serial A1: attached is B2");
  EXPECT_EQ(refusal({unit("", "A1")}, "A1"), "no unit with serial A1: no attached unit has a port");
}

}  // namespace
