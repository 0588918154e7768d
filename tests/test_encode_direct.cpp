// The writer that skips the value tree, against the tree: generated arrays of
// every class, shape and nesting must come out the same, unit for unit, in
// both notations and both NaN forms, and whatever the tree refuses the
// writer must leave to it.

#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <optional>
#include <random>

#include "encode/converter.hpp"
#include "encode/direct_writer.hpp"
#include "encode_rows.hpp"
#include "foundation/json/serializer.hpp"

namespace dovra_test {
namespace {

using ixtal_json::detail::NanType;
using ixtal_json::detail::ToJsonMode;

// The tree's compact text, or nothing when the converter throws.
std::optional<std::u16string> tree_text(const ixArray* a, ToJsonMode mode, NanType nan) {
  foundation::json::Value v;
  try {
    v = ixtal_json::detail::convert(a, mode, nan);
  } catch (...) {
    return std::nullopt;
  }
  const foundation::json::Serializer writer;
  std::u16string out(writer.room(v), u'\0');
  out.resize(writer.write(out.data(), v));
  return out;
}

std::optional<std::u16string> direct_text(const ixArray* a, ToJsonMode mode, NanType nan) {
  const owned_array row(ixtal_json::detail::write_direct(a, mode, nan));
  if (!row) return std::nullopt;
  const auto* units = static_cast<const char16_t*>(ixGetData(row.get()));
  return std::u16string(units, units + ixGetNumberOfElements(row.get()));
}

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : rng_(seed) {}

  owned_array any(int depth) {
    const int pick = int(below(depth > 0 ? 16 : 13));
    switch (pick) {
      case 0: case 1: case 2: return numeric<double>();
      case 3: return numeric<float>();
      case 4: return numeric<std::int32_t>();
      case 5: return below(2) ? numeric<std::int8_t>() : numeric<std::uint16_t>();
      case 6: return below(2) ? numeric<std::int64_t>() : numeric<std::uint64_t>();
      case 7: return numeric<bool>();
      case 8: case 9: return text();
      case 10: return below(2) ? complex<double>() : below(2) ? complex<float>() : complex<std::uint32_t>();
      case 11: return below(3) ? numeric<std::uint8_t>() : unsupported();
      case 12: return numeric<std::int16_t>();
      case 13: return cell(depth - 1);
      default: return structure(depth - 1);
    }
  }

  // A structure array like a table of records, every value a scalar or a text.
  owned_array records(ixSize count) {
    const std::vector<std::string> names = field_names();
    std::vector<owned_array> values;
    for (ixSize i = 0; i < count * names.size(); ++i)
      values.push_back(below(3) == 0 ? text() : below(2) ? numeric<double>({1, 1}) : numeric<bool>({1, 1}));
    return make_struct(names, std::move(values), {1, count});
  }

  // A column of records made alike, as a decoded response holds them: one
  // list of names shared by all (a long one among them now and then), the
  // values mostly scalars and texts, now and then a record or unset.
  owned_array responses(ixSize count) {
    std::vector<std::string> names = field_names();
    if (below(2)) names.push_back("a name longer than thirty-two bytes, \xE2\x82\xAC");
    const owned_array model = make_struct(names, std::vector<owned_array>(names.size()), {1, 1});
    std::vector<owned_array> column;
    for (ixSize i = 0; i < count; ++i) {
      const ixSize one[2] = {1, 1};
      owned_array r(ixCreateStructArrayLike(2, one, model.get()));
      for (int f = 0; f < int(names.size()); ++f) {
        owned_array v;
        switch (below(8)) {
          case 0: v = text(); break;
          case 1: v = words(); break;
          case 2: v = numeric<bool>({1, 1}); break;
          case 3: v = below(4) ? records(1) : nullptr; break;
          default: v = numeric<double>({1, 1});
        }
        ixSetFieldByNumber(r.get(), 0, f, v.release());
      }
      column.push_back(std::move(r));
    }
    return make_cell(std::move(column), {count, 1});
  }

  template <class T>
  owned_array numeric(std::vector<ixSize> dims) {
    std::vector<T> data(count_of(dims));
    for (auto&& x : data) x = value<T>();
    return make_numeric<T>(data, dims);
  }

 private:
  std::uint64_t below(std::uint64_t n) { return rng_() % n; }

  std::vector<ixSize> shape() {
    static const std::vector<std::vector<ixSize>> shapes = {
        {0, 0}, {1, 1}, {1, 1}, {1, 1}, {1, 3}, {4, 1}, {2, 3}, {1, 0}, {0, 3}, {2, 1, 2}, {1, 1, 2}};
    return shapes[below(shapes.size())];
  }
  static std::size_t count_of(const std::vector<ixSize>& dims) {
    std::size_t n = 1;
    for (ixSize d : dims) n *= d;
    return n;
  }

  template <class T>
  T value() {
    if constexpr (std::is_same_v<T, bool>) {
      return below(2);
    } else if constexpr (std::is_floating_point_v<T>) {
      static const double pool[] = {0.0, -0.0, 1, -7, 12345, 100000, -2500000, 0.1, 1e-7, 1e21, 9007199254740992.0,
                                    9007199254740994.0, 5e-324, 1.7976931348623157e308, NAN, INFINITY, -INFINITY};
      switch (below(4)) {
        case 0: return T(pool[below(std::size(pool))]);
        case 1: return T(std::int64_t(below(2000001)) - 1000000);
        case 2: return T(std::normal_distribution<double>()(rng_));
        default: {
          using Bits = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
          const Bits bits = Bits(rng_());
          T x;
          std::memcpy(&x, &bits, sizeof x);
          return x;  // NaN payloads and infinities too
        }
      }
    } else {
      using L = std::numeric_limits<T>;
      switch (below(4)) {
        case 0: return below(2) ? L::min() : L::max();
        case 1: return T(100000 * below(5));
        default: return T(rng_());
      }
    }
  }

  template <class T>
  owned_array complex() {
    const std::vector<ixSize> dims = shape();
    owned_array a(ixCreateNumericArray(dims.size(), dims.data(), ixtal::class_of_element<T>::id, ixCOMPLEX));
    auto* x = static_cast<std::complex<T>*>(ixGetData(a.get()));
    for (std::size_t i = 0; i < count_of(dims); ++i) x[i] = {value<T>(), value<T>()};
    return a;
  }
  template <class T>
  owned_array numeric() {
    return numeric<T>(shape());
  }

  std::u16string units(std::size_t n) {
    static const char16_t pool[] = {u'a', u'Z', u' ', u'"', u'\\', u'/', 0x00, 0x1F, u'\n', u'\t', 0x7F, 0xE9,
                                    0x20AC, 0xFFFF, 0xD800, 0xDC00};
    std::u16string s;
    while (s.size() < n) {
      if (s.size() + 1 < n && below(8) == 0) {
        s += u"\U0001F600";  // a pair
      } else {
        s += pool[below(std::size(pool))];
      }
    }
    return s;
  }
  owned_array text() {
    static const std::vector<std::vector<ixSize>> shapes = {{1, 5}, {1, 1}, {1, 12}, {0, 0}, {1, 0}, {2, 2}, {1, 2, 2}};
    const std::vector<ixSize> dims = shapes[below(shapes.size())];
    return make_char(units(count_of(dims)), dims);
  }

  // A row of printable ASCII, 1 to 90 units, now and then with a unit to
  // escape or beyond ASCII somewhere in it.
  owned_array words() {
    std::u16string s(1 + below(90), u'a');
    for (auto& c : s) c = char16_t(0x20 + below(0x5F));
    if (below(2)) s[below(s.size())] = u"\"\\\n\u00e9\u20ac\x7f"[below(6)];
    return make_char(s, {1, s.size()});
  }

  owned_array unsupported() {
    if (below(2)) return owned_array(ixCreateSparse(2, 2, ixDOUBLE_CLASS, ixREAL));
    return make_strings({u"s"}, {1, 1});
  }

  std::vector<std::string> field_names() {
    static const char* pool[] = {"a", "b", "B", "_x", "\xC3\xA9t\xC3\xA9", "q\"uote", "", "zz", "line\nfeed", "a1"};
    std::vector<std::string> names;
    for (const char* name : pool)
      if (below(3) == 0) names.push_back(name);
    std::shuffle(names.begin(), names.end(), rng_);
    return names;
  }

  owned_array cell(int depth) {
    static const std::vector<std::vector<ixSize>> shapes = {{1, 1}, {1, 3}, {2, 1}, {0, 0}, {2, 2}};
    const std::vector<ixSize> dims = shapes[below(shapes.size())];
    std::vector<owned_array> elements;
    for (std::size_t i = 0; i < count_of(dims); ++i) elements.push_back(below(6) ? any(depth) : nullptr);
    return make_cell(std::move(elements), dims);
  }

  owned_array structure(int depth) {
    static const std::vector<std::vector<ixSize>> shapes = {{1, 1}, {1, 1}, {1, 3}, {2, 1}, {0, 0}, {1, 0}};
    const std::vector<ixSize> dims = shapes[below(shapes.size())];
    const std::vector<std::string> names = field_names();
    std::vector<owned_array> values;
    for (std::size_t i = 0; i < count_of(dims) * names.size(); ++i) values.push_back(below(6) ? any(depth) : nullptr);
    return make_struct(names, std::move(values), dims);
  }

  std::mt19937_64 rng_;
};

struct Tally {
  int compared = 0, served = 0;
};

// Every combination the writer serves (compact text); `label` names the array.
void expect_same(const ixArray* a, const std::string& label, Tally& tally) {
  for (const ToJsonMode mode : {ToJsonMode::large, ToJsonMode::small})
    for (const NanType nan : {NanType::string, NanType::object}) {
      const std::string where = label + (mode == ToJsonMode::large ? " large" : " small") +
                                (nan == NanType::string ? " string" : " object");
      const auto tree = tree_text(a, mode, nan);
      const auto direct = direct_text(a, mode, nan);
      ++tally.compared;
      if (!direct) continue;
      ++tally.served;
      ASSERT_TRUE(tree) << where << ": the tree refuses what the writer wrote";
      ASSERT_EQ(*direct, *tree) << where << "\n tree: " << utf8_of(make_char(*tree, {1, tree->size()}).get());
    }
}

TEST(EncodeDirect, SameTextAsTheTreeForGeneratedArrays) {
  LeakCheck leaks;
  Tally tally;
  for (std::uint64_t seed = 0; seed < 3000; ++seed) {
    Generator g(seed);
    const owned_array a = g.any(3);
    expect_same(a.get(), "seed " + std::to_string(seed), tally);
    if (HasFatalFailure()) return;
  }
  // The comparison means something only if most arrays take the writer.
  EXPECT_GT(tally.served, tally.compared * 3 / 4) << tally.served << " of " << tally.compared;
}

// Records made alike share their layout and its keys; texts of any length
// go through the writer's eight-unit lane, and every text crosses the
// thread's buffer as it grows.
TEST(EncodeDirect, SameTextForResponsesOfRecordsMadeAlike) {
  LeakCheck leaks;
  Tally tally;
  for (std::uint64_t seed = 0; seed < 300; ++seed) {
    Generator g(seed);
    const owned_array a = g.responses(1 + seed % 40);
    expect_same(a.get(), "responses, seed " + std::to_string(seed), tally);
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(tally.served, tally.compared);
}

TEST(EncodeDirect, SameTextForLongAndDeepArrays) {
  Generator g(7);
  owned_array deep = make_double({1}, {1, 1});
  for (int i = 0; i < 120; ++i) {  // past the writer's nesting: the tree writes it
    std::vector<owned_array> one;
    one.push_back(std::move(deep));
    deep = make_cell(std::move(one), {1, 1});
  }
  struct row {
    const char* label;
    owned_array array;
    bool served;
  };
  const row rows[] = {
      // Longer than the writer's chunk, so numbers and texts cross its end.
      {"int32 row", g.numeric<std::int32_t>({1, 40000}), true},
      {"double matrix", g.numeric<double>({300, 40}), true},
      {"uint8 column", g.numeric<std::uint8_t>({70000, 1}), true},
      {"records", g.records(3000), true},
      {"responses", g.responses(3000), true},
      {"long text", make_char(std::u16string(40000, u'\u00e9') + u"\U0001F600" + std::u16string(40000, u'"'), {1, 80002}),
       true},
      // Replacement characters take three bytes and one unit: near the end
      // of the room the bytes outnumber the room left, the units do not.
      {"replacements at the end of the room",
       make_char(u"\ufffd\ufffd\ufffd\ufffd\u0002\u0010a" + std::u16string(2, u'\0') + std::u16string(85, u'\ufffd') + u":",
                 {1, 95}),
       true},
      {"nested past the writer's depth", std::move(deep), false},
  };
  LeakCheck leaks;
  for (const row& r : rows) {
    Tally tally;
    expect_same(r.array.get(), r.label, tally);
    EXPECT_EQ(tally.served, r.served ? tally.compared : 0) << r.label;
  }
}

}  // namespace
}  // namespace dovra_test
