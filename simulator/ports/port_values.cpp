#include "simulator/ports/port_values.hpp"

#include <algorithm>
#include <array>

#include "simulator/ports/named_ports.hpp"
#include "simulator/ports/number_text.hpp"
#include "simulator/shown_text.hpp"

namespace zelk::simulator {
namespace {

// A key's own statuses, from its row.
constexpr std::int32_t first_value_status = -100;
constexpr std::int32_t first_place_status = -200;
static_assert(port_keys.size() <= 100);

// A fixed text put together at compile time.
class Text {
 public:
  constexpr Text& add(std::string_view part) {
    for (const char c : part) {
      chars_.at(size_++) = c;
    }
    chars_.at(size_) = '\0';
    return *this;
  }

  constexpr Text& add(std::int64_t number) {
    if (number < 0) {
      add("-");
      number = -number;
    }
    std::array<char, 20> digits{};
    std::size_t first = digits.size();
    do {
      digits[--first] = static_cast<char>('0' + number % 10);
      number /= 10;
    } while (number != 0);
    return add(std::string_view(digits.data() + first, digits.size() - first));
  }

  [[nodiscard]] constexpr const char* c_str() const { return chars_.data(); }
  [[nodiscard]] std::string string() const { return {chars_.data(), size_}; }

 private:
  std::array<char, 160> chars_{};
  std::size_t size_ = 0;
};

constexpr Text value_text(const PortKey& key) {
  Text text;
  text.add("port key ").add(key.name).add(" takes ");
  if (key.kind == KeyKind::words) {
    return text.add(key.unit);
  }
  text.add(key.kind == KeyKind::whole ? "a whole number from " : "a number from ");
  text.add(key.lowest).add(" to ").add(key.highest);
  if (!key.unit.empty()) {
    text.add(" ").add(key.unit);
  }
  return text.add(key.per_channel ? ", or four of them" : "");
}

constexpr Text place_text(const PortKey& key) {
  return Text().add("port key ").add(key.name).add(" does not go with this port");
}

using Texts = std::array<Text, port_keys.size()>;

constexpr Texts texts_of(Text (*text_of)(const PortKey&)) {
  Texts texts{};
  std::transform(port_keys.begin(), port_keys.end(), texts.begin(), text_of);
  return texts;
}

constexpr Texts value_texts = texts_of(value_text);
constexpr Texts place_texts = texts_of(place_text);

const char* text_at(const Texts& texts, std::int64_t row) {
  return row >= 0 && row < static_cast<std::int64_t>(texts.size())
             ? texts[static_cast<std::size_t>(row)].c_str()
             : nullptr;
}

Status status_of(std::int32_t first, std::size_t row) {
  return static_cast<Status>(first - static_cast<std::int32_t>(row));
}

template <typename Number>
Number number_in_range(std::string_view text, std::size_t row) {
  const PortKey& key = port_keys[row];
  const std::optional<Number> number = number_from<Number>(text);
  // In this form a comparison with "not a number" refuses it.
  if (!number || !(*number >= static_cast<Number>(key.lowest) &&
                   *number <= static_cast<Number>(key.highest))) {
    throw bad_value(row, text);
  }
  return *number;
}

// Whether the item may be the rest of a path that was cut at a "&" or "?".
bool stands_behind_path(const PortQuery::Item& item) {
  if (item.escape == escaped_question_mark) {
    return !item.before.empty();
  }
  const std::string_view key = std::string_view(item.before).substr(0, item.before.find('='));
  return std::ranges::any_of(
      port_keys, [&](const PortKey& known) { return known.name == key && known.unit == "a path"; });
}

std::string taken_or_default(PortQuery& query, std::size_t row) {
  const PortKey& key = port_keys[row];
  return query.take(key.name).value_or(std::string(key.standard));
}

}  // namespace

Failure bad_value(std::size_t row, std::string_view value) {
  return {status_of(first_value_status, row), value_texts[row].string() + ", not " + quoted(value)};
}

const char* key_status_text(std::int32_t status) noexcept {
  const char* const text = text_at(value_texts, std::int64_t{first_value_status} - status);
  return text != nullptr ? text : text_at(place_texts, std::int64_t{first_place_status} - status);
}

std::optional<std::string> take_words(PortQuery& query, std::size_t row) {
  const PortKey& key = port_keys[row];
  std::optional<std::string> words = query.take(key.name);
  if (!words && !key.standard.empty()) {
    words = key.standard;
  }
  return words;
}

std::int64_t take_whole(PortQuery& query, std::size_t row) {
  return number_in_range<std::int64_t>(taken_or_default(query, row), row);
}

double take_number(PortQuery& query, std::size_t row) {
  return number_in_range<double>(taken_or_default(query, row), row);
}

std::optional<double> take_optional_number(PortQuery& query, std::size_t row) {
  const std::optional<std::string> text = query.take(port_keys[row].name);
  return text ? std::optional(number_in_range<double>(*text, row)) : std::nullopt;
}

ChannelNumbers take_channel_numbers(PortQuery& query, std::size_t row) {
  const std::string text = taken_or_default(query, row);
  ChannelNumbers numbers{};
  if (text.find(',') == text.npos) {
    numbers.fill(number_in_range<double>(text, row));
    return numbers;
  }
  std::string_view rest = text;
  for (std::size_t channel = 0; channel < numbers.size(); ++channel) {
    const std::size_t comma = rest.find(',');
    const bool is_last = channel + 1 == numbers.size();
    if (is_last != (comma == rest.npos)) {
      throw bad_value(row, text);
    }
    numbers[channel] = number_in_range<double>(rest.substr(0, comma), row);
    rest.remove_prefix(is_last ? rest.size() : comma + 1);
  }
  return numbers;
}

Pace take_pace(PortQuery& query) {
  return take_choice<Pace>(query, key_row("pace"),
                           {{"real", Pace::real_time}, {"max", Pace::as_read}})
      .value();
}

std::uint32_t take_seed(PortQuery& query) {
  return static_cast<std::uint32_t>(take_whole(query, key_row("seed")));
}

void expect_all_taken(const PortQuery& query, std::uint32_t kind) {
  const PortQuery::Item* const left = query.first_left();
  if (left == nullptr) {
    return;
  }
  for (std::size_t row = 0; row < port_keys.size(); ++row) {
    if (port_keys[row].name == left->key) {
      throw Failure(
          status_of(first_place_status, row),
          place_texts[row].string() + "; it goes with " + ports_text(port_keys[row].ports));
    }
  }
  std::string hint = key_suggestion(left->key, kind);
  if (hint.empty() && stands_behind_path(*left)) {
    hint = " (if it belongs to the path before it, " +
           joined_text(left->before, left->escape, left->key + '=' + left->value) + ')';
  }
  throw Failure(Status::unknown_port_key,
                "unknown key " + named(left->key) + hint + ": " + keys_text(kind));
}

Failure missing_key(std::size_t row, std::string_view who_needs_it, std::string_view value) {
  const std::string name(port_keys[row].name);
  return {Status::missing_port_key, "missing key " + named(name) + ": " +
                                        std::string(who_needs_it) + " needs " + name + '=' +
                                        std::string(value)};
}

}  // namespace zelk::simulator
