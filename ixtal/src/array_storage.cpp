// Where array records live and how they go: their blocks, the count of
// arrays alive, and destruction.
//
// A decode makes an array per value, a hundred thousand for a response of
// 20,000 records, and destroys them all together later; on two threads at
// once. Two things made that slow and stopped it scaling: the heap's work
// per small block (40% of the instructions of a records decode), and one
// process-wide counter of live arrays that every creation and destruction
// wrote, whose cache line then moved between the cores on every array.
// So blocks of records with their small data come from a pool each thread
// keeps, and each thread counts its own arrays; the test hook sums the
// counts.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>
#include <vector>

#include "array_record.hpp"
#include "ixtal/memory.hpp"

namespace ixtal::detail {

namespace {

// --- live counts ---------------------------------------------------------------

// Slots of the threads' counts (CountSlot) are never freed: a thread that
// ends leaves its count to the next that takes the slot, so the sum stays
// exact.
std::atomic<CountSlot*> g_slots{nullptr};

CountSlot* take_slot() noexcept {
  for (CountSlot* s = g_slots.load(std::memory_order_acquire); s; s = s->next) {
    bool free = false;
    if (!s->taken.load(std::memory_order_relaxed) &&
        s->taken.compare_exchange_strong(free, true, std::memory_order_acquire))
      return s;
  }
  // From malloc: a slot outlives every test that watches the heap.
  void* room = std::aligned_alloc(alignof(CountSlot), sizeof(CountSlot));
  if (!room) return nullptr;
  CountSlot* s = new (room) CountSlot;
  s->taken.store(true, std::memory_order_relaxed);
  s->next = g_slots.load(std::memory_order_relaxed);
  while (!g_slots.compare_exchange_weak(s->next, s, std::memory_order_release, std::memory_order_relaxed)) {}
  return s;
}

// --- the record pool -------------------------------------------------------------

// Free blocks are carved from slabs of this size and never go back to the
// heap: the pool holds what the most records alive at once took, and what
// threads keep (below) beside it.
constexpr std::size_t kSlab = std::size_t(64) << 10;
// A thread keeps the free blocks of each class for itself, as many as it
// once had in use at the same time, so that its next call of the same size
// finds them all in its own list, in the order it last used them (blocks
// handed through the depot in batches of 512, mixed from several threads,
// made a records decode 40% slower; a list capped below what one call
// makes sent the excess through the depot on every call, walking half the
// list to cut it, and took it back mixed on the next). The bound is what
// the thread took and did not hand on, worked out when blocks change hands
// so that taking and giving a block cost no more. At least kKeepLeast, more than a decode
// of 20,000 records makes; at most kKeepMost, so that a thread that once
// made a very large result does not hold all of it from other threads.
// The depot sees a thread's blocks only as one long list, when the thread
// ends or when it holds more than its bound (a thread that only destroys
// what others make), and then it gives up the older half.
constexpr std::size_t kKeepLeast = std::size_t(8) << 20;
constexpr std::size_t kKeepMost = std::size_t(64) << 20;

// Free blocks no thread holds, as chains of a class, taken and given a
// chain at a time.
class alignas(64) Depot {
 public:
  void put(unsigned cls, FreeBlock* head, std::uint32_t count) noexcept {
    head->count = count;
    const std::lock_guard lock(mutex_);
    head->next_chain = chains_[cls];
    chains_[cls] = head;
  }
  // A chain of free blocks of the class, carved from a new slab when none
  // is kept; null when no memory can be had.
  FreeBlock* take(unsigned cls, std::uint32_t& count) noexcept {
    {
      const std::lock_guard lock(mutex_);
      if (FreeBlock* head = chains_[cls]) {
        chains_[cls] = head->next_chain;
        count = head->count;
        return head;
      }
    }
    void* slab = std::aligned_alloc(kLine, kSlab);
    if (!slab) return nullptr;
    const std::size_t size = cls * kLine;
    auto* at = static_cast<unsigned char*>(slab);
    FreeBlock* head = nullptr;
    count = 0;
    for (std::size_t offset = kSlab / size * size; offset >= size; offset -= size) {
      auto* b = reinterpret_cast<FreeBlock*>(at + offset - size);
      b->next = head;
      head = b;
      ++count;
    }
    return head;
  }
  // One block, for a thread that keeps none.
  void* take_one(unsigned cls) noexcept {
    std::uint32_t count = 0;
    FreeBlock* head = take(cls, count);
    if (head && count > 1) put(cls, head->next, count - 1);
    return head;
  }

 private:
  std::mutex mutex_;
  FreeBlock* chains_[kClasses + 1] = {};
};

// Made before any code runs and never destroyed, so records may die while
// other statics do, and reaching it can never fail. On lines of its own, as
// its lock is written by any thread whose list runs dry.
alignas(64) constinit Depot g_depot;
static_assert(std::is_trivially_destructible_v<Depot>);
Depot& depot() noexcept { return g_depot; }

// Blocks change hands in refill and spill only, so the bound is worked out
// there too: what the thread has taken and not handed on is what it had in
// use at once.
void owns(FreeList& list, unsigned cls, std::int64_t more) noexcept {
  list.owned += more;
  const std::size_t bytes = list.owned > 0 ? std::size_t(list.owned) * cls * kLine : 0;
  list.keep = std::clamp(bytes, kKeepLeast, kKeepMost);
}

}  // namespace

// Arrays made or destroyed by a thread that has no slot: one that could not
// get one, or that is ending and has given its slot back.
std::atomic<std::int64_t> g_unattached{0};
// Alone on its line: read on every creation, written only by tests.
alignas(64) std::atomic<std::int64_t> g_fail_after{-1};

ThreadState::ThreadState() noexcept : counts(take_slot()) {
  for (FreeList& list : free) list.keep = kKeepLeast;
}

ThreadState::~ThreadState() {
  for (unsigned cls = 1; cls <= kClasses; ++cls)
    if (free[cls].head) depot().put(cls, free[cls].head, free[cls].count);
  if (counts) counts->taken.store(false, std::memory_order_release);
}

void* ThreadState::refill(unsigned cls) noexcept {
  FreeList& list = free[cls];
  if (!(list.head = depot().take(cls, list.count))) return nullptr;
  owns(list, cls, list.count);
  return take(cls);
}

void ThreadState::spill(unsigned cls) noexcept {
  FreeList& list = free[cls];
  const std::uint32_t kept = list.count / 2;
  FreeBlock* last_kept = list.head;
  for (std::uint32_t i = 1; i < kept; ++i) last_kept = last_kept->next;
  depot().put(cls, last_kept->next, list.count - kept);
  owns(list, cls, -std::int64_t(list.count - kept));
  last_kept->next = nullptr;
  list.count = kept;
}

// The state itself is made on a thread's first array and given back when
// the thread ends. After that (a thread-local of the host destroying arrays
// as the thread ends) the thread goes without: heap blocks and the shared
// count.
constinit thread_local ThreadState* t_state = nullptr;

namespace {

thread_local bool t_ended = false;

struct StateOwner {
  ThreadState state;
  StateOwner() noexcept { t_state = &state; }
  ~StateOwner() {
    t_state = nullptr;
    t_ended = true;
  }
};

[[gnu::noinline]] ThreadState* attach() noexcept {
  if (t_ended) return nullptr;
  static thread_local StateOwner owner;
  return t_state;
}

void count_creation() {
  std::int64_t left = g_fail_after.load(std::memory_order_relaxed);
  while (left >= 0) {
    if (left == 0) out_of_memory();
    if (g_fail_after.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) break;
  }
}

inline ThreadState* state() noexcept {
  ThreadState* s = t_state;
  return __builtin_expect(s != nullptr, 1) ? s : attach();
}

inline void count(ThreadState* s, std::int64_t delta) noexcept {
  if (s) s->count(delta);
  else g_unattached.fetch_add(delta, std::memory_order_relaxed);
}

// A pooled block of class cls (null when no memory can be had), and back.
// A thread without its state goes to the depot itself.
inline void* take_block(unsigned cls, ThreadState* s) noexcept {
  if (allocation_refused()) return nullptr;
  return s ? s->take(cls) : depot().take_one(cls);
}
inline void give_block(unsigned cls, void* block, ThreadState* s) noexcept {
  if (s) return s->give(cls, block);
  auto* b = static_cast<FreeBlock*>(block);
  b->next = nullptr;
  depot().put(cls, b, 1);
}

}  // namespace

// --- the record's block -------------------------------------------------------------

ixArray* new_record_slow(std::size_t data_bytes) {
  count_creation();
  const std::size_t bytes = sizeof(ixArray) + data_bytes;
  ThreadState* const s = state();
  count(s, 1);
  void* block;
  unsigned cls = 0;
  if constexpr (kPooled) {
    cls = size_class(bytes);
    if (!(block = take_block(cls, s))) {
      count(s, -1);
      out_of_memory();
    }
  } else {
    try {
      block = ::operator new(bytes);
    } catch (...) {
      count(s, -1);
      throw;
    }
  }
  return init_record(block, cls, data_bytes);
}

namespace {

// Releases a record, its data and names, not the arrays it holds; counted
// by the caller.
[[gnu::always_inline]] inline void free_record(ixArray* a, ThreadState* s) noexcept {
  if (!a->data_in_record && a->data) ixtal::release_large(a->data);
  if (a->class_id == ixSTRUCT_CLASS) release_fields(a->fields);
  else delete a->extra;
  const unsigned cls = a->block_class;
  a->~ixArray();
  if (cls) give_block(cls, a, s);
  else ::operator delete(a);
}

}  // namespace

ixArray** new_slots(std::size_t n) {
  if (n == 0) return nullptr;
  if (n > kMaxArrayBytes / sizeof(ixArray*)) out_of_memory();
  void* p = ixtal::allocate_zeroed(n, sizeof(ixArray*));
  if (!p) out_of_memory();
  return static_cast<ixArray**>(p);
}

std::int64_t live_arrays() noexcept {
  std::int64_t n = g_unattached.load(std::memory_order_relaxed);
  for (CountSlot* s = g_slots.load(std::memory_order_acquire); s; s = s->next)
    n += s->live.load(std::memory_order_relaxed);
  return n;
}

void fail_creations_after(std::int64_t n) noexcept { g_fail_after.store(n < 0 ? -1 : n, std::memory_order_relaxed); }

}  // namespace ixtal::detail

// --- destruction --------------------------------------------------------------------

using namespace ixtal::detail;

void ixDestroyArray(ixArray* a) noexcept {
  if (!a) return;  // what replacing an unset element destroys
  // Iterative, so that however deep cells nest the host's stack is safe:
  // each array's elements are taken over into the work list before it dies.
  // The list lives on the stack until it is deep, and the count moves once.
  // The order is the reverse of a decode's making (a container, then its
  // elements from the last): the thread's free list then hands the next
  // decode of the same shape the same blocks in the same order. Freeing
  // leaves as they were met, out of that order, scattered a records
  // decode's blocks a little more on every call and doubled its time.
  ThreadState* const s = state();
  constexpr std::size_t kOnStack = 256;
  ixArray* on_stack[kOnStack];
  std::size_t depth = 0;
  std::vector<ixArray*> deeper;
  std::int64_t freed = 0;
  for (;;) {
    if (a->data && holds_slots(a)) {
      ixArray* const* const el = slots(a);
      const std::size_t n = slot_count(a);
      for (std::size_t i = 0; i < n; ++i)
        if (ixArray* const e = el[i]) {
          if (deeper.empty() && depth < kOnStack) {
            on_stack[depth++] = e;
            continue;
          }
          try {
            deeper.push_back(e);
          } catch (...) {
            ixDestroyArray(e);  // no memory for the list: fall back to recursion
          }
        }
    }
    free_record(a, s);
    ++freed;
    if (!deeper.empty()) {
      a = deeper.back();
      deeper.pop_back();
    } else if (depth) {
      a = on_stack[--depth];
    } else {
      break;
    }
  }
  count(s, -freed);
}

// --- what only some classes hold ------------------------------------------------------

void* ixArrayExtra::operator new(std::size_t bytes) {
  if constexpr (kPooled) {
    static_assert(sizeof(ixArrayExtra) <= kClasses * kLine);
    if (void* block = take_block(size_class(bytes), state())) return block;
    throw std::bad_alloc();
  }
  return ::operator new(bytes);
}

void ixArrayExtra::operator delete(void* block, std::size_t bytes) noexcept {
  if constexpr (kPooled) give_block(size_class(bytes), block, state());
  else ::operator delete(block);
}

// --- the dimension list ---------------------------------------------------------------

void ixDimensionList::assign(const ixSize* first, const ixSize* last) {
  const std::size_t n = std::size_t(last - first);
  if (n > capacity_) {
    release();
    size_ = 0;
    grow(n);
  }
  std::copy(first, last, ptr());
  size_ = std::uint32_t(n);
}

void ixDimensionList::grow(std::size_t capacity) {
  ixSize* bigger = new ixSize[capacity];
  std::copy(ptr(), ptr() + size_, bigger);
  if (capacity_ > kInPlace) delete[] heap_;
  heap_ = bigger;
  capacity_ = std::uint32_t(capacity);
}
