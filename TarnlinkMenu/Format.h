#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// A localised text with its arguments in place: "%@", "%d" and "%lld" take the next one, "%2$@" the second,
/// "%%" is a percent sign. Arguments are text already. What has no argument, or is no conversion, stays as it
/// stands.
std::string format(std::string_view text, const std::vector<std::string> &arguments);

} // namespace tarn
