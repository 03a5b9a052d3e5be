// Filters: the text that people write, and the flat list of comparisons it is compiled to.
//
//     CPU > 80 AND NAME = 'java' OR SCAN(CMD, 'x')
//
// Comparisons are = (or ==) != (or <>) < <= > >=; AND binds tighter than OR, NOT tighter than AND; keywords
// in any case. Numbers are decimal and may have a fraction on a column with implied decimals ("d-2": 1.25
// compares with the stored 125). Text stands in single quotes, a quote inside is doubled. Trailing blanks
// never count.
//     SCAN(column, 'text')          the column contains the text
//     SUBSTR(column, 'text')        the column begins with the text
//     SUBSTR(column, pos, 'text')   the text stands at byte position pos, counted from 1
//     PARMA('name', 'text')         no comparison: a parameter for the data source, true for every row
// Parentheses are multiplied out to a disjunction of conjunctions of at most kMaxComparisons comparisons.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/model/Table.h"
#include "platform/zhb.h"

namespace almanac::host {

// What a comparison compares with. The agent gets a pointer to it as the opaque value of ColumnIsException
// and hands it back to aghbx::IsException.
struct FilterLiteral {
    HBX_FilterFunction function = HBX_FN_NONE;
    bool isText = false;
    std::string text;          // without trailing blanks, unless a function looks for it
    long long number = 0;      // scaled by the column's decimals; the whole number below it if `between`
    bool between = false;      // the number lies between `number` and `number` + 1
    std::size_t position = 0;  // of SUBSTR, from 0

    // The comparison itself; `oper` is INTF_EQ to INTF_GT.
    bool matches(_IntfOper oper, long long cell) const;
    bool matches(_IntfOper oper, std::string_view cell) const;
};

struct FilterComparison {
    std::string column;     // the name as the layout spells it; "PARMA" for a parameter
    std::string parameter;  // name of a parameter, else empty
    _IntfOper oper = INTF_EQ;
    bool wide = false;  // the value needs (or the column has) 64 bits
    FilterLiteral literal;
};

struct FilterError {
    std::size_t position = 0;  // column in the text, from 1
    std::string message;       // what was expected or is not known
};

// A compiled filter. Immutable; what elements() gives out points into it.
class Filter {
  public:
    static constexpr std::size_t kMaxComparisons = 1000;
    static constexpr std::size_t kMaxText = 16384;  // bytes
    static constexpr int kMaxDepth = 64;            // of parentheses and NOTs

    // Compiles `text` for a table. Null with `error` filled if it is no filter; an empty or blank text is an
    // error too (a request without a filter has none).
    static std::shared_ptr<const Filter> compile(std::string_view text, const TableLayout& layout,
                                                 FilterError* error);

    // The filter elements as the agent reads them, in order.
    const std::vector<ZFL1_FILTERINFO>& elements() const { return elements_; }
    const std::vector<FilterComparison>& comparisons() const { return comparisons_; }

    // Evaluates the filter: `compare(const FilterComparison&)` tells whether one comparison holds. Parameters
    // are not asked for.
    template <class Compare>
    bool evaluate(Compare&& compare) const {
        bool conjunction = true;
        for (std::size_t i = 0; i < comparisons_.size(); ++i) {
            const FilterComparison& c = comparisons_[i];
            if (conjunction && c.literal.function != HBX_FN_PARMA) conjunction = compare(c);
            if (elements_[i].oper2 == INTF_AND) continue;
            if (conjunction) return true;
            conjunction = true;
        }
        return false;
    }

    Filter(std::vector<FilterComparison> comparisons, const std::vector<bool>& endsConjunction);
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;

  private:
    std::vector<FilterComparison> comparisons_;
    std::vector<int> numbers_;  // the 32-bit form of each literal, which the elements point to
    std::vector<ZFL1_FILTERINFO> elements_;
};

}  // namespace almanac::host
