// What each key accepts and which field it sets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "smoke_test/config.hpp"
#include "tests/smoke_test/config_arguments.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::Transport;

constexpr std::int64_t smallest_int64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest_int64 = std::numeric_limits<std::int64_t>::max();

TEST(Options, EachKeySetsItsOwnFieldOnly) {
  struct Row {
    const char* argument;
    const char* field;
  };
  const std::vector<Row> rows{
      {"port=x", "port"},
      {"control_port=x", "port"},
      {"serial=x", "serial"},
      {"save_tags=x.npy", "tags_file"},
      {"list=1", "list"},
      {"transport=uart", "transport"},
      {"mode=external", "mode"},
      {"capture_s=7", "capture_s"},
      {"format=raw64", "format"},
      {"cal_freq_hz=7", "cal_freq_hz"},
      {"threshold_v=7", "threshold_v"},
      {"channel_mask=7", "channel_mask"},
      {"channel_a=7", "channel_a"},
      {"channel_b=7", "channel_b"},
      {"coincidence_window_ps=7", "coincidence_window_ps"},
      {"packed_bits=7", "packed_bits"},
      {"packed_quantum_ps=7", "packed_quantum_ps"},
      {"bin_s=7", "bin_s"},
      {"queue_limit=7", "queue_limit"},
      {"dead_time_ps=7", "dead_time_ps"},
      {"dead_time_ns=7", "dead_time_ps"},
      {"load_calibration=0", "load_calibration"},
      {"tdl_mask=1", "tdl_mask"},
      {"ref=external", "ref_source"},
      {"reference=external", "ref_source"},
      {"reference_clock=external", "ref_source"},
      {"ref=none", "set_reference"},
      {"reference=none", "set_reference"},
      {"reference_clock=none", "set_reference"},
      {"ref_signal=1pps", "ref_signal"},
      {"reference_signal=1pps", "ref_signal"},
      {"byte_probe=1", "byte_probe"},
      {"bytes=1", "byte_probe"},
      {"strict=1", "strict"},
  };
  for (const Row& row : rows) {
    EXPECT_THAT(changed_fields(config_from({row.argument})), ElementsAre(row.field))
        << row.argument;
  }
}

TEST(Options, KeysAreCaseInsensitive) {
  EXPECT_EQ(config_from({"PORT=x"}).port, "x");
  EXPECT_EQ(config_from({"Control_Port=x"}).port, "x");
  EXPECT_EQ(config_from({"cOiNcIdEnCe_WiNdOw_Ps=5"}).coincidence_window_ps, 5);
  Config config;
  apply_arg(config, "BYTES", "1");
  EXPECT_TRUE(config.byte_probe);
}

TEST(PortOption, KeepsCaseAndWhiteSpace) {
  EXPECT_EQ(config_from({"port=FTDI://AbC 1 "}).port, "FTDI://AbC 1 ");
}

TEST(PortOption, IsRememberedAsGivenWhateverItsValue) {
  EXPECT_FALSE(config_from({"serial=ftdi://", "por=x"}).port_given);
  EXPECT_TRUE(config_from({"port="}).port_given);
  EXPECT_TRUE(config_from({"control_port=ftdi://"}).port_given);
}

TEST(SerialOption, KeepsCaseAndWhiteSpace) {
  EXPECT_EQ(config_from({"serial= aB 1 "}).serial, " aB 1 ");
  EXPECT_EQ(config_from({"serial=A", "SERIAL=b=c"}).serial, "b=c");
}

TEST(SaveTagsOption, KeepsTheLastNameAsItIs) {
  EXPECT_EQ(config_from({"save_tags=a.npy", "--Save_Tags= b=c.csv"}).tags_file, " b=c.csv");
}

TEST(TransportOption, EveryUnknownTextMeansUsb) {
  for (const char* argument : {"transport=usb", "transport=USB", "transport=", "transport=foo",
                               "transport=usb_async ", "transport=uart2"}) {
    EXPECT_EQ(config_from({"transport=uart", argument}).transport, Transport::usb) << argument;
  }
  EXPECT_EQ(config_from({"transport=uart"}).transport, Transport::uart);
  EXPECT_EQ(config_from({"transport=UArt"}).transport, Transport::uart);
}

TEST(ModeOption, EveryUnknownTextMeansInternal) {
  EXPECT_EQ(config_from({"mode=external"}).mode, StreamMode::external);
  EXPECT_EQ(config_from({"mode=EXT"}).mode, StreamMode::external);
  for (const char* argument : {"mode=internal", "mode=", "mode=1", "mode=extern"}) {
    EXPECT_EQ(config_from({"mode=ext", argument}).mode, StreamMode::internal) << argument;
  }
}

TEST(FormatOption, AcceptsTheShortAndLongNames) {
  for (const char* argument : {"format=packed", "format=packed_delta", "format=Packed-Delta"}) {
    EXPECT_EQ(config_from({"format=raw", argument}).format, Format::packed_delta) << argument;
  }
  for (const char* argument : {"format=delta32", "format=delta", "format=DELTA"}) {
    EXPECT_EQ(config_from({argument}).format, Format::delta32) << argument;
  }
  for (const char* argument : {"format=raw64", "format=raw", "format=RAW64"}) {
    EXPECT_EQ(config_from({argument}).format, Format::raw64) << argument;
  }
}

TEST(FloatingPointOptions, SetTheirFields) {
  EXPECT_EQ(config_from({"capture_s=0.25"}).capture_s, 0.25);
  EXPECT_EQ(config_from({"cal_freq_hz=1.5e6"}).cal_freq_hz, 1500000.0);
  EXPECT_EQ(config_from({"threshold_v=-0.75"}).threshold_v, -0.75);
  EXPECT_EQ(config_from({"bin_s=.5"}).bin_s, 0.5);
}

TEST(FloatingPointOptions, SkipLeadingWhiteSpaceAndIgnoreTrailingText) {
  EXPECT_EQ(config_from({"capture_s=5ms"}).capture_s, 5.0);
  EXPECT_EQ(config_from({"capture_s= \t2 s"}).capture_s, 2.0);
}

TEST(FloatingPointOptions, AcceptHexadecimalInfinityAndNan) {
  EXPECT_EQ(config_from({"capture_s=0x1p3"}).capture_s, 8.0);
  EXPECT_EQ(config_from({"threshold_v=-inf"}).threshold_v,
            -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(config_from({"threshold_v=1", "threshold_v=nan"}).threshold_v));
}

TEST(ChannelOptions, AreReadInBaseTen) {
  EXPECT_EQ(config_from({"channel_a=010"}).channel_a, 10);
  EXPECT_EQ(config_from({"channel_b=0x3"}).channel_b, 0);
  EXPECT_EQ(config_from({"channel_a=-2147483648"}).channel_a, -2147483647 - 1);
  EXPECT_EQ(config_from({"channel_b= +2x"}).channel_b, 2);
}

TEST(CoincidenceWindowOption, TakesTheWholeSignedRange) {
  EXPECT_EQ(config_from({"coincidence_window_ps=9223372036854775807"}).coincidence_window_ps,
            largest_int64);
  EXPECT_EQ(config_from({"coincidence_window_ps=-9223372036854775808"}).coincidence_window_ps,
            smallest_int64);
  EXPECT_EQ(config_from({"coincidence_window_ps=500ps"}).coincidence_window_ps, 500);
}

TEST(QueueLimitOption, TakesTheWholeUnsignedRangeAndWrapsBelowZero) {
  EXPECT_EQ(config_from({"queue_limit=18446744073709551615"}).queue_limit,
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(config_from({"queue_limit=-1"}).queue_limit, std::numeric_limits<std::uint64_t>::max());
}

TEST(PackedOptions, KeepTheLowBitsOfTheNumber) {
  EXPECT_EQ(config_from({"packed_bits=300"}).packed_bits, 44);
  EXPECT_EQ(config_from({"packed_bits=256"}).packed_bits, 0);
  EXPECT_EQ(config_from({"packed_bits=-1"}).packed_bits, 255);
  EXPECT_EQ(config_from({"packed_bits=012"}).packed_bits, 12);
  EXPECT_EQ(config_from({"packed_bits=0x12"}).packed_bits, 0);
  EXPECT_EQ(config_from({"packed_quantum_ps=65537"}).packed_quantum_ps, 1);
  EXPECT_EQ(config_from({"packed_quantum_ps=300"}).packed_quantum_ps, 300);
  EXPECT_EQ(config_from({"packed_quantum_ps=-1"}).packed_quantum_ps, 65535);
}

TEST(MaskOptions, KeepTheBitsThatExist) {
  EXPECT_EQ(config_from({"channel_mask=0x1F"}).channel_mask, 0x0F);
  EXPECT_EQ(config_from({"channel_mask=16"}).channel_mask, 0);
  EXPECT_EQ(config_from({"channel_mask=-1"}).channel_mask, 0x0F);
  EXPECT_EQ(config_from({"tdl_mask=0xFF"}).tdl_mask, 0x1F);
  EXPECT_EQ(config_from({"tdl_mask=32"}).tdl_mask, 0);
}

TEST(MaskOptions, AreHexadecimalOnlyAfterThePrefix) {
  EXPECT_EQ(config_from({"tdl_mask=12"}).tdl_mask, 12);
  EXPECT_EQ(config_from({"tdl_mask=010"}).tdl_mask, 10);
  EXPECT_EQ(config_from({"tdl_mask=0X12"}).tdl_mask, 18);
  EXPECT_EQ(config_from({"channel_mask=3"}).channel_mask, 3);
  EXPECT_EQ(config_from({"channel_mask=0xa"}).channel_mask, 10);
}

TEST(DeadTimeOption, NanosecondsBecomePicoseconds) {
  EXPECT_EQ(config_from({"dead_time_ns=1.5"}).dead_time_ps, 1500);
  EXPECT_EQ(config_from({"dead_time_ns=0"}).dead_time_ps, 0);
  EXPECT_EQ(config_from({"dead_time_ns=9.2e15"}).dead_time_ps, 9'200'000'000'000'000'000);
}

TEST(DeadTimeOption, HalfPicosecondsAreRoundedAwayFromZero) {
  EXPECT_EQ(config_from({"dead_time_ns=0.0625"}).dead_time_ps, 63);    // 62.5 ps
  EXPECT_EQ(config_from({"dead_time_ns=-0.0625"}).dead_time_ps, -63);  // -62.5 ps
  EXPECT_EQ(config_from({"dead_time_ns=0.0624"}).dead_time_ps, 62);
}

TEST(DeadTimeOption, NegativeValuesStayNegativeAndSoUnset) {
  EXPECT_EQ(config_from({"dead_time_ns=-1"}).dead_time_ps, -1000);
  EXPECT_EQ(config_from({"dead_time_ps=-5"}).dead_time_ps, -5);
}

TEST(DeadTimeOption, NanosecondsThatDoNotFitAreUnset) {
  for (const char* argument :
       {"dead_time_ns=9.3e15", "dead_time_ns=-9.3e15", "dead_time_ns=1e300", "dead_time_ns=1e308",
        "dead_time_ns=inf", "dead_time_ns=-inf", "dead_time_ns=nan"}) {
    EXPECT_EQ(config_from({"dead_time_ps=7", argument}).dead_time_ps, smallest_int64) << argument;
  }
}

TEST(BooleanOptions, FourTextsMeanFalse) {
  for (const std::string text : {"0", "false", "no", "off", "OFF", "False", "nO"}) {
    EXPECT_FALSE(config_from({"load_calibration=" + text}).load_calibration) << text;
    EXPECT_FALSE(config_from({"byte_probe=1", "byte_probe=" + text}).byte_probe) << text;
    EXPECT_FALSE(config_from({"byte_probe=1", "bytes=" + text}).byte_probe) << text;
  }
}

TEST(BooleanOptions, EveryOtherTextMeansTrue) {
  for (const std::string text : {"", "1", "yes", "true", "on", "00", "n", "disabled", " off"}) {
    EXPECT_TRUE(config_from({"load_calibration=0", "load_calibration=" + text}).load_calibration)
        << text;
    EXPECT_TRUE(config_from({"byte_probe=" + text}).byte_probe) << text;
    EXPECT_TRUE(config_from({"bytes=" + text}).byte_probe) << text;
  }
}

TEST(ReferenceOption, NamesASource) {
  for (const std::string key : {"ref=", "reference=", "reference_clock="}) {
    EXPECT_EQ(config_from({key + "external"}).ref_source, ReferenceClockSource::external);
    EXPECT_EQ(config_from({key + "EXT"}).ref_source, ReferenceClockSource::external);
    EXPECT_EQ(config_from({key + "Auto"}).ref_source, ReferenceClockSource::automatic);
    EXPECT_EQ(config_from({"ref=ext", key + "internal"}).ref_source,
              ReferenceClockSource::internal);
  }
}

TEST(ReferenceOption, UnknownTextsMeanInternal) {
  for (const char* argument : {"reference=bogus", "reference=", "reference=2"}) {
    const Config config = config_from({"ref=ext", "ref=off", argument});
    EXPECT_EQ(config.ref_source, ReferenceClockSource::internal) << argument;
    EXPECT_TRUE(config.set_reference) << argument;
  }
}

TEST(ReferenceOption, LeavingTheClockAloneKeepsTheSource) {
  for (const char* argument : {"reference=unchanged", "ref=none", "reference_clock=OFF"}) {
    const Config config = config_from({"ref=external", argument});
    EXPECT_EQ(config.ref_source, ReferenceClockSource::external) << argument;
    EXPECT_FALSE(config.set_reference) << argument;
  }
}

TEST(ReferenceOption, ALaterSourceProgramsTheClockAgain) {
  const Config config = config_from({"ref=none", "ref=auto"});
  EXPECT_TRUE(config.set_reference);
  EXPECT_EQ(config.ref_source, ReferenceClockSource::automatic);
}

TEST(ReferenceSignalOption, EveryUnknownTextMeansTenMegahertz) {
  for (const std::string key : {"ref_signal=", "reference_signal="}) {
    EXPECT_EQ(config_from({key + "1pps"}).ref_signal, ReferenceSignal::one_pps);
    EXPECT_EQ(config_from({key + "PPS"}).ref_signal, ReferenceSignal::one_pps);
    for (const char* text : {"10mhz", "", "1 pps", "foo"}) {
      EXPECT_EQ(config_from({"ref_signal=pps", key + text}).ref_signal, ReferenceSignal::ten_mhz);
    }
  }
}

}  // namespace
