#include "host/model/Filter.h"

#include <algorithm>

namespace almanac::host {
namespace {

// order: below 0, 0 or above 0 as the cell is below, equal to or above the value.
bool holds(_IntfOper oper, int order) {
    switch (oper) {
        case INTF_EQ:
            return order == 0;
        case INTF_NE:
            return order != 0;
        case INTF_GE:
            return order >= 0;
        case INTF_LE:
            return order <= 0;
        case INTF_LT:
            return order < 0;
        case INTF_GT:
            return order > 0;
        default:
            return false;
    }
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.remove_suffix(1);
    return text;
}

}  // namespace

bool FilterLiteral::matches(_IntfOper oper, long long cell) const {
    if (isText) return false;
    const int order = between ? (cell <= number ? -1 : 1) : (cell < number ? -1 : (cell > number ? 1 : 0));
    return holds(oper, order);
}

bool FilterLiteral::matches(_IntfOper oper, std::string_view cell) const {
    if (!isText) return false;
    const std::string_view found = trimmed(cell);
    if (function == HBX_FN_SCAN) return (found.find(text) != std::string_view::npos) == (oper == INTF_EQ);
    if (function == HBX_FN_SUBSTR) {
        const bool stands = position <= found.size() && found.substr(position, text.size()) == text;
        return stands == (oper == INTF_EQ);
    }
    return holds(oper, found.compare(text));
}

Filter::Filter(std::vector<FilterComparison> comparisons, const std::vector<bool>& endsConjunction)
    : comparisons_(std::move(comparisons)) {
    numbers_.reserve(comparisons_.size());
    elements_.reserve(comparisons_.size());
    for (std::size_t i = 0; i < comparisons_.size(); ++i) {
        const FilterComparison& c = comparisons_[i];
        ZFL1_FILTERINFO e;
        e.function = c.literal.function;
        e.oper = c.oper;
        e.oper2 = i + 1 == comparisons_.size() ? INTF_NONE : (endsConjunction[i] ? INTF_OR : INTF_AND);
        e.column = c.column.c_str();
        if (c.literal.function == HBX_FN_PARMA) {
            e.size = 300;
            e.hasName = true;
            e.name = c.parameter.c_str();
        }
        numbers_.push_back(static_cast<int>(std::clamp<long long>(c.literal.number, INT32_MIN, INT32_MAX)));
        if (c.literal.isText) {
            e.dataType = HBX_DATA_TEXT;
            e.value = c.literal.text.data();
            e.valueLength = static_cast<int>(c.literal.text.size());
        } else if (c.wide) {
            e.dataType = HBX_DATA_INT64;
            e.value = &c.literal.number;
            e.valueLength = sizeof(long long);
        } else {
            e.dataType = HBX_DATA_INT32;
            e.value = &numbers_.back();
            e.valueLength = sizeof(int);
        }
        elements_.push_back(e);
    }
}

}  // namespace almanac::host
