// Decoding: JSON text to arrays.
//
// Ours is timed end to end as a host calls it: the UTF-16 char row the host
// holds goes into dovra.json.decode (or the response-decode builtin for a
// response document), which returns the host array; destroying it is left
// out of the timing (see ResultDisposal). The peers start from the UTF-8
// text and parse + walk into plain buffers allocated before the loop.

#include <memory>
#include <stdexcept>

#include "data.hpp"
#include "harness.hpp"
#include "peer_decode.hpp"
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
  time_builtin(state, fn, prhs, 1);
  report_bytes(state, set.json.size());
}

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
