// A host of the JSON builtins: decode a document into a host array, look at
// it, write it back as JSON, and report a builtin's error.
#include <iostream>

#include "ixtal/json_host.hpp"

int main() {
  try {
    // The library is loaded on the first call, from beside libixtal.
    matrix::owned_array m = ixtal::json_host::decode("[[1,2,3],[4,5,6]]");
    const double* data = static_cast<const double*>(ixGetData(m.get()));
    std::cout << ixGetM(m.get()) << "x" << ixGetN(m.get()) << " " << ixGetClassName(m.get())
              << ", column-major: " << data[0] << " " << data[1] << " " << data[2] << "\n";
    std::cout << ixtal::json_host::encode(m.get(), {.format = "small"}) << "\n";
    std::cout << ixtal::json_host::encode(m.get()) << "\n";

    ixtal::json_host::decode("[1, 2,");
  } catch (const ixtal::HostError& e) {
    std::cout << e.identifier() << "\n" << e.what() << "\n";
  }
}
