#include "data.hpp"

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <variant>

#include "ixtal/host.hpp"
#include "ixtal/json_host.hpp"
#include "ixtal/text.hpp"

namespace dovra_bench {

// --- files -------------------------------------------------------------------

std::string data_path(std::string_view file) {
  const char* dir = std::getenv("DOVRA_BENCH_DATA");
  return std::string(dir && *dir ? dir : DOVRA_BENCH_DATA_DIR) + "/" + std::string(file);
}

std::string read_file(std::string_view file) {
  const std::string path = data_path(file);
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path + " (run: python3 bench/gen_data.py)");
  std::string bytes;
  in.seekg(0, std::ios::end);
  bytes.resize(static_cast<std::size_t>(in.tellg()));
  in.seekg(0);
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!in) throw std::runtime_error("short read of " + path);
  return bytes;
}

namespace {

// The generator writes little-endian, and so is every machine this runs on.
template <class T>
std::vector<T> read_binary(std::string_view file, std::size_t expected_count) {
  const std::string bytes = read_file(file);
  if (bytes.size() != expected_count * sizeof(T))
    throw std::runtime_error(std::string(file) + " has " + std::to_string(bytes.size()) + " bytes, expected " +
                             std::to_string(expected_count * sizeof(T)));
  std::vector<T> out(expected_count);
  std::memcpy(out.data(), bytes.data(), bytes.size());
  return out;
}

// Reads the tagged values of a .ref file: 'b' + u8, 'd' + f64, 's' + u32
// length + UTF-8.
class RefReader {
 public:
  explicit RefReader(std::string_view file) : name_(file), bytes_(read_file(file)) {}

  std::uint32_t u32() {
    std::uint32_t v;
    take(&v, sizeof v);
    return v;
  }
  std::string text() {
    std::string s(u32(), '\0');
    take(s.data(), s.size());
    return s;
  }
  char tag() {
    char t;
    take(&t, 1);
    return t;
  }
  std::variant<bool, double, std::string> value() { return value(tag()); }
  std::variant<bool, double, std::string> value(char tag) {
    switch (tag) {
      case 'b': {
        std::uint8_t b;
        take(&b, 1);
        return b != 0;
      }
      case 'd': {
        double d;
        take(&d, sizeof d);
        return d;
      }
      case 's':
        return text();
      default:
        throw std::runtime_error(name_ + ": bad tag at byte " + std::to_string(pos_ - 1));
    }
  }
  template <class T>
  void values(T* out, std::size_t n) {
    take(out, n * sizeof(T));
  }
  void expect_end() const {
    if (pos_ != bytes_.size()) throw std::runtime_error(name_ + ": trailing bytes");
  }

 private:
  void take(void* out, std::size_t n) {
    if (bytes_.size() - pos_ < n) throw std::runtime_error(name_ + ": truncated");
    std::memcpy(out, bytes_.data() + pos_, n);
    pos_ += n;
  }

  std::string name_;
  std::string bytes_;
  std::size_t pos_ = 0;
};

constexpr std::size_t kRows = 1000, kCols = 1000;

matrix::owned_array host_value(const std::variant<bool, double, std::string>& v) {
  if (const bool* b = std::get_if<bool>(&v)) return matrix::owned_array(ixCreateLogicalScalar(*b));
  if (const double* d = std::get_if<double>(&v)) return matrix::owned_array(ixCreateDoubleScalar(*d));
  return host_text(std::get<std::string>(v));
}

// The host array of a tree in a .ref file (see pack_tree in gen_data.py).
matrix::owned_array host_tree(RefReader& ref) {
  const char tag = ref.tag();
  switch (tag) {
    case 'm':
    case 'i': {
      const std::uint32_t rows = ref.u32(), cols = ref.u32();
      matrix::owned_array a(tag == 'm' ? ixCreateDoubleMatrix(rows, cols, ixREAL)
                                       : ixCreateNumericMatrix(rows, cols, ixINT32_CLASS, ixREAL));
      if (tag == 'm')
        ref.values(static_cast<double*>(ixGetData(a.get())), std::size_t(rows) * cols);
      else
        ref.values(static_cast<std::int32_t*>(ixGetData(a.get())), std::size_t(rows) * cols);
      return a;
    }
    case 'c': {
      const std::uint32_t rows = ref.u32(), cols = ref.u32();
      matrix::owned_array cell(ixCreateCellMatrix(rows, cols));
      for (std::size_t k = 0; k < std::size_t(rows) * cols; ++k) ixSetCell(cell.get(), k, host_tree(ref).release());
      return cell;
    }
    case 'r': {
      const std::uint32_t nfields = ref.u32();
      std::vector<std::string> names;
      std::vector<matrix::owned_array> values;
      for (std::uint32_t f = 0; f < nfields; ++f) {
        names.push_back(ref.text());
        values.push_back(host_tree(ref));
      }
      matrix::owned_array s(ixCreateStructArray(2, std::array<ixSize, 2>{1, 1}.data(), int(nfields), names.data()));
      for (std::uint32_t f = 0; f < nfields; ++f) ixSetFieldByNumber(s.get(), 0, int(f), values[f].release());
      return s;
    }
    default: return host_value(ref.value(tag));
  }
}

void load_matrix(DecodeSet& set, const std::string& stem) {
  set.rows = kRows;
  set.cols = kCols;
  set.doubles = read_binary<double>(stem + ".f64", kRows * kCols);
  set.expected.reset(ixCreateDoubleMatrix(kRows, kCols, ixREAL));
  std::memcpy(ixGetData(set.expected.get()), set.doubles.data(), set.doubles.size() * sizeof(double));
}

void load_int32(DecodeSet& set) {
  constexpr std::size_t n = 1'000'000;
  set.rows = 1;
  set.cols = n;
  set.int32s = read_binary<std::int32_t>("int32_1e6.i32", n);
  set.expected.reset(ixCreateNumericMatrix(1, n, ixINT32_CLASS, ixREAL));
  std::memcpy(ixGetData(set.expected.get()), set.int32s.data(), n * sizeof(std::int32_t));
}

void load_strings(DecodeSet& set) {
  RefReader ref("strings_100k.ref");
  const std::uint32_t n = ref.u32();
  set.strings.reserve(n);
  set.expected.reset(ixCreateCellMatrix(n, 1));
  for (std::uint32_t i = 0; i < n; ++i) {
    set.strings.push_back(std::get<std::string>(ref.value()));
    ixSetCell(set.expected.get(), i, host_text(set.strings.back()).release());
  }
  ref.expect_end();
  set.rows = n;
  set.cols = 1;
}

void load_records(DecodeSet& set) {
  RefReader ref("records_20k.ref");
  const std::uint32_t n = ref.u32();
  const std::uint32_t nfields = ref.u32();
  std::vector<std::string> names;
  for (std::uint32_t f = 0; f < nfields; ++f) names.push_back(ref.text());
  const std::vector<std::string> known = {"active", "city", "id", "level", "name", "score"};
  if (names != known) throw std::runtime_error("records_20k.ref: unexpected field names");

  set.records.resize(n);
  set.expected.reset(ixCreateCellMatrix(n, 1));
  for (std::uint32_t i = 0; i < n; ++i) {
    matrix::owned_array s(ixCreateStructArray(2, std::array<ixSize, 2>{1, 1}.data(), int(nfields), names.data()));
    Record& r = set.records[i];
    for (std::uint32_t f = 0; f < nfields; ++f) {
      const auto v = ref.value();
      ixSetFieldByNumber(s.get(), 0, int(f), host_value(v).release());
      switch (f) {
        case 0: r.active = std::get<bool>(v); break;
        case 1: r.city = std::get<std::string>(v); break;
        case 2: r.id = std::get<double>(v); break;
        case 3: r.level = std::get<double>(v); break;
        case 4: r.name = std::get<std::string>(v); break;
        case 5: r.score = std::get<double>(v); break;
      }
    }
    ixSetCell(set.expected.get(), i, s.release());
  }
  ref.expect_end();
  set.rows = n;
  set.cols = 1;
}

std::unique_ptr<DecodeSet> load_decode_set(const std::string& name) {
  auto set = std::make_unique<DecodeSet>();
  set->name = name;
  set->json = read_file(name + ".json");
  if (name == "doubles_1000x1000" || name == "integers_1000x1000") {
    set->kind = DecodeKind::Matrix;
    load_matrix(*set, name);
  } else if (name == "int32_1e6") {
    set->kind = DecodeKind::Int32;
    load_int32(*set);
  } else if (name == "strings_100k") {
    set->kind = DecodeKind::Strings;
    load_strings(*set);
  } else if (name == "records_20k") {
    set->kind = DecodeKind::Records;
    load_records(*set);
  } else {
    throw std::invalid_argument("unknown decode data set " + name);
  }
  set->text = host_text(set->json);
  return set;
}

std::unique_ptr<EncodeSet> load_encode_set(const std::string& name) {
  auto set = std::make_unique<EncodeSet>();
  set->name = name;
  NumericMatrix& m = set->matrix;
  m.rows = kRows;
  m.cols = kCols;
  ixClassID cls = ixDOUBLE_CLASS;
  if (name == "doubles_1000x1000") {
    // The matrix of the decode data set, so both directions see the same numbers.
    set->doubles = read_binary<double>("doubles_1000x1000.f64", kRows * kCols);
    m.doubles = set->doubles.data();
  } else if (name == "int32_1000x1000") {
    // The int32 data set's million values, shaped as a square.
    set->int32s = read_binary<std::int32_t>("int32_1e6.i32", kRows * kCols);
    m.int32s = set->int32s.data();
    cls = ixINT32_CLASS;
  } else if (name == "complex_1000x1000") {
    set->doubles = read_binary<double>("complex_1000x1000.c128", 2 * kRows * kCols);
    m.doubles = set->doubles.data();
    m.complex = true;
  } else {
    throw std::invalid_argument("unknown encode data set " + name);
  }
  for (double d : set->doubles)
    if (!std::isfinite(d)) throw std::runtime_error(name + ": the data sets hold finite numbers only");
  set->array.reset(ixCreateUninitNumericArray(2, std::array<ixSize, 2>{kRows, kCols}.data(), cls,
                                              m.complex ? ixCOMPLEX : ixREAL));
  if (m.int32s)
    std::memcpy(ixGetData(set->array.get()), m.int32s, m.count() * sizeof(std::int32_t));
  else
    std::memcpy(ixGetData(set->array.get()), m.doubles, set->doubles.size() * sizeof(double));
  return set;
}

template <class Set, class Load>
const Set& cached(std::map<std::string, std::unique_ptr<Set>>& cache, const std::string& name, Load load) {
  auto it = cache.find(name);
  if (it == cache.end()) it = cache.emplace(name, load(name)).first;
  return *it->second;
}

std::string dims_text(const ixArray* a) {
  std::string s;
  const ixSize* d = ixGetDimensions(a);
  for (std::size_t i = 0; i < ixGetNumberOfDimensions(a); ++i) {
    if (i) s += 'x';
    s += std::to_string(d[i]);
  }
  return s;
}

std::string shape_text(const ixArray* a) {
  return std::string(ixIsComplex(a) ? "complex " : "") + ixGetClassName(a) + " " + dims_text(a);
}

}  // namespace

matrix::owned_array tree_reference(std::string_view file) {
  RefReader ref(file);
  matrix::owned_array a = host_tree(ref);
  ref.expect_end();
  return a;
}

// --- the host ------------------------------------------------------------------

const Builtins& builtins() {
  static const Builtins b = [] {
    // The host kit honours DOVRA_JSON_BUILTINS, else takes the library
    // beside libixtal: the build tree's own.
    const ixtal::BuiltinLibrary& lib = ixtal::json_host::load();
    Builtins out;
    out.encode = lib.entry(0);
    out.decode_response = lib.entry(1);
    out.decode = ixtal::find_function(ixtal::kJsonDecodeName);
    if (!out.decode) throw std::runtime_error("dovra.json.decode is not registered");
    return out;
  }();
  return b;
}

matrix::owned_array call(BuiltinFunction fn, std::initializer_list<const ixArray*> args) {
  ixArray* plhs[1] = {nullptr};
  try {
    fn(1, plhs, static_cast<std::int32_t>(args.size()), const_cast<const ixArray**>(args.begin()));
  } catch (...) {
    ixDestroyArray(plhs[0]);
    throw;
  }
  if (!plhs[0]) throw std::runtime_error("the builtin returned no result");
  return matrix::owned_array(plhs[0]);
}

matrix::owned_array host_text(std::string_view utf8) { return ixtal::json_host::text(utf8); }

std::string utf8_of(const ixArray* chars) {
  if (ixGetClassID(chars) != ixCHAR_CLASS) throw std::runtime_error("not a char array: " + shape_text(chars));
  return ixtal::json_host::utf8(chars);
}

std::string difference(const ixArray* got, const ixArray* want) {
  if (ixIsEqualN(got, want)) return {};
  if (!got || !want) return got ? "unexpected array" : "missing array";
  if (shape_text(got) != shape_text(want)) return "got " + shape_text(got) + ", expected " + shape_text(want);
  const ixSize n = ixGetNumberOfElements(got);
  switch (ixGetClassID(got)) {
    case ixCELL_CLASS:
      for (ixSize i = 0; i < n; ++i)
        if (std::string d = difference(ixGetCell(got, i), ixGetCell(want, i)); !d.empty())
          return "cell " + std::to_string(i) + ": " + d;
      break;
    case ixSTRUCT_CLASS:
      for (int f = 0; f < ixGetNumberOfFields(want); ++f) {
        const std::string& field = ixGetFieldName(want, f);
        const int g = ixGetFieldNumber(got, field);
        if (g < 0) return "no field " + field;
        for (ixSize i = 0; i < n; ++i)
          if (std::string d = difference(ixGetFieldByNumber(got, i, g), ixGetFieldByNumber(want, i, f)); !d.empty())
            return "element " + std::to_string(i) + " field " + field + ": " + d;
      }
      return "different fields";
    default: {
      const std::size_t size = ixGetElementSize(got) * (ixIsComplex(got) ? 2 : 1);
      const auto* a = static_cast<const unsigned char*>(ixGetData(got));
      const auto* b = static_cast<const unsigned char*>(ixGetData(want));
      for (ixSize i = 0; i < n; ++i) {
        if (std::memcmp(a + i * size, b + i * size, size) == 0) continue;
        std::ostringstream msg;
        msg.precision(17);
        msg << "element " << i;
        if (ixGetClassID(got) == ixDOUBLE_CLASS && !ixIsComplex(got))
          msg << " is " << reinterpret_cast<const double*>(a)[i] << ", expected "
              << reinterpret_cast<const double*>(b)[i];
        else if (ixGetClassID(got) == ixCHAR_CLASS)
          msg << " of '" << utf8_of(got) << "', expected '" << utf8_of(want) << "'";
        return msg.str();
      }
    }
  }
  return "arrays differ";
}

// --- data sets -------------------------------------------------------------------

const std::vector<std::string>& decode_set_names() {
  static const std::vector<std::string> names = {"doubles_1000x1000", "integers_1000x1000", "int32_1e6",
                                                 "strings_100k", "records_20k"};
  return names;
}

const DecodeSet& decode_set(const std::string& name) {
  static std::map<std::string, std::unique_ptr<DecodeSet>> cache;
  return cached(cache, name, load_decode_set);
}

const std::vector<std::string>& encode_set_names() {
  static const std::vector<std::string> names = {"doubles_1000x1000", "int32_1000x1000", "complex_1000x1000"};
  return names;
}

const EncodeSet& encode_set(const std::string& name) {
  static std::map<std::string, std::unique_ptr<EncodeSet>> cache;
  return cached(cache, name, load_encode_set);
}

}  // namespace dovra_bench
