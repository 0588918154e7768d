#pragma once

// The library's callable functions, all with the host's builtin signature.

#include <cstdint>

#include "ixtal/array.hpp"

namespace dovra_entry {

// Table entry 0: array, "large"|"small", "string"|"object", pretty flag -> JSON text.
void json_encode_builtin(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]);
// Table entry 1: {"lhs":[...]} -> N-by-1 cell; any other document -> false.
void json_decode_lhs_builtin(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]);
// dovra.json.decode: one JSON document -> one array.
void json_decode_function(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]);

// The host's arity errors, checked first and in this order: too many
// results, too many arguments, too few arguments.
void check_arity(std::int32_t nlhs, std::int32_t max_lhs, std::int32_t nrhs, std::int32_t min_rhs,
                 std::int32_t max_rhs);

}  // namespace dovra_entry
