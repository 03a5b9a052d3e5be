#include "host/base/Utf8.h"

#include <cstdint>
#include <cstring>

namespace almanac::host {
namespace {

unsigned byteAt(std::string_view text, std::size_t at) { return static_cast<unsigned char>(text[at]); }

bool continues(std::string_view text, std::size_t at) { return (byteAt(text, at) & 0xC0) == 0x80; }

// The length of the character that begins at `at`; 0 if it is malformed or cut.
std::size_t characterLength(std::string_view text, std::size_t at) {
    const unsigned first = byteAt(text, at);
    const std::size_t left = text.size() - at;
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return left >= 2 && continues(text, at + 1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        if (left < 3 || !continues(text, at + 1) || !continues(text, at + 2)) return 0;
        const unsigned second = byteAt(text, at + 1);
        return (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ? 0 : 3;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        if (left < 4 || !continues(text, at + 1) || !continues(text, at + 2) || !continues(text, at + 3))
            return 0;
        const unsigned second = byteAt(text, at + 1);
        return (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F) ? 0 : 4;
    }
    return 0;
}

}  // namespace

std::size_t asciiPrefix(std::string_view text) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080u;
    std::size_t at = 0;
    for (; at + sizeof(std::uint64_t) <= text.size(); at += sizeof(std::uint64_t)) {
        std::uint64_t word;
        std::memcpy(&word, text.data() + at, sizeof word);
        if ((word & kHighBits) != 0) break;
    }
    while (at < text.size() && byteAt(text, at) < 0x80) ++at;
    return at;
}

std::size_t validUtf8Prefix(std::string_view text) {
    std::size_t at = asciiPrefix(text);
    while (at < text.size()) {
        const std::size_t length = characterLength(text, at);
        if (length == 0) break;
        at += length;
    }
    return at;
}

}  // namespace almanac::host
