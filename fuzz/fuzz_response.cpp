// The response-decode builtin on arbitrary bytes. Where the reader from the
// text answers, the general path must give the same cell.
#include <string_view>

#include "decode/response.hpp"
#include "decode/text_reader.hpp"
#include "fuzz_support.hpp"
#include "json/parse_step.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  dovra_fuzz::leak_guard guard;
  auto text = dovra_fuzz::host_text(data, size);
  dovra_fuzz::call(&dovra_entry::json_decode_lhs_builtin, {text.get()});
  const std::u16string_view units = dovra_fuzz::units_of(text.get());
  dovra_fuzz::check_paths(ixtal_json::read_response(units), [&] {
    foundation::json::Value root = dovra_json::parse_text(units);
    ixArray* out = nullptr;
    ixtal_json::decode_response(root, out);
    return matrix::owned_array(out);
  });
  return 0;
}
