#pragma once

// What every builtin fuzzer needs: the text as the host passes it, a call
// through the host gateway, and the check that nothing outlives the call.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "entry/builtins.hpp"
#include "ixtal/errors.hpp"
#include "ixtal/host.hpp"
#include "ixtal/json_host.hpp"
#include "ixtal/testing.hpp"

namespace dovra_fuzz {

inline matrix::owned_array host_text(const std::uint8_t* data, std::size_t size) {
  return ixtal::json_host::text(std::string_view(reinterpret_cast<const char*>(data), size));
}

// Calls fn; a host error is a fine answer, anything else escapes and
// crashes the fuzzer. Returns the result, or null after an error.
inline matrix::owned_array call(BuiltinFunction fn, const std::vector<const ixArray*>& args) {
  try {
    auto out = ixtal::call_builtin(fn, 1, args);
    return out.empty() ? nullptr : std::move(out[0]);
  } catch (const ixtal::HostError& e) {
    if (std::string_view(e.identifier()).rfind("IXTAL:Unexpected", 0) == 0) std::abort();  // a stray exception
    return nullptr;
  }
}

// The text's UTF-16 units, as the builtins read them.
inline std::u16string_view units_of(const ixArray* text) {
  return {static_cast<const char16_t*>(ixGetData(text)), std::size_t(ixGetNumberOfElements(text))};
}

// The tree path's answer for a text a direct reader took: the tree must
// accept the text too, so any failure aborts.
template <class Tree>
matrix::owned_array tree_answer(Tree&& tree) noexcept {
  try {
    return tree();
  } catch (...) {
    std::abort();
  }
}

// Aborts when arrays were left alive.
struct leak_guard {
  std::int64_t before = ixtal::testing::live_arrays();
  ~leak_guard() {
    if (ixtal::testing::live_arrays() != before) std::abort();
  }
};

}  // namespace dovra_fuzz
