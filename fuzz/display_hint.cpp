// A hint and a value of any bytes: first a line with the hint, then the value; the integer form takes the first four.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/DisplayHint.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    const void* lineFeed = size > 0 ? std::memchr(text, '\n', size) : nullptr;
    if (!lineFeed) return 0;
    const std::string hint(text, static_cast<const char*>(lineFeed));
    // A buffer of the value alone, so that a read past it is seen.
    const std::size_t length = size - hint.size() - 1;
    char* value = static_cast<char*>(std::malloc(length ? length : 1));
    if (length) std::memcpy(value, text + hint.size() + 1, length);
    char* shown = DisplayHint::stringFromHint(hint.c_str(), value, static_cast<int>(length));
    // Each octet gives at most two characters or eleven of a number, and two separators.
    if (std::strlen(shown) > 16 * length + 64) std::abort();
    std::free(shown);
    int number = 0;
    std::memcpy(&number, value, std::min(length, sizeof number));
    std::free(DisplayHint::stringFromHint(hint.c_str(), number));
    std::free(value);
    return 0;
}
