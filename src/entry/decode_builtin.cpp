// dovra.json.decode and the response-decode builtin.

#include <optional>
#include <string_view>

#include "decode/driver.hpp"
#include "decode/response.hpp"
#include "decode/text_reader.hpp"
#include "entry/builtins.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/matrix.hpp"
#include "json/parse_step.hpp"

namespace dovra_entry {

void json_decode_function(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]) {
  check_arity(nlhs, 1, nrhs, 1, 1);
  const std::u16string_view text = dovra_json::text_argument(prhs[0]);
  // Read in one pass; the tree reports what the reader declines.
  std::optional<matrix::owned_array> direct = ixtal_json::read_document(text);
  auto result = direct ? std::move(*direct) : ixtal_json::decode_value(dovra_json::parse_text(text), text);
  ixSetArrayScope(result.get(), ixtal_json::kReturnedScope);
  plhs[0] = result.release();
}

void json_decode_lhs_builtin(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]) {
  check_arity(nlhs, 1, nrhs, 1, 1);
  const std::u16string_view text = dovra_json::text_argument(prhs[0]);
  if (std::optional<matrix::owned_array> direct = ixtal_json::read_response(text)) {
    plhs[0] = direct->release();
    return;
  }
  // The cell belongs to the host from the moment it exists.
  foundation::json::Value root = dovra_json::parse_text(text);
  ixtal_json::decode_response(root, plhs[0], text);
}

}  // namespace dovra_entry
