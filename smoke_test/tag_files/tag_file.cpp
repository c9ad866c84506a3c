#include "smoke_test/tag_files/tag_file.hpp"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

#include "smoke_test/tag_files/csv_rows.hpp"
#include "smoke_test/tag_files/npy_rows.hpp"
#include "smoke_test/tag_layout.hpp"

using zelk::timing::TimeTag;

namespace {

// Their rows stay in the caches between being made and being written.
constexpr std::size_t tags_at_once = 8192;

std::runtime_error cannot_write(const std::string& path, const std::string& reason) {
  return std::runtime_error("cannot write the tags to " + path + ": " + reason);
}

void throw_if(std::error_code error, const std::string& path) {
  if (error) {
    throw cannot_write(path, error.message());
  }
}

}  // namespace

struct TagFile::Kind {
  std::size_t most_row_bytes;
  char* (*put_rows)(std::span<const TimeTag> tags, char* at);
  // The file's first bytes, of one length however many rows there are.
  std::string (*header)(std::uint64_t row_bytes);
  bool header_tells_rows;
  // The length of the whole rows at the start of the text.
  std::size_t (*whole_rows)(std::string_view text);
};

const TagFile::Kind& TagFile::kind_of(const std::string& path) {
  static constexpr Kind npy_kind{
      .most_row_bytes = npy::row_bytes,
      .put_rows = npy::put_rows,
      .header = [](std::uint64_t row_bytes) { return npy::header(row_bytes / npy::row_bytes); },
      .header_tells_rows = true,
      .whole_rows =
          [](std::string_view text) { return text.size() - text.size() % npy::row_bytes; },
  };
  static constexpr Kind csv_kind{
      .most_row_bytes = csv::most_row_bytes,
      .put_rows = csv::put_rows,
      .header = [](std::uint64_t) { return std::string(csv::header); },
      .header_tells_rows = false,
      .whole_rows = [](std::string_view text) { return text.rfind('\n') + 1; },  // npos + 1 is 0
  };
  return tag_layout_of(path) == TagLayout::npy ? npy_kind : csv_kind;
}

TagFile::TagFile(const std::string& path, const std::string& result_path)
    : path_(path),
      kind_(kind_of(path)),
      room_(tags_at_once * kind_.most_row_bytes),
      file_(make_file(path)),
      header_bytes_(kind_.header(0).size()) {
  if (file_.is_at(result_path)) {
    throw cannot_write(path, "the run writes its document there");
  }
  throw_if(write_header(), path_);
}

NewFile TagFile::make_file(const std::string& path) {
  try {
    return NewFile(path);
  } catch (const std::system_error& error) {
    throw cannot_write(path, error.code() == std::errc::file_exists ? "it exists already"
                                                                    : error.code().message());
  }
}

void TagFile::add(std::span<const TimeTag> tags) {
  const std::uint64_t bytes_before = row_bytes_;
  while (!tags.empty()) {
    const std::span<const TimeTag> some = tags.first(std::min(tags.size(), tags_at_once));
    const char* const end = kind_.put_rows(some, room_.data());
    append({room_.data(), static_cast<std::size_t>(end - room_.data())});
    tags = tags.subspan(some.size());
  }
  if (kind_.header_tells_rows && row_bytes_ != bytes_before) {
    throw_if(write_header(), path_);
  }
}

// A disk that is full may have taken a part of them. What stays in the file is whole
// rows, all of them told.
void TagFile::append(std::string_view rows) {
  const NewFile::Written written = file_.write_at(header_bytes_ + row_bytes_, rows);
  row_bytes_ += kind_.whole_rows(rows.substr(0, written.bytes));
  if (written.error) {
    file_.cut(header_bytes_ + row_bytes_);
    write_header();  // the first error counts
    throw_if(written.error, path_);
  }
}

std::error_code TagFile::write_header() {
  return file_.write_at(0, kind_.header(row_bytes_)).error;
}

void TagFile::finish() {
  throw_if(file_.close(), path_);
}
