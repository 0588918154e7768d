// dovra.json.decode and the response-decode builtin.

#include "entry/builtins.hpp"
#include "ixtal/matrix.hpp"

namespace dovra_entry {

void json_decode_function(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]) {
  check_arity(nlhs, 1, nrhs, 1, 1);
  (void)plhs;
  (void)prhs;
  throw std::logic_error("dovra.json.decode: decoding is not built yet");
}

void json_decode_lhs_builtin(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]) {
  check_arity(nlhs, 1, nrhs, 1, 1);
  (void)plhs;
  (void)prhs;
  throw std::logic_error("response decode: decoding is not built yet");
}

}  // namespace dovra_entry
