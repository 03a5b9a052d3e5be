// ExpressionScanner: the tokens of a formula.
#pragma once

#include <string_view>

enum ExpressionToken {
    TOKEN_END,  // of the formula; also a byte above 0x7F outside a text
    TOKEN_IDENTIFIER,
    TOKEN_NUMBER,  // decimal digits
    TOKEN_FLOAT,   // digits on both sides of a point, an exponent behind them
    TOKEN_STRING,  // with its quotes
    TOKEN_ADD,
    TOKEN_MIN,
    TOKEN_MULT,
    TOKEN_DIV,
    TOKEN_PERC,
    TOKEN_BYTE,  // any other byte, which stands for itself
};

struct ScannedToken {
    ExpressionToken kind = TOKEN_END;
    std::string_view text;
    int offset = 0;  // bytes into the formula

    bool is(char byte) const { return kind == TOKEN_BYTE && text[0] == byte; }
};

class ExpressionScanner {
  public:
    // The text, terminated, must outlive the scanner and its tokens.
    explicit ExpressionScanner(const char* text) : text_(text) {}

    ScannedToken next();
    // How many bytes were taken so far, the terminator among them: names and numbers take one byte more to see their end,
    // and a text that is never closed takes all.
    int column() const { return column_; }

  private:
    char take(int at);
    int endOfName(int at);
    int endOfDigits(int at);
    int endOfString(int at);
    int endOfNumber(int at, ExpressionToken* kind);

    const char* text_;
    int at_ = 0;
    int column_ = 0;
};
