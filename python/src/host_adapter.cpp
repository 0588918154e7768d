#include "host_adapter.hpp"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "ixtal/host.hpp"
#include "ixtal/testing.hpp"

namespace dovra_python::host {
namespace {

// The interpreter is not installed next to the libraries, so the search
// beside the running executable cannot find the builtins; they are
// installed beside libixtal, which this module links.
std::string builtins_path() {
  if (const char* env = std::getenv("DOVRA_JSON_BUILTINS"); env && *env) return env;
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ixCreateDoubleScalar), &info) && info.dli_fname) {
    std::error_code ec;
    auto beside = std::filesystem::path(info.dli_fname).parent_path() / "libdovra_json_builtins.so";
    if (std::filesystem::exists(beside, ec)) return beside.string();
  }
  return ixtal::default_json_builtins_path();
}

// Loaded once per process; function-local static initialisation is
// thread-safe, and the GIL may be released by then.
void ensure_loaded() {
  static ixtal::BuiltinLibrary library(builtins_path(), "dovra_json_builtins",
                                       {ixtal::kJsonEncodeName, ixtal::kJsonDecodeResponseName});
}

matrix::owned_array one_result(std::string_view name, const std::vector<const ixArray*>& args) {
  ensure_loaded();
  auto out = ixtal::call(name, 1, args);
  return std::move(out.at(0));
}

}  // namespace

matrix::owned_array text(std::string_view utf8) { return matrix::owned_array(ixCreateStringFromUtf8(utf8)); }

matrix::owned_array decode(const ixArray* t) { return one_result(ixtal::kJsonDecodeName, {t}); }

matrix::owned_array decode_response(const ixArray* t) { return one_result(ixtal::kJsonDecodeResponseName, {t}); }

matrix::owned_array encode(const ixArray* value, std::string_view format, std::string_view nan_inf, bool pretty) {
  auto f = text(format);
  auto n = text(nan_inf);
  matrix::owned_array p(ixCreateLogicalScalar(pretty));
  return one_result(ixtal::kJsonEncodeName, {value, f.get(), n.get(), p.get()});
}

std::int64_t live_arrays() noexcept { return ixtal::testing::live_arrays(); }

}  // namespace dovra_python::host
