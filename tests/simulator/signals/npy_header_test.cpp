#include "simulator/signals/npy_header.hpp"

#include <gtest/gtest.h>

#include <string>

#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator::npy {
namespace {

const std::string type = "[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')]";

std::string text_of(const std::string& rows, const std::string& order, const std::string& shape) {
  return "{'descr': " + rows + ", 'fortran_order': " + order + ", 'shape': " + shape + ", }";
}

std::string text_for(const std::string& shape) {
  return text_of(type, "False", shape) + "    \n";
}

void expect_refused(const std::string& text, const std::string& reason) {
  SCOPED_TRACE(text);
  EXPECT_EQ(failure_text(Status::malformed_tag_header, [&] { rows_told(text, "a.npy"); }),
            "the header of the tag file `a.npy` " + reason);
}

TEST(NpyHeader, VersionsOneAndTwoSayTheirLengthInTwoAndFourBytes) {
  EXPECT_EQ(length_bytes(1, 0, "a.npy"), 2U);
  EXPECT_EQ(length_bytes(2, 0, "a.npy"), 4U);
}

TEST(NpyHeader, OtherVersionsAreRefused) {
  EXPECT_EQ(failure_text(Status::malformed_tag_header, [] { length_bytes(3, 0, "a.npy"); }),
            "the header of the tag file `a.npy` is of version 3.0, not 1.0 or 2.0");
  failure_text(Status::malformed_tag_header, [] { length_bytes(1, 1, "a.npy"); });
  failure_text(Status::malformed_tag_header, [] { length_bytes(2, 1, "a.npy"); });
  failure_text(Status::malformed_tag_header, [] { length_bytes(0, 0, "a.npy"); });
  failure_text(Status::malformed_tag_header, [] { length_bytes(255, 255, "a.npy"); });
}

TEST(NpyHeader, TellsTheNumberOfRows) {
  EXPECT_EQ(rows_told(text_for("(0,)"), ""), 0U);
  EXPECT_EQ(rows_told(text_for("(1,)"), ""), 1U);
  EXPECT_EQ(rows_told(text_for("(384019,)"), ""), 384019U);
  EXPECT_EQ(rows_told(text_for("(18446744073709551615,)"), ""), 18446744073709551615U);
}

TEST(NpyHeader, MayBeFilledUpToAnyLength) {
  const std::string text = text_of(type, "False", "(7,)");
  EXPECT_EQ(rows_told(text + "\n", ""), 7U);
  EXPECT_EQ(rows_told(text + std::string(10'000, ' ') + "\n", ""), 7U);
}

TEST(NpyHeader, OtherShapesAreRefused) {
  for (const char* const shape :
       {"()", "(2, 3)", "(2,3,)", "(5)", "5", "(,)", "(-1,)", "(+1,)", "(007,)", "( 5,)", "(5 ,)",
        "(5, )", "(5L,)", "(0x5,)", "(5.0,)", "(18446744073709551616,)", "", "(", ",)"}) {
    expect_refused(text_for(shape),
                   "has the shape `" + std::string(shape) + "`, not that of one list, `(N,)`");
  }
}

TEST(NpyHeader, OtherRowsAreRefused) {
  for (const char* const rows :
       {"'<f8'", "[('channel', '|u1'), ('timestamp_ps', '<i8')]",
        "[('timestamp_ps', '<i8'), ('channel', '|u1'), ('', '|V7')]",
        "[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '>i8')]",
        "[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<u8')]",
        "[('channel', '|i1'), ('', '|V7'), ('timestamp_ps', '<i8')]",
        "[('channel', '|u1'), ('', '|V3'), ('timestamp_ps', '<i8')]",
        "[('channel', '|u1'), ('', '|V7'), ('time_ps', '<i8')]",
        "[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8'), ('', '|V8')]", ""}) {
    expect_refused(text_of(rows, "False", "(1,)") + '\n',
                   "has rows of the type `" + std::string(rows) + "`, not `" + type + '`');
  }
}

TEST(NpyHeader, FortranOrderIsRefused) {
  expect_refused(text_of(type, "True", "(1,)") + '\n', "has rows in Fortran order");
}

TEST(NpyHeader, WhatNumPyDoesNotWriteIsRefused) {
  const std::string good = text_of(type, "False", "(1,)");
  for (const std::string& text :
       {std::string(), std::string("\n"), std::string("{}\n"), good, good + "  ", good + "\n\n",
        good + "\n ", good + "\t\n", good + " x\n", good + std::string(1, '\0') + "\n",
        ' ' + good + '\n', text_of(type, "false", "(1,)") + '\n', text_of(type, "0", "(1,)") + '\n',
        good.substr(0, good.size() - 1) + '\n',
        "{'fortran_order': False, 'descr': " + type + ", 'shape': (1,), }\n",
        "{\"descr\": " + type + ", 'fortran_order': False, 'shape': (1,), }\n",
        "{'descr': " + type + ", 'fortran_order': False, 'shape': (1,)}\n"}) {
    expect_refused(text, "is not as NumPy writes it");
  }
}

// Whatever stands there is shown in one line.
TEST(NpyHeader, ControlCharactersAreWrittenOut) {
  expect_refused(text_of("\x1b[2J\n", "False", "(1,)") + '\n',
                 "has rows of the type `\\x1b[2J\\n`, not `" + type + '`');
}

}  // namespace
}  // namespace zelk::simulator::npy
