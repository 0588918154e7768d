#pragma once

// Raising a catalogued error: the one way the library reports a failure to
// the host.

#include <exception>

#include "ixtal/errors.hpp"
#include "ixtal/matrix.hpp"

namespace dovra_errors {
// The exception that carries one key.
template <class Key>
using msg_exception = foundation::core::except::Exception<Key, std::exception, void>;
}  // namespace dovra_errors

// Hands the key to the host's error raiser, which does not come back; should
// it come back after all, the key leaves as an ordinary exception.
template <class Key>
[[noreturn]] void ixErrMsgId(const Key& key) {
  dovra_errors::msg_exception<Key> e(key);
  (void)e.get_error_id();
  matrix::detail::do_legacy_ix_error(e);
  throw e;
}
