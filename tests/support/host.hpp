#pragma once

// Test access to the builtins the way a host has it: the library loaded
// through the runtime's loader, functions called by host name, failures
// captured as host errors.

#include <gtest/gtest.h>

#include <complex>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixtal/array.hpp"
#include "ixtal/errors.hpp"
#include "ixtal/host.hpp"
#include "ixtal/json_host.hpp"
#include "ixtal/matrix.hpp"

namespace dovra_test {

using matrix::owned_array;

// Loads the library once per process and publishes its entries.
const ixtal::BuiltinLibrary& library();

// A char row holding the UTF-16 form of a UTF-8 text (0-by-0 when empty).
owned_array text(std::string_view utf8);
// The UTF-8 form of a char array's characters in storage order.
std::string utf8_of(const ixArray* chars);

// The three functions through their host names; each returns the one result.
owned_array decode(std::string_view json);
owned_array decode_response(std::string_view json);
std::string encode(const ixArray* a, std::string_view format = "large", std::string_view nan_inf = "string",
                   bool pretty = false);
// Calls any function by host name with the given arguments.
std::vector<owned_array> call(std::string_view name, int nlhs, const std::vector<const ixArray*>& args);

// A host error as the caller sees it.
struct HostFailure {
  std::string identifier;
  std::vector<resource_core::MsgArg> arguments;
  std::string message;
};
// Runs f and returns the host error it raised, or nothing when it succeeded.
std::optional<HostFailure> failure_of(const std::function<void()>& f);
// A readable form of an argument list: 3, "text", u"text".
std::string describe(const std::vector<resource_core::MsgArg>& args);

// Expects f to raise identifier with exactly these arguments.
void expect_failure(const std::function<void()>& f, const std::string& identifier,
                    const std::vector<resource_core::MsgArg>& arguments = {});

// Builders: data in storage order.
template <class T>
owned_array make_numeric(const std::vector<T>& data, std::vector<ixSize> dims) {
  auto a = matrix::detail::create_numeric<T>(dims.size(), dims.data());
  if (!data.empty()) std::copy(data.begin(), data.end(), static_cast<T*>(ixGetData(a.get())));
  return a;
}
owned_array make_double(const std::vector<double>& data, std::vector<ixSize> dims);
owned_array make_char(std::u16string_view chars, std::vector<ixSize> dims);
// A cell whose elements (storage order) are taken over; null leaves one unset.
owned_array make_cell(std::vector<owned_array> elements, std::vector<ixSize> dims);
// A structure; values are element-major: element 0's fields, then element 1's...
owned_array make_struct(const std::vector<std::string>& fields, std::vector<owned_array> values,
                        std::vector<ixSize> dims);
// A string array; nullopt elements are missing.
owned_array make_strings(const std::vector<std::optional<std::u16string>>& texts, std::vector<ixSize> dims);

std::vector<ixSize> dims_of(const ixArray* a);

// True in builds with AddressSanitizer or ThreadSanitizer.
bool sanitized();
// Runs f on a fresh thread whose stack is that of a host worker thread,
// 1 MiB (8 MiB under sanitizers, which pad every frame), and waits for it.
void on_worker_stack(const std::function<void()>& f);

// Arrays made and not destroyed since construction must be zero at
// destruction.
class LeakCheck {
 public:
  LeakCheck();
  ~LeakCheck();

 private:
  std::int64_t before_;
};

}  // namespace dovra_test
