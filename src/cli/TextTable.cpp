#include "cli/TextTable.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace almanac::cli {

namespace {

std::size_t codePoints(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// A terminal must not be steered by what a table holds.
std::string printable(const std::string& text) {
    std::string shown = text;
    for (char& c : shown) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
    }
    return shown;
}

std::string padded(const std::string& text, std::size_t width, bool right, bool last) {
    const std::size_t used = codePoints(text);
    const std::string blanks(width > used ? width - used : 0, ' ');
    if (right) return blanks + text;
    return last ? text : text + blanks;
}

}  // namespace

bool useColour() {
    const char* no = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) && !(no && *no);
}

std::string TextTable::text(bool bold) const {
    std::vector<std::size_t> widths;
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        std::size_t width = codePoints(columns_[c].title);
        for (const auto& row : rows_) width = std::max(width, c < row.size() ? codePoints(row[c]) : 0);
        widths.push_back(width);
    }
    const auto line = [&](auto cellAt) {
        std::string text;
        for (std::size_t c = 0; c < columns_.size(); ++c) {
            if (c > 0) text += "  ";
            text += padded(cellAt(c), widths[c], columns_[c].right, c + 1 == columns_.size());
        }
        return text;
    };
    std::string all = bold ? "\033[1m" : "";
    all += line([&](std::size_t c) { return columns_[c].title; });
    all += bold ? "\033[0m\n" : "\n";
    for (const auto& row : rows_) {
        all += line([&](std::size_t c) { return c < row.size() ? printable(row[c]) : std::string(); });
        all += '\n';
    }
    return all;
}

}  // namespace almanac::cli
