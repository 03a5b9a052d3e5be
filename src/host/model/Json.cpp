#include "host/model/Json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace almanac::host {
namespace {

// What a byte of a text asks for: 0 copy, 1 escape or decode.
constexpr std::array<bool, 256> specialBytes(bool escaping) {
    std::array<bool, 256> special{};
    for (std::size_t i = 0; i < 256; ++i)
        special[i] = i >= 0x80 || (escaping && (i < 0x20 || i == 0x7F || i == '"' || i == '\\'));
    return special;
}
constexpr std::array<bool, 256> kEscaped = specialBytes(true);
constexpr std::array<bool, 256> kRaw = specialBytes(false);

struct Sequence {
    std::size_t length;  // bytes it takes
    bool valid;
};

// The UTF-8 sequence at the start of `text`, whose first byte is 0x80 or above: a valid one, or the maximal
// part of one that is to be replaced as a whole (RFC 3629; the replacing rule of the Unicode standard, 3.9).
Sequence decode(std::string_view text) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = at(0);
    std::size_t need = 0;
    unsigned low = 0x80, high = 0xBF;
    if (first >= 0xC2 && first <= 0xDF) {
        need = 1;
    } else if (first >= 0xE0 && first <= 0xEF) {
        need = 2;
        if (first == 0xE0) low = 0xA0;
        if (first == 0xED) high = 0x9F;
    } else if (first >= 0xF0 && first <= 0xF4) {
        need = 3;
        if (first == 0xF0) low = 0x90;
        if (first == 0xF4) high = 0x8F;
    } else {
        return {1, false};
    }
    for (std::size_t i = 1; i <= need; ++i) {
        if (i >= text.size() || at(i) < low || at(i) > high) return {i, false};
        low = 0x80;
        high = 0xBF;
    }
    return {need + 1, true};
}

void appendEscape(std::string* out, unsigned char c) {
    static constexpr char kHex[] = "0123456789abcdef";
    switch (c) {
        case '"':
            *out += "\\\"";
            return;
        case '\\':
            *out += "\\\\";
            return;
        case '\n':
            *out += "\\n";
            return;
        case '\r':
            *out += "\\r";
            return;
        case '\t':
            *out += "\\t";
            return;
        default:
            *out += "\\u00";
            *out += kHex[c >> 4];
            *out += kHex[c & 15];
    }
}

void appendText(std::string* out, std::string_view text, const std::array<bool, 256>& special) {
    std::size_t from = 0, i = 0;
    while (i < text.size()) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (!special[c]) {
            ++i;
            continue;
        }
        if (c >= 0x80) {
            const Sequence sequence = decode(text.substr(i));
            if (sequence.valid) {
                i += sequence.length;
                continue;
            }
            out->append(text.substr(from, i - from));
            *out += "\xEF\xBF\xBD";
            i += sequence.length;
        } else {
            out->append(text.substr(from, i - from));
            appendEscape(out, c);
            ++i;
        }
        from = i;
    }
    out->append(text.substr(from));
}

}  // namespace

void appendJsonString(std::string* out, std::string_view text) {
    *out += '"';
    appendText(out, text, kEscaped);
    *out += '"';
}

void appendValidUtf8(std::string* out, std::string_view text) { appendText(out, text, kRaw); }

void appendInteger(std::string* out, long long number) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    out->append(digits, static_cast<std::size_t>(end - digits));
}

void appendDecimal(std::string* out, long long number, int decimals) {
    if (decimals <= 0) return appendInteger(out, number);
    char digits[24];
    const auto magnitude =
        number < 0 ? 0 - static_cast<std::uint64_t>(number) : static_cast<std::uint64_t>(number);
    const auto end = std::to_chars(digits, digits + sizeof digits, magnitude).ptr;
    const std::string_view all(digits, static_cast<std::size_t>(end - digits));
    const auto places = static_cast<std::size_t>(decimals);
    if (number < 0) *out += '-';
    if (all.size() > places) {
        out->append(all.substr(0, all.size() - places));
        *out += '.';
        out->append(all.substr(all.size() - places));
    } else {
        *out += "0.";
        out->append(places - all.size(), '0');
        out->append(all);
    }
}

void JsonWriter::separate() {
    if (comma_) *out_ += ',';
    comma_ = true;
}

JsonWriter& JsonWriter::open(char bracket) {
    separate();
    *out_ += bracket;
    comma_ = false;
    return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
    *out_ += bracket;
    comma_ = true;
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    separate();
    appendJsonString(out_, name);
    *out_ += ':';
    comma_ = false;
    return *this;
}

JsonWriter& JsonWriter::value(std::string_view text) {
    separate();
    appendJsonString(out_, text);
    return *this;
}

JsonWriter& JsonWriter::value(long long number) {
    separate();
    appendInteger(out_, number);
    return *this;
}

JsonWriter& JsonWriter::value(bool flag) {
    separate();
    *out_ += flag ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::value(double number) {
    if (!std::isfinite(number) || std::fabs(number) > 9e11) return null();
    separate();
    appendDecimal(out_, std::llround(number * 1000000), 6);
    return *this;
}

JsonWriter& JsonWriter::null() {
    separate();
    *out_ += "null";
    return *this;
}

}  // namespace almanac::host
