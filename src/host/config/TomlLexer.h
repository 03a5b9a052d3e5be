// Where keys and values begin and end in a text that is known to be TOML (v1.0.0), so that one of them can be
// replaced without touching a byte beside it. Pure.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace almanac::host {

// The first offset from `at` on that is no blank or tab.
std::size_t skipBlanks(std::string_view text, std::size_t at);

// The offset behind the line feed of the line that holds `at`.
std::size_t nextLine(std::string_view text, std::size_t at);

// Reads a dotted key at `*at`: its parts, unquoted, and `*at` behind it and the blanks that follow. False if
// there is none.
bool readKey(std::string_view text, std::size_t* at, std::vector<std::string>* parts);

// The offset behind the value that begins at `at`, or npos if it does not end.
std::size_t valueEnd(std::string_view text, std::size_t at);

// A key as it is written: bare where that is possible, else as a basic string.
std::string writtenKey(const std::string& name);

// A basic string with its quotes.
std::string writtenText(const std::string& value);

// True for whole well-formed UTF-8 without U+0000, which is what a basic string can hold and a C string too.
bool isPlainText(std::string_view text);

}  // namespace almanac::host
