#include "support/host.hpp"

#include <pthread.h>

#include <boost/variant/get.hpp>
#include <sstream>

#include "ixtal/shape.hpp"
#include "ixtal/string_array.hpp"
#include "ixtal/testing.hpp"
#include "ixtal/text.hpp"

namespace dovra_test {

// Everything a host does goes through the runtime's host kit, so the tests
// exercise the same loading and conversions as every other host.
const ixtal::BuiltinLibrary& library() { return ixtal::json_host::load(); }

owned_array text(std::string_view utf8) { return ixtal::json_host::text(utf8); }
std::string utf8_of(const ixArray* chars) { return ixtal::json_host::utf8(chars); }

std::vector<owned_array> call(std::string_view name, int nlhs, const std::vector<const ixArray*>& args) {
  library();
  return ixtal::call(name, nlhs, args);
}

owned_array decode(std::string_view json) { return ixtal::json_host::decode(json); }
owned_array decode_response(std::string_view json) { return ixtal::json_host::decode_response(json); }

std::string encode(const ixArray* a, std::string_view format, std::string_view nan_inf, bool pretty) {
  return ixtal::json_host::encode(a, {format, nan_inf, pretty});
}

std::optional<HostFailure> failure_of(const std::function<void()>& f) {
  try {
    f();
  } catch (const ixtal::HostError& e) {
    return HostFailure{e.identifier(), e.arguments(), e.what()};
  }
  return std::nullopt;
}

std::string describe(const std::vector<resource_core::MsgArg>& args) {
  std::ostringstream os;
  os << "(";
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (i) os << ", ";
    if (auto* l = boost::get<long>(&args[i])) os << *l;
    else if (auto* s = boost::get<std::string>(&args[i])) os << '"' << *s << '"';
    else os << "u\"" << fl::i18n::codecvt_ustring_to_string("UTF-8")(boost::get<std::u16string>(args[i])) << '"';
  }
  os << ")";
  return os.str();
}

void expect_failure(const std::function<void()>& f, const std::string& identifier,
                    const std::vector<resource_core::MsgArg>& arguments) {
  auto failure = failure_of(f);
  ASSERT_TRUE(failure.has_value()) << "expected " << identifier << ", but the call succeeded";
  EXPECT_EQ(failure->identifier, identifier) << failure->message;
  EXPECT_EQ(describe(failure->arguments), describe(arguments)) << "for " << identifier;
}

owned_array make_double(const std::vector<double>& data, std::vector<ixSize> dims) {
  return make_numeric<double>(data, std::move(dims));
}

owned_array make_char(std::u16string_view chars, std::vector<ixSize> dims) {
  owned_array a(ixCreateCharArray(dims.size(), dims.data()));
  std::copy(chars.begin(), chars.end(), static_cast<char16_t*>(ixGetData(a.get())));
  return a;
}

owned_array make_cell(std::vector<owned_array> elements, std::vector<ixSize> dims) {
  owned_array c(ixCreateCellArray(dims.size(), dims.data()));
  for (std::size_t i = 0; i < elements.size(); ++i) ixSetCell(c.get(), i, elements[i].release());
  return c;
}

owned_array make_struct(const std::vector<std::string>& fields, std::vector<owned_array> values,
                        std::vector<ixSize> dims) {
  owned_array s(ixCreateStructArray(dims.size(), dims.data(), int(fields.size()), fields.data()));
  for (std::size_t i = 0; i < values.size(); ++i)
    ixSetFieldByNumber(s.get(), i / fields.size(), int(i % fields.size()), values[i].release());
  return s;
}

owned_array make_strings(const std::vector<std::optional<std::u16string>>& texts, std::vector<ixSize> dims) {
  owned_array s(ixCreateStringArray(dims.size(), dims.data()));
  for (std::size_t i = 0; i < texts.size(); ++i)
    Tovenar::String::setString(s.get(), i,
                               texts[i] ? std::optional<std::u16string_view>(*texts[i]) : std::nullopt);
  return s;
}

std::vector<ixSize> dims_of(const ixArray* a) {
  const auto dims = ixtal::dims_of(a);
  return std::vector<ixSize>(dims.begin(), dims.end());
}

bool sanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return true;
#else
  return false;
#endif
}

void on_worker_stack(const std::function<void()>& f) {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, sanitized() ? 8u << 20 : 1u << 20);
  pthread_t t;
  auto body = [](void* p) -> void* {
    (*static_cast<const std::function<void()>*>(p))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&t, &attr, body, const_cast<std::function<void()>*>(&f)), 0);
  pthread_join(t, nullptr);
  pthread_attr_destroy(&attr);
}

LeakCheck::LeakCheck() : before_(ixtal::testing::live_arrays()) {}
LeakCheck::~LeakCheck() { EXPECT_EQ(ixtal::testing::live_arrays(), before_) << "host arrays leaked"; }

}  // namespace dovra_test
