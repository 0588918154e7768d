#pragma once

// The readable form of a host array, as a numeric environment shows one: a
// header with size and class, then the values. Matrices are rows and
// columns, N-d arrays page by page, cells and structures one element or
// field per line with nested values indented beneath.

#include <cstddef>
#include <limits>
#include <ostream>
#include <string>

#include "ixtal/array.hpp"

namespace dovra_cli {

// How much of a large array is shown; what is left out is marked with an
// ellipsis and a note, and the header always states the full size.
struct DisplayLimits {
  std::size_t rows = 10;        // of one page
  std::size_t columns = 10;     // of one page
  std::size_t pages = 3;
  std::size_t elements = 20;    // of a cell or structure array
  std::size_t characters = 200; // of one line of text

  static DisplayLimits unlimited() {
    constexpr std::size_t all = std::numeric_limits<std::size_t>::max();
    return {all, all, all, all, all};
  }
};

void display(std::ostream& out, const ixArray* a, const DisplayLimits& limits);

// One real value as a matrix shows it: NaN, Inf, -Inf; an integer when every
// value beside it is one too (integral), else five significant digits.
std::string format_real(double v, bool integral);

}  // namespace dovra_cli
