#pragma once

// Large buffers: a request body, its UTF-8 form, a decoded matrix. A fresh
// block of tens of megabytes costs the kernel one page fault per 4 KB, more
// than the work done in it; these are backed by 2 MiB huge pages where the
// kernel offers them, so the same block costs a few dozen.

#include <cstddef>
#include <memory>

#include "ixtal/export.hpp"

namespace ixtal {

// Blocks from this size up are mapped by the runtime and kept for reuse by
// the thread that releases them (up to eight, 128 MiB in all, a thread;
// what a thread kept when it ended goes to the next thread that needs it,
// up to as much again).
inline constexpr std::size_t kKeptBlock = std::size_t(256) << 10;
// Blocks from this size up are 2 MiB-aligned on huge pages.
inline constexpr std::size_t kLargeBlock = std::size_t(4) << 20;

// At least bytes of uninitialised memory; null when none can be had.
IXTAL_API void* allocate_large(std::size_t bytes) noexcept;
// count * size bytes of zeroed memory; null when none can be had (or the
// product overflows).
IXTAL_API void* allocate_zeroed(std::size_t count, std::size_t size) noexcept;
// Releases a block of either, from any thread: the one way to release them,
// as a large block is not the heap's.
IXTAL_API void release_large(void* block) noexcept;

struct large_deleter {
  void operator()(void* block) const noexcept { release_large(block); }
};
template <class T>
using large_buffer = std::unique_ptr<T[], large_deleter>;

}  // namespace ixtal
