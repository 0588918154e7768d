#pragma once

// Large buffers: a request body, its UTF-8 form, a decoded matrix. A fresh
// block of tens of megabytes costs the kernel one page fault per 4 KB, more
// than the work done in it; these are backed by 2 MiB huge pages where the
// kernel offers them, so the same block costs a few dozen.

#include <cstddef>
#include <memory>

#include "ixtal/export.hpp"

namespace ixtal {

// Blocks from this size up are 2 MiB-aligned on huge pages, and kept for
// reuse when released through release_large.
inline constexpr std::size_t kLargeBlock = std::size_t(4) << 20;

// At least bytes of uninitialised memory; null when none can be had.
// Blocks below a few megabytes come from the ordinary heap.
IXTAL_API void* allocate_large(std::size_t bytes) noexcept;
// count * size bytes of zeroed memory, from the ordinary heap; null when
// none can be had (or the product overflows).
IXTAL_API void* allocate_zeroed(std::size_t count, std::size_t size) noexcept;
// Releases a block of either (std::free works as well, but gives a large
// block back to the system instead of keeping it for the next request).
IXTAL_API void release_large(void* block) noexcept;

struct large_deleter {
  void operator()(void* block) const noexcept { release_large(block); }
};
template <class T>
using large_buffer = std::unique_ptr<T[], large_deleter>;

}  // namespace ixtal
