#pragma once

// Where the JSON text comes from, and how its bytes become the host's
// UTF-16 char row.

#include <string>
#include <string_view>

#include "ixtal/matrix.hpp"
#include "options.hpp"

namespace dovra_cli {

// The bytes of --text, or of FILE / standard input with one final line
// ending removed. An unreadable file raises UsageError.
std::string read_input(const Options& options);

// Text files end with a line ending that is not part of the document; only
// the last one goes, so "1\n\n" keeps one "\n" and a lone "\r" stays.
std::string_view without_final_line_ending(std::string_view bytes);

// A 1-by-N char row of the UTF-16 form of the bytes (0-by-0 when empty).
// Ill-formed UTF-8 becomes U+FFFD, as everywhere in the host.
matrix::owned_array host_text(std::string_view utf8);

}  // namespace dovra_cli
