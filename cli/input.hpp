#pragma once

// Where the JSON text comes from. A regular file is mapped, not copied: the
// text of a large document is then read once, by the conversion to UTF-16,
// and its pages cost nothing until they are read.

#include <string>
#include <string_view>

#include "ixtal/matrix.hpp"
#include "options.hpp"

namespace dovra_cli {

// The bytes of --text, or of FILE / standard input with one final line
// ending removed. Owns the mapping or the buffer behind bytes().
class Input {
 public:
  Input() = default;
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input();

  std::string_view bytes() const noexcept { return bytes_; }
  // Gives the memory back once the bytes have been converted: a large
  // document is then never held as bytes, host text and tree at once.
  void release() noexcept;
  // The bytes as a host char row, after which they are released. A mapped
  // file gives each piece's pages back as soon as the piece is converted,
  // so the bytes and their host text are never held whole at once.
  matrix::owned_array host_text();

 private:
  friend void read_input(const Options& options, Input& in);
  void* map_ = nullptr;
  std::size_t map_size_ = 0;
  std::string owned_;
  std::string_view bytes_;
};

// An unreadable file raises UsageError; running out of memory (or address
// space for the mapping) raises std::bad_alloc.
void read_input(const Options& options, Input& in);

// Text files end with a line ending that is not part of the document; only
// the last one goes, so "1\n\n" keeps one "\n" and a lone "\r" stays.
std::string_view without_final_line_ending(std::string_view bytes);

}  // namespace dovra_cli
