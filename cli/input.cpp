#include "input.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

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

Input& Input::operator=(Input&& other) noexcept {
  if (this == &other) return *this;
  release();
  const bool owned = other.bytes_.data() == other.owned_.data();
  owned_ = std::move(other.owned_);
  mapping_ = std::exchange(other.mapping_, nullptr);
  length_ = std::exchange(other.length_, 0);
  bytes_ = owned ? std::string_view(owned_).substr(0, other.bytes_.size()) : other.bytes_;
  other.bytes_ = {};
  return *this;
}

void Input::release() noexcept {
  if (mapping_) ::munmap(const_cast<void*>(mapping_), length_);
  mapping_ = nullptr;
  std::string().swap(owned_);
  bytes_ = {};
}

Input read_input(const Options& options) {
  if (options.text) return Input(*options.text);
  if (!options.file || *options.file == "-") {
    std::string bytes = read_all(STDIN_FILENO, "standard input");
    bytes.resize(without_final_line_ending(bytes).size());
    return Input(std::move(bytes));
  }
  const std::string name = "'" + *options.file + "'";
  const int fd = ::open(options.file->c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw UsageError("cannot open " + name + ": " + std::strerror(errno));
  struct stat st {};
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
    const std::size_t length = std::size_t(st.st_size);
    void* mapping = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    ::close(fd);
    if (mapping == MAP_FAILED) {
      if (errno == ENOMEM) throw std::bad_alloc();
      throw UsageError("cannot read " + name + ": " + std::strerror(errno));
    }
    const std::string_view all(static_cast<const char*>(mapping), length);
    return Input(mapping, length, without_final_line_ending(all));
  }
  // Pipes, devices and files that claim no size are read to their end.
  std::string bytes;
  try {
    bytes = read_all(fd, name);
  } catch (...) {
    ::close(fd);
    throw;
  }
  ::close(fd);
  bytes.resize(without_final_line_ending(bytes).size());
  return Input(std::move(bytes));
}

matrix::owned_array host_text(std::string_view utf8) {
  // ixCreateString stops at the first NUL; a NUL byte is text like any other.
  return matrix::owned_array(ixCreateStringFromUtf8(utf8));
}

}  // namespace dovra_cli
