#include "actions/TaskOutput.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

bool continuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The length of the first piece of a line that is too long.
std::size_t pieceOf(std::string_view line) {
    constexpr std::size_t kLongestCharacter = 4;
    for (std::size_t n = kLongestTaskLine; n > kLongestTaskLine - kLongestCharacter; --n) {
        if (!continuesCharacter(line[n])) return n;
    }
    return kLongestTaskLine;  // no UTF-8
}

std::string_view takeLine(std::string_view* rest) {
    const std::size_t whole = rest->substr(0, kLongestTaskLine + 1).find('\n');
    const bool divided = whole == std::string_view::npos && rest->size() > kLongestTaskLine;
    const std::size_t n = divided ? pieceOf(*rest) : std::min(whole, rest->size());
    const std::string_view line = rest->substr(0, n);
    rest->remove_prefix(std::min(divided ? n : n + 1, rest->size()));
    return line;
}

void add(int number, std::string_view text, List* instances, List* lines) {
    instances->add(strdup(std::to_string(number).c_str()));
    lines->add(strndup(text.data(), text.size()));
}

}  // namespace

bool readTaskOutput(std::string_view output, TaskEvents events, List* instances, List* lines) {
    int number = 0;
    std::string all;
    while (!output.empty()) {
        const std::string_view line = takeLine(&output);
        ++number;
        if (events == TaskEvents::OneForEachLine) {
            if (number > kMostTaskLines) return false;
            add(number, line, instances, lines);
        } else {
            if (number > 1) all += '\n';
            all += line;
        }
    }
    if (events == TaskEvents::OneForAll && number > 0) add(number, all, instances, lines);
    return true;
}
