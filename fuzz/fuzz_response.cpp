// The response-decode builtin on arbitrary bytes. Where the text is a list
// read straight into its cell, the tree must give the same cell.
#include <string_view>

#include "decode/response.hpp"
#include "fuzz_support.hpp"
#include "json/parse_step.hpp"

namespace {

void check_response_reader(const ixArray* text) {
  const std::u16string_view units = dovra_fuzz::units_of(text);
  auto direct = ixtal_json::read_response(units);
  if (!direct) return;
  const matrix::owned_array tree = dovra_fuzz::tree_answer([&] {
    foundation::json::Value root = dovra_json::parse_text(units);
    ixArray* out = nullptr;
    ixtal_json::decode_response(root, out);
    return matrix::owned_array(out);
  });
  if (!dovra_fuzz::same_array(direct->get(), tree.get())) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  dovra_fuzz::leak_guard guard;
  auto text = dovra_fuzz::host_text(data, size);
  dovra_fuzz::call(&dovra_entry::json_decode_lhs_builtin, {text.get()});
  check_response_reader(text.get());
  return 0;
}
