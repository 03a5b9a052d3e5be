#include "foundation/StringTokenizer.h"

#include <cstring>

StringTokenizer::StringTokenizer(const char* text, const char* delimiters, bool anyOf)
    : delimiters_(delimiters ? delimiters : ""), rest_(text), anyOf_(anyOf) {}

const char* StringTokenizer::next() {
    if (position_ >= rest_.size()) return nullptr;
    const char* start = rest_.c_str() + position_;
    const char* found = nullptr;
    int delimiterLength = 1;
    if (anyOf_) {
        found = std::strpbrk(start, delimiters_);
    } else if (*delimiters_) {
        found = std::strstr(start, delimiters_);
        delimiterLength = static_cast<int>(std::strlen(delimiters_));
    }
    if (found) {
        token_.copy(start, static_cast<int>(found - start));
        position_ += static_cast<int>(found - start) + delimiterLength;
    } else {
        token_.copy(start);
        position_ = rest_.size();
    }
    return token_.c_str();
}
