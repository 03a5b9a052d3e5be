// The tokenizer against its rule: joining what it gives with what it cut away gives the text again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/StringTokenizer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const bool anyOf = data[0] & 1;
    const std::size_t delimiterSize = std::min<std::size_t>(data[0] >> 1 & 3, size - 1);
    const std::string delimiters(reinterpret_cast<const char*>(data) + 1, delimiterSize);
    const std::string text(reinterpret_cast<const char*>(data) + 1 + delimiterSize, size - 1 - delimiterSize);
    const std::size_t length = std::strlen(text.c_str());
    const std::size_t cut = anyOf ? 1 : std::strlen(delimiters.c_str());

    StringTokenizer tokens(text.c_str(), delimiters.c_str(), anyOf);
    std::size_t at = 0;
    while (const char* token = tokens.next()) {
        const std::size_t n = std::strlen(token);
        if (at > length || std::strncmp(text.c_str() + at, token, n) != 0) std::abort();
        if (anyOf ? std::strpbrk(token, delimiters.c_str()) != nullptr : cut > 0 && std::strstr(token, delimiters.c_str())) {
            std::abort();
        }
        at += n;
        if (at < length) at += cut;
    }
    if (at != length) std::abort();
    return 0;
}
