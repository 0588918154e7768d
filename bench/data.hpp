#pragma once

// The data sets of the benchmark with their references, and the host side:
// the builtins library loaded and called the way a host does it.
//
// Data sets are read from bench/data/ (written by bench/gen_data.py, or the
// directory in DOVRA_BENCH_DATA) on first use and kept for the life of the
// process, so that loading and checking stay out of every timing loop.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "ixtal/array.hpp"
#include "ixtal/matrix.hpp"
#include "ixtal/packages.hpp"
#include "peers/outputs.hpp"

namespace dovra_bench {

// --- files -------------------------------------------------------------------

std::string data_path(std::string_view file);
// The whole file; a missing file raises std::runtime_error that says how to
// make it.
std::string read_file(std::string_view file);

// The host array a tree reference (.ref, written by gen_data.py's
// pack_tree) describes.
matrix::owned_array tree_reference(std::string_view file);

// --- the host ------------------------------------------------------------------

struct Builtins {
  BuiltinFunction encode = nullptr;           // table entry 0
  BuiltinFunction decode_response = nullptr;  // table entry 1
  BuiltinFunction decode = nullptr;           // dovra.json.decode
};
// Loads the library once, from DOVRA_JSON_BUILTINS or the build tree.
const Builtins& builtins();

// Calls a builtin with one result, as the host does; a failure leaves as the
// exception the builtin raised, whatever left in the slot destroyed.
matrix::owned_array call(BuiltinFunction fn, std::initializer_list<const ixArray*> args);

// A 1-by-N char row holding the UTF-16 form of a UTF-8 text.
matrix::owned_array host_text(std::string_view utf8);
// The UTF-8 form of a char array's characters.
std::string utf8_of(const ixArray* chars);

// Empty when the arrays are equal (ixIsEqualN); otherwise where the first
// difference is, for the message of a failed check.
std::string difference(const ixArray* got, const ixArray* want);

// --- decoding ------------------------------------------------------------------

enum class DecodeKind {
  Matrix,   // small notation, rows of numbers -> rows-by-cols double
  Int32,    // large-notation int32 row
  Strings,  // response {"lhs":[...]} of strings -> N-by-1 cell of char rows
  Records,  // large-notation cell of plain-structure records
};

struct DecodeSet {
  std::string name;
  DecodeKind kind = DecodeKind::Matrix;
  std::string json;               // the UTF-8 text as written
  matrix::owned_array text;       // the same as the host passes it: a UTF-16 char row
  matrix::owned_array expected;   // what our decoder must return

  // The reference in the peers' terms.
  std::size_t rows = 0, cols = 0;
  std::vector<double> doubles;        // Matrix, column-major
  std::vector<std::int32_t> int32s;   // Int32
  std::vector<std::string> strings;   // Strings
  std::vector<Record> records;        // Records
};

// The names, in the order the benchmark runs them.
const std::vector<std::string>& decode_set_names();
// Loaded on first use; std::runtime_error if the files are missing or do not
// agree with each other.
const DecodeSet& decode_set(const std::string& name);

// --- encoding ------------------------------------------------------------------

struct EncodeSet {
  std::string name;
  std::vector<double> doubles;        // column-major; (re, im) pairs when complex
  std::vector<std::int32_t> int32s;
  NumericMatrix matrix;               // a view of the vectors above
  matrix::owned_array array;          // the same as a host array
};

// Reads a matrix's encoded text back (simdjson, exact numbers) and throws
// at the first difference from m in the shape our encoder gives it for
// `layout` (encode_bench.cpp).
void check_text(std::string_view text, const NumericMatrix& m, Layout layout);

const std::vector<std::string>& encode_set_names();
const EncodeSet& encode_set(const std::string& name);

}  // namespace dovra_bench
