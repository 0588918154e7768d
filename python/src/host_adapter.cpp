#include "host_adapter.hpp"

#include "ixtal/json_host.hpp"
#include "ixtal/testing.hpp"

// The runtime's host kit does what every host does: it loads the builtins
// library once, from beside libixtal (which this module links), and raises
// ixtal::HostError for every failure.
namespace dovra_python::host {

matrix::owned_array text(std::string_view utf8) { return ixtal::json_host::text(utf8); }

matrix::owned_array decode(const ixArray* t) { return ixtal::json_host::decode(t); }

matrix::owned_array decode_response(const ixArray* t) { return ixtal::json_host::decode_response(t); }

matrix::owned_array encode(const ixArray* value, std::string_view format, std::string_view nan_inf, bool pretty) {
  return ixtal::json_host::encode_chars(value, {format, nan_inf, pretty});
}

std::int64_t live_arrays() noexcept { return ixtal::testing::live_arrays(); }

}  // namespace dovra_python::host
