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
    std::vector<std::string> subnodes;   // "*" stands for all that are known
    std::size_t limit = SIZE_MAX;
    std::chrono::milliseconds deadline{30000};
    RowFormat format = RowFormat::Json;
};

// filter, columns, subnode, limit (0 to 2^31 - 1), deadline (seconds, or with "ms" or "s" behind; 1 ms to 1
// h), format (json, ndjson, csv; else by `accept`). Each once, but columns and subnode, which also take
// commas. Nothing if something is wrong; `wrong` is then the answer (400 or 406).
std::optional<RowsQuery> parseRowsQuery(const HttpTarget& target, std::string_view accept,
                                        const TableLayout& layout, ApiResponse* wrong);

}  // namespace almanac::host
