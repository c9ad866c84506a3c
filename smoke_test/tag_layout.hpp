// How captured tags stand in the file that save_tags= names.
#pragma once

#include <optional>
#include <string_view>

enum class TagLayout { npy, csv };

// What the end of the file's name asks for; nothing for any other end.
inline std::optional<TagLayout> tag_layout_of(std::string_view file_name) {
  return file_name.ends_with(".npy")   ? std::optional(TagLayout::npy)
         : file_name.ends_with(".csv") ? std::optional(TagLayout::csv)
                                       : std::nullopt;
}
