#include "input.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "ixtal/array.hpp"
#include "ixtal/text.hpp"

namespace dovra_cli {
namespace {

// Reads to the end with plain read(2): a directory or a device that fails
// half-way is reported instead of being taken for a short document.
std::string read_all(int fd, const std::string& name) {
  std::string bytes;
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n == 0) return bytes;
    if (n < 0) {
      if (errno == EINTR) continue;
      throw UsageError("cannot read " + name + ": " + std::strerror(errno));
    }
    bytes.append(buffer, std::size_t(n));
  }
}

// The whole of a non-empty regular file, mapped read-only; null when the
// file is something else (a pipe, a device, an empty file) or cannot be
// mapped for a reason other than memory.
void* map_file(int fd, std::size_t& size) {
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0) return nullptr;
  size = std::size_t(st.st_size);
  void* p = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  if (p == MAP_FAILED) {
    if (errno == ENOMEM) throw std::bad_alloc();
    return nullptr;
  }
  ::madvise(p, size, MADV_SEQUENTIAL);
  return p;
}

// Text is converted a mebibyte at a time: a piece is in cache while it is
// converted, and its pages can go right after.
constexpr std::size_t kPiece = std::size_t(1) << 20;

}  // namespace

Input::~Input() { release(); }

void Input::release() noexcept {
  if (map_) ::munmap(std::exchange(map_, nullptr), map_size_);
  std::string().swap(owned_);
  bytes_ = {};
}

matrix::owned_array Input::host_text() {
  struct Pieces {
    std::string_view rest;
    const char* released;  // the start of the pages not given back yet
  } pieces{bytes_, static_cast<const char*>(map_)};
  const auto convert = [](char16_t* out, void* context) {
    auto& p = *static_cast<Pieces*>(context);
    const fl::i18n::codecvt_string_to_ustring to_utf16("UTF-8");
    const long page = ::sysconf(_SC_PAGESIZE);
    char16_t* const start = out;
    while (!p.rest.empty()) {
      std::size_t n = std::min(kPiece, p.rest.size());
      if (n < p.rest.size()) n -= fl::i18n::utf8_incomplete_tail(p.rest.data(), n);
      out += to_utf16.convert_bounded(p.rest.data(), n, out);
      p.rest.remove_prefix(n);
      if (p.released) {
        const char* done = p.released + (p.rest.data() - p.released) / page * page;
        ::madvise(const_cast<char*>(p.released), std::size_t(done - p.released), MADV_DONTNEED);
        p.released = done;
      }
    }
    return std::size_t(out - start);
  };
  // UTF-16 never takes more units than UTF-8 has bytes.
  matrix::owned_array text(ixCreateStringInPlace(bytes_.size(), convert, &pieces));
  release();
  return text;
}

std::string_view without_final_line_ending(std::string_view bytes) {
  if (bytes.ends_with("\r\n")) bytes.remove_suffix(2);
  else if (bytes.ends_with('\n')) bytes.remove_suffix(1);
  return bytes;
}

void read_input(const Options& options, Input& in) {
  if (options.text) {
    in.bytes_ = *options.text;  // --text keeps its final line ending
    return;
  }
  if (!options.file || *options.file == "-") {
    in.owned_ = read_all(STDIN_FILENO, "standard input");
  } else {
    const std::string name = "'" + *options.file + "'";
    const int fd = ::open(options.file->c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw UsageError("cannot open " + name + ": " + std::strerror(errno));
    try {
      in.map_ = map_file(fd, in.map_size_);
      if (!in.map_) in.owned_ = read_all(fd, name);
    } catch (...) {
      ::close(fd);
      throw;
    }
    ::close(fd);
  }
  in.bytes_ = in.map_ ? std::string_view(static_cast<const char*>(in.map_), in.map_size_) : std::string_view(in.owned_);
  in.bytes_ = without_final_line_ending(in.bytes_);
}

}  // namespace dovra_cli
