#pragma once

// The record pool's common case, inline where arrays are made and destroyed:
// a decode makes an array per value, and a call into the pool for each, with
// the thread-local lookup it made, cost as much as all the rest of making a
// scalar. What is rare (a thread's first array, a list run dry or grown past
// its bound, the test hooks) stays out of line in array_storage.cpp.

#include <boost/throw_exception.hpp>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "ixtal/array.hpp"
#include "ixtal/errors.hpp"
#include "ixtal/testing.hpp"

// None of it is the runtime's interface: hidden, so that calls within the
// runtime neither go through the PLT nor stay out of line for a host that
// might replace them.
#pragma GCC visibility push(hidden)

namespace ixtal::detail {

// Built with a sanitizer: the runtime then takes every block from the heap
// itself, so that the sanitizer sees each one alone.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#else
inline constexpr bool kSanitized = false;
#endif

// Data up to this size live in the record's own block: scalars and short
// texts, which a decoded document holds by the hundred thousand, then cost
// one block each instead of two.
inline constexpr std::size_t kDataInRecord = 256;

// A sanitizer sees each block from the heap alone: a leaked array is then
// reported where it was made, not hidden among a pool's free blocks.
inline constexpr bool kPooled = !kSanitized;

// Blocks of 64 to 320 bytes, in steps of a cache line: a record and up to
// kDataInRecord bytes of data. A record of one thread then never shares a
// line with a record of another.
inline constexpr std::size_t kLine = 64;
inline constexpr unsigned kClasses = (sizeof(ixArray) + kDataInRecord + kLine - 1) / kLine;
static_assert(kClasses < 8, "a size class fits the record's three bits");
static_assert(sizeof(ixArray) == 48, "a scalar's record and data fill one line");
static_assert(sizeof(ixArray) % alignof(double) == 0, "data after the record are aligned for any element");

inline unsigned size_class(std::size_t bytes) noexcept { return unsigned((bytes + kLine - 1) / kLine); }

// One thread's count of arrays made less arrays destroyed (negative when it
// destroys what others made), alone on its cache line. Only its thread
// writes it; the hook reads all of them.
struct alignas(64) CountSlot {
  std::atomic<std::int64_t> live{0};
  std::atomic<bool> taken{false};
  CountSlot* next = nullptr;

  // Only the owner writes: no atomic read-modify-write needed.
  void add(std::int64_t delta) noexcept {
    live.store(live.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
  }
};
// Arrays made or destroyed by a thread that has no slot.
extern std::atomic<std::int64_t> g_unattached;

// Creations left before creation fails (-1: never), and the hook that
// refuses blocks: read on every creation, written only by tests.
extern std::atomic<std::int64_t> g_fail_after;
extern std::atomic<testing::allocation_hook> g_allocation_hook;

// Whether the test hook refuses the next block the runtime takes.
inline bool allocation_refused() noexcept {
  const testing::allocation_hook hook = g_allocation_hook.load(std::memory_order_relaxed);
  return hook && __builtin_expect(hook(), 0);
}

[[noreturn]] inline void out_of_memory() { boost::throw_exception(foundation::core::except::bad_alloc()); }

struct FreeBlock {
  FreeBlock* next;
  FreeBlock* next_chain;  // in the depot: the next chain of the class
  std::uint32_t count;    // in the depot: blocks in this chain
};

struct FreeList {
  FreeBlock* head = nullptr;
  std::uint32_t count = 0;
  std::int64_t owned = 0;  // blocks taken from the depot less blocks put there
  std::size_t keep = 0;    // bytes of free blocks the thread keeps
};

// What a thread keeps: its count and its free blocks.
struct ThreadState {
  CountSlot* counts;
  FreeList free[kClasses + 1];

  ThreadState() noexcept;
  ~ThreadState();

  // A block of the thread's own list; null when it is dry.
  FreeBlock* pop(unsigned cls) noexcept {
    FreeList& list = free[cls];
    FreeBlock* const b = list.head;
    if (__builtin_expect(b != nullptr, 1)) {
      list.head = b->next;
      --list.count;
    }
    return b;
  }
  void* take(unsigned cls) noexcept {
    if (FreeBlock* const b = pop(cls)) return b;
    return refill(cls);
  }
  void give(unsigned cls, void* block) noexcept {
    FreeList& list = free[cls];
    FreeBlock* b = static_cast<FreeBlock*>(block);
    b->next = list.head;
    list.head = b;
    if (__builtin_expect(std::size_t(++list.count) * cls * kLine > list.keep, 0)) spill(cls);
  }
  void count(std::int64_t delta) noexcept {
    if (__builtin_expect(counts != nullptr, 1)) counts->add(delta);
    else g_unattached.fetch_add(delta, std::memory_order_relaxed);
  }

  // A chain from the depot when the list is dry, its first block taken.
  void* refill(unsigned cls) noexcept;
  // The older half of the list to the depot, when it holds more than its bound.
  void spill(unsigned cls) noexcept;
};

// The state is reached through a plain pointer, so that the common case
// costs one thread-local load and no guard; null before a thread's first
// array and after its state is given back.
extern constinit thread_local ThreadState* t_state;

// The record made in block, of pool class cls (0: from the heap).
[[gnu::always_inline]] inline ixArray* init_record(void* block, unsigned cls, std::size_t data_bytes) noexcept {
  ixArray* a = new (block) ixArray;
  a->block_class = cls;
  if (data_bytes) {
    a->data = static_cast<unsigned char*>(block) + sizeof(ixArray);
    a->data_in_record = true;
  }
  return a;
}

// new_record's every case: the thread's first array, a list run dry, the
// test hooks, a thread without its state, the sanitized build.
ixArray* new_record_slow(std::size_t data_bytes);

// A new record with room for data_bytes of data after it in the same block
// (data points there when data_bytes > 0), counted as alive. Raises
// out-of-memory when the test hook says so or no memory can be had. The
// common case calls nothing, so that a creator needs no registers saved.
[[gnu::always_inline]] inline ixArray* new_record(std::size_t data_bytes) {
  if constexpr (kPooled) {
    ThreadState* const s = t_state;
    const unsigned cls = size_class(sizeof(ixArray) + data_bytes);
    if (__builtin_expect(s != nullptr && s->counts != nullptr && g_fail_after.load(std::memory_order_relaxed) < 0 &&
                             !g_allocation_hook.load(std::memory_order_relaxed),
                         1)) {
      if (FreeBlock* const b = s->pop(cls); __builtin_expect(b != nullptr, 1)) {
        // Counted before the record is made: a store through the count
        // after it would, for all the compiler knows, change the record,
        // and each caller's setting of its shape would read it back.
        s->counts->add(1);
        return init_record(b, cls, data_bytes);
      }
    }
  }
  return new_record_slow(data_bytes);
}
static_assert(sizeof(ixArray) + kDataInRecord <= kClasses * kLine, "every record block has a class");

}  // namespace ixtal::detail

#pragma GCC visibility pop
