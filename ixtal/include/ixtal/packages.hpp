#pragma once

// The host's class-object system, as far as builtins see it: packages with
// sub-packages and functions, and the builtin calling convention.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ixtal/array.hpp"
#include "ixtal/export.hpp"

extern "C" {
// Every builtin: results requested, result slots, argument count, arguments.
typedef void (*BuiltinFunction)(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]);

// What a builtin library hands the host.
struct BuiltinFunctionTable {
  const BuiltinFunction* functions;
  const void* reserved;
  std::uint32_t stamp;
  std::uint64_t count;
  const char* identifier;
};
}

namespace icos {

class IXTAL_API COSNameID {
 public:
  explicit COSNameID(const char* name);
  ~COSNameID();
  const std::string& str() const noexcept { return name_; }

 private:
  std::string name_;
};

class IXTAL_API COSPackage {
 public:
  virtual ~COSPackage();
  virtual const std::string& name() const noexcept = 0;
  // Adds or replaces a function of this package.
  virtual void addFunction(const COSNameID& name, BuiltinFunction fn) = 0;
  // Null when absent.
  virtual BuiltinFunction findFunction(std::string_view name) const = 0;
};

// Both create the package on first use; the registry is process-wide.
IXTAL_API COSPackage* omGetGlobalPackage(const char* name);
IXTAL_API COSPackage* omGetSubPackage(COSPackage* package, const char* name);
// "pkg.sub.function"; null when absent.
IXTAL_API BuiltinFunction omFindFunction(std::string_view qualified_name);

}  // namespace icos
