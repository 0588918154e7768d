// The memory a decode of the 19.6 MB double matrix needs: the peak resident
// set during one call above the resident set just before it. Run in a
// process of its own (dovra_bench --peak-rss=IMPL), so that nothing else the
// benchmark did sits in the figures.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "data.hpp"
#include "harness.hpp"
#include "peers/rapidjson_peer.hpp"
#include "peers/simdjson_peer.hpp"

namespace dovra_bench {

namespace {

// A field of /proc/self/status in bytes ("VmRSS:    1234 kB").
long long status_bytes(const std::string& field) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, field.size() + 1, field + ":") == 0) {
      std::istringstream rest(line.substr(field.size() + 1));
      long long kb = 0;
      rest >> kb;
      return kb * 1024;
    }
  }
  throw std::runtime_error("no " + field + " in /proc/self/status");
}

// Lets the high-water mark start again from the current resident set, so
// that memory the set-up touched and gave back does not count.
bool reset_peak() {
  std::ofstream out("/proc/self/clear_refs");
  out << "5";
  out.flush();
  return bool(out);
}

}  // namespace

int peak_rss_main(const std::string& impl) {
  const std::string name = "doubles_1000x1000";
  std::string status = "ok";
  long long baseline = 0, peak = 0;
  bool reset = false;
  try {
    const DecodeSet& set = decode_set(name);
    std::vector<double> out(set.rows * set.cols, 1.0);  // the peers' buffer, made and touched beforehand
    peers::SimdjsonDecoder simdjson_decoder(impl == "simdjson" ? std::string_view(set.json) : std::string_view());
    peers::RapidjsonDecoder rapidjson_decoder(set.json);
    const BuiltinFunction fn = builtins().decode;
    matrix::owned_array result;

    reset = reset_peak();
    baseline = reset ? status_bytes("VmRSS") : status_bytes("VmHWM");
    if (impl == "ours") {
      result = call(fn, {set.text.get()});
    } else if (impl == "simdjson") {
      simdjson_decoder.matrix(out.data(), set.rows, set.cols);
    } else if (impl == "rapidjson") {
      rapidjson_decoder.matrix(out.data(), set.rows, set.cols);
    } else {
      throw std::invalid_argument("--peak-rss takes ours, simdjson or rapidjson");
    }
    peak = status_bytes("VmHWM");

    if (impl == "ours") {
      if (const std::string d = difference(result.get(), set.expected.get()); !d.empty())
        status = "differs from the reference: " + d;
    } else if (out != set.doubles) {
      status = "differs from the reference";
    }
    std::printf(
        "{\"workload\": \"decode/%s\", \"implementation\": \"%s\", \"status\": \"%s\", \"text_bytes\": %zu, "
        "\"baseline_rss\": %lld, \"peak_rss\": %lld, \"above_baseline\": %lld, \"peak_was_reset\": %s}\n",
        name.c_str(), impl.c_str(), status.c_str(), set.json.size(), baseline, peak, peak - baseline,
        reset ? "true" : "false");
    return 0;
  } catch (const std::exception& e) {
    std::string what = e.what();
    for (char& c : what)
      if (c == '"' || c == '\\' || c == '\n') c = ' ';
    std::printf("{\"workload\": \"decode/%s\", \"implementation\": \"%s\", \"status\": \"%s\"}\n", name.c_str(),
                impl.c_str(), what.c_str());
    return 0;
  }
}

}  // namespace dovra_bench
