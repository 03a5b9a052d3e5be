// Splits a text at a delimiter string, or at any one byte of a set. Adjacent delimiters give empty tokens, a
// trailing delimiter gives none.
#pragma once

#include "foundation/ZbtString.h"

class StringTokenizer {
  public:
    // `delimiters` is not copied and must outlive the tokenizer. An empty delimiter text never divides.
    StringTokenizer(const char* text, const char* delimiters, bool anyOf);
    virtual ~StringTokenizer() = default;

    // The next token, valid until the next call; null at the end.
    const char* next();

  private:
    ZBT::String token_;
    const char* delimiters_;
    ZBT::String rest_;
    int position_ = 0;  // where the unconsumed text starts in rest_
    bool anyOf_;
};
