#include "ixtal/memory.hpp"

#include <malloc.h>
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "array_record.hpp"
#include "ixtal/testing.hpp"

namespace ixtal {

// Read on every block the runtime takes, written only by tests: alone on its
// line, so that no write beside it moves the line between cores.
alignas(64) std::atomic<testing::allocation_hook> detail::g_allocation_hook{nullptr};

namespace {
using detail::allocation_refused;

constexpr std::size_t kHugePage = std::size_t(2) << 20;
static_assert(kLargeBlock == 2 * kHugePage);

// Under the sanitizers every block comes from the heap, so that a leaked
// one is reported where it was taken.
constexpr bool kMapped = !detail::kSanitized;

// Blocks from kKeptBlock up are mapped by the runtime itself rather than
// taken from the heap: the heap unmaps a large block when it is freed, or
// trims its top once enough is free there, by thresholds it moves with
// every large block it sees; blocks kept here would move them for the
// program's other memory as well. A mapped block is page-aligned; the
// blocks the runtime mapped are listed with their sizes, so that
// release_large tells them from the heap's (whose page-aligned blocks are
// rare) with one look-up under a lock, for a page-aligned block only.
class MappedBlocks {
 public:
  void* map(std::size_t bytes) noexcept {
    const std::size_t size = round_up(bytes, bytes >= kLargeBlock ? kHugePage : kPage);
    if (size < bytes || size > ~std::size_t(0) - kHugePage) return nullptr;
    void* p = nullptr;
    if (size >= kLargeBlock) {
      // 2 MiB-aligned, so that huge pages can back all of it.
      void* at = ::mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (at == MAP_FAILED) return nullptr;
      const auto first = reinterpret_cast<std::uintptr_t>(at);
      const std::uintptr_t aligned = round_up(first, kHugePage);
      if (aligned > first) ::munmap(at, aligned - first);
      if (const std::uintptr_t end = first + size + kHugePage; end > aligned + size)
        ::munmap(reinterpret_cast<void*>(aligned + size), end - aligned - size);
      p = reinterpret_cast<void*>(aligned);
      // Up to the end of what was asked for: a huge page past it would make
      // resident the room the request left unused. A refusal leaves
      // ordinary pages.
      ::madvise(p, bytes, MADV_HUGEPAGE);
    } else {
      p = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (p == MAP_FAILED) return nullptr;
    }
    try {
      const std::lock_guard lock(mutex_);
      sizes_.emplace(p, size);
    } catch (...) {
      ::munmap(p, size);
      return nullptr;
    }
    return p;
  }
  // The size of a block mapped here, or 0.
  std::size_t size_of(void* block) noexcept {
    if (reinterpret_cast<std::uintptr_t>(block) % kPage) return 0;
    const std::lock_guard lock(mutex_);
    const auto it = sizes_.find(block);
    return it == sizes_.end() ? 0 : it->second;
  }
  void unmap(void* block, std::size_t size) noexcept {
    {
      const std::lock_guard lock(mutex_);
      sizes_.erase(block);
    }
    ::munmap(block, size);
  }

 private:
  static constexpr std::size_t kPage = 4096;
  static constexpr std::size_t round_up(std::size_t n, std::size_t to) noexcept { return (n + to - 1) / to * to; }
  std::mutex mutex_;
  std::unordered_map<void*, std::size_t> sizes_;
};

// Never destroyed: blocks may be released while other statics die.
MappedBlocks& mapped() noexcept {
  static MappedBlocks* const m = new MappedBlocks;
  return *m;
}

// A block of kKeptBlock or more, uninitialised or zeroed.
void* take_fresh(std::size_t bytes, bool zeroed) noexcept {
  if constexpr (kMapped) return mapped().map(bytes);  // the kernel's pages come zeroed
  if (zeroed) return std::calloc(1, bytes);
  if (bytes < kLargeBlock) return std::malloc(bytes);
  void* p = std::aligned_alloc(kHugePage, (bytes + kHugePage - 1) / kHugePage * kHugePage);
  if (p) ::madvise(p, bytes, MADV_HUGEPAGE);
  return p;
}
// The size of any block of allocate_large or allocate_zeroed.
std::size_t block_size(void* block) noexcept {
  if constexpr (kMapped)
    if (const std::size_t size = mapped().size_of(block)) return size;
  return ::malloc_usable_size(block);
}
// Gives a block of either back for good.
void release(void* block, std::size_t size) noexcept {
  if (kMapped && size >= kKeptBlock && mapped().size_of(block)) mapped().unmap(block, size);
  else std::free(block);
}

// Blocks a thread released lately, kept for its next request of about
// their size. Given back, a block of a few hundred kilobytes and up went
// back to the kernel, so every call mapped fresh pages and had the kernel
// fault them in and zero them, often more work than the call's own; and
// mapping and unmapping take a lock of the whole process, which two
// threads converting at once then wait for. Each thread keeps its own, so
// that two threads never take each other's blocks nor a lock. Bounded, so
// that one large call pins little memory: at most eight blocks, 128 MiB in
// all, a thread.
class BlockCache {
 public:
  BlockCache() = default;
  BlockCache(const BlockCache&) = delete;
  BlockCache& operator=(const BlockCache&) = delete;
  ~BlockCache() { release_all(); }

  // A kept block of at least bytes and not much more, or null.
  void* take(std::size_t bytes) noexcept {
    Block* best = nullptr;
    for (Block& b : blocks_)
      if (b.at && b.size >= bytes && b.size - bytes <= bytes && (!best || b.size < best->size)) best = &b;
    if (!best) return nullptr;
    total_ -= best->size;
    return std::exchange(*best, Block{}).at;
  }

  // Keeps the block, releasing the oldest ones to make room; false when it
  // is too large to keep at all.
  bool keep(void* at, std::size_t size) noexcept {
    if (size > kBytes) return false;
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
      const Block gone = std::exchange(*oldest, Block{});
      release(gone.at, gone.size);
    }
  }

  static constexpr std::size_t kBlocks = 8;
  static constexpr std::size_t kBytes = std::size_t(128) << 20;
  struct Block {
    void* at = nullptr;
    std::size_t size = 0;
    std::uint64_t age = 0;
  };

  // Moves every kept block to other, oldest first.
  void hand_to(BlockCache& other) noexcept {
    for (;;) {
      Block* oldest = nullptr;
      for (Block& b : blocks_)
        if (b.at && (!oldest || b.age < oldest->age)) oldest = &b;
      if (!oldest) break;
      const Block b = std::exchange(*oldest, Block{});
      total_ -= b.size;
      if (!other.keep(b.at, b.size)) release(b.at, b.size);
    }
  }

 private:
  void release_all() noexcept {
    for (Block& b : blocks_)
      if (b.at) {
        const Block gone = std::exchange(b, Block{});
        release(gone.at, gone.size);
      }
    total_ = 0;
  }

  std::array<Block, kBlocks> blocks_{};
  std::size_t total_ = 0;
  std::uint64_t clock_ = 0;
};

// What threads that ended kept, for threads that start: a host may run each
// call on a new thread (a pool that replaces its threads, a benchmark's
// runner), which would otherwise map and fault in every block afresh. Only
// a thread whose own cache has no block of the size comes here.
struct Spare {
  std::mutex mutex;
  BlockCache cache;
};
Spare& spare() noexcept {
  static Spare* const s = new Spare;  // never destroyed, as the blocks it lists
  return *s;
}

// The calling thread's cache; null once the thread's objects are being
// destroyed (a host's thread-local releasing arrays as its thread ends),
// when blocks go straight to the heap.
thread_local bool t_cache_ended = false;
struct CacheOwner {
  BlockCache cache;
  ~CacheOwner() {
    t_cache_ended = true;
    Spare& s = spare();
    const std::lock_guard lock(s.mutex);
    cache.hand_to(s.cache);
  }
};
BlockCache* cache() noexcept {
  if (t_cache_ended) return nullptr;
  static thread_local CacheOwner owner;
  return &owner.cache;
}

// A block kept by this thread, else by one that ended; null when none fits.
void* take_kept(std::size_t bytes) noexcept {
  if (BlockCache* c = cache())
    if (void* kept = c->take(bytes)) return kept;
  Spare& s = spare();
  const std::lock_guard lock(s.mutex);
  return s.cache.take(bytes);
}

}  // namespace

// The runtime's own memory passes allocation_refused, so that a test can make
// any of it fail.
void testing::set_allocation_hook(allocation_hook hook) noexcept {
  detail::g_allocation_hook.store(hook, std::memory_order_relaxed);
}

void* allocate_zeroed(std::size_t count, std::size_t size) noexcept {
  if (allocation_refused()) return nullptr;
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
  if (bytes < kKeptBlock) return std::calloc(count, size);
  if (void* kept = take_kept(bytes)) return std::memset(kept, 0, bytes);
  return take_fresh(bytes, true);
}

void* allocate_large(std::size_t bytes) noexcept {
  if (allocation_refused()) return nullptr;
  if (bytes < kKeptBlock) return std::malloc(bytes ? bytes : 1);
  if (bytes > ~std::size_t(0) - kHugePage) return nullptr;
  if (void* kept = take_kept(bytes)) return kept;
  return take_fresh(bytes, false);
}

void release_large(void* block) noexcept {
  if (!block) return;
  const std::size_t size = block_size(block);
  if (size >= kKeptBlock)
    if (BlockCache* c = cache(); c && c->keep(block, size)) return;
  release(block, size);
}

}  // namespace ixtal
