#include "host/json_keys.hpp"

namespace ixtal_json::keys {
const std::string tndata(names::tndata);
const std::string tnsize(names::tnsize);
const std::string tntype(names::tntype);
const std::string tncomplex(names::tncomplex);
const std::string lhs(names::lhs);
}  // namespace ixtal_json::keys
