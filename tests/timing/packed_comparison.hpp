// Compares the product's packed_delta decoder with the literal one: after every
// call the tags, the bytes left and the whole state must be the same, and at the
// end of a stream the debug lines.
//
// The literal alignment search reads every bit of the pending bytes thousands
// of times, so most streams are short, and the shorter the chunks, the shorter
// the stream.
#pragma once

#include <algorithm>
#include <bit>
#include <optional>
#include <sstream>

#include "tests/timing/packed_stream_generator.hpp"

namespace zelk::test_support {

using reference::LiteralPackedDecoder;
using timing::StreamDecoder;
using timing::TimeTag;

class Difference {
 public:
  template <typename Expected, typename Actual>
  void field(const char* name, const Expected& expected, const Actual& actual) {
    if (!found_ && !(expected == actual)) {
      found_ = std::string(name) + ": expected " + ::testing::PrintToString(expected) + ", is " +
               ::testing::PrintToString(actual);
    }
  }

  [[nodiscard]] const std::optional<std::string>& found() const { return found_; }

 private:
  std::optional<std::string> found_;
};

inline void compare_state(Difference& d, const LiteralPackedDecoder& a, const StreamDecoder& b) {
  d.field("packed_locked", a.packed_locked, b.packed_locked);
  d.field("bit_offset", a.bit_offset, b.bit_offset);
  d.field("bytes pending", a.pending.size(), b.pending.size());
  d.field("pending is the same", a.pending == b.pending, true);
  d.field("packed_last_ps", a.packed_last_ps, b.packed_last_ps);
  d.field("packed_has_time", a.packed_has_time, b.packed_has_time);
  d.field("packed_overflow", a.packed_overflow, b.packed_overflow);
  d.field("packed_last_delta", a.packed_last_delta, b.packed_last_delta);
  d.field("packed_last_emitted_ps", a.packed_last_emitted_ps, b.packed_last_emitted_ps);
  d.field("packed_emitted", a.packed_emitted, b.packed_emitted);
  d.field("packed_shift", a.packed_shift, b.packed_shift);
  d.field("sync_chunks_left", a.sync_chunks_left, b.sync_chunks_left);
  d.field("sync_channel", a.sync_channel, b.sync_channel);
  d.field("sync_value", a.sync_value, b.sync_value);
  d.field("sync_value_bits", a.sync_value_bits, b.sync_value_bits);
  d.field("pending_sync_channel", a.pending_sync_channel, b.pending_sync_channel);
  d.field("pending_sync_base_ps", a.pending_sync_base_ps, b.pending_sync_base_ps);
  d.field("debug_lines", a.debug_lines, b.debug_lines);
}

inline std::string as_text(const TimeTag& tag) {
  return "channel " + std::to_string(tag.channel) + " at " + std::to_string(tag.timestamp_ps);
}

inline void compare_tags(Difference& d, const Tags& a, const Tags& b) {
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    if (!(a[i] == b[i])) {
      d.field(("tag " + std::to_string(i)).c_str(), as_text(a[i]), as_text(b[i]));
    }
  }
  d.field("tags in number", a.size(), b.size());
}

// One stream and the way it is handed over.
struct PackedCase {
  std::uint64_t seed = 0;
  PackedStream stream;
  std::vector<std::uint8_t> bytes;
  std::size_t chunk_bytes = 1;
  bool is_chunk_random = false;  // chunks of 1 to chunk_bytes
  // A lost lock is given back before every call, with times or without.
  enum class Lock { found, given, given_with_times, given_with_extremes } lock = Lock::found;
  bool is_debug_on = true;
};

// Gives both decoders the same times, most of them next to some threshold.
inline void give_times(LiteralPackedDecoder& a, StreamDecoder& b, Random& random) {
  constexpr std::int64_t epoch = 14'315'125'997'568;
  for (std::size_t ch = 0; ch < 4; ++ch) {
    const auto near = static_cast<std::int64_t>(random.pick(packed_thresholds_ps)) +
                      static_cast<std::int64_t>(random.below(33)) - 16;
    const bool is_extreme = random.percent(2);
    a.packed_last_ps[ch] = is_extreme           ? static_cast<std::int64_t>(random.bits())
                           : random.percent(10) ? -near
                           : random.percent(50) ? near
                                                : 3 * epoch - near;
    b.packed_last_ps[ch] = a.packed_last_ps[ch];
    a.packed_has_time[ch] = b.packed_has_time[ch] = random.percent(70);
    a.packed_last_emitted_ps[ch] = b.packed_last_emitted_ps[ch] = near;
    a.packed_emitted[ch] = b.packed_emitted[ch] = random.percent(30);
  }
}

// Gives both decoders a state in which some sum is about to leave its range, and
// some channels that no plain tag can come on.
inline void give_extremes(LiteralPackedDecoder& a, StreamDecoder& b, Random& random) {
  constexpr std::uint64_t top = std::uint64_t{1} << 63;
  const int units_shift = static_cast<int>(b.packed_bits) + b.packed_shift;
  for (std::size_t ch = 0; ch < 4; ++ch) {
    const std::uint64_t near = random.below(5) - 2;
    a.packed_last_ps[ch] = b.packed_last_ps[ch] = static_cast<std::int64_t>(
        near + random.pick(std::array<std::uint64_t, 4>{0, top, top - (1 << 20), top / 2}));
    a.packed_overflow[ch] = b.packed_overflow[ch] =
        random.percent(40)
            ? 0
            : near + random.pick(std::array<std::uint64_t, 6>{
                         0, top, top >> units_shift, (top / 2) >> units_shift,
                         random.pick(packed_thresholds_ps) >> units_shift, std::uint64_t{1} << 32});
    a.packed_has_time[ch] = b.packed_has_time[ch] = random.percent(80);
  }
  if (random.percent(30)) {
    a.pending_sync_channel = b.pending_sync_channel = static_cast<std::int32_t>(random.below(4));
    a.pending_sync_base_ps = b.pending_sync_base_ps = random.bits() >> random.below(64);
  }
}

inline std::string seed_and_call(const PackedCase& c, std::size_t call) {
  std::ostringstream out;
  out << "seed " << c.seed << ", call " << call << " (bits " << c.stream.bits << ", quantum "
      << c.stream.quantum_ps << ", mask " << c.stream.mask << ", "
      << (c.stream.mode == internal_mode ? "internal" : "external") << ", " << c.bytes.size()
      << " bytes by " << c.chunk_bytes << "): ";
  return out.str();
}

// Feeds the stream to both; the text tells the first difference in the calls.
inline std::optional<std::string> first_difference(const PackedCase& c,
                                                   LiteralPackedDecoder& literal,
                                                   StreamDecoder& product, std::size_t& tags_seen) {
  Random random(c.seed ^ 0x5EED);
  std::size_t call = 0;
  Tags reused;
  for (std::size_t done = 0; done < c.bytes.size(); ++call) {
    const std::size_t chunk = c.is_chunk_random ? 1 + random.below(c.chunk_bytes) : c.chunk_bytes;
    const std::size_t size = std::min(chunk, c.bytes.size() - done);
    if (c.lock != PackedCase::Lock::found && !literal.packed_locked && !product.packed_locked) {
      literal.packed_locked = product.packed_locked = true;
      literal.bit_offset = product.bit_offset = done == 0 ? 0 : random.below(8);
      if (c.lock == PackedCase::Lock::given_with_times) {
        give_times(literal, product, random);
      }
      if (c.lock == PackedCase::Lock::given_with_extremes) {
        give_extremes(literal, product, random);
      }
    }
    const Tags expected = literal.feed(c.bytes.data() + done, size);
    if (call % 2 == 0) {
      reused = product.feed(c.bytes.data() + done, size);
    } else {
      product.feed(c.bytes.data() + done, size, reused);
    }
    tags_seen += expected.size();
    Difference difference;
    compare_tags(difference, expected, reused);
    compare_state(difference, literal, product);
    if (difference.found()) {
      return seed_and_call(c, call) + *difference.found();
    }
    done += size;
  }
  return std::nullopt;
}

// How far a group of streams got: a group that never reaches the decoder's
// inner rules would compare nothing.
struct Reached {
  std::size_t tags = 0;
  std::size_t lines = 0;
};

inline std::optional<std::string> compare(const PackedCase& c, Reached& reached) {
  std::optional<PackedDebugSwitch> debug;
  if (c.is_debug_on) {
    debug.emplace();
  }
  LiteralPackedDecoder literal = make_packed_decoder<LiteralPackedDecoder>(c.stream);
  StreamDecoder product = make_packed_decoder<StreamDecoder>(c.stream);
  std::optional<std::string> difference;
  const Lines actual = lines_written(
      product, [&] { difference = first_difference(c, literal, product, reached.tags); });
  reached.lines += actual.size();
  const Lines& expected = literal.written_lines;
  for (std::size_t i = 0; !difference && i < std::max(expected.size(), actual.size()); ++i) {
    const std::string none = "<no line>";
    const std::string& a = i < expected.size() ? expected[i] : none;
    const std::string& b = i < actual.size() ? actual[i] : none;
    if (a != b) {
      difference = seed_and_call(c, 0) + "debug line " + std::to_string(i) + ": expected \"" + a +
                   "\", is \"" + b + "\"";
    }
  }
  return difference;
}

inline constexpr std::size_t packed_chunk_sizes[] = {1,  2,   3,    5,     7,     16,
                                                     64, 256, 1024, 65536, 262144};

// Hands the stream over in chunks of at least the given size, and as large as it
// takes to keep the literal search affordable if no call finds an alignment.
inline void choose_chunks(PackedCase& c, std::size_t least_bytes, std::uint64_t budget_bits) {
  const bool is_one_channel = std::popcount(c.stream.mask & 0xF) == 1;
  const std::uint64_t starts = std::min<std::uint64_t>(is_one_channel ? 17 : 65, c.bytes.size());
  const std::uint64_t one_probe = starts * (c.stream.bits + 3) * 8 * c.bytes.size();
  for (const std::size_t size : packed_chunk_sizes) {
    c.chunk_bytes = size;
    if (size >= least_bytes && one_probe * (c.bytes.size() / size) / 2 <= budget_bits) {
      return;
    }
  }
}

inline Reached compare_all(const std::vector<PackedCase>& cases) {
  Reached reached;
  for (const PackedCase& c : cases) {
    if (const auto difference = compare(c, reached)) {
      ADD_FAILURE() << *difference;
      break;
    }
  }
  return reached;
}

}  // namespace zelk::test_support
