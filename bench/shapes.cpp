// The shape suite (`dovra_bench --shapes`): each payload shape decoded and
// encoded by ours as a host calls it, side by side with yyjson (and
// simdjson for the typed data sets) in one process, plus the shortest-double
// writer on its own and two threads against one.
//
// Ours decodes from the host's UTF-16 char row to the host array and
// encodes the decoded array in small notation, compact, to the returned
// char row; destroying the result is not timed (ResultDisposal) except in
// the thread cases, whose cycle is what a server pays. yyjson parses and
// walks (bench/peers/yyjson_peer.hpp), or writes its own reading of the same
// text; for doubles and complex it builds a document from the matrix and
// writes it. Every case checks its first result before timing.

#include <simdjson.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "data.hpp"
#include "foundation/json/serializer.hpp"
#include "foundation/json/text_output.hpp"
#include "harness.hpp"
#include "peer_decode.hpp"
#include "peers/simdjson_peer.hpp"
#if DOVRA_BENCH_HAVE_YYJSON
#include "peers/yyjson_peer.hpp"
#endif

namespace dovra_bench {

namespace {

struct Shape {
  std::string name;
  bool response;  // read by the response builtin, else dovra.json.decode
  bool typed;     // one of the typed data sets (decode_set), else a tree reference
  bool encode;    // its decoded array is written back in the encode cases
};

const std::vector<Shape>& shapes() {
  static const std::vector<Shape> s = {
      {"response_flat", true, false, true},          {"response_row", true, false, true},
      {"response_nested", true, false, true},        {"cell_flat", false, false, false},
      {"cell_row", false, false, false},             {"cell_nested", false, false, false},
      {"mixed_4000", true, false, true},             {"strings_100k", true, true, false},
      {"doubles_1000x1000", false, true, false},     {"integers_1000x1000", false, true, true},
      {"int32_1e6", false, true, true},
  };
  return s;
}

// Cases of two threads run their preparation at once: loading and checking
// go through this lock (taken again by what they call).
std::recursive_mutex& setup_lock() {
  static std::recursive_mutex m;
  return m;
}

template <class Prepare>
bool prepared_once(benchmark::State& state, const std::string& id, Prepare prepare) {
  std::lock_guard<std::recursive_mutex> lock(setup_lock());
  return prepared(state, id, prepare);
}

// A shape's text as the peers read it and as the host holds it, and what
// ours must give back.
struct ShapeData {
  const std::string* json = nullptr;
  const ixArray* text = nullptr;
  const ixArray* expected = nullptr;
  const DecodeSet* typed = nullptr;
  std::string own_json;
  matrix::owned_array own_text, own_expected;
#if DOVRA_BENCH_HAVE_YYJSON
  peers::WalkTotals walk;  // tree shapes
#endif
};

const Shape& shape(const std::string& name) {
  for (const Shape& s : shapes())
    if (s.name == name) return s;
  throw std::invalid_argument("unknown shape " + name);
}

// Loaded on first use, under setup_lock().
const ShapeData& shape_data(const std::string& name) {
  static std::map<std::string, std::unique_ptr<ShapeData>> cache;
  auto it = cache.find(name);
  if (it != cache.end()) return *it->second;
  auto d = std::make_unique<ShapeData>();
  if (shape(name).typed) {
    d->typed = &decode_set(name);
    d->json = &d->typed->json;
    d->text = d->typed->text.get();
    d->expected = d->typed->expected.get();
  } else {
    d->own_json = read_file(name + ".json");
    d->own_text = host_text(d->own_json);
    d->own_expected = tree_reference(name + ".ref");
    d->json = &d->own_json;
    d->text = d->own_text.get();
    d->expected = d->own_expected.get();
#if DOVRA_BENCH_HAVE_YYJSON
    const std::string walk = read_file(name + ".walk");
    peers::WalkTotals& w = d->walk;
    if (walk.size() != 40) throw std::runtime_error(name + ".walk is not 40 bytes");
    std::memcpy(&w.numbers, walk.data(), 8);
    std::memcpy(&w.sum, walk.data() + 8, 8);
    std::memcpy(&w.string_bytes, walk.data() + 16, 8);
    std::memcpy(&w.trues, walk.data() + 24, 8);
    std::memcpy(&w.falses, walk.data() + 32, 8);
#endif
  }
  return *cache.emplace(name, std::move(d)).first->second;
}

BuiltinFunction our_decoder(const Shape& s) { return s.response ? builtins().decode_response : builtins().decode; }

// --- decoding ------------------------------------------------------------------

// "shapes/<op>/<shape>/<implementation>"
std::string case_name(const std::string& op, const std::string& shape_name, const std::string& impl) {
  return "shapes/" + op + "/" + shape_name + "/" + impl;
}

bool prepare_our_decode(benchmark::State& state, const std::string& id, const Shape& s) {
  return prepared_once(state, id, [&] {
    const ShapeData& d = shape_data(s.name);
    const matrix::owned_array result = call(our_decoder(s), {d.text});
    if (const std::string diff = difference(result.get(), d.expected); !diff.empty())
      throw std::runtime_error("differs from the reference: " + diff);
  });
}

// Calls a builtin and destroys its result, both timed: the cycle whose
// throughput the thread cases measure.
void cycle_builtin(benchmark::State& state, BuiltinFunction fn, const ixArray** prhs, int nrhs) {
  for (auto _ : state) {
    ixArray* plhs[1] = {nullptr};
    fn(1, plhs, nrhs, prhs);
    ixDestroyArray(plhs[0]);
  }
}

// How our cases time: the call alone, its result destroyed apart, or the
// whole cycle (the thread cases).
enum class Timing { Call, Cycle };

void time_ours(benchmark::State& state, Timing timing, BuiltinFunction fn, const ixArray** prhs, int nrhs) {
  if (timing == Timing::Call)
    time_builtin(state, fn, prhs, nrhs);
  else
    cycle_builtin(state, fn, prhs, nrhs);
}

void decode_ours(benchmark::State& state, const Shape& s, Timing timing) {
  if (!prepare_our_decode(state, case_name("decode", s.name, "ours"), s)) return;
  const BuiltinFunction fn = our_decoder(s);
  const ShapeData& d = [&]() -> const ShapeData& {
    std::lock_guard<std::recursive_mutex> lock(setup_lock());
    return shape_data(s.name);
  }();
  const ixArray* prhs[1] = {d.text};
  time_ours(state, timing, fn, prhs, 1);
  report_bytes(state, d.json->size());
}

// A peer's reading of one shape: run() is timed, check() compares the last
// reading with the reference.
class PeerReading {
 public:
  virtual ~PeerReading() = default;
  virtual void run() = 0;
  virtual std::string check() const = 0;
};

template <class Decoder>
class TypedReading : public PeerReading {
 public:
  explicit TypedReading(const DecodeSet& set) : peer_(set) {}
  void run() override { peer_.run(); }
  std::string check() const override { return peer_.check(); }

 private:
  PeerDecode<Decoder> peer_;
};

#if DOVRA_BENCH_HAVE_YYJSON
class WalkReading : public PeerReading {
 public:
  WalkReading(const std::string& json, const peers::WalkTotals& want) : decoder_(json), want_(want) {}
  void run() override { got_ = decoder_.walk(); }
  std::string check() const override {
    return got_ == want_ ? std::string() : "the walk met " + got_.text() + ", expected " + want_.text();
  }

 private:
  peers::YyjsonDecoder decoder_;
  peers::WalkTotals want_, got_;
};
#endif

std::unique_ptr<PeerReading> peer_reading(const Shape& s, const std::string& peer) {
  std::lock_guard<std::recursive_mutex> lock(setup_lock());
  const ShapeData& d = shape_data(s.name);
  if (peer == "simdjson") return std::make_unique<TypedReading<peers::SimdjsonDecoder>>(*d.typed);
#if DOVRA_BENCH_HAVE_YYJSON
  if (d.typed) return std::make_unique<TypedReading<peers::YyjsonDecoder>>(*d.typed);
  return std::make_unique<WalkReading>(*d.json, d.walk);
#else
  throw std::logic_error("no peer " + peer);
#endif
}

bool prepare_peer_decode(benchmark::State& state, const std::string& id, const Shape& s,
                         const std::string& peer) {
  return prepared_once(state, id, [&] {
    std::unique_ptr<PeerReading> probe = peer_reading(s, peer);
    probe->run();
    if (const std::string diff = probe->check(); !diff.empty())
      throw std::runtime_error("differs from the reference: " + diff);
  });
}

void decode_peer(benchmark::State& state, const Shape& s, const std::string& peer) {
  if (!prepare_peer_decode(state, case_name("decode", s.name, peer), s, peer)) return;
  std::unique_ptr<PeerReading> reading = peer_reading(s, peer);
  for (auto _ : state) {
    try {
      reading->run();
    } catch (const std::exception& e) {
      state.SkipWithError(e.what());
      break;
    }
    benchmark::ClobberMemory();
  }
  std::lock_guard<std::recursive_mutex> lock(setup_lock());
  report_bytes(state, shape_data(s.name).json->size());
}

// --- encoding ------------------------------------------------------------------

// What an encode case writes: a shape's array as ours decoded it (the peer
// writes its own reading of the same text), or a matrix of the encode data
// sets (the peer builds a document from it).
struct EncodeCase {
  std::string name;
  std::string matrix_set;  // empty for a decoded shape
};

const std::vector<EncodeCase>& encode_cases() {
  static const std::vector<EncodeCase> c = [] {
    std::vector<EncodeCase> out;
    for (const Shape& s : shapes())
      if (s.encode) out.push_back({s.name, ""});
    out.push_back({"doubles_1000x1000", "doubles_1000x1000"});
    out.push_back({"complex_1000x1000", "complex_1000x1000"});
    return out;
  }();
  return c;
}

struct EncodeOptions {
  matrix::owned_array small = host_text("small");
  matrix::owned_array nan_inf = host_text("string");
  matrix::owned_array pretty = matrix::owned_array(ixCreateLogicalScalar(false));
};

std::array<const ixArray*, 4> encode_args(const ixArray* a) {
  static const EncodeOptions o;
  return {a, o.small.get(), o.nan_inf.get(), o.pretty.get()};
}

namespace dom = simdjson::dom;

// False at the first difference between two documents, with `where` saying
// where (built on the way out): same kinds, numbers equal as doubles,
// strings byte for byte, members in the same order.
bool same_document(dom::element got, dom::element want, std::string& where) {
  const bool number = want.is_number();
  if (number ? !got.is_number() : got.type() != want.type()) {
    where = ": another kind of value";
    return false;
  }
  if (number) {
    const double a = got.get_double(), b = want.get_double();
    if (a == b && std::signbit(a) == std::signbit(b)) return true;
    where = ": " + std::to_string(a) + " where " + std::to_string(b) + " was expected";
    return false;
  }
  switch (want.type()) {
    case dom::element_type::STRING:
      if (std::string_view(got.get_string()) == std::string_view(want.get_string())) return true;
      where = ": \"" + std::string(std::string_view(got.get_string())) + "\" where \"" +
              std::string(std::string_view(want.get_string())) + "\" was expected";
      return false;
    case dom::element_type::BOOL:
      if (bool(got.get_bool()) == bool(want.get_bool())) return true;
      where = ": the other boolean";
      return false;
    case dom::element_type::ARRAY: {
      dom::array g = got.get_array(), w = want.get_array();
      if (g.size() != w.size()) {
        where = ": " + std::to_string(g.size()) + " elements, not " + std::to_string(w.size());
        return false;
      }
      std::size_t i = 0;
      for (auto gi = g.begin(), wi = w.begin(); wi != w.end(); ++gi, ++wi, ++i)
        if (!same_document(*gi, *wi, where)) {
          where = "[" + std::to_string(i) + "]" + where;
          return false;
        }
      return true;
    }
    case dom::element_type::OBJECT: {
      dom::object g = got.get_object(), w = want.get_object();
      if (g.size() != w.size()) {
        where = ": " + std::to_string(g.size()) + " members, not " + std::to_string(w.size());
        return false;
      }
      for (auto gi = g.begin(), wi = w.begin(); wi != w.end(); ++gi, ++wi) {
        if (gi.key() != wi.key()) {
          where = ": member \"" + std::string(gi.key()) + "\" where \"" + std::string(wi.key()) + "\" was expected";
          return false;
        }
        if (!same_document(gi.value(), wi.value(), where)) {
          where = "." + std::string(wi.key()) + where;
          return false;
        }
      }
      return true;
    }
    default: return true;
  }
}

// Throws unless `text` reads as the same document as `reference_json`.
void check_document(std::string_view text, std::string_view reference_json) {
  dom::parser got_parser, want_parser;
  dom::element got, want;
  if (auto error = got_parser.parse(text.data(), text.size(), true).get(got))
    throw std::runtime_error(std::string("the written text is not JSON: ") + simdjson::error_message(error));
  if (auto error = want_parser.parse(reference_json.data(), reference_json.size(), true).get(want))
    throw std::runtime_error(std::string("the reference is not JSON: ") + simdjson::error_message(error));
  if (std::string where; !same_document(got, want, where))
    throw std::runtime_error("the written text differs from the reference at text" + where);
}

// Throws unless `text` is what ours must write for `c`: the matrix in our
// small layout, or the document the array was decoded from, a response's
// outputs as the cell of large notation that small notation writes for a
// cell.
void check_our_text(const EncodeCase& c, std::string_view text) {
  if (!c.matrix_set.empty()) return check_text(text, encode_set(c.matrix_set).matrix, Layout::Small);
  const Shape& s = shape(c.name);
  const std::string& json = *shape_data(s.name).json;
  if (!s.response) return check_document(text, json);
  constexpr std::string_view head = "{\"lhs\":";
  if (json.compare(0, head.size(), head) != 0 || json.back() != '}')
    throw std::runtime_error("the response text does not start with " + std::string(head));
  const std::size_t outputs = ixGetNumberOfElements(shape_data(s.name).expected);
  check_document(text, "{\"tndata\":" + json.substr(head.size(), json.size() - head.size() - 1) + ",\"tnsize\":[" +
                           std::to_string(outputs) + ",1],\"tntype\":\"cell\"}");
}

// The array ours encodes, and the size of its text, which every
// implementation of the case is credited with.
struct EncodeInput {
  const ixArray* array = nullptr;
  matrix::owned_array decoded;
  std::size_t text_bytes = 0;
};

// Under setup_lock().
EncodeInput& encode_input(const EncodeCase& c) {
  static std::map<std::string, EncodeInput> inputs;
  auto it = inputs.find(c.name);
  if (it != inputs.end()) return it->second;
  EncodeInput in;
  if (!c.matrix_set.empty()) {
    in.array = encode_set(c.matrix_set).array.get();
  } else {
    const Shape& s = shape(c.name);
    const ShapeData& d = shape_data(s.name);
    in.decoded = call(our_decoder(s), {d.text});
    if (const std::string diff = difference(in.decoded.get(), d.expected); !diff.empty())
      throw std::runtime_error("the decoded input differs from the reference: " + diff);
    in.array = in.decoded.get();
  }
  const auto a = encode_args(in.array);
  const matrix::owned_array result = call(builtins().encode, {a[0], a[1], a[2], a[3]});
  const std::string text = utf8_of(result.get());
  check_our_text(c, text);
  in.text_bytes = text.size();
  return inputs.emplace(c.name, std::move(in)).first->second;
}

// Our first text is checked when the input is made.
bool prepare_our_encode(benchmark::State& state, const std::string& id, const EncodeCase& c) {
  return prepared_once(state, id, [&] { encode_input(c); });
}

std::size_t encoded_bytes(const EncodeCase& c) {
  std::lock_guard<std::recursive_mutex> lock(setup_lock());
  return encode_input(c).text_bytes;
}

void encode_ours(benchmark::State& state, const EncodeCase& c, Timing timing) {
  if (!prepare_our_encode(state, case_name("encode", c.name, "ours"), c)) return;
  auto prhs = [&] {
    std::lock_guard<std::recursive_mutex> lock(setup_lock());
    return encode_args(encode_input(c).array);
  }();
  time_ours(state, timing, builtins().encode, prhs.data(), 4);
  report_bytes(state, encoded_bytes(c));
}

#if DOVRA_BENCH_HAVE_YYJSON
// yyjson writing the same data: its reading of the shape's text, or a
// document it builds from the matrix.
std::function<std::string_view()> yyjson_writer(const EncodeCase& c) {
  std::lock_guard<std::recursive_mutex> lock(setup_lock());
  if (!c.matrix_set.empty()) {
    auto w = std::make_shared<peers::YyjsonMatrixWriter>(encode_set(c.matrix_set).matrix);
    return [w] { return w->write(); };
  }
  auto w = std::make_shared<peers::YyjsonDocumentWriter>(*shape_data(c.name).json);
  return [w] { return w->write(); };
}

void encode_yyjson(benchmark::State& state, const EncodeCase& c) {
  if (!prepared_once(state, case_name("encode", c.name, "yyjson"), [&] {
        encode_input(c);  // ours' text size, which this case is credited with
        const std::function<std::string_view()> write = yyjson_writer(c);
        const std::string_view text = write();
        if (c.matrix_set.empty())
          check_document(text, *shape_data(c.name).json);
        else
          check_text(text, encode_set(c.matrix_set).matrix, Layout::Small);
      }))
    return;
  const std::function<std::string_view()> write = yyjson_writer(c);
  write();  // the pool's pages, touched once outside the loop
  for (auto _ : state) {
    const std::string_view text = write();
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  }
  report_bytes(state, encoded_bytes(c));
}
#endif

// --- the shortest-double writer ---------------------------------------------------

// The normal deviates of the double matrix: each takes the shortest
// writer's general path (none is a whole number).
const std::vector<double>& deviates() { return encode_set("doubles_1000x1000").doubles; }

// Ours: the runtime's exported TextOutput::numbers, which writes each double
// through the same shortest writer as the encoder, plus a comma and the
// widening to UTF-16 (the writer itself is internal to the runtime).
void shortest_ours(benchmark::State& state) {
  const std::size_t n = deviates().size();
  std::vector<char16_t> out(50 * n);
  auto write = [&] {
    foundation::json::TextOutput stream(out.data(), out.size());
    if (stream.numbers(deviates().data(), n, false) != n) throw std::runtime_error("not every number was written");
    return stream.finish();
  };
  if (!prepared_once(state, "shapes/shortest/doubles_1e6/ours", [&] {
        const std::size_t units = write();
        std::string want;
        char buf[64];
        for (std::size_t i = 0; i < n; ++i) {
          if (i) want += ',';
          want.append(buf, std::to_chars(buf, buf + sizeof buf, deviates()[i]).ptr);
        }
        if (units != want.size()) throw std::runtime_error("not std::to_chars's shortest text");
        for (std::size_t i = 0; i < units; ++i)
          if (out[i] != char16_t(want[i])) throw std::runtime_error("not std::to_chars's shortest text");
      }))
    return;
  for (auto _ : state) benchmark::DoNotOptimize(write());
  state.SetItemsProcessed(std::int64_t(state.iterations()) * std::int64_t(n));
}

#if DOVRA_BENCH_HAVE_YYJSON
// The significant digits of a number's text.
std::size_t significant_digits(std::string_view t) {
  t = t.substr(0, t.find_first_of("eE"));
  std::string digits;
  for (char c : t)
    if (c >= '0' && c <= '9') digits += c;
  const std::size_t first = digits.find_first_not_of('0'), last = digits.find_last_not_of('0');
  return first == std::string::npos ? 0 : last - first + 1;
}

void shortest_yyjson(benchmark::State& state) {
  const std::size_t n = deviates().size();
  std::vector<char> out(41 * n);
  if (!prepared_once(state, "shapes/shortest/doubles_1e6/yyjson", [&] {
        const char* const end = peers::yyjson_write_doubles(deviates().data(), n, out.data());
        const char* p = out.data();
        char buf[64];
        for (std::size_t i = 0; i < n; ++i) {
          const char* comma = static_cast<const char*>(std::memchr(p, ',', std::size_t(end - p)));
          if (!comma) throw std::runtime_error("too few numbers");
          double x = 0;
          std::from_chars(p, comma, x);
          const std::string_view shortest(buf, std::size_t(std::to_chars(buf, buf + sizeof buf, deviates()[i]).ptr - buf));
          if (std::memcmp(&x, &deviates()[i], sizeof x) != 0 ||
              significant_digits({p, std::size_t(comma - p)}) != significant_digits(shortest))
            throw std::runtime_error("number " + std::to_string(i) + " is " + std::string(p, comma) + ", not " +
                                     std::string(shortest));
          p = comma + 1;
        }
      }))
    return;
  for (auto _ : state) benchmark::DoNotOptimize(peers::yyjson_write_doubles(deviates().data(), n, out.data()));
  state.SetItemsProcessed(std::int64_t(state.iterations()) * std::int64_t(n));
}
#endif

// --- two threads ---------------------------------------------------------------
//
// Each thread runs the whole cycle a server runs, destroying the result
// included; the figure is wall-clock throughput of all threads together.

template <class... Args>
void add(const std::string& name, Args&&... args) {
  benchmark::RegisterBenchmark(name.c_str(), std::forward<Args>(args)...)->Unit(benchmark::kMillisecond);
}

// A repetition of two threads runs for 0.5 s, not the suite's 0.1 s: the
// ratio needs both cores free for the whole sample, and on a shared guest
// a 0.1 s sample measured the host's other work as often as ours (the
// same case read 1.6 in one run and 2.0 in the next).
template <class... Args>
void add_threads(const std::string& name, Args&&... args) {
  benchmark::RegisterBenchmark(name.c_str(), std::forward<Args>(args)...)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.5)
      ->UseRealTime()
      ->Threads(1)
      ->Threads(2);
}

}  // namespace

void register_shape_benchmarks() {
#if !DOVRA_BENCH_HAVE_YYJSON
  std::fprintf(stderr, "shape suite: the yyjson peer is skipped (no ../shared/peers/yyjson when this was built)\n");
#endif
  const bool yyjson = DOVRA_BENCH_HAVE_YYJSON;
  for (const Shape& s : shapes()) {
    add(case_name("decode", s.name, "ours"), decode_ours, s, Timing::Call);
    if (yyjson) add(case_name("decode", s.name, "yyjson"), decode_peer, s, std::string("yyjson"));
    if (s.typed && s.name != "strings_100k")
      add(case_name("decode", s.name, "simdjson"), decode_peer, s, std::string("simdjson"));
  }
  for (const EncodeCase& c : encode_cases()) {
    add(case_name("encode", c.name, "ours"), encode_ours, c, Timing::Call);
#if DOVRA_BENCH_HAVE_YYJSON
    add(case_name("encode", c.name, "yyjson"), encode_yyjson, c);
#endif
  }
  add("shapes/shortest/doubles_1e6/ours", shortest_ours);
#if DOVRA_BENCH_HAVE_YYJSON
  add("shapes/shortest/doubles_1e6/yyjson", shortest_yyjson);
#endif
  for (const Shape& s : shapes()) {
    add_threads(case_name("threads_decode", s.name, "ours"), decode_ours, s, Timing::Cycle);
    if (yyjson) add_threads(case_name("threads_decode", s.name, "yyjson"), decode_peer, s, std::string("yyjson"));
  }
  for (const EncodeCase& c : encode_cases())
    add_threads(case_name("threads_encode", c.name, "ours"), encode_ours, c, Timing::Cycle);
}

}  // namespace dovra_bench
