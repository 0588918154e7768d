#include "ixtal/host.hpp"

#include <dlfcn.h>

#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "ixtal/errors.hpp"
#include "ixtal/json_host.hpp"

namespace ixtal {
namespace {

std::mutex g_globals_mutex;
std::map<std::string, BuiltinFunction, std::less<>>& globals() {
  static std::map<std::string, BuiltinFunction, std::less<>> g;
  return g;
}

[[noreturn]] void raise(const char* key, std::vector<resource_core::MsgArg> args = {}) {
  struct keyed : resource_core::BaseMsgID {
    keyed(const char* k, std::vector<resource_core::MsgArg> a) : BaseMsgID("IXTAL", k) {
      for (auto& x : a) add_arg(std::move(x));
    }
  };
  throw HostError(keyed(key, std::move(args)));
}

}  // namespace

// The one place where whatever a call raised becomes the host's error.
void rethrow_as_host_error() {
  try {
    throw;
  } catch (const HostError&) {
    throw;
  } catch (const foundation::core::except::IMsgIDException& e) {
    throw HostError(e.GetBaseMsgIDObj());
  } catch (const std::bad_alloc&) {
    raise("nomem");
  } catch (const std::exception& e) {
    raise("UnexpectedException", {std::string(e.what())});
  } catch (...) {
    raise("UnexpectedException", {std::string("an exception of unknown type")});
  }
}

std::vector<matrix::owned_array> call_builtin(BuiltinFunction fn, int nlhs, const std::vector<const ixArray*>& args) {
  std::vector<ixArray*> plhs;
  try {
    // Every allocation of the call, the gateway's own included, is inside:
    // out of memory anywhere is the host's error, never a bare bad_alloc.
    plhs.assign(std::size_t(nlhs > 0 ? nlhs : 1), nullptr);
    std::vector<const ixArray*> prhs(args);
    std::vector<matrix::owned_array> out;
    out.reserve(plhs.size());
    fn(nlhs, plhs.data(), std::int32_t(prhs.size()), prhs.data());
    for (ixArray*& a : plhs)
      if (a) out.emplace_back(std::exchange(a, nullptr));  // reserved: cannot throw
    return out;
  } catch (...) {
    for (ixArray*& a : plhs) ixDestroyArray(std::exchange(a, nullptr));
    rethrow_as_host_error();
  }
}

BuiltinFunction find_function(std::string_view name) {
  {
    std::lock_guard<std::mutex> lock(g_globals_mutex);
    auto it = globals().find(name);
    if (it != globals().end()) return it->second;
  }
  return icos::omFindFunction(name);
}

std::vector<matrix::owned_array> call(std::string_view name, int nlhs, const std::vector<const ixArray*>& args) {
  BuiltinFunction fn = nullptr;
  try {
    fn = find_function(name);
  } catch (...) {
    rethrow_as_host_error();
  }
  if (!fn) raise("UndefinedFunction", {std::string(name)});
  return call_builtin(fn, nlhs, args);
}

BuiltinLibrary::BuiltinLibrary(const std::string& path, const std::string& library_name,
                               const std::vector<std::string>& host_names)
    : names_(host_names), path_(path) {
  handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) throw std::runtime_error(std::string("cannot load builtin library: ") + dlerror());
  auto resolve = [&](const std::string& prefix) {
    void* sym = dlsym(handle_, (prefix + library_name).c_str());
    if (!sym) {
      dlclose(handle_);
      throw std::runtime_error("builtin library " + path + " lacks " + prefix + library_name);
    }
    return sym;
  };
  auto query = reinterpret_cast<const BuiltinFunctionTable* (*)()>(resolve("QueryILFcnTable_"));
  auto initialize = reinterpret_cast<void (*)()>(resolve("ILInitialize_"));
  terminate_ = reinterpret_cast<void (*)()>(resolve("ILTerminate_"));
  table_ = query();
  if (!table_ || table_->count < names_.size()) {
    dlclose(handle_);
    throw std::runtime_error("builtin library " + path + " has fewer table entries than host names");
  }
  initialize();
  std::lock_guard<std::mutex> lock(g_globals_mutex);
  for (std::size_t i = 0; i < names_.size(); ++i) globals()[names_[i]] = table_->functions[i];
}

BuiltinLibrary::~BuiltinLibrary() {
  {
    std::lock_guard<std::mutex> lock(g_globals_mutex);
    for (const auto& n : names_) globals().erase(n);
  }
  if (terminate_) terminate_();
  // Package functions registered at initialisation stay in the registry, so
  // the library stays mapped for the life of the process.
}

BuiltinFunction BuiltinLibrary::entry(std::size_t i) const {
  if (i >= table_->count) throw std::out_of_range("builtin table entry");
  return table_->functions[i];
}

std::string default_json_builtins_path() { return json_host::candidate_paths().front(); }

}  // namespace ixtal
