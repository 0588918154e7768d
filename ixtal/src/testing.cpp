#include "ixtal/testing.hpp"

#include "array_record.hpp"

namespace ixtal::detail {

std::atomic<std::int64_t> g_live{0};
std::atomic<std::int64_t> g_fail_after{-1};

}  // namespace ixtal::detail

namespace ixtal::testing {

std::int64_t live_arrays() noexcept { return detail::g_live.load(std::memory_order_relaxed); }
void fail_allocations_after(std::int64_t n) noexcept {
  detail::g_fail_after.store(n < 0 ? -1 : n, std::memory_order_relaxed);
}
ixArray* make_array_with_class_id(int class_id) { return detail::make_named(static_cast<ixClassID>(class_id), nullptr); }

}  // namespace ixtal::testing
