#include "host/server/RowsQuery.h"

#include <charconv>
#include <set>

namespace almanac::host {
namespace {

using Values = std::vector<std::pair<std::string, std::string>>;

bool readLimit(const std::string& text, std::size_t* out) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > 0x7FFFFFFF) return false;
    *out = value;
    return true;
}

}  // namespace

bool readDeadline(std::string_view text, std::chrono::milliseconds* out) {
    double factor = 1000;
    if (text.ends_with("ms")) {
        factor = 1;
        text.remove_suffix(2);
    } else if (text.ends_with('s')) {
        text.remove_suffix(1);
    }
    double value = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    if (error != std::errc() || end != text.data() + text.size()) return false;
    value *= factor;
    if (!(value >= 1 && value <= 3600000)) return false;
    *out = std::chrono::milliseconds(static_cast<long long>(value));
    return true;
}

std::vector<std::string> splitList(std::string_view text) {
    std::vector<std::string> items;
    while (!text.empty()) {
        const std::size_t comma = text.find(',');
        if (comma != 0) items.emplace_back(text.substr(0, comma));
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    }
    return items;
}

namespace {

bool readColumns(const std::string& text, const TableLayout& layout, RowsQuery* query, ApiResponse* wrong) {
    for (const std::string& name : splitList(text)) {
        const Column* column = layout.find(name);
        if (!column) {
            const std::string near = layout.nearest(name);
            *wrong = problem(400, "columns: table " + layout.name + " has no column '" + name + "'" +
                                      (near.empty() ? "" : ", did you mean '" + near + "'?"));
            return false;
        }
        query->columns.push_back(column);
    }
    return true;
}

bool readFilter(const std::string& text, const TableLayout& layout, RowsQuery* query, ApiResponse* wrong) {
    if (text.find_first_not_of(' ') == std::string::npos) return true;
    FilterError error;
    query->filter = Filter::compile(text, layout, &error);
    if (query->filter) return true;
    *wrong = problem(400, "filter, position " + std::to_string(error.position) + ": " + error.message,
                     "position", static_cast<long long>(error.position));
    return false;
}

bool readFormat(const std::string& text, RowFormat* format) {
    if (text == "json")
        *format = RowFormat::Json;
    else if (text == "ndjson")
        *format = RowFormat::Ndjson;
    else if (text == "csv")
        *format = RowFormat::Csv;
    else
        return false;
    return true;
}

}  // namespace

std::optional<RowsQuery> parseRowsQuery(const HttpTarget& target, std::string_view accept,
                                        const TableLayout& layout, ApiResponse* wrong) {
    RowsQuery query;
    std::set<std::string> seen;
    for (const auto& [name, value] : target.query) {
        const bool again = !seen.insert(name).second;
        if (again && name != "columns" && name != "node") {
            *wrong = problem(400, "the parameter '" + name + "' stands more than once");
            return std::nullopt;
        }
        if (name == "filter") {
            if (!readFilter(value, layout, &query, wrong)) return std::nullopt;
        } else if (name == "columns") {
            if (!readColumns(value, layout, &query, wrong)) return std::nullopt;
        } else if (name == "node") {
            if (!value.empty()) query.nodes.push_back(value);
        } else if (name == "limit") {
            if (!readLimit(value, &query.limit)) {
                *wrong = problem(400, "limit: '" + value + "' is no number from 0 to 2147483647");
                return std::nullopt;
            }
        } else if (name == "deadline") {
            if (!readDeadline(value, &query.deadline)) {
                *wrong = problem(400, "deadline: '" + value + "' is no time from 1ms to 3600s");
                return std::nullopt;
            }
        } else if (name == "format") {
            if (!readFormat(value, &query.format)) {
                *wrong = problem(400, "format: '" + value + "' is none of json, ndjson, csv");
                return std::nullopt;
            }
        } else {
            *wrong = problem(400, "no parameter has the name '" + name +
                                      "'; there are filter, columns, node, limit, deadline and format");
            return std::nullopt;
        }
    }
    if (seen.count("format") == 0) {
        const int choice = negotiate(accept, {"application/json", "application/x-ndjson", "text/csv"});
        if (choice < 0) {
            *wrong = problem(406, "rows come as application/json, application/x-ndjson or text/csv");
            return std::nullopt;
        }
        query.format = static_cast<RowFormat>(choice);
    }
    return query;
}

}  // namespace almanac::host
