// A run as one JSON document; docs/json.md explains it.
#pragma once

#include <string>
#include <string_view>

#include "smoke_test/results/run_record.hpp"

// The whole document, one line for each of the outer keys, and ended by a line feed.
// What the run does not know, or not yet, is null. Bytes that are no UTF-8 are
// replaced.
std::string run_document(const RunRecord& record);

// Its two parts: all up to the error, and the rest.
std::string document_head(const RunRecord& record);
std::string document_tail(const RunRecord& record);

// What the second part consists of: the error as JSON stands behind the first, the
// exit status behind the second.
inline constexpr std::string_view document_error_key = "  \"error\": ";
inline constexpr std::string_view document_status_key = ",\n  \"exit_status\": ";
inline constexpr std::string_view document_end = "\n}\n";
