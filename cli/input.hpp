#pragma once

// Where the JSON text comes from, and how its bytes become the host's
// UTF-16 char row.

#include <string>
#include <string_view>

#include "ixtal/matrix.hpp"
#include "options.hpp"

namespace dovra_cli {

// The document's bytes: --text, or FILE / standard input with one final
// line ending removed. A regular file is mapped, not copied: its pages are
// already in the kernel's cache, and a copy would fault in as many again.
class Input {
 public:
  Input() = default;
  explicit Input(std::string bytes) : owned_(std::move(bytes)), bytes_(owned_) {}
  Input(const void* mapping, std::size_t length, std::string_view bytes) noexcept
      : mapping_(mapping), length_(length), bytes_(bytes) {}
  Input(Input&& other) noexcept { *this = std::move(other); }
  Input& operator=(Input&& other) noexcept;
  ~Input() { release(); }

  std::string_view bytes() const noexcept { return bytes_; }
  // Gives the memory back before the input itself goes.
  void release() noexcept;

 private:
  std::string owned_;
  const void* mapping_ = nullptr;
  std::size_t length_ = 0;
  std::string_view bytes_;
};

// An unreadable file raises UsageError.
Input read_input(const Options& options);

// Text files end with a line ending that is not part of the document; only
// the last one goes, so "1\n\n" keeps one "\n" and a lone "\r" stays.
std::string_view without_final_line_ending(std::string_view bytes);

// A 1-by-N char row of the UTF-16 form of the bytes (0-by-0 when empty).
// Ill-formed UTF-8 becomes U+FFFD, as everywhere in the host.
matrix::owned_array host_text(std::string_view utf8);

}  // namespace dovra_cli
