// The library's three exported entry points and its builtin table.

#include "entry/builtins.hpp"
#include "ixtal/matrix.hpp"
#include "ixtal/packages.hpp"

namespace {

// The host knows the builtins by position only.
const BuiltinFunction kFunctions[] = {
    &dovra_entry::json_encode_builtin,
    &dovra_entry::json_decode_lhs_builtin,
};

const BuiltinFunctionTable kTable = {
    kFunctions,
    nullptr,
    20261121u,
    2u,
    "afe2da95_651e_4e6e_b52d_49beb1405e7d",
};

}  // namespace

namespace dovra_entry {

void check_arity(std::int32_t nlhs, std::int32_t max_lhs, std::int32_t nrhs, std::int32_t min_rhs,
                 std::int32_t max_rhs) {
  if (nlhs > max_lhs) matrix::detail::error_maxlhs();
  if (nrhs > max_rhs) matrix::detail::error_maxrhs();
  if (nrhs < min_rhs) matrix::detail::error_minrhs();
}

}  // namespace dovra_entry

#define DOVRA_EXPORT extern "C" __attribute__((visibility("default")))

DOVRA_EXPORT const BuiltinFunctionTable* QueryILFcnTable_dovra_json_builtins() { return &kTable; }

DOVRA_EXPORT void ILInitialize_dovra_json_builtins() {
  icos::COSPackage* dovra = icos::omGetGlobalPackage("dovra");
  icos::COSPackage* json = icos::omGetSubPackage(dovra, "json");
  const icos::COSNameID name("decode");  // released on every path, also when addFunction throws
  json->addFunction(name, &dovra_entry::json_decode_function);
}

DOVRA_EXPORT void ILTerminate_dovra_json_builtins() {}
