#include "simulator/signals/tag_file_bytes.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "simulator/shown_text.hpp"

namespace zelk::simulator {
namespace {

Failure not_opened(const std::string& path, int reason) {
  const bool holds_mark = path.find('?') != path.npos;
  return {Status::cannot_open_tag_file,
          "cannot open the tag file " + named(path) + ": " +
              std::generic_category().message(reason) +
              (holds_mark ? " (a `?` in the path is a part of it; keys are joined by `&`)" : "")};
}

}  // namespace

Failure unreadable_tag_file(const std::string& path, const std::string& reason) {
  return {Status::cannot_read_tag_file, "cannot read the tag file " + named(path) + ": " + reason};
}

TagFileBytes::TagFileBytes(const std::string& path) : path_(path) {
  // A pipe without a writer would hold the open for ever.
  std::error_code error;
  const auto kind = std::filesystem::status(path, error).type();
  if (kind != std::filesystem::file_type::regular &&
      kind != std::filesystem::file_type::not_found && kind != std::filesystem::file_type::none) {
    throw unreadable_tag_file(path, "it is no plain file");
  }
  file_.reset(std::fopen(path.c_str(), "rbe"));
  if (!file_) {
    throw not_opened(path, errno);
  }
}

std::uint64_t TagFileBytes::size_bytes() const {
  struct stat file {};
  if (fstat(fileno(file_.get()), &file) != 0) {
    throw unreadable_tag_file(path_, std::generic_category().message(errno));
  }
  return static_cast<std::uint64_t>(file.st_size);
}

std::size_t TagFileBytes::read(std::span<char> bytes) {
  const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), file_.get());
  if (std::ferror(file_.get()) != 0) {
    throw unreadable_tag_file(path_, std::generic_category().message(errno));
  }
  return got;
}

}  // namespace zelk::simulator
