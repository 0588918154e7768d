// Decoding: JSON text to arrays.
//
// Ours is timed end to end as a host calls it: the UTF-16 char row the host
// holds goes into dovra.json.decode (or the response-decode builtin for a
// response document), which returns the host array; destroying it is left
// out of the timing (see ResultDisposal). The peers start from the UTF-8
// text and parse + walk into plain buffers allocated before the loop.

#include <cmath>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "data.hpp"
#include "harness.hpp"
#include "peers/rapidjson_peer.hpp"
#include "peers/simdjson_peer.hpp"

namespace dovra_bench {

namespace {

BuiltinFunction our_decoder(const DecodeSet& set) {
  return set.kind == DecodeKind::Strings ? builtins().decode_response : builtins().decode;
}

void decode_ours(benchmark::State& state, const std::string& name) {
  if (!prepared(state, "decode/" + name + "/ours", [&] {
        const DecodeSet& set = decode_set(name);
        const matrix::owned_array result = call(our_decoder(set), {set.text.get()});
        if (const std::string d = difference(result.get(), set.expected.get()); !d.empty())
          throw std::runtime_error("differs from the reference: " + d);
      }))
    return;
  const DecodeSet& set = decode_set(name);
  const BuiltinFunction fn = our_decoder(set);
  const ixArray* prhs[1] = {set.text.get()};
  ResultDisposal dispose;
  for (auto _ : state) {
    ixArray* plhs[1] = {nullptr};
    try {
      fn(1, plhs, 1, prhs);
    } catch (const std::exception& e) {
      state.SkipWithError(e.what());
      break;
    }
    dispose(state, [&] { ixDestroyArray(plhs[0]); });
  }
  dispose.report(state);
  report_bytes(state, set.json.size());
}

// First differing value of two equally long sequences, or "".
template <class T>
std::string first_mismatch(const std::vector<T>& got, const std::vector<T>& want) {
  std::size_t bad = 0, first = 0;
  for (std::size_t i = 0; i < want.size(); ++i) {
    // Bitwise for doubles: -0 and NaN payloads would matter to a host too.
    if (std::memcmp(&got[i], &want[i], sizeof(T)) != 0 && bad++ == 0) first = i;
  }
  if (bad == 0) return {};
  std::ostringstream msg;
  msg.precision(17);
  msg << bad << " of " << want.size() << " values differ; element " << first << " is " << got[first]
      << ", expected " << want[first];
  return msg.str();
}

// One peer on one data set: the decoder and the buffers it fills, made
// before the loop.
template <class Decoder>
class PeerDecode {
 public:
  explicit PeerDecode(const DecodeSet& set) : set_(set), decoder_(set.json) {
    switch (set.kind) {
      case DecodeKind::Matrix: doubles_.resize(set.rows * set.cols); break;
      case DecodeKind::Int32: int32s_.resize(set.cols); break;
      case DecodeKind::Strings: strings_.reserve(set.strings.size(), set.json.size()); break;
      case DecodeKind::Records: records_.resize(set.records.size()); break;
    }
  }

  void run() {
    switch (set_.kind) {
      case DecodeKind::Matrix: decoder_.matrix(doubles_.data(), set_.rows, set_.cols); break;
      case DecodeKind::Int32: decoder_.int32_row(int32s_.data(), int32s_.size()); break;
      case DecodeKind::Strings: decoder_.response_strings(strings_); break;
      case DecodeKind::Records: decoder_.records(records_); break;
    }
  }

  std::string check() const {
    switch (set_.kind) {
      case DecodeKind::Matrix: return first_mismatch(doubles_, set_.doubles);
      case DecodeKind::Int32: return first_mismatch(int32s_, set_.int32s);
      case DecodeKind::Strings:
        if (strings_.size() != set_.strings.size()) return "wrong number of strings";
        for (std::size_t i = 0; i < strings_.size(); ++i)
          if (strings_[i] != set_.strings[i]) return "string " + std::to_string(i) + " differs";
        return {};
      case DecodeKind::Records:
        for (std::size_t i = 0; i < records_.size(); ++i)
          if (!(records_[i] == set_.records[i])) return "record " + std::to_string(i) + " differs";
        return {};
    }
    return "unknown data set kind";
  }

 private:
  const DecodeSet& set_;
  Decoder decoder_;
  std::vector<double> doubles_;
  std::vector<std::int32_t> int32s_;
  StringColumn strings_;
  std::vector<Record> records_;
};

template <class Decoder>
void decode_peer(benchmark::State& state, const std::string& name, const std::string& peer) {
  if (!prepared(state, "decode/" + name + "/" + peer, [&] {
        PeerDecode<Decoder> probe(decode_set(name));
        probe.run();
        if (const std::string d = probe.check(); !d.empty()) throw std::runtime_error("differs from the reference: " + d);
      }))
    return;
  const DecodeSet& set = decode_set(name);
  PeerDecode<Decoder> peer_run(set);
  for (auto _ : state) {
    try {
      peer_run.run();
    } catch (const std::exception& e) {
      state.SkipWithError(e.what());
      break;
    }
    benchmark::ClobberMemory();
  }
  report_bytes(state, set.json.size());
}

}  // namespace

void register_decode_benchmarks() {
  for (const std::string& name : decode_set_names()) {
    const std::string prefix = "decode/" + name + "/";
    benchmark::RegisterBenchmark((prefix + "ours").c_str(), decode_ours, name)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((prefix + "simdjson").c_str(), decode_peer<peers::SimdjsonDecoder>, name,
                                 std::string("simdjson"))
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((prefix + "rapidjson").c_str(), decode_peer<peers::RapidjsonDecoder>, name,
                                 std::string("rapidjson"))
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace dovra_bench
