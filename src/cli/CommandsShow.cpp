// tables, nodes, show, status, trace: the commands that ask the API.
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <sstream>

#include "cli/Answers.h"
#include "cli/Commands.h"
#include "cli/TextTable.h"
#include "host/base/Paths.h"

namespace almanac::cli {

namespace {

constexpr const char* kErrorCodes[] = {
#define PERF_OBJECT_CODE(name) #name,
#include "platform/perf_object_codes.inc"
#undef PERF_OBJECT_CODE
};
constexpr long kErrorCodeCount = static_cast<long>(sizeof kErrorCodes / sizeof kErrorCodes[0]);

bool isNumeric(const Json& column) { return column.value("type", "text") != "text"; }

// "1261122213305000": century, year, month, day, hour, minute, second, milliseconds.
// Anything else comes back as it is.
std::string readableTimestamp(const std::string& t) {
    if (t.size() != 16 || t.find_first_not_of("0123456789") != std::string::npos) return t;
    const int year = 1900 + std::atoi(t.substr(0, 3).c_str());
    return std::to_string(year) + "-" + t.substr(3, 2) + "-" + t.substr(5, 2) + " " + t.substr(7, 2) + ":" + t.substr(9, 2) +
           ":" + t.substr(11, 2);
}

// Local time of milliseconds since 1970.
std::string readableMilliseconds(long long milliseconds) {
    const std::time_t seconds = milliseconds / 1000;
    std::tm local{};
    char text[32];
    if (!localtime_r(&seconds, &local) || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) == 0) return "";
    return text;
}

// A text column of the time stamp's length; its values are shown readable where they are time stamps.
bool isTimestampColumn(const Json& column) { return !isNumeric(column) && column.value("length", 0) == 16; }

std::string rowsTarget(const ShowOptions& o) {
    std::string target = "/api/v1/tables/" + ApiClient::encode(o.table) + "/rows";
    char separator = '?';
    const auto add = [&](const char* name, const std::string& value) {
        if (value.empty()) return;
        target += separator + std::string(name) + "=" + ApiClient::encode(value);
        separator = '&';
    };
    add("filter", o.filter);
    add("columns", o.columns);
    for (const std::string& node : o.nodes) add("node", node);
    add("limit", o.limit > 0 ? std::to_string(o.limit) : "");
    return target;
}

bool sameName(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

// Origin and time stamp, the same in all rows, can be told in a caption; not so with the rows of several nodes.
bool isCaptioned(const Json& layout, const Json& rows, const ShowOptions& o) {
    if (o.wide || !o.columns.empty() || !o.nodes.empty() || layout["columns"].size() < 3) return false;
    const std::string origin = layout["columns"][0]["name"];
    return std::all_of(rows.begin(), rows.end(), [&](const Json& row) { return row.value(origin, Json()) == rows[0].value(origin, Json()); });
}

// The columns to show, in the order asked for.
std::vector<const Json*> shownColumns(const Json& layout, const ShowOptions& o, bool captioned) {
    std::vector<const Json*> shown;
    if (o.columns.empty()) {
        for (const Json& column : layout["columns"]) shown.push_back(&column);
        if (captioned) shown.erase(shown.begin(), shown.begin() + 2);
        return shown;
    }
    std::istringstream names(o.columns);
    for (std::string name; std::getline(names, name, ',');) {
        for (const Json& column : layout["columns"]) {
            if (!sameName(column["name"].get<std::string>(), name)) continue;
            if (std::find(shown.begin(), shown.end(), &column) == shown.end()) shown.push_back(&column);
        }
    }
    return shown;
}

std::string caption(const Json& layout, const Json& rows) {
    if (rows.empty() || layout["columns"].size() < 2) return "";
    const std::string origin = layout["columns"][0]["name"];
    const std::string time = layout["columns"][1]["name"];
    const Json& first = rows[0];
    if (!first.contains(origin) || !first.contains(time)) return "";
    return cellText(first[origin]) + ", " + readableTimestamp(cellText(first[time])) + ", " + std::to_string(rows.size()) +
           (rows.size() == 1 ? " row" : " rows");
}

int showAsText(const ApiClient& api, const ShowOptions& o) {
    const ApiAnswer layoutAnswer = api.call("/api/v1/tables/" + ApiClient::encode(o.table), kJson, nullptr);
    if (layoutAnswer.status != 200) return refused(layoutAnswer);
    const ApiAnswer answer = api.call(rowsTarget(o), kJson, nullptr);
    if (answer.status != 200) return refused(answer);
    const Json layout = Json::parse(layoutAnswer.body, nullptr, false);
    const Json document = Json::parse(answer.body, nullptr, false);
    if (!layout.is_object() || !document.is_object() || !document.contains("rows")) {
        complain("the agent's answer is no table");
        return kFailed;
    }
    const Json& rows = document["rows"];
    TextTable table;
    const bool captioned = isCaptioned(layout, rows, o);
    const std::vector<const Json*> columns = shownColumns(layout, o, captioned);
    for (const Json* column : columns) table.addColumn((*column)["name"].get<std::string>(), isNumeric(*column));
    for (const Json& row : rows) {
        std::vector<std::string> cells;
        for (const Json* column : columns) {
            const std::string name = (*column)["name"];
            std::string cell = row.contains(name) ? cellText(row[name], column->value("decimals", 0)) : "";
            if (isTimestampColumn(*column)) cell = readableTimestamp(cell);
            cells.push_back(std::move(cell));
        }
        table.addRow(std::move(cells));
    }
    const std::string line = captioned ? caption(layout, rows) : "";
    if (!line.empty()) std::fprintf(stderr, "%s\n", line.c_str());
    if (writeOut(table.text(useColour())) != kDone) return kFailed;
    if (document.value("truncated", false)) {
        std::fprintf(stderr, "more rows were left out (%s)\n", o.limit > 0 ? "--limit" : "an answer holds no more");
    }
    return kDone;
}

int showOnce(const ApiClient& api, const ShowOptions& o) {
    static const std::map<std::string, std::string> kTypes = {
        {"json", kJson}, {"ndjson", "application/x-ndjson"}, {"csv", "text/csv"}};
    const auto type = kTypes.find(o.output);
    if (type == kTypes.end()) return showAsText(api, o);
    const ApiAnswer answer = api.call(rowsTarget(o), type->second, nullptr);
    if (answer.status != 200) return refused(answer);
    return answer.body.empty() ? kDone : writeAnswer(answer.body);
}

// One line of the status table for each attribute group, by its name.
using PerfRows = std::map<std::string, Json>;

PerfRows readPerfRows(const ApiClient& api, const Json& tables) {
    PerfRows found;
    for (const Json& table : tables) {
        const std::string name = table["name"];
        const ApiAnswer layout = api.call("/api/v1/tables/" + ApiClient::encode(name), kJson, nullptr);
        const Json columns = Json::parse(layout.body, nullptr, false);
        if (layout.status != 200 || !columns.is_object()) continue;
        bool group = false;
        bool code = false;
        for (const Json& column : columns["columns"]) {
            group = group || column["name"] == "ATTRGRP";
            code = code || column["name"] == "ERRCODE";
        }
        if (!group || !code) continue;
        const ApiAnswer rows = api.call("/api/v1/tables/" + ApiClient::encode(name) + "/rows", kJson, nullptr);
        const Json document = Json::parse(rows.body, nullptr, false);
        if (rows.status != 200 || !document.is_object()) continue;
        for (const Json& row : document["rows"]) found[cellText(row["ATTRGRP"])] = row;
    }
    return found;
}

std::string field(const Json* row, const char* name, int decimals = 0) {
    return row && row->contains(name) ? cellText((*row)[name], decimals) : "";
}

std::string errorName(const Json* row) {
    if (!row || !row->contains("ERRCODE")) return "";
    const long code = std::atol(cellText((*row)["ERRCODE"]).c_str());
    return code >= 0 && code < kErrorCodeCount ? kErrorCodes[code] : std::to_string(code);
}

std::string stateName(const Json* row) {
    if (!row || !row->contains("OBJSTTS")) return "";
    return cellText((*row)["OBJSTTS"]) == "0" ? "active" : "inactive";
}

std::vector<std::string> statusRow(const Json& table, const Json* perf) {
    const std::string name = table["name"];
    std::string finished = field(perf, "NUMCOLL") == "0" ? "never" : readableTimestamp(field(perf, "COLFINI"));
    return {name,
            stateName(perf),
            errorName(perf),
            finished,
            field(perf, "COLDURA", 2),
            cellText(table.value("last_rows", Json())),
            field(perf, "NUMCOLL"),
            field(perf, "CACHEHT"),
            cellText(table.value("requests", Json())),
            cellText(table.value("timeouts", Json()))};
}

}  // namespace

void complain(const std::string& text) { std::fprintf(stderr, "almanac: %s\n", text.c_str()); }

std::string apiSocket() {
    const char* socket = std::getenv("ALMANAC_SOCKET");
    return socket && *socket ? socket : host::dataDirectory() + "/almanac.sock";
}

long parseDuration(const std::string& text) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (end == text.c_str()) return -1;
    const std::string unit = end;
    const double factor = unit == "ms" ? 1 : unit == "s" || unit.empty() ? 1000 : unit == "m" ? 60000 : -1;
    const double milliseconds = number * factor;
    return milliseconds >= 100 && milliseconds <= 86400000 ? static_cast<long>(milliseconds) : -1;
}

int showTable(const ShowOptions& o) {
    const ApiClient api(apiSocket());
    if (o.watch.empty()) return showOnce(api, o);
    const long period = parseDuration(o.watch);
    if (period < 0) {
        complain("--watch takes a time of at least 100 ms, such as 2s, 500ms or 1m");
        return kUsage;
    }
    for (;;) {
        if (isatty(STDOUT_FILENO)) writeOut("\033[H\033[2J");
        const int status = showOnce(api, o);
        if (status != kDone) return status;
        timespec pause = {period / 1000, (period % 1000) * 1000000};
        nanosleep(&pause, nullptr);
    }
}

int listTables(const std::string& output) {
    const ApiClient api(apiSocket());
    const ApiAnswer answer = api.call("/api/v1/tables", kJson, nullptr);
    if (answer.status != 200) return refused(answer);
    if (output == "json") {
        return writeAnswer(answer.body);
    }
    const Json document = Json::parse(answer.body, nullptr, false);
    TextTable table;
    table.addColumn("TABLE", false);
    table.addColumn("COLUMNS", true);
    table.addColumn("ROWS", true);
    for (const Json& t : document["tables"]) {
        table.addRow({cellText(t["name"]), cellText(t["columns"]), cellText(t.value("last_rows", Json()))});
    }
    return writeOut(table.text(useColour()));
}

int listNodes(const std::string& output) {
    const ApiClient api(apiSocket());
    const ApiAnswer answer = api.call("/api/v1/nodes", kJson, nullptr);
    if (answer.status != 200) return refused(answer);
    if (output == "json") return writeAnswer(answer.body);
    const Json document = Json::parse(answer.body, nullptr, false);
    if (!document.is_object() || !document.contains("nodes")) {
        complain("the agent's answer is no list of nodes");
        return kFailed;
    }
    TextTable table;
    for (const char* title : {"NODE", "TYPE", "APPLICATION", "VERSION", "AFFINITY", "SINCE", "STATE"}) table.addColumn(title, false);
    for (const Json& node : document["nodes"]) {
        const std::string since = readableMilliseconds(node.value("since_ms", 0LL));
        table.addRow({cellText(node["name"]), cellText(node["type"]), cellText(node["application"]), cellText(node["version"]),
                      cellText(node["affinity"]), since, cellText(node["state"])});
    }
    return writeOut(table.text(useColour()));
}

int showStatus(const std::string& output) {
    const ApiClient api(apiSocket());
    const ApiAnswer answer = api.call("/api/v1/status", kJson, nullptr);
    if (answer.status != 200) return refused(answer);
    if (output == "json") {
        return writeAnswer(answer.body);
    }
    const Json document = Json::parse(answer.body, nullptr, false);
    if (!document.is_object() || !document.contains("tables")) {
        complain("the agent's answer is no status");
        return kFailed;
    }
    const PerfRows perf = readPerfRows(api, document["tables"]);
    TextTable table;
    table.addColumn("TABLE", false);
    table.addColumn("STATE", false);
    table.addColumn("ERROR", false);
    table.addColumn("LAST COLLECTION", false);
    for (const char* title : {"SECONDS", "ROWS", "COLLECTIONS", "HITS", "REQUESTS", "TIMEOUTS"}) table.addColumn(title, true);
    for (const Json& t : document["tables"]) {
        const auto row = perf.find(cellText(t["name"]));
        table.addRow(statusRow(t, row == perf.end() ? nullptr : &row->second));
    }
    if (writeOut(table.text(useColour())) != kDone) return kFailed;
    if (perf.empty()) {
        std::fprintf(stderr, "The reference file declares no Performance_Object_Status group, so states are not known.\n");
    }
    return kDone;
}

int traceCommand(const std::string& spec) {
    const ApiClient api(apiSocket());
    const std::string body = Json{{"spec", spec}}.dump();
    const ApiAnswer answer = api.call("/api/v1/trace", kJson, spec.empty() ? nullptr : &body);
    if (answer.status != 200) return refused(answer);
    const Json document = Json::parse(answer.body, nullptr, false);
    return writeOut((document.is_object() && document.contains("spec") ? cellText(document["spec"]) : answer.body) + "\n");
}

}  // namespace almanac::cli
