#include "ixtal/memory.hpp"

#include <sys/mman.h>

#include <cstdlib>

namespace ixtal {

void* allocate_large(std::size_t bytes) noexcept {
  constexpr std::size_t kHugePage = std::size_t(2) << 20;
  if (bytes < 2 * kHugePage) return std::malloc(bytes ? bytes : 1);
  if (bytes > ~std::size_t(0) - kHugePage) return nullptr;
  void* p = std::aligned_alloc(kHugePage, (bytes + kHugePage - 1) / kHugePage * kHugePage);
  if (p) ::madvise(p, bytes, MADV_HUGEPAGE);  // a refusal leaves ordinary pages
  return p;
}

void release_large(void* block) noexcept { std::free(block); }

}  // namespace ixtal
