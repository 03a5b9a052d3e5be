// Request target, query and Accept header: the first line of the input is the target, the rest the Accept
// text.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/server/HttpTarget.h"
#include "host/server/RowsQuery.h"

using namespace almanac::host;

namespace {

const TableLayout& layout() {
    static const TableLayout* const instance = [] {
        auto* made = new TableLayout;
        made->name = "T";
        made->columns = {{"NAME", "", 0, 16, HBX_UTF8, ColumnKind::Text, 0},
                         {"CPU", "", 16, 4, HBX_INT32, ColumnKind::Int32, 0}};
        made->rowSize = 20;
        return made;
    }();
    return *instance;
}

void require(bool good) {
    if (!good) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t line = input.find('\n');
    const std::string target = input.substr(0, line);
    const std::string accept = line == std::string::npos ? "" : input.substr(line + 1);
    std::string error;
    const auto parsed = parseTarget(target, &error);
    require(parsed || !error.empty());
    if (parsed) {
        for (const std::string& segment : parsed->path) require(segment.find('\0') == std::string::npos);
        require(parsed->query.size() <= 64);
        ApiResponse wrong;
        const auto query = parseRowsQuery(*parsed, accept, layout(), &wrong);
        require(query || wrong.status == 400 || wrong.status == 406);
        if (query) require(query->deadline.count() >= 1 && query->deadline.count() <= 3600000);
    }
    const int choice = negotiate(accept, {"application/json", "text/csv"});
    require(choice >= -1 && choice <= 1);
    isLoopbackAuthority(target);
    return 0;
}
