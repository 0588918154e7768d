#include "peers/simdjson_peer.hpp"

#include <limits>
#include <stdexcept>

namespace dovra_bench::peers {

namespace dom = simdjson::dom;

namespace {

[[noreturn]] void bad_shape(const char* what) { throw std::runtime_error(std::string("simdjson peer: ") + what); }

}  // namespace

void SimdjsonDecoder::matrix(double* out, std::size_t rows, std::size_t cols) {
  dom::array outer = parser_.parse(text_).get_array();
  std::size_t i = 0;
  for (dom::element row : outer) {
    if (i == rows) bad_shape("too many rows");
    double* column_start = out + i;
    std::size_t j = 0;
    for (dom::element v : row.get_array()) {
      if (j == cols) bad_shape("row too long");
      column_start[j * rows] = v.get_double();
      ++j;
    }
    if (j != cols) bad_shape("row too short");
    ++i;
  }
  if (i != rows) bad_shape("too few rows");
}

void SimdjsonDecoder::int32_row(std::int32_t* out, std::size_t n) {
  dom::object root = parser_.parse(text_).get_object();
  if (std::string_view(root["tntype"].get_string()) != "int32") bad_shape("tntype");
  std::size_t product = 1, ndims = 0;
  for (dom::element d : root["tnsize"].get_array()) {
    product *= std::uint64_t(d.get_uint64());
    ++ndims;
  }
  if (ndims < 2 || product != n) bad_shape("tnsize");
  std::size_t k = 0;
  for (dom::element v : root["tndata"].get_array()) {
    const std::int64_t x = v.get_int64();
    if (k == n) bad_shape("too much data");
    if (x < std::numeric_limits<std::int32_t>::min() || x > std::numeric_limits<std::int32_t>::max())
      bad_shape("int32 out of range");
    out[k++] = static_cast<std::int32_t>(x);
  }
  if (k != n) bad_shape("too little data");
}

void SimdjsonDecoder::response_strings(StringColumn& out) {
  out.clear();
  for (dom::element v : parser_.parse(text_)["lhs"].get_array()) out.append(v.get_string());
}

void SimdjsonDecoder::records(std::vector<Record>& out) {
  dom::object root = parser_.parse(text_).get_object();
  if (std::string_view(root["tntype"].get_string()) != "cell") bad_shape("tntype");
  std::size_t k = 0;
  for (dom::element e : root["tndata"].get_array()) {
    if (k == out.size()) bad_shape("too many records");
    dom::object o = e.get_object();
    Record& r = out[k++];
    r.active = o["active"].get_bool();
    r.city = std::string_view(o["city"].get_string());
    r.id = o["id"].get_double();
    r.level = o["level"].get_double();
    r.name = std::string_view(o["name"].get_string());
    r.score = o["score"].get_double();
  }
  if (k != out.size()) bad_shape("too few records");
}

std::string SimdjsonDecoder::implementation() { return simdjson::get_active_implementation()->name(); }

}  // namespace dovra_bench::peers
