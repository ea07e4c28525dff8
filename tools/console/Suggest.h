// Near misses: what a mistyped name may have meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Console {

// The one of `known` that is closest to `name`: a transposed, missing, surplus or wrong letter away
// (more of them in longer names), the wrong case, or a unique continuation. "" when none is.
std::string nearest(std::string_view name, const std::vector<std::string>& known);

// "; did you mean 'state'?", or "".
std::string didYouMean(std::string_view name, const std::vector<std::string>& known);

}  // namespace Console
