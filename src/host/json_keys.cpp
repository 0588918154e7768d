#include "host/json_keys.hpp"

namespace ixtal_json::keys {
const std::string tndata = "tndata";
const std::string tnsize = "tnsize";
const std::string tntype = "tntype";
const std::string tncomplex = "tncomplex";
const std::string tnclass = "tnclass";
const std::string lhs = "lhs";
}  // namespace ixtal_json::keys
