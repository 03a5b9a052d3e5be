#include "foundation/ZbtString.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ZBT {

namespace {

constexpr int kDefaultCapacity = 31;
constexpr int kByteStep = 32;

int lengthOf(const char* text) {
    const std::size_t n = std::strlen(text);
    return n > INT_MAX / 2 ? INT_MAX / 2 : static_cast<int>(n);
}

std::size_t bytes(int n) { return static_cast<std::size_t>(n); }

}  // namespace

void String::allocate(int capacity) {
    capacity_ = std::max(capacity, 0);
    allocated_ = capacity_ + 1;
    text_ = static_cast<char*>(std::calloc(bytes(allocated_), 1));
    if (!text_) std::abort();
}

void String::enlarge(int capacity) {
    capacity_ = capacity;
    if (capacity + 1 <= allocated_) return;
    char* text = static_cast<char*>(std::realloc(text_, bytes(capacity) + 1));
    if (!text) std::abort();
    std::memset(text + allocated_, 0, bytes(capacity + 1 - allocated_));
    text_ = text;
    allocated_ = capacity + 1;
}

String::String() { allocate(kDefaultCapacity); }

String::String(int capacity) { allocate(capacity); }

String::String(const char* text) {
    allocate(text ? lengthOf(text) : 0);
    length_ = capacity_;
    if (text) std::memcpy(text_, text, bytes(length_));
}

String::String(const char* text, int n) {
    const int taken = text ? static_cast<int>(strnlen(text, bytes(std::max(n, 0)))) : 0;
    allocate(taken);
    if (taken > 0) std::memcpy(text_, text, bytes(taken));
}

String::String(const String& other) {
    allocate(std::max(other.capacity_, other.length_));
    capacity_ = other.capacity_;
    std::memcpy(text_, other.text_, std::min(std::strlen(other.text_), bytes(allocated_ - 1)));
    length_ = other.length_;
}

String::~String() { std::free(text_); }

String& String::operator=(const String& other) {
    if (this == &other) return *this;
    const int taken = lengthOf(other.text_);
    enlarge(std::max({capacity_, other.capacity_, other.length_, taken}));
    std::memset(text_, 0, bytes(allocated_));
    std::memcpy(text_, other.text_, bytes(taken));
    length_ = other.length_;
    capacity_ = other.capacity_;
    return *this;
}

void String::copy(const char* text) {
    if (!text) {
        length_ = 0;
        return;
    }
    const int n = lengthOf(text);
    if (n > capacity_) {
        String taken(text);  // the text may lie in this very buffer
        enlarge(n);
        std::memcpy(text_, taken.text_, bytes(n));
    } else {
        std::memmove(text_, text, bytes(n));
    }
    length_ = n;
    text_[n] = '\0';
}

void String::copy(const char* text, int n) {
    if (!text) {
        length_ = 0;
        text_[0] = '\0';
        return;
    }
    if (text >= text_ && text < text_ + allocated_) {
        String taken(text, n);
        copy(taken.text_);
        return;
    }
    const int taken = static_cast<int>(strnlen(text, bytes(std::max(n, 0))));
    if (taken > capacity_) enlarge(taken);
    std::memcpy(text_, text, bytes(taken));
    length_ = taken;
    text_[taken] = '\0';
}

void String::append(int c) {
    if (length_ >= capacity_) grow(kByteStep);
    text_[length_++] = static_cast<char>(c);
    text_[length_] = '\0';
}

void String::append(const char* text) {
    if (!text) return;
    append(text, lengthOf(text));
}

void String::append(const char* text, int n) {
    if (!text || n <= 0) return;
    if (text >= text_ && text < text_ + allocated_) {
        String taken(text);
        append(taken.text_, n);
        return;
    }
    if (length_ + n >= capacity_) enlarge(std::max(capacity_ + n, length_ + n));
    const std::size_t taken = strnlen(text, bytes(n));
    std::memcpy(text_ + length_, text, taken);
    std::memset(text_ + length_ + taken, 0, bytes(n) - taken + 1);
    length_ += n;
}

void String::appendItoa(int number) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", number);
    append(text);
}

void String::appendXtoa(unsigned char byte) {
    char text[4];
    std::snprintf(text, sizeof text, "%02X", static_cast<unsigned>(byte));
    append(text);
}

void String::grow(int n) { enlarge(std::max(capacity_ + n, length_)); }

void String::reserve(int n) {
    if (capacity_ < n) enlarge(n + (growthPercent_ * n + 50) / 100);
}

void String::setLength(int n) {
    n = std::max(n, 0);
    if (n > capacity_) enlarge(n);
    length_ = n;
    text_[n] = '\0';
}

int String::indexOf(int c, int from) const {
    if (outside(from)) return -1;
    const void* found = std::memchr(text_ + from, c, bytes(length_ - from));
    return found ? static_cast<int>(static_cast<const char*>(found) - text_) : -1;
}

int String::indexOf(const char* text, int from) const {
    if (!text || outside(from)) return -1;
    const char* found = std::strstr(text_ + from, text);
    return found ? static_cast<int>(found - text_) : -1;
}

int String::findFirstOf(const char* set, int from) const {
    if (!set || outside(from)) return -1;
    const std::size_t n = std::strcspn(text_ + from, set);
    return text_[bytes(from) + n] ? from + static_cast<int>(n) : -1;
}

int String::findFirstNotOf(const char* set, int from) const {
    if (!set || outside(from)) return -1;
    const std::size_t n = std::strspn(text_ + from, set);
    return text_[bytes(from) + n] ? from + static_cast<int>(n) : -1;
}

String String::substr(int from) const {
    if (outside(from)) return String();
    return String(text_ + from);
}

String String::substr(int from, int n) const {
    if (outside(from)) return String();
    return String(text_ + from, n);
}

void String::toUpper() {
    for (int i = 0; i < length_; ++i) {
        const auto byte = static_cast<unsigned char>(text_[i]);
        if (byte >= 'a' && byte <= 'z') text_[i] = static_cast<char>(byte - 'a' + 'A');
    }
}

}  // namespace ZBT
