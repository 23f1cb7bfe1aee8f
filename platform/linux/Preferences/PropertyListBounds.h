#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Settings are a few kilobytes.
inline constexpr std::size_t kMostPropertyListBytes = 4 << 20;

/// Why a property list, of either form, is not to be read; nothing for one that takes memory and time in proportion to its length and holds no more
/// than settings do. In the binary form a few bytes can stand for gigabytes: lists that name another list many times, or themselves.
std::optional<std::string> ExcessOfPropertyList(std::string_view bytes);

}  // namespace platform
