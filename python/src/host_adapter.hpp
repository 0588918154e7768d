#pragma once

// Everything the Python module asks of the runtime, in one place: the host
// kit does the work; the module sees only these few calls.

#include <cstdint>
#include <string_view>

#include "ixtal/array.hpp"
#include "ixtal/matrix.hpp"

namespace dovra_python::host {

// Each call loads the builtins library on first use and raises
// ixtal::HostError for any failure of the builtin.
matrix::owned_array decode(const ixArray* text);
matrix::owned_array decode_response(const ixArray* text);
matrix::owned_array encode(const ixArray* value, std::string_view format, std::string_view nan_inf, bool pretty);

// A char row of the UTF-8 text (0-by-0 when empty).
matrix::owned_array text(std::string_view utf8);

// Host arrays created and not yet destroyed, process-wide.
std::int64_t live_arrays() noexcept;

}  // namespace dovra_python::host
