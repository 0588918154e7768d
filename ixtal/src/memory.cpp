#include "ixtal/memory.hpp"

#include <sys/mman.h>

#include <atomic>
#include <cstdlib>

#include "ixtal/testing.hpp"

namespace ixtal {

namespace {
std::atomic<testing::allocation_hook> g_hook{nullptr};

// The runtime's own memory passes here, so that a test can make any of it fail.
bool refused() noexcept {
  const testing::allocation_hook hook = g_hook.load(std::memory_order_relaxed);
  return hook && hook();
}
}  // namespace

void testing::set_allocation_hook(allocation_hook hook) noexcept { g_hook.store(hook, std::memory_order_relaxed); }

void* allocate_zeroed(std::size_t count, std::size_t size) noexcept {
  return refused() ? nullptr : std::calloc(count, size);
}

void* allocate_large(std::size_t bytes) noexcept {
  if (refused()) return nullptr;
  constexpr std::size_t kHugePage = std::size_t(2) << 20;
  if (bytes < 2 * kHugePage) return std::malloc(bytes ? bytes : 1);
  if (bytes > ~std::size_t(0) - kHugePage) return nullptr;
  void* p = std::aligned_alloc(kHugePage, (bytes + kHugePage - 1) / kHugePage * kHugePage);
  if (p) ::madvise(p, bytes, MADV_HUGEPAGE);  // a refusal leaves ordinary pages
  return p;
}

void release_large(void* block) noexcept { std::free(block); }

}  // namespace ixtal
