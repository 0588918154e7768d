#include "ixtal/packages.hpp"

#include <map>
#include <mutex>
#include <stdexcept>

namespace icos {
namespace {

class Package final : public COSPackage {
 public:
  explicit Package(std::string name) : name_(std::move(name)) {}
  const std::string& name() const noexcept override { return name_; }
  void addFunction(const COSNameID& name, BuiltinFunction fn) override {
    std::lock_guard<std::mutex> lock(mutex_);
    functions_[name.str()] = fn;
  }
  BuiltinFunction findFunction(std::string_view name) const override {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = functions_.find(name);
    return it == functions_.end() ? nullptr : it->second;
  }
  Package* sub(std::string_view name, bool create) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = subs_.find(name);
    if (it != subs_.end()) return it->second.get();
    if (!create) return nullptr;
    return subs_.emplace(std::string(name), std::make_unique<Package>(name_ + "." + std::string(name)))
        .first->second.get();
  }

 private:
  std::string name_;
  mutable std::mutex mutex_;
  std::map<std::string, BuiltinFunction, std::less<>> functions_;
  std::map<std::string, std::unique_ptr<Package>, std::less<>> subs_;
};

// The unnamed root holds the global packages as its sub-packages.
Package& root() {
  static Package r("");
  return r;
}

}  // namespace

COSNameID::COSNameID(const char* name) : name_(name ? name : "") {}
COSNameID::~COSNameID() = default;
COSPackage::~COSPackage() = default;

COSPackage* omGetGlobalPackage(const char* name) {
  if (!name || !*name) throw std::invalid_argument("omGetGlobalPackage: empty package name");
  Package* p = root().sub(name, true);
  return p;
}

COSPackage* omGetSubPackage(COSPackage* package, const char* name) {
  if (!package || !name || !*name) throw std::invalid_argument("omGetSubPackage: no package or empty name");
  return static_cast<Package*>(package)->sub(name, true);
}

BuiltinFunction omFindFunction(std::string_view qualified_name) {
  Package* p = &root();
  for (;;) {
    const auto dot = qualified_name.find('.');
    if (dot == std::string_view::npos) return p == &root() ? nullptr : p->findFunction(qualified_name);
    p = p->sub(qualified_name.substr(0, dot), false);
    if (!p) return nullptr;
    qualified_name.remove_prefix(dot + 1);
  }
}

}  // namespace icos
