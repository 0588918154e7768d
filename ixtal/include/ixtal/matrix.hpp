#pragma once

// C++ conveniences over the host array model: owning handles, checked typed
// views, text extraction, typed creation and the host's standard errors.

#include <complex>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "ixtal/array.hpp"
#include "ixtal/classes.hpp"
#include "ixtal/export.hpp"

namespace fl::i18n {
class codecvt_ustring_to_string;
}
namespace foundation::core::except {
class IMsgIDException;
}

namespace matrix {

struct array_deleter {
  void operator()(ixArray* a) const noexcept { ixDestroyArray(a); }
};
// The owning handle for a host array: destroys it unless released.
using owned_array = std::unique_ptr<ixArray, array_deleter>;

inline owned_array from_ixtal(ixArray* a) noexcept { return owned_array(a); }

template <class T> struct is_complex : std::false_type {};
template <class T> struct is_complex<std::complex<T>> : std::true_type {};

namespace detail {

// The three rejections of a checked view, each std::invalid_argument.
[[noreturn]] IXTAL_API void rejectClassId(const ixArray* a, ixClassID expected);
[[noreturn]] IXTAL_API void rejectArrayShape(const ixArray* a);
[[noreturn]] IXTAL_API void rejectInvalidClassId(const ixArray* a);
IXTAL_API bool isValidClassId(ixClassID cls) noexcept;

// The host's arity errors; each raises a host error and does not return.
[[noreturn]] IXTAL_API void error_maxlhs();
[[noreturn]] IXTAL_API void error_maxrhs();
[[noreturn]] IXTAL_API void error_minrhs();

// Raises the host error for a catalogued exception: an ixtal::HostError
// carrying its identifier, arguments and catalog message.
IXTAL_API void do_legacy_ix_error(const foundation::core::except::IMsgIDException& e);

// A new numeric array of the class of T (real or complex by T).
template <class T>
owned_array create_numeric(std::size_t ndim, const ixSize* dims, bool uninitialised = false) {
  const ixComplexity cx = is_complex<T>::value ? ixCOMPLEX : ixREAL;
  const ixClassID cls = ixtal::class_of_element<T>::id;
  if constexpr (std::is_same_v<T, bool>) return owned_array(ixCreateLogicalArray(ndim, dims));
  else if constexpr (std::is_same_v<T, char16_t>) return owned_array(ixCreateCharArray(ndim, dims));
  else
    return owned_array(uninitialised ? ixCreateUninitNumericArray(ndim, dims, cls, cx)
                                     : ixCreateNumericArray(ndim, dims, cls, cx));
}

}  // namespace detail

// A checked view of a full (non-sparse) array whose elements are T. The
// constructor rejects an unknown class ID (rejectInvalidClassId), another
// class (rejectClassId), and a sparse array or one whose complexity differs
// from T's (rejectArrayShape).
template <class T>
class typed_array {
 public:
  explicit typed_array(const ixArray* a) : a_(a) {
    if (!detail::isValidClassId(ixGetClassID(a))) detail::rejectInvalidClassId(a);
    constexpr ixClassID cls = ixtal::class_of_element<T>::id;
    if (ixGetClassID(a) != cls) detail::rejectClassId(a, cls);
    if (ixIsSparse(a) || ixIsComplex(a) != is_complex<T>::value) detail::rejectArrayShape(a);
  }
  const T* begin() const noexcept { return static_cast<const T*>(ixGetData(a_)); }
  const T* end() const noexcept { return begin() + size(); }
  const T* data() const noexcept { return begin(); }
  ixSize size() const noexcept { return ixGetNumberOfElements(a_); }
  const T& operator[](ixSize i) const noexcept { return begin()[i]; }
  const ixArray* array() const noexcept { return a_; }

 private:
  const ixArray* a_;
};

// All characters of a char array in storage order, as UTF-8.
IXTAL_API std::string get_string(const ixArray* a, fl::i18n::codecvt_ustring_to_string& cvt);

}  // namespace matrix
