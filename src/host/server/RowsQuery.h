// The query parameters of a rows request, read strictly. Pure.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/model/Filter.h"
#include "host/model/RowWriter.h"
#include "host/server/ApiMessage.h"
#include "host/server/HttpTarget.h"

namespace almanac::host {

struct RowsQuery {
    std::shared_ptr<const Filter> filter;
    std::vector<const Column*> columns;  // empty for all; of the layout given
    std::vector<std::string> nodes;      // as they were given: a name, or names with commas between; "*" for all
    std::size_t limit = SIZE_MAX;
    std::chrono::milliseconds deadline{30000};
    RowFormat format = RowFormat::Json;
};

// filter, columns, node, limit (0 to 2^31 - 1), deadline (seconds, or with "ms" or "s" behind; 1 ms to 1
// h), format (json, ndjson, csv; else by `accept`). Each once, but columns, which also takes
// commas, and node. Nothing if something is wrong; `wrong` is then the answer (400 or 406).
std::optional<RowsQuery> parseRowsQuery(const HttpTarget& target, std::string_view accept,
                                        const TableLayout& layout, ApiResponse* wrong);

// A time of 1 ms to 1 h: seconds, or with "ms" or "s" behind. False for anything else.
bool readDeadline(std::string_view text, std::chrono::milliseconds* out);

// What stands between commas; empty items are left out.
std::vector<std::string> splitList(std::string_view text);

}  // namespace almanac::host
