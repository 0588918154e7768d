// The response-decode builtin on arbitrary bytes.
#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  dovra_fuzz::leak_guard guard;
  auto text = dovra_fuzz::host_text(data, size);
  dovra_fuzz::call(&dovra_entry::json_decode_lhs_builtin, {text.get()});
  return 0;
}
