// Whatever decodes must survive an encode in large notation and a second
// decode unchanged. The first byte picks the non-finite form.
#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  dovra_fuzz::leak_guard guard;
  auto text = dovra_fuzz::host_text(data + 1, size - 1);
  auto first = dovra_fuzz::call(&dovra_entry::json_decode_function, {text.get()});
  if (!first) return 0;
  matrix::owned_array format(ixCreateString("large"));
  // Only the object form of NaN and Inf decodes again.
  matrix::owned_array nan_inf(ixCreateString("object"));
  matrix::owned_array pretty(ixCreateLogicalScalar(data[0] & 1));
  auto json = dovra_fuzz::call(&dovra_entry::json_encode_builtin, {first.get(), format.get(), nan_inf.get(), pretty.get()});
  if (!json) return 0;  // nested too deep to write
  auto second = dovra_fuzz::call(&dovra_entry::json_decode_function, {json.get()});
  if (!second || !ixIsEqualN(first.get(), second.get())) std::abort();
  return 0;
}
