#pragma once

// RapidJSON: a DOM parse with kParseFullPrecisionFlag (its default number
// parsing is not correctly rounded, and ours must be), walked into the
// caller's buffers like the simdjson peer; and its Writer for encoding.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <rapidjson/stringbuffer.h>

#include "peers/outputs.hpp"

namespace dovra_bench::peers {

class RapidjsonDecoder {
 public:
  // RapidJSON reads the text in place as given; no copy is needed.
  explicit RapidjsonDecoder(std::string_view json) : text_(json) {}

  void matrix(double* out, std::size_t rows, std::size_t cols);
  void int32_row(std::int32_t* out, std::size_t n);
  void response_strings(StringColumn& out);
  void records(std::vector<Record>& out);

 private:
  std::string_view text_;
};

// Writes the text our encoder writes for the same matrix, through
// rapidjson::Writer into one StringBuffer that keeps its capacity between
// calls.
class RapidjsonEncoder {
 public:
  std::string_view write(const NumericMatrix& m, Layout layout);
  // The structure array, in small notation.
  std::string_view write(const FieldTable& t);

 private:
  rapidjson::StringBuffer buffer_;
};

}  // namespace dovra_bench::peers
