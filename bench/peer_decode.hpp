#pragma once

// A peer decoding one of the typed data sets (matrix, int32 row, strings,
// records) into the plain buffers an application would use, made before the
// timing loop, and the check of what it read against the data set's
// reference.

#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "data.hpp"

namespace dovra_bench {

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
      case DecodeKind::Records:
        if constexpr (requires { decoder_.records(records_); }) {
          decoder_.records(records_);
          break;
        }
        throw std::runtime_error("this peer has no records reader");
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

}  // namespace dovra_bench
