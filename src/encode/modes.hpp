#pragma once

// The two choices of the encode builtin, fixed per converter instantiation.

namespace ixtal_json::detail {

// "large": every array is an object stating its class, size and data.
// "small": plain JSON where the value keeps its class and shape that way.
enum class ToJsonMode : int { large = 0, small = 1 };

// How large-notation data hold NaN and the infinities: the strings "NaN",
// "Inf", "-Inf", or objects such as {"tndata":"NaN"}. Small notation always
// uses the objects, the only form its readers accept.
enum class NanType : int { string = 0, object = 1 };

}  // namespace ixtal_json::detail
