#pragma once

// What the peers read from and write into: the plain buffers an application
// would use in place of host arrays. The same types hold the references the
// data sets come with.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace dovra_bench {

// Many strings in one buffer, so that a walk that copies strings out costs
// one append each and no allocation once the buffer has grown.
class StringColumn {
 public:
  void clear() noexcept {
    bytes_.clear();
    ends_.clear();
  }
  void reserve(std::size_t count, std::size_t bytes) {
    ends_.reserve(count);
    bytes_.reserve(bytes);
  }
  void append(std::string_view s) {
    bytes_.append(s);
    ends_.push_back(bytes_.size());
  }
  std::size_t size() const noexcept { return ends_.size(); }
  std::string_view operator[](std::size_t i) const noexcept {
    const std::size_t begin = i == 0 ? 0 : ends_[i - 1];
    return std::string_view(bytes_).substr(begin, ends_[i] - begin);
  }

 private:
  std::string bytes_;
  std::vector<std::size_t> ends_;
};

// One record of the records data set, as an application would declare it.
// Numbers are doubles because JSON numbers are.
struct Record {
  bool active = false;
  std::string city;
  double id = 0;
  double level = 0;
  std::string name;
  double score = 0;

  bool operator==(const Record&) const = default;
};

// A column-major numeric matrix to encode: real doubles, complex doubles as
// (re, im) pairs, or int32.
struct NumericMatrix {
  const double* doubles = nullptr;
  const std::int32_t* int32s = nullptr;
  std::size_t rows = 0;
  std::size_t cols = 0;
  bool complex = false;

  std::size_t count() const noexcept { return rows * cols; }
  const char* type_name() const noexcept { return int32s ? "int32" : "double"; }
};

// A 1xN structure array's fields as an application would hold them, column
// by column: field k holds a double (k mod 4 = 0), a whole number (1), a
// string (2) or a logical (3). Our encoder writes it as
// {"tndata":{name:[values of every element]...},"tnsize":[1,N],"tntype":"struct"}.
struct FieldTable {
  std::size_t count = 0;
  std::vector<std::string> names;
  std::vector<double> numbers;       // fields 0 and 1 mod 4, element-major
  std::vector<std::string> strings;  // fields 2 mod 4
  std::vector<bool> flags;           // fields 3 mod 4

  std::size_t fields() const noexcept { return names.size(); }
  double number(std::size_t element, std::size_t field) const {
    return numbers[element * (fields() / 2) + field / 4 * 2 + field % 4];
  }
  const std::string& string(std::size_t element, std::size_t field) const {
    return strings[element * (fields() / 4) + field / 4];
  }
  bool flag(std::size_t element, std::size_t field) const { return flags[element * (fields() / 4) + field / 4]; }
};

// The two notations. Only real double matrices have a small form; the
// others are written as large-notation objects in both, as our encoder does.
enum class Layout { Small, Large };

}  // namespace dovra_bench
