#include "runtime/check/Words.h"

#include <algorithm>
#include <cctype>

namespace {

std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) == std::tolower(static_cast<unsigned char>(b[j - 1]));
            const std::size_t changed = diagonal + (same ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row[b.size()];
}

}  // namespace

const char* closest(const std::string& word, const std::vector<const char*>& known) {
    const char* best = nullptr;
    std::size_t bestDistance = word.size() / 3 + 2;
    for (const char* candidate : known) {
        const std::size_t d = distance(word, candidate);
        if (d < bestDistance) {
            bestDistance = d;
            best = candidate;
        }
    }
    return best;
}

std::string didYouMean(const std::string& word, const std::vector<const char*>& known) {
    const char* best = closest(word, known);
    return best ? std::string("; did you mean '") + best + "'?" : "";
}
