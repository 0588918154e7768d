#include "ixtal/json_host.hpp"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <utility>

#include "ixtal/text.hpp"

namespace ixtal::json_host {
namespace {

constexpr const char* kFileName = "libdovra_json_builtins.so";
constexpr const char* kLibraryName = "dovra_json_builtins";

// This runtime's own directory: a host anywhere (a Python module, a test, a
// program in some prefix's bin) finds the library where it was installed,
// beside libixtal, without knowing where its own executable lives.
std::string runtime_directory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&runtime_directory), &info) == 0 || !info.dli_fname) return {};
  std::error_code ec;
  auto dir = std::filesystem::weakly_canonical(std::filesystem::path(info.dli_fname), ec).parent_path();
  return ec ? std::string() : dir.string();
}

HostError keyed_error(const char* key, std::vector<resource_core::MsgArg> args) {
  struct keyed : resource_core::BaseMsgID {
    keyed(const char* k, std::vector<resource_core::MsgArg> a) : BaseMsgID("IXTAL", k) {
      for (auto& x : a) add_arg(std::move(x));
    }
  };
  return HostError(keyed(key, std::move(args)));
}

const BuiltinLibrary* try_load() {
  const std::vector<std::string> paths = candidate_paths();
  std::string tried, reasons;
  for (const auto& path : paths) {
    try {
      // Kept for the life of the process: the package function stays
      // registered, and a host never unloads a library in use.
      return new BuiltinLibrary(path, kLibraryName, {kJsonEncodeName, kJsonDecodeResponseName});
    } catch (const std::bad_alloc&) {
      throw nomem();
    } catch (const std::exception& e) {
      tried += (tried.empty() ? "" : ", ") + path;
      reasons += (reasons.empty() ? "" : "; ") + std::string(e.what());
    }
  }
  throw keyed_error("CannotLoadLibrary", {tried, reasons});
}

}  // namespace

std::vector<std::string> candidate_paths() {
  if (const char* env = std::getenv("DOVRA_JSON_BUILTINS"); env && *env) return {env};
  std::vector<std::string> paths;
  if (const std::string dir = runtime_directory(); !dir.empty()) paths.push_back(dir + "/" + kFileName);
  paths.push_back(kFileName);
  return paths;
}

const BuiltinLibrary& load() {
  // A failed load is not remembered: the next call tries again, as a host
  // whose user fixed DOVRA_JSON_BUILTINS would expect.
  static std::mutex m;
  static const BuiltinLibrary* library = nullptr;
  std::lock_guard<std::mutex> lock(m);
  if (!library) library = try_load();
  return *library;
}

matrix::owned_array text(std::string_view utf8) {
  // Converted straight into the row: a large document is not held a second
  // time as a UTF-16 string. (Not ixCreateString: it stops at a NUL.)
  return matrix::owned_array(ixCreateStringFromUtf8(utf8));
}

std::string utf8(const ixArray* chars) {
  fl::i18n::codecvt_ustring_to_string cvt("UTF-8");
  return matrix::get_string(chars, cvt);
}

matrix::owned_array call_one(std::string_view name, const std::vector<const ixArray*>& args) {
  load();
  auto results = call(name, 1, args);
  if (results.empty()) throw keyed_error("UnexpectedException", {std::string(name) + " returned no result"});
  return std::move(results[0]);
}

matrix::owned_array decode(const ixArray* json) { return call_one(kJsonDecodeName, {json}); }
matrix::owned_array decode(std::string_view json) { return decode(text(json).get()); }
matrix::owned_array decode_response(const ixArray* json) { return call_one(kJsonDecodeResponseName, {json}); }
matrix::owned_array decode_response(std::string_view json) { return decode_response(text(json).get()); }

matrix::owned_array encode_chars(const ixArray* value, const EncodeOptions& options) {
  const matrix::owned_array format = text(options.format);
  const matrix::owned_array nan_inf = text(options.nan_inf);
  const matrix::owned_array pretty(ixCreateLogicalScalar(options.pretty));
  return call_one(kJsonEncodeName, {value, format.get(), nan_inf.get(), pretty.get()});
}

std::string encode(const ixArray* value, const EncodeOptions& options) {
  return utf8(encode_chars(value, options).get());
}

HostError nomem() { return keyed_error("nomem", {}); }

}  // namespace ixtal::json_host
