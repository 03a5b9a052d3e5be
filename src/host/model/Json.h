// Writing JSON (RFC 8259) by appending to a string. Nothing here fails but for memory.
#pragma once

#include <string>
#include <string_view>

namespace almanac::host {

// Appends `text` with quotes. Control bytes, '"' and '\' are escaped; bytes that are no UTF-8 (RFC 3629)
// become U+FFFD, one for each maximal part of a sequence.
void appendJsonString(std::string* out, std::string_view text);
// Appends `text` with invalid UTF-8 replaced by U+FFFD and nothing escaped.
void appendValidUtf8(std::string* out, std::string_view text);

void appendInteger(std::string* out, long long number);
// A whole number with implied decimals: 12345 with 2 gives 123.45, -5 gives -0.05.
void appendDecimal(std::string* out, long long number, int decimals);

// Writes objects and arrays with their commas. The caller opens and closes in order.
class JsonWriter {
  public:
    explicit JsonWriter(std::string* out) : out_(out) {}

    JsonWriter& beginObject() { return open('{'); }
    JsonWriter& endObject() { return close('}'); }
    JsonWriter& beginArray() { return open('['); }
    JsonWriter& endArray() { return close(']'); }
    JsonWriter& key(std::string_view name);
    JsonWriter& value(std::string_view text);
    JsonWriter& value(const char* text) { return value(std::string_view(text)); }
    JsonWriter& value(long long number);
    JsonWriter& value(int number) { return value(static_cast<long long>(number)); }
    JsonWriter& value(std::size_t number) { return value(static_cast<long long>(number)); }
    JsonWriter& value(bool flag);
    // A number with six decimals; what is not finite becomes null.
    JsonWriter& value(double number);
    JsonWriter& null();

  private:
    JsonWriter& open(char bracket);
    JsonWriter& close(char bracket);
    void separate();

    std::string* out_;
    bool comma_ = false;  // a value stands before in the present object or array
};

}  // namespace almanac::host
