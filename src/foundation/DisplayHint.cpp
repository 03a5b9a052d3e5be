#include "foundation/DisplayHint.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isSeparator(char c) { return c != '*' && !isDigit(c); }
bool isFormat(char c) { return c != '\0' && std::strchr("ADOTXadotx", c) != nullptr; }

// The walk of one octet string along its hint.
class Walk {
  public:
    Walk(const char* value, int length)
        : value_(value), length_(length), dump_(length >= 2 && value[0] == '0' && value[1] == 'x') {
        result_.reserve(256);
    }

    std::string run(const ZBT::String& hint) {
        SeqInfo part(hint);
        while (pos_ < length_) {
            int count = 1;
            if (part.isSeqRepeated()) count = static_cast<signed char>(value_[pos_++]);
            for (; pos_ < length_ && count >= 1; --count) {
                if (!group(part)) break;
            }
            if (pos_ < length_ && part.isRepeatSepChar()) result_ += part.repeatSepChar();
            if (!part.nextInfo(hint, true)) end();
        }
        return std::move(result_);
    }

  private:
    void end() { pos_ = length_; }

    // One group of octets; false when the walk is over.
    bool group(const SeqInfo& part) {
        const int size = std::min(part.length(), length_ - pos_);
        if (size <= 0) {
            end();
            return false;
        }
        if (part.isSeqHex() || (part.isSeqDec() && dump_)) {
            if (!digits(size, part.isSeqDec())) return false;
        } else if (part.isSeqDec() || part.isSeqAsc() || part.isSeqUTF8()) {
            // Kept: without a dump a decimal group is text; providers deliver such values readable already.
            result_.append(value_ + pos_, static_cast<std::size_t>(size));
        } else if (part.isSeqOct()) {
            result_ += Hex::toString(value_, pos_, size, 8).c_str();
        }
        pos_ += size;
        if (part.isDisplaySepChar() && pos_ < length_) result_ += part.displaySepChar();
        return true;
    }

    // Two characters of the text for each octet. False at the last group, so that no separator follows it.
    bool digits(int size, bool decimal) {
        const char* text = dump_ ? value_ + 2 : value_;
        const long limit = dump_ ? length_ - 2L : length_;
        const long from = pos_ * 2L;
        if (from >= limit - 1) {
            end();
            return false;
        }
        const std::string cut(text + from, static_cast<std::size_t>(std::min(size * 2L, limit - from)));
        if (decimal) {
            result_ += std::to_string(static_cast<int>(std::strtol(cut.c_str(), nullptr, 16)));
        } else {
            result_ += cut;
        }
        // Kept: the test looks one octet ahead, whatever the group's size.
        if (from + 2 < limit - 1) return true;
        end();
        return false;
    }

    const char* value_;
    int length_;
    bool dump_;
    int pos_ = 0;
    std::string result_;
};

std::string binaryDigits(unsigned number) {
    std::string digits;
    do {
        digits.insert(digits.begin(), static_cast<char>('0' + (number & 1)));
        number >>= 1;
    } while (number);
    return digits;
}

}  // namespace

SeqInfo::SeqInfo(const ZBT::String& hint) { nextInfo(hint, false); }

bool SeqInfo::voidPart(int position) {
    position_ = position;
    repeated_ = false;
    length_ = 0;
    format_ = ' ';
    displaySep_ = repeatSep_ = 0;
    return false;
}

bool SeqInfo::nextInfo(const ZBT::String& hint, bool advance) {
    const int saved = position_;
    const int end = hint.size();
    if (!advance) position_ = 0;
    if (position_ >= end) return advance ? true : voidPart(0);

    repeated_ = hint[position_] == '*';
    if (repeated_) ++position_;
    if (position_ >= end || !isDigit(hint[position_])) return voidPart(saved);
    long length = 0;
    for (; position_ < end && isDigit(hint[position_]); ++position_) {
        length = std::min(length * 10 + (hint[position_] - '0'), static_cast<long>(INT_MAX));
    }
    length_ = static_cast<int>(length);
    // Kept: a hint that ends behind the digits is a part with the format of the part before it.
    if (position_ < end) {
        if (!isFormat(hint[position_])) return voidPart(saved);
        format_ = hint[position_++];
    }
    displaySep_ = repeatSep_ = 0;
    if (position_ < end && isSeparator(hint[position_])) {
        displaySep_ = hint[position_++];
        if (repeated_ && position_ < end && isSeparator(hint[position_])) repeatSep_ = hint[position_++];
    }
    return true;
}

ZBT::String Hex::toString(const char* data, int from, int count, int base) {
    unsigned long long number = 0;
    for (int i = std::max(0, count - 8); i < count; ++i) {
        number = number << 8 | static_cast<unsigned char>(data[from + i]);
    }
    char text[32];
    std::snprintf(text, sizeof text, base == 16 ? "%llx" : base == 10 ? "%llu" : "%llo", number);
    return ZBT::String(text);
}

char* DisplayHint::stringFromHint(const char* hint, const char* value, int length) {
    if (!value || length < 0) length = 0;
    return strdup(Walk(value, length).run(ZBT::String(hint)).c_str());
}

char* DisplayHint::stringFromHint(const char* hint, int value) {
    const std::size_t letters = hint ? std::strlen(hint) : 0;
    const char first = letters > 0 ? static_cast<char>(std::tolower(static_cast<unsigned char>(hint[0]))) : '\0';
    char text[64] = "";
    if (letters == 1 && first == 'b') return strdup(binaryDigits(static_cast<unsigned>(value)).c_str());
    if (letters == 1 && first == 'd') std::snprintf(text, sizeof text, "%d", value);
    if (letters == 1 && first == 'o') std::snprintf(text, sizeof text, "%o", static_cast<unsigned>(value));
    if (letters == 1 && first == 'x') std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
    if (letters >= 3 && first == 'd' && hint[1] == '-') {
        const long places = std::strtol(hint + 2, nullptr, 10);
        if (places >= 0) std::snprintf(text, sizeof text, "%g", value / std::pow(10.0, static_cast<double>(places)));
    }
    return strdup(text);
}
