// Filter text: whatever compiles keeps its bounds, hands out a well-formed list of elements, and evaluates.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/model/Filter.h"

using namespace almanac::host;

namespace {

const TableLayout& layout() {
    static const TableLayout* const instance = [] {
        auto* made = new TableLayout;
        made->name = "T";
        made->columns = {{"NAME", "", 0, 16, HBX_UTF8, ColumnKind::Text, 0},
                         {"CPU", "", 16, 4, HBX_INT32, ColumnKind::Int32, 0},
                         {"SIZE", "", 20, 8, HBX_INT64, ColumnKind::Int64, 0},
                         {"LOAD", "d-2", 28, 4, HBX_INT32, ColumnKind::Int32, 2}};
        made->rowSize = 32;
        return made;
    }();
    return *instance;
}

void require(bool good) {
    if (!good) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    FilterError error;
    const auto filter = Filter::compile(text, layout(), &error);
    if (!filter) {
        require(error.position >= 1 && error.position <= Filter::kMaxText + 1 && !error.message.empty());
        return 0;
    }
    const auto& elements = filter->elements();
    require(!elements.empty() && elements.size() <= Filter::kMaxComparisons);
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const bool last = i + 1 == elements.size();
        require(elements[i].oper >= INTF_EQ && elements[i].oper <= INTF_GT);
        require(last ? elements[i].oper2 == INTF_NONE
                     : elements[i].oper2 == INTF_AND || elements[i].oper2 == INTF_OR);
        require(elements[i].value != nullptr && elements[i].valueLength >= 0);
    }
    std::size_t asked = 0;
    filter->evaluate([&asked](const FilterComparison& c) {
        ++asked;
        return c.literal.isText ? c.literal.matches(c.oper, std::string_view("java -jar  "))
                                : c.literal.matches(c.oper, 42LL);
    });
    require(asked <= elements.size());
    return 0;
}
