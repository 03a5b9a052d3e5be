// Checking of UTF-8 by RFC 3629: no overlong form, no surrogate, nothing above U+10FFFF.
#pragma once

#include <cstddef>
#include <string_view>

namespace almanac::host {

// The length of the longest prefix that is whole, well-formed characters.
std::size_t validUtf8Prefix(std::string_view text);

// The length of the longest prefix that is ASCII.
std::size_t asciiPrefix(std::string_view text);

}  // namespace almanac::host
