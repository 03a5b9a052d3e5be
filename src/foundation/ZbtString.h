// ZBT::String: a growable string of bytes in one heap buffer that is grown in place. It knows no encoding (see
// UTF8String) and takes no lock. Lengths and capacities are bytes, without the terminator.
#pragma once

namespace ZBT {

class String {
  public:
    String();
    explicit String(int capacity);
    String(const char* text);  // a null text gives an empty string of capacity 0
    // Takes min(strlen(text), n) bytes. Kept: size() stays 0 although c_str() shows the text; callers that need
    // the length take strlen of c_str().
    String(const char* text, int n);
    String(const String& other);
    virtual ~String();

    // Kept: the capacity field of the source is taken over even where it is the smaller one.
    String& operator=(const String& other);

    // Replaces the content. Kept: a null text leaves the bytes in place and sets the length to 0.
    void copy(const char* text);
    // Replaces the content with min(strlen(text), n) bytes; a null text empties the string.
    void copy(const char* text, int n);

    void append(int c);
    void append(const char* text);
    // Appends n bytes; where the text ends before, the rest are zero bytes that count in the length.
    void append(const char* text, int n);
    void appendItoa(int number);
    void appendXtoa(unsigned char byte);

    void grow(int n);
    void reserve(int n);
    void setLength(int n);

    // Positions count from 0; -1 if there is none, or if `from` lies below 0 or at or past the length.
    int indexOf(int c, int from = 0) const;
    int indexOf(const char* text, int from = 0) const;
    int findFirstOf(const char* set, int from = 0) const;
    int findFirstNotOf(const char* set, int from = 0) const;

    String substr(int from) const;
    // Kept: the result's size() is 0, see String(const char*, int).
    String substr(int from, int n) const;

    void toUpper();
    char& operator[](int i) { return text_[i]; }
    char operator[](int i) const { return text_[i]; }

    const char* c_str() const { return text_; }
    char* data() { return text_; }
    int size() const { return length_; }
    bool empty() const { return length_ == 0; }

    int capacity() const { return capacity_; }

  private:
    void allocate(int capacity);
    void enlarge(int capacity);
    bool outside(int from) const { return from < 0 || from >= length_; }

    char* text_ = nullptr;
    int length_ = 0;
    int capacity_ = 0;
    int growthPercent_ = 0;
    int allocated_ = 0;  // bytes behind text_; never below capacity_ + 1
};

}  // namespace ZBT
