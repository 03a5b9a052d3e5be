#include "host/model/Table.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace almanac::host {
namespace {

char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Edit distance with a neighbouring swap as one edit, ASCII case ignored; names are short.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before(b.size() + 1), last(b.size() + 1), now(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        now[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = fold(a[i - 1]) == fold(b[j - 1]);
            now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (same ? 0u : 1u)});
            if (i > 1 && j > 1 && fold(a[i - 1]) == fold(b[j - 2]) && fold(a[i - 2]) == fold(b[j - 1]))
                now[j] = std::min(now[j], before[j - 2] + 1);
        }
        std::swap(before, last);
        std::swap(last, now);
    }
    return last[b.size()];
}

}  // namespace

const char* columnTypeName(ColumnKind kind) {
    switch (kind) {
        case ColumnKind::Int16:
            return "int16";
        case ColumnKind::Int32:
            return "int32";
        case ColumnKind::Int64:
            return "int64";
        case ColumnKind::Text:
            break;
    }
    return "text";
}

int hintDecimals(std::string_view hint) {
    if (hint.size() < 3 || hint.size() > 4 || fold(hint[0]) != 'd' || hint[1] != '-') return 0;
    int decimals = 0;
    for (const char c : hint.substr(2)) {
        if (c < '0' || c > '9') return 0;
        decimals = decimals * 10 + (c - '0');
    }
    return decimals <= 18 ? decimals : 0;
}

bool equalsNoCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return fold(x) == fold(y); });
}

std::string nearestName(std::string_view wanted, const std::vector<std::string_view>& names) {
    std::string_view best;
    std::size_t bestDistance = 3;
    if (wanted.size() > 64) return "";
    for (const std::string_view name : names) {
        if (name.size() > wanted.size() + 2 || wanted.size() > name.size() + 2) continue;
        const std::size_t distance = editDistance(wanted, name);
        if (distance < bestDistance && distance * 2 < name.size()) {
            best = name;
            bestDistance = distance;
        }
    }
    return std::string(best);
}

const Column* TableLayout::find(std::string_view wanted) const {
    const Column* folded = nullptr;
    bool ambiguous = false;
    for (const Column& column : columns) {
        if (column.name == wanted) return &column;
        if (equalsNoCase(column.name, wanted)) {
            ambiguous = folded != nullptr;
            folded = &column;
        }
    }
    return ambiguous ? nullptr : folded;
}

std::string TableLayout::nearest(std::string_view wanted) const {
    std::vector<std::string_view> names;
    names.reserve(columns.size());
    for (const Column& column : columns) names.push_back(column.name);
    return nearestName(wanted, names);
}

long long readInteger(const Column& column, const char* row) {
    const char* at = row + column.offset;
    if (column.length == 8) {
        std::int64_t value = 0;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    if (column.length == 2) {
        std::int16_t value = 0;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    std::int32_t value = 0;
    std::memcpy(&value, at, std::min(column.length, sizeof value));
    return value;
}

std::string_view readText(const Column& column, const char* row) {
    const char* at = row + column.offset;
    std::size_t length = column.length;
    while (length > 0 && (at[length - 1] == ' ' || at[length - 1] == '\0')) --length;
    return {at, length};
}

}  // namespace almanac::host
