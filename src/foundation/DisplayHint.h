// Display hints: the DISPLAY-HINT notation of SNMP textual conventions (RFC 2579, section 3.1), applied to octet
// strings and integers.
#pragma once

#include "foundation/ZbtString.h"

// Reads a hint one part at a time.
class SeqInfo {
  public:
    explicit SeqInfo(const ZBT::String& hint);
    // The next part, or with `advance` false the first one again. False for a void part. At the hint's end it
    // changes nothing and reports success, so that the last part applies to the octets that remain.
    bool nextInfo(const ZBT::String& hint, bool advance);

    bool isSeqRepeated() const { return repeated_; }
    int length() const { return length_; }
    char displaySepChar() const { return displaySep_; }
    bool isDisplaySepChar() const { return displaySep_ != 0; }
    char repeatSepChar() const { return repeatSep_; }
    bool isRepeatSepChar() const { return repeatSep_ != 0; }
    bool isThereMore(const ZBT::String& hint) const { return position_ < hint.size(); }
    bool isSeqHex() const { return is('x'); }
    bool isSeqDec() const { return is('d'); }
    bool isSeqOct() const { return is('o'); }
    bool isSeqAsc() const { return is('a'); }
    bool isSeqUTF8() const { return is('t'); }

  private:
    bool is(char lower) const { return format_ == lower || format_ == lower - 'a' + 'A'; }
    bool voidPart(int position);

    int position_ = 0;
    bool repeated_ = false;
    int length_ = 0;
    char format_ = ' ';
    char displaySep_ = 0;
    char repeatSep_ = 0;
};

class Hex {
  public:
    // The `count` octets from `from`, big-endian, as one unsigned number in octal. At most 8 octets take part.
    static ZBT::String toString(const char* data, int from, int count, int base);
};

class DisplayHint {
  public:
    // An octet string of `length` bytes, or, if it begins with "0x", a hexadecimal dump of `length` characters.
    // A hint that cannot be read gives an empty text. The caller frees the result.
    static char* stringFromHint(const char* hint, const char* value, int length);
    // An integer: "d", "o", "x", "b" or "d-N"; anything else gives an empty text. The caller frees the result.
    static char* stringFromHint(const char* hint, int value);
};
