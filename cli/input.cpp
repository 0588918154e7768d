#include "input.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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

}  // namespace

std::string_view without_final_line_ending(std::string_view bytes) {
  if (bytes.ends_with("\r\n")) bytes.remove_suffix(2);
  else if (bytes.ends_with('\n')) bytes.remove_suffix(1);
  return bytes;
}

std::string read_input(const Options& options) {
  if (options.text) return *options.text;
  std::string bytes;
  if (!options.file || *options.file == "-") {
    bytes = read_all(STDIN_FILENO, "standard input");
  } else {
    const std::string name = "'" + *options.file + "'";
    const int fd = ::open(options.file->c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw UsageError("cannot open " + name + ": " + std::strerror(errno));
    try {
      bytes = read_all(fd, name);
    } catch (...) {
      ::close(fd);
      throw;
    }
    ::close(fd);
  }
  bytes.resize(without_final_line_ending(bytes).size());
  return bytes;
}

matrix::owned_array host_text(std::string_view utf8) {
  // ixCreateString stops at the first NUL; a NUL byte is text like any other.
  return matrix::owned_array(ixCreateStringFromUtf8(utf8));
}

}  // namespace dovra_cli
