#include "collection/expression/ExpressionScanner.h"

#include <algorithm>

namespace {

// By the bytes themselves, whatever the locale.
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n'; }

ExpressionToken operatorOf(char c) {
    switch (c) {
        case '+': return TOKEN_ADD;
        case '-': return TOKEN_MIN;
        case '*': return TOKEN_MULT;
        case '/': return TOKEN_DIV;
        case '%': return TOKEN_PERC;
        default: return TOKEN_BYTE;
    }
}

}  // namespace

char ExpressionScanner::take(int at) {
    column_ = std::max(column_, at + 1);
    return text_[at];
}

int ExpressionScanner::endOfName(int at) {
    for (;; ++at) {
        const char c = take(at);
        if (!isNameStart(c) && !isDigit(c)) return at;
    }
}

int ExpressionScanner::endOfDigits(int at) {
    while (isDigit(take(at))) ++at;
    return at;
}

// The longest number: what does not make a whole point or exponent part is left to the next token.
int ExpressionScanner::endOfNumber(int at, ExpressionToken* kind) {
    *kind = TOKEN_NUMBER;
    const int whole = endOfDigits(at);
    if (text_[whole] != '.') return whole;
    const int fraction = endOfDigits(whole + 1);
    if (fraction == whole + 1) return whole;
    *kind = TOKEN_FLOAT;
    if (text_[fraction] != 'e' && text_[fraction] != 'E') return fraction;
    int digits = fraction + 1;
    if (take(digits) == '+' || text_[digits] == '-') ++digits;
    const int exponent = endOfDigits(digits);
    return exponent == digits ? fraction : exponent;
}

// Behind the closing quote, or `at` itself if there is none.
int ExpressionScanner::endOfString(int at) {
    for (int i = at + 1;; ++i) {
        char c = take(i);
        if (c == '"') return i + 1;
        if (c == '\\') {
            c = take(++i);
            if (c == '\n') return at;
        }
        if (c == '\0') return at;
    }
}

ScannedToken ExpressionScanner::next() {
    while (isSpace(take(at_))) ++at_;
    const int start = at_;
    const char c = text_[start];
    ScannedToken token;
    token.offset = start;
    if (c == '\0' || static_cast<unsigned char>(c) > 0x7F) return token;
    int end = start + 1;
    if (isNameStart(c)) {
        token.kind = TOKEN_IDENTIFIER;
        end = endOfName(start);
    } else if (isDigit(c)) {
        end = endOfNumber(start, &token.kind);
    } else if (c == '"') {
        end = endOfString(start);
        token.kind = end > start ? TOKEN_STRING : TOKEN_BYTE;
        end = std::max(end, start + 1);
    } else {
        token.kind = operatorOf(c);
    }
    token.text = std::string_view(text_ + start, static_cast<std::size_t>(end - start));
    at_ = end;
    return token;
}
