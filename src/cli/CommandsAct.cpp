// act, actions: what the agent can be told to do.
#include <cstdio>

#include "cli/Answers.h"
#include "cli/Commands.h"
#include "cli/TextTable.h"

namespace almanac::cli {

namespace {

constexpr int kNetworkGrace = 10;  // seconds beyond the action's own deadline
constexpr long kDefaultDeadline = 60000;  // milliseconds

// The body that asks for the action; false, told, if a parameter is none.
bool askedFor(const ActOptions& o, long deadline, Json* body) {
    if (!o.command.empty()) {
        (*body)["command"] = o.command;
    } else {
        (*body)["task"] = o.task;
        Json parameters = Json::object();
        for (const std::string& p : o.parameters) {
            const std::size_t equals = p.find('=');
            if (equals == 0 || equals == std::string::npos) {
                complain("parameters are NAME=VALUE, not '" + p + "'; almanac actions shows their names");
                return false;
            }
            parameters[p.substr(0, equals)] = p.substr(equals + 1);
        }
        (*body)["parameters"] = parameters;
    }
    if (!o.node.empty()) (*body)["node"] = o.node;
    (*body)["deadline"] = std::to_string(deadline) + "ms";
    return true;
}

// The lines that the action wrote, or its rows in the table of actions.
std::string outcomeText(const Json& rows, bool asTable) {
    std::string lines;
    TextTable table;
    if (rows.empty()) return lines;
    for (const auto& [name, value] : rows[0].items()) table.addColumn(name, !value.is_string());
    for (const Json& row : rows) {
        std::vector<std::string> cells;
        for (const auto& [name, value] : row.items()) cells.push_back(cellText(value));
        table.addRow(std::move(cells));
        const std::string line = row.contains("TSKOUTP") ? cellText(row["TSKOUTP"]) : "";
        if (!line.empty() || rows.size() > 1) lines += line + "\n";
    }
    return asTable ? table.text(useColour()) : lines;
}

}  // namespace

int runAction(const ActOptions& o) {
    if (o.task.empty() == o.command.empty()) {
        complain("an action is named, or given as --command; almanac actions lists those that have names");
        return kUsage;
    }
    const long deadline = o.deadline.empty() ? kDefaultDeadline : parseDuration(o.deadline);
    if (deadline < 0 || deadline > 3600000) {
        complain("--deadline takes a time from 100 ms to an hour, such as 30s or 5m");
        return kUsage;
    }
    Json body;
    if (!askedFor(o, deadline, &body)) return kUsage;
    const ApiClient api(apiSocket());
    const ApiAnswer answer = api.post("/api/v1/actions", body.dump(-1, ' ', false, Json::error_handler_t::replace),
                                      static_cast<int>(deadline / 1000) + kNetworkGrace);
    if (answer.status != 200) return refused(answer);
    const Json result = Json::parse(answer.body, nullptr, false);
    if (!result.is_object() || !result.contains("rows")) {
        complain("the agent's answer is no outcome of an action");
        return kFailed;
    }
    const int code = result.value("return_code", -1);
    const int wrote = o.output == "json" ? writeAnswer(answer.body) : writeOut(outcomeText(result["rows"], o.output == "table"));
    if (wrote != kDone) return kFailed;
    const std::string message = result.value("message", "");
    std::fprintf(stderr, "return code %d%s%s\n", code, message.empty() ? "" : ": ", message.c_str());
    if (result.value("truncated", false)) std::fprintf(stderr, "more lines were left out\n");
    return code == 0 ? kDone : kFailed;
}

int listActions(const std::string& output) {
    const ApiClient api(apiSocket());
    const ApiAnswer answer = api.call("/api/v1/actions", kJson, nullptr);
    if (answer.status != 200) return refused(answer);
    if (output == "json") return writeAnswer(answer.body);
    const Json document = Json::parse(answer.body, nullptr, false);
    if (!document.is_object() || !document.contains("actions")) {
        complain("the agent's answer is no list of actions");
        return kFailed;
    }
    TextTable table;
    for (const char* title : {"ACTION", "PARAMETERS", "TITLE"}) table.addColumn(title, false);
    for (const Json& action : document["actions"]) {
        std::string parameters;
        for (const Json& p : action["parameters"]) {
            parameters += (parameters.empty() ? "" : " ") + cellText(p["name"]) + "=" + cellText(p["default"]);
        }
        table.addRow({cellText(action["name"]), parameters, cellText(action["title"])});
    }
    if (writeOut(table.text(useColour())) != kDone) return kFailed;
    if (document.contains("free_text_why")) std::fprintf(stderr, "%s\n", cellText(document["free_text_why"]).c_str());
    return kDone;
}

}  // namespace almanac::cli
