// What the encoder writes, the decoder reads back as the same array:
// generated arrays of every class, shape and kind of content, with fixed
// seeds.
//
// Large notation with NaN objects keeps everything the encoder accepts,
// except 64-bit integers beyond 2^53 (written as the nearest double) and the
// most negative int64 (-2^63, which the int64 element rule refuses); the
// generator stays inside those bounds. NaN strings never decode: they exist
// for other readers. Small notation loses exactly: a 0-by-0 double, and with
// it every unset cell element or field value (`[]` reads back 0-by-1), and
// a 0-by-0 structure without fields (`{}` reads back 1-by-1). A field named
// "tntype" or "tndata" in a scalar structure would also be misread in small
// notation; the generator does not make one.

#include <cfloat>
#include <complex>
#include <cstring>
#include <limits>
#include <random>

#include "encode_rows.hpp"
#include "host/class_traits.hpp"

namespace dovra_test {
namespace {

using ixtal_json::detail::for_each_type;
using ixtal_json::detail::numeric_types;

class generator {
 public:
  explicit generator(std::uint64_t seed) : rng_(seed) {}

  owned_array any(int depth = 0) {
    const int pick = below(depth < 3 ? 24 : 20);
    if (pick < 14) return numeric(pick < 10 ? pick : 9, below(4) == 0);  // double more often
    if (pick < 16) return logical();
    if (pick < 20) return chars();
    return pick < 22 ? cell(depth) : structure(depth);
  }

 private:
  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

  std::vector<ixSize> shape() {
    if (below(5) == 0) return {1, 1};
    std::vector<ixSize> dims(below(3) == 0 ? 3 + below(2) : 2);
    for (ixSize& d : dims) d = below(8) == 0 ? 0 : 1 + below(3);
    return dims;
  }

  template <class T>
  T value() {
    using lim = std::numeric_limits<T>;
    if constexpr (std::is_floating_point_v<T>) {
      const T pool[] = {lim::quiet_NaN(), lim::infinity(), -lim::infinity(), T(-0.0), T(0), lim::max(), -lim::max(),
                        lim::min(), lim::denorm_min(), -lim::denorm_min(), T(0.1), T(-2.5e-7), T(1e15)};
      if (below(2)) return pool[below(std::size(pool))];
      using Bits = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
      const Bits bits = Bits(rng_());  // every exponent, NaN payloads included
      T x;
      std::memcpy(&x, &bits, sizeof x);
      return x;
    } else if constexpr (sizeof(T) == 8) {
      // Within 2^53 of zero, where every integer has its own double.
      constexpr std::int64_t k = std::int64_t(1) << 53;
      const T pool[] = {T(k), T(-k), T(k - 1), T(0)};
      if (below(3) == 0) return pool[below(4)];
      return T(std::uniform_int_distribution<std::int64_t>(std::is_signed_v<T> ? -k : 0, k)(rng_));
    } else {
      const T pool[] = {lim::min(), lim::max(), T(0), T(1)};
      if (below(2)) return pool[below(4)];
      return T(rng_());
    }
  }

  template <class T>
  owned_array filled(bool complex) {
    const auto dims = shape();
    if (complex) {
      auto a = matrix::detail::create_numeric<std::complex<T>>(dims.size(), dims.data());
      auto* z = static_cast<std::complex<T>*>(ixGetData(a.get()));
      for (ixSize i = 0; i < ixGetNumberOfElements(a.get()); ++i) z[i] = {value<T>(), value<T>()};
      return a;
    }
    auto a = matrix::detail::create_numeric<T>(dims.size(), dims.data());
    T* x = static_cast<T*>(ixGetData(a.get()));
    for (ixSize i = 0; i < ixGetNumberOfElements(a.get()); ++i) x[i] = value<T>();
    return a;
  }

  owned_array numeric(int which, bool complex) {
    owned_array out;
    int k = 0;
    for_each_type(numeric_types{}, [&](auto tag) {
      if (k++ == which) out = filled<typename decltype(tag)::type>(complex);
    });
    return out;
  }

  owned_array logical() {
    const auto dims = shape();
    auto a = matrix::detail::create_numeric<bool>(dims.size(), dims.data());
    bool* x = static_cast<bool*>(ixGetData(a.get()));
    for (ixSize i = 0; i < ixGetNumberOfElements(a.get()); ++i) x[i] = below(2);
    return a;
  }

  owned_array chars() {
    static constexpr char16_t kUnits[] = {u'a', u'Z', u'0', u' ', u'"', u'\\', u'\n', u'\0', 0x7F, 0xE9, 0x4E2D, 0xFFFD};
    const auto dims = shape();
    owned_array a(ixCreateCharArray(dims.size(), dims.data()));
    char16_t* c = static_cast<char16_t*>(ixGetData(a.get()));
    const ixSize n = ixGetNumberOfElements(a.get());
    for (ixSize i = 0; i < n; ++i) {
      if (i + 1 < n && below(4) == 0) {  // a pair, kept adjacent in storage order
        c[i++] = below(2) ? 0xD83D : 0xDBFF;
        c[i] = below(2) ? 0xDE00 : 0xDFFF;
      } else {
        c[i] = kUnits[below(std::size(kUnits))];
      }
    }
    return a;
  }

  owned_array maybe_unset(int depth) { return below(7) == 0 ? nullptr : any(depth + 1); }

  owned_array cell(int depth) {
    const auto dims = shape();
    owned_array c(ixCreateCellArray(dims.size(), dims.data()));
    for (ixSize i = 0; i < ixGetNumberOfElements(c.get()); ++i) ixSetCell(c.get(), i, maybe_unset(depth).release());
    return c;
  }

  owned_array structure(int depth) {
    std::vector<std::string> names = {"b", "a", "B", "x_1", "long_field_name", "\xC3\xA9t\xC3\xA9"};
    std::shuffle(names.begin(), names.end(), rng_);
    names.resize(below(4));
    const auto dims = shape();
    owned_array s(ixCreateStructArray(dims.size(), dims.data(), int(names.size()), names.data()));
    for (ixSize i = 0; i < ixGetNumberOfElements(s.get()); ++i)
      for (int f = 0; f < int(names.size()); ++f) ixSetFieldByNumber(s.get(), i, f, maybe_unset(depth).release());
    return s;
  }

  std::mt19937_64 rng_;
};

bool is_2d(const ixArray* a, ixSize m, ixSize n) {
  return ixGetNumberOfDimensions(a) == 2 && ixGetM(a) == m && ixGetN(a) == n;
}

// Everything a container holds, unset ones as null.
std::vector<const ixArray*> contents(const ixArray* a) {
  std::vector<const ixArray*> out;
  const ixSize n = ixGetNumberOfElements(a);
  if (ixGetClassID(a) == ixCELL_CLASS)
    for (ixSize i = 0; i < n; ++i) out.push_back(ixGetCell(a, i));
  if (ixGetClassID(a) == ixSTRUCT_CLASS)
    for (ixSize i = 0; i < n; ++i)
      for (int f = 0; f < ixGetNumberOfFields(a); ++f) out.push_back(ixGetFieldByNumber(a, i, f));
  return out;
}

bool small_keeps(const ixArray* a) {
  if (ixGetClassID(a) == ixDOUBLE_CLASS && !ixIsComplex(a) && is_2d(a, 0, 0)) return false;
  if (ixGetClassID(a) == ixSTRUCT_CLASS && ixGetNumberOfFields(a) == 0 && is_2d(a, 0, 0)) return false;
  for (const ixArray* e : contents(a))
    if (!e || !small_keeps(e)) return false;
  return true;
}

template <class T>
bool all_finite(const ixArray* a) {
  const T* x = static_cast<const T*>(ixGetData(a));
  for (ixSize i = 0; i < ixGetNumberOfElements(a) * (ixIsComplex(a) ? 2 : 1); ++i)
    if (!std::isfinite(x[i])) return false;
  return true;
}

bool finite(const ixArray* a) {
  if (ixGetClassID(a) == ixDOUBLE_CLASS) return all_finite<double>(a);
  if (ixGetClassID(a) == ixSINGLE_CLASS) return all_finite<float>(a);
  for (const ixArray* e : contents(a))
    if (e && !finite(e)) return false;
  return true;
}

bool comes_back(const std::string& json, const ixArray* a) {
  bool equal = false;
  const auto failure = failure_of([&] { equal = ixIsEqualN(decode(json).get(), a); });
  return !failure && equal;
}

TEST(RoundTrip, GeneratedArrays) {
  LeakCheck leaks;
  int small_kept = 0, string_form = 0, total = 0;
  for (std::uint64_t seed : {1u, 2u, 3u, 5u, 8u, 13u, 21u, 34u, 55u, 89u}) {
    generator gen(seed);
    for (int i = 0; i < 150; ++i, ++total) {
      const owned_array a = gen.any();
      const ixArray* x = a.get();
      const std::string large = encode(x, "large", "object", i % 2);
      EXPECT_TRUE(comes_back(large, x)) << "seed " << seed << ", array " << i << ": " << large;
      const std::string small = encode(x, "small", "object");
      EXPECT_EQ(comes_back(small, x), small_keeps(x)) << "seed " << seed << ", array " << i << ": " << small;
      const std::string strings = encode(x, "large", "string");
      EXPECT_EQ(comes_back(strings, x), finite(x)) << "seed " << seed << ", array " << i << ": " << strings;
      small_kept += small_keeps(x);
      string_form += finite(x);
    }
  }
  // The generator must reach both sides of each property.
  EXPECT_GT(std::min(small_kept, total - small_kept), total / 50);
  EXPECT_GT(std::min(string_form, total - string_form), total / 50);
}

}  // namespace
}  // namespace dovra_test
