#pragma once

#include <string>
#include <string_view>

/// The text as a JSON string, with its quotation marks. Bytes that are no UTF-8 become U+FFFD.
std::string JsonString(std::string_view text);
