// TextScan: a cursor over a text with the conversions of sscanf (C99 7.19.6.2, glibc's treatment of what overflows), for
// texts of proc(5). Each operation says whether it converted; a false one ends a chain of &&, as it ends sscanf.
#pragma once

#include <cstddef>
#include <climits>
#include <cstring>
#include <string_view>

class TextScan {
  public:
    explicit TextScan(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    // A blank of a format: any number of blanks, none too.
    bool blanks() {
        while (at_ < end_ && isBlank(*at_)) ++at_;
        return true;
    }
    bool literal(std::string_view text) {
        if (static_cast<std::size_t>(end_ - at_) < text.size()) return false;
        if (std::memcmp(at_, text.data(), text.size()) != 0) return false;
        at_ += text.size();
        return true;
    }
    // %ld: saturates at both ends.
    bool number(long& out) {
        bool negative = false;
        unsigned long value = 0;
        bool over = false;
        if (!digits(negative, value, over)) return false;
        if (negative) {
            out = over || value > 1ul + LONG_MAX ? LONG_MIN : static_cast<long>(0ul - value);
        } else {
            out = over || value > LONG_MAX ? LONG_MAX : static_cast<long>(value);
        }
        return true;
    }
    // %lu: a negative number wraps, one too great is ULONG_MAX.
    bool number(unsigned long& out) {
        bool negative = false;
        bool over = false;
        unsigned long value = 0;
        if (!digits(negative, value, over)) return false;
        out = over ? ULONG_MAX : negative ? 0ul - value : value;
        return true;
    }
    // %d: read as a long, of which the low 32 bits stay.
    bool number(int& out) {
        long value = 0;
        if (!number(value)) return false;
        out = static_cast<int>(value);
        return true;
    }
    bool number(long long& out) {
        long value = 0;
        if (!number(value)) return false;
        out = value;
        return true;
    }
    // %d into a wider field: the sign is extended.
    bool number32(long long& out) {
        int value = 0;
        if (!number(value)) return false;
        out = value;
        return true;
    }
    bool skipNumber() {
        long ignored = 0;
        return number(ignored);
    }
    // %s into `size` bytes: what does not fit is passed over.
    bool word(char* out, std::size_t size) {
        blanks();
        if (at_ == end_) return false;
        const char* const from = at_;
        while (at_ < end_ && !isBlank(*at_)) ++at_;
        const auto length = static_cast<std::size_t>(at_ - from);
        const std::size_t taken = length < size ? length : size - 1;
        std::memcpy(out, from, taken);
        out[taken] = '\0';
        return true;
    }
    bool skipWord() {
        blanks();
        if (at_ == end_) return false;
        while (at_ < end_ && !isBlank(*at_)) ++at_;
        return true;
    }
    // %c: the next byte, a blank too.
    bool character(char& out) {
        if (at_ == end_) return false;
        out = *at_++;
        return true;
    }

  private:
    static bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    // All three start as false and 0.
    bool digits(bool& negative, unsigned long& value, bool& over) {
        blanks();
        if (at_ < end_ && (*at_ == '-' || *at_ == '+')) negative = *at_++ == '-';
        const char* const from = at_;
        while (at_ < end_ && *at_ >= '0' && *at_ <= '9') {
            const auto digit = static_cast<unsigned>(*at_ - '0');
            if (at_ - from >= 19) {
                over = over || __builtin_mul_overflow(value, 10ul, &value) || __builtin_add_overflow(value, digit, &value);
            } else {
                value = value * 10 + digit;
            }
            ++at_;
        }
        return at_ > from;
    }

    const char* at_;
    const char* end_;
};
