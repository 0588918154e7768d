#pragma once

// Hooks for tests: counting live arrays, and making array creation or the
// runtime's heap blocks fail.
// Both are off the normal path: each thread counts its own arrays in a
// counter no other thread writes, and the failure hook costs one relaxed
// load while it is off.

#include <cstdint>

#include "ixtal/array.hpp"
#include "ixtal/export.hpp"

namespace ixtal::testing {

// Arrays created and not yet destroyed, process-wide: the sum of every
// thread's count, exact once the threads that made or destroyed arrays
// have finished (or are between arrays).
IXTAL_API std::int64_t live_arrays() noexcept;

// After n more successful creations, every array creation raises the host's
// out-of-memory error until the hook is reset with a negative n (the
// default: off).
IXTAL_API void fail_allocations_after(std::int64_t n) noexcept;

// Called before each block the runtime takes from the heap for array data,
// element slots and large buffers; returning true refuses the block, as if
// memory had run out. Null (the default) allows every block. A test that
// also replaces operator new drives both from one count.
using allocation_hook = bool (*)() noexcept;
IXTAL_API void set_allocation_hook(allocation_hook hook) noexcept;

// An array whose class ID is any number, valid or not, for testing how
// builtins treat classes they do not know.
IXTAL_API ixArray* make_array_with_class_id(int class_id);

}  // namespace ixtal::testing
