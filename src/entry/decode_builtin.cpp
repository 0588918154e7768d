// dovra.json.decode and the response-decode builtin.

#include <optional>
#include <string_view>

#include "decode/driver.hpp"
#include "decode/number_matrix.hpp"
#include "entry/builtins.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/matrix.hpp"
#include "json/parse_step.hpp"

namespace dovra_entry {

namespace {
// The scope code the host expects on every array a decode hands back.
constexpr int kReturnedScope = 4;
}  // namespace

void json_decode_function(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]) {
  check_arity(nlhs, 1, nrhs, 1, 1);
  const std::u16string_view text = dovra_json::text_argument(prhs[0]);
  std::optional<matrix::owned_array> direct = ixtal_json::read_number_matrix(text);
  auto result = direct ? std::move(*direct) : ixtal_json::decode_value(dovra_json::parse_text(text));
  ixSetArrayScope(result.get(), kReturnedScope);
  plhs[0] = result.release();
}

void json_decode_lhs_builtin(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]) {
  check_arity(nlhs, 1, nrhs, 1, 1);
  foundation::json::Value root = dovra_json::parse_text_argument(prhs[0]);

  // Any document that is not {"lhs":[...]} is answered with false, whatever
  // goes wrong while finding out.
  const foundation::json::Array* lhs = nullptr;
  try {
    if (root.is_object()) {
      // Inserting an absent "lhs" as null makes "absent" one more wrong kind.
      foundation::json::Value& member = root.as_object()["lhs"];
      if (member.is_array()) lhs = &member.as_array();
    }
  } catch (...) {
    lhs = nullptr;
  }
  if (!lhs) {
    plhs[0] = ixCreateLogicalScalar(false);
    return;
  }

  // The cell belongs to the host from here on; a failing element leaves it,
  // partly filled, for the host to dispose of.
  ixArray* cell = ixCreateCellMatrix(lhs->size(), 1);
  plhs[0] = cell;
  for (std::size_t i = 0; i < lhs->size(); ++i) {
    auto value = ixtal_json::decode_value((*lhs)[i]);
    ixSetArrayScope(value.get(), kReturnedScope);
    ixSetCell(cell, i, value.get());
    value.release();
  }
}

}  // namespace dovra_entry
