// Seeded byte streams for the decoder's property tests: well-formed ones,
// damaged ones and noise that is rich in almost valid words. The same seed
// gives the same stream on every platform. One object belongs to one test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <vector>

#include "tests/support/wire_words.hpp"
#include "timing/time_tag.hpp"

namespace zelk::test_support {

class RandomStreams {
 public:
  explicit RandomStreams(std::uint64_t seed) : random_(seed) {}

  // A whole number from 0 to `count` - 1.
  std::uint64_t below(std::uint64_t count) { return random_() % count; }
  bool one_in(std::uint64_t count) { return below(count) == 0; }
  std::uint64_t any() { return random_(); }

  template <typename T>
  T one_of(std::initializer_list<T> choices) {
    return choices.begin()[below(choices.size())];
  }

  // raw64 records of both layouts, with timestamps near the places where they
  // are reduced or unwrapped. Nothing but valid records.
  Bytes ps_records(std::size_t count);
  Bytes cf_records(std::size_t count);

  // Bytes that often look like the beginning of a raw64 record.
  Bytes raw64_noise(std::size_t size);

  // A delta32 stream that no decoder loses its lock on, and the tags in it.
  struct Delta32Recording {
    Bytes bytes;
    std::vector<timing::TimeTag> tags;
  };
  Delta32Recording delta32_recording(std::size_t tag_count);

  // delta32 words of every kind, most of them where they may stand.
  Bytes delta32_words(std::size_t count);

  // Bytes that often form a sync word, or nearly one.
  Bytes delta32_noise(std::size_t size);

  // Flips bits, and inserts and removes bytes, about once in `spacing` bytes.
  Bytes damaged(const Bytes& bytes, std::uint64_t spacing);

  // Sizes that add up to `total`, each from 1 to `longest`.
  std::vector<std::size_t> chunk_sizes(std::size_t total, std::size_t longest);

 private:
  Bytes delta32_group();
  std::uint32_t delta32_stray_word();
  std::uint64_t base_time();

  std::mt19937_64 random_;
};

}  // namespace zelk::test_support
