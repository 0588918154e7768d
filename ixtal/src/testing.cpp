#include "ixtal/testing.hpp"

#include "array_record.hpp"

namespace ixtal::testing {

std::int64_t live_arrays() noexcept { return detail::live_arrays(); }
void fail_allocations_after(std::int64_t n) noexcept { detail::fail_creations_after(n); }
ixArray* make_array_with_class_id(int class_id) { return detail::make_named(static_cast<ixClassID>(class_id), nullptr); }

}  // namespace ixtal::testing
