#include "host/config/TomlLexer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "host/base/Utf8.h"

namespace almanac::host {
namespace {

constexpr auto npos = std::string_view::npos;

bool isBare(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

// The offset behind the text that begins with a quote at `at`.
std::size_t textEnd(std::string_view text, std::size_t at) {
    const char quote = text[at];
    const std::string triple(3, quote);
    const bool many = text.substr(at, 3) == triple;
    for (std::size_t i = at + (many ? 3 : 1); i < text.size(); ++i) {
        if (text[i] == '\\' && quote == '"') {
            ++i;
        } else if (many && text.substr(i, 3) == triple) {
            i += 3;
            while (i < text.size() && text[i] == quote)
                ++i;  // up to two quotes may stand before the closing ones
            return i;
        } else if (!many && text[i] == quote) {
            return i + 1;
        } else if (!many && text[i] == '\n') {
            return npos;
        }
    }
    return npos;
}

void appendUtf8(std::string* out, unsigned long code) {
    if (code < 0x80) {
        *out += static_cast<char>(code);
    } else if (code < 0x800) {
        *out += static_cast<char>(0xC0 | (code >> 6));
        *out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        *out += static_cast<char>(0xE0 | (code >> 12));
        *out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        *out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x110000) {
        *out += static_cast<char>(0xF0 | (code >> 18));
        *out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        *out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        *out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// The content of a basic string, without its quotes.
std::string unescaped(std::string_view text) {
    static constexpr std::string_view kLetters = "btnfr\"\\";
    static constexpr std::string_view kBytes = "\b\t\n\f\r\"\\";
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 >= text.size()) {
            out += text[i];
            continue;
        }
        const char letter = text[++i];
        const std::size_t found = kLetters.find(letter);
        if (found != npos) {
            out += kBytes[found];
        } else if (letter == 'u' || letter == 'U') {
            const std::size_t digits = letter == 'u' ? 4 : 8;
            appendUtf8(&out, std::strtoul(std::string(text.substr(i + 1, digits)).c_str(), nullptr, 16));
            i += digits;
        }
    }
    return out;
}

}  // namespace

std::size_t skipBlanks(std::string_view text, std::size_t at) {
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t')) ++at;
    return at;
}

std::size_t nextLine(std::string_view text, std::size_t at) {
    const std::size_t end = at < text.size() ? text.find('\n', at) : npos;
    return end == npos ? text.size() : end + 1;
}

bool readKey(std::string_view text, std::size_t* at, std::vector<std::string>* parts) {
    for (;;) {
        *at = skipBlanks(text, *at);
        if (*at >= text.size()) return false;
        std::size_t end = *at;
        if (text[end] == '"' || text[end] == '\'') {
            end = textEnd(text, *at);
            if (end == npos) return false;
            const std::string_view content = text.substr(*at + 1, end - *at - 2);
            parts->push_back(text[*at] == '"' ? unescaped(content) : std::string(content));
        } else {
            while (end < text.size() && isBare(text[end])) ++end;
            if (end == *at) return false;
            parts->emplace_back(text.substr(*at, end - *at));
        }
        *at = skipBlanks(text, end);
        if (*at >= text.size() || text[*at] != '.') return true;
        ++*at;
    }
}

std::size_t valueEnd(std::string_view text, std::size_t at) {
    if (at >= text.size()) return npos;
    if (text[at] == '"' || text[at] == '\'') return textEnd(text, at);
    if (text[at] != '[' && text[at] != '{') {
        std::size_t end = std::min(text.find_first_of("#\r\n", at), text.size());
        while (end > at && (text[end - 1] == ' ' || text[end - 1] == '\t')) --end;
        return end > at ? end : npos;
    }
    int depth = 0;
    for (std::size_t i = at; i < text.size();) {
        const char c = text[i];
        if (c == '"' || c == '\'') {
            i = textEnd(text, i);
            if (i == npos) return npos;
            continue;
        }
        if (c == '#') {
            i = nextLine(text, i);
            continue;
        }
        if (c == '[' || c == '{') ++depth;
        ++i;
        if ((c == ']' || c == '}') && --depth == 0) return i;
    }
    return npos;
}

std::string writtenKey(const std::string& name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), isBare) ? name : writtenText(name);
}

std::string writtenText(const std::string& value) {
    std::string out = "\"";
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04X", byte);
            out += code;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

bool isPlainText(std::string_view text) {
    return validUtf8Prefix(text) == text.size() && text.find('\0') == std::string_view::npos;
}

}  // namespace almanac::host
