// The stream of a given port and seed never changes: what a host saw once it can
// see again, with any later version of the unit. The sums below were taken from
// the streams when this test was written. They are no statement about what is
// right, which the other tests tell, but that it is still the same. Whoever
// changes a stream on purpose replaces them.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <ios>
#include <ostream>
#include <string>

#include "tests/simulator/unit_streams.hpp"
#include "tests/support/npy_bytes.hpp"
#include "tests/support/parameter_names.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

constexpr std::array<Wire, 4> external_wires{raw64, delta32,
                                             Wire{.name = "packed_delta_16_8",
                                                  .format = timing::Format::packed_delta,
                                                  .bits = 16,
                                                  .quantum_ps = 8},
                                             Wire{.name = "packed_delta_4_1",
                                                  .format = timing::Format::packed_delta,
                                                  .bits = 4,
                                                  .quantum_ps = 1}};

// FNV-1a of 64 bits.
std::uint64_t sum_of(const std::vector<std::uint8_t>& bytes) {
  std::uint64_t sum = 0xCBF29CE484222325;
  for (const std::uint8_t byte : bytes) {
    sum = (sum ^ byte) * 0x100000001B3;
  }
  return sum;
}

// One sum per wire, in their order.
using Sums = std::array<std::uint64_t, external_wires.size()>;

Sums sums_of(const std::string& port, std::size_t size, timing::StreamMode mode) {
  Sums sums{};
  for (std::size_t i = 0; i < sums.size(); ++i) {
    Wire wire = external_wires[i];
    wire.mode = mode;
    const auto bytes = first_bytes(port, wire, size);
    EXPECT_EQ(bytes.size(), size) << wire.name;
    sums[i] = sum_of(bytes);
  }
  return sums;
}

struct KnownStream {
  const char* port;
  std::size_t size;  // bytes from the start that the sums are over
  Sums sums;
  timing::StreamMode mode = timing::StreamMode::external;

  friend std::ostream& operator<<(std::ostream& out, const KnownStream& known) {
    return out << known.port;
  }
};

class KnownStreams : public testing::TestWithParam<KnownStream> {};

TEST_P(KnownStreams, AreTheSameForEver) {
  const KnownStream& known = GetParam();
  const Sums sums = sums_of(known.port, known.size, known.mode);
  for (std::size_t i = 0; i < sums.size(); ++i) {
    EXPECT_EQ(sums[i], known.sums[i]) << external_wires[i].name << ": 0x" << std::hex << sums[i];
  }
}

constexpr timing::StreamMode internal = timing::StreamMode::internal;

INSTANTIATE_TEST_SUITE_P(
    AtFullPace, KnownStreams,
    testing::Values(
        KnownStream{
            "ftdi://?pace=max",
            100'000,
            {0x1C6310F86ED473B9, 0xEC517FCD8C977FE9, 0x18CCD746EF23B980, 0x66B6D475055C6147}},
        KnownStream{
            "ftdi://?pace=max&seed=7",
            100'000,
            {0x848B0F696E84F2F2, 0x1BEC44C19D525B27, 0xAF540C5AEE43D33D, 0x361DF9FE7A403B52},
            internal},
        KnownStream{
            "sim://pulses?pace=max&delay_ps=1,2,3,4",
            100'000,
            {0xC460F2B7CD39C156, 0x3B4FDF8FDFBE6829, 0x8F0E1CFAFA1778D6, 0x71810CAF1C8DB8E4}},
        KnownStream{
            "sim://random?pace=max&rate_hz=1e6&seed=3",
            100'000,
            {0x48796498A9E1F866, 0x334B4A2A1A116E32, 0x0CC6E59FDC72DB6B, 0x8855C7B241A483AF}},
        KnownStream{
            "sim://random?pace=max&rate_hz=2e7&efficiency=0.7&afterpulse_percent=5"
            "&detector_dead_time_ps=20000",
            100'000,
            {0x07BAB7F597E9AC31, 0xFB96CFABA88ECBAC, 0x6B3618A2FF7DA8FF, 0x3924D3A2D4BCD552}},
        KnownStream{
            "sim://pairs?pace=max&background_hz=1e5&drift_ppm=3"
            "&bin_nonuniformity_percent=60&start_epoch=20",
            100'000,
            {0x20648AAC067EFD64, 0x9EAD7373089FA3D8, 0x100497CAD7957B57, 0xE2173B2646789222}},
        KnownStream{
            "sim://burst?pace=max",
            1'000'000,
            {0xA9E24E8679DED6F6, 0x3762EBE76D759C57, 0x87CB4A4AC5DFDF04, 0x1EE1F38A927104A6}},
        KnownStream{
            "sim://burst?pace=max&pause_us=0&link_bytes_per_s=400000000",
            5'000'000,
            {0xAB7384339A3B3D70, 0xE77616406D9DD358, 0xDBBD740B76C2A6CD, 0x2DC5AC32AAA5BBAA}},
        KnownStream{
            "sim://burst?pace=max&pause_us=0&start_bits=13&start_epoch=0.5&drift_ppm=-40",
            1'000'000,
            {0x369605CEED9CB1C2, 0xE882331821B14CC1, 0xB0151BE25897F141, 0xA6F0A7CD41F2B5F1}},
        KnownStream{
            "sim://burst?pace=max&burst_us=7&pause_us=30000&amplitude_v=2.5,0,2.5,2.5",
            20'000,
            {0x040484EA489B657C, 0x5D323DB6BCC967B3, 0x5A47066776C93AD1, 0x23AD68CA8D77E9E7}},
        KnownStream{
            "sim://silent?pace=max&background_hz=1e4,0,0,20",
            20'000,
            {0xA246811DA940FA8E, 0x91F78CA5E8E40E2C, 0x044F1E2D7005778E, 0x6269CF07B6F81EFD}}),
    test_support::printed_parameter);

// Where the link loses tags as well: what it loses depends on the signal alone
// as long as the host's buffer does not fill up, which takes some 20 s here.
INSTANTIATE_TEST_SUITE_P(InRealTime, KnownStreams,
                         testing::Values(KnownStream{"sim://random?rate_hz=20000&seed=4",
                                                     5'000,
                                                     {0xE9F6C2997A0F237F, 0xC9E705CC63506D80,
                                                      0x918DEB8FE57251FD, 0x40AA7CAFDC09DD82}},
                                         KnownStream{
                                             "sim://random?seed=8&rate_hz=100000&fifo_bytes=4096"
                                             "&link_bytes_per_s=200000",
                                             20'000,
                                             {0xD4A6D88B3EB95CCF, 0xFE44D6037815280A,
                                              0xC0D586A4A596798E, 0xDFB232768B5C43CE}},
                                         KnownStream{"sim://burst?burst_us=900&pause_us=1700",
                                                     200'000,
                                                     {0x18F26389E040A3DF, 0xE40DAB2A48378E2D,
                                                      0x1AA44B57094F5320, 0x738BD16FCC076C77}},
                                         KnownStream{"sim://pulses",
                                                     5'000,
                                                     {0xE8699A2218A29794, 0x5A727C1FD09A01D9,
                                                      0x1FC16C12812FCE87, 0x9A1F0EE320397D78},
                                                     internal}),
                         test_support::printed_parameter);

// 6000 tags in steps of up to 2^34 ps, at each length in turn, and with some at
// the same time. As text and as a NumPy array.
struct TagFiles {
  std::string text = "channel,timestamp_ps\n";
  std::string array = test_support::npy_beginning_for(6000);
};

TagFiles known_tag_files() {
  TagFiles files;
  std::uint64_t state = 1;
  std::int64_t time_ps = 123'456'789;
  for (int i = 0; i < 6000; ++i) {
    state = state * 6364136223846793005 + 1442695040888963407;
    time_ps += static_cast<std::int64_t>(state >> (30 + i % 34));
    const int channel = static_cast<int>(state >> 20 & 3);
    files.text += std::to_string(channel) + ',' + std::to_string(time_ps) + '\n';
    files.array += test_support::npy_row(channel, time_ps);
  }
  return files;
}

TEST(KnownTagFile, IsPlayedTheSameForEver) {
  const test_support::TemporaryDirectory directory;
  const std::string path = directory.path() / "tags";
  const std::string port = "sim://tags?pace=max&loop=1&loop_gap_ps=7&file=" + path;
  constexpr Sums known{0xFBA5F366DB7C1E80, 0x455A3ADB2ED2B21E, 0x15C5521A5CF9E0F2,
                       0x4AAC5A67BFDA1410};
  const TagFiles files = known_tag_files();
  for (const std::string* file : {&files.text, &files.array}) {
    std::ofstream(path, std::ios::binary) << *file;
    const Sums sums = sums_of(port, 200'000, timing::StreamMode::external);
    for (std::size_t i = 0; i < sums.size(); ++i) {
      EXPECT_EQ(sums[i], known[i]) << external_wires[i].name << ": 0x" << std::hex << sums[i];
    }
  }
}

}  // namespace
}  // namespace zelk::simulator
