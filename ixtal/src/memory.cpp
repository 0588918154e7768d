#include "ixtal/memory.hpp"

#include <malloc.h>
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "array_record.hpp"
#include "ixtal/testing.hpp"

namespace ixtal {

namespace {
std::atomic<testing::allocation_hook> g_hook{nullptr};

using detail::allocation_refused;

constexpr std::size_t kHugePage = std::size_t(2) << 20;
static_assert(kLargeBlock == 2 * kHugePage);

// Large blocks released lately, kept for the next large request: a host
// that decodes or encodes one large document after another would otherwise
// map fresh pages and fault them in (and have the kernel zero them) on
// every call, which costs more than the call's own work. Bounded, so that
// one large call pins little memory: at most four blocks, 128 MiB in all.
class BlockCache {
 public:
  // A kept block of at least bytes and not much more, or null. A request
  // that none fits releases them all first: kept memory never adds to the
  // peak of a process that goes on to need other sizes.
  void* take(std::size_t bytes) noexcept {
    const std::lock_guard lock(mutex_);
    Block* best = nullptr;
    for (Block& b : blocks_)
      if (b.at && b.size >= bytes && b.size - bytes <= bytes && (!best || b.size < best->size)) best = &b;
    if (!best) {
      for (Block& b : blocks_) std::free(std::exchange(b, Block{}).at);
      total_ = 0;
      return nullptr;
    }
    total_ -= best->size;
    return std::exchange(*best, Block{}).at;
  }

  // Keeps the block, releasing the oldest ones to make room; false when it
  // is too large to keep at all.
  bool keep(void* at, std::size_t size) noexcept {
    if (size > kBytes) return false;
    const std::lock_guard lock(mutex_);
    for (;;) {
      Block* oldest = nullptr;
      Block* empty = nullptr;
      for (Block& b : blocks_) {
        if (!b.at) empty = &b;
        else if (!oldest || b.age < oldest->age) oldest = &b;
      }
      if (empty && total_ + size <= kBytes) {
        *empty = Block{at, size, ++clock_};
        total_ += size;
        return true;
      }
      total_ -= oldest->size;
      std::free(std::exchange(*oldest, Block{}).at);
    }
  }

 private:
  static constexpr std::size_t kBytes = std::size_t(128) << 20;
  struct Block {
    void* at = nullptr;
    std::size_t size = 0;
    std::uint64_t age = 0;
  };
  std::mutex mutex_;
  std::array<Block, 4> blocks_{};
  std::size_t total_ = 0;
  std::uint64_t clock_ = 0;
};

// Never destroyed: blocks may be released while other statics die.
BlockCache& cache() noexcept {
  static BlockCache* const c = new BlockCache;
  return *c;
}

}  // namespace

// The runtime's own memory passes here, so that a test can make any of it fail.
bool detail::allocation_refused() noexcept {
  const testing::allocation_hook hook = g_hook.load(std::memory_order_relaxed);
  return hook && hook();
}

void testing::set_allocation_hook(allocation_hook hook) noexcept { g_hook.store(hook, std::memory_order_relaxed); }

void* allocate_zeroed(std::size_t count, std::size_t size) noexcept {
  return allocation_refused() ? nullptr : std::calloc(count, size);
}

void* allocate_large(std::size_t bytes) noexcept {
  if (allocation_refused()) return nullptr;
  if (bytes < kLargeBlock) return std::malloc(bytes ? bytes : 1);
  if (bytes > ~std::size_t(0) - kHugePage) return nullptr;
  if (void* kept = cache().take(bytes)) return kept;
  void* p = std::aligned_alloc(kHugePage, (bytes + kHugePage - 1) / kHugePage * kHugePage);
  if (p) ::madvise(p, bytes, MADV_HUGEPAGE);  // a refusal leaves ordinary pages
  return p;
}

void release_large(void* block) noexcept {
  if (!block) return;
  const std::size_t size = ::malloc_usable_size(block);
  if (size >= kLargeBlock && cache().keep(block, size)) return;
  std::free(block);
}

}  // namespace ixtal
