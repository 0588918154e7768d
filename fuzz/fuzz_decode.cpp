// dovra.json.decode on arbitrary bytes. Where a reader takes the text
// without the tree (a matrix of numbers, one class in large notation, a
// cell of records), the tree must give the same array.
#include <string_view>

#include "decode/driver.hpp"
#include "decode/large_numeric.hpp"
#include "decode/number_matrix.hpp"
#include "fuzz_support.hpp"
#include "json/parse_step.hpp"

namespace {

void check_readers(const ixArray* text) {
  const std::u16string_view units = dovra_fuzz::units_of(text);
  auto direct = ixtal_json::read_number_matrix(units);
  if (!direct) direct = ixtal_json::read_large_numeric(units);
  if (!direct) return;
  const matrix::owned_array tree =
      dovra_fuzz::tree_answer([&] { return ixtal_json::decode_value(dovra_json::parse_text(units)); });
  if (!dovra_fuzz::same_array(direct->get(), tree.get())) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  dovra_fuzz::leak_guard guard;
  auto text = dovra_fuzz::host_text(data, size);
  dovra_fuzz::call(&dovra_entry::json_decode_function, {text.get()});
  check_readers(text.get());
  return 0;
}
