#include "ixtal/errors.hpp"

#include "ixtal/matrix.hpp"

namespace ixtal {
HostError::~HostError() = default;
}

namespace foundation::core::except {

IException::~IException() = default;
IMsgIDException::~IMsgIDException() = default;
const char* bad_alloc::what() const noexcept { return "Out of memory"; }

}  // namespace foundation::core::except

namespace matrix::detail {
namespace {
[[noreturn]] void raise(const char* key) { throw ixtal::HostError(resource_core::BaseMsgID("IXTAL", key)); }
}  // namespace

void error_maxlhs() { raise("TooManyOutputs"); }
void error_maxrhs() { raise("TooManyInputs"); }
void error_minrhs() { raise("NotEnoughInputs"); }

void do_legacy_ix_error(const foundation::core::except::IMsgIDException& e) {
  throw ixtal::HostError(e.GetBaseMsgIDObj());
}

}  // namespace matrix::detail
