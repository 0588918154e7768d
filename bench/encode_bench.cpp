// Encoding: arrays to JSON text.
//
// Ours is timed end to end as a host calls it: the host array and the three
// option arguments go into the encode builtin (table entry 0), which returns
// the UTF-16 char row; destroying it is left out of the timing (see
// ResultDisposal). The peers write the same text from
// the same column-major numbers into a buffer that keeps its capacity.
//
// Every implementation's text is read back with simdjson (exact number
// parsing) and compared with the source numbers before timing.

#include <simdjson.h>

#include <cmath>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>

#include "data.hpp"
#include "harness.hpp"
#include "peers/rapidjson_peer.hpp"
#include "peers/to_chars_peer.hpp"

namespace dovra_bench {

namespace {

namespace dom = simdjson::dom;

struct Workload {
  std::string name;      // as shown in the results
  std::string set;       // the encode data set
  Layout layout;
};

const std::vector<Workload>& workloads() {
  static const std::vector<Workload> w = {
      {"doubles_1000x1000_small", "doubles_1000x1000", Layout::Small},
      {"doubles_1000x1000_large", "doubles_1000x1000", Layout::Large},
      {"int32_1000x1000", "int32_1000x1000", Layout::Large},
      {"complex_1000x1000_small", "complex_1000x1000", Layout::Small},
      {"complex_1000x1000_large", "complex_1000x1000", Layout::Large},
  };
  return w;
}

[[noreturn]] void mismatch(const std::string& what) { throw std::runtime_error("encoded text: " + what); }

void expect_number(dom::element e, double want, std::size_t index) {
  const double got = e.get_double();
  if (got != want || std::signbit(got) != std::signbit(want)) {
    std::ostringstream msg;
    msg.precision(17);
    msg << "value " << index << " is " << got << ", expected " << want;
    mismatch(msg.str());
  }
}

}  // namespace

void check_text(std::string_view text, const NumericMatrix& m, Layout layout) {
  dom::parser parser;
  dom::element root;
  if (auto error = parser.parse(text.data(), text.size(), true).get(root))
    mismatch(std::string("not JSON: ") + simdjson::error_message(error));

  if (layout == Layout::Small && m.doubles && !m.complex) {
    std::size_t i = 0;
    for (dom::element row : root.get_array()) {
      if (i == m.rows) mismatch("too many rows");
      std::size_t j = 0;
      for (dom::element v : row.get_array()) {
        if (j == m.cols) mismatch("row too long");
        expect_number(v, m.doubles[i + j * m.rows], i + j * m.rows);
        ++j;
      }
      if (j != m.cols) mismatch("row too short");
      ++i;
    }
    if (i != m.rows) mismatch("too few rows");
    return;
  }

  // Large notation: the keys in the order the encoder's ordered map gives.
  std::vector<std::string> want_keys = {"tndata", "tnsize", "tntype"};
  if (m.complex) want_keys.insert(want_keys.begin(), "tncomplex");
  std::size_t key = 0;
  for (dom::key_value_pair field : root.get_object()) {
    if (key == want_keys.size() || field.key != want_keys[key]) mismatch("unexpected key " + std::string(field.key));
    ++key;
    if (field.key == "tncomplex") {
      if (!bool(field.value.get_bool())) mismatch("tncomplex is not true");
    } else if (field.key == "tndata") {
      const std::size_t values = m.count() * (m.complex ? 2 : 1);
      std::size_t k = 0;
      for (dom::element v : field.value.get_array()) {
        if (k == values) mismatch("too many values");
        expect_number(v, m.int32s ? double(m.int32s[k]) : m.doubles[k], k);
        ++k;
      }
      if (k != values) mismatch("too few values");
    } else if (field.key == "tnsize") {
      dom::array size = field.value.get_array();
      if (size.size() != 2) mismatch("tnsize has not two entries");
      expect_number(size.at(0), double(m.rows), 0);
      expect_number(size.at(1), double(m.cols), 1);
    } else if (std::string_view(field.value.get_string()) != m.type_name()) {
      mismatch("tntype is not " + std::string(m.type_name()));
    }
  }
  if (key != want_keys.size()) mismatch("missing keys");
}

namespace {

// The text size every implementation of a workload is credited with: that of
// the shortest round-trip text, which the to_chars peer writes.
std::size_t text_size(const Workload& w) {
  static std::map<std::string, std::size_t> sizes;
  auto it = sizes.find(w.name);
  if (it == sizes.end()) {
    peers::ToCharsEncoder enc;
    it = sizes.emplace(w.name, enc.write(encode_set(w.set).matrix, w.layout).size()).first;
  }
  return it->second;
}

struct Options {
  matrix::owned_array small = host_text("small");
  matrix::owned_array large = host_text("large");
  matrix::owned_array nan_inf = host_text("string");
  matrix::owned_array pretty = matrix::owned_array(ixCreateLogicalScalar(false));
};

const Options& options() {
  static const Options o;
  return o;
}

void encode_ours(benchmark::State& state, const Workload& w) {
  auto args = [&] {
    const Options& o = options();
    return std::array<const ixArray*, 4>{encode_set(w.set).array.get(),
                                         (w.layout == Layout::Small ? o.small : o.large).get(), o.nan_inf.get(),
                                         o.pretty.get()};
  };
  if (!prepared(state, "encode/" + w.name + "/ours", [&] {
        const auto a = args();
        const matrix::owned_array result = call(builtins().encode, {a[0], a[1], a[2], a[3]});
        check_text(utf8_of(result.get()), encode_set(w.set).matrix, w.layout);
        text_size(w);
      }))
    return;
  auto prhs = args();
  time_builtin(state, builtins().encode, prhs.data(), 4);
  report_bytes(state, text_size(w));
}

template <class Encoder>
void encode_peer(benchmark::State& state, const Workload& w, const std::string& peer) {
  if (!prepared(state, "encode/" + w.name + "/" + peer, [&] {
        Encoder probe;
        check_text(probe.write(encode_set(w.set).matrix, w.layout), encode_set(w.set).matrix, w.layout);
        text_size(w);
      }))
    return;
  const NumericMatrix& m = encode_set(w.set).matrix;
  Encoder enc;
  enc.write(m, w.layout);  // grows the buffer once, outside the loop
  for (auto _ : state) {
    const std::string_view text = enc.write(m, w.layout);
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  }
  report_bytes(state, text_size(w));
}

// A 1x10000 structure array with 20 fields: doubles, whole numbers,
// strings (some with escapes) and logicals in turn. Made here with a fixed
// seed rather than read from bench/data/: it has no file form. The peer
// writes the same text from the same fields held in plain columns.
struct Records {
  static constexpr ixSize kCount = 10000;
  static constexpr int kFields = 20;
  FieldTable table;
  matrix::owned_array array;

  Records() {
    table.count = kCount;
    for (int k = 0; k < kFields; ++k) table.names.push_back((k < 10 ? "field0" : "field") + std::to_string(k));
    std::vector<const char*> name_ptrs;
    for (const auto& n : table.names) name_ptrs.push_back(n.c_str());
    array = matrix::owned_array(ixCreateStructMatrix(1, kCount, kFields, name_ptrs.data()));
    std::mt19937_64 rng(17);
    std::normal_distribution<double> normal;
    for (ixSize i = 0; i < kCount; ++i) {
      for (int k = 0; k < kFields; ++k) {
        ixArray* value = nullptr;
        switch (k % 4) {
          case 0: table.numbers.push_back(normal(rng)); value = ixCreateDoubleScalar(table.numbers.back()); break;
          case 1:
            table.numbers.push_back(double(rng() % 1000000));
            value = ixCreateDoubleScalar(table.numbers.back());
            break;
          case 2:
            table.strings.push_back("item " + std::to_string(rng() % 100000) +
                                    (rng() % 8 == 0 ? " \"quoted\"\tand tabbed" : ""));
            value = host_text(table.strings.back()).release();
            break;
          default: table.flags.push_back(rng() % 2 == 0); value = ixCreateLogicalScalar(table.flags.back()); break;
        }
        ixSetFieldByNumber(array.get(), i, k, value);
      }
    }
  }

  // Reads `text` back: {"tndata":{field:[values by element]},"tnsize":[1,N],"tntype":"struct"}.
  void check(std::string_view text) const {
    dom::parser parser;
    dom::element root;
    if (auto error = parser.parse(text.data(), text.size(), true).get(root))
      mismatch(std::string("not JSON: ") + simdjson::error_message(error));
    dom::object data = root["tndata"].get_object();
    if (data.size() != std::size_t(kFields)) mismatch("not 20 fields");
    std::size_t k = 0;
    for (dom::key_value_pair field : data) {
      if (field.key != table.names[k]) mismatch("unexpected field " + std::string(field.key));
      std::size_t i = 0;
      for (dom::element v : field.value.get_array()) {
        if (i == std::size_t(kCount)) mismatch("too many values");
        switch (k % 4) {
          case 0: case 1: expect_number(v, table.number(i, k), i); break;
          case 2:
            if (std::string_view(v.get_string()) != table.string(i, k)) mismatch("a string differs");
            break;
          default:
            if (bool(v.get_bool()) != table.flag(i, k)) mismatch("a logical differs");
        }
        ++i;
      }
      if (i != std::size_t(kCount)) mismatch("too few values");
      ++k;
    }
    dom::array size = root["tnsize"].get_array();
    if (size.size() != 2 || double(size.at(0)) != 1 || double(size.at(1)) != double(kCount)) mismatch("tnsize");
    if (std::string_view(root["tntype"].get_string()) != "struct") mismatch("tntype");
  }
};

const Records& records() {
  static const Records r;
  return r;
}

// Every implementation is credited with the size of our text: there is no
// to_chars peer to set it.
std::size_t records_text_size() {
  static const std::size_t bytes = [] {
    const Options& o = options();
    const matrix::owned_array result = call(builtins().encode, {records().array.get(), o.small.get(), o.nan_inf.get(), o.pretty.get()});
    return utf8_of(result.get()).size();
  }();
  return bytes;
}

void encode_records_ours(benchmark::State& state) {
  auto args = [&] {
    const Options& o = options();
    return std::array<const ixArray*, 4>{records().array.get(), o.small.get(), o.nan_inf.get(), o.pretty.get()};
  };
  if (!prepared(state, "encode/records_1x10000_20_fields/ours", [&] {
        const auto a = args();
        const matrix::owned_array result = call(builtins().encode, {a[0], a[1], a[2], a[3]});
        records().check(utf8_of(result.get()));
        records_text_size();
      }))
    return;
  auto prhs = args();
  time_builtin(state, builtins().encode, prhs.data(), 4);
  report_bytes(state, records_text_size());
}

void encode_records_rapidjson(benchmark::State& state) {
  if (!prepared(state, "encode/records_1x10000_20_fields/rapidjson", [&] {
        peers::RapidjsonEncoder probe;
        records().check(probe.write(records().table));
        records_text_size();
      }))
    return;
  peers::RapidjsonEncoder enc;
  enc.write(records().table);  // grows the buffer once, outside the loop
  for (auto _ : state) {
    const std::string_view text = enc.write(records().table);
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  }
  report_bytes(state, records_text_size());
}

}  // namespace

void register_encode_benchmarks() {
  for (const Workload& w : workloads()) {
    const std::string prefix = "encode/" + w.name + "/";
    benchmark::RegisterBenchmark((prefix + "ours").c_str(), encode_ours, w)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((prefix + "rapidjson").c_str(), encode_peer<peers::RapidjsonEncoder>, w,
                                 std::string("rapidjson"))
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((prefix + "to_chars").c_str(), encode_peer<peers::ToCharsEncoder>, w,
                                 std::string("to_chars"))
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark("encode/records_1x10000_20_fields/ours", encode_records_ours)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("encode/records_1x10000_20_fields/rapidjson", encode_records_rapidjson)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace dovra_bench
