#pragma once

// yyjson, the shape suite's peer: built into this binary from
// ../shared/peers/yyjson when that folder exists (DOVRA_BENCH_HAVE_YYJSON),
// never into the product.
//
// Reading is yyjson's parse followed by the least a typed result needs: a
// walk that meets every value once (numbers summed, string bytes counted),
// or for the typed data sets a walk into the same buffers the simdjson peer
// fills. Writing is yyjson's compact writer, of its own reading of a text
// or of a mutable document built from a matrix.
//
// Every object allocates from a pool made once and reused from one call to
// the next, as simdjson's parser keeps its buffers: the peer runs on warm
// memory, so our ratios against it are not flattered by its page faults.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "peers/outputs.hpp"

namespace dovra_bench::peers {

// What a walk of a document meets, in document order. Keys are not values.
struct WalkTotals {
  std::uint64_t numbers = 0;
  double sum = 0;  // added in document order, so equal bit for bit to the generator's sum
  std::uint64_t string_bytes = 0;
  std::uint64_t trues = 0;
  std::uint64_t falses = 0;

  bool operator==(const WalkTotals&) const = default;
  std::string text() const;
};

class YyjsonPool;

class YyjsonDecoder {
 public:
  explicit YyjsonDecoder(std::string_view json);
  ~YyjsonDecoder();

  WalkTotals walk();
  // Rows of numbers -> column-major rows-by-cols doubles.
  void matrix(double* out, std::size_t rows, std::size_t cols);
  // {"tndata":[...],"tnsize":[1,n],"tntype":"int32"} -> n int32 values, range-checked.
  void int32_row(std::int32_t* out, std::size_t n);
  // {"lhs":["...", ...]} -> the strings, copied out.
  void response_strings(StringColumn& out);

 private:
  std::string_view json_;
  std::unique_ptr<YyjsonPool> pool_;
};

// yyjson's reading of a text, written back compact. The text is read once,
// here; write() is the part timed.
class YyjsonDocumentWriter {
 public:
  explicit YyjsonDocumentWriter(std::string_view json);
  ~YyjsonDocumentWriter();
  // Valid until the next write.
  std::string_view write();

 private:
  std::unique_ptr<YyjsonPool> pool_;
  void* doc_ = nullptr;
  const void* root_ = nullptr;
  char* text_ = nullptr;
};

// A mutable document built from a matrix, as our encoder lays it out in
// small notation (rows of numbers; complex as the large object with
// "tncomplex"), then written compact: both timed.
class YyjsonMatrixWriter {
 public:
  explicit YyjsonMatrixWriter(const NumericMatrix& m);
  ~YyjsonMatrixWriter();
  std::string_view write();

 private:
  const NumericMatrix& m_;
  std::unique_ptr<YyjsonPool> pool_;
  char* text_ = nullptr;
};

// yyjson's number writer on each double, a comma after each, into out (room
// for 41 bytes a number); returns the end.
char* yyjson_write_doubles(const double* x, std::size_t n, char* out);

}  // namespace dovra_bench::peers
