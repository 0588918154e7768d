#pragma once

// What every builtin fuzzer needs: the text as the host passes it, a call
// through the host gateway, the check that an error's location lies in the
// text, and the check that nothing outlives the call.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
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

// A location in the text must lie inside it, on the first byte of a value,
// with the line, column and context that byte has. text: the char row the
// decode builtin read.
inline void check_location(const ixtal::HostError& e, const ixArray* text) {
  const ixtal::ErrorLocation* at = e.location();
  if (!at || !at->in_text) return;
  if (ixGetClassID(text) != ixCHAR_CLASS || at->path.empty()) std::abort();
  const std::string utf8 = ixtal::json_host::utf8(text);
  if (at->offset >= utf8.size() || !std::strchr("\"-0123456789{[tfn", utf8[at->offset])) std::abort();
  const std::size_t line_start = utf8.rfind('\n', at->offset) + 1;  // 0 when there is none
  const auto lines = std::count(utf8.begin(), utf8.begin() + std::ptrdiff_t(at->offset), '\n');
  if (at->line != std::uint64_t(lines + 1) || at->column != at->offset - line_start) std::abort();
  if (at->caret >= at->context.size() || at->context[at->caret] != utf8[at->offset]) std::abort();
}

// Calls fn; a host error is a fine answer, anything else escapes and
// crashes the fuzzer. Returns the result, or null after an error.
inline matrix::owned_array call(BuiltinFunction fn, const std::vector<const ixArray*>& args) {
  try {
    auto out = ixtal::call_builtin(fn, 1, args);
    return out.empty() ? nullptr : std::move(out[0]);
  } catch (const ixtal::HostError& e) {
    if (std::string_view(e.identifier()).rfind("IXTAL:Unexpected", 0) == 0) std::abort();  // a stray exception
    check_location(e, args.at(0));
    return nullptr;
  }
}

// The text's UTF-16 units, as the builtins read them.
inline std::u16string_view units_of(const ixArray* text) {
  return {static_cast<const char16_t*>(ixGetData(text)), std::size_t(ixGetNumberOfElements(text))};
}

// Whether a and b are the same array: class, shape and data bit for bit,
// and for cells and structures the same fields in the same order holding
// the same arrays.
inline bool same_array(const ixArray* a, const ixArray* b) {
  if (!a || !b) return a == b;
  const std::size_t n = ixGetNumberOfDimensions(a);
  if (ixGetClassID(a) != ixGetClassID(b) || ixIsComplex(a) != ixIsComplex(b) || n != ixGetNumberOfDimensions(b) ||
      std::memcmp(ixGetDimensions(a), ixGetDimensions(b), n * sizeof(ixSize)) != 0)
    return false;
  const std::size_t count = std::size_t(ixGetNumberOfElements(a));
  if (ixGetClassID(a) == ixCELL_CLASS || ixGetClassID(a) == ixSTRUCT_CLASS) {
    const bool is_struct = ixGetClassID(a) == ixSTRUCT_CLASS;
    const int fields = is_struct ? ixGetNumberOfFields(a) : 1;
    if (is_struct && fields != ixGetNumberOfFields(b)) return false;
    for (int f = 0; is_struct && f < fields; ++f)
      if (ixGetFieldName(a, f) != ixGetFieldName(b, f)) return false;
    for (std::size_t i = 0; i < count * std::size_t(fields); ++i)
      if (!same_array(ixGetContents(a)[i], ixGetContents(b)[i])) return false;
    return true;
  }
  const std::size_t bytes = count * ixGetElementSize(a) * (ixIsComplex(a) ? 2 : 1);
  return bytes == 0 || std::memcmp(ixGetData(a), ixGetData(b), bytes) == 0;  // an empty array has no data
}

// Where the reader from the text answered, the general path must accept
// the text too and give the same array; any failure of it aborts.
template <class General>
void check_paths(const std::optional<matrix::owned_array>& direct, General&& general) {
  if (!direct) return;
  matrix::owned_array answer;
  try {
    answer = general();
  } catch (...) {
    std::abort();
  }
  if (!same_array(direct->get(), answer.get())) std::abort();
}

// Aborts when arrays were left alive.
struct leak_guard {
  std::int64_t before = ixtal::testing::live_arrays();
  ~leak_guard() {
    if (ixtal::testing::live_arrays() != before) std::abort();
  }
};

}  // namespace dovra_fuzz
