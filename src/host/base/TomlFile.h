// Reads TOML (v1.0.0) into a plain tree. The one place of the host that knows the parser library.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace almanac::host {

struct TomlValue {
    enum class Kind { Table, Array, Text, Integer, Real, Boolean, Other };

    Kind kind = Kind::Other;
    // Of a scalar: the text itself, a decimal integer, a real number as it is written, "true" or "false".
    std::string text;
    std::map<std::string, TomlValue, std::less<>> members;  // of a table
    std::vector<TomlValue> items;                           // of an array
    unsigned line =
        0;  // from 1; only known for the first value of the file that is no scalar, table or array of tables
    unsigned column = 0;

    bool isScalar() const {
        return kind == Kind::Text || kind == Kind::Integer || kind == Kind::Real || kind == Kind::Boolean;
    }
    // The member of that name, or null.
    const TomlValue* member(const std::string& name) const;
    // ":line:column", or nothing if the place is not known.
    std::string place() const;
};

enum class TomlRead { Ok, Missing, Broken };

// A file of more bytes than this, one with a longer line (the parser's time for a line of many values grows
// with the square of its length), or one that nests brackets deeper, is refused as broken.
inline constexpr std::size_t kTomlSizeLimit = 1024 * 1024;
inline constexpr std::size_t kTomlLineLimit = 64 * 1024;
inline constexpr int kTomlDepthLimit = 32;

// Reads a whole file. Missing (no such file) leaves `error` alone; Broken (cannot be read, too large, no
// TOML) sets it to one line, "file:line:column: ..." where there is a place.
TomlRead readTomlFile(const std::string& path, TomlValue* out, std::string* error);

// The bytes of a file, with the same limits and results.
TomlRead readTextFile(const std::string& path, std::string* out, std::string* error);

// Parses a text; `name` stands for the file in the error line. False if it is no TOML. Never throws.
bool parseToml(const std::string& text, const std::string& name, TomlValue* out, std::string* error);

}  // namespace almanac::host
