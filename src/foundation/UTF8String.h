// UTF8String: a text in UTF-8 beside the local text it came from. Rows carry UTF-8, providers read local text.
#pragma once

class alignas(void*) UTF8String {
  public:
    UTF8String() : heap_{nullptr, nullptr, 0} {}
    ~UTF8String();
    UTF8String(const UTF8String&) = delete;
    UTF8String& operator=(const UTF8String&) = delete;

    // From the process's locale (applicationLocale). A null text gives "<NULL>", one that is no text of the locale
    // "<UNABLE TO CONVERT TO UTF8>" as a whole. Returns 0.
    int initFromASCIIString(const char* text);
    // The same from code page IBM037.
    int initFromEBCDICString(const char* text);
    // Takes the bytes as they stand, with a length exactly that many, which the text must hold; a null text gives
    // "NULL". Returns 0.
    int initFromUTF8String(const char* text);
    int initFromUTF8String(const char* text, int length);

    int getLength() const { return isInline_ ? inlineLength_ : heap_.length; }
    // Terminated; null before any initialisation. Valid until the next operation that is not const.
    const char* getUTF8Value() const { return isInline_ ? inline_ : heap_.value; }
    // The text it was made from; null if there is none (a deep copy has none).
    const char* getSource() const;
    // The EBCDIC form, made at first use (not safe against a concurrent first use).
    int getEBCDICLength();
    const char* getEBCDICValue();

    bool isEqual(const UTF8String* other) const;
    // Appends the other's value; the source text stays.
    void concat(const UTF8String* other);
    // A new object with the value, or "<NULL>" if this has none; the source text is not copied.
    UTF8String* getDeepCopy() const;
    // Takes over a malloc'd text. Kept: a value taken over before is not freed, its holder still owns it.
    void setUTF8Value(char* value, int length);

  private:
    // What only few texts have: a source that differs from the value, the EBCDIC form.
    struct Extra;
    struct [[gnu::packed]] Heap {
        char* value;
        Extra* extra;
        int length;
    };
    static constexpr int kInlineSize = 23;  // 22 bytes and a terminator

    void discard();
    void store(const char* bytes, int length);
    void keepSource(const char* text);
    void beforeNewValue();
    Extra& extra();
    const Extra* extraIfAny() const { return isInline_ ? nullptr : heap_.extra; }

    // Table cells are made of these in great numbers: a text whose source equals its value is kept once, and a short
    // one in the object itself.
    union {
        Heap heap_;
        char inline_[kInlineSize];
    };
    unsigned char inlineLength_ : 5 = 0;
    bool valueIsSource_ : 1 = false;
    bool isInline_ : 1 = false;
};
