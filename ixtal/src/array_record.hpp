#pragma once

// What the runtime's array files share and hosts do not see.

#include <atomic>
#include <cstdint>

#include "ixtal/array.hpp"

namespace ixtal::detail {

// Arrays alive, and creations left before creation fails (-1: never): kept
// by array creation and destruction, read and set by the test hooks.
extern std::atomic<std::int64_t> g_live;
extern std::atomic<std::int64_t> g_fail_after;

// A 1-by-1 array of class cls with no data, named name (null: unnamed).
ixArray* make_named(ixClassID cls, const char* name);

// std::out_of_range naming what, unless index is an element of a.
void check_index(const ixArray* a, ixSize index, const char* what);

}  // namespace ixtal::detail
