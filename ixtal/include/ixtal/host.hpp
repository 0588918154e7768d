#pragma once

// What a host does with builtins: load a builtin library, publish its table
// under host names, and call functions by name with host-side error
// handling.

#include <string>
#include <string_view>
#include <vector>

#include "ixtal/array.hpp"
#include "ixtal/export.hpp"
#include "ixtal/matrix.hpp"
#include "ixtal/packages.hpp"

namespace ixtal {

// Calls a builtin. Every result slot the builtin filled comes back owned;
// when the builtin fails, whatever it left in the slots is destroyed and the
// failure is raised as an ixtal::HostError: a catalogued error keeps its
// identifier, an out-of-memory failure becomes "IXTAL:nomem", and any other
// exception "IXTAL:UnexpectedException" with its text.
IXTAL_API std::vector<matrix::owned_array> call_builtin(BuiltinFunction fn, int nlhs,
                                                        const std::vector<const ixArray*>& args);

// Raises the exception being handled (call it in a handler) as the error
// call_builtin makes of it: a catalogued error keeps its identifier, running
// out of memory is "IXTAL:nomem", anything else "IXTAL:UnexpectedException"
// with its text. A builtin that adds a location to the error calls it first.
[[noreturn]] IXTAL_API void rethrow_as_host_error();

// Calls a function by host name: a global builtin published by a loaded
// library, or a package function ("dovra.json.decode"). Unknown names raise
// "IXTAL:UndefinedFunction".
IXTAL_API std::vector<matrix::owned_array> call(std::string_view name, int nlhs,
                                                const std::vector<const ixArray*>& args);
IXTAL_API BuiltinFunction find_function(std::string_view name);

// A builtin library loaded the way the host loads one: dlopen, the three
// entry points resolved by the library's name, the table queried, the
// library initialised, and the table entries published under the given host
// names (entry i under names[i]). Terminated and closed on destruction.
class IXTAL_API BuiltinLibrary {
 public:
  BuiltinLibrary(const std::string& path, const std::string& library_name,
                 const std::vector<std::string>& host_names);
  ~BuiltinLibrary();
  BuiltinLibrary(const BuiltinLibrary&) = delete;
  BuiltinLibrary& operator=(const BuiltinLibrary&) = delete;

  const BuiltinFunctionTable& table() const noexcept { return *table_; }
  BuiltinFunction entry(std::size_t i) const;
  const std::vector<std::string>& host_names() const noexcept { return names_; }
  const std::string& path() const noexcept { return path_; }

 private:
  void* handle_ = nullptr;
  const BuiltinFunctionTable* table_ = nullptr;
  void (*terminate_)() = nullptr;
  std::vector<std::string> names_;
  std::string path_;
};

// The host names under which the JSON builtins' table entries are published.
inline constexpr const char* kJsonEncodeName = "dovra_json_encode";
inline constexpr const char* kJsonDecodeResponseName = "dovra_json_decode_response";
inline constexpr const char* kJsonDecodeName = "dovra.json.decode";

// The first place the host kit (ixtal/json_host.hpp) looks for
// libdovra_json_builtins: DOVRA_JSON_BUILTINS if set, else beside libixtal.
IXTAL_API std::string default_json_builtins_path();

}  // namespace ixtal
