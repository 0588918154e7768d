// The encode builtin.

#include "entry/builtins.hpp"
#include "ixtal/matrix.hpp"

namespace dovra_entry {

void json_encode_builtin(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]) {
  check_arity(nlhs, 1, nrhs, 4, 4);
  (void)plhs;
  (void)prhs;
  throw std::logic_error("encode: encoding is not built yet");
}

}  // namespace dovra_entry
